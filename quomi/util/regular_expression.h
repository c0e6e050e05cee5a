#pragma once

#include "quomi/util/error.h"

#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace quomi {

/// A part of a text, in bytes of its UTF-8.
struct TextRange {
    std::size_t location = 0;
    std::size_t length = std::numeric_limits<std::size_t>::max();
};

/// A compiled regular expression: a cheap, immutable value, usable on any thread. Its syntax is RE2's, so matching
/// takes time in proportion to the text, whatever the text is; there are no back references and no look-around.
class CompiledExpression {
public:
    /// Empty, with an error, when the pattern is none.
    [[nodiscard]] static std::optional<CompiledExpression> create(std::string_view pattern,
                                                                  std::optional<Error>* error = nullptr);

private:
    friend class ExpressionMatcher;
    struct Impl;
    explicit CompiledExpression(std::shared_ptr<const Impl> impl) : impl_(std::move(impl)) {}

    std::shared_ptr<const Impl> impl_;
};

namespace QuomiRegularExpression {

/// `anchored` counts only a match that begins where the range does.
enum class MatchingOptions { none, anchored };

/// Takes what the template made of a match, returns what shall stand in the match's place.
using MatchTransformation = std::function<std::string(std::string)>;

/// The text with every match inside the range (cut to the text) replaced, from left to right. Edges of the range count
/// as edges of the text for `^` and `$`. In the template `$1` is the match's first group (`$0` the whole match), empty
/// when it took no part or does not exist; a backslash takes the next character literally. An empty transformation
/// changes nothing.
[[nodiscard]] std::string stringByReplacingMatchesInString(std::string_view text, const CompiledExpression& fromRegex,
                                                           MatchingOptions options, TextRange range,
                                                           std::string_view templateText,
                                                           const MatchTransformation& withMatchTransformation);

}  // namespace QuomiRegularExpression

}  // namespace quomi
