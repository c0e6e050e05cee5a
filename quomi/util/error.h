#pragma once

#include "quomi/util/export.h"

#include <cstdint>
#include <optional>
#include <string>

#include <boost/json/object.hpp>

namespace quomi {

/// Key of the user info under which an error's description stands.
inline constexpr const char* kLocalizedDescriptionKey = "NSLocalizedDescription";

/// Domain of errors that come from the HTTP transport: the code is the HTTP status of the answer, or 1 connection,
/// 2 timeout, 3 TLS, 4 an answer that is no JSON.
inline constexpr const char* kHTTPErrorDomain = "QuomiHTTPErrorDomain";

/// A failure, as a value: whose it is (`domain`), which (`code`) and what else is known of it (`userInfo`).
struct QUOMI_EXPORT Error {
    std::string domain;
    std::int64_t code = 0;
    boost::json::object userInfo;

    /// The text under `kLocalizedDescriptionKey`; empty when the error carries none.
    [[nodiscard]] std::optional<std::string> localizedDescription() const;

    bool operator==(const Error&) const = default;
};

/// One line for logs: "Error Domain=… Code=… \"…\"".
[[nodiscard]] QUOMI_EXPORT std::string describe(const Error& error);

/// Stores the error where the caller asked for it.
inline void assign(std::optional<Error>* slot, Error error) {
    if (slot != nullptr) *slot = std::move(error);
}

}  // namespace quomi
