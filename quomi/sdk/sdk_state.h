#pragma once

#include "quomi/diagnostics/debug_log.h"
#include "quomi/model/errors.h"
#include "quomi/model/settings.h"
#include "quomi/platform/platform.h"
#include "quomi/rules/web_page.h"
#include "quomi/sdk/authorization_logger.h"
#include "quomi/sdk/deferred_release.h"
#include "quomi/sdk/host_delegate.h"

#include <memory>

namespace quomi {

class QuomiUser;
struct RuleObserver;

/// What outlives every session, and each of them uses: the phone, the host, and what the host has set.
struct SdkState {
    /// The facade is handed to the host's operations; it and the settings outlive the object.
    SdkState(QuomiSDK& facade, const Platform& phone, QuomiSettings& hostSettings)
        : platform(phone),
          settings(hostSettings),
          capabilities(platform.location),
          debugLog(platform.files, platform.clock, [&hostSettings] { return hostSettings.isFileLogEnabled(); }),
          errors(platform.localization),
          graveyard(platform.runLoop),
          host(facade, debugLog, graveyard),
          webPages(platform.screens, platform.runLoop) {}

    const Platform platform;
    QuomiSettings& settings;
    const DeviceCapabilities capabilities;
    DebugLog debugLog;
    QuomiErrors errors;
    DeferredRelease graveyard;
    HostDelegate host;
    WebPagePresenter webPages;
    std::unique_ptr<QuomiAuthorizationLogger> authorizationLogger;
    std::shared_ptr<QuomiUser> user;
    std::weak_ptr<const RuleObserver> ruleObserver;
    bool running = false;
    bool eventLogsEnabled = true;
    bool enableIDFACollection = false;
};

}  // namespace quomi
