// A host app around the SDK: it makes the ports, starts, hears of a beacon, vetoes the page that a rule orders, lets
// the notification through, and stops. Prints what happens; its result is 0 when all of that did.

#include "back_office.h"
#include "shop_delegate.h"
#include "small_phone.h"

#include <cstdlib>
#include <filesystem>
#include <hosts/posix/clock.h>
#include <hosts/posix/console.h>
#include <hosts/posix/defaults.h>
#include <hosts/posix/files.h>
#include <hosts/posix/run_loop.h>

namespace {

/// The SDK does not repeat a start that failed for want of a network: the app does, when there is one again.
std::unique_ptr<quomi::ReachabilityObservation> startAnewWhenOnline(quomi::QuomiSDK& sdk,
                                                                    quomi::Reachability& reachability) {
    return reachability.observe([&sdk](quomi::NetworkStatus status) {
        if (status != quomi::NetworkStatus::notReachable && !sdk.isRunning()) sdk.start();
    });
}

}  // namespace

int main() {
    // 1. The ports. The run loop comes first: this thread is the host's thread from here on.
    std::string directory = (std::filesystem::temp_directory_path() / "embedding-XXXXXX").string();
    if (::mkdtemp(directory.data()) == nullptr) return 1;
    quomi::posix::RunLoop loop;
    quomi::posix::SystemClock clock;
    quomi::posix::PosixFiles files(directory);
    quomi::posix::JsonDefaults defaults(files);
    quomi::posix::StderrConsole console;
    shop::OneBeaconLocation location(loop);
    shop::BluetoothOn bluetooth(loop);
    shop::PrintedNotifications notifications(loop);
    shop::ForegroundApplication application;
    shop::NoScreens screens;
    shop::DeskDevice device;
    shop::EnglishOnly localization;
    shop::CannedServer http(loop, shop::kBackOffice);
    shop::AlwaysReachable reachability;
    const quomi::Platform platform{clock,  loop,  location, bluetooth, notifications, application, screens,
                                   device, files, defaults, console,   localization,  http,        reachability};

    // 2. Settings, then the SDK. Both refer to the ports, so they are made after them and go before them.
    quomi::QuomiSettings settings({.apiBaseUrl = "https://backoffice.example"}, location);
    quomi::QuomiSDK sdk(platform, settings);

    // 3. The delegate: only what the app cares for. The SDK holds it weakly.
    shop::Seen seen;
    const auto delegate = shop::delegate(seen);
    sdk.setDelegate(delegate);

    // 4. Start. Without a stored application record the answer comes later, as an error or as a running SDK.
    sdk.setAppNamespace("corner-shop");
    const auto whenOnline = startAnewWhenOnline(sdk, reachability);
    std::optional<quomi::Error> error;
    if (!sdk.start(&error)) {
        std::printf("not started: %s\n", error ? describe(*error).c_str() : "unknown security mode");
        return 1;
    }

    // 5. The app's life: its run loop. Rules run from inside of it.
    const bool done = loop.runUntil([&seen] { return seen.all(); }, std::chrono::seconds(10));

    // 6. Stop: nothing calls back any more.
    sdk.stop();
    loop.runUntilIdle();
    std::printf("%s\n", done ? "done" : "not everything happened");
    std::filesystem::remove_all(directory);
    return done ? 0 : 1;
}
