#include "tools/quomi/timeline/beacon_names.h"

#include "tools/quomi/timeline/terminal_text.h"

#include <algorithm>
#include <array>
#include <utility>

#include <fmt/format.h>

namespace quomi::tool {

std::string_view proximityWord(std::int64_t proximity) {
    static constexpr std::array<std::string_view, 8> words = {"none",   "immediate", "near",    "far",
                                                              "medium", "distant",   "unknown", "unknown"};
    return proximity >= 0 && proximity < 8 ? words[static_cast<std::size_t>(proximity)] : words[0];
}

BeaconNames::BeaconNames(Labels labels, bool labelsAlone) : labels_(std::move(labels)), labelsAlone_(labelsAlone) {
    for (auto& [key, label] : labels_) {
        label = clipped(neutralised(label), 40);
        columns_ = std::max(columns_, columnsOf(label));
    }
}

const std::string* BeaconNames::find(std::string_view key) const {
    const auto label = labels_.find(key);
    return label != labels_.end() ? &label->second : nullptr;
}

std::string BeaconNames::label(std::string_view key) const {
    const auto* label = find(key);
    return label != nullptr ? *label : neutralised(key);
}

std::string BeaconNames::shortName(std::string_view name) const {
    constexpr std::size_t uuidLength = 36;
    if (name.size() < uuidLength || (name.size() > uuidLength && name[uuidLength] != '/')) return neutralised(name);
    return neutralised(fmt::format("{}…{}{}", name.substr(0, 8), name.substr(32, 4), name.substr(uuidLength)));
}

std::string BeaconNames::fullName(std::string_view name) const {
    auto text = leftAligned(shortName(name), 20);
    if (columns_ == 0) return text;
    const auto* label = find(name);
    if (labelsAlone_ && label != nullptr) return leftAligned(*label, columns_);
    return leftAligned(label != nullptr ? *label : "", columns_) + "  " + text;
}

}  // namespace quomi::tool
