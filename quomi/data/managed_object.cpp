#include "quomi/data/managed_object.h"

#include "quomi/data/object_context.h"

#include <utility>

namespace quomi {

Kept::Kept(std::shared_ptr<ManagedObject> object) : object_(std::move(object)) {
    ++object_->keepers_;
}

Kept::~Kept() {
    if (object_ != nullptr) --object_->keepers_;
}

bool Kept::isHeldElsewhere() const {
    return object_.use_count() > object_->keepers_;
}

bool ManagedObject::addToContext(ObjectContext& context, std::optional<Error>* error) {
    return context.insert(shared_from_this(), error);
}

const ManagedObject::Members* ManagedObject::members(std::optional<Error>* error) {
    static const Members none;
    if (!members_ && context_ != nullptr && !context_->loadMembers(*this, error)) return nullptr;
    if (!members_ && objectID_ == 0) members_.emplace();
    return members_ ? &*members_ : &none;
}

bool ManagedObject::addMember(std::shared_ptr<ManagedObject> member, std::optional<Error>* error) {
    const bool isFree = member->context_ == nullptr && member->owner() == nullptr;
    if (!isFree || members(error) == nullptr || !members_) return false;
    if (context_ != nullptr && !context_->insert(member, error)) return false;
    member->owner_ = weak_from_this();
    members_->emplace_back(std::move(member));
    return true;
}

}  // namespace quomi
