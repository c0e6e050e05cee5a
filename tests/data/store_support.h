#pragma once

#include "hosts/simulated/simulated_phone.h"
#include "quomi/core/errors.h"
#include "quomi/core/settings.h"
#include "quomi/data/data.h"
#include "quomi/platform/files.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>

#include <SQLiteCpp/Database.h>

namespace quomi::test {

inline std::string contentOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

inline void write(const std::filesystem::path& file, const std::string& bytes) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << bytes;
}

inline std::shared_ptr<QuomiApplication> record(const std::string& appNamespace, double threshold = 7.5) {
    auto application = std::make_shared<QuomiApplication>();
    application->appNamespace = appNamespace;
    application->proximityUUIDNormal = "normal";
    application->proximityUUIDSecure = "secure";
    application->proximityUUIDService = "service";
    application->antiHackingProtocol = "none";
    application->proximityFarSplitThreshold = threshold;
    return application;
}

/// A phone and what a store needs of it.
class StoreHost {
public:
    explicit StoreHost(simulated::PhoneConfig config = {}) : phone(std::move(config)) {}

    std::unique_ptr<QuomiData> open(bool allowDeletion = false) {
        error.reset();
        return QuomiData::create(file, allowDeletion, platform, errors, &error);
    }
    /// Code of the error with which opening failed; 0 when it did not.
    std::int64_t failureOf(bool allowDeletion = false) {
        if (open(allowDeletion) != nullptr) return 0;
        return error ? error->code : -1;
    }
    /// Another connection to the store's file, or to a new one in its place.
    [[nodiscard]] SQLite::Database connect() const {
        std::filesystem::create_directories(file.parent_path());
        return SQLite::Database(file.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
    }

    simulated::SimulatedPhone phone;
    Platform platform = phone.platform();
    QuomiErrors errors{platform.localization};
    std::filesystem::path file = QuomiData::dataStorageDirectory(platform) / kQuomiSQLiteStoreFile;
    std::optional<Error> error;
};

}  // namespace quomi::test
