#include "tools/quomi/inbox.h"

#include <algorithm>
#include <utility>

namespace quomi::tool {
namespace {

std::size_t sizeOf(const Received& entry) {
    return sizeof(Received) + entry.udid.size() + entry.date.size() + entry.content.size();
}

}  // namespace

void Inbox::keep(Received entry) {
    ++(entry.kind == ReceivedKind::user ? counts_.users : counts_.events);
    bytes_ += sizeOf(entry);
    entries_.push_back(std::move(entry));
    while (entries_.size() > bounds_.entries || bytes_ > bounds_.bytes) {
        bytes_ -= sizeOf(entries_.front());
        entries_.pop_front();
        ++counts_.dropped;
    }
}

void Inbox::add(std::vector<Received> entries) {
    const std::lock_guard lock(mutex_);
    for (Received& entry : entries) keep(std::move(entry));
}

std::vector<Received> Inbox::newest(std::size_t most) const {
    const std::lock_guard lock(mutex_);
    const std::size_t number = std::min(most, entries_.size());
    return {entries_.end() - static_cast<std::ptrdiff_t>(number), entries_.end()};
}

std::vector<Received> Inbox::all() const {
    const std::lock_guard lock(mutex_);
    return {entries_.begin(), entries_.end()};
}

Inbox::Counts Inbox::counts() const {
    const std::lock_guard lock(mutex_);
    return counts_;
}

}  // namespace quomi::tool
