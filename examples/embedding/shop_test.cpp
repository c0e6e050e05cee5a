// The app's own test: plays a visit, on a phone made of data, against the delegate that the app uses. Its result is 0
// when the visitor was welcomed once, and only once, in a minute at the door, and the page was vetoed.

#include "shop_delegate.h"

#include <hosts/simulated/replay/replay.h>

int main(int count, char** arguments) {
    shop::Seen seen;
    quomi::simulated::VisitError error;
    const auto visit = count > 1 ? arguments[1] : "visit.json";
    const auto replay = quomi::simulated::Replay::load(visit, {.delegate = shop::delegate(seen)}, &error);
    if (replay == nullptr) std::printf("%s\n", error.text().c_str());
    if (replay == nullptr || !replay->play()) return 1;

    const auto& shown = replay->phone().notifications();
    const bool welcomedOnce = shown.size() == 1 && shown.front().body == "Welcome!" && seen.notifications == 1;
    return welcomedOnce && seen.vetoes == 1 && replay->phone().shownWebPage().empty() ? 0 : 1;
}
