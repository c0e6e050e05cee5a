// The server's answers on their way into a store.
#include "fuzz/fuzz_input.h"
#include "hosts/simulated/simulated_phone.h"
#include "quomi/data/data.h"
#include "quomi/data/parser.h"
#include "quomi/model/errors.h"
#include "quomi/model/settings.h"
#include "quomi/platform/files.h"
#include "quomi/util/json_readers.h"

#include <memory>
#include <optional>

#include <boost/json/value.hpp>

namespace quomi::fuzz {
namespace {

/// A store of one phone, the same for all inputs: making one takes longer than hundreds of answers.
class Store {
public:
    Store()
        : phone_(config()),
          platform_(phone_.platform()),
          errors_(platform_.localization),
          settings_(Deployment(), platform_.location) {
        const auto file = QuomiData::dataStorageDirectory(platform_) / "fuzz.db";
        std::error_code ignored;
        platform_.files.createDirectories(file.parent_path(), ignored);
        data_ = QuomiData::create(file, false, platform_, errors_);
        require(data_ != nullptr);
    }

    void takeApplication(const boost::json::value& answer) {
        std::optional<Error> error;
        const bool isTaken = parser().parseAndSaveApiApplicationResponseData(answer, &error);
        check(isTaken, error);
        if (isTaken) require(data_->getApplication() != nullptr);
    }

    void takeBeacons(const boost::json::value& answer) {
        std::optional<Error> error;
        const bool isTaken = parser().parseAndSaveApiBeaconsResponseData(answer, &error);
        check(isTaken, error);
        for (const auto& beacon : data_->getAllBeacons()) require(beacon->enabled);
        require(data_->removeAllBeacons());
    }

    void takeGeofences(const boost::json::value& answer) {
        std::optional<Error> error;
        const bool isTaken = parser().parseAndSaveApiGeofencesResponseData(answer, &error);
        check(isTaken, error);
        if (isTaken) require(!data_->getAllGeofenceRegions().empty());
        require(data_->removeAllGeofences());
    }

    void takeLimits(const boost::json::value& answer) {
        std::optional<Error> error;
        const bool isTaken = parser().parseAndSaveApiApplicationLimitsResponseData(answer, &error);
        check(isTaken, error);
        require(data_->getSDKStatusInfo() != nullptr);
    }

private:
    static simulated::PhoneConfig config() {
        simulated::PhoneConfig config;
        config.start = WallTime(std::chrono::days(20000));
        return config;
    }

    QuomiDataApiResponseParser parser() { return {*data_, errors_, platform_, settings_}; }

    static void check(bool isTaken, const std::optional<Error>& error) {
        require(isTaken != error.has_value());
        if (!error) return;
        const auto code = static_cast<ErrorCode>(error->code);
        require(code == ErrorCode::responseParsing || code == ErrorCode::data);
    }

    simulated::SimulatedPhone phone_;
    Platform platform_;
    QuomiErrors errors_;
    QuomiSettings settings_;
    std::unique_ptr<QuomiData> data_;
};

}  // namespace
}  // namespace quomi::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static quomi::fuzz::Store store;
    if (const auto answer = quomi::parseJson(quomi::fuzz::textOf(data, size))) {
        store.takeApplication(*answer);
        store.takeLimits(*answer);
        store.takeBeacons(*answer);
        store.takeGeofences(*answer);
    }
    return 0;
}
