#pragma once

#include "quomi/data/entity_type.h"
#include "quomi/data/managed_object.h"
#include "quomi/util/error.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

namespace quomi {

class StoreFile;

/// A value for a "?" of a query; the monostate is NULL.
using QueryValue = std::variant<std::monostate, std::int64_t, double, std::string>;
using QueryValues = std::vector<QueryValue>;

/// Which objects of an entity, in which order: what follows "SELECT … FROM entity" in SQL. Made once, used often.
template <class Object>
struct Query {
    explicit Query(std::string_view clauses) : sql(entityType<Object>().selection() + std::string(clauses)) {}
    std::string sql;
};

/// A unit of work on the store: objects with one identity each, changed in memory and saved together. docs/store.md
/// explains it on one page.
///
/// Changes are found by comparing: whoever holds an object may write its members, and the next fetch or save notices.
/// A fetch first writes what has changed into the open transaction, so that its query sees it; `save` commits. What
/// nobody holds any more is let go of at the next fetch or save, so a fetch costs what it returns. While another
/// process writes, a fetch asks of what is saved and gives the objects as they are in memory; it fails only for
/// entities whose objects wait to be inserted or removed.
///
/// A child context changes nothing outside itself until its `save`, which hands its changes to the parent. One thread
/// at a time; a child ends before its parent.
class ObjectContext {
public:
    /// The context that commits to the file. The file outlives it.
    explicit ObjectContext(StoreFile& file) : file_(file) {}
    /// A child of such a context.
    explicit ObjectContext(ObjectContext& parent) : file_(parent.file_), parent_(&parent) {}
    /// Objects that are still held become disconnected; what was not saved is lost.
    ~ObjectContext();
    ObjectContext(const ObjectContext&) = delete;
    ObjectContext& operator=(const ObjectContext&) = delete;

    /// The objects that the query finds. Empty, with an error, when the store cannot be read.
    template <class Object>
    [[nodiscard]] std::vector<std::shared_ptr<Object>> fetch(const Query<Object>& query, const QueryValues& values = {},
                                                             std::optional<Error>* error = nullptr) {
        std::vector<std::shared_ptr<Object>> objects;
        for (auto& object : fetchObjects(entityType<Object>(), query.sql, values, error)) {
            objects.push_back(std::static_pointer_cast<Object>(std::move(object)));
        }
        return objects;
    }
    /// The first of them; null for none.
    template <class Object>
    [[nodiscard]] std::shared_ptr<Object> fetchFirst(const Query<Object>& query, const QueryValues& values = {},
                                                     std::optional<Error>* error = nullptr) {
        auto objects = fetch(query, values, error);
        return objects.empty() ? nullptr : std::move(objects.front());
    }
    /// How many objects of the entity there are, or how many whose attribute is the value; nothing, with an error, when
    /// the store cannot be read.
    [[nodiscard]] std::optional<std::int64_t> count(const EntityType& type, std::optional<Error>* error = nullptr);
    [[nodiscard]] std::optional<std::int64_t> count(const EntityType& type, std::string_view attribute,
                                                    const QueryValue& value, std::optional<Error>* error = nullptr);
    /// The object with the key, in this context; null for none and, with an error, when the store cannot be read.
    template <class Object>
    [[nodiscard]] std::shared_ptr<Object> objectWithID(std::int64_t objectID, std::optional<Error>* error = nullptr) {
        return std::static_pointer_cast<Object>(objectWithID(entityType<Object>(), objectID, error));
    }
    [[nodiscard]] std::shared_ptr<ManagedObject> objectWithID(const EntityType& type, std::int64_t objectID,
                                                              std::optional<Error>* error = nullptr);

    /// Puts a disconnected object, with its members, into this context. One that is in a context stays there. False,
    /// with an error and the object as it was, when the store cannot be asked for a free key.
    bool insert(std::shared_ptr<ManagedObject> object, std::optional<Error>* error = nullptr);
    /// Takes the object, with its members, out of the store; it is disconnected then.
    void remove(ManagedObject& object);

    /// Takes out all objects of the entity, with their members. Not for a child context.
    bool removeAll(const EntityType& type, std::optional<Error>* error = nullptr);

    /// Commits (a child: hands to its parent) what has changed since the last save. False with an error otherwise:
    /// nothing is written then. When the store was only busy the changes stay and the next save takes them; when it
    /// refused one of them (a required attribute has no value, the disk is full), all are dropped, every object is
    /// disconnected, and the next fetch reads the store as it is.
    bool save(std::optional<Error>* error = nullptr);
    /// Writes what has changed, without committing, and keeps others from writing until the next save: nothing finds
    /// the store busy before that. False, with an error and the changes as they were, when it is busy now.
    bool begin(std::optional<Error>* error = nullptr);
    /// Whether the store has refused a change since the last save, which has dropped them all: the next save tells.
    [[nodiscard]] bool wasRefused() const { return refusal_.has_value(); }
    /// Drops what was not saved: every object is disconnected, and the next fetch reads the store as it is.
    void rollback();

    /// While one lives, fetches and saves see insertions and removals at once, but of changed members only those of
    /// objects that were told of by `touch`: for loops over many objects, so that none costs a look at all the others.
    /// What else has changed waits for the next fetch or save after its end. A child's is one of its parent too.
    class Bulk {
    public:
        explicit Bulk(ObjectContext& context);
        ~Bulk();
        Bulk(const Bulk&) = delete;
        Bulk& operator=(const Bulk&) = delete;

    private:
        ObjectContext& context_;
    };
    /// Inside a `Bulk`: the object may have changed. Nothing otherwise, where all changes are noticed.
    void touch(std::shared_ptr<ManagedObject> object);

private:
    friend class ManagedObject;

    using Object = std::shared_ptr<ManagedObject>;
    using Objects = std::vector<Object>;
    using Table = std::unordered_map<std::int64_t, Kept>;
    struct Row {
        std::int64_t objectID;
        std::int64_t ownerID;
        Object object;  // null for one that its owner has
    };

    [[nodiscard]] Objects fetchObjects(const EntityType& type, const std::string& sql, const QueryValues& values,
                                       std::optional<Error>* error);
    [[nodiscard]] std::vector<Row> select(const EntityType& type, const std::string& sql, const QueryValues& values);
    [[nodiscard]] Object objectOf(const EntityType& type, const Row& row, std::optional<Error>* error);
    bool loadMembers(ManagedObject& owner, std::optional<Error>* error);
    [[nodiscard]] Object loaded(const EntityType& type, std::int64_t objectID) const;
    void keep(const Object& object);

    struct Changed {
        Kept object;
        std::vector<std::size_t> fields;
    };
    [[nodiscard]] std::vector<Changed> changedObjects() const;
    static void addIfChanged(const Kept& object, std::vector<Changed>& all);
    void endBulk();
    bool flush(std::optional<Error>* error);
    void write(const std::vector<Changed>& changed);
    void writeRow(const ManagedObject& object);
    void writeFields(const ManagedObject& object, const std::vector<std::size_t>& fields);
    void removeRow(const EntityType& type, std::int64_t objectID);
    static void takeImage(ManagedObject& object, const std::vector<std::size_t>& fields);
    void settleInserted();
    void letGoOfUnheld();
    void detach(ManagedObject& object);
    void dropEverything();
    template <class Condition>
    [[nodiscard]] static bool isAnyOfFamily(const Kept& object, const Condition& condition);
    [[nodiscard]] bool waitsToBeWritten(const EntityType& type) const;
    bool giveKeys(ManagedObject& object, std::optional<Error>* error);
    [[nodiscard]] std::optional<std::int64_t> nextID(const EntityType& type, std::optional<Error>* error);

    [[nodiscard]] std::optional<std::int64_t> countBy(const EntityType& type, const std::string& sql,
                                                      const QueryValues& values, std::optional<Error>* error);
    bool read(const EntityType& type, const std::function<void()>& work, std::optional<Error>* error);
    bool readWithOwnChanges(const std::function<void()>& work, std::optional<Error>* error);
    bool saveToParent(std::optional<Error>* error);
    void copyToParent(const ManagedObject& object, ManagedObject* theirOwner);

    StoreFile& file_;
    ObjectContext* parent_ = nullptr;
    std::unordered_map<const EntityType*, Table> tables_;  // what is held, or may be
    std::vector<Kept> inserted_;                           // not written yet
    std::vector<std::pair<const EntityType*, std::int64_t>> removed_;
    /// The greatest key given or met; current as long as nobody else may write.
    struct LastID {
        std::int64_t id = 0;
        bool isCurrent = false;
    };
    std::unordered_map<const EntityType*, LastID> lastIDs_;
    std::optional<Error> refusal_;  // why the changes since the last save were dropped
    int bulks_ = 0;
    std::vector<Kept> touched_;  // inside a bulk: where to look for changes
};

}  // namespace quomi
