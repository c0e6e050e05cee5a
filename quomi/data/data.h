#pragma once

#include "quomi/data/object_context.h"
#include "quomi/data/records.h"
#include "quomi/data/rule_owner.h"
#include "quomi/platform/platform.h"
#include "quomi/util/error.h"
#include "quomi/util/lifetime.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace quomi {

class QuomiErrors;
class StoreFile;
class Uuid;

/// The store: what the SDK keeps between launches, in one SQLite file.
///
/// Objects come from `currentObjectContext` and may be changed by whoever holds them; `saveContext` writes what has
/// changed. Operations that can fail return false, nothing or an empty list and fill the error: 600 with SQLite's
/// reason where no other code is named. Those that say "saved" have written when they return. Host's thread only.
class QuomiData {
public:
    template <class Object>
    using List = std::vector<std::shared_ptr<Object>>;
    /// Gives one object after the other, and null at the end.
    template <class Object>
    using Source = std::function<std::shared_ptr<Object>()>;
    using ErrorSlot = std::optional<Error>*;

    /// Where the store file lies: Library/Application Support/QuomiData of the app.
    [[nodiscard]] static std::filesystem::path dataStorageDirectory(const Platform& platform);

    /// Opens the store, making it when there is none; the errors are those of StoreFile::open, and 600 when the status
    /// row can be neither read nor made. Platform and errors outlive the store.
    [[nodiscard]] static std::unique_ptr<QuomiData> create(const std::filesystem::path& file,
                                                           bool allowToDeleteStorageOnMigrationErrors,
                                                           const Platform& platform, const QuomiErrors& errors,
                                                           ErrorSlot error = nullptr);
    ~QuomiData();
    QuomiData(const QuomiData&) = delete;
    QuomiData& operator=(const QuomiData&) = delete;

    // Contexts

    /// The child context, where there is one and the app is in the background; else the one that commits.
    [[nodiscard]] ObjectContext& currentObjectContext();
    /// The one that commits. Children of it end before the store.
    [[nodiscard]] ObjectContext& mainObjectContext() { return objectContext_; }
    /// Makes the child context unless there is one; lets go of it when as many have finished as have started. What the
    /// child had not saved is lost then.
    void startBackgroundObjectContext();
    void finishBackgroundObjectContext();
    /// Saves the child context, if there is one, and then the one that commits. See ObjectContext::save for what a
    /// failure leaves.
    bool saveContext(ErrorSlot error = nullptr);
    /// The same for what may be lost with the process: every fetch sees it from now on, and the next save commits it,
    /// one in a later turn of the run loop if no other comes before. So many changes in a turn cost one commit. A
    /// failure of that commit is told on the console.
    bool saveContextSoon(ErrorSlot error = nullptr);

    // The SDK's status and the application record

    /// The status row, made and saved when there is none; null when it can be neither read nor made.
    [[nodiscard]] std::shared_ptr<QuomiStatusInfo> getSDKStatusInfo(ErrorSlot error = nullptr);
    [[nodiscard]] std::shared_ptr<QuomiStatusInfo> getSDKStatusInfoWithoutCreateByDefault(ErrorSlot error = nullptr);
    bool removeSDKStatusInfo(ErrorSlot error = nullptr);  // saved
    bool setSdkIsStarted(bool isStarted);                 // saved
    [[nodiscard]] bool sdkIsStarted();
    /// When downloads were last stored; 1970 when never, or when that cannot be read. Cheap, since every event asks:
    /// what another process of the app writes is noticed no later than at the event after.
    struct UpdateDates {
        WallTime beacons{};
        WallTime geofences{};
    };
    [[nodiscard]] UpdateDates lastUpdateDates();
    bool setLastGeofencesDataUpdateDate(WallTime date, ErrorSlot error = nullptr);  // saved
    bool setLastBeaconsDataUpdateDate(WallTime date, ErrorSlot error = nullptr);    // saved
    /// Counts no device-wide events any more. Saved.
    bool resetGlobalCounters(ErrorSlot error = nullptr);
    /// The application record; null when none is stored.
    [[nodiscard]] std::shared_ptr<QuomiApplication> getApplication(ErrorSlot error = nullptr);
    /// Stores the record in place of the one there was. Saved.
    bool insertOrUpdateApplication(const std::shared_ptr<QuomiApplication>& application, ErrorSlot error = nullptr);
    bool removeApplication(ErrorSlot error = nullptr);  // saved

    // Geofences and the areas they were downloaded for

    bool insertOrUpdateGeofenceRegion(const std::shared_ptr<QuomiGeofenceRegion>& region,
                                      ErrorSlot error = nullptr);  // saved
    /// Puts disconnected geofences into the store, enabled, each in place of the one with its identifier, whose
    /// counters it takes over. Returns how many. Not saved. 0 with 606 while another such call runs, 0 with 600 when
    /// the store cannot be read or is busy; what was not saved is dropped when it cannot be read. The region is not
    /// looked at.
    std::size_t insertOrUpdateGeofences(const Source<QuomiGeofence>& geofences, const QuomiGeofenceRegion& inRegion,
                                        ErrorSlot error = nullptr);
    [[nodiscard]] List<QuomiGeofenceRegion> getAllGeofenceRegions(ErrorSlot error = nullptr);
    /// By identifier.
    [[nodiscard]] List<QuomiGeofence> getAllGeofences(ErrorSlot error = nullptr);
    [[nodiscard]] std::shared_ptr<QuomiGeofence> getGeofenceById(const std::string& id, ErrorSlot error = nullptr);
    [[nodiscard]] std::shared_ptr<QuomiGeofenceRuleWithActions> getGeofenceRuleById(const std::string& id,
                                                                                    ErrorSlot error = nullptr);
    /// By identifier.
    [[nodiscard]] List<QuomiGeofence> getGeofencesInGroup(const std::string& group, ErrorSlot error = nullptr);
    /// The enabled geofences whose centres lie in the box around the point, by identifier. Degrees; a tolerance of 0 or
    /// less counts as 0.01.
    [[nodiscard]] List<QuomiGeofence> findNearbyGeofences(double latitude, double longitude,
                                                          double searchToleranceDegrees, ErrorSlot error = nullptr);
    [[nodiscard]] List<QuomiGeofence> findNearbyGeofences(double latitude, double longitude,
                                                          ErrorSlot error = nullptr) {
        return findNearbyGeofences(latitude, longitude, geofenceRegionsSearchToleranceDegrees, error);
    }
    /// The areas with centres in the box around the point, the largest first.
    [[nodiscard]] List<QuomiGeofenceRegion> findNearbyGeofenceRegions(double latitude, double longitude,
                                                                      ErrorSlot error = nullptr);
    /// Of those the one whose centre is closest; null for none.
    [[nodiscard]] std::shared_ptr<QuomiGeofenceRegion> findClosestGeofenceRegion(double latitude, double longitude,
                                                                                 ErrorSlot error = nullptr);
    /// Whether the largest nearby area that contains the point has expired; no when none contains it.
    [[nodiscard]] bool locationIsInExpiredRegion(double latitude, double longitude);
    [[nodiscard]] bool geofenceRegionExpired(const QuomiGeofenceRegion& region) const;
    /// Enables or disables those of the namespace (all for an empty one); returns how many there are. Not saved.
    std::size_t enableGeofencesWithNamespace(const std::string& appNamespace, bool enabled, ErrorSlot error = nullptr);
    bool removeAllGeofenceRegions(ErrorSlot error = nullptr);                                  // saved
    bool removeAllGeofences(ErrorSlot error = nullptr);                                        // saved
    bool removeGeofencesWithIds(std::span<const std::string> ids, ErrorSlot error = nullptr);  // saved
    bool removeGeofenceWithId(const std::string& id, ErrorSlot error = nullptr);               // saved
    bool resetAllGeofencesCounters(ErrorSlot error = nullptr);                                 // saved

    // Beacons

    /// As insertOrUpdateGeofences.
    std::size_t insertOrUpdateBeacons(const Source<QuomiBeaconData>& beacons, ErrorSlot error = nullptr);
    /// By identifier, as all lists of beacons.
    [[nodiscard]] List<QuomiBeaconData> getAllBeacons(ErrorSlot error = nullptr);
    [[nodiscard]] std::shared_ptr<QuomiBeaconData> getBeaconById(const std::string& id, ErrorSlot error = nullptr);
    [[nodiscard]] std::shared_ptr<QuomiBeaconRuleWithActions> getBeaconRuleById(const std::string& id,
                                                                                ErrorSlot error = nullptr);
    [[nodiscard]] List<QuomiBeaconData> getBeaconsInGroup(const std::string& group, ErrorSlot error = nullptr);
    /// Without major or minor those that have none.
    [[nodiscard]] List<QuomiBeaconData> getBeaconsByProximityUUID(const Uuid& proximityUUID, std::optional<int> major,
                                                                  std::optional<int> minor, ErrorSlot error = nullptr);
    /// Those of any minor that pass the check, which sees each once.
    [[nodiscard]] List<QuomiBeaconData> getBeaconsByProximityUUID(
        const Uuid& proximityUUID, int major, const std::function<bool(const QuomiBeaconData&)>& securityCheck,
        ErrorSlot error = nullptr);
    /// As enableGeofencesWithNamespace, but 0 with 606 while an insertion runs.
    std::size_t enableBeaconsWithNamespace(const std::string& appNamespace, bool enabled, ErrorSlot error = nullptr);
    bool removeAllBeacons(ErrorSlot error = nullptr);                                        // saved
    bool removeBeaconsWithIds(std::span<const std::string> ids, ErrorSlot error = nullptr);  // saved; 606 as above
    bool resetAllBeaconsCounters(ErrorSlot error = nullptr);                                 // saved

    // What earlier versions kept of events; the newest first, pages from 0

    [[nodiscard]] std::size_t getLoggedEventsCount(ErrorSlot error = nullptr);
    [[nodiscard]] List<QuomiDebugLog> getLoggedEvents(int page, int perPage, ErrorSlot error = nullptr);
    [[nodiscard]] List<QuomiDebugLog> getAllLoggedEvents(ErrorSlot error = nullptr);
    bool removeAllLoggedEvents(ErrorSlot error = nullptr);  // saved

    // Battery alerts that wait to be sent; the newest first

    [[nodiscard]] List<QuomiBatteryAlert> getAllBatteryAlerts(ErrorSlot error = nullptr);
    bool removeAllBatteryAlerts(ErrorSlot error = nullptr);  // saved

    /// Removes every object of every entity, and leaves nothing of them in the file, its free pages or its log. All is
    /// tried, whatever fails. Saved.
    bool removeEverything();

    double geofenceRegionsSearchToleranceDegrees = 1.0;

private:
    QuomiData(std::unique_ptr<StoreFile> file, const Platform& platform, const QuomiErrors& errors);

    template <class Place>
    std::size_t insertOrUpdate(const Source<Place>& places, ErrorSlot error);
    template <class Place>
    std::size_t enable(const std::string& appNamespace, bool enabled, ErrorSlot error);
    template <class Place>
    bool removeWithIds(std::span<const std::string> ids, ErrorSlot error);
    template <class Place>
    bool resetAllCounters(ErrorSlot error);
    bool removeAll(const EntityType& type, ErrorSlot error);
    bool failBusy(ErrorSlot error) const;

    const Platform& platform_;
    const QuomiErrors& errors_;
    std::unique_ptr<StoreFile> file_;
    ObjectContext objectContext_;
    std::unique_ptr<ObjectContext> backgroundObjectContext_;
    std::optional<UpdateDates> updateDates_;  // as they were when the file was of that version
    std::uint32_t updateDatesVersion_ = 0;
    int backgroundUsers_ = 0;
    bool isSaveDue_ = false;
    bool busyWithInsertOrUpdateData_ = false;
    Lifetime lifetime_;
};

}  // namespace quomi
