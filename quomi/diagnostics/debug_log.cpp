#include "quomi/diagnostics/debug_log.h"

#include "quomi/platform/clock.h"
#include "quomi/platform/files.h"
#include "quomi/util/dates.h"

#include <exception>
#include <system_error>
#include <utility>

#include <fmt/format.h>

namespace quomi {

std::filesystem::path QuomiFileLogger::getLogFilePath() {
    auto path = files_.documentsDirectory() / kQuomiDebugLogFileName;
    std::error_code error;
    if (files_.type(path, error) != std::filesystem::file_type::not_found) return path;
    files_.createDirectories(files_.documentsDirectory(), error);
    files_.append(path, {}, error);  // replacing it would lose what another thread has logged meanwhile
    return path;
}

bool QuomiFileLogger::log(std::string_view string) {
    std::error_code error;
    return files_.append(getLogFilePath(), string, error);
}

std::optional<std::string> QuomiFileLogger::getFileLogContent() {
    std::error_code error;
    return files_.read(getLogFilePath(), error);
}

void QuomiFileLogger::clearLogFile() {
    std::error_code ignored;
    files_.remove(files_.documentsDirectory() / kQuomiDebugLogFileName, ignored);
}

DebugLog::DebugLog(Files& files, const Clock& clock, std::function<bool()> enabled)
    : file_(files), clock_(clock), enabled_(std::move(enabled)) {}

bool DebugLog::isEnabled() const try { return enabled_ && enabled_(); } catch (...) {
    return false;
}

void DebugLog::write(fmt::string_view format, fmt::format_args arguments) try {
    const std::string text = fmt::vformat(format, arguments);
    file_.log(fmt::format("{} - {}\n", QuomiUtils::descriptionOfDate(clock_.now()), text));
} catch (...) {  // a host's own formatter may throw anything
    return;
}

}  // namespace quomi
