#pragma once

// What the shop's back office answers, by path: one beacon at the door, whose rule welcomes and opens a page.

#include <map>
#include <string>

namespace shop {

inline const std::map<std::string, std::string> kBackOffice{
    {"/u_applications/query.json", R"({"success": true, "namespace_uid": "corner-shop",
        "normal_proximity_uuid": "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B90",
        "secure_proximity_uuid": "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B91",
        "service_proximity_uuid": "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B92", "anti_hacking_protocol": "none"})"},
    {"/u_applications/limits.json", R"({"success": true})"},
    {"/u_app_users/find_or_create_by_udid.json", R"({"success": true})"},
    {"/u_beacons/query.json", R"({"query_params": {}, "valid_until": "2099-01-01T00:00:00Z", "remove_ids": [],
        "u_beacons": [{"id": "door", "name": "Door", "proximity_uid": "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B90",
            "major": 1, "minor": 7, "start": "2020-01-01T00:00:00Z", "end": "2099-01-01T00:00:00Z",
            "updated_at": "2020-01-01T00:00:00Z",
            "rules_actions": [{"id": "welcome", "rule": {"trigger": "on_entry", "proximity": 1, "proximity_end": 3},
                "action": {"notify_user": "Welcome!", "open_url": "https://shop.example/"}}]}]})"},
};

}  // namespace shop
