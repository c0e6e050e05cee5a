#pragma once

#include "quomi/util/error.h"
#include "quomi/util/lifetime.h"
#include "quomi/util/time.h"
#include "quomi/util/uuid.h"

#include <functional>
#include <optional>
#include <string>

#include <boost/json/fwd.hpp>

namespace quomi {

class DebugLog;
class QuomiData;
class QuomiDataApiResponseParser;
struct Platform;
struct QuomiSettings;

/// Which beacons a server is asked for: all of the UUID, or those of a major or minor; those that changed since the
/// date, or all without one. All namespaces for an empty one.
struct BeaconsQuestion {
    std::string appNamespace;
    Uuid proximityUUID;
    std::optional<int> major{};
    std::optional<int> minor{};
    std::optional<WallTime> lastUpdateDate{};
};

/// Which geofences a server is asked for: those in the circle (degrees, kilometres), and as for beacons.
struct GeofencesQuestion {
    std::string appNamespace;
    double latitude = 0;
    double longitude = 0;
    double radius = 0;
    std::optional<WallTime> lastUpdateDate{};
};

/// What comes of a download. Several that ask the same may get one answer: it is taken once then, and each of those who
/// asked is called back.
struct RulesDownload {
    /// Takes the answer. An error says why it is of no use.
    std::function<void(const boost::json::value&, std::optional<Error>* error)> take;
    /// Told of a download that failed, or was answered with something of no use: of the first in a row.
    std::function<void(const Error&)> failed;
    // Those who asked; may be empty. An answer of no use is a success for them.
    std::function<void()> success;
    std::function<void(const Error&)> failure;
};

/// What the updater needs of whoever speaks to the server. Callbacks run in a later turn, unless the request is
/// dropped.
class RulesSource {
public:
    virtual ~RulesSource() = default;
    virtual void getBeaconsRulesWithNamespace(const BeaconsQuestion& question, RulesDownload download) = 0;
    /// False with an error, and no callback, when it cannot begin.
    virtual bool getGeofencesRulesWithNamespace(const GeofencesQuestion& question, RulesDownload download,
                                                std::optional<Error>* error = nullptr) = 0;
};

/// A circle in which to update geofences, in degrees and kilometres. What is missing counts as 0.
struct UpdateArea {
    std::optional<double> latitude;
    std::optional<double> longitude;
    std::optional<double> radius;
};

/// The beacons to update: all of the UUID, or those of a major or minor.
struct UpdateBeacons {
    const Uuid& proximityUUID;
    std::optional<int> major = std::nullopt;
    std::optional<int> minor = std::nullopt;
};

/// Decides when rules are downloaded anew, and has them downloaded and stored. One date counts for all beacons and one
/// for all geofences, whatever their UUIDs and places.
///
/// Blocks may be empty; one of them is called when a download has ended, except that a download of geofences that
/// cannot begin (another one runs) calls none, deliberately: its caller never waits. An answer that cannot be stored
/// counts as a success, deliberately: its rules stay due. Why it could not be stored goes to the debug log. Host's
/// thread only.
class QuomiDataUpdater {
public:
    /// True when a download was made, false when none was due.
    using Success = std::function<void(bool isDownloaded)>;
    using Failure = std::function<void(const Error&)>;

    /// What it is given outlives the updater, the source until it is replaced.
    QuomiDataUpdater(QuomiData& data, RulesSource& apiClient, QuomiDataApiResponseParser& apiResponseParser,
                     const Platform& platform, const QuomiSettings& settings, DebugLog& debugLog);
    void setApiClient(RulesSource& apiClient) { apiClient_ = &apiClient; }

    /// When rules were last stored; the epoch before the first time.
    [[nodiscard]] WallTime lastBeaconUpdate();
    [[nodiscard]] WallTime lastGeofenceUpdate();
    /// Whether more than kAPIMinimumRefreshInterval has passed since; just as much is not enough.
    [[nodiscard]] bool beaconsDataNeedUpdating();
    [[nodiscard]] bool geofencesDataNeedUpdating();

    /// Downloads what changed since the last time, when it is due.
    void performBeaconsDataUpdateIfNeeded(const UpdateBeacons& beacons, const Success& success = {},
                                          const Failure& failure = {});
    void performGeofencesDataUpdateIfNeeded(const UpdateArea& area, const Success& success = {},
                                            const Failure& failure = {});
    /// Downloads everything.
    void performFullBeaconsDataUpdate(const UpdateBeacons& beacons, const Success& success = {},
                                      const Failure& failure = {});
    /// False when the download cannot begin.
    bool performFullGeofencesDataUpdate(const UpdateArea& area, const Success& success = {},
                                        const Failure& failure = {});

private:
    using Parse = bool (QuomiDataApiResponseParser::*)(const boost::json::value&, std::optional<Error>*);

    void updateBeaconsData(const UpdateBeacons& beacons, std::optional<WallTime> updatedAt, const Success& success,
                           const Failure& failure);
    bool updateGeofencesData(const UpdateArea& area, std::optional<WallTime> updatedAt, const Success& success,
                             const Failure& failure);
    [[nodiscard]] RulesDownload download(Parse parse, const Success& success, const Failure& failure);
    void store(Parse parse, const boost::json::value& response, std::optional<Error>* error);
    [[nodiscard]] bool isDue(WallTime lastUpdate) const;

    QuomiData& data_;
    RulesSource* apiClient_;
    QuomiDataApiResponseParser& apiResponseParser_;
    const Platform& platform_;
    const QuomiSettings& settings_;
    DebugLog& debugLog_;
    Lifetime lifetime_;
};

}  // namespace quomi
