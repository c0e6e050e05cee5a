#pragma once

#include "quomi/data/rule_owner.h"
#include "quomi/util/time.h"

#include <memory>
#include <string>
#include <vector>

#include <boost/json/fwd.hpp>

namespace quomi {

class QuomiErrors;

/// What one place of the server's answer needs beside itself.
struct PlaceContext {
    std::string appNamespace;  ///< of the settings
    WallTime now;
    const QuomiErrors& errors;
};

/// Whether a text in the record, however deep, is longer than 64 KiB. Such a record is not stored.
[[nodiscard]] bool holdsLongText(const boost::json::value& record);

/// The place with its rules, in no context; a geofence without identifier gives null. Never fails otherwise: what is
/// missing or of a wrong type takes its default, a number that does not fit the nearest that does.
[[nodiscard]] std::shared_ptr<QuomiGeofence> geofenceFrom(const boost::json::object& dictionary,
                                                          const PlaceContext& context);
[[nodiscard]] std::shared_ptr<QuomiBeaconData> beaconFrom(const boost::json::object& dictionary,
                                                          const PlaceContext& context);

}  // namespace quomi
