#include "hosts/simulated/virtual_loop.h"

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <tuple>
#include <utility>
#include <vector>

namespace quomi::simulated {

namespace {

void runGuarded(const Task& task) {
    try {
        if (task) task();
    } catch (...) {
        // A task must not throw; the loop goes on all the same.
    }
}

/// `time + span`, at most the last moment there is.
MonotonicTime later(MonotonicTime time, Duration span) {
    const auto positive = std::max(span, Duration::zero());
    return positive > MonotonicTime::max() - time ? MonotonicTime::max() : time + positive;
}

}  // namespace

/// Everything that waits. Handles refer to it weakly, so that they may outlive the loop.
struct VirtualLoop::Events {
    struct Key {
        MonotonicTime time;
        Kind kind;
        std::uint64_t order;
        bool operator<(const Key& other) const {
            return std::tie(time, kind, order) < std::tie(other.time, other.kind, other.order);
        }
    };
    struct Event {
        Key key;
        Owner owner;
        Duration interval;  // not above zero: runs once
        Task task;
        bool waits = true;

        [[nodiscard]] bool isTurn() const { return key.kind == Kind::turn || key.kind == Kind::driversTurn; }
    };
    struct Posted {
        MonotonicTime time;
        Kind kind;
        Task task;
    };
    using Queue = std::map<Key, std::shared_ptr<Event>>;

    [[nodiscard]] Queue& queueOf(Owner owner) { return owner == Owner::app ? app : phone; }

    void insert(const std::shared_ptr<Event>& event) { queueOf(event->owner).emplace(event->key, event); }

    void remove(Event& event) {
        if (std::exchange(event.waits, false)) queueOf(event.owner).erase(event.key);
    }

    void takePosted() {
        std::vector<Posted> taken;
        {
            const std::lock_guard lock(mutex);
            taken.swap(posted);
        }
        for (auto& turn : taken) {
            insert(std::make_shared<Event>(
                Event{{turn.time, turn.kind, ++order}, Owner::app, Duration::zero(), std::move(turn.task)}));
        }
    }

    /// Takes the first of a queue away without running it. What its task owns may set or drop other events.
    void dropFirst(Queue& queue) {
        const auto event = queue.begin()->second;
        remove(*event);
        const auto dropped = std::exchange(event->task, nullptr);
    }

    [[nodiscard]] std::shared_ptr<Event> first(bool suspended) const {
        if (suspended || app.empty()) return phone.empty() ? nullptr : phone.begin()->second;
        if (phone.empty() || app.begin()->first < phone.begin()->first) return app.begin()->second;
        return phone.begin()->second;
    }

    Queue app;
    Queue phone;
    std::uint64_t order = 0;
    // Turns posted while a late event runs count as posted when it was due: what it causes comes before what came due
    // after it.
    std::optional<MonotonicTime> cause;

    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<Posted> posted;
};

class VirtualLoop::OwnedTimer final : public Timer {
public:
    OwnedTimer(const std::shared_ptr<Events>& events, std::shared_ptr<Events::Event> event)
        : events_(events), event_(std::move(event)) {}
    ~OwnedTimer() override {
        if (const auto events = events_.lock()) events->remove(*event_);
    }
    OwnedTimer(const OwnedTimer&) = delete;
    OwnedTimer& operator=(const OwnedTimer&) = delete;

private:
    std::weak_ptr<Events> events_;
    std::shared_ptr<Events::Event> event_;
};

VirtualLoop::VirtualLoop(WallTime start, std::string timeZone, std::size_t mostTurns)
    : hostThread_(std::this_thread::get_id()),
      start_(start),
      mostTurns_(mostTurns),
      zone_(std::move(timeZone)),
      events_(std::make_shared<Events>()) {}

VirtualLoop::~VirtualLoop() {
    clear();
}

bool VirtualLoop::runTurns() {
    return runUntil(monotonicNow());
}

std::optional<MonotonicTime> VirtualLoop::nextEvent() const {
    std::optional<MonotonicTime> next;
    if (!events_->phone.empty()) next = events_->phone.begin()->first.time;
    if (!suspended_) {
        // Turns lie before the events of their instant, and there are few of them between two calls of a driver.
        const auto found =
            std::ranges::find_if(events_->app, [](const auto& entry) { return !entry.second->isTurn(); });
        if (found != events_->app.end() && (!next || found->first.time < *next)) next = found->first.time;
    }
    return next ? std::optional(std::max(*next, monotonicNow())) : std::nullopt;
}

bool VirtualLoop::advanceTo(MonotonicTime time) {
    if (!runUntil(std::max(time, monotonicNow()))) return false;
    if (time > monotonicNow()) now_ = time.time_since_epoch().count();
    return true;
}

void VirtualLoop::suspend() {
    suspended_ = true;
}

void VirtualLoop::resume() {
    suspended_ = false;
}

void VirtualLoop::jumpWallClock(Seconds seconds) {
    jumps_ += toDuration(seconds).count();
}

void VirtualLoop::setTimeZone(std::string name) {
    const std::lock_guard lock(zoneMutex_);
    zone_ = std::move(name);
}

bool VirtualLoop::waitForPost(std::chrono::milliseconds atMost) {
    std::unique_lock lock(events_->mutex);
    return events_->arrived.wait_for(lock, atMost, [this] { return !events_->posted.empty(); });
}

void VirtualLoop::clear() {
    events_->takePosted();
    while (!events_->app.empty() || !events_->phone.empty()) {
        events_->dropFirst(events_->app.empty() ? events_->phone : events_->app);
        events_->takePosted();
    }
}

std::size_t VirtualLoop::pendingEvents() const {
    const auto turns = std::ranges::count_if(events_->app, [](const auto& entry) { return entry.second->isTurn(); });
    return events_->app.size() + events_->phone.size() - static_cast<std::size_t>(turns);
}

bool VirtualLoop::runUntil(MonotonicTime time) {
    if (depth_ == 0) turnsAtInstant_ = 0;
    while (runNext(time)) {
        if (++turnsAtInstant_ > mostTurns_) return false;
    }
    return true;
}

bool VirtualLoop::runNext(MonotonicTime limit) {
    const auto keepAlive = events_;
    keepAlive->takePosted();
    const auto event = keepAlive->first(suspended_);
    if (!event || event->key.time > limit) return false;
    keepAlive->remove(*event);
    const auto due = event->key.time;
    if (due > monotonicNow()) {
        now_ = due.time_since_epoch().count();
        turnsAtInstant_ = 0;
    }
    const bool repeats = event->interval > Duration::zero();
    if (repeats) {
        const auto beats = (monotonicNow() - due) / event->interval + 1;
        event->key.time = later(due, event->interval * beats);
        event->waits = true;
        keepAlive->insert(event);
    }
    const auto outer = std::exchange(keepAlive->cause, due);
    ++depth_;
    if (repeats) {
        runGuarded(event->task);
    } else {
        runGuarded(std::exchange(event->task, nullptr));
    }
    --depth_;
    keepAlive->cause = outer;
    return true;
}

std::unique_ptr<Timer> VirtualLoop::schedule(Owner owner, Kind kind, Duration delay, Duration interval, Task task) {
    auto event = std::make_shared<Events::Event>(
        Events::Event{{later(monotonicNow(), delay), kind, ++events_->order}, owner, interval, std::move(task)});
    events_->insert(event);
    return std::make_unique<OwnedTimer>(events_, std::move(event));
}

std::unique_ptr<Timer> VirtualLoop::scheduleAnswer(Duration delay, Task task) {
    return schedule(Owner::app, Kind::answer, delay, Duration::zero(), std::move(task));
}

std::unique_ptr<Timer> VirtualLoop::schedulePhoneTimer(Duration delay, Duration interval, Task task) {
    return schedule(Owner::phone, Kind::timer, delay, interval, std::move(task));
}

std::unique_ptr<Timer> VirtualLoop::scheduleOnce(Duration delay, Task task) {
    return schedule(Owner::app, Kind::timer, delay, Duration::zero(), std::move(task));
}

std::unique_ptr<Timer> VirtualLoop::scheduleRepeating(Duration interval, Task task) {
    const auto beat = std::max(interval, Duration(1));
    return schedule(Owner::app, Kind::timer, beat, beat, std::move(task));
}

WallTime VirtualLoop::now() const {
    return start_ + Duration(now_.load()) + Duration(jumps_.load());
}

MonotonicTime VirtualLoop::monotonicNow() const {
    return MonotonicTime(Duration(now_.load()));
}

std::string VirtualLoop::timeZone() const {
    const std::lock_guard lock(zoneMutex_);
    return zone_;
}

void VirtualLoop::post(Task task) {
    const bool isHost = isHostThread();
    const auto time = isHost ? events_->cause.value_or(monotonicNow()) : monotonicNow();
    const bool isDrivers = isHost && suspended_ && !events_->cause;
    {
        const std::lock_guard lock(events_->mutex);
        events_->posted.push_back({time, isDrivers ? Kind::driversTurn : Kind::turn, std::move(task)});
    }
    events_->arrived.notify_one();
}

bool VirtualLoop::runOneSource() {
    return isHostThread() && !suspended_ && runNext(monotonicNow());
}

}  // namespace quomi::simulated
