#include "hosts/simulated/visit/visit.h"

#include "hosts/simulated/json/json_reader.h"
#include "hosts/simulated/json/neutral_text.h"
#include "hosts/simulated/visit/visit_readers.h"
#include "quomi/util/ascii.h"
#include "quomi/util/dates.h"

#include <algorithm>
#include <exception>
#include <fstream>
#include <iterator>

#include <fmt/format.h>

namespace quomi::simulated {
namespace {

constexpr std::int64_t kFormatVersion = 1;
constexpr const char* kNoSuchFile = "no such file";
constexpr Duration kAfterLastStep = std::chrono::seconds(60);

/// Whether the text ends as an instant with an offset does: a time, then "Z" or ±hh, ±hhmm, ±hh:mm.
bool namesOffset(std::string_view text) {
    const auto time = text.find('T');
    if (time == std::string_view::npos) return false;
    const auto sign = text.find_first_of("Z+-", time);
    if (sign == std::string_view::npos) return false;
    std::string offset(text.substr(sign + 1));
    if (text[sign] == 'Z') return offset.empty();
    if (offset.size() == 5 && offset[2] == ':') offset.erase(2, 1);
    return (offset.size() == 2 || offset.size() == 4) && std::ranges::all_of(offset, isDigit);
}

WallTime readStart(const JsonNode& node) {
    if (node.isText()) {
        const std::string text = node.text();
        const auto start = namesOffset(text) ? QuomiUtils::isoDate(text) : std::nullopt;
        if (start) return *start;
    }
    node.fail("an ISO 8601 instant with its offset such as \"2026-11-21T09:30:00+01:00\"");
    return {};
}

/// What the fields of a visit are read into.
struct Reading {
    Visit& visit;
    const std::filesystem::path& folder;
    const JsonNode& document;
};

constexpr Field<Reading> kVisitFields[] = {
    {"visit", [](const JsonNode& n, Reading& r) { r.visit.version = n.integer(kFormatVersion, kFormatVersion); }, true},
    {"name", [](const JsonNode& n, Reading& r) { r.visit.name = n.text(); }},
    {"start", [](const JsonNode& n, Reading& r) { r.visit.start = readStart(n); }, true},
    {"timeZone", [](const JsonNode& n, Reading& r) { r.visit.timeZone = readTimeZone(n); }},
    {"device", [](const JsonNode& n, Reading& r) { readDevice(n, r.visit.device); }},
    {"app", [](const JsonNode& n, Reading& r) { readApp(n, r.visit.app); }},
    {"backoffice", [](const JsonNode& n, Reading& r) { readBackoffice(n, r.folder, r.visit.backoffice); }},
    {"world", [](const JsonNode& n, Reading& r) { readWorld(n, r.visit.world); }},
    {"timeline", [](const JsonNode& n, Reading& r) { readTimeline(n, r.folder, r.visit.steps); }, true},
    {"end", [](const JsonNode& n, Reading& r) { r.visit.end = n.seconds(0, kLongestVisit); }},
    {"expect", [](const JsonNode& n, Reading& r) { readExpectations(n, r.visit); }},
    {"cases", [](const JsonNode& n, Reading& r) { readCases(n, r.document.raw(), r.folder, r.visit); }},
};

/// Nobody waits for the end of a visit in which too much happens.
void refuseTooManySteps(const JsonNode& root, const Visit& visit) {
    std::int64_t number = 0;
    for (const auto& step : visit.steps) {
        number += visit.timesOf(step);
        if (number <= kMostHappenings) continue;
        return root.refuseAt(
            itemPath("$.timeline", step.index),
            fmt::format("expected at most {} steps with their repetitions, found more", kMostHappenings));
    }
}

void give(VisitError* slot, VisitError error) {
    if (slot != nullptr) *slot = std::move(error);
}

std::optional<std::string> readFile(const std::filesystem::path& path, std::string& why) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (std::filesystem::is_directory(status)) {
        why = "expected a file, found a folder";
        return std::nullopt;
    }
    std::ifstream file(path, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (file.is_open() && !file.bad()) return text;
    why = std::filesystem::exists(status) ? "expected a file that can be read" : kNoSuchFile;
    return std::nullopt;
}

}  // namespace

/// A file of another version may have other keys, so the version is looked at before them.
void readVisit(const JsonNode& root, const std::filesystem::path& folder, Visit& visit) {
    const auto version = root["visit"];
    if (version && version.integer(kFormatVersion, kFormatVersion) != kFormatVersion) return;
    visit.name = std::filesystem::path(visit.file).filename().string();
    Reading reading{visit, folder, root};
    readObject<Reading>(root, kVisitFields, reading);
    if (!root.failed()) refuseTooManySteps(root, visit);
}

std::string VisitError::text() const {
    if (path.empty()) return neutralised(fmt::format("{}: {}", file, message));
    return neutralised(fmt::format("{}: {}: {}", file, path, message));
}

std::optional<Visit> Visit::load(const std::filesystem::path& path, VisitError* error) {
    std::string why;
    try {
        if (const auto text = readFile(path, why)) return parse(*text, path.string(), path.parent_path(), error);
    } catch (const std::exception& failure) {
        why = fmt::format("expected a file that can be read: {}", failure.what());
    }
    give(error, {path.string(), why == kNoSuchFile ? "" : "$", why});
    return std::nullopt;
}

std::optional<Visit> Visit::parse(std::string_view text, const std::string& fileName,
                                  const std::filesystem::path& folder, VisitError* error) {
    JsonFaults faults;
    Visit visit;
    visit.file = fileName;
    try {
        const auto document = parseJson(text, faults);
        if (document) readVisit(JsonNode(&*document, "$", faults), folder, visit);
    } catch (const std::exception& failure) {
        faults.add("$", fmt::format("expected a visit that fits: {}", failure.what()));
    }
    if (!faults.first()) return visit;
    give(error, visit.errorAt(faults.first()->path, faults.first()->message));
    return std::nullopt;
}

std::int64_t Visit::timesOf(const Step& step) const {
    const Duration last = end ? std::min(step.until, *end) : step.until;
    if (last < step.at) return 0;
    return step.every ? (last - step.at) / *step.every + 1 : 1;
}

Duration Visit::endTime(const StepSpan& span) const {
    if (end) return *end;
    Duration last{};
    for (const auto& step : steps) {
        last = std::max(last, step.lastTime() + (span ? span(step) : Duration::zero()));
    }
    return last + kAfterLastStep;
}

VisitError Visit::stepError(const Step& step, std::string_view place, std::string message) const {
    return errorAt(fmt::format("{}.{}", itemPath("$.timeline", step.index), place), std::move(message));
}

VisitError Visit::errorAt(std::string path, std::string message) const {
    for (const auto& [place, inFile] : replaced) {
        if (path.starts_with(place)) return {file, inFile + path.substr(place.size()), std::move(message)};
    }
    const bool isOfVisit = !caseName.empty() && !path.starts_with("$.cases");
    if (isOfVisit) message += fmt::format(" (in case \"{}\")", caseName);
    return {file, std::move(path), std::move(message)};
}

}  // namespace quomi::simulated
