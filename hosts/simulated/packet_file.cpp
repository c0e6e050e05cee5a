#include "hosts/simulated/packet_file.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <deque>
#include <filesystem>
#include <fstream>

#include <fmt/format.h>

namespace quomi::simulated {

namespace {

enum Column : std::size_t { timeColumn, uuidColumn, majorColumn, minorColumn, powerColumn, rssiColumn, columnCount };
constexpr std::array<std::string_view, columnCount> kColumnNames = {"t_ms",  "uuid",           "major",
                                                                    "minor", "measured_power", "rssi"};
constexpr double kLatestMilliseconds = 9.0e15;  // in microseconds still inside 64 bits

Error fileError(std::int64_t code, std::string text) {
    return {kPacketFileErrorDomain, code, {{kLocalizedDescriptionKey, std::move(text)}}};
}

std::string_view trimmed(std::string_view text) {
    const auto begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

/// Length of the field at the beginning of the text. A plain loop: find_first_of takes most of a file's time.
std::size_t fieldEnd(std::string_view text) {
    std::size_t end = 0;
    while (end < text.size() && text[end] != ',' && text[end] != '\n' && text[end] != '\r') ++end;
    return end;
}

std::optional<double> readNumber(std::string_view text) {
    double value = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (failure != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) return std::nullopt;
    return value;
}

std::optional<std::int64_t> readWholeNumber(std::string_view text, std::int64_t lowest, std::int64_t highest) {
    const auto value = readNumber(text);
    if (!value || *value != std::trunc(*value)) return std::nullopt;
    if (*value < static_cast<double>(lowest) || *value > static_cast<double>(highest)) return std::nullopt;
    return static_cast<std::int64_t>(*value);
}

std::optional<Duration> readTime(std::string_view text) {
    const auto milliseconds = readNumber(text);
    if (!milliseconds || std::abs(*milliseconds) > kLatestMilliseconds) return std::nullopt;
    const auto whole = std::floor(*milliseconds);
    const auto rest = std::llround((*milliseconds - whole) * 1000);
    return Duration(static_cast<std::int64_t>(whole) * 1000 + rest);
}

/// Splits CSV text into rows of fields. Fields point into the text, unquoted ones with doubled quotes into `unquoted_`.
class RowReader {
public:
    explicit RowReader(std::string_view text) : text_(text) {
        if (text_.starts_with("\xEF\xBB\xBF")) text_.remove_prefix(3);
    }

    /// The next row that is not empty; false at the end.
    bool next() {
        while (!text_.empty()) {
            line_ = nextLine_;
            fields_.clear();
            unquoted_.clear();
            while (readField()) {
            }
            if (fields_.size() > 1 || !trimmed(fields_[0]).empty()) return true;
        }
        return false;
    }

    [[nodiscard]] std::size_t line() const { return line_; }
    [[nodiscard]] std::size_t size() const { return fields_.size(); }
    /// Empty beyond the row's end.
    [[nodiscard]] std::string_view field(std::size_t index) const {
        return index < fields_.size() ? trimmed(fields_[index]) : std::string_view{};
    }

private:
    /// True when another field of this row follows.
    bool readField() {
        if (text_.starts_with('"'))
            readQuoted();
        else
            fields_.push_back(take(fieldEnd(text_)));
        text_.remove_prefix(fieldEnd(text_));  // rubbish after a closing quote
        if (text_.starts_with(',')) {
            text_.remove_prefix(1);
            return true;
        }
        if (text_.starts_with("\r\n")) text_.remove_prefix(1);
        if (!text_.empty()) text_.remove_prefix(1);
        ++nextLine_;
        return false;
    }

    void readQuoted() {
        text_.remove_prefix(1);
        std::string value;
        for (;;) {
            value += take(text_.find('"'));
            if (!text_.starts_with("\"\"")) break;
            value += '"';
            text_.remove_prefix(2);
        }
        if (!text_.empty()) text_.remove_prefix(1);
        nextLine_ += static_cast<std::size_t>(std::ranges::count(value, '\n'));
        fields_.push_back(unquoted_.emplace_back(std::move(value)));
    }

    std::string_view take(std::size_t length) {
        const auto taken = text_.substr(0, length);
        text_.remove_prefix(taken.size());
        return taken;
    }

    std::string_view text_;
    std::vector<std::string_view> fields_;
    std::deque<std::string> unquoted_;  // a deque: the views into it stay valid while it grows
    std::size_t line_ = 1;
    std::size_t nextLine_ = 1;
};

class PacketParser {
public:
    PacketParser(std::string_view text, const std::string& name) : rows_(text), name_(name) {}

    std::optional<std::vector<TimedPacket>> parse(std::optional<Error>* error) {
        if (readHeader()) {
            while (!failure_ && rows_.next()) readRow();
        }
        if (failure_) {
            assign(error, *failure_);
            return std::nullopt;
        }
        const auto earlier = [](const TimedPacket& a, const TimedPacket& b) { return a.offset < b.offset; };
        std::ranges::stable_sort(packets_, earlier);
        for (auto& each : packets_) each.offset = std::max(each.offset - *zero_, Duration{});
        return std::move(packets_);
    }

private:
    bool readHeader() {
        if (!rows_.next()) {
            fail("no header: expected the columns t_ms, uuid, major, minor, measured_power, rssi");
            return false;
        }
        for (std::size_t column = 0; column < columnCount; ++column) {
            std::size_t index = 0;
            while (index < rows_.size() && rows_.field(index) != kColumnNames[column]) ++index;
            if (index == rows_.size()) {
                fail(fmt::format("column {} is missing", kColumnNames[column]));
                return false;
            }
            index_[column] = index;
        }
        return true;
    }

    void readRow() {
        const auto time = readTime(field(timeColumn));
        if (time && !zero_) zero_ = time;
        const auto uuid = Uuid::parse(field(uuidColumn));
        if (!uuid) return;
        if (!time) return fail(fmt::format("t_ms: expected milliseconds, found \"{}\"", field(timeColumn)));
        const auto major = number(majorColumn, 0, 0xFFFF);
        const auto minor = number(minorColumn, 0, 0xFFFF);
        const auto power = number(powerColumn, -1000, 1000);
        const auto rssi = number(rssiColumn, -1000, 1000);
        if (failure_) return;
        packets_.push_back({*time,
                            {*uuid, static_cast<std::uint16_t>(major), static_cast<std::uint16_t>(minor),
                             static_cast<std::int32_t>(power), static_cast<std::int32_t>(rssi)}});
    }

    [[nodiscard]] std::string_view field(Column column) const { return rows_.field(index_[column]); }

    std::int64_t number(Column column, std::int64_t lowest, std::int64_t highest) {
        const auto value = readWholeNumber(field(column), lowest, highest);
        if (!value) {
            fail(fmt::format("{}: expected a whole number from {} to {}, found \"{}\"", kColumnNames[column], lowest,
                             highest, field(column)));
        }
        return value.value_or(0);
    }

    void fail(const std::string& what) {
        if (!failure_) failure_ = fileError(2, fmt::format("{}:{}: {}", name_, rows_.line(), what));
    }

    RowReader rows_;
    const std::string& name_;
    std::array<std::size_t, columnCount> index_{};
    std::optional<Duration> zero_;
    std::vector<TimedPacket> packets_;
    std::optional<Error> failure_;
};

}  // namespace

std::optional<std::vector<TimedPacket>> parsePackets(std::string_view text, const std::string& name,
                                                     std::optional<Error>* error) {
    return PacketParser(text, name).parse(error);
}

std::optional<std::vector<TimedPacket>> readPacketFile(const std::string& path, std::optional<Error>* error) {
    std::ifstream file(path, std::ios::binary);
    std::string text;
    std::array<char, 65536> block;
    while (file.read(block.data(), block.size()) || file.gcount() > 0) {
        text.append(block.data(), static_cast<std::size_t>(file.gcount()));
    }
    if (!file.is_open() || file.bad()) {
        assign(error, fileError(1, fmt::format("{}: {}", path,
                                               std::filesystem::exists(path) ? "cannot be read" : "no such file")));
        return std::nullopt;
    }
    return parsePackets(text, path, error);
}

}  // namespace quomi::simulated
