#pragma once

#include "quomi/util/time.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <boost/json/object.hpp>

namespace quomi::simulated {

/// A name that a visit's expectations speak of, and where: somebody must know it.
struct Mention {
    enum class Kind { rule, owner, beacon, geofence, decision, delegate };

    std::string path;  ///< JSON path of the name
    Kind kind = Kind::rule;
    std::string pattern;  ///< `*` in it stands for any text
};

/// What an expectation is about: the records of a trace that have these members.
struct Subject {
    std::string path;  ///< JSON path of what names it: "$.expect[2].rule"
    std::string key;   ///< what names it: "rule"
    /// Members that a record must have, also inside of its objects. A `*` in a text stands for any text.
    boost::json::object members;
    /// Pattern of the path of the record's "url"; empty where that does not matter.
    std::string urlPath;
    std::vector<Mention> mentions;
};

/// What a visit expects of its trace. Times are counted from the visit's start.
struct Expectation {
    std::string path;  ///< JSON path: "$.expect[2]"
    Subject subject;
    std::int64_t least = 1;
    std::optional<std::int64_t> most;  ///< no upper bound where there is none
    std::optional<Duration> from;      ///< the window; both ends belong
    std::optional<Duration> until;
    std::optional<Subject> before;  ///< the first match comes before the first of this one
};

}  // namespace quomi::simulated
