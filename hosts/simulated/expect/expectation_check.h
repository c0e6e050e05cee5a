#pragma once

#include "hosts/simulated/visit/visit.h"

#include <optional>

namespace quomi::simulated {

/// What is wrong with a visit's expectations, that only who knows its campaign and its recordings can tell: an
/// identifier that neither the campaign nor the visit knows, a name that no trace has, a window outside of the visit.
/// The first fault; nothing when all is well. `end` is when the visit's replay stops.
[[nodiscard]] std::optional<VisitError> faultOfExpectations(const Visit& visit, Duration end);

}  // namespace quomi::simulated
