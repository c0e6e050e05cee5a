#include "quomi/data/object_context.h"

#include "quomi/data/prepared_statement.h"
#include "quomi/data/store_file.h"

#include <algorithm>

#include <fmt/format.h>

namespace quomi {

namespace {

constexpr int kFirstField = 2;  // of a selection, behind the keys

using Image = std::vector<std::uint64_t>;

Image imageOf(const ManagedObject& object) {
    const auto& fields = object.entityType().fields();
    Image image(fields.size());
    std::transform(fields.begin(), fields.end(), image.begin(),
                   [&object](const Field& field) { return field.image(object); });
    return image;
}

void bind(PreparedStatement& statement, int position, const QueryValue& value) {
    if (std::holds_alternative<std::monostate>(value)) {
        bindNull(statement, position);
    } else if (const auto* integer = std::get_if<std::int64_t>(&value)) {
        bindValue(statement, position, *integer);
    } else if (const auto* real = std::get_if<double>(&value)) {
        bindValue(statement, position, *real);
    } else {
        bindValue(statement, position, std::get<std::string>(value));
    }
}

std::string updateOf(const EntityType& type, const std::vector<std::size_t>& fields) {
    std::string sql = fmt::format("UPDATE \"{}\" SET ", type.name());
    for (std::size_t i = 0; i < fields.size(); ++i) {
        sql += fmt::format("{}\"{}\" = ?", i == 0 ? "" : ", ", type.fields()[fields[i]].attribute.name);
    }
    return sql + fmt::format(" WHERE \"{}\" = ?", kKeyColumn);
}

}  // namespace

ObjectContext::~ObjectContext() {
    rollback();
}

// Fetching

ObjectContext::Objects ObjectContext::fetchObjects(const EntityType& type, const std::string& sql,
                                                   const QueryValues& values, std::optional<Error>* error) {
    std::vector<Row> rows;
    if (!read(
            type, [&] { rows = select(type, sql, values); }, error))
        return {};
    Objects objects;
    objects.reserve(rows.size());
    std::optional<Error> failure;
    for (const auto& row : rows) {
        if (auto object = objectOf(type, row, &failure)) objects.push_back(std::move(object));
    }
    if (!failure) return objects;
    assign(error, std::move(*failure));
    return {};
}

std::vector<ObjectContext::Row> ObjectContext::select(const EntityType& type, const std::string& sql,
                                                      const QueryValues& values) {
    auto& query = file_.statement(sql);
    int position = 0;
    for (const auto& value : values) bind(query, ++position, value);
    std::vector<Row> rows;
    while (query.step()) {
        Row row{query.integer(0), query.integer(1), nullptr};
        row.object = loaded(type, row.objectID);
        if (row.object == nullptr && row.ownerID == 0) {
            row.object = type.make();
            position = kFirstField;
            for (const auto& field : type.fields()) field.read(query, position++, *row.object);
            row.object->objectID_ = row.objectID;
            keep(row.object);
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

/// What belongs to an owner is read with its owner, so that an object is loaded only together with its relatives.
ObjectContext::Object ObjectContext::objectOf(const EntityType& type, const Row& row, std::optional<Error>* error) {
    if (row.object != nullptr) return row.object;
    const auto* owners = ownerType(type);
    const auto owner = owners != nullptr ? objectWithID(*owners, row.ownerID, error) : nullptr;
    const auto* members = owner != nullptr ? owner->members(error) : nullptr;
    if (members == nullptr) return nullptr;
    const auto found =
        std::ranges::find_if(*members, [&](const Kept& member) { return member->objectID_ == row.objectID; });
    return found == members->end() ? nullptr : found->object();
}

bool ObjectContext::loadMembers(ManagedObject& owner, std::optional<Error>* error) {
    const auto* type = memberType(owner.entityType());
    if (type == nullptr) return true;
    ManagedObject::Members members;
    const auto readMembers = [&] {
        auto& query = file_.statement(type->selectionOfMembers());
        bindValue(query, 1, owner.objectID_);
        while (query.step()) {
            auto member = type->make();
            int position = kFirstField;
            for (const auto& field : type->fields()) field.read(query, position++, *member);
            member->objectID_ = query.integer(0);
            member->owner_ = owner.weak_from_this();
            members.emplace_back(std::move(member));
        }
    };
    if (!file_.perform(readMembers, error)) return false;
    for (const auto& member : members) keep(member.object());
    owner.members_ = std::move(members);
    return true;
}

std::optional<std::int64_t> ObjectContext::count(const EntityType& type, std::optional<Error>* error) {
    return countBy(type, fmt::format("SELECT COUNT(*) FROM \"{}\"", type.name()), {}, error);
}

std::optional<std::int64_t> ObjectContext::count(const EntityType& type, std::string_view attribute,
                                                 const QueryValue& value, std::optional<Error>* error) {
    return countBy(type, fmt::format("SELECT COUNT(*) FROM \"{}\" WHERE \"{}\" = ?", type.name(), attribute), {value},
                   error);
}

std::optional<std::int64_t> ObjectContext::countBy(const EntityType& type, const std::string& sql,
                                                   const QueryValues& values, std::optional<Error>* error) {
    std::optional<std::int64_t> count;
    read(
        type,
        [&] {
            auto& query = file_.statement(sql);
            int position = 0;
            for (const auto& value : values) bind(query, ++position, value);
            if (query.step()) count = query.integer(0);
            query.reset();
        },
        error);
    return count;
}

ObjectContext::Object ObjectContext::objectWithID(const EntityType& type, std::int64_t objectID,
                                                  std::optional<Error>* error) {
    if (auto object = loaded(type, objectID)) return object;
    const auto objects =
        fetchObjects(type, fmt::format("{}WHERE \"{}\" = ?", type.selection(), kKeyColumn), {objectID}, error);
    return objects.empty() ? nullptr : objects.front();
}

ObjectContext::Object ObjectContext::loaded(const EntityType& type, std::int64_t objectID) const {
    if (const auto table = tables_.find(&type); table != tables_.end()) {
        if (const auto found = table->second.find(objectID); found != table->second.end()) {
            return found->second.object();
        }
    }
    if (parent_ == nullptr) return nullptr;
    // A child's new objects wait for its save.
    const auto found = std::ranges::find_if(
        inserted_, [&](const Kept& object) { return &object->entityType() == &type && object->objectID_ == objectID; });
    return found == inserted_.end() ? nullptr : found->object();
}

/// Takes in an object that is as the store has it.
void ObjectContext::keep(const Object& object) {
    object->context_ = this;
    object->image_ = imageOf(*object);
    tables_[&object->entityType()].emplace(object->objectID_, object);
}

// Changing

bool ObjectContext::insert(std::shared_ptr<ManagedObject> object, std::optional<Error>* error) {
    if (object->context_ != nullptr) return true;
    if (!object->members_) object->members_.emplace();
    if (!giveKeys(*object, error)) return false;
    object->context_ = this;
    const auto& members = *object->members_;
    inserted_.emplace_back(std::move(object));
    for (const auto& member : members) insert(member.object());
    return true;
}

bool ObjectContext::giveKeys(ManagedObject& object, std::optional<Error>* error) {
    if (object.objectID_ == 0) {
        const auto key = nextID(object.entityType(), error);
        if (!key) return false;
        object.objectID_ = *key;
    }
    return !object.members_ ||
           std::ranges::all_of(*object.members_, [&](const Kept& member) { return giveKeys(*member, error); });
}

void ObjectContext::remove(ManagedObject& object) {
    if (object.context_ != this) return;
    const auto kept = object.shared_from_this();
    if (const auto owner = object.owner_.lock(); owner != nullptr && owner->members_) {
        std::erase_if(*owner->members_, [&kept](const Kept& member) { return member.object() == kept; });
    }
    if (object.members_) {
        for (const auto& member : *object.members_) detach(*member);
    }
    const bool isWritten = std::ranges::find(inserted_, kept, &Kept::object) == inserted_.end();
    if (isWritten) removed_.emplace_back(&object.entityType(), object.objectID_);
    detach(object);
}

void ObjectContext::detach(ManagedObject& object) {
    object.context_ = nullptr;
    if (const auto table = tables_.find(&object.entityType()); table != tables_.end()) {
        if (table->second.erase(object.objectID_) > 0) return;
    }
    std::erase_if(inserted_, [&object](const Kept& inserted) { return &*inserted == &object; });
}

bool ObjectContext::removeAll(const EntityType& type, std::optional<Error>* error) {
    if (!flush(error)) return false;
    const bool isRemoved = file_.perform(
        [&] {
            file_.begin();
            file_.statement(fmt::format("DELETE FROM \"{}\"", type.name())).exec();
        },
        error);
    if (!isRemoved) return false;
    for (const auto* removed : {&type, memberType(type)}) {
        const auto table = tables_.find(removed);
        if (table == tables_.end()) continue;
        for (const auto& [objectID, object] : table->second) object->context_ = nullptr;
        tables_.erase(table);
    }
    return true;
}

std::optional<std::int64_t> ObjectContext::nextID(const EntityType& type, std::optional<Error>* error) {
    if (parent_ != nullptr) return parent_->nextID(type, error);
    auto& last = lastIDs_[&type];
    if (!last.isCurrent) {
        std::int64_t greatest = 0;
        const auto readGreatest = [&] {
            auto& query = file_.statement(fmt::format("SELECT MAX(\"{}\") FROM \"{}\"", kKeyColumn, type.name()));
            if (query.step()) greatest = query.integer(0);
            query.reset();
        };
        if (!file_.perform(readGreatest, error)) return std::nullopt;
        last = {std::max(last.id, greatest), file_.isInTransaction()};
    }
    return ++last.id;
}

// Noticing and writing

ObjectContext::Bulk::Bulk(ObjectContext& context) : context_(context) {
    ++context_.bulks_;
    if (context_.parent_ != nullptr) ++context_.parent_->bulks_;
}

ObjectContext::Bulk::~Bulk() {
    context_.endBulk();
    if (context_.parent_ != nullptr) context_.parent_->endBulk();
}

void ObjectContext::endBulk() {
    if (--bulks_ == 0) touched_.clear();
}

void ObjectContext::touch(std::shared_ptr<ManagedObject> object) {
    if (bulks_ > 0) touched_.emplace_back(std::move(object));
}

std::vector<ObjectContext::Changed> ObjectContext::changedObjects() const {
    std::vector<Changed> all;
    if (bulks_ > 0) {
        for (const auto& object : touched_) {
            const bool isKept = object->context_ == this && !object->image_.empty();
            if (isKept) addIfChanged(object, all);
        }
        return all;
    }
    for (const auto& [type, table] : tables_) {
        for (const auto& [objectID, object] : table) addIfChanged(object, all);
    }
    return all;
}

void ObjectContext::addIfChanged(const Kept& object, std::vector<Changed>& all) {
    const auto& fields = object->entityType().fields();
    std::vector<std::size_t> changed;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (fields[i].image(*object) != object->image_[i]) changed.push_back(i);
    }
    if (!changed.empty()) all.push_back({object, std::move(changed)});
}

/// Makes the store, within the open transaction, what the objects are.
bool ObjectContext::flush(std::optional<Error>* error) {
    if (parent_ != nullptr) {
        if (bulks_ == 0) letGoOfUnheld();
        return parent_->flush(error);
    }
    if (refusal_) {
        dropEverything();  // the save that tells would drop it too
        return true;
    }
    const auto changed = changedObjects();
    if (!inserted_.empty() || !removed_.empty() || !changed.empty()) {
        if (!file_.perform([this] { file_.begin(); }, error)) return false;
        std::optional<Error> refusal;
        if (!file_.perform([&] { write(changed); }, &refusal)) {
            refusal_ = std::move(refusal);
            file_.rollback();
            dropEverything();
            return true;  // a fetch goes on with what is saved; the save tells
        }
        for (const auto& [object, fields] : changed) takeImage(*object, fields);
        removed_.clear();
        settleInserted();
    }
    if (bulks_ == 0) letGoOfUnheld();
    return true;
}

void ObjectContext::write(const std::vector<Changed>& changed) {
    for (const auto& [type, objectID] : removed_) removeRow(*type, objectID);
    for (const auto& object : inserted_) writeRow(*object);
    for (const auto& [object, fields] : changed) writeFields(*object, fields);
}

void ObjectContext::takeImage(ManagedObject& object, const std::vector<std::size_t>& fields) {
    for (const auto field : fields) object.image_[field] = object.entityType().fields()[field].image(object);
}

void ObjectContext::writeRow(const ManagedObject& object) {
    const auto& type = object.entityType();
    auto& statement = file_.statement(type.insertion());
    int position = 1;
    bindValue(statement, position++, object.objectID_);
    if (type.hasOwner()) {
        const auto owner = object.owner_.lock();
        owner != nullptr ? bindValue(statement, position, owner->objectID_) : bindNull(statement, position);
        ++position;
    }
    for (const auto& field : type.fields()) field.bind(statement, position++, object);
    statement.exec();
}

void ObjectContext::writeFields(const ManagedObject& object, const std::vector<std::size_t>& fields) {
    const auto& type = object.entityType();
    auto& statement = file_.statement(updateOf(type, fields));
    int position = 1;
    for (const auto field : fields) type.fields()[field].bind(statement, position++, object);
    bindValue(statement, position, object.objectID_);
    statement.exec();
}

void ObjectContext::removeRow(const EntityType& type, std::int64_t objectID) {
    auto& statement = file_.statement(type.removal());
    bindValue(statement, 1, objectID);
    statement.exec();
}

/// Whether the condition holds for the object or for one that belongs to it.
template <class Condition>
bool ObjectContext::isAnyOfFamily(const Kept& object, const Condition& condition) {
    return condition(object) || (object->members_ && std::ranges::any_of(*object->members_, condition));
}

/// The inserted objects are rows now. Those that nobody holds are forgotten at once.
void ObjectContext::settleInserted() {
    const auto isHeld = [](const Kept& object) { return object.isHeldElsewhere(); };
    const auto written = std::exchange(inserted_, {});
    for (const auto& object : written) {
        const auto owner = object->owner_.lock();
        const bool ownerIsKept = owner != nullptr && loaded(owner->entityType(), owner->objectID_) != nullptr;
        if (owner != nullptr ? ownerIsKept : isAnyOfFamily(object, isHeld)) {
            keep(object.object());
        } else {
            object->context_ = nullptr;
        }
    }
}

/// Forgets the objects that nobody holds, owners and members together.
void ObjectContext::letGoOfUnheld() {
    const auto isNeeded = [this](const Kept& object) {
        return object.isHeldElsewhere() || (parent_ != nullptr && imageOf(*object) != object->image_);
    };
    for (auto& [type, table] : tables_) {
        const auto* members = memberType(*type);
        std::erase_if(table, [this, members, &isNeeded, isMember = type->hasOwner()](const auto& entry) {
            const Kept& object = entry.second;
            if (isMember && !object->owner_.expired()) return false;  // goes with its owner
            if (isAnyOfFamily(object, isNeeded)) return false;
            const auto memberTable = members != nullptr ? tables_.find(members) : tables_.end();
            if (memberTable == tables_.end() || !object->members_) return true;
            for (const auto& member : *object->members_) memberTable->second.erase(member->objectID_);
            return true;
        });
    }
}

void ObjectContext::dropEverything() {
    for (const auto& [type, table] : tables_) {
        for (const auto& [objectID, object] : table) object->context_ = nullptr;
    }
    for (const auto& object : inserted_) object->context_ = nullptr;
    tables_.clear();
    inserted_.clear();
    removed_.clear();
    touched_.clear();
    for (auto& [type, last] : lastIDs_) last.isCurrent = false;
}

bool ObjectContext::begin(std::optional<Error>* error) {
    return flush(error) && file_.perform([this] { file_.begin(); }, error);
}

void ObjectContext::rollback() {
    dropEverything();
    refusal_.reset();
    if (parent_ == nullptr) file_.rollback();
}

bool ObjectContext::save(std::optional<Error>* error) {
    if (parent_ != nullptr) return saveToParent(error);
    if (!flush(error)) return false;
    for (auto& [type, last] : lastIDs_) last.isCurrent = false;
    if (!refusal_) {
        std::optional<Error> refusal;
        if (file_.perform([this] { file_.commit(); }, &refusal)) return true;
        refusal_ = std::move(refusal);
        file_.rollback();
    }
    dropEverything();
    if (refusal_) assign(error, *std::exchange(refusal_, std::nullopt));
    return false;
}

/// Runs reading work that sees what is not yet saved. While another process writes it sees what is saved, unless
/// objects of the entity wait to be inserted or removed.
bool ObjectContext::read(const EntityType& type, const std::function<void()>& work, std::optional<Error>* error) {
    std::optional<Error> failure;
    if (flush(&failure) && readWithOwnChanges(work, &failure)) return true;
    if (!waitsToBeWritten(type)) return file_.perform(work, error);
    assign(error, std::move(*failure));
    return false;
}

bool ObjectContext::waitsToBeWritten(const EntityType& type) const {
    const auto isOfFamily = [&](const EntityType& other) {
        return &other == &type || &other == memberType(type) || &other == ownerType(type);
    };
    return std::ranges::any_of(inserted_, [&](const Kept& object) { return isOfFamily(object->entityType()); }) ||
           std::ranges::any_of(removed_, [&](const auto& removed) { return isOfFamily(*removed.first); }) ||
           (parent_ != nullptr && parent_->waitsToBeWritten(type));
}

// A child's part

/// A child's changes stand in the store while the work runs, inside a savepoint that is then dropped.
bool ObjectContext::readWithOwnChanges(const std::function<void()>& work, std::optional<Error>* error) {
    if (parent_ == nullptr) return file_.perform(work, error);
    const auto changed = changedObjects();
    if (inserted_.empty() && removed_.empty() && changed.empty()) return file_.perform(work, error);
    const bool isRead = file_.perform(
        [&] {
            file_.openSavepoint();
            write(changed);
            work();
        },
        error);
    file_.dropSavepoint();
    return isRead;
}

/// All that has to be read is read first: an error leaves both contexts as they were.
bool ObjectContext::saveToParent(std::optional<Error>* error) {
    if (!parent_->flush(error)) return false;
    std::optional<Error> failure;
    const auto theirs = [&](const EntityType& type, std::int64_t objectID) {
        return failure ? nullptr : parent_->objectWithID(type, objectID, &failure);
    };
    Objects theirRemoved;
    for (const auto& [type, objectID] : removed_) theirRemoved.push_back(theirs(*type, objectID));
    const auto changed = changedObjects();
    Objects theirChanged;
    for (const auto& [object, fields] : changed)
        theirChanged.push_back(theirs(object->entityType(), object->objectID_));
    Objects theirOwners;
    for (const auto& object : inserted_) {
        const auto owner = object->owner_.lock();
        const bool hasRow = owner != nullptr && !owner->image_.empty();
        theirOwners.push_back(hasRow ? theirs(owner->entityType(), owner->objectID_) : nullptr);
    }
    if (failure) {
        assign(error, std::move(*failure));
        return false;
    }
    for (const auto& object : theirRemoved) {
        if (object != nullptr) parent_->remove(*object);
    }
    removed_.clear();
    for (std::size_t i = 0; i < inserted_.size(); ++i) copyToParent(*inserted_[i], theirOwners[i].get());
    settleInserted();
    for (std::size_t i = 0; i < changed.size(); ++i) {
        const auto& [object, fields] = changed[i];
        if (const auto& original = theirChanged[i]) {
            for (const auto field : fields) object->entityType().fields()[field].copy(*object, *original);
            parent_->touch(original);
        }
        takeImage(*object, fields);
    }
    return true;
}

/// A new object goes with its new members; a new member of theirs goes to its owner, unless they have removed it.
void ObjectContext::copyToParent(const ManagedObject& object, ManagedObject* theirOwner) {
    const auto copyOf = [](const ManagedObject& original) {
        auto copy = original.entityType().make();
        for (const auto& field : original.entityType().fields()) field.copy(original, *copy);
        return copy;
    };
    const bool isMember = object.owner() != nullptr;
    if (isMember && theirOwner == nullptr) return;
    auto copy = copyOf(object);
    for (const auto& member : object.members_.value_or(ManagedObject::Members())) {
        const auto copiedMember = copyOf(*member);
        copy->addMember(copiedMember);
        copiedMember->objectID_ = member->objectID_;
    }
    copy->objectID_ = object.objectID_;
    isMember ? theirOwner->addMember(std::move(copy)) : parent_->insert(std::move(copy));
}

}  // namespace quomi
