#include "hosts/simulated/replay/deciding_delegate.h"

#include "hosts/simulated/visit/visit.h"
#include "quomi/sdk/sdk_delegate.h"

#include <utility>

#include <boost/json/object.hpp>

namespace quomi::simulated {

namespace json = boost::json;

namespace {

json::object fieldsOf(const NotificationRequest& request, int triggeredBy) {
    json::object notification{{"identifier", request.identifier}};
    for (auto& field : traceNotification(request)) notification.emplace(field.key(), field.value());
    return {{"notification", std::move(notification)}, {"triggeredBy", triggeredBy}};
}

json::object fieldsOf(const std::string& url, int triggeredBy) {
    return {{"url", url}, {"triggeredBy", triggeredBy}};
}

/// An operation that answers at once.
template <class Subject>
std::function<bool(QuomiSDK&, const Subject&, int)> deciding(const Trace& trace, const char* operation, bool answer) {
    return [&trace, operation, answer](QuomiSDK&, const Subject& subject, int triggeredBy) {
        auto fields = fieldsOf(subject, triggeredBy);
        fields["answer"] = answer;
        trace.write("delegate", operation, std::move(fields));
        return answer;
    };
}

/// An operation that does it.
template <class Subject>
std::function<void(QuomiSDK&, const Subject&, int)> performing(const Trace& trace, const char* operation) {
    return [&trace, operation](QuomiSDK&, const Subject& subject, int triggeredBy) {
        trace.write("delegate", operation, fieldsOf(subject, triggeredBy));
    };
}

/// Whoever hears both hears them in this order.
template <class... Arguments>
void hearToo(std::function<void(Arguments...)>& traced, const std::function<void(Arguments...)>& own) {
    if (!own) return;
    traced = [first = std::move(traced), own](Arguments... arguments) {
        if (first) first(arguments...);
        own(arguments...);
    };
}

template <class Subject>
void decideInstead(const Trace& trace, const char* operation,
                   std::function<bool(QuomiSDK&, const Subject&, int)>& traced,
                   const std::function<bool(QuomiSDK&, const Subject&, int)>& own) {
    if (!own) return;
    traced = [&trace, operation, own](QuomiSDK& sdk, const Subject& subject, int triggeredBy) {
        const bool answer = own(sdk, subject, triggeredBy);
        return deciding<Subject>(trace, operation, answer)(sdk, subject, triggeredBy);
    };
}

template <class Subject, class... Blocks>
void performInstead(const Trace& trace, const char* operation,
                    std::function<void(QuomiSDK&, const Subject&, int, Blocks...)>& traced,
                    const std::function<void(QuomiSDK&, const Subject&, int, Blocks...)>& own) {
    if (!own) return;
    traced = [&trace, operation, own](QuomiSDK& sdk, const Subject& subject, int triggeredBy, Blocks... blocks) {
        performing<Subject>(trace, operation)(sdk, subject, triggeredBy);
        own(sdk, subject, triggeredBy, blocks...);
    };
}

}  // namespace

void DecidingDelegate::implement(const DelegateConfig& config, QuomiSDKDelegate& delegate) {
    if (config.shouldExecuteNotificationRequest) {
        decideNotifications(*config.shouldExecuteNotificationRequest, delegate);
    }
    const auto decide = [this](const char* operation, const std::optional<bool>& answer, auto& slot) {
        if (answer) slot = deciding<std::string>(trace_, operation, *answer);
    };
    decide("shouldExecuteOpenWebPageRequest", config.shouldExecuteOpenWebPageRequest,
           delegate.shouldExecuteOpenWebPageRequest);
    decide("shouldExecuteOpenDeepLinkRequest", config.shouldExecuteOpenDeepLinkRequest,
           delegate.shouldExecuteOpenDeepLinkRequest);
    decide("shouldExecuteServerNotificationRequest", config.shouldExecuteServerNotificationRequest,
           delegate.shouldExecuteServerNotificationRequest);
    if (config.executeNotificationRequest) {
        delegate.executeNotificationRequest = performing<NotificationRequest>(trace_, "executeNotificationRequest");
    }
    if (config.executeOpenWebPageRequest) {
        delegate.executeOpenWebPageRequest = performing<std::string>(trace_, "executeOpenWebPageRequest");
    }
    if (config.executeOpenDeepLinkRequest) {
        delegate.executeOpenDeepLinkRequest = performing<std::string>(trace_, "executeOpenDeepLinkRequest");
    }
    if (!config.executeServerNotificationRequest) return;
    delegate.executeServerNotificationRequest = [this, how = *config.executeServerNotificationRequest](
                                                    QuomiSDK&, const std::string& url, int triggeredBy, auto success,
                                                    auto failure) {
        trace_.write("delegate", "executeServerNotificationRequest", fieldsOf(url, triggeredBy));
        if (how == DelegateServerRequest::succeeds) later({}, success);
        if (how == DelegateServerRequest::fails) later({}, [failure] { failure({kHTTPErrorDomain, 1, {}}); });
    };
}

void DecidingDelegate::join(const QuomiSDKDelegate& own, QuomiSDKDelegate& delegate) {
    hearToo(delegate.didReceiveErrorNotification, own.didReceiveErrorNotification);
    hearToo(delegate.didLogEvent, own.didLogEvent);
    hearToo(delegate.didEnterBeaconRegion, own.didEnterBeaconRegion);
    hearToo(delegate.didExitBeaconRegion, own.didExitBeaconRegion);
    hearToo(delegate.didFindNewBeacon, own.didFindNewBeacon);
    hearToo(delegate.didLoseBeaconSignal, own.didLoseBeaconSignal);
    hearToo(delegate.didUpdateBeacon, own.didUpdateBeacon);
    hearToo(delegate.didReceivePingFromBeacon, own.didReceivePingFromBeacon);
    hearToo(delegate.didReceiveLocationChange, own.didReceiveLocationChange);
    hearToo(delegate.didReceiveEnterRegionNotification, own.didReceiveEnterRegionNotification);
    hearToo(delegate.didReceiveExitRegionNotification, own.didReceiveExitRegionNotification);
    joinDecisions(own, delegate);
    performInstead(trace_, "executeNotificationRequest", delegate.executeNotificationRequest,
                   own.executeNotificationRequest);
    performInstead(trace_, "executeOpenWebPageRequest", delegate.executeOpenWebPageRequest,
                   own.executeOpenWebPageRequest);
    performInstead(trace_, "executeOpenDeepLinkRequest", delegate.executeOpenDeepLinkRequest,
                   own.executeOpenDeepLinkRequest);
    performInstead(trace_, "executeServerNotificationRequest", delegate.executeServerNotificationRequest,
                   own.executeServerNotificationRequest);
}

void DecidingDelegate::joinDecisions(const QuomiSDKDelegate& own, QuomiSDKDelegate& delegate) {
    decideInstead(trace_, "shouldExecuteNotificationRequest", delegate.shouldExecuteNotificationRequest,
                  own.shouldExecuteNotificationRequest);
    decideInstead(trace_, "shouldExecuteOpenWebPageRequest", delegate.shouldExecuteOpenWebPageRequest,
                  own.shouldExecuteOpenWebPageRequest);
    decideInstead(trace_, "shouldExecuteOpenDeepLinkRequest", delegate.shouldExecuteOpenDeepLinkRequest,
                  own.shouldExecuteOpenDeepLinkRequest);
    decideInstead(trace_, "shouldExecuteServerNotificationRequest", delegate.shouldExecuteServerNotificationRequest,
                  own.shouldExecuteServerNotificationRequest);
    const auto& ask = own.shouldExecuteNotificationRequestCompletionBlock;
    if (!ask) return;
    delegate.shouldExecuteNotificationRequestCompletionBlock =
        [this, ask](QuomiSDK& sdk, const NotificationRequest& request, int triggeredBy, auto completionBlock) {
            ask(sdk, request, triggeredBy, [this, &sdk, request, triggeredBy, completionBlock](bool answer) {
                static_cast<void>(deciding<NotificationRequest>(trace_, "shouldExecuteNotificationRequest", answer)(
                    sdk, request, triggeredBy));
                completionBlock(answer);
            });
        };
}

void DecidingDelegate::decideNotifications(const DelegateAnswer& answer, QuomiSDKDelegate& delegate) {
    static constexpr const char* kOperation = "shouldExecuteNotificationRequest";
    if (!answer.after) {
        delegate.shouldExecuteNotificationRequest = deciding<NotificationRequest>(trace_, kOperation, answer.answer);
        return;
    }
    delegate.shouldExecuteNotificationRequestCompletionBlock =
        [this, ask = deciding<NotificationRequest>(trace_, kOperation, answer.answer), after = *answer.after](
            QuomiSDK& sdk, const NotificationRequest& request, int triggeredBy, auto completionBlock) {
            const bool decision = ask(sdk, request, triggeredBy);
            later(after, [completionBlock, decision] { completionBlock(decision); });
        };
}

void DecidingDelegate::later(Duration delay, Task task) {
    timers_.push_back(runLoop_.scheduleOnce(delay, std::move(task)));
}

}  // namespace quomi::simulated
