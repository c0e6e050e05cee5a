#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace quomi {

/// Undoes gzip piece by piece, into a text of bounded length. Internal to the transport.
class GzipInflater {
public:
    enum class Outcome { fine, tooLong, broken };

    GzipInflater();
    ~GzipInflater();
    GzipInflater(const GzipInflater&) = delete;
    GzipInflater& operator=(const GzipInflater&) = delete;

    /// Appends what the piece inflates to. The work is bounded by the piece and by `maxLength`, the longest that `text`
    /// may become.
    [[nodiscard]] Outcome add(std::string_view piece, std::string& text, std::uint64_t maxLength);
    /// Whether what came so far ends where gzip may end.
    [[nodiscard]] bool isComplete() const { return isComplete_; }

private:
    struct Stream;
    std::unique_ptr<Stream> stream_;  // null when there was no memory for it
    bool isComplete_ = false;
};

}  // namespace quomi
