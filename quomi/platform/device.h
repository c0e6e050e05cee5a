#pragma once

#include <optional>
#include <string>
#include <vector>

namespace quomi {

/// Port: facts about the device. Host's thread only.
class Device {
public:
    virtual ~Device() = default;

    /// The per-vendor identifier as a UUID's text; it names the device to the server as it stands.
    [[nodiscard]] virtual std::string identifierForVendor() const = 0;
    /// As the server gets to see them ("iOS", "17.1", "iPhone").
    [[nodiscard]] virtual std::string systemName() const = 0;
    [[nodiscard]] virtual std::string systemVersion() const = 0;
    [[nodiscard]] virtual std::string model() const = 0;
    /// The user's languages, preferred one first ("en", "de-AT").
    [[nodiscard]] virtual std::vector<std::string> preferredLanguages() const = 0;
    /// The advertising identifier as a UUID's text; empty where the phone gives none.
    [[nodiscard]] virtual std::optional<std::string> advertisingIdentifier() const = 0;
    /// Whether the user lets himself be tracked.
    [[nodiscard]] virtual bool isAdvertisingTrackingEnabled() const = 0;
};

}  // namespace quomi
