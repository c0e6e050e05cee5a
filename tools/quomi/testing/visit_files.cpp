#include "tools/quomi/testing/visit_files.h"

#include "quomi/util/json_readers.h"
#include "tools/quomi/timeline/terminal_text.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <system_error>

#include <fmt/format.h>

namespace quomi::tool {

namespace fs = std::filesystem;

namespace {

/// The JSON files below a folder, by name.
std::vector<fs::path> filesBelow(const fs::path& folder) {
    std::vector<fs::path> files;
    std::error_code error;
    const auto options = fs::directory_options::skip_permission_denied;
    for (fs::recursive_directory_iterator entry(folder, options, error), end; entry != end; entry.increment(error)) {
        const bool isHidden = entry->path().filename().string().starts_with('.');
        if (isHidden && entry->is_directory(error)) entry.disable_recursion_pending();
        if (!isHidden && entry->path().extension() == ".json" && entry->is_regular_file(error)) {
            files.push_back(entry->path());
        }
    }
    std::ranges::sort(files);
    return files;
}

/// Whether a file may be a visit with expectations, whole or not.
bool mayBeTest(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    const auto has = [&](const char* key) { return text.find(key) != std::string::npos; };
    return !stream || (has("\"visit\"") && (has("\"expect\"") || has("\"cases\"")));
}

/// Whether a file is sound JSON of some other kind.
bool isSomethingElse(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    const auto value = parseJson(std::string{std::istreambuf_iterator<char>(stream), {}});
    return value && !(value->is_object() && value->get_object().contains("visit"));
}

class Finder {
public:
    void look(const fs::path& path) {
        std::error_code error;
        if (fs::is_directory(path, error)) {
            for (const auto& file : filesBelow(path)) load(file);
        } else if (fs::is_regular_file(path, error)) {
            load(path);
        } else {
            found_.push_back(
                {path.string(), {}, neutralised(fmt::format("{}: $: expected a file or a folder", path.string()))});
        }
    }

    std::vector<FoundVisit> take() { return std::move(found_); }

private:
    void load(const fs::path& file) {
        std::error_code error;
        if (!mayBeTest(file) || !seen_.insert(fs::weakly_canonical(file, error)).second) return;
        simulated::VisitError why;
        auto visit = simulated::Visit::load(file, &why);
        if (!visit && isSomethingElse(file)) return;
        if (!visit) {
            found_.push_back({file.string(), {}, why.text()});
        } else if (!visit->expectations.empty() || !visit->cases.empty()) {
            found_.push_back({file.string(), std::move(visit), {}});
        }
    }

    std::set<fs::path> seen_;
    std::vector<FoundVisit> found_;
};

}  // namespace

std::vector<FoundVisit> findVisits(const std::vector<std::string>& paths) {
    Finder finder;
    for (const auto& path : paths) finder.look(path);
    return finder.take();
}

}  // namespace quomi::tool
