#pragma once

#include "quomi/data/column_values.h"
#include "quomi/data/managed_object.h"
#include "quomi/data/schema.h"

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/json/object.hpp>

namespace quomi {

struct QuomiStatusInfo;
struct QuomiApplication;
struct QuomiDebugLog;
struct QuomiBatteryAlert;
struct QuomiGeofenceRegion;
struct QuomiGeofence;
struct QuomiGeofenceRuleWithActions;
struct QuomiBeaconData;
struct QuomiBeaconRuleWithActions;

/// One attribute of an entity and what can be done with the member that holds it.
struct Field {
    Attribute attribute;
    void (*bind)(PreparedStatement&, int position, const ManagedObject&);
    void (*read)(const PreparedStatement&, int column, ManagedObject&);
    void (*copy)(const ManagedObject& from, ManagedObject& to);
    std::uint64_t (*image)(const ManagedObject&);
    boost::json::value (*json)(const ManagedObject&);
};

/// Keys of a dictionary, each with the name of the attribute that stands under it.
using AttributeKeys = std::vector<std::pair<std::string_view, std::string_view>>;
/// The attributes under their own names.
[[nodiscard]] AttributeKeys attributesNamed(std::initializer_list<std::string_view> names);

inline constexpr bool kRequired = false;
inline constexpr bool kOptional = true;

template <class Member>
struct MemberOf;
template <class Object, class Type>
struct MemberOf<Type Object::*> {
    using Owner = Object;
    using Value = Type;
};

/// The attribute of that name, held by the member. `type` is said only where the member's type does not say it.
template <auto Member>
[[nodiscard]] Field field(std::string_view name, bool optional, std::string_view defaultValue = {},
                          AttributeType type = AttributeTypeOf<typename MemberOf<decltype(Member)>::Value>::value) {
    using Object = typename MemberOf<decltype(Member)>::Owner;
    return {{name, type, optional, defaultValue},
            [](PreparedStatement& statement, int position, const ManagedObject& object) {
                bindValue(statement, position, static_cast<const Object&>(object).*Member);
            },
            [](const PreparedStatement& row, int column, ManagedObject& object) {
                readValue(row, column, static_cast<Object&>(object).*Member);
            },
            [](const ManagedObject& from, ManagedObject& to) {
                static_cast<Object&>(to).*Member = static_cast<const Object&>(from).*Member;
            },
            [](const ManagedObject& object) { return imageOf(static_cast<const Object&>(object).*Member); },
            [](const ManagedObject& object) { return jsonOf(static_cast<const Object&>(object).*Member); }};
}

/// An entity as a whole, described once: its table, the members that hold its attributes, how to make an object of it
/// and which entity's objects belong to its own. Immutable; any thread.
class EntityType {
public:
    using Make = std::shared_ptr<ManagedObject> (*)();

    /// `owner` is the name of the relationship to the entity whose objects these belong to; empty for none.
    EntityType(std::string_view name, std::vector<Field> fields, std::vector<std::string_view> indices, Make maker,
               std::string_view owner = {}, std::string_view ownerEntity = {});
    EntityType(const EntityType&) = delete;
    EntityType& operator=(const EntityType&) = delete;

    [[nodiscard]] std::string_view name() const { return schema_.name; }
    [[nodiscard]] const Entity& schema() const { return schema_; }
    [[nodiscard]] const std::vector<Field>& fields() const { return fields_; }
    [[nodiscard]] std::shared_ptr<ManagedObject> make() const { return make_(); }
    [[nodiscard]] bool hasOwner() const { return !schema_.owners.empty(); }

    /// "SELECT …" of key, owner's key (0 for none) and all attributes; what follows it is the caller's.
    [[nodiscard]] const std::string& selection() const { return selection_; }
    /// The objects that belong to the owner with the key "?", in the order of their keys; empty without owners.
    [[nodiscard]] const std::string& selectionOfMembers() const { return selectionOfMembers_; }
    /// Insertion of a row: key, owner's key where there is one, all attributes.
    [[nodiscard]] const std::string& insertion() const { return insertion_; }
    [[nodiscard]] const std::string& removal() const { return removal_; }

    /// The attributes' values under the given keys, in the keys' order. A pair names an attribute that goes by another
    /// key.
    [[nodiscard]] boost::json::object dictionary(const ManagedObject& object, const AttributeKeys& keys) const;

private:
    Entity schema_;
    std::vector<Field> fields_;
    Make make_;
    std::string selection_, selectionOfMembers_, insertion_, removal_;
};

/// The description of an entity's class; there is one of each of the nine.
template <class Object>
[[nodiscard]] const EntityType& entityType();
template <>
const EntityType& entityType<QuomiStatusInfo>();
template <>
const EntityType& entityType<QuomiApplication>();
template <>
const EntityType& entityType<QuomiDebugLog>();
template <>
const EntityType& entityType<QuomiBatteryAlert>();
template <>
const EntityType& entityType<QuomiGeofenceRegion>();
template <>
const EntityType& entityType<QuomiGeofence>();
template <>
const EntityType& entityType<QuomiGeofenceRuleWithActions>();
template <>
const EntityType& entityType<QuomiBeaconData>();
template <>
const EntityType& entityType<QuomiBeaconRuleWithActions>();

/// The entity whose objects belong to this one's, and the one whose objects these belong to; null for none.
[[nodiscard]] const EntityType* memberType(const EntityType& owner);
[[nodiscard]] const EntityType* ownerType(const EntityType& member);
/// All nine, in the order of their tables.
[[nodiscard]] const std::vector<const EntityType*>& allEntityTypes();

}  // namespace quomi
