#pragma once

#include <span>
#include <string_view>
#include <vector>

namespace quomi::simulated {

/// What one kind of record of a trace looks like.
struct RecordShape {
    std::string_view kind;   ///< the key that names the kind: "delegate"
    std::string_view value;  ///< the only value of that key; empty for any
    /// The fields beside time and kind, between blanks; a question mark behind those that may be left out.
    std::string_view fields;
};

struct RecordField {
    std::string_view name;
    bool mayBeMissing = false;
};

[[nodiscard]] std::vector<RecordField> fieldsOf(const RecordShape& shape);

/// All that a trace can hold (docs/traces.md). A kind with several values has a shape for each.
[[nodiscard]] std::span<const RecordShape> recordShapes();

}  // namespace quomi::simulated
