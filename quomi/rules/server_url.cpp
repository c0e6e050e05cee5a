#include "quomi/rules/server_url.h"

#include "quomi/api/url.h"

namespace quomi {

ServerUrl& ServerUrl::fill(std::string_view placeholder, std::string_view value) {
    for (auto at = text_.find(placeholder); at != std::string::npos; at = text_.find(placeholder, at + value.size())) {
        text_.replace(at, placeholder.size(), value);
    }
    return *this;
}

std::string ServerUrl::withAreaType(std::string_view areaType) const {
    const char separator = text_.find('?') == std::string::npos ? '?' : '&';
    return withoutForbiddenCharacters(text_ + separator + "type=" + std::string(areaType));
}

}  // namespace quomi
