#include "hosts/simulated/region_list.h"

#include "quomi/util/json_readers.h"

#include <algorithm>
#include <fstream>
#include <optional>
#include <system_error>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>

namespace quomi::simulated {

namespace {

namespace json = boost::json;

json::object toObject(const BeaconRegion& region) {
    return {{"identifier", region.identifier},
            {"uuid", region.proximityUUID.string()},
            {"notifyEntryStateOnDisplay", region.notifyEntryStateOnDisplay},
            {"notifyOnEntry", region.notifyOnEntry},
            {"notifyOnExit", region.notifyOnExit}};
}

json::object toObject(const CircularRegion& region) {
    return {{"identifier", region.identifier},
            {"lat", region.center.latitude},
            {"lng", region.center.longitude},
            {"radius", region.radius}};
}

std::optional<Region> toRegion(const json::value& value) {
    const auto* object = value.if_object();
    const auto* identifier = object != nullptr ? object->if_contains("identifier") : nullptr;
    if (identifier == nullptr || !identifier->is_string()) return std::nullopt;
    const std::string name(identifier->as_string());
    if (object->contains("uuid")) {
        const auto uuid = Uuid::parse(QuomiUtils::stringForKey(*object, "uuid", ""));
        if (!uuid) return std::nullopt;
        return BeaconRegion{name, *uuid, QuomiUtils::boolForKey(*object, "notifyEntryStateOnDisplay", false),
                            QuomiUtils::boolForKey(*object, "notifyOnEntry", true),
                            QuomiUtils::boolForKey(*object, "notifyOnExit", true)};
    }
    const auto number = [object](std::string_view key) { return numberOf(object->if_contains(key)); };
    const auto latitude = number("lat");
    const auto longitude = number("lng");
    const auto radius = number("radius");
    if (!latitude || !longitude || !radius) return std::nullopt;
    return CircularRegion{name, {latitude->doubleValue(), longitude->doubleValue()}, radius->doubleValue()};
}

auto named(std::string_view identifier) {
    return [identifier](const Region& region) { return regionIdentifier(region) == identifier; };
}

}  // namespace

RegionList::RegionList(Files& files, std::filesystem::path path) : files_(files), path_(std::move(path)) {
    std::error_code ignored;
    const auto text = files_.read(path_, ignored);
    const auto value = text ? parseJson(*text) : std::nullopt;
    const auto* object = value ? value->if_object() : nullptr;
    const auto* list = object != nullptr ? QuomiUtils::arrayForKey(*object, "monitoredRegions") : nullptr;
    if (list == nullptr) return;
    for (const auto& entry : *list) {
        if (auto region = toRegion(entry)) regions_.push_back(std::move(*region));
    }
}

const Region* RegionList::find(std::string_view identifier) const {
    const auto found = std::ranges::find_if(regions_, named(identifier));
    return found == regions_.end() ? nullptr : &*found;
}

void RegionList::put(const Region& region) {
    const auto found = std::ranges::find_if(regions_, named(regionIdentifier(region)));
    if (found == regions_.end()) {
        regions_.push_back(region);
    } else if (*found == region) {
        return;
    } else {
        *found = region;
    }
    write();
}

bool RegionList::remove(std::string_view identifier) {
    const auto found = std::ranges::find_if(regions_, named(identifier));
    if (found == regions_.end()) return false;
    regions_.erase(found);
    write();
    return true;
}

void RegionList::write() {
    json::array list;
    for (const auto& region : regions_) {
        list.push_back(std::visit([](const auto& some) { return toObject(some); }, region));
    }
    std::error_code error;
    if (!files_.createDirectories(path_.parent_path(), error)) return;
    // Not through the port, which forces every file to the disk: no simulated phone loses its power, and a walk past
    // many regions writes often.
    const std::filesystem::path fresh = path_.string() + ".tmp";
    if (!files_.remove(fresh, error) || std::filesystem::is_other(path_, error)) return;
    {
        std::ofstream file(fresh, std::ios::binary | std::ios::trunc);
        file << json::serialize(json::object{{"monitoredRegions", std::move(list)}});
        if (!file.flush()) return;
    }
    std::filesystem::permissions(fresh, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write,
                                 error);
    std::filesystem::rename(fresh, path_, error);
}

}  // namespace quomi::simulated
