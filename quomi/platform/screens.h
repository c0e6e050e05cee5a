#pragma once

#include <functional>
#include <memory>
#include <string>

namespace quomi {

/// One screen of the host's app, seen from outside: what it shows on top of itself or inside itself.
class Screen {
public:
    enum class Kind { plain, navigation, tabs };
    virtual ~Screen() = default;
    [[nodiscard]] virtual Kind kind() const = 0;
    /// The screen that this one presents over itself; null when none.
    [[nodiscard]] virtual std::shared_ptr<Screen> presentedScreen() const = 0;
    /// The visible screen of a navigation container, the selected one of a tab container; null otherwise or when none.
    [[nodiscard]] virtual std::shared_ptr<Screen> visibleChild() const = 0;
};

/// A web page on show, owned by whoever presents it; dropping it takes it off the screen without another event.
///
/// It stands in a navigation container and has a button "Close" on the right. Its view shows pages scaled to fit, takes
/// the whole of its parent and has the tag 12345. Every load that the page itself asks for is allowed.
class WebPage {
public:
    virtual ~WebPage() = default;
    /// Loads the URL; one of the scheme "file" names a resource of the app's bundle.
    virtual void load(const std::string& url) = 0;
    /// Takes what the page presents over itself off the screen, not animated, and then the page, animated.
    virtual void dismiss() = 0;
    /// Shows or hides the sign that something loads: in the middle of the screen 80 by 80 points, black at alpha 0.7,
    /// corners of radius 10, with a large white activity indicator that turns.
    virtual void showActivity(bool shown) = 0;
};

/// What the user and the phone do to a web page. All empty at first. Host's thread.
struct WebPageEvents {
    std::function<void()> didAppear{};
    std::function<void()> didDisappear{};
    std::function<void()> closeRequested{};
    /// The page is off the screen, for good, by other means than `WebPage::dismiss` (the user swiped it away). Comes
    /// after `didDisappear`.
    std::function<void()> dismissed{};
    /// A load begins; it has finished or failed.
    std::function<void()> loadDidStart{};
    std::function<void()> loadDidEnd{};
};

/// Port: the app's screens. Host's thread only.
class Screens {
public:
    virtual ~Screens() = default;

    /// Root screen of the key window; null when there is no window.
    [[nodiscard]] virtual std::shared_ptr<Screen> rootScreen() const = 0;
    /// Presents a page screen, in a navigation container, over the given one. Null when that is not possible. It may
    /// appear before this returns.
    [[nodiscard]] virtual std::unique_ptr<WebPage> presentWebPage(const std::shared_ptr<Screen>& over,
                                                                  WebPageEvents events) = 0;
    /// Shows an alert with one button over the given screen.
    virtual void presentAlert(const std::shared_ptr<Screen>& over, const std::string& title, const std::string& message,
                              const std::string& button) = 0;
};

}  // namespace quomi
