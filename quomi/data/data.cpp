#include "quomi/data/data.h"

#include "quomi/data/row_mapping.h"
#include "quomi/data/store_file.h"
#include "quomi/platform/files.h"

#include <utility>

#include <SQLiteCpp/Statement.h>

namespace quomi {

namespace {

const RowMapping<QuomiStatusInfo>& statusMapping() {
    using S = QuomiStatusInfo;
    static const RowMapping<S> mapping{"QuomiStatusInfo",
                                       {{"isStarted", &S::isStarted},
                                        {"lastGeofencesDataUpdatedAt", &S::lastGeofencesDataUpdatedAt},
                                        {"lastBeaconsDataUpdatedAt", &S::lastBeaconsDataUpdatedAt},
                                        {"globalTriggersCount", &S::globalTriggersCount},
                                        {"globalMaxEvents", &S::globalMaxEvents},
                                        {"globalMaxEventsPeriod", &S::globalMaxEventsPeriod},
                                        {"globalMinInterval", &S::globalMinInterval},
                                        {"lastEventDate", &S::lastEventDate},
                                        {"globalHistory", &S::globalHistory}}};
    return mapping;
}

const RowMapping<QuomiApplication>& applicationMapping() {
    using A = QuomiApplication;
    static const RowMapping<A> mapping{"QuomiApplication",
                                       {{"appNamespace", &A::appNamespace},
                                        {"proximityUUIDNormal", &A::proximityUUIDNormal},
                                        {"proximityUUIDSecure", &A::proximityUUIDSecure},
                                        {"proximityUUIDService", &A::proximityUUIDService},
                                        {"antiHackingProtocol", &A::antiHackingProtocol},
                                        {"proximityFarSplitThreshold", &A::proximityFarSplitThreshold}}};
    return mapping;
}

template <class Record>
std::optional<Record> firstRow(StoreFile& file, const RowMapping<Record>& mapping, std::optional<Error>* error) {
    std::optional<Record> record;
    file.read(
        [&] {
            auto& query = file.statement(mapping.selectAll() + " LIMIT 1");
            if (query.executeStep()) record = mapping.read(query);
        },
        error);
    return record;
}

/// The entity's only row from now on.
template <class Record>
bool replaceRow(StoreFile& file, const RowMapping<Record>& mapping, const Record& record, std::optional<Error>* error) {
    return file.change(
        [&] {
            file.statement(mapping.deleteAll()).exec();
            auto& insertion = file.statement(mapping.insert());
            mapping.bind(insertion, record);
            insertion.exec();
        },
        error);
}

}  // namespace

std::filesystem::path QuomiData::dataStorageDirectory(const Platform& platform) {
    return platform.files.libraryDirectory() / "Application Support" / "QuomiData";
}

std::unique_ptr<QuomiData> QuomiData::create(const std::filesystem::path& file,
                                             bool allowToDeleteStorageOnMigrationErrors, const Platform& platform,
                                             const QuomiErrors& errors, std::optional<Error>* error) {
    auto storeFile = StoreFile::open(file, allowToDeleteStorageOnMigrationErrors, platform.files, errors, error);
    if (storeFile == nullptr) return nullptr;
    std::unique_ptr<QuomiData> data(new QuomiData(std::move(storeFile), platform));
    if (!data->getSDKStatusInfo(error)) return nullptr;
    return data;
}

QuomiData::QuomiData(std::unique_ptr<StoreFile> file, const Platform& platform)
    : file_(std::move(file)), uploadLoop_(platform) {}

QuomiData::~QuomiData() = default;

std::optional<QuomiStatusInfo> QuomiData::getSDKStatusInfo(std::optional<Error>* error) {
    std::optional<Error> failure;
    auto status = firstRow(*file_, statusMapping(), &failure);
    if (!status && !failure && replaceRow(*file_, statusMapping(), QuomiStatusInfo(), &failure)) {
        status = QuomiStatusInfo();
    }
    if (failure) assign(error, std::move(*failure));
    return status;
}

bool QuomiData::saveSDKStatusInfo(const QuomiStatusInfo& status, std::optional<Error>* error) {
    return replaceRow(*file_, statusMapping(), status, error);
}

void QuomiData::setSdkIsStarted(bool isStarted) {
    auto status = getSDKStatusInfo();
    if (!status) return;
    status->isStarted = isStarted;
    saveSDKStatusInfo(*status);
}

bool QuomiData::sdkIsStarted() {
    const auto status = getSDKStatusInfo();
    return status && status->isStarted;
}

std::optional<QuomiApplication> QuomiData::getApplication(std::optional<Error>* error) {
    return firstRow(*file_, applicationMapping(), error);
}

bool QuomiData::insertOrUpdateApplication(const QuomiApplication& application, std::optional<Error>* error) {
    return replaceRow(*file_, applicationMapping(), application, error);
}

bool QuomiData::removeApplication(std::optional<Error>* error) {
    return file_->change([this] { file_->statement(applicationMapping().deleteAll()).exec(); }, error);
}

}  // namespace quomi
