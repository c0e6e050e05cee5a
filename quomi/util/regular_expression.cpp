#include "quomi/util/regular_expression.h"

#include "quomi/util/ascii.h"
#include "quomi/util/utf8.h"

#include <algorithm>
#include <exception>
#include <vector>

#include <re2/re2.h>

namespace quomi {

namespace {

constexpr const char* kExpressionErrorDomain = "NSCocoaErrorDomain";
constexpr int kExpressionErrorCode = 2048;

re2::RE2::Options quietOptions() {
    re2::RE2::Options options;
    options.set_log_errors(false);
    return options;
}

/// The beginning of the next character.
std::size_t nextCharacter(std::string_view text, std::size_t at) {
    ++at;
    while (at < text.size() && isUtf8Continuation(text[at])) ++at;
    return at;
}

}  // namespace

struct CompiledExpression::Impl {
    explicit Impl(std::string_view pattern)
        : expression(re2::StringPiece(pattern.data(), pattern.size()), quietOptions()) {}
    re2::RE2 expression;
};

std::optional<CompiledExpression> CompiledExpression::create(std::string_view pattern, std::optional<Error>* error) {
    auto impl = std::make_shared<const Impl>(pattern);
    if (impl->expression.ok()) return CompiledExpression(std::move(impl));
    assign(error,
           Error{kExpressionErrorDomain, kExpressionErrorCode, {{kLocalizedDescriptionKey, impl->expression.error()}}});
    return std::nullopt;
}

/// Finds the matches of one text, one after the other.
class ExpressionMatcher {
public:
    ExpressionMatcher(const CompiledExpression& compiled, std::string_view text)
        : expression_(compiled.impl_->expression),
          text_(text),
          groups_(static_cast<std::size_t>(expression_.NumberOfCapturingGroups()) + 1) {}

    /// Finds the first match that begins at the byte or, unless anchored, after it.
    bool find(std::size_t from, bool anchored) {
        const auto anchor = anchored ? re2::RE2::ANCHOR_START : re2::RE2::UNANCHORED;
        return expression_.Match(re2::StringPiece(text_.data(), text_.size()), from, text_.size(), anchor,
                                 groups_.data(), static_cast<int>(groups_.size()));
    }

    [[nodiscard]] std::size_t begin() const { return static_cast<std::size_t>(groups_[0].data() - text_.data()); }
    [[nodiscard]] std::size_t end() const { return begin() + groups_[0].size(); }

    /// What the template makes of the last match.
    [[nodiscard]] std::string expand(std::string_view templateText) const {
        std::string expanded;
        for (std::size_t i = 0; i < templateText.size(); ++i) {
            const bool hasNext = i + 1 < templateText.size();
            if (templateText[i] == '\\' && hasNext) {
                expanded += templateText[++i];
            } else if (templateText[i] == '$' && hasNext && isDigit(templateText[i + 1])) {
                expanded += group(groupNumber(templateText, i));
            } else {
                expanded += templateText[i];
            }
        }
        return expanded;
    }

private:
    /// Reads the digits after `$`, more than one only as long as there is such a group; leaves `at` on the last.
    [[nodiscard]] std::size_t groupNumber(std::string_view templateText, std::size_t& at) const {
        std::size_t number = static_cast<std::size_t>(templateText[++at] - '0');
        while (at + 1 < templateText.size() && isDigit(templateText[at + 1])) {
            const std::size_t longer = number * 10 + static_cast<std::size_t>(templateText[at + 1] - '0');
            if (longer >= groups_.size()) break;
            number = longer;
            ++at;
        }
        return number;
    }

    [[nodiscard]] std::string_view group(std::size_t number) const {
        if (number >= groups_.size() || groups_[number].data() == nullptr) return {};
        return {groups_[number].data(), groups_[number].size()};
    }

    const re2::RE2& expression_;
    std::string_view text_;
    std::vector<re2::StringPiece> groups_;
};

namespace QuomiRegularExpression {

std::string stringByReplacingMatchesInString(std::string_view text, const CompiledExpression& fromRegex,
                                             MatchingOptions options, TextRange range, std::string_view templateText,
                                             const MatchTransformation& withMatchTransformation) {
    const std::size_t start = std::min(range.location, text.size());
    const std::string_view searched = text.substr(start, range.length);
    const bool isAnchored = options == MatchingOptions::anchored;
    ExpressionMatcher matcher(fromRegex, searched);

    std::string result(text.substr(0, start));
    std::size_t copied = 0;
    std::size_t from = 0;
    while (from <= searched.size() && matcher.find(from, isAnchored)) {
        result += searched.substr(copied, matcher.begin() - copied);
        std::string replacement = matcher.expand(templateText);
        result += withMatchTransformation ? withMatchTransformation(std::move(replacement)) : replacement;
        copied = matcher.end();
        from = matcher.end() > matcher.begin() ? matcher.end() : nextCharacter(searched, matcher.end());
        if (isAnchored) break;
    }
    result += searched.substr(copied);
    result += text.substr(start + searched.size());
    return result;
}

}  // namespace QuomiRegularExpression

}  // namespace quomi
