#pragma once

#include "quomi/platform/location.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <boost/json/object.hpp>

namespace quomi::tool {

/// How a beacon fared in a visit. Spans in seconds, times in seconds since the visit's start.
struct BeaconStay {
    std::string name;
    double firstSeen = 0;
    double lastSeen = 0;
    std::size_t found = 0;
    std::size_t lost = 0;
    double inView = 0;     ///< from found to lost
    double near = 0;       ///< of that, while near
    double immediate = 0;  ///< of that, while immediate
};

/// Where the device was, as the app heard of it.
struct Way {
    std::size_t positions = 0;
    double metres = 0;  ///< from each position to the next
    std::size_t entered = 0;
    std::size_t left = 0;  ///< geofences
};

/// What became of a rule in a visit.
struct RuleFate {
    std::size_t considered = 0;  ///< outcomes; a wait that still runs at the end has none
    std::size_t executed = 0;
    /// Every other outcome ("ruleMax"), in order of first appearance, and how often.
    std::vector<std::pair<std::string, std::size_t>> stops;
};

/// Adds up a trace. Records come in order; the numbers stand after `finish`.
class VisitSummary {
public:
    void record(const boost::json::object& record, double seconds);
    /// Ends the stays that are still open at the last record's time.
    void finish();

    [[nodiscard]] double seconds() const { return now_; }
    /// In the order in which they were first seen.
    [[nodiscard]] const std::vector<BeaconStay>& beacons() const { return beacons_; }
    [[nodiscard]] const Way& way() const { return way_; }
    [[nodiscard]] std::size_t eventsLogged() const { return eventsLogged_; }
    /// Events of uploaded batches that were answered with a status 2xx.
    [[nodiscard]] std::size_t eventsUploaded() const { return eventsUploaded_; }
    [[nodiscard]] std::size_t requests() const { return requests_; }
    /// What answers the requests had ("200", "timeout"), in order of first appearance, and how many. Those without an
    /// answer at the end count as "unanswered".
    [[nodiscard]] const std::vector<std::pair<std::string, std::size_t>>& outcomes() const { return outcomes_; }
    /// Whether the SDK ran at any time: it watched, told the app of more than errors and events, or asked for what a
    /// start that succeeds asks for.
    [[nodiscard]] bool hasRun() const { return hasRun_; }
    /// Every different error that the app was told of, and how often.
    [[nodiscard]] const std::vector<std::pair<std::string, std::size_t>>& errors() const { return errors_; }

    /// By identifier, in the order in which they were first considered.
    [[nodiscard]] const std::vector<std::pair<std::string, RuleFate>>& rules() const { return rules_; }

private:
    struct Open {
        std::size_t index = 0;
        double since = 0;  ///< since when it is in this class
        std::int64_t proximity = 0;
    };
    struct Sent {
        std::string url;
        std::size_t events = 0;
    };

    void delegate(const boost::json::object& record);
    void beaconSeen(const boost::json::object& record, bool found);
    void beaconLost(const boost::json::object& record);
    void moved(const boost::json::object& record);
    void settle(Open& open);
    void endStays();
    void request(const boost::json::object& record);
    void response(const boost::json::object& record);
    void rule(const boost::json::object& record);
    void noteError(const boost::json::object& record);

    std::vector<BeaconStay> beacons_;
    Way way_;
    std::optional<Coordinate> place_;
    std::map<std::string, std::size_t, std::less<>> indexOf_;
    std::map<std::string, Open, std::less<>> open_;
    std::deque<Sent> sent_;
    std::vector<std::pair<std::string, RuleFate>> rules_;
    std::vector<std::pair<std::string, std::size_t>> outcomes_;
    std::vector<std::pair<std::string, std::size_t>> errors_;
    std::size_t eventsLogged_ = 0;
    std::size_t eventsUploaded_ = 0;
    std::size_t requests_ = 0;
    double now_ = 0;
    bool hasRun_ = false;
};

}  // namespace quomi::tool
