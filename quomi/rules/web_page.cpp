#include "quomi/rules/web_page.h"

#include "quomi/platform/run_loop.h"
#include "quomi/platform/screens.h"

#include <algorithm>
#include <utility>

namespace quomi {

QuomiWebPageViewController::QuomiWebPageViewController(Private) {}

QuomiWebPageViewController::~QuomiWebPageViewController() = default;

std::shared_ptr<QuomiWebPageViewController> QuomiWebPageViewController::present(Screens& screens,
                                                                                const std::shared_ptr<Screen>& over,
                                                                                std::function<void()> didClose) {
    auto controller = std::make_shared<QuomiWebPageViewController>(Private());
    const auto event = [weak = std::weak_ptr(controller)](void (QuomiWebPageViewController::*told)()) {
        return [weak, told] {
            if (const auto shown = weak.lock()) ((*shown).*told)();
        };
    };
    WebPageEvents events;
    events.didAppear = event(&QuomiWebPageViewController::viewDidAppear);
    events.didDisappear = event(&QuomiWebPageViewController::viewDidDisappear);
    events.closeRequested = event(&QuomiWebPageViewController::closeModalView);
    events.dismissed = event(&QuomiWebPageViewController::wasDismissed);
    events.loadDidStart = event(&QuomiWebPageViewController::loadDidStart);
    events.loadDidEnd = event(&QuomiWebPageViewController::loadDidEnd);
    controller->didClose_ = std::move(didClose);
    controller->page_ = screens.presentWebPage(over, std::move(events));
    return controller->page_ != nullptr ? controller : nullptr;
}

void QuomiWebPageViewController::navigateToUrl(const std::string& url) {
    targetURL_ = url;
    if (viewDidAppear_) page_->load(*targetURL_);
}

void QuomiWebPageViewController::viewDidAppear() {
    viewDidAppear_ = true;
    if (targetURL_) page_->load(*targetURL_);
}

void QuomiWebPageViewController::viewDidDisappear() {
    viewDidAppear_ = false;
    targetURL_.reset();
    if (isClosing_) tellThatItClosed();
}

void QuomiWebPageViewController::wasDismissed() {
    tellThatItClosed();
}

void QuomiWebPageViewController::tellThatItClosed() {
    if (didClose_) std::exchange(didClose_, nullptr)();
}

void QuomiWebPageViewController::closeModalView() {
    isClosing_ = true;
    page_->dismiss();
}

void QuomiWebPageViewController::loadDidStart() {
    page_->showActivity(true);
}

void QuomiWebPageViewController::loadDidEnd() {
    page_->showActivity(false);
}

WebPagePresenter::WebPagePresenter(Screens& screens, RunLoop& runLoop) : screens_(screens), runLoop_(runLoop) {}

WebPagePresenter::~WebPagePresenter() = default;

bool WebPagePresenter::present(const std::shared_ptr<Screen>& over, const std::string& url) {
    // A closed page goes in a later turn: one of its own functions says that it was closed.
    const auto closed = std::make_shared<std::weak_ptr<QuomiWebPageViewController>>();
    const auto page = QuomiWebPageViewController::present(
        screens_, over, [&runLoop = runLoop_, closed, weakPages = std::weak_ptr(pages_)] {
            runLoop.post([closed, weakPages] {
                if (const auto pages = weakPages.lock()) std::erase(*pages, closed->lock());
            });
        });
    if (page == nullptr) return false;
    *closed = page;
    pages_->push_back(page);
    page->navigateToUrl(url);
    return true;
}

}  // namespace quomi
