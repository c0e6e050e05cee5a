#include "tests/structure/rules.h"

#include "quomi/util/ascii.h"

#include <algorithm>
#include <map>
#include <set>
#include <string_view>

namespace quomi::test {

namespace {

/// From the ground up. A file includes only its own room and the floors below it.
const std::vector<std::vector<std::string_view>>& floors() {
    static const std::vector<std::vector<std::string_view>> all = {
        {"quomi/util"},
        {"quomi/platform"},
        {"quomi/diagnostics"},
        {"quomi/model"},
        {"quomi/beacons", "quomi/location"},
        {"quomi/data"},
        {"quomi/api"},
        {"quomi/rules"},
        {"quomi/sdk"},
        {"quomi/quomi.h"},
        {"hosts/posix"},
        {"hosts/simulated"},
        {"tools/quomi"},
    };
    return all;
}

constexpr std::string_view kNoFloor = "a room without a floor";

/// The room in which the file is; empty for those whose includes are free (tests, benchmarks, fuzzers).
std::string_view roomOf(std::string_view path) {
    for (const auto& floor : floors()) {
        for (const std::string_view room : floor) {
            if (path == room || (path.starts_with(room) && path[room.size()] == '/')) return room;
        }
    }
    const bool isBuiltFrom = path.starts_with("quomi/") || path.starts_with("hosts/") || path.starts_with("tools/");
    return isBuiltFrom ? kNoFloor : std::string_view();
}

std::size_t floorOf(std::string_view room) {
    const auto holds = [&](const auto& floor) { return std::ranges::find(floor, room) != floor.end(); };
    return static_cast<std::size_t>(std::ranges::find_if(floors(), holds) - floors().begin());
}

bool mayInclude(std::string_view from, std::string_view to) {
    if (from.empty()) return true;
    if (from == kNoFloor || to == kNoFloor || to.empty()) return false;
    return from == to || floorOf(to) < floorOf(from);
}

/// Where headers of a foreign library may be included; nowhere below quomi/, hosts/ and tools/ when there is no place.
struct Library {
    std::string_view header;  ///< its beginning
    std::vector<std::string_view> places;
};

const std::vector<Library>& libraries() {
    static const std::vector<Library> all = {
        {"SQLiteCpp/", {"quomi/data/", "tools/"}},
        {"sqlite3", {"quomi/data/", "tools/"}},
        {"curl/", {"quomi/api/"}},
        {"zlib", {"quomi/api/"}},
        {"re2/", {"quomi/util/"}},
        {"date/", {"quomi/util/", "hosts/", "tools/"}},
        {"GeographicLib/", {"quomi/location/", "hosts/", "tools/"}},
        {"CLI/", {"tools/"}},
        {"httplib", {"tools/"}},
        {"pugixml", {"hosts/simulated/gpx/", "tools/quomi/testing/"}},
        {"iostream", {"hosts/", "tools/"}},
        {"cstdio", {"hosts/", "tools/"}},
        {"stdio.h", {"hosts/", "tools/"}},
        {"clocale", {}},
        {"locale.h", {}},
        {"regex", {}},
        {"boost/json/src.hpp", {}},
    };
    return all;
}

constexpr std::string_view kForbiddenFunctions[] = {
    "abort",     "exit",    "_Exit",   "_exit",    "quick_exit", "terminate", "signal",
    "sigaction", "fork",    "vfork",   "system",   "setenv",     "unsetenv",  "putenv",
    "setlocale", "chdir",   "fchdir",  "umask",    "printf",     "fprintf",   "vprintf",
    "puts",      "fputs",   "putchar", "perror",   "snprintf",   "sprintf",   "strtod",
    "strtof",    "stod",    "stof",    "atof",     "isdigit",    "sscanf",    "curl_global_cleanup",
    "isalpha",   "isalnum", "isspace", "isxdigit", "tolower",    "toupper",   "sqlite3_shutdown",
};
constexpr std::string_view kForbiddenNames[] = {
    "std::cout", "std::cerr", "std::clog", "std::cin", "stdout", "stderr", "fmt::print", "std::regex", "std::locale",
};

bool isWordCharacter(char c) {
    return isLetterOrDigit(c) || c == '_';
}

bool endsWord(std::string_view code, std::size_t end) {
    return end >= code.size() || !isWordCharacter(code[end]);
}

/// A call of the plain function: not a member of something, not part of a longer name, not in a namespace of ours.
bool isCall(std::string_view code, std::size_t at, std::size_t length) {
    const std::string_view before = code.substr(0, at);
    const std::size_t open = code.find_first_not_of(" \n\t", at + length);
    if (open == std::string_view::npos || code[open] != '(') return false;
    if (before.empty() || before.ends_with("std::")) return true;
    if (before.ends_with("::")) return before.size() < 3 || !isWordCharacter(before[before.size() - 3]);
    return !isWordCharacter(before.back()) && before.back() != '.' && !before.ends_with("->");
}

bool isName(std::string_view code, std::size_t at, std::size_t length) {
    return (at == 0 || !isWordCharacter(code[at - 1])) && endsWord(code, at + length);
}

template <typename Matches>
void findInCode(const SourceFile& source, std::string_view text, Matches matches, std::vector<std::string>& findings) {
    const std::string_view code = source.code;
    for (std::size_t at = code.find(text); at != code.npos; at = code.find(text, at + 1)) {
        if (matches(code, at, text.size())) {
            findings.push_back(source.path + ":" + std::to_string(lineOf(code, at)) + ": " + std::string(text));
        }
    }
}

bool isOf(const Library& library, const Include& include) {
    if (!include.name.starts_with(library.header)) return false;
    const std::string_view rest = std::string_view(include.name).substr(library.header.size());
    return library.header.ends_with('/') || rest.empty() || rest.front() == '.';
}

std::string at(const SourceFile& source, const Include& include) {
    const std::string name = include.isQuoted ? '"' + include.name + '"' : '<' + include.name + '>';
    return source.path + ":" + std::to_string(include.line) + ": includes " + name;
}

/// Follows includes depth first and reports each one that leads back into the path walked.
class CycleFinder {
public:
    explicit CycleFinder(const std::vector<SourceFile>& sources) {
        for (const SourceFile& source : sources) files_[source.path] = &source;
    }

    std::vector<std::string> run() {
        for (const auto& [path, source] : files_) visit(path);
        return findings_;
    }

private:
    void visit(const std::string& path) {
        const auto file = files_.find(path);
        if (file == files_.end()) return;
        if (const auto begin = std::ranges::find(walked_, path); begin != walked_.end()) {
            std::string cycle;
            for (auto step = begin; step != walked_.end(); ++step) cycle += *step + " -> ";
            findings_.push_back("include cycle: " + cycle + path);
            return;
        }
        if (!done_.insert(path).second) return;
        walked_.push_back(path);
        for (const Include& include : file->second->includes) {
            if (include.isQuoted) visit(include.name);
        }
        walked_.pop_back();
    }

    std::map<std::string, const SourceFile*> files_;
    std::vector<std::string> walked_;
    std::set<std::string> done_;
    std::vector<std::string> findings_;
};

}  // namespace

std::vector<std::string> findIncludeCycles(const std::vector<SourceFile>& sources) {
    return CycleFinder(sources).run();
}

std::vector<std::string> findUnknownIncludes(const std::vector<SourceFile>& sources) {
    std::set<std::string_view> known;
    for (const SourceFile& source : sources) known.insert(source.path);
    std::vector<std::string> findings;
    for (const SourceFile& source : sources) {
        for (const Include& include : source.includes) {
            if (include.isQuoted && !known.contains(include.name)) {
                findings.push_back(at(source, include) + ", which is no file of the project");
            }
        }
    }
    return findings;
}

std::vector<std::string> findUpwardIncludes(const std::vector<SourceFile>& sources) {
    std::vector<std::string> findings;
    for (const SourceFile& source : sources) {
        const std::string_view from = roomOf(source.path);
        for (const Include& include : source.includes) {
            if (!include.isQuoted) continue;
            if (mayInclude(from, roomOf(include.name))) continue;
            findings.push_back(at(source, include) + ", which is not below " + std::string(from));
        }
    }
    return findings;
}

std::vector<std::string> findMisplacedLibraries(const std::vector<SourceFile>& sources) {
    std::vector<std::string> findings;
    for (const SourceFile& source : sources) {
        if (roomOf(source.path).empty()) continue;
        const auto isHere = [&](std::string_view place) { return source.path.starts_with(place); };
        for (const Include& include : source.includes) {
            const auto isMisplaced = [&](const Library& library) {
                return isOf(library, include) && !std::ranges::any_of(library.places, isHere);
            };
            if (std::ranges::any_of(libraries(), isMisplaced)) findings.push_back(at(source, include));
        }
    }
    return findings;
}

std::vector<std::string> findForbiddenCalls(const std::vector<SourceFile>& sources) {
    std::vector<std::string> findings;
    for (const SourceFile& source : sources) {
        if (!source.path.starts_with("quomi/")) continue;
        for (const std::string_view function : kForbiddenFunctions) findInCode(source, function, isCall, findings);
        for (const std::string_view name : kForbiddenNames) findInCode(source, name, isName, findings);
    }
    return findings;
}

std::vector<std::string> findUnguardedHeaders(const std::vector<SourceFile>& sources) {
    std::vector<std::string> findings;
    for (const SourceFile& source : sources) {
        const bool isGuarded = source.code.find("#pragma once\n") != std::string::npos;
        if (source.isHeader() && !isGuarded) findings.push_back(source.path + ": no #pragma once");
    }
    return findings;
}

}  // namespace quomi::test
