#pragma once

#include "quomi/api/http_session.h"
#include "quomi/api/server_notification.h"
#include "quomi/api/uploader.h"
#include "quomi/data/data_updater.h"
#include "quomi/model/errors.h"
#include "quomi/platform/platform.h"
#include "quomi/platform/reachability.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json/value.hpp>

namespace quomi {

class DebugLog;
class Uuid;
struct BatteryAlert;
struct QuomiDebugLog;
class QuomiUser;
struct QuomiSettings;

/// What a server answered to a download that failed: without a status it did not answer at all. The body is null when
/// the answer was not decoded.
struct DownloadResponse {
    std::optional<int> status;
    boost::json::value body;
};

/// The one client of the back office: knows its endpoints, their parameters and bodies.
///
/// All requests are asynchronous. A callback runs at most once, on the host's thread, in a later turn; an empty one is
/// not called; none runs after `cancelAllRequests` or the client's end. While the network cannot be reached requests
/// wait instead of failing. Errors are of kHTTPErrorDomain unless an operation names its own. Host's thread only.
class QuomiAPI : public Uploader, public RulesSource {
public:
    /// Given the decoded answer.
    using Success = std::function<void(const boost::json::value&)>;
    using Done = std::function<void()>;
    using Failure = std::function<void(const Error&)>;
    using DownloadFailure = std::function<void(const DownloadResponse&, const Error&)>;
    using Headers = std::map<std::string, std::string, std::less<>>;

    /// A client of the server at the base URL; the request timeout is the settings' at this moment. What the
    /// platform refers to, settings and log outlive it.
    QuomiAPI(std::string baseURL, const Platform& platform, const QuomiSettings& settings, DebugLog& debugLog);
    ~QuomiAPI() override;

    [[nodiscard]] const std::string& baseURL() const { return baseURL_; }
    /// Requests that have not ended, waiting ones included; not server notifications between two tries, nor downloads
    /// that are held back because they failed before.
    [[nodiscard]] std::size_t getRequestQueueCount() const;
    /// Downloads that failed before are no longer held back.
    void forgetFailedDownloads();
    /// Drops every request and every server notification between two tries; nobody is called back for them.
    void cancelAllRequests();

    /// The application record of the namespace.
    void getApplicationWithNamespace(const std::string& appNamespace, Success success, Failure failure);
    /// The device-wide event limits of the namespace.
    void getApplicationEventLimits(const std::string& appNamespace, Success success, Failure failure);
    /// Downloads geofences with their rules. False, and no callback, with an error: 403 while an earlier download of
    /// geofences runs; 401 for a radius below 1 and for degrees outside -90..90 and -180..180. An earlier one that only
    /// waits (no network) gives way to this one, whose end is told to both. Fails with 404 as `getDataAtURL`.
    bool getGeofencesRulesWithNamespace(const GeofencesQuestion& question, RulesDownload download,
                                        std::optional<Error>* error = nullptr) override;
    /// Downloads beacons with their rules. Fails with 404 as `getDataAtURL`.
    void getBeaconsRulesWithNamespace(const BeaconsQuestion& question, RulesDownload download) override;
    /// The URLs of these downloads. The namespace stands in them as it is, numbers in single precision.
    [[nodiscard]] std::string getURLForGeofencesWithNamespace(const GeofencesQuestion& question) const;
    [[nodiscard]] std::string getURLForBeaconsWithNamespace(const BeaconsQuestion& question) const;
    /// Downloads JSON. Only status 200 is success; another one from 200 to 299 fails with 404, whose user info has the
    /// status as "responseCode". A download that equals one which still waits to be sent joins it.
    void getDataAtURL(const std::string& url, const Success& successBlock, const DownloadFailure& failedBlock);

    /// Tells the server who uses the device, with facts about the device. The answer goes into the debug log, without
    /// the advertising identifier.
    void setUserInformation(const QuomiUser& user, const std::string& appNamespace, Done success, Failure failure);
    /// Registers the device's push token: its text, from which brackets and blanks of a printed byte array go. Always
    /// at the deployment's own server, whatever the base URL: deliberate, that server alone sends pushes. No namespace
    /// is left out of the body.
    void registerUdid(const std::string& udid, const std::optional<std::string>& appNamespace,
                      const std::string& deviceToken, Done success, Failure failure);
    /// Sends one event. What the record lacks, and data that is no JSON, is left out.
    void sendEvent(const QuomiDebugLog& record, Done success, Failure failure);
    void sendDLogEvent(const QuomiDLog& record, Done success, Failure failure) override;
    /// Sends a batch in order; the first record without time or data ends it.
    void sendBatchOfLogEvents(const std::vector<QuomiDLog>& records, Done success, Failure failure) override;
    /// The alert's date stays here.
    void sendBatteryAlert(const BatteryAlert& alert, Done success, Failure failure) override;

    /// Asks a rule's server what to do, as ServerNotifications says.
    void sendServerNotificationToURL(ServerNotification notification);

    /// Headers meant for server notifications, by name. Kept, but never sent: deliberate, those go out with the headers
    /// of all requests.
    [[nodiscard]] const Headers& customHeadersForServerNotificationRequest() const { return customHeaders_; }
    void setCustomHeadersForServerNotificationRequest(Headers headers);
    /// Without a value the header goes.
    void setServerNotificationRequestHeader(const std::string& name, std::optional<std::string> value);

private:
    [[nodiscard]] bool mayDownloadGeofences(const GeofencesQuestion& question, std::optional<Error>* error);
    void downloadRules(HttpSession::Download request, RulesDownload download);
    [[nodiscard]] std::optional<Error> statusError(int status) const;
    void post(const std::string& url, const boost::json::object& body, Done success, Failure failure);
    void sendLogEvent(const std::optional<WallTime>& logTime, const std::optional<std::string>& logData, Done success,
                      Failure failure);
    [[nodiscard]] std::string logEndpoint(std::string_view name) const;
    [[nodiscard]] std::string endpoint(std::string_view path) const;
    [[nodiscard]] std::string udid() const;
    [[nodiscard]] boost::json::object userInformation(const QuomiUser& user, const std::string& appNamespace) const;

    const std::string baseURL_;
    const Platform platform_;
    const QuomiSettings& settings_;
    DebugLog& debugLog_;
    const QuomiErrors errors_;
    HttpSession session_;
    ServerNotifications serverNotifications_;
    Headers customHeaders_;
    bool busyWithDownloadingGeofences_ = false;
    bool areAllGeofencesWanted_ = false;  // by the download that makes it busy
    std::unique_ptr<ReachabilityObservation> reachability_;
};

}  // namespace quomi
