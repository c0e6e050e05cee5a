#include "hosts/simulated/campaign/device_report.h"

#include "hosts/simulated/json/json_reader.h"
#include "hosts/simulated/json/json_writer.h"
#include "quomi/util/ascii.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

namespace quomi::simulated {
namespace json = boost::json;
namespace {

template <class T>
void text(const JsonNode& node, T&) {
    static_cast<void>(node.text());
}

/// Some phones have no value for it.
template <class T>
void textOrNull(const JsonNode& node, T&) {
    if (!node.isText() && !node.isNull()) node.fail("a text or null");
}

std::string nonEmptyText(const JsonNode& node) {
    std::string text = node.isText() ? node.text() : std::string();
    if (text.empty()) node.fail("a text that is not empty");
    return text;
}

// ---- one event

void eventUdid(const JsonNode& node, Received& event) {
    event.udid = nonEmptyText(node);
}

void eventDate(const JsonNode& node, Received& event) {
    const json::value date = node.raw();
    if (!node.isText() && !date.is_number()) return node.fail("a date, as text or number");
    event.date = node.isText() ? node.text() : jsonText(date);
}

void eventData(const JsonNode& node, Received& event) {
    if (!node.isObject()) return node.fail("an object");
    event.content = jsonText(node.raw());
}

constexpr Field<Received> kBatchedEvent[] = {{"date", eventDate, true}, {"data", eventData}};
constexpr Field<Received> kSingleEvent[] = {{"udid", eventUdid, true}, {"date", eventDate, true}, {"data", eventData}};

Received readEvent(const JsonNode& node, std::span<const Field<Received>> fields) {
    Received event;
    event.content = "null";
    readObject<Received>(node, fields, event);
    return event;
}

// ---- a batch of events

struct Batch {
    std::string udid;
    std::vector<Received> events;
};

void batchUdid(const JsonNode& node, Batch& batch) {
    batch.udid = nonEmptyText(node);
}

void batchLogs(const JsonNode& node, Batch& batch) {
    node.eachItem("an array", [&](const JsonNode& item) { batch.events.push_back(readEvent(item, kBatchedEvent)); });
}

constexpr Field<Batch> kBatch[] = {{"udid", batchUdid, true}, {"logs", batchLogs, true}};

// ---- a user

struct User {
    std::string udid;
    std::string namespaceUid;
    std::string content;
};

void userUdid(const JsonNode& node, User& user) {
    user.udid = nonEmptyText(node);
}
void userNamespace(const JsonNode& node, User& user) {
    user.namespaceUid = node.text();
}
void userProperties(const JsonNode& node, User&) {
    if (!node.isObject()) node.fail("an object");
}
void userTracking(const JsonNode& node, User&) {
    static_cast<void>(node.boolean());
}

constexpr Field<User> kUser[] = {
    {"udid", userUdid, true},
    {"properties", userProperties, true},
    {"u_application_uid", userNamespace, true},
    {"advertising_tracking_mode_enabled", userTracking, true},
    {"system_name", textOrNull<User>, true},
    {"system_version", textOrNull<User>, true},
    {"sdk_name", text<User>, true},
    {"sdk_version", text<User>, true},
    {"model", textOrNull<User>, true},
    {"language", textOrNull<User>, true},
    {"advertising_id", text<User>},
};

void userRecord(const JsonNode& node, User& user) {
    readObject<User>(node, kUser, user);
    user.content = jsonText(node.raw());
}

constexpr Field<User> kUserBody[] = {{"u_app_user", userRecord, true}};

// ---- a push token, a battery alert

/// Both have a namespace, and keep other texts of theirs as an object.
struct Notice {
    std::string udid;
    std::string namespaceUid;
    json::object content;
};

void noticeNamespace(const JsonNode& node, Notice& notice) {
    notice.namespaceUid = node.text();
}
void noticeUdid(const JsonNode& node, Notice& notice) {
    notice.udid = nonEmptyText(node);
}
void pushToken(const JsonNode& node, Notice& notice) {
    const std::string token = node.isText() ? node.text() : std::string();
    if (token.empty() || !std::ranges::all_of(token, isHexDigit))
        return node.refuse("expected a token as hexadecimal digits");
    notice.content["push_token"] = token;
}
void alertUuid(const JsonNode& node, Notice& notice) {
    notice.content["uuid"] = node.uuidText();
}
void alertServiceId(const JsonNode& node, Notice& notice) {
    notice.content["battery_service_id"] = nonEmptyText(node);
}

constexpr Field<Notice> kPushToken[] = {
    {"namespace", noticeNamespace, true}, {"udid", noticeUdid, true}, {"push_token", pushToken, true}};
constexpr Field<Notice> kBatteryAlert[] = {
    {"namespace", noticeNamespace, true}, {"uuid", alertUuid, true}, {"battery_service_id", alertServiceId, true}};

ReceivedBody readNotice(const JsonNode& node, ReceivedKind kind, std::span<const Field<Notice>> fields) {
    Notice notice;
    readObject<Notice>(node, fields, notice);
    Received entry{kind, {}, std::move(notice.udid), {}, jsonText(notice.content)};
    return {{std::move(entry)}, std::move(notice.namespaceUid)};
}

/// Parses, reads with `read(node)`, and gives what it gave unless there was a fault.
template <class Read>
std::optional<ReceivedBody> readBody(std::string_view text, WallTime at, std::string& fault, Read read) {
    JsonFaults faults;
    const std::optional<json::value> document = parseJson(text, faults);
    ReceivedBody body;
    if (document) body = read(JsonNode(&*document, "$", faults));
    if (const auto& first = faults.first()) {
        fault = fmt::format("{}: {}", first->path, first->message);
        return std::nullopt;
    }
    for (Received& entry : body.entries) entry.at = at;
    return body;
}

}  // namespace

const char* nameOf(ReceivedKind kind) {
    static constexpr const char* names[] = {"user", "event", "push token", "battery alert"};
    return names[static_cast<std::size_t>(kind)];
}

std::optional<ReceivedBody> readUserBody(std::string_view text, WallTime at, std::string& fault) {
    return readBody(text, at, fault, [](const JsonNode& node) {
        User user;
        readObject<User>(node, kUserBody, user);
        Received entry{ReceivedKind::user, {}, std::move(user.udid), {}, std::move(user.content)};
        return ReceivedBody{{std::move(entry)}, std::move(user.namespaceUid)};
    });
}

std::optional<ReceivedBody> readEventBody(std::string_view text, WallTime at, std::string& fault) {
    return readBody(text, at, fault, [](const JsonNode& node) {
        return ReceivedBody{{readEvent(node, kSingleEvent)}, {}};
    });
}

std::optional<ReceivedBody> readEventsBody(std::string_view text, WallTime at, std::string& fault) {
    return readBody(text, at, fault, [](const JsonNode& node) {
        Batch batch;
        readObject<Batch>(node, kBatch, batch);
        for (Received& event : batch.events) event.udid = batch.udid;
        return ReceivedBody{std::move(batch.events), {}};
    });
}

std::optional<ReceivedBody> readPushTokenBody(std::string_view text, WallTime at, std::string& fault) {
    return readBody(text, at, fault,
                    [](const JsonNode& node) { return readNotice(node, ReceivedKind::pushToken, kPushToken); });
}

std::optional<ReceivedBody> readBatteryAlertBody(std::string_view text, WallTime at, std::string& fault) {
    return readBody(text, at, fault,
                    [](const JsonNode& node) { return readNotice(node, ReceivedKind::batteryAlert, kBatteryAlert); });
}

}  // namespace quomi::simulated
