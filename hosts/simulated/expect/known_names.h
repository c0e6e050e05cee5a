#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

namespace quomi::simulated {

class Campaign;
struct Answer;
struct Visit;

/// A rule of a back office, and the beacon or geofence that carries it.
struct KnownRule {
    std::string id;
    std::string owner;                           ///< identifier of the place
    bool isOfBeacon = true;                      ///< else of a geofence
    const boost::json::object* place = nullptr;  ///< the server's object of the owner
    const boost::json::object* rule = nullptr;   ///< of the rule: "rule" holds its conditions, "action" its actions
};

/// The identifiers that a visit's trace can speak of. It refers to the campaign or the visit, which outlives it and
/// does not change.
class KnownNames {
public:
    /// What a campaign serves.
    explicit KnownNames(const Campaign& campaign);
    /// What a visit tells itself: in the scripted answers, and in its steps.
    explicit KnownNames(const Visit& visit);

    /// In file order, those of beacons first.
    [[nodiscard]] const std::vector<KnownRule>& rules() const { return rules_; }
    [[nodiscard]] const std::vector<std::string>& beacons() const { return beacons_; }
    [[nodiscard]] const std::vector<std::string>& geofences() const { return geofences_; }

    /// What the server says of the limits of all rules together; null when it says nothing.
    [[nodiscard]] const boost::json::object* limits() const { return limits_; }

    void add(KnownNames other);

private:
    void addAnswer(std::string_view key, const Answer& answer);
    void addEvent(const boost::json::value& event);
    void addPlaces(const boost::json::array& places, bool areBeacons);

    std::vector<KnownRule> rules_;
    std::vector<std::string> beacons_;
    std::vector<std::string> geofences_;
    const boost::json::object* limits_ = nullptr;
    std::vector<std::shared_ptr<const boost::json::value>> parsed_;  // what stood in answers as text
};

}  // namespace quomi::simulated
