#include "hosts/simulated/json/did_you_mean.h"

#include "quomi/util/ascii.h"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <utility>

#include <fmt/format.h>

namespace quomi::simulated {

namespace {

/// Edits that make one text of the other; swapped neighbours are one. Case does not matter.
std::size_t editsBetween(std::string_view left, std::string_view right) {
    std::vector<std::size_t> beforeLast(right.size() + 1);
    std::vector<std::size_t> last(right.size() + 1);
    std::vector<std::size_t> row(right.size() + 1);
    std::iota(last.begin(), last.end(), 0);
    for (std::size_t i = 1; i <= left.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= right.size(); ++j) {
            const auto is = [&](std::size_t l, std::size_t r) {
                return lowerCase(left[l - 1]) == lowerCase(right[r - 1]);
            };
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (is(i, j) ? 0 : 1)});
            const bool isSwapped = i > 1 && j > 1 && is(i, j - 1) && is(i - 1, j);
            if (isSwapped) row[j] = std::min(row[j], beforeLast[j - 2] + 1);
        }
        std::swap(beforeLast, last);
        std::swap(last, row);
    }
    return last[right.size()];
}

}  // namespace

std::string_view likeliestName(std::string_view misspelt, const std::vector<std::string_view>& names) {
    constexpr std::size_t longest = 200;  // nobody means a name by more
    if (misspelt.size() > longest) return {};
    std::string_view likeliest;
    std::size_t fewest = std::max<std::size_t>(misspelt.size() / 3, 1) + 1;
    for (const auto name : names) {
        if (name.size() > longest) continue;
        const auto edits = editsBetween(misspelt, name);
        if (edits >= fewest) continue;
        fewest = edits;
        likeliest = name;
    }
    return likeliest;
}

std::string didYouMean(std::string_view misspelt, const std::vector<std::string_view>& names) {
    const auto name = likeliestName(misspelt, names);
    return name.empty() ? "" : fmt::format("; did you mean \"{}\"?", name);
}

}  // namespace quomi::simulated
