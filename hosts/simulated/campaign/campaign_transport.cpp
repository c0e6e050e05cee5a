#include "hosts/simulated/campaign/campaign_transport.h"

#include "hosts/simulated/campaign/campaign_server.h"
#include "quomi/api/url.h"
#include "quomi/util/ascii.h"
#include "quomi/util/percent.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace quomi::simulated {

namespace {

class Task final : public HttpTask {
public:
    explicit Task(std::unique_ptr<Timer> answer) : answer_(std::move(answer)) {}

private:
    std::unique_ptr<Timer> answer_;
};

/// A name or value of a query, in which a blank may stand as "+".
std::string queryText(std::string_view text) {
    std::string plain(text);
    std::ranges::replace(plain, '+', ' ');
    return percentDecoded(plain);
}

/// The first value of that name.
std::optional<std::string> parameterOf(std::string_view query, std::string_view name) {
    while (!query.empty()) {
        const auto pair = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(pair.size() + 1, query.size()));
        const auto equals = std::min(pair.find('='), pair.size());
        if (queryText(pair.substr(0, equals)) != name) continue;
        return queryText(pair.substr(std::min(equals + 1, pair.size())));
    }
    return std::nullopt;
}

bool hasContentType(const HttpHeaders& headers) {
    return std::ranges::any_of(headers, [](const auto& header) { return lowerCase(header.first) == "content-type"; });
}

CampaignReply answerTo(const CampaignServer& server, const HttpRequest& request, WallTime now) {
    const std::string_view url = request.url;
    const auto target = url.substr(originOf(url).size());
    const auto path = target.substr(0, target.find('?'));
    const auto query = target.substr(std::min(path.size() + 1, target.size()));
    return server.answer(
        {request.method, percentDecoded(path), [query](const char* name) { return parameterOf(query, name); },
         request.body, hasContentType(request.headers)},
        now);
}

}  // namespace

std::unique_ptr<HttpTask> CampaignTransport::send(HttpRequest request, Completion completion) {
    auto reply = answerTo(*server_, request, clock_.now());
    HttpResponse response{reply.status, {{"content-type", "application/json"}}, std::move(reply.content)};
    return std::make_unique<Task>(loop_.scheduleOnce(
        {}, [completion = std::move(completion), response = std::move(response)] { completion(response); }));
}

}  // namespace quomi::simulated
