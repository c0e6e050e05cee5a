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
    if (!flush(error)) return {};
    std::vector<Row> rows;
    Objects objects;
    if (!read([&] { rows = select(type, sql, values); }, error)) return objects;
    objects.reserve(rows.size());
    for (const auto& row : rows) {
        if (auto object = objectOf(type, row)) objects.push_back(std::move(object));
    }
    return objects;
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
ObjectContext::Object ObjectContext::objectOf(const EntityType& type, const Row& row) {
    if (row.object != nullptr) return row.object;
    const auto* owners = ownerType(type);
    const auto owner = owners != nullptr ? objectWithID(*owners, row.ownerID) : nullptr;
    if (owner == nullptr) return nullptr;
    for (const auto& member : owner->members()) {
        if (member->objectID_ == row.objectID) return member;
    }
    return nullptr;
}

void ObjectContext::loadMembers(ManagedObject& owner) {
    const auto* type = memberType(owner.entityType());
    if (type == nullptr) return;
    ManagedObject::Members members;
    const bool isRead = file_.perform([&] {
        auto& query = file_.statement(type->selectionOfMembers());
        bindValue(query, 1, owner.objectID_);
        while (query.step()) {
            auto member = type->make();
            int position = kFirstField;
            for (const auto& field : type->fields()) field.read(query, position++, *member);
            member->objectID_ = query.integer(0);
            member->owner_ = owner.weak_from_this();
            members.push_back(std::move(member));
        }
    });
    if (!isRead) return;
    for (const auto& member : members) keep(member);
    owner.members_ = std::move(members);
}

std::optional<std::int64_t> ObjectContext::count(const EntityType& type, std::optional<Error>* error) {
    return countBy(fmt::format("SELECT COUNT(*) FROM \"{}\"", type.name()), {}, error);
}

std::optional<std::int64_t> ObjectContext::count(const EntityType& type, std::string_view attribute,
                                                 const QueryValue& value, std::optional<Error>* error) {
    return countBy(fmt::format("SELECT COUNT(*) FROM \"{}\" WHERE \"{}\" = ?", type.name(), attribute), {value}, error);
}

std::optional<std::int64_t> ObjectContext::countBy(const std::string& sql, const QueryValues& values,
                                                   std::optional<Error>* error) {
    if (!flush(error)) return std::nullopt;
    std::optional<std::int64_t> count;
    read(
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

ObjectContext::Object ObjectContext::objectWithID(const EntityType& type, std::int64_t objectID) {
    if (auto object = loaded(type, objectID)) return object;
    const auto objects =
        fetchObjects(type, fmt::format("{}WHERE \"{}\" = ?", type.selection(), kKeyColumn), {objectID}, nullptr);
    return objects.empty() ? nullptr : objects.front();
}

ObjectContext::Object ObjectContext::loaded(const EntityType& type, std::int64_t objectID) const {
    if (const auto table = tables_.find(&type); table != tables_.end()) {
        if (const auto found = table->second.find(objectID); found != table->second.end()) return found->second;
    }
    if (parent_ == nullptr) return nullptr;
    // A child's new objects wait for its save.
    const auto found = std::find_if(inserted_.begin(), inserted_.end(), [&](const Object& object) {
        return &object->entityType() == &type && object->objectID_ == objectID;
    });
    return found == inserted_.end() ? nullptr : *found;
}

/// Takes in an object that is as the store has it.
void ObjectContext::keep(const Object& object) {
    object->context_ = this;
    object->image_ = imageOf(*object);
    tables_[&object->entityType()].emplace(object->objectID_, object);
}

// Changing

void ObjectContext::insert(std::shared_ptr<ManagedObject> object) {
    if (object->context_ != nullptr) return;
    object->context_ = this;
    if (object->objectID_ == 0) object->objectID_ = nextID(object->entityType());
    if (!object->members_) object->members_.emplace();
    const auto& members = *object->members_;
    inserted_.push_back(std::move(object));
    for (const auto& member : members) insert(member);
}

void ObjectContext::remove(ManagedObject& object) {
    if (object.context_ != this) return;
    const auto kept = object.shared_from_this();
    if (const auto owner = object.owner_.lock(); owner != nullptr && owner->members_) {
        std::erase(*owner->members_, kept);
    }
    if (object.members_) {
        for (const auto& member : *object.members_) detach(*member);
    }
    const auto inserted = std::find(inserted_.begin(), inserted_.end(), kept);
    if (inserted == inserted_.end()) removed_.emplace_back(&object.entityType(), object.objectID_);
    detach(object);
}

void ObjectContext::detach(ManagedObject& object) {
    object.context_ = nullptr;
    if (const auto table = tables_.find(&object.entityType()); table != tables_.end()) {
        if (table->second.erase(object.objectID_) > 0) return;
    }
    std::erase_if(inserted_, [&object](const Object& inserted) { return inserted.get() == &object; });
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

std::int64_t ObjectContext::nextID(const EntityType& type) {
    if (parent_ != nullptr) return parent_->nextID(type);
    auto& last = lastIDs_[&type];
    if (!last.isCurrent) {
        std::int64_t greatest = 0;
        const bool isRead = file_.perform([&] {
            auto& query = file_.statement(fmt::format("SELECT MAX(\"{}\") FROM \"{}\"", kKeyColumn, type.name()));
            if (query.step()) greatest = query.integer(0);
            query.reset();
        });
        if (!isRead) return 1;  // taken, as like as not: the save refuses it then
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
    if (bulks_ > 0) touched_.push_back(std::move(object));
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

void ObjectContext::addIfChanged(const Object& object, std::vector<Changed>& all) {
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

namespace {

/// References to the object that are not this context's own.
long holders(const std::shared_ptr<ManagedObject>& object, bool isMember) {
    return object.use_count() - (isMember ? 2 : 1);
}

}  // namespace

/// The inserted objects are rows now. Those that nobody holds are forgotten at once.
void ObjectContext::settleInserted() {
    const auto written = std::move(inserted_);
    inserted_.clear();
    const auto isHeld = [](const Object& object) {
        if (holders(object, object->owner_.lock() != nullptr) > 0) return true;
        return object->members_ && std::any_of(object->members_->begin(), object->members_->end(),
                                               [](const Object& member) { return holders(member, true) > 0; });
    };
    for (const auto& object : written) {
        const auto owner = object->owner_.lock();
        const bool ownerIsKept = owner != nullptr && loaded(owner->entityType(), owner->objectID_) != nullptr;
        if (owner != nullptr ? ownerIsKept : isHeld(object)) {
            keep(object);
        } else {
            object->context_ = nullptr;
        }
    }
}

/// Forgets the objects that nobody holds, owners and members together.
void ObjectContext::letGoOfUnheld() {
    for (auto& [type, table] : tables_) {
        const auto* members = memberType(*type);
        std::erase_if(table, [this, members, isMember = type->hasOwner()](const auto& entry) {
            const Object& object = entry.second;
            if (isMember && object->owner_.lock() != nullptr) return false;  // goes with its owner
            if (holders(object, false) > 0) return false;
            if (parent_ != nullptr && imageOf(*object) != object->image_) return false;
            if (members == nullptr || !object->members_) return true;
            const auto isNeeded = [this](const Object& member) {
                return holders(member, true) > 0 || (parent_ != nullptr && imageOf(*member) != member->image_);
            };
            if (std::any_of(object->members_->begin(), object->members_->end(), isNeeded)) return false;
            const auto memberTable = tables_.find(members);
            if (memberTable == tables_.end()) return true;
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

// A child's part

/// Runs reading work. A child's changes stand in the store meanwhile, inside a savepoint that is then dropped.
bool ObjectContext::read(const std::function<void()>& work, std::optional<Error>* error) {
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

bool ObjectContext::saveToParent(std::optional<Error>* error) {
    if (!parent_->flush(error)) return false;
    for (const auto& [type, objectID] : removed_) {
        if (const auto object = parent_->objectWithID(*type, objectID)) parent_->remove(*object);
    }
    removed_.clear();
    for (const auto& object : inserted_) copyToParent(object);
    settleInserted();
    for (const auto& [object, changed] : changedObjects()) {
        const auto original = parent_->objectWithID(object->entityType(), object->objectID_);
        if (original != nullptr) {
            for (const auto field : changed) object->entityType().fields()[field].copy(*object, *original);
            parent_->touch(original);
        }
        takeImage(*object, changed);
    }
    return true;
}

void ObjectContext::copyToParent(const Object& object) {
    const auto& type = object->entityType();
    auto copy = type.make();
    for (const auto& field : type.fields()) field.copy(*object, *copy);
    copy->objectID_ = object->objectID_;
    const auto owner = object->owner_.lock();
    if (owner == nullptr) {
        parent_->insert(std::move(copy));
    } else if (const auto theirs = parent_->objectWithID(owner->entityType(), owner->objectID_)) {
        theirs->addMember(std::move(copy));
    }  // else the parent has removed the owner, and what belongs to it goes with it
}

}  // namespace quomi
