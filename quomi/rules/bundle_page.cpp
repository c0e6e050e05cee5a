#include "quomi/rules/bundle_page.h"

#include "quomi/util/ascii.h"

#include <algorithm>

namespace quomi {

namespace {

bool isFileScheme(std::string_view scheme) {
    return lowerCase(scheme) == "file";
}

}  // namespace

std::string BundleResource::path() const {
    const std::string_view inFolder = folder ? std::string_view(*folder) : std::string_view();
    const auto begin = std::min(inFolder.find_first_not_of('/'), inFolder.size());
    if (begin == inFolder.size()) return file;
    return std::string(inFolder.substr(begin)) + '/' + file;
}

std::optional<BundleResource> bundleResourceOf(std::string_view url) {
    const auto colon = url.find(':');
    if (colon == std::string_view::npos || !isFileScheme(url.substr(0, colon))) return std::nullopt;
    auto specifier = url.substr(colon + 1);
    if (specifier.starts_with("//")) specifier.remove_prefix(2);
    const auto slash = specifier.rfind('/');
    if (slash == std::string_view::npos) return BundleResource{std::nullopt, std::string(specifier)};
    return BundleResource{std::string(specifier.substr(0, slash)), std::string(specifier.substr(slash + 1))};
}

}  // namespace quomi
