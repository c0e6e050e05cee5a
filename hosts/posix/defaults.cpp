#include "hosts/posix/defaults.h"

#include <exception>
#include <string>
#include <system_error>
#include <utility>

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>

namespace quomi::posix {

JsonDefaults::JsonDefaults(Files& files)
    : files_(files), path_(files.libraryDirectory() / "Preferences" / "defaults.json") {
    std::error_code error;
    boost::system::error_code broken;
    auto value = boost::json::parse(files_.read(path_, error).value_or("{}"), broken);
    if (!broken && value.is_object()) values_ = std::move(value.get_object());
}

std::optional<bool> JsonDefaults::boolForKey(const std::string& key) const {
    const auto* value = values_.if_contains(key);
    if (value == nullptr || !value->is_bool()) return std::nullopt;
    return value->get_bool();
}

void JsonDefaults::setBool(const std::string& key, bool value) try {
    values_[key] = value;
    write();
} catch (const std::exception&) {
    return;
}

void JsonDefaults::write() {
    std::error_code error;
    files_.createDirectories(path_.parent_path(), error);
    files_.replace(path_, boost::json::serialize(values_) + "\n", error);
}

}  // namespace quomi::posix
