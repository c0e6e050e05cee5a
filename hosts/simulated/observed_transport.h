#pragma once

#include "hosts/simulated/phone_observer.h"
#include "quomi/api/http_transport.h"

#include <memory>

namespace quomi::simulated {

/// Passes everything on to another transport and tells the observer of each request and of how it ended.
class ObservedTransport final : public HttpTransport {
public:
    /// Both outlive it.
    ObservedTransport(HttpTransport& transport, const PhoneObserver& observer);

    [[nodiscard]] std::unique_ptr<HttpTask> send(HttpRequest request, Completion completion) override;

private:
    HttpTransport& transport_;
    const PhoneObserver& observer_;
};

}  // namespace quomi::simulated
