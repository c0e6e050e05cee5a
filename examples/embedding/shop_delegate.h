#pragma once

// The app's delegate, which the app and its test share: it vetoes pages, lets notifications through, and notes both.

#include <cstdio>
#include <memory>
#include <quomi/quomi.h>
#include <string>

namespace shop {

/// What the delegate has met so far.
struct Seen {
    int beacons = 0;
    int vetoes = 0;
    int notifications = 0;
    bool all() const { return beacons > 0 && vetoes > 0 && notifications > 0; }
};

inline std::shared_ptr<quomi::QuomiSDKDelegate> delegate(Seen& seen) {
    auto delegate = std::make_shared<quomi::QuomiSDKDelegate>();
    delegate->didReceiveErrorNotification = [](quomi::QuomiSDK&, const quomi::Error& error) {
        std::printf("error: %s\n", describe(error).c_str());
    };
    delegate->didFindNewBeacon = [&seen](quomi::QuomiSDK&, const std::string& name, const boost::json::object&) {
        std::printf("beacon: %s\n", name.c_str());
        ++seen.beacons;
    };
    delegate->shouldExecuteOpenWebPageRequest = [&seen](quomi::QuomiSDK&, const std::string& url, int) {
        std::printf("vetoed: %s\n", url.c_str());
        ++seen.vetoes;
        return false;
    };
    delegate->shouldExecuteNotificationRequest = [&seen](quomi::QuomiSDK&, const quomi::NotificationRequest&, int) {
        ++seen.notifications;
        return true;
    };
    return delegate;
}

}  // namespace shop
