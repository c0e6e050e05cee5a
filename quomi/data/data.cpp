#include "quomi/data/data.h"

#include "quomi/data/store_file.h"
#include "quomi/model/errors.h"
#include "quomi/platform/application.h"
#include "quomi/platform/console.h"
#include "quomi/platform/files.h"
#include "quomi/platform/run_loop.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

namespace quomi {

std::filesystem::path QuomiData::dataStorageDirectory(const Platform& platform) {
    return platform.files.libraryDirectory() / "Application Support" / "QuomiData";
}

std::unique_ptr<QuomiData> QuomiData::create(const std::filesystem::path& file,
                                             bool allowToDeleteStorageOnMigrationErrors, const Platform& platform,
                                             const QuomiErrors& errors, ErrorSlot error) {
    auto storeFile = StoreFile::open(file, allowToDeleteStorageOnMigrationErrors, platform.files, errors, error);
    if (storeFile == nullptr) return nullptr;
    std::unique_ptr<QuomiData> data(new QuomiData(std::move(storeFile), platform, errors));
    if (data->getSDKStatusInfo(error) == nullptr) return nullptr;
    return data;
}

QuomiData::QuomiData(std::unique_ptr<StoreFile> file, const Platform& platform, const QuomiErrors& errors)
    : platform_(platform), errors_(errors), file_(std::move(file)), objectContext_(*file_) {}

QuomiData::~QuomiData() {
    if (isSaveDue_) objectContext_.save();
}

// Contexts

ObjectContext& QuomiData::currentObjectContext() {
    const bool isInBackground = platform_.application.state() == ApplicationState::background;
    return backgroundObjectContext_ != nullptr && isInBackground ? *backgroundObjectContext_ : objectContext_;
}

void QuomiData::startBackgroundObjectContext() {
    ++backgroundUsers_;
    if (backgroundObjectContext_ == nullptr) backgroundObjectContext_ = std::make_unique<ObjectContext>(objectContext_);
}

void QuomiData::finishBackgroundObjectContext() {
    if (backgroundUsers_ > 0 && --backgroundUsers_ == 0) backgroundObjectContext_.reset();
}

bool QuomiData::saveContext(ErrorSlot error) {
    if (backgroundObjectContext_ == nullptr) return objectContext_.save(error);
    std::optional<Error> failure;
    if (backgroundObjectContext_->save(&failure) && objectContext_.save(&failure)) return true;
    if (failure) {
        platform_.console.log(fmt::format("saveContext: : {}", describe(*failure)));
        assign(error, std::move(*failure));
    }
    return false;
}

bool QuomiData::saveContextSoon(ErrorSlot error) {
    // What a child has not handed over yet, and a refusal, are matters of a whole save.
    if (backgroundObjectContext_ != nullptr || !objectContext_.begin(error)) return saveContext(error);
    if (objectContext_.wasRefused()) return saveContext(error);
    if (!std::exchange(isSaveDue_, true)) {
        platform_.runLoop.post(lifetime_.guard([this] {
            isSaveDue_ = false;
            std::optional<Error> failure;
            if (!saveContext(&failure) && failure) platform_.console.log("saveContext: : " + describe(*failure));
        }));
    }
    return true;
}

bool QuomiData::failBusy(ErrorSlot error) const {
    assign(error, errors_.errorWithCode(ErrorCode::updateRunning));
    return false;
}

bool QuomiData::removeAll(const EntityType& type, ErrorSlot error) {
    return objectContext_.removeAll(type, error) && saveContext(error);
}

bool QuomiData::removeEverything() {
    bool isRemoved = removeSDKStatusInfo();
    isRemoved = removeApplication() && isRemoved;
    isRemoved = removeAllGeofenceRegions() && isRemoved;
    isRemoved = removeAllGeofences() && isRemoved;
    isRemoved = removeAllBeacons() && isRemoved;
    isRemoved = removeAllBatteryAlerts() && isRemoved;
    isRemoved = removeAllLoggedEvents() && isRemoved;
    return file_->wipeFreePages() && isRemoved;
}

// The SDK's status and the application record

std::shared_ptr<QuomiStatusInfo> QuomiData::getSDKStatusInfoWithoutCreateByDefault(ErrorSlot error) {
    static const Query<QuomiStatusInfo> first("LIMIT 1");
    return currentObjectContext().fetchFirst(first, {}, error);
}

std::shared_ptr<QuomiStatusInfo> QuomiData::getSDKStatusInfo(ErrorSlot error) {
    std::optional<Error> failure;
    auto status = getSDKStatusInfoWithoutCreateByDefault(&failure);
    if (status == nullptr && !failure) {
        const bool isMade = objectContext_.begin(&failure) &&
                            objectContext_.insert(std::make_shared<QuomiStatusInfo>(), &failure) &&
                            saveContext(&failure);
        if (isMade) status = getSDKStatusInfoWithoutCreateByDefault(&failure);
    }
    if (failure) assign(error, std::move(*failure));
    return status;
}

bool QuomiData::removeSDKStatusInfo(ErrorSlot error) {
    return removeAll(entityType<QuomiStatusInfo>(), error);
}

bool QuomiData::setSdkIsStarted(bool isStarted) {
    const auto status = getSDKStatusInfo();
    if (status == nullptr) return false;
    status->isStarted = isStarted;
    return saveContext();
}

bool QuomiData::sdkIsStarted() {
    const auto status = getSDKStatusInfo();
    return status != nullptr && status->isStarted;
}

QuomiData::UpdateDates QuomiData::lastUpdateDates() {
    if (!updateDates_ || file_->version() != updateDatesVersion_) {
        const auto status = getSDKStatusInfo();
        if (status == nullptr) return {};
        updateDates_ = {status->lastBeaconsDataUpdatedAt, status->lastGeofencesDataUpdatedAt};
        updateDatesVersion_ = file_->version();
    }
    return *updateDates_;
}

bool QuomiData::setLastGeofencesDataUpdateDate(WallTime date, ErrorSlot error) {
    const auto status = getSDKStatusInfo(error);
    if (status == nullptr) return false;
    status->lastGeofencesDataUpdatedAt = date;
    return saveContext(error);
}

bool QuomiData::setLastBeaconsDataUpdateDate(WallTime date, ErrorSlot error) {
    const auto status = getSDKStatusInfo(error);
    if (status == nullptr) return false;
    status->lastBeaconsDataUpdatedAt = date;
    return saveContext(error);
}

bool QuomiData::resetGlobalCounters(ErrorSlot error) {
    const auto status = getSDKStatusInfo(error);
    if (status == nullptr) return false;
    status->globalTriggersCount = 0;
    status->globalHistory.clear();
    return saveContext(error);
}

std::shared_ptr<QuomiApplication> QuomiData::getApplication(ErrorSlot error) {
    static const Query<QuomiApplication> first("LIMIT 1");
    return objectContext_.fetchFirst(first, {}, error);
}

bool QuomiData::insertOrUpdateApplication(const std::shared_ptr<QuomiApplication>& application, ErrorSlot error) {
    if (application->context() != &objectContext_) {
        if (!objectContext_.removeAll(entityType<QuomiApplication>(), error)) return false;
        if (!objectContext_.insert(application, error)) return false;
    }
    return saveContext(error);
}

bool QuomiData::removeApplication(ErrorSlot error) {
    return removeAll(entityType<QuomiApplication>(), error);
}

}  // namespace quomi
