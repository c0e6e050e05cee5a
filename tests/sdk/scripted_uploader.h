#pragma once

#include "quomi/api/uploader.h"
#include "quomi/data/records.h"
#include "quomi/diagnostics/event_log.h"

#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>

namespace quomi::test {

/// A server that is asked and answers when the test says so.
class ScriptedUploader final : public Uploader {
public:
    void sendBatchOfLogEvents(const std::vector<QuomiDLog>& records, std::function<void()> success,
                              std::function<void(const Error&)> failure) override {
        std::vector<int> numbers;
        for (const auto& record : records) {
            numbers.push_back(boost::json::parse(record.logData.value()).at("n").to_number<int>());
        }
        batches.push_back(std::move(numbers));
        waiting.emplace_back(std::move(success), std::move(failure));
    }
    void sendDLogEvent(const QuomiDLog& record, std::function<void()> success,
                       std::function<void(const Error&)> failure) override {
        sendBatchOfLogEvents({record}, std::move(success), std::move(failure));
    }
    void sendBatteryAlert(const BatteryAlert& alert, std::function<void()> success,
                          std::function<void(const Error&)> failure) override {
        alerts.push_back(alert.serviceID);
        waiting.emplace_back(std::move(success), std::move(failure));
    }
    void succeed() {
        if (const auto success = take().first) success();
    }
    void fail(int status = 503) { take().second(Error{kHTTPErrorDomain, status, {}}); }

    std::vector<std::vector<int>> batches;  // the numbers of the events
    std::vector<std::string> alerts;        // the services
    std::deque<std::pair<std::function<void()>, std::function<void(const Error&)>>> waiting;

private:
    std::pair<std::function<void()>, std::function<void(const Error&)>> take() {
        auto first = std::move(waiting.front());
        waiting.pop_front();
        return first;
    }
};

}  // namespace quomi::test
