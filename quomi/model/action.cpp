#include "quomi/model/action.h"

#include "quomi/util/json_readers.h"

#include <utility>

#include <boost/json/object.hpp>

namespace quomi {

namespace {

constexpr const char* kTypeKey = "action_type";
constexpr const char* kParamKey = "action_param";

}  // namespace

QuomiAction QuomiAction::createFromDictionary(const boost::json::object& dictionary) {
    return {QuomiUtils::stringForKey(dictionary, kTypeKey, ""), QuomiUtils::stringForKey(dictionary, kParamKey, "")};
}

QuomiAction QuomiAction::createWithType(std::string type, std::string param) {
    return {std::move(type), std::move(param)};
}

boost::json::object QuomiAction::dictionary() const {
    return {{kTypeKey, type}, {kParamKey, param}};
}

}  // namespace quomi
