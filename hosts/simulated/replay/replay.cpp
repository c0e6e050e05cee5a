#include "hosts/simulated/replay/replay.h"

#include "hosts/simulated/campaign/campaign_server.h"
#include "hosts/simulated/campaign/campaign_transport.h"
#include "hosts/simulated/expect/expectation_check.h"
#include "hosts/simulated/json/json_reader.h"
#include "hosts/simulated/observed_transport.h"
#include "hosts/simulated/packet_file.h"
#include "hosts/simulated/replay/action_queue.h"
#include "hosts/simulated/replay/replay_host.h"
#include "hosts/simulated/replay/wire_transport.h"
#include "hosts/simulated/scripted_transport.h"
#include "hosts/simulated/simulated_phone.h"
#include "hosts/simulated/world_radio.h"
#include "quomi/model/settings.h"
#include "quomi/sdk/sdk.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include <boost/json/serialize.hpp>
#include <fmt/format.h>

namespace quomi::simulated {

namespace {

PhoneConfig phoneConfig(const Visit& visit, const ReplayOptions& options) {
    const auto& device = visit.device;
    PhoneConfig config;
    config.start = visit.start;
    config.timeZone = visit.timeZone;
    config.udid = device.udid;
    config.systemName = device.systemName;
    config.systemVersion = device.systemVersion;
    config.model = device.model;
    config.languages = device.languages;
    config.advertisingId = device.advertisingId;
    config.advertisingTracking = device.advertisingTracking;
    config.supportsBeacons = device.supportsBeacons;
    config.supportsGeofences = device.supportsGeofences;
    config.locationServices = device.locationServices;
    config.authorization = device.authorization;
    config.maxMonitoredRegions = device.maxMonitoredRegions;
    config.bluetooth = device.bluetooth;
    config.notificationRights = device.notificationRights;
    config.backgroundRefresh = device.backgroundRefresh;
    config.state = device.state;
    config.badge = device.badge;
    config.opensSchemes = device.opensSchemes;
    config.settingsURL = device.settingsURL;
    config.container = options.state;
    config.localization = {visit.app.localization.begin(), visit.app.localization.end()};
    config.resources = {visit.app.resources.begin(), visit.app.resources.end()};
    return config;
}

HttpFailureKind failureKind(Answer::Failure failure) {
    switch (failure) {
        case Answer::Failure::timeout:
            return HttpFailureKind::timeout;
        case Answer::Failure::tls:
            return HttpFailureKind::tls;
        case Answer::Failure::connection:
            break;
    }
    return HttpFailureKind::connection;
}

ScriptedAnswer scriptedAnswer(const Answer& answer) {
    ScriptedAnswer scripted;
    if (const auto* body = std::get_if<boost::json::value>(&answer.body)) scripted = ScriptedAnswer::json(*body);
    if (const auto* text = std::get_if<std::string>(&answer.body)) scripted.body = *text;
    scripted.status = answer.status;
    scripted.headers.insert(scripted.headers.end(), answer.headers.begin(), answer.headers.end());
    scripted.delay = answer.delay;
    if (answer.fail) scripted.fail = failureKind(*answer.fail);
    return scripted;
}

/// What a reader of a recording gave, at the step's key.
template <class List>
bool keep(std::optional<List> list, const VisitError& why, Recording& recording, VisitError* error) {
    if (!list) {
        *error = why;
        return false;
    }
    recording = std::move(*list);
    return true;
}

const char* nameOfRecording(const Step& step) {
    return std::holds_alternative<PacketsStep>(step.action) ? "packets.csv" : "walk.gpx";
}

bool readRecording(const Visit& visit, const Step& step, const ReplayOptions& options, Recording& recording,
                   VisitError* error) {
    std::optional<Error> failure;
    const auto why = [&](const char* place) {
        return visit.stepError(step, place, failure ? failure->localizedDescription().value_or("") : "");
    };
    const auto* packets = std::get_if<PacketsStep>(&step.action);
    const char* place = nameOfRecording(step);
    if (packets != nullptr) {
        auto list = readPacketFile(packets->csv.string(), &failure);
        if (!keep(std::move(list), why(place), recording, error)) return false;
    } else {
        if (!options.readTrack) {
            *error = visit.stepError(step, place, "tracks are not read here");
            return false;
        }
        auto track = options.readTrack(std::get<WalkStep>(step.action).gpx.string(), &failure);
        if (!keep(std::move(track), why(place), recording, error)) return false;
    }
    // Recorders without a clock write the year 1 or 1970; nobody waits for the end of such a visit.
    const auto length = toSeconds(lengthOf(recording, *playedSpeed(step)));
    if (length <= kLongestVisit) return true;
    *error = visit.stepError(
        step, place,
        fmt::format("expected a recording of at most {:.0f} seconds, found one of {:.0f}", kLongestVisit, length));
    return false;
}

bool readRecordings(const Visit& visit, const ReplayOptions& options, ActionQueue::Recordings& recordings,
                    VisitError* error) {
    std::int64_t happenings = 0;
    for (const auto& step : visit.steps) {
        if (!playedSpeed(step)) continue;
        auto& recording = recordings[step.index];
        if (!readRecording(visit, step, options, recording, error)) return false;
        happenings += visit.timesOf(step) * static_cast<std::int64_t>(sizeOf(recording));
        if (happenings <= kMostHappenings) continue;
        *error = visit.stepError(
            step, nameOfRecording(step),
            fmt::format("expected at most {} packets and points, repetitions included, found more", kMostHappenings));
        return false;
    }
    return true;
}

std::vector<PlacedBeacon> placedBeacons(const Visit& visit) {
    std::vector<PlacedBeacon> beacons;
    for (const auto& each : visit.world) {
        constexpr std::int64_t absurd = 1000;  // dBm; any more says no more
        const auto power = static_cast<std::int32_t>(std::clamp(each.txPower, -absurd, absurd));
        beacons.push_back({each.uuid, each.major, each.minor, each.position, power});
    }
    return beacons;
}

template <class Kind>
bool plays(const ActionQueue::Recordings& recordings) {
    return std::ranges::any_of(recordings,
                               [](const auto& entry) { return std::holds_alternative<Kind>(entry.second); });
}

/// Whether the phone model runs, which reports once a second.
bool needsModel(const Visit& visit, const ActionQueue::Recordings& recordings) {
    return plays<std::vector<TimedPacket>>(recordings) || (plays<Track>(recordings) && !visit.world.empty());
}

Duration endOf(const Visit& visit, const ActionQueue::Recordings& recordings) {
    return visit.endTime([&](const Step& step) {
        const auto speed = playedSpeed(step);
        return speed ? lengthOf(recordings.at(step.index), *speed) : Duration::zero();
    });
}

bool isShortEnough(const Visit& visit, const ActionQueue::Recordings& recordings, VisitError* error) {
    const auto seconds = toSeconds(endOf(visit, recordings));
    if (!needsModel(visit, recordings) || seconds <= static_cast<double>(kMostHappenings)) return true;
    *error =
        visit.errorAt("$", fmt::format("expected at most {} seconds where packets or beacons are heard, found {:.0f}",
                                       kMostHappenings, seconds));
    return false;
}

std::optional<Servers> openCampaign(const Visit& visit, VisitError& error) {
    std::optional<Error> failure;
    auto campaign = Campaign::load(std::get<CampaignBackoffice>(visit.backoffice).campaign.string(), &failure);
    if (!campaign) {
        error = visit.errorAt("$.backoffice.campaign", failure->localizedDescription().value_or(""));
        return std::nullopt;
    }
    const auto server = std::make_shared<CampaignServer>(std::move(*campaign), [](const auto&) { return true; });
    return Servers{"http://campaign.test",
                   [server](VirtualLoop& loop) { return std::make_unique<CampaignTransport>(server, loop, loop); }};
}

}  // namespace

/// Everything that lives while a visit is played, in the order in which it is made.
class Replay::Player {
public:
    Player(const Visit& visit, const ReplayOptions& options, TraceSink sink, const std::optional<Servers>& servers,
           ActionQueue::Recordings recordings)
        : visit_(visit),
          sink_(std::move(sink)),
          moved_(options.moved),
          goesOn_(options.goesOn),
          recordings_(std::move(recordings)),
          phone_(phoneConfig(visit, options), observer()),
          trace_(phone_.loop(), [this](const boost::json::object& record) { sink_(record); }),
          settings_(deployment_, phone_.platform().location),
          wire_(servers ? makeWire(*servers) : nullptr),
          observedWire_(wire_ ? std::make_unique<ObservedTransport>(*wire_, wireObserver_) : nullptr),
          platform_(observedWire_ ? phone_.platform().with(*observedWire_) : phone_.platform()),
          sdk_(platform_, settings_),
          ruleObserver_(std::make_shared<RuleObserver>(RuleObserver{[this](const RuleReport& report) {
              trace_.write("rule", boost::json::string(report.ruleId), traceRule(report));
          }})),
          host_(platform_, sdk_, settings_, trace_, phone_, options.delegate, options.traces) {
        phone_.transport().setBaseURLs([this] { return std::vector{settings_.baseAPIUrl, visit_.app.baseURL}; });
        sdk_.setRuleObserver(ruleObserver_);
        if (const auto* scripted = std::get_if<ScriptedBackoffice>(&visit.backoffice)) script(*scripted);
        if (plays<std::vector<TimedPacket>>(recordings_)) phone_.attachModel();
        const auto beacons = placedBeacons(visit);
        if (!beacons.empty() && plays<Track>(recordings_)) phone_.placeBeacons(beacons);
    }

    ~Player() {
        // What the end of the objects does to the phone is no part of the visit.
        sink_ = [](const boost::json::object&) {};
    }

    [[nodiscard]] SimulatedPhone& phone() { return phone_; }

    bool play() {
        end_ = endOf(visit_, recordings_);
        ActionQueue actions(visit_.steps, recordings_);
        host_.configure(visit_.app);
        bool inFirstTurn = true;
        while (const auto action = actions.next(end_)) {
            const bool joinsFirstTurn = std::exchange(inFirstTurn, false) && action->at == Duration::zero();
            if (!joinsFirstTurn && !advanceTo(action->at)) return false;
            std::visit([this](const auto& what) { perform(what); }, action->action);
            if (!settle()) return false;
        }
        return advanceTo(end_);
    }

private:
    /// The trace comes after the phone whose clock stamps it; until then nothing happens that it could miss.
    PhoneObserver observer() {
        return Trace::observer([this]() -> const Trace& { return trace_; });
    }

    std::vector<std::string> baseURLs() const {
        return {settings_.baseAPIUrl, visit_.app.baseURL, deployment_.apiBaseUrl};
    }

    std::unique_ptr<WireTransport> makeWire(const Servers& servers) {
        return std::make_unique<WireTransport>(
            phone_.loop(), servers.url, [this] { return baseURLs(); }, servers.connect(phone_.loop()));
    }

    void script(const ScriptedBackoffice& scripted) {
        for (const auto& [key, answers] : scripted.answers) {
            std::vector<ScriptedAnswer> list;
            for (const auto& answer : answers) list.push_back(scriptedAnswer(answer));
            phone_.transport().answer(key, std::move(list));
        }
    }

    bool settle() {
        const bool rested = phone_.runTurns();
        if (wire_ != nullptr) wire_->settle();
        return rested;
    }

    bool advanceTo(Duration time) {
        const MonotonicTime target{time};
        if (!settle()) return false;
        while (const auto next = phone_.loop().nextEvent()) {
            if (goesOn_ && !goesOn_(phone_.loop().monotonicNow().time_since_epoch(), end_)) return false;
            if (*next > target) break;
            if (!phone_.advanceTo(*next) || !settle()) return false;
        }
        return phone_.advanceTo(target) && settle();
    }

    void perform(const Packet* packet) { phone_.hearPacket(*packet); }
    void perform(const Leg& leg) {
        tellMoved(leg.from);
        phone_.walk(leg);
    }
    void perform(const Step* step) {
        std::visit([this](const auto& action) { act(action); }, step->action);
    }

    void tellMoved(const Coordinate& place) {
        if (moved_) moved_(place, phone_.loop().monotonicNow().time_since_epoch());
    }

    void act(const RangeStep& step) { phone_.range(step.beacons); }
    void act(const BeaconRegionStep& step) {
        step.enters ? phone_.enterBeaconRegion(step.uuid) : phone_.exitBeaconRegion(step.uuid);
    }
    void act(const BeaconRegionStateStep& step) { phone_.beaconRegionState(step.uuid, step.state); }
    void act(const LocationStep& step) {
        tellMoved(step.coordinate);
        phone_.setLocation(step.coordinate, step.accuracy);
    }
    void act(const RegionStep& step) {
        step.enters ? phone_.enterRegion(step.identifier) : phone_.exitRegion(step.identifier);
    }
    void act(const MonitoringFailsStep& step) { phone_.monitoringFails(step.region, step.code); }
    void act(const RangingFailsStep& step) { phone_.rangingFails(step.region, step.code); }
    void act(const LocationFailsStep& step) { phone_.locationFails(step.code); }
    void act(const AuthorizationStep& step) { phone_.setAuthorization(step.status); }
    void act(const BluetoothStep& step) { phone_.setBluetooth(step.state); }
    void act(const BackgroundRefreshStep& step) { phone_.setBackgroundRefresh(step.status); }
    void act(const NotificationRightsStep& step) { phone_.setNotificationSettings(step.settings); }
    void act(const LocationServicesStep& step) { phone_.setLocationServices(step.enabled); }
    void act(const NetworkStep& step) { phone_.network(step.reachable); }
    void act(const ExpireBackgroundTasksStep&) { phone_.expireBackgroundTasks(); }
    void act(const ClockStep& step) { phone_.jumpClock(step.jump); }
    void act(const TimeZoneStep& step) { phone_.setTimeZone(step.zone); }
    /// The host is part of the app: while the app is suspended its call waits, in order, for the resumption.
    void act(const CallStep& step) {
        asHost([this, &step] { host_.call(step); });
    }
    void act(const PresentScreenStep& step) {
        asHost([this, &step] { host_.presentScreen(step.presents); });
    }
    void asHost(Task task) {
        if (!phone_.loop().isSuspended()) return task();
        phone_.loop().post(std::move(task));
    }
    void act(const CloseWebPageStep&) { phone_.closeWebPage(); }
    void act(const DismissWebPageStep&) { phone_.dismissWebPage(); }
    void act(const PacketsStep&) {}  // its packets come one by one from the queue
    void act(const WalkStep&) {}     // and so do the points of its track
    // Refused when the visit is read.

    void act(const AppStep& step) {
        switch (step.change) {
            case AppChange::background:
                return phone_.background();
            case AppChange::foreground:
                return phone_.foreground();
            case AppChange::active:
                return phone_.active();
            case AppChange::inactive:
                return phone_.inactive();
            case AppChange::terminate:
                return phone_.terminate();
            case AppChange::suspend:
                return phone_.suspend();
            case AppChange::resume:
                return phone_.resume();
        }
    }

    const Visit& visit_;
    TraceSink sink_;
    const std::function<void(const Coordinate&, Duration)> moved_;
    const std::function<bool(Duration, Duration)> goesOn_;
    Duration end_{};
    const Deployment deployment_;
    const ActionQueue::Recordings recordings_;
    SimulatedPhone phone_;
    Trace trace_;
    QuomiSettings settings_;
    const PhoneObserver wireObserver_ = observer();
    std::unique_ptr<WireTransport> wire_;
    std::unique_ptr<ObservedTransport> observedWire_;
    const Platform platform_;
    QuomiSDK sdk_;
    const std::shared_ptr<const RuleObserver> ruleObserver_;
    ReplayHost host_;
};

std::unique_ptr<Replay> Replay::prepare(const Visit& visit, const ReplayOptions& options, TraceSink sink,
                                        VisitError* error) {
    ActionQueue::Recordings recordings;
    if (!readRecordings(visit, options, recordings, error) || !isShortEnough(visit, recordings, error)) return nullptr;
    if (auto fault = faultOfExpectations(visit, endOf(visit, recordings))) {
        *error = std::move(*fault);
        return nullptr;
    }
    std::optional<Servers> servers;
    if (options.openServers || std::holds_alternative<CampaignBackoffice>(visit.backoffice)) {
        servers = options.openServers ? options.openServers(visit, *error) : openCampaign(visit, *error);
        if (!servers) return nullptr;
    }
    if (!sink) sink = [](const boost::json::object&) {};
    std::error_code failure;
    if (!options.state.empty()) std::filesystem::create_directories(options.state, failure);
    auto player = std::make_unique<Player>(visit, options, std::move(sink), servers, std::move(recordings));
    const auto& container = player->phone().container();
    if (!std::filesystem::is_directory(container, failure)) {
        *error = visit.errorAt("$", fmt::format("the directory {} for the app cannot be made", container.string()));
        return nullptr;
    }
    return std::unique_ptr<Replay>(new Replay(std::move(player)));
}

std::unique_ptr<Replay> Replay::load(const std::filesystem::path& file, const ReplayOptions& options,
                                     VisitError* error) {
    auto visit = Visit::load(file, error);
    if (!visit) return nullptr;
    auto kept = std::make_unique<const Visit>(std::move(*visit));
    auto replay = prepare(*kept, options, {}, error);
    if (replay != nullptr) replay->visit_ = std::move(kept);
    return replay;
}

SimulatedPhone& Replay::phone() {
    return player_->phone();
}

Replay::Replay(std::unique_ptr<Player> player) : player_(std::move(player)) {}

Replay::~Replay() = default;

bool Replay::play() {
    return player_->play();
}

WallTime Replay::now() const {
    return player_->phone().loop().now();
}

}  // namespace quomi::simulated
