#include "hosts/posix/clock.h"

#include "quomi/util/ascii.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string_view>
#include <system_error>

namespace quomi::posix {
namespace {

namespace fs = std::filesystem;

bool isZoneNameCharacter(char c) {
    return isLetterOrDigit(c) || c == '/' || c == '_' || c == '-' || c == '+';
}

/// What stands behind the database's own folder in a path, or the text itself.
std::string_view withoutDatabase(std::string_view text) {
    constexpr std::string_view folder = "/zoneinfo/";
    const auto at = text.rfind(folder);
    return at == std::string_view::npos ? text : text.substr(at + folder.size());
}

/// The zone that the text names, when the database has it.
std::optional<std::string> knownZone(std::string_view text, const fs::path& database) {
    const std::string name(withoutDatabase(text));
    if (name.empty() || name.front() == '/' || !std::ranges::all_of(name, isZoneNameCharacter)) return std::nullopt;
    std::error_code failure;
    if (!fs::is_regular_file(database / name, failure)) return std::nullopt;
    return name;
}

std::optional<std::string> zoneOfLink(const fs::path& link, const fs::path& database) {
    std::error_code failure;
    const fs::path target = fs::read_symlink(link, failure);
    return failure ? std::nullopt : knownZone(target.native(), database);
}

std::optional<std::string> zoneOfFile(const fs::path& file, const fs::path& database) {
    std::ifstream stream(file);
    std::string line;
    std::getline(stream, line);
    while (!line.empty() && (line.back() == ' ' || line.back() == '\r')) line.pop_back();
    return knownZone(line, database);
}

}  // namespace

WallTime SystemClock::now() const {
    return std::chrono::time_point_cast<Duration>(std::chrono::system_clock::now());
}

MonotonicTime SystemClock::monotonicNow() const {
    return MonotonicTime(std::chrono::duration_cast<Duration>(std::chrono::steady_clock::now().time_since_epoch()));
}

std::string SystemClock::timeZone() const {
    const char* text = std::getenv("TZ");       // NOLINT(concurrency-mt-unsafe)
    const char* folder = std::getenv("TZDIR");  // NOLINT(concurrency-mt-unsafe)
    return timeZoneName(text == nullptr ? std::nullopt : std::optional<std::string>(text), "/etc",
                        folder == nullptr ? "/usr/share/zoneinfo" : folder);
}

std::string timeZoneName(const std::optional<std::string>& variable, const fs::path& etc, const fs::path& database) {
    if (variable == "") return "UTC";
    if (variable) {
        const std::string_view text = *variable;
        if (auto zone = knownZone(text.front() == ':' ? text.substr(1) : text, database)) return *zone;
    }
    if (auto zone = zoneOfLink(etc / "localtime", database)) return *zone;
    return zoneOfFile(etc / "timezone", database).value_or("UTC");
}

}  // namespace quomi::posix
