#pragma once

#include "quomi/platform/screens.h"

#include <memory>

namespace quomi {

/// Finds the screen that the user sees, through the app's screens. Host's thread only; the port must outlive it.
class QuomiApplicationHelpers {
public:
    explicit QuomiApplicationHelpers(const Screens& screens) : screens_(screens) {}

    /// The top screen over the root of the key window; null when there is none.
    [[nodiscard]] std::shared_ptr<Screen> topViewController() const;

    /// Follows presented screens first, then the visible screen of a navigation container or the selected one of a tab
    /// container, up to the last. Null when a container shows nothing.
    [[nodiscard]] static std::shared_ptr<Screen> topViewControllerWithRootViewController(std::shared_ptr<Screen> root);

    /// The navigation container that the top screen stands in, directly or within a tab container; null when none. One
    /// beneath a presented screen does not count.
    [[nodiscard]] std::shared_ptr<Screen> topNavigationViewController() const;

private:
    const Screens& screens_;
};

}  // namespace quomi
