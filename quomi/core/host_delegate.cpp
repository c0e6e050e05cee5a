#include "quomi/core/host_delegate.h"

#include "quomi/diagnostics/debug_log.h"

namespace quomi {

void HostDelegate::forwardErrorToDelegate(const std::optional<Error>& error) const {
    debugLog_.log("Quomi SDK Error: {}", error ? describe(*error) : "(null)");
    if (error) tell(&QuomiSDKDelegate::didReceiveErrorNotification, *error);
}

}  // namespace quomi
