#pragma once

#include "quomi/util/host_call.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace quomi {

/// An owned subscription to the changes of a value. Dropping it ends it, also from inside its own call; it may outlive
/// what it observes.
class Observation {
public:
    virtual ~Observation() = default;
};

/// Those who want to know when one value is set. One thread.
///
/// They are told in the order in which they began to observe, of every setting, also of one to the value that stood
/// before: whoever cares for changes alone compares. One that throws counts as one that did nothing.
template <class Value>
class Observers {
public:
    using Observer = std::function<void(const Value& oldValue, const Value& newValue)>;

    [[nodiscard]] std::unique_ptr<Observation> observe(Observer observer) {
        auto entry = std::make_shared<Observer>(std::move(observer));
        list_->push_back(entry);
        return std::make_unique<Entry>(list_, std::move(entry));
    }

    /// Tells everybody. An observer may end itself or others, who then hear nothing more, and this object as well: the
    /// caller looks whether it still lives.
    void tell(const Value& oldValue, const Value& newValue) const {
        const auto list = list_;
        const List told = *list;
        for (const auto& observer : told) {
            const bool observes = std::find(list->begin(), list->end(), observer) != list->end();
            if (observes) callHost(*observer, oldValue, newValue);
        }
    }

private:
    using List = std::vector<std::shared_ptr<Observer>>;

    class Entry final : public Observation {
    public:
        Entry(const std::shared_ptr<List>& list, std::shared_ptr<Observer> observer)
            : list_(list), observer_(std::move(observer)) {}
        ~Entry() override {
            if (const auto list = list_.lock()) std::erase(*list, observer_);
        }
        Entry(const Entry&) = delete;
        Entry& operator=(const Entry&) = delete;

    private:
        std::weak_ptr<List> list_;
        std::shared_ptr<Observer> observer_;
    };

    std::shared_ptr<List> list_ = std::make_shared<List>();
};

}  // namespace quomi
