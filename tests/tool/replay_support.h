#pragma once

#include "tests/support/prelude.h"
#include "tests/support/temporary_directory.h"

namespace quomi::test {

/// What one run of `quomi replay` gave.
struct Replayed {
    int status = -1;
    std::string out;
    std::string err;
    /// The trace, with `--json`.
    std::vector<boost::json::object> records;

    /// The records in brief, see `brief`; those that begin with `kind` behind their time ("response", "call start").
    /// Without what every start logs of the user's permissions, and without downloads of beacons: most tests are about
    /// something else.
    [[nodiscard]] std::vector<std::string> lines(std::string_view kind = {}) const;
    /// With it.
    [[nodiscard]] std::vector<std::string> allLines(std::string_view kind = {}) const;
};

/// A record in one line: its time, its kind and value, and what matters most of its fields:
///
///     "0 call start true"  "0 call start false error 603"  "1 delegate didReceiveErrorNotification 3"
///     "0 request GET https://backoffice.test/u_applications/query.json"  "0.05 response 200
///     /u_applications/query.json" "3 delegate didLogEvent {…}"  "3 delegate didFindNewBeacon 1-7"  "2 updates standard
///     on"  "2 monitor Quomi beacon"
///
/// URLs without their query, those of https://backoffice.test without that; beacons without their UUID; the UUIDs of
/// the shop by their ends: "B1".
[[nodiscard]] std::string brief(const boost::json::object& record);

/// What is wrong with the record's form: the time first, then exactly one kind, then that kind's fields and no others.
/// Empty when all is well.
[[nodiscard]] std::string formFault(const boost::json::object& record);

/// Proximity UUID of the application record in `shopVisit`.
inline constexpr const char* kShopUUID = "6B6E1B5A-0C0D-4A6E-9E62-0000000000B1";

/// A visit to the namespace "shop" without geofences and service beacons, whose scripted back office answers what a
/// start asks for. In the timeline "B1" and "B2" stand for the UUIDs that end so.
[[nodiscard]] boost::json::object shopVisit(std::string_view timeline);
/// A step: a report of the shop's beacon. It is lost five to six seconds after its last one.
[[nodiscard]] std::string near(double at, int minor = 1);
/// Parses what a test writes down; throws when it is no JSON.
[[nodiscard]] boost::json::value asJson(std::string_view text);
/// Answers of the visit's scripted back office.
[[nodiscard]] boost::json::object& answersOf(boost::json::object& visit);

/// A folder with visits and what they need, and the command that plays them.
class ReplayBench {
public:
    std::filesystem::path write(const std::string& name, std::string_view text) const;

    /// Runs the command with `--json` and checks that standard output is nothing but well-formed records.
    [[nodiscard]] Replayed play(const boost::json::object& visit, std::vector<std::string> options = {}) const;
    /// Runs the command with the arguments as they are.
    [[nodiscard]] Replayed run(const std::vector<std::string>& args) const;

    /// The same with standard output in a file; the exit status.
    [[nodiscard]] int runInto(const std::filesystem::path& out, const std::vector<std::string>& args) const;

    [[nodiscard]] const std::filesystem::path& folder() const { return directory_.path(); }
    /// Options that keep the app's container in the folder, and where that is.
    [[nodiscard]] std::vector<std::string> keepState() const { return {"--state", state().string()}; }
    [[nodiscard]] std::filesystem::path state() const { return folder() / "state"; }

private:
    TemporaryDirectory directory_;
};

}  // namespace quomi::test
