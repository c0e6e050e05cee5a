// A rule's actions after parsing: from the answer that orders them to what the phone does.
#include "fuzz/fuzz_input.h"
#include "hosts/simulated/scripted_transport.h"
#include "hosts/simulated/simulated_phone.h"
#include "quomi/model/settings.h"
#include "quomi/rules/rule_observer.h"
#include "quomi/sdk/sdk.h"
#include "quomi/util/json_readers.h"

#include <memory>
#include <string_view>
#include <vector>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>

namespace quomi::fuzz {
namespace {

namespace json = boost::json;

constexpr const char* kUUID = "6B6E1B5A-0C0D-4A6E-9E62-0000000000B1";

/// The input is the rule's "action", an object of JSON, or the text of each of its actions; a byte before it chooses
/// how the app and the rule's server stand to it.
struct Input {
    explicit Input(std::string_view text)
        : choices(text.empty() ? 0 : static_cast<unsigned char>(text.front())),
          actions(actionsIn(text.empty() ? text : text.substr(1))) {}

    static json::object actionsIn(std::string_view text) {
        const auto parsed = parseJson(text);
        if (parsed && parsed->is_object() && parsed->get_object().contains("notify_user")) return parsed->get_object();
        json::object same;
        for (const char* type : {"notify_user", "open_url", "open_deep_link"}) same[type] = json::string(text);
        return same;
    }
    [[nodiscard]] bool chooses(unsigned bit) const { return (choices >> bit & 1U) != 0; }

    unsigned choices;
    json::object actions;
};

simulated::ScriptedAnswer beacons(const Input& input) {
    auto actions = input.actions;
    if (input.chooses(0)) actions["notify_server"] = "https://shop.test/hook";
    return simulated::ScriptedAnswer::json(
        {{"u_beacons",
          {{{"id", "b"},
            {"proximity_uid", kUUID},
            {"major", 1},
            {"minor", 1},
            {"end", "2100-01-01T00:00:00Z"},
            {"rules_actions",
             {{{"id", "r"},
               {"rule", {{"trigger", "on_entry"}, {"proximity", 1}, {"proximity_end", 3}}},
               {"action", actions}}}}}}},
         {"query_params", json::object()},
         {"valid_until", "2100-01-01T00:00:00Z"},
         {"remove_ids", json::array()}});
}

/// The rule's server orders the same actions.
simulated::ScriptedAnswer hook(const Input& input) {
    auto answer = input.actions;
    answer["decision"] = input.chooses(1) ? "enable" : "notify";
    return simulated::ScriptedAnswer::json(answer);
}

void play(const Input& input) {
    if (!parseJson(json::serialize(input.actions))) return;  // no UTF-8: no answer
    simulated::PhoneConfig config;
    config.start = WallTime(std::chrono::days(20000));
    std::size_t decided = 0;
    simulated::SimulatedPhone phone(config);
    const auto platform = phone.platform();
    phone.transport().answer("GET /u_applications/query.json",
                             simulated::ScriptedAnswer::json({{"success", true},
                                                              {"namespace_uid", "shop"},
                                                              {"normal_proximity_uuid", kUUID},
                                                              {"secure_proximity_uuid", kUUID},
                                                              {"service_proximity_uuid", kUUID},
                                                              {"anti_hacking_protocol", "none"},
                                                              {"max_distance_medium_far", 10.0}}));
    phone.transport().answer("GET /u_beacons/query.json", beacons(input));
    phone.transport().answer("GET https://shop.test/hook", hook(input));
    QuomiSettings settings(Deployment{}, platform.location);
    phone.transport().setBaseURLs([&settings] { return std::vector{settings.baseAPIUrl}; });
    QuomiSDK sdk(platform, settings);
    const auto observer = std::make_shared<RuleObserver>(RuleObserver{[&](const RuleReport& report) {
        require(report.ruleId == "r" && report.owner == "b" &&
                ruleDecisionNamed(nameOf(report.decision)) == report.decision);
        ++decided;
    }});
    sdk.setRuleObserver(observer);
    sdk.setAppNamespace("shop");
    sdk.start();
    phone.advanceBy(std::chrono::seconds(1));
    if (input.chooses(2)) phone.background();
    const auto uuid = *Uuid::parse(kUUID);
    phone.enterBeaconRegion(uuid);
    phone.advanceBy(std::chrono::seconds(1));
    // The first time downloads the rule, the second finds the beacon with it.
    for (int time = 0; time < 2; ++time) {
        phone.range({{uuid, 1, 1, PlatformProximity::near, 1.0, -60}});
        phone.advanceBy(std::chrono::minutes(1));
    }
    require(decided > 0);  // every rule that an event reached is told of
    for (const auto& shown : phone.notifications()) {
        require(shown.identifier == "QuomiNotificationRequest");
        if (input.chooses(3)) sdk.executeNotificationRequestActions(shown);
    }
    phone.advanceBy(std::chrono::seconds(1));
    sdk.stop();
    phone.advanceBy(std::chrono::seconds(1));
}

}  // namespace
}  // namespace quomi::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    quomi::fuzz::play(quomi::fuzz::Input(quomi::fuzz::textOf(data, size)));
    return 0;
}
