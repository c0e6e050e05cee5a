#include "tools/quomi/visit/visit_support.h"

#include <algorithm>

namespace quomi::tool {
namespace {

struct NotYet {
    VisitWord word;
    std::string_view name;
    bool operator==(const NotYet&) const = default;
};

/// What the format has and this version does not play. A line goes when its player is there; readers know them all.
constexpr NotYet kNotYet[] = {
    {VisitWord::call, "performServerSync"},
    {VisitWord::call, "removeAllData"},
    {VisitWord::call, "resetCounters"},
    {VisitWord::call, "triggerLocationUpdate"},
    {VisitWord::call, "updateAllRulesData"},
    {VisitWord::call, "updateLocation"},
};

}  // namespace

bool isSupported(VisitWord word, std::string_view name) {
    return std::ranges::find(kNotYet, NotYet{word, name}) == std::ranges::end(kNotYet);
}

}  // namespace quomi::tool
