#pragma once

#include "quomi/data/event_upload.h"
#include "quomi/data/records.h"
#include "quomi/platform/platform.h"
#include "quomi/util/error.h"

#include <filesystem>
#include <memory>
#include <optional>

#include <boost/json/fwd.hpp>

namespace quomi {

class QuomiErrors;
class StoreFile;

/// The store: what the SDK keeps between launches, in one SQLite file, and the event log with its upload.
///
/// Operations that can fail return false or nothing and fill the error. What a successful call changed is in the file
/// when it returns. Host's thread only.
class QuomiData {
public:
    /// Where the store file lies: Library/Application Support/QuomiData of the app.
    [[nodiscard]] static std::filesystem::path dataStorageDirectory(const Platform& platform);

    /// Opens the store, making it when there is none; the errors are those of StoreFile::open, and 600 when the status
    /// row can be neither read nor made. Platform and errors outlive the store.
    [[nodiscard]] static std::unique_ptr<QuomiData> create(const std::filesystem::path& file,
                                                           bool allowToDeleteStorageOnMigrationErrors,
                                                           const Platform& platform, const QuomiErrors& errors,
                                                           std::optional<Error>* error = nullptr);
    ~QuomiData();
    QuomiData(const QuomiData&) = delete;
    QuomiData& operator=(const QuomiData&) = delete;

    /// Who uploads events; null for nobody. Outlives the store or is taken away before it ends.
    void setApiClient(EventUploader* client) { uploadLoop_.setUploader(client); }

    /// The status row; nothing when it cannot be read.
    [[nodiscard]] std::optional<QuomiStatusInfo> getSDKStatusInfo(std::optional<Error>* error = nullptr);
    /// Writes the status row.
    bool saveSDKStatusInfo(const QuomiStatusInfo& status, std::optional<Error>* error = nullptr);
    void setSdkIsStarted(bool isStarted);
    [[nodiscard]] bool sdkIsStarted();

    /// The application record; nothing when none is stored or it cannot be read.
    [[nodiscard]] std::optional<QuomiApplication> getApplication(std::optional<Error>* error = nullptr);
    /// Stores the record in place of the one there was.
    bool insertOrUpdateApplication(const QuomiApplication& application, std::optional<Error>* error = nullptr);
    bool removeApplication(std::optional<Error>* error = nullptr);

    /// Appends an event to the event log; see EventUploadLoop.
    bool logEvent(const boost::json::object& event, WallTime date) { return uploadLoop_.logEvent(event, date); }
    /// Starts the upload of logged events now.
    void uploadLogsInBatches() { uploadLoop_.uploadLogsInBatches(); }

private:
    QuomiData(std::unique_ptr<StoreFile> file, const Platform& platform);

    std::unique_ptr<StoreFile> file_;
    EventUploadLoop uploadLoop_;
};

}  // namespace quomi
