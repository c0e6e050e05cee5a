#include "quomi/data/managed_object.h"

#include "quomi/data/object_context.h"

#include <utility>

namespace quomi {

void ManagedObject::addToContext(ObjectContext& context) {
    context.insert(shared_from_this());
}

const ManagedObject::Members& ManagedObject::members() {
    static const Members none;
    if (!members_ && context_ != nullptr) context_->loadMembers(*this);
    if (!members_ && objectID_ == 0) members_.emplace();
    return members_ ? *members_ : none;
}

void ManagedObject::addMember(std::shared_ptr<ManagedObject> member) {
    static_cast<void>(members());
    if (!members_ || member->context_ != nullptr || member->owner() != nullptr) return;
    member->owner_ = weak_from_this();
    members_->push_back(member);
    if (context_ != nullptr) context_->insert(std::move(member));
}

}  // namespace quomi
