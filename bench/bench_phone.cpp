#include "bench/bench_phone.h"

#include "hosts/simulated/scripted_transport.h"

#include <utility>

#include <boost/json/object.hpp>

namespace quomi::bench {

const Uuid kShopUuid = *Uuid::parse("5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B90");

namespace {

boost::json::object application() {
    return {{"success", true},
            {"namespace_uid", "shop"},
            {"normal_proximity_uuid", kShopUuid.string()},
            {"secure_proximity_uuid", "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B91"},
            {"service_proximity_uuid", "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B92"},
            {"anti_hacking_protocol", "none"}};
}

simulated::PhoneConfig inContainer(std::filesystem::path container) {
    simulated::PhoneConfig config;
    config.container = std::move(container);
    return config;
}

}  // namespace

BenchPhone::BenchPhone(std::filesystem::path container)
    : phone(inContainer(std::move(container))),
      settings(deployment, phone.platform().location),
      sdk(phone.platform(), settings) {
    phone.transport().setBaseURLs({"https://backoffice.test"});
    const auto done = simulated::ScriptedAnswer::json(boost::json::object{{"success", true}});
    phone.transport().answer("GET /u_applications/query.json", simulated::ScriptedAnswer::json(application()));
    phone.transport().answer("GET /u_applications/limits.json", done);
    phone.transport().answer("POST /u_app_users/find_or_create_by_udid.json", done);
    sdk.setBaseURL("https://backoffice.test");
    sdk.setAppNamespace("shop");
    sdk.setGeofencesEnabled(false);
    sdk.setEventLogsEnabled(false);
}

}  // namespace quomi::bench
