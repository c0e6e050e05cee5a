#pragma once

#include "hosts/simulated/phone_observer.h"
#include "hosts/simulated/virtual_loop.h"
#include "quomi/platform/screens.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace quomi::simulated {

/// A screen made of data.
class SimulatedScreen final : public Screen {
public:
    explicit SimulatedScreen(Kind kind = Kind::plain) : kind_(kind) {}

    /// Null: none.
    void present(std::shared_ptr<Screen> screen) { presented_ = std::move(screen); }
    void setVisibleChild(std::shared_ptr<Screen> screen) { child_ = std::move(screen); }

    [[nodiscard]] Kind kind() const override { return kind_; }
    [[nodiscard]] std::shared_ptr<Screen> presentedScreen() const override { return presented_; }
    [[nodiscard]] std::shared_ptr<Screen> visibleChild() const override { return child_; }

private:
    Kind kind_;
    std::shared_ptr<Screen> presented_;
    std::shared_ptr<Screen> child_;
};

/// The app's screens: at first one plain root screen. A web page that is presented stands in a navigation container
/// over its presenter until it is dismissed; it appears and disappears in turns of their own. An alert is taken away by
/// the user at once.
class SimulatedScreens final : public Screens {
public:
    SimulatedScreens(VirtualLoop& loop, const PhoneObserver& observer);
    ~SimulatedScreens() override;

    /// Replaces the root screen; null for an app without a window.
    void setRootScreen(std::shared_ptr<Screen> root) { root_ = std::move(root); }
    /// A screen that already presents another one, for a host's `presentationViewController`.
    [[nodiscard]] static std::shared_ptr<Screen> makeBusyScreen();

    /// Lever: the user closes the page on top. False when none is shown.
    bool closeWebPage();
    /// Lever: the page on top is swiped away. False when none is shown.
    bool dismissWebPage();
    /// URL of the page on top; empty when none is shown or it has loaded nothing.
    [[nodiscard]] std::string shownURL() const;
    /// Whether the page on top shows that it loads.
    [[nodiscard]] bool isLoading() const;

    [[nodiscard]] std::shared_ptr<Screen> rootScreen() const override { return root_; }
    /// Null when there is no screen, when it presents something already, and for screens that are not simulated ones.
    [[nodiscard]] std::unique_ptr<WebPage> presentWebPage(const std::shared_ptr<Screen>& over,
                                                          WebPageEvents events) override;
    void presentAlert(const std::shared_ptr<Screen>& over, const std::string& title, const std::string& message,
                      const std::string& button) override;

private:
    class OwnedPage;
    struct Page;

    void post(const std::shared_ptr<Page>& page, std::function<void()> WebPageEvents::*event);
    void takeAway(const std::shared_ptr<Page>& page);

    VirtualLoop& loop_;
    const PhoneObserver& observer_;
    std::shared_ptr<Screen> root_ = std::make_shared<SimulatedScreen>();
    std::vector<std::shared_ptr<Page>> pages_;
};

}  // namespace quomi::simulated
