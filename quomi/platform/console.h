#pragma once

#include <string_view>

namespace quomi {

/// Port: the system log, the SDK's only way to say something outside its own files. Any thread.
class Console {
public:
    virtual ~Console() = default;
    /// One message, without a line break at its end.
    virtual void log(std::string_view message) = 0;
};

}  // namespace quomi
