#include "quomi/data/records.h"

#include <algorithm>

namespace quomi {

void QuomiStatusInfo::trimOutdatedHistoryElements(WallTime now) {
    if (globalMaxEventsPeriod < 1) {
        globalHistory.clear();
        return;
    }
    const WallTime cutOff = now - std::chrono::seconds(globalMaxEventsPeriod);
    const auto first =
        std::find_if(globalHistory.begin(), globalHistory.end(), [cutOff](WallTime date) { return date >= cutOff; });
    globalHistory.erase(globalHistory.begin(), first);
}

}  // namespace quomi
