// The app's own test of a visit: the same SDK on a phone made of data, whose clock only the test moves. Its result is 0
// when the visitor was welcomed once, and only once, in a minute at the door.

#include "back_office.h"

#include <chrono>
#include <cstdio>
#include <hosts/simulated/scripted_transport.h>
#include <hosts/simulated/simulated_phone.h>
#include <quomi/quomi.h>

int main() {
    using namespace std::chrono_literals;
    quomi::simulated::SimulatedPhone phone({.start = std::chrono::sys_days(std::chrono::year(2025) / 5 / 9) + 10h});
    for (const auto& [path, answer] : shop::kBackOffice) {
        phone.transport().answer("GET " + path, {.body = answer});
        phone.transport().answer("POST " + path, {.body = answer});
    }
    phone.transport().setBaseURLs({"https://backoffice.example"});

    const auto platform = phone.platform();
    quomi::QuomiSettings settings({.apiBaseUrl = "https://backoffice.example"}, platform.location);
    quomi::QuomiSDK sdk(platform, settings);
    sdk.setAppNamespace("corner-shop");
    if (!sdk.start()) return 1;
    phone.advanceBy(1s);

    const auto door = quomi::Uuid::parse("5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B90").value();
    for (int second = 0; second < 60; ++second) {
        phone.range({{door, 1, 7, quomi::PlatformProximity::near, 2.0, -65}});
        phone.advanceBy(1s);
    }
    const auto& shown = phone.notifications();
    for (const auto& notification : shown) std::printf("notification: %s\n", notification.body.value_or("").c_str());
    return shown.size() == 1 && shown.front().body == "Welcome!" ? 0 : 1;
}
