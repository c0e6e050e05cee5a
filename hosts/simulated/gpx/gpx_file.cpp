#include "hosts/simulated/gpx/gpx_file.h"

#include "quomi/util/dates.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <pugixml.hpp>

namespace quomi::simulated {

namespace {

constexpr std::size_t kLargestFile = std::size_t{64} << 20U;
constexpr std::size_t kLongestShown = 40;
constexpr unsigned kParseOptions = pugi::parse_minimal | pugi::parse_doctype | pugi::parse_cdata | pugi::parse_escapes;

Error fileError(std::int64_t code, std::string text) {
    return {kGpxFileErrorDomain, code, {{kLocalizedDescriptionKey, std::move(text)}}};
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n";
    const auto begin = text.find_first_not_of(blanks);
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

/// The element's name without the prefix of its namespace.
std::string_view localName(const pugi::xml_node& node) {
    const std::string_view name = node.name();
    return name.substr(name.find(':') + 1);  // from 0 where there is no colon
}

/// What stands between the tags; a comment or a CDATA section cuts it into several nodes.
std::string contentOf(const pugi::xml_node& element) {
    std::string content;
    for (const auto& part : element.children()) {
        if (part.type() == pugi::node_pcdata || part.type() == pugi::node_cdata) content += part.value();
    }
    return content;
}

std::optional<double> readNumber(std::string_view text) {
    if (text.starts_with('+')) text.remove_prefix(1);
    double value = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (failure != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) return std::nullopt;
    return value;
}

std::string shown(std::string_view text) {
    if (text.size() <= kLongestShown) return fmt::format("\"{}\"", text);
    return fmt::format("\"{}…\"", text.substr(0, kLongestShown));
}

class GpxParser {
public:
    GpxParser(std::string_view text, const std::string& name) : text_(text), name_(name) {}

    std::optional<Track> parse(std::optional<Error>* error) {
        if (load()) readTracks();
        if (!failure_) checkTimes();
        if (failure_) {
            assign(error, *failure_);
            return std::nullopt;
        }
        return trackOf(points_);
    }

private:
    bool load() {
        if (text_.size() > kLargestFile) return fail(0, "expected at most 64 MiB");
        const auto result = document_.load_buffer(text_.data(), text_.size(), kParseOptions, pugi::encoding_utf8);
        for (const auto& node : document_.children()) {
            if (node.type() == pugi::node_doctype) return fail(0, "expected no document type declaration");
        }
        if (!result) {
            return fail(static_cast<std::size_t>(std::max<std::ptrdiff_t>(result.offset, 0)),
                        fmt::format("expected XML: {}", result.description()));
        }
        return true;
    }

    void readTracks() {
        const auto root = document_.document_element();
        // Tracks made by hand often say no version.
        const std::string_view version = root.attribute("version").as_string("1.1");
        if (localName(root) != "gpx") {
            fail(root, fmt::format("expected the element gpx, found {}", shown(root.name())));
        } else if (version != "1.1" && version != "1.0") {
            fail(root, fmt::format("version: expected 1.1, found {}", shown(version)));
        } else {
            eachChild(root, "trk", [this](const pugi::xml_node& track) {
                eachChild(track, "trkseg", [this](const pugi::xml_node& segment) {
                    eachChild(segment, "trkpt", [this](const pugi::xml_node& point) { readPoint(point); });
                });
            });
            if (points_.empty()) fail(root, "expected a track with a point (trk, trkseg, trkpt), found none");
        }
    }

    template <class Visitor>
    void eachChild(const pugi::xml_node& parent, std::string_view name, const Visitor& visit) {
        for (const auto& child : parent.children()) {
            if (failure_) return;
            if (localName(child) == name) visit(child);
        }
    }

    void readPoint(const pugi::xml_node& node) {
        const auto latitude = readDegrees(node, "lat", 90);
        const auto longitude = readDegrees(node, "lon", 180);
        RecordedPoint point{{latitude, longitude}, std::nullopt};
        eachChild(node, "time", [&](const pugi::xml_node& time) { point.time = readTime(time); });
        points_.push_back(point);
    }

    double readDegrees(const pugi::xml_node& node, const char* name, double limit) {
        const auto text = trimmed(node.attribute(name).value());
        const auto value = readNumber(text);
        if (value && std::abs(*value) <= limit) return *value;
        fail(node, fmt::format("{}: expected degrees from {} to {}, found {}", name, -limit, limit,
                               text.empty() ? "nothing" : shown(text)));
        return 0;
    }

    /// An element without content is as good as none.
    std::optional<WallTime> readTime(const pugi::xml_node& node) {
        const auto content = contentOf(node);
        const auto text = trimmed(content);
        const auto time = QuomiUtils::isoDate(text);
        if (!time && !text.empty()) {
            fail(node, fmt::format("time: expected an ISO 8601 instant such as \"2026-11-21T09:30:00Z\", found {}",
                                   shown(text)));
        }
        return time;
    }

    void checkTimes() {
        const bool hasTime = std::ranges::any_of(points_, [](const RecordedPoint& point) { return !!point.time; });
        if (!hasTime) fail(0, "expected a track whose points have times, found none that has one");
    }

    void fail(const pugi::xml_node& node, const std::string& what) {
        fail(static_cast<std::size_t>(std::max<std::ptrdiff_t>(node.offset_debug(), 0)), what);
    }

    bool fail(std::size_t offset, const std::string& what) {
        const auto before = text_.substr(0, offset);
        const auto line = 1 + std::ranges::count(before, '\n');
        if (!failure_) failure_ = fileError(2, fmt::format("{}:{}: {}", name_, line, what));
        return false;
    }

    std::string_view text_;
    const std::string& name_;
    pugi::xml_document document_;
    std::vector<RecordedPoint> points_;
    std::optional<Error> failure_;
};

}  // namespace

std::optional<Track> parseGpx(std::string_view text, const std::string& name, std::optional<Error>* error) {
    return GpxParser(text, name).parse(error);
}

std::optional<Track> readGpxFile(const std::string& path, std::optional<Error>* error) {
    std::ifstream file(path, std::ios::binary);
    std::string text;
    std::array<char, 65536> block;
    while (text.size() <= kLargestFile && (file.read(block.data(), block.size()) || file.gcount() > 0)) {
        text.append(block.data(), static_cast<std::size_t>(file.gcount()));
    }
    if (!file.is_open() || file.bad()) {
        assign(error, fileError(1, fmt::format("{}: {}", path,
                                               std::filesystem::exists(path) ? "cannot be read" : "no such file")));
        return std::nullopt;
    }
    return parseGpx(text, path, error);
}

}  // namespace quomi::simulated
