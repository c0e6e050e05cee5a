#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include <boost/json/fwd.hpp>

namespace quomi {

class EntityType;
class ObjectContext;

/// An object of the store: a row with an identity. Its attributes are plain members; what it is, is its EntityType.
///
/// An object is in one context or in none ("disconnected": made and not yet inserted, removed, or dropped with what a
/// save could not write). One thread at a time.
class ManagedObject : public std::enable_shared_from_this<ManagedObject> {
public:
    using Members = std::vector<std::shared_ptr<ManagedObject>>;

    virtual ~ManagedObject() = default;
    ManagedObject(const ManagedObject&) = delete;
    ManagedObject& operator=(const ManagedObject&) = delete;

    [[nodiscard]] virtual const EntityType& entityType() const = 0;
    /// The context that the object is in; null for a disconnected one.
    [[nodiscard]] ObjectContext* context() const { return context_; }
    /// The row's key, the same in every context and never given again while the process runs; 0 before insertion.
    [[nodiscard]] std::int64_t objectID() const { return objectID_; }
    /// Puts the object, with the objects that belong to it, into the context.
    void addToContext(ObjectContext& context);

protected:
    ManagedObject() = default;

    /// The objects that belong to this one, in the order in which they were added; read from the store at the first
    /// use. Empty when they cannot be read.
    [[nodiscard]] const Members& members();
    /// Makes a disconnected object that belongs to nothing belong to this one, and puts it into this one's context.
    /// Nothing happens with any other.
    void addMember(std::shared_ptr<ManagedObject> member);
    /// What this object belongs to; null for nothing.
    [[nodiscard]] std::shared_ptr<ManagedObject> owner() const { return owner_.lock(); }

private:
    friend class ObjectContext;

    ObjectContext* context_ = nullptr;
    std::int64_t objectID_ = 0;
    std::weak_ptr<ManagedObject> owner_;
    std::optional<Members> members_;    // nothing: not read yet
    std::vector<std::uint64_t> image_;  // of the attributes as the store has them
};

}  // namespace quomi
