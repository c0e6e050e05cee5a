#include "hosts/simulated/visit/visit_steps.h"

#include <algorithm>
#include <tuple>

namespace quomi::simulated {
namespace {

bool isLater(const Occurrence& a, const Occurrence& b) {
    return std::tie(a.at, a.step) > std::tie(b.at, b.step);
}

}  // namespace

Duration Step::lastTime() const {
    return every ? at + (until - at) / *every * *every : at;
}

Occurrences::Occurrences(const std::vector<Step>& steps) : steps_(&steps) {
    heap_.reserve(steps.size());
    for (std::size_t i = 0; i < steps.size(); ++i) heap_.push_back({steps[i].at, i});
    std::ranges::make_heap(heap_, isLater);
}

std::optional<Occurrence> Occurrences::peek() const {
    if (heap_.empty()) return std::nullopt;
    return heap_.front();
}

std::optional<Occurrence> Occurrences::next() {
    if (heap_.empty()) return std::nullopt;
    std::ranges::pop_heap(heap_, isLater);
    const Occurrence taken = heap_.back();
    const Step& step = (*steps_)[taken.step];
    if (step.every && taken.at + *step.every <= step.until) {
        heap_.back().at += *step.every;
        std::ranges::push_heap(heap_, isLater);
    } else {
        heap_.pop_back();
    }
    return taken;
}

}  // namespace quomi::simulated
