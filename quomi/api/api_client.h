#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "quomi/api/http_session.h"
#include "quomi/data/event_upload.h"
#include "quomi/platform/platform.h"
#include "quomi/platform/reachability.h"

#include <boost/json/fwd.hpp>

namespace quomi {

class DebugLog;
struct QuomiSettings;
struct QuomiUser;

/// The one client of the back office: knows its endpoints, their parameters and bodies.
///
/// All requests are asynchronous. A callback runs at most once, on the host's thread, in a later turn; an empty one is
/// not called; none runs after `cancelAllRequests` or the client's end. While the network cannot be reached requests
/// wait instead of failing. Errors are of kHTTPErrorDomain. Host's thread only.
class QuomiAPI : public EventUploader {
public:
    /// Given the decoded answer.
    using Success = std::function<void(const boost::json::value&)>;
    using Done = std::function<void()>;
    using Failure = std::function<void(const Error&)>;

    /// A client of the server at the base URL; the request timeout is the settings' at this moment. Platform, settings
    /// and log outlive it.
    QuomiAPI(std::string baseURL, const Platform& platform, const QuomiSettings& settings, DebugLog& debugLog);
    ~QuomiAPI() override;

    [[nodiscard]] const std::string& baseURL() const { return baseURL_; }
    /// Requests that have not ended, waiting ones included.
    [[nodiscard]] std::size_t getRequestQueueCount() const;
    /// Drops every request; nobody is called back for them.
    void cancelAllRequests();

    /// The application record of the namespace.
    void getApplicationWithNamespace(const std::string& appNamespace, Success success, Failure failure);
    /// The device-wide event limits of the namespace.
    void getApplicationEventLimits(const std::string& appNamespace, Success success, Failure failure);
    /// Tells the server who uses the device, with facts about the device.
    void setUserInformation(const QuomiUser& user, const std::string& appNamespace, Done success, Failure failure);
    /// Sends a batch in order; the first record without time or data ends it.
    void sendBatchOfLogEvents(const std::vector<QuomiDLog>& records, Done success, Failure failure) override;

private:
    [[nodiscard]] std::string endpoint(std::string_view path) const;
    [[nodiscard]] std::string udid() const;
    [[nodiscard]] boost::json::object userInformation(const QuomiUser& user, const std::string& appNamespace) const;

    const std::string baseURL_;
    const Platform& platform_;
    const QuomiSettings& settings_;
    DebugLog& debugLog_;
    HttpSession session_;
    std::unique_ptr<ReachabilityObservation> reachability_;
};

}  // namespace quomi
