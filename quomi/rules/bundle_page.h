#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quomi {

/// A resource of the app's bundle, as a "file" URL names it.
struct BundleResource {
    std::optional<std::string> folder;  ///< none when the URL has no slash behind the scheme's
    std::string file;

    /// Its path in the bundle.
    [[nodiscard]] std::string path() const;
};

/// The resource of a "file" URL: what follows the scheme, without two leading slashes, parted at the last slash.
/// Nothing for any other URL.
[[nodiscard]] std::optional<BundleResource> bundleResourceOf(std::string_view url);

}  // namespace quomi
