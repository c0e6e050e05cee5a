#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quomi {

class RunLoop;
class Screen;
class Screens;
class WebPage;

/// The app's screen with one web page and a button "Close". What it looks like is the port's affair; this is what it
/// does. Host's thread only.
class QuomiWebPageViewController : public std::enable_shared_from_this<QuomiWebPageViewController> {
    struct Private {};

public:
    explicit QuomiWebPageViewController(Private);
    ~QuomiWebPageViewController();
    QuomiWebPageViewController(const QuomiWebPageViewController&) = delete;
    QuomiWebPageViewController& operator=(const QuomiWebPageViewController&) = delete;

    /// Presents a new one over the screen; null when that is not possible. `didClose` is called once, after the user
    /// closed it or it went in another way, from inside one of its own functions. Letting go of it takes it off the
    /// screen.
    [[nodiscard]] static std::shared_ptr<QuomiWebPageViewController> present(Screens& screens,
                                                                             const std::shared_ptr<Screen>& over,
                                                                             std::function<void()> didClose);

    /// Loads the page; at once when the screen has appeared, else as soon as it does.
    void navigateToUrl(const std::string& url);
    /// The page that waits for the screen or was loaded last; none after the screen has disappeared.
    [[nodiscard]] const std::optional<std::string>& targetURL() const { return targetURL_; }

    // What the port tells.
    void viewDidAppear();
    void viewDidDisappear();
    /// The user wants it closed: it goes, and with it whatever it presents.
    void closeModalView();
    /// It is off the screen, without `closeModalView` (swiped away).
    void wasDismissed();
    /// The overlay that says "loading" is there from the start of a load to its end, good or bad.
    void loadDidStart();
    void loadDidEnd();

private:
    void tellThatItClosed();

    std::unique_ptr<WebPage> page_;
    std::function<void()> didClose_;
    std::optional<std::string> targetURL_;
    bool viewDidAppear_ = false;
    bool isClosing_ = false;
};

/// Shows web pages and keeps each as long as it is on show. Host's thread only; its end takes all of them away.
class WebPagePresenter {
public:
    /// The ports outlive the object.
    WebPagePresenter(Screens& screens, RunLoop& runLoop);
    ~WebPagePresenter();
    WebPagePresenter(const WebPagePresenter&) = delete;
    WebPagePresenter& operator=(const WebPagePresenter&) = delete;

    /// Shows the page of the URL over the screen; false when the screen can present nothing.
    bool present(const std::shared_ptr<Screen>& over, const std::string& url);
    /// Pages on show.
    [[nodiscard]] std::size_t count() const { return pages_->size(); }

private:
    using Pages = std::vector<std::shared_ptr<QuomiWebPageViewController>>;

    Screens& screens_;
    RunLoop& runLoop_;
    std::shared_ptr<Pages> pages_ = std::make_shared<Pages>();
};

}  // namespace quomi
