#include "quomi/platform/device_helpers.h"

#include "quomi/util/number.h"
#include "quomi/util/text.h"

namespace quomi {

std::string QuomiUDID::udid(const Device& device) {
    return device.identifierForVendor();
}

namespace QuomiUtils {

namespace {

std::int64_t versionCompound(const Device& device, std::size_t index) {
    const auto compounds = iOSVersionCompounds(device);
    return index < compounds.size() ? integerOfText(compounds[index]) : 0;
}

}  // namespace

std::vector<std::string> iOSVersionCompounds(const Device& device) {
    const std::string version = device.systemVersion();
    const auto parts = componentsSeparatedBy(version, '.');
    return {parts.begin(), parts.end()};
}

std::int64_t majoriOSVersion(const Device& device) {
    return versionCompound(device, 0);
}

std::int64_t minoriOSVersion(const Device& device) {
    return versionCompound(device, 1);
}

}  // namespace QuomiUtils

}  // namespace quomi
