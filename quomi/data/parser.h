#pragma once

#include "quomi/util/error.h"

#include <optional>

#include <boost/json/fwd.hpp>

namespace quomi {

struct Platform;
class QuomiData;
class QuomiErrors;
struct PlaceContext;
struct QuomiSettings;

/// Turns the server's decoded answers into stored objects. A value of a wrong type takes its default.
///
/// Every operation returns whether the answer is stored. It fails with 402, and stores nothing, when the answer does
/// not say "success" or lacks a required key; with the store's error when a save fails, and then what was saved before
/// stays and the rest of the answer is dropped. Host's thread only.
class QuomiDataApiResponseParser {
public:
    /// All of them outlive the parser.
    QuomiDataApiResponseParser(QuomiData& dataManager, const QuomiErrors& errors, const Platform& platform,
                               const QuomiSettings& settings)
        : dataManager_(dataManager), errors_(errors), platform_(platform), settings_(settings) {}

    /// Stores the application record in place of the one there was. Fails with 402 also when a UUID cannot be read. A
    /// record that cannot be used leaves a console line that names the key.
    bool parseAndSaveApiApplicationResponseData(const boost::json::value& response,
                                                std::optional<Error>* error = nullptr);
    /// Stores the device-wide limits and forgets what they no longer ask about.
    bool parseAndSaveApiApplicationLimitsResponseData(const boost::json::value& response,
                                                      std::optional<Error>* error = nullptr);
    /// Stores the area, its geofences with their rules, removes the ones named, and notes the date.
    bool parseAndSaveApiGeofencesResponseData(const boost::json::value& response,
                                              std::optional<Error>* error = nullptr);
    /// The same for beacons, which have no area.
    bool parseAndSaveApiBeaconsResponseData(const boost::json::value& response, std::optional<Error>* error = nullptr);

private:
    [[nodiscard]] bool fail(std::optional<Error>* error) const;
    [[nodiscard]] PlaceContext placeContext() const;

    QuomiData& dataManager_;
    const QuomiErrors& errors_;
    const Platform& platform_;
    const QuomiSettings& settings_;
};

}  // namespace quomi
