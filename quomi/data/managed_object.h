#pragma once

#include "quomi/util/error.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <boost/json/fwd.hpp>

namespace quomi {

class EntityType;
class ManagedObject;
class ObjectContext;

/// A reference that the store itself keeps to an object: a context's, or an owner's to its member. The object counts
/// them, and so tells them from everyone else's.
class Kept {
public:
    explicit Kept(std::shared_ptr<ManagedObject> object);
    Kept(const Kept& other) : Kept(other.object_) {}
    Kept(Kept&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    Kept& operator=(Kept other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~Kept();

    [[nodiscard]] const std::shared_ptr<ManagedObject>& object() const { return object_; }
    ManagedObject& operator*() const { return *object_; }
    ManagedObject* operator->() const { return object_.get(); }
    /// Whether anyone but the store holds the object.
    [[nodiscard]] bool isHeldElsewhere() const;

private:
    std::shared_ptr<ManagedObject> object_;
};

/// An object of the store: a row with an identity. Its attributes are plain members; what it is, is its EntityType.
///
/// An object is in one context or in none ("disconnected": made and not yet inserted, removed, or dropped with what a
/// save could not write). One thread at a time.
class ManagedObject : public std::enable_shared_from_this<ManagedObject> {
public:
    using Members = std::vector<Kept>;

    virtual ~ManagedObject() = default;
    ManagedObject(const ManagedObject&) = delete;
    ManagedObject& operator=(const ManagedObject&) = delete;

    [[nodiscard]] virtual const EntityType& entityType() const = 0;
    /// The context that the object is in; null for a disconnected one.
    [[nodiscard]] ObjectContext* context() const { return context_; }
    /// The row's key, the same in every context and never given again while the process runs; 0 before insertion.
    [[nodiscard]] std::int64_t objectID() const { return objectID_; }
    /// Puts the object, with the objects that belong to it, into the context. False when that fails.
    bool addToContext(ObjectContext& context, std::optional<Error>* error = nullptr);

protected:
    ManagedObject() = default;

    /// The objects that belong to this one, in the order in which they were added; read from the store at the first
    /// use. Null, with an error, when they cannot be read. Those of a disconnected object are what was read of it.
    [[nodiscard]] const Members* members(std::optional<Error>* error = nullptr);
    /// Makes a disconnected object that belongs to nothing belong to this one, and puts it into this one's context.
    /// False for any other, and with an error when the store cannot be read.
    bool addMember(std::shared_ptr<ManagedObject> member, std::optional<Error>* error = nullptr);
    /// What this object belongs to; null for nothing.
    [[nodiscard]] std::shared_ptr<ManagedObject> owner() const { return owner_.lock(); }

private:
    friend class Kept;
    friend class ObjectContext;

    ObjectContext* context_ = nullptr;
    std::int64_t objectID_ = 0;
    std::weak_ptr<ManagedObject> owner_;
    std::optional<Members> members_;    // nothing: not read yet
    long keepers_ = 0;                  // how many `Kept` there are
    std::vector<std::uint64_t> image_;  // of the attributes as the store has them
};

}  // namespace quomi
