#include "quomi/data/entity_type.h"

#include <algorithm>

#include <fmt/format.h>

namespace quomi {

namespace {

std::string quotedNames(const Entity& entity) {
    std::string names;
    for (const auto& attribute : entity.attributes) names += fmt::format(", \"{}\"", attribute.name);
    return names;
}

std::string places(std::size_t count) {
    std::string text = "?";
    for (std::size_t i = 1; i < count; ++i) text += ", ?";
    return text;
}

}  // namespace

AttributeKeys attributesNamed(std::initializer_list<std::string_view> names) {
    AttributeKeys keys;
    for (const auto name : names) keys.emplace_back(name, name);
    return keys;
}

EntityType::EntityType(std::string_view name, std::vector<Field> fields, std::vector<std::string_view> indices,
                       Make maker, std::string_view owner, std::string_view ownerEntity)
    : schema_{name, {}, {}, std::move(indices)}, fields_(std::move(fields)), make_(maker) {
    for (const auto& field : fields_) schema_.attributes.push_back(field.attribute);
    if (!owner.empty()) schema_.owners.push_back({owner, ownerEntity});
    const std::string names = quotedNames(schema_);
    const std::string ownerName = owner.empty() ? "" : fmt::format(", \"{}\"", owner);
    selection_ =
        fmt::format("SELECT \"{}\"{}{} FROM \"{}\" ", kKeyColumn, owner.empty() ? ", 0" : ownerName, names, name);
    if (!owner.empty()) {
        selectionOfMembers_ = fmt::format("{}WHERE \"{}\" = ? ORDER BY \"{}\"", selection_, owner, kKeyColumn);
    }
    insertion_ = fmt::format("INSERT INTO \"{}\" (\"{}\"{}{}) VALUES ({})", name, kKeyColumn, ownerName, names,
                             places(fields_.size() + 1 + schema_.owners.size()));
    removal_ = fmt::format("DELETE FROM \"{}\" WHERE \"{}\" = ?", name, kKeyColumn);
}

boost::json::object EntityType::dictionary(const ManagedObject& object, const AttributeKeys& keys) const {
    boost::json::object dictionary;
    for (const auto& [key, attribute] : keys) {
        const auto found = std::ranges::find_if(
            fields_, [name = attribute](const Field& field) { return field.attribute.name == name; });
        if (found != fields_.end()) dictionary.emplace(key, found->json(object));
    }
    return dictionary;
}

}  // namespace quomi
