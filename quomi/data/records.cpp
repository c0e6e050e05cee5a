#include "quomi/data/records.h"

#include "quomi/rules/history.h"

namespace quomi {

void QuomiStatusInfo::trimOutdatedHistoryElements(WallTime now) {
    if (globalMaxEventsPeriod < 1) {
        globalHistory.clear();
        return;
    }
    globalHistory =
        QuomiHistoryUtils::getTrimmedHistory(globalHistory, now - std::chrono::seconds(globalMaxEventsPeriod));
}

}  // namespace quomi
