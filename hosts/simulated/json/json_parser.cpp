#include "hosts/simulated/json/json_reader.h"
#include "quomi/util/utf8.h"

#include <cmath>
#include <functional>
#include <string>
#include <unordered_set>
#include <vector>

#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/error.hpp>
#include <boost/json/value_stack.hpp>
#include <fmt/format.h>

namespace quomi::simulated {
namespace {

using Code = boost::json::error_code;

constexpr std::size_t kDeepest = 64;

/// Builds the value of a text and knows at every moment where in the document it is. The name of each operation and of
/// each constant is the parser's.
class Builder {
public:
    static constexpr std::size_t max_object_size = boost::json::object::max_size();
    static constexpr std::size_t max_array_size = boost::json::array::max_size();
    static constexpr std::size_t max_key_size = boost::json::string::max_size();
    static constexpr std::size_t max_string_size = boost::json::string::max_size();

    bool on_document_begin(Code&) {
        values_.reset();
        return true;
    }
    bool on_document_end(Code&) { return true; }

    bool on_object_begin(Code&) { return open(false); }
    bool on_object_end(std::size_t count, Code&) {
        values_.push_object(count);
        return close();
    }
    bool on_array_begin(Code&) { return open(true); }
    bool on_array_end(std::size_t count, Code&) {
        values_.push_array(count);
        return close();
    }

    bool on_key_part(boost::json::string_view part, std::size_t, Code&) { return keep(part); }
    bool on_key(boost::json::string_view part, std::size_t, Code& code) {
        keep(part);
        auto& level = levels_.back();
        level.key = std::move(text_);
        text_.clear();
        if (!level.keys.insert(level.key).second) return refuse("expected each key of an object once", code);
        values_.push_key(level.key);
        return true;
    }
    bool on_string_part(boost::json::string_view part, std::size_t, Code&) { return keep(part); }
    bool on_string(boost::json::string_view part, std::size_t, Code&) {
        keep(part);
        values_.push_string(text_);
        text_.clear();
        return next();
    }

    bool on_number_part(boost::json::string_view, Code&) { return true; }
    bool on_int64(std::int64_t number, boost::json::string_view, Code&) {
        values_.push_int64(number);
        return next();
    }
    bool on_uint64(std::uint64_t number, boost::json::string_view, Code&) {
        values_.push_uint64(number);
        return next();
    }
    bool on_double(double number, boost::json::string_view, Code& code) {
        if (!std::isfinite(number)) return refuse("expected a number that a double holds", code);
        values_.push_double(number);
        return next();
    }
    bool on_bool(bool value, Code&) {
        values_.push_bool(value);
        return next();
    }
    bool on_null(Code&) {
        values_.push_null();
        return next();
    }
    bool on_comment_part(boost::json::string_view, Code&) { return true; }
    bool on_comment(boost::json::string_view, Code&) { return true; }

    [[nodiscard]] boost::json::value release() { return values_.release(); }
    /// What this builder itself refused; empty when the parser did.
    [[nodiscard]] const std::string& refusal() const { return refusal_; }

    /// Path of the value that is being read or is next.
    [[nodiscard]] std::string path() const {
        std::string path = "$";
        for (const auto& level : levels_) {
            if (level.isArray) {
                path = itemPath(path, level.index);
            } else if (!level.key.empty() || !level.keys.empty()) {
                path = memberPath(path, level.key);
            }
        }
        return path;
    }

private:
    struct Level {
        bool isArray = false;
        std::size_t index = 0;
        std::string key;
        std::unordered_set<std::string> keys;
    };

    bool open(bool isArray) {
        levels_.emplace_back().isArray = isArray;
        return true;
    }
    bool close() {
        levels_.pop_back();
        return next();
    }
    bool next() {
        if (!levels_.empty() && levels_.back().isArray) ++levels_.back().index;
        return true;
    }
    bool keep(boost::json::string_view part) {
        text_.append(part.data(), part.size());
        return true;
    }
    bool refuse(const char* message, Code& code) {
        refusal_ = message;
        code = boost::json::make_error_code(boost::json::error::syntax);
        return false;
    }

    boost::json::value_stack values_;
    std::vector<Level> levels_;
    std::string text_;
    std::string refusal_;
};

/// "line 3, column 7", both from 1, columns in characters.
std::string position(std::string_view text, std::size_t offset) {
    const auto before = text.substr(0, std::min(offset, text.size()));
    const auto line = std::ranges::count(before, '\n') + 1;
    const auto lastBreak = before.rfind('\n');
    const auto inLine = lastBreak == std::string_view::npos ? before : before.substr(lastBreak + 1);
    const auto column = std::ranges::count_if(inLine, std::not_fn(isUtf8Continuation));
    return fmt::format("line {}, column {}", line, column + 1);
}

std::string reason(const Builder& builder, const Code& code) {
    if (!builder.refusal().empty()) return builder.refusal();
    if (code == boost::json::error::too_deep) return fmt::format("expected at most {} levels", kDeepest);
    if (code == boost::json::error::exponent_overflow) return "expected a number that a double holds";
    return fmt::format("expected JSON, found {}", code.message());
}

}  // namespace

std::optional<boost::json::value> parseJson(std::string_view text, JsonFaults& faults) {
    boost::json::parse_options options;
    options.max_depth = kDeepest;
    boost::json::basic_parser<Builder> parser(options);
    Code code;
    const std::size_t used = parser.write_some(false, text.data(), text.size(), code);
    if (!code && used < text.size()) code = boost::json::make_error_code(boost::json::error::extra_data);
    if (!code) return parser.handler().release();
    faults.add(parser.handler().path(), fmt::format("{} ({})", reason(parser.handler(), code), position(text, used)));
    return std::nullopt;
}

}  // namespace quomi::simulated
