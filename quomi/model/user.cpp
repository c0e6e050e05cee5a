#include "quomi/model/user.h"

#include "quomi/platform/device.h"
#include "quomi/platform/device_helpers.h"
#include "quomi/util/json_readers.h"

#include <functional>
#include <utility>

namespace quomi {

namespace {

template <class Value>
void replace(Value& field, Value value, const Observers<Value>& observers) {
    const Value newValue = value;
    const Value oldValue = std::exchange(field, std::move(value));
    observers.tell(oldValue, newValue);
}

}  // namespace

QuomiUser::QuomiUser(UserID userID, Properties properties, Tags tags)
    : userID_(std::move(userID)), properties_(std::move(properties)), tags_(std::move(tags)) {}

QuomiUser::QuomiUser(const QuomiUser& other) : QuomiUser(other.userID_, other.properties_, other.tags_) {}

void QuomiUser::setUserID(UserID userID) {
    replace(userID_, std::move(userID), userIDObservers_);
}

void QuomiUser::setProperties(Properties properties) {
    replace(properties_, std::move(properties), propertiesObservers_);
}

void QuomiUser::setTags(Tags tags) {
    replace(tags_, std::move(tags), tagsObservers_);
}

std::unique_ptr<Observation> QuomiUser::observeUserID(Observers<UserID>::Observer observer) {
    return userIDObservers_.observe(std::move(observer));
}

std::unique_ptr<Observation> QuomiUser::observeProperties(Observers<Properties>::Observer observer) {
    return propertiesObservers_.observe(std::move(observer));
}

std::unique_ptr<Observation> QuomiUser::observeTags(Observers<Tags>::Observer observer) {
    return tagsObservers_.observe(std::move(observer));
}

bool QuomiUser::isEqualToQuomiUser(const QuomiUser& other) const {
    return userID_ == other.userID_ && areEqual(properties_, other.properties_) && tags_ == other.tags_;
}

bool QuomiUser::areEqual(const Properties& a, const Properties& b) {
    return a && b ? quomi::areEqual(*a, *b) : a.has_value() == b.has_value();
}

std::size_t QuomiUser::hash() const {
    // Dictionaries are equal in any order, so their number of entries stands for them, as it does for arrays.
    const std::size_t ofID = userID_ ? std::hash<std::string>()(*userID_) : 0;
    const std::size_t ofProperties = properties_ ? properties_->size() : 0;
    const std::size_t ofTags = tags_ ? tags_->size() : 0;
    return ofID ^ ofProperties ^ ofTags;
}

std::string QuomiUser::quomiUserID(const Device& device) {
    return QuomiUDID::udid(device);
}

std::optional<std::string> QuomiUser::idfa(const Device& device) {
    return device.advertisingIdentifier();
}

}  // namespace quomi
