#include "quomi/rules/server_url.h"

#include "quomi/api/url.h"
#include "quomi/platform/console.h"

#include <algorithm>

#include <fmt/format.h>

namespace quomi {

ServerUrl& ServerUrl::fill(std::string_view placeholder, std::string value) {
    values_.emplace_back(placeholder, std::move(value));
    return *this;
}

/// Goes over the template once, and no further than the longest URL.
std::string ServerUrl::filled() const {
    std::string text;
    for (auto rest = template_; !rest.empty() && text.size() <= kLongest;) {
        const auto known =
            std::ranges::find_if(values_, [rest](const auto& value) { return rest.starts_with(value.first); });
        const bool isKnown = known != values_.end();
        text += isKnown ? std::string_view(known->second) : rest.substr(0, 1);
        rest.remove_prefix(isKnown ? known->first.size() : 1);
    }
    return text;
}

std::string ServerUrl::withAreaType(std::string_view areaType) const {
    std::string text = filled();
    text += text.find('?') == std::string::npos ? '?' : '&';
    text.append("type=").append(areaType);
    if (text.size() <= kLongest) text = withoutForbiddenCharacters(text);
    if (text.size() <= kLongest) return text;
    console_.log(fmt::format("Quomi SDK Error: The URL of a rule's server is longer than {} bytes", kLongest));
    return {};
}

std::string withoutStrayPercents(std::string_view text) {
    const auto isHex = [text](std::size_t at) {
        return text.substr(at, 1).find_first_of("0123456789ABCDEFabcdef") != std::string_view::npos;
    };
    std::string clean;
    clean.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        clean += text[i];
        if (text[i] == '%' && !(isHex(i + 1) && isHex(i + 2))) clean += "25";
    }
    return clean;
}

}  // namespace quomi
