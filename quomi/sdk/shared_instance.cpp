#include "quomi/sdk/sdk.h"

#include <memory>
#include <mutex>

namespace quomi {

namespace {

/// The host's one phone and what was made for it. Lives as long as the process.
struct Shared {
    std::mutex mutex;
    std::unique_ptr<Platform> platform;
    Deployment deployment;
    std::unique_ptr<QuomiSettings> settings;
    std::unique_ptr<QuomiSDK> sdk;
};

Shared& shared() {
    static auto* const instance = new Shared;  // never destroyed: hosts may use it until the very end
    return *instance;
}

QuomiSettings* settingsOf(Shared& instance) {
    if (instance.platform == nullptr) return nullptr;
    if (instance.settings == nullptr) {
        instance.settings = std::make_unique<QuomiSettings>(instance.deployment, instance.platform->location);
    }
    return instance.settings.get();
}

}  // namespace

bool QuomiSDK::installPlatform(const Platform& platform, const Deployment& deployment) {
    auto& instance = shared();
    const std::lock_guard lock(instance.mutex);
    if (instance.platform != nullptr) return false;
    instance.platform = std::make_unique<Platform>(platform);
    instance.deployment = deployment;
    return true;
}

QuomiSDK* QuomiSDK::sharedInstance() {
    auto& instance = shared();
    const std::lock_guard lock(instance.mutex);
    auto* settings = settingsOf(instance);
    if (settings == nullptr) return nullptr;
    if (instance.sdk == nullptr) instance.sdk = std::make_unique<QuomiSDK>(*instance.platform, *settings);
    return instance.sdk.get();
}

QuomiSettings* QuomiSettings::sharedInstance() {
    auto& instance = shared();
    const std::lock_guard lock(instance.mutex);
    return settingsOf(instance);
}

}  // namespace quomi
