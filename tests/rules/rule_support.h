#pragma once

#include "hosts/simulated/scripted_transport.h"
#include "hosts/simulated/simulated_phone.h"
#include "quomi/api/api_client.h"
#include "quomi/beacons/beacon.h"
#include "quomi/data/data.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/model/errors.h"
#include "quomi/model/settings.h"
#include "quomi/platform/screens.h"
#include "quomi/rules/action_executor.h"
#include "quomi/rules/beacon_rule_executor.h"
#include "quomi/rules/geofence_rule_executor.h"
#include "quomi/rules/web_page.h"
#include "tests/rules/hooked_host.h"
#include "tests/support/prelude.h"

namespace quomi::test {

using simulated::ScriptedAnswer;

using GeofenceRule = QuomiGeofenceRuleWithActions;

inline const QuomiAction kNotify{kActionNotifyUser, "Hello"};
inline const QuomiAction kPage{kActionOpenUrl, "https://shop.test/page"};
inline const QuomiAction kServer{kActionNotifyServer, "https://shop.test/hook"};

/// Both executors with a store, an action executor and a client on a phone, and a journal of what they do: events of
/// rules and actions, notifications, pages, requests, lines of the system log, and after them the reports of rules.
class RuleTest : public testing::Test {
protected:
    RuleTest() {
        makeExecutors();
        phone_.advanceBy(seconds(1000));
        journal_.clear();
    }

    void makeExecutors() {
        actions_ = std::make_unique<QuomiActionExecutor>(ActionExecutorContext{
            platform_, pages_, actionHost_, [](const auto&) {}, [] { return boost::json::object(); }});
        actions_->setApiClient(&api_);
        beacons_ = std::make_unique<QuomiBeaconActionExecutor>(context(), [this] { return nearby_; });
        geofences_ = std::make_unique<QuomiGeofenceActionExecutor>(
            context(), RulePosition{[this] { return speed_; },
                                    [] {
                                        return Location{{52.5, 13.4}, {}, 5};
                                    }});
        beacons_->setActionExecutor(actions_.get());
        geofences_->setActionExecutor(actions_.get());
    }

    RuleExecutorContext context() {
        return {*data_,
                platform_,
                settings_,
                errors_,
                debugLog_,
                [this](const boost::json::object& event) {
                    const auto* action = event.if_contains("action");
                    note(fmt::format("{} {}", action != nullptr ? action->as_string().c_str() : "trigger",
                                     event.at("rule_id").as_string().c_str()));
                },
                [] { return std::optional<std::string>("a b%4"); },
                [] { return std::string("UDID"); },
                [this]() -> std::shared_ptr<const RuleObserver> { return observer_; }};
    }

    simulated::PhoneObserver phoneObserver() {
        simulated::PhoneObserver observer;
        observer.notification = [this](const auto& request) {
            info_ = request.userInfo;
            note("notifies " + *request.body);
        };
        observer.webPage = [this](const auto& url) { note("page " + url); };
        observer.console = [this](std::string_view text) { note("console " + std::string(text)); };
        observer.request = [this](const HttpRequest& request) { note("request " + request.url); };
        return observer;
    }

    /// Everything that can call out comes by here.
    void note(const std::string& line) {
        journal_.push_back(line);
        if (inCallback_) inCallback_(line);
    }
    Strings taken() { return std::exchange(journal_, {}); }

    template <class R = QuomiBeaconRuleWithActions>
    auto rule(const std::string& id, std::vector<QuomiAction> actions,
              const std::function<void(std::type_identity_t<R>&)>& change = {}) {
        auto made = std::make_shared<R>();
        made->ruleId = id;
        made->trigger = kTriggerOnEntry;
        if (!actions.empty()) made->serializeAndSetActions(actions, errors_);
        if constexpr (std::is_same_v<R, QuomiBeaconRuleWithActions>) {
            made->proximity = 1;
            made->proximityEnd = 3;
        }
        if (change) change(*made);
        return made;
    }

    template <class Rules>
    std::shared_ptr<QuomiBeaconData> beacon(const std::string& id, const Rules& rules, const std::string& group = {}) {
        auto beacon = std::make_shared<QuomiBeaconData>();
        beacon->beaconId = beacon->name = id;
        beacon->proximityUUID = Uuid().string();
        beacon->major = 1;
        beacon->minor = 2;
        return stored(std::move(beacon), rules, group);
    }
    template <class Rules>
    std::shared_ptr<QuomiGeofence> geofence(const std::string& id, const Rules& rules, const std::string& group = {}) {
        auto geofence = std::make_shared<QuomiGeofence>();
        geofence->geofenceId = id;
        return stored(std::move(geofence), rules, group);
    }
    template <class Place, class Rules>
    Place stored(Place place, const Rules& rules, const std::string& group) {
        if (!group.empty()) place->group = group;
        place->namespace_ = "shop";
        for (const auto& each : rules) place->addActionObject(each);
        place->addToContext(data_->currentObjectContext());
        EXPECT_TRUE(data_->saveContext());
        return place;
    }
    auto beaconWith(const auto& only) { return beacon("b", std::vector{only}); }
    auto geofenceWith(const auto& only) { return geofence("g", std::vector{only}); }

    /// The beacon is heard there, in metres; nothing for silence.
    void hear(std::optional<QuomiProximity> proximity, double accuracy = 1) {
        nearby_.clear();
        if (!proximity) return;
        auto live = std::make_shared<QuomiBeacon>(Uuid(), std::uint16_t{1}, std::uint16_t{2}, WallTime());
        live->updateState({Uuid(), 1, 2, static_cast<PlatformProximity>(*proximity), accuracy, -60}, WallTime());
        nearby_.push_back(live);
    }
    void find(const std::shared_ptr<QuomiBeaconData>& beacon) {
        hear(QuomiProximityNear);
        EXPECT_TRUE(beacons_->executeBeaconFoundActions(beacon, QuomiProximityNear));
    }
    /// Answers of the rules' server.
    void serverAnswers(const std::string& json) {
        phone_.transport().answer("GET https://shop.test/hook",
                                  simulated::ScriptedAnswer::json(boost::json::parse(json)));
    }
    [[nodiscard]] WallTime now() const { return platform_.clock.now(); }

    Strings journal_;
    std::function<void(const std::string&)> inCallback_;
    boost::json::object info_;
    simulated::SimulatedPhone phone_{{}, phoneObserver()};
    const Platform platform_ = phone_.platform();
    QuomiErrors errors_{platform_.localization};
    QuomiSettings settings_{Deployment{}, platform_.location};
    DebugLog debugLog_{platform_.files, platform_.clock, [] { return false; }};
    QuomiAPI api_{"https://api.test", platform_, settings_, debugLog_};
    WebPagePresenter pages_{platform_.screens, platform_.runLoop};
    HostHooks host_;
    const HookedHost actionHost_{host_};
    std::unique_ptr<QuomiData> data_ =
        QuomiData::create(phone_.container() / "store.sqlite", false, platform_, errors_);
    std::vector<std::shared_ptr<const QuomiBeacon>> nearby_;
    double speed_ = -1;
    std::shared_ptr<RuleObserver> observer_ = std::make_shared<RuleObserver>(RuleObserver{[this](const auto& report) {
        note(fmt::format("{} {} {}", report.ruleId, nameOf(report.decision), boost::json::serialize(report.detail)));
    }});
    std::unique_ptr<QuomiActionExecutor> actions_;
    std::unique_ptr<QuomiBeaconActionExecutor> beacons_;
    std::unique_ptr<QuomiGeofenceActionExecutor> geofences_;
};

}  // namespace quomi::test
