#include "quomi/util/error.h"

#include <fmt/format.h>

namespace quomi {

std::optional<std::string> Error::localizedDescription() const {
    const auto* value = userInfo.if_contains(kLocalizedDescriptionKey);
    if (value == nullptr || !value->is_string()) return std::nullopt;
    return std::string(value->get_string());
}

std::string describe(const Error& error) {
    return fmt::format("Error Domain={} Code={} \"{}\"", error.domain, error.code,
                       error.localizedDescription().value_or("(null)"));
}

}  // namespace quomi
