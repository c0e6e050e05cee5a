#include "hosts/simulated/simulated_screens.h"

#include <algorithm>
#include <utility>

namespace quomi::simulated {

struct SimulatedScreens::Page {
    std::shared_ptr<SimulatedScreen> presenter;
    WebPageEvents events;
    std::string url;
    bool owned = true;  // events end with whoever owns the page
    bool isLoading = false;
};

class SimulatedScreens::OwnedPage final : public WebPage {
public:
    OwnedPage(SimulatedScreens& screens, std::shared_ptr<Page> page) : screens_(screens), page_(std::move(page)) {}
    ~OwnedPage() override {
        page_->owned = false;
        screens_.takeAway(page_);
    }
    OwnedPage(const OwnedPage&) = delete;
    OwnedPage& operator=(const OwnedPage&) = delete;

    void load(const std::string& url) override {
        page_->url = url;
        tell(screens_.observer_.webPage, url);
        screens_.post(page_, &WebPageEvents::loadDidStart);
        screens_.post(page_, &WebPageEvents::loadDidEnd);
    }
    void dismiss() override { screens_.takeAway(page_); }
    void showActivity(bool shown) override { page_->isLoading = shown; }

private:
    SimulatedScreens& screens_;
    std::shared_ptr<Page> page_;
};

SimulatedScreens::SimulatedScreens(VirtualLoop& loop, const PhoneObserver& observer)
    : loop_(loop), observer_(observer) {}

SimulatedScreens::~SimulatedScreens() = default;

std::shared_ptr<Screen> SimulatedScreens::makeBusyScreen() {
    auto screen = std::make_shared<SimulatedScreen>();
    screen->present(std::make_shared<SimulatedScreen>());
    return screen;
}

bool SimulatedScreens::closeWebPage() {
    if (pages_.empty()) return false;
    post(pages_.back(), &WebPageEvents::closeRequested);
    return true;
}

bool SimulatedScreens::dismissWebPage() {
    if (pages_.empty()) return false;
    const auto page = pages_.back();
    takeAway(page);
    post(page, &WebPageEvents::dismissed);
    return true;
}

void SimulatedScreens::post(const std::shared_ptr<Page>& page, std::function<void()> WebPageEvents::*event) {
    loop_.post([page, event] {
        const auto told = page->events.*event;
        if (page->owned) tell(told);
    });
}

bool SimulatedScreens::isLoading() const {
    return !pages_.empty() && pages_.back()->isLoading;
}

std::string SimulatedScreens::shownURL() const {
    return pages_.empty() ? std::string() : pages_.back()->url;
}

std::unique_ptr<WebPage> SimulatedScreens::presentWebPage(const std::shared_ptr<Screen>& over, WebPageEvents events) {
    auto presenter = std::dynamic_pointer_cast<SimulatedScreen>(over);
    if (!presenter || presenter->presentedScreen()) return nullptr;
    auto container = std::make_shared<SimulatedScreen>(Screen::Kind::navigation);
    container->setVisibleChild(std::make_shared<SimulatedScreen>());
    presenter->present(std::move(container));
    auto page = std::make_shared<Page>(Page{std::move(presenter), std::move(events), {}});
    pages_.push_back(page);
    // At once, not in a later turn: the page is on show before what was asked for after it.
    tell(page->events.didAppear);
    return std::make_unique<OwnedPage>(*this, std::move(page));
}

void SimulatedScreens::presentAlert(const std::shared_ptr<Screen>& over, const std::string& title,
                                    const std::string& message, const std::string& /*button*/) {
    if (over) tell(observer_.alert, title, message);
}

void SimulatedScreens::takeAway(const std::shared_ptr<Page>& page) {
    if (std::erase(pages_, page) == 0) return;
    page->presenter->present(nullptr);
    if (page->owned) post(page, &WebPageEvents::didDisappear);
}

}  // namespace quomi::simulated
