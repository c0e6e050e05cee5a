#include "quomi/platform/application_helpers.h"

#include <utility>

namespace quomi {

namespace {

struct TopScreen {
    std::shared_ptr<Screen> screen;
    std::shared_ptr<Screen> navigation;
};

TopScreen findTopScreen(std::shared_ptr<Screen> root) {
    TopScreen top{std::move(root), nullptr};
    while (top.screen != nullptr) {
        if (auto presented = top.screen->presentedScreen()) {
            top = {std::move(presented), nullptr};
            continue;
        }
        const Screen::Kind kind = top.screen->kind();
        if (kind == Screen::Kind::plain) return top;
        if (kind == Screen::Kind::navigation) top.navigation = top.screen;
        top.screen = top.screen->visibleChild();
    }
    return {};
}

}  // namespace

std::shared_ptr<Screen> QuomiApplicationHelpers::topViewController() const {
    return topViewControllerWithRootViewController(screens_.rootScreen());
}

std::shared_ptr<Screen> QuomiApplicationHelpers::topViewControllerWithRootViewController(std::shared_ptr<Screen> root) {
    return findTopScreen(std::move(root)).screen;
}

std::shared_ptr<Screen> QuomiApplicationHelpers::topNavigationViewController() const {
    return findTopScreen(screens_.rootScreen()).navigation;
}

}  // namespace quomi
