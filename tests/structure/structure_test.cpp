#include "tests/structure/rules.h"
#include "tests/support/prelude.h"
#include "tests/support/temporary_directory.h"

namespace quomi::test {
namespace {

using Files = std::map<std::string, std::string>;

/// Writes a small tree and reads it back as the project's is read.
std::vector<SourceFile> treeOf(const Files& files) {
    const TemporaryDirectory root;
    for (const auto& [path, text] : files) {
        std::filesystem::create_directories((root.path() / path).parent_path());
        std::ofstream(root.path() / path, std::ios::binary) << text;
    }
    return readSources(root.path());
}

// The project itself.

class Project : public ::testing::Test {
protected:
    static const std::vector<SourceFile>& sources() {
        static const std::vector<SourceFile> all = readSources(QUOMI_SOURCE_DIR);
        return all;
    }
};

TEST_F(Project, IsReadAtAll) {
    std::map<std::string, int> headers;
    for (const SourceFile& source : sources()) {
        if (source.isHeader()) ++headers[source.path.substr(0, source.path.find('/'))];
    }
    for (const char* folder : {"quomi", "hosts", "tools", "tests"}) EXPECT_GT(headers[folder], 0) << folder;
}

TEST_F(Project, HasNoIncludeCycle) {
    EXPECT_THAT(findIncludeCycles(sources()), IsEmpty());
}

TEST_F(Project, IncludesItsFilesByTheirPathFromTheRoot) {
    EXPECT_THAT(findUnknownIncludes(sources()), IsEmpty());
}

TEST_F(Project, IncludesOnlyDownwards) {
    EXPECT_THAT(findUpwardIncludes(sources()), IsEmpty());
}

TEST_F(Project, KeepsLibrariesInTheirRooms) {
    EXPECT_THAT(findMisplacedLibraries(sources()), IsEmpty());
}

TEST_F(Project, CallsNothingThatALibraryMustNot) {
    EXPECT_THAT(findForbiddenCalls(sources()), IsEmpty());
}

TEST_F(Project, GuardsItsHeaders) {
    EXPECT_THAT(findUnguardedHeaders(sources()), IsEmpty());
}

// The checks, on trees with a fault.

TEST(StructureChecks, FindCycles) {
    const auto sources =
        treeOf({{"quomi/util/a.h", "#include \"quomi/util/b.h\"\n"},
                {"quomi/util/b.h", "#pragma once\n  #  include \"quomi/util/c.h\"\n"},
                {"quomi/util/c.h", "#include \"quomi/util/b.h\"\n"},
                {"quomi/util/self.h", "#include \"quomi/util/self.h\"\n"},
                {"quomi/util/both.h", "#include \"quomi/util/left.h\"\n#include \"quomi/util/right.h\"\n"},
                {"quomi/util/left.h", "#include \"quomi/util/down.h\"\n"},
                {"quomi/util/right.h", "#include \"quomi/util/down.h\"\n"},
                {"quomi/util/down.h", "// #include \"quomi/util/both.h\"\n"}});
    EXPECT_THAT(findIncludeCycles(sources),
                ElementsAre("include cycle: quomi/util/b.h -> quomi/util/c.h -> quomi/util/b.h",
                            "include cycle: quomi/util/self.h -> quomi/util/self.h"));
}

TEST(StructureChecks, FindIncludesThatAreNotWrittenFromTheRoot) {
    const auto sources =
        treeOf({{"quomi/util/a.h", ""},
                {"quomi/util/a.cpp", "#include <vector>\n#include \"a.h\"\n#include \"quomi/util/a.h\"\n"}});
    EXPECT_THAT(findUnknownIncludes(sources),
                ElementsAre("quomi/util/a.cpp:2: includes \"a.h\", which is no file of the project"));
}

TEST(StructureChecks, FindIncludesThatReachUp) {
    for (const auto& [from, to, isAllowed] : Table<std::string, std::string, bool>{
             {"quomi/util/a.h", "quomi/util/b.h", true},
             {"quomi/util/a.h", "quomi/platform/b.h", false},
             {"quomi/platform/a.cpp", "quomi/model/errors.h", false},
             {"quomi/model/settings.cpp", "quomi/model/user.h", true},
             {"quomi/model/settings.cpp", "quomi/sdk/sdk.h", false},
             {"quomi/sdk/authorization_watch.cpp", "quomi/location/b.h", true},
             {"quomi/diagnostics/debug_log.cpp", "quomi/sdk/authorization_watch.h", false},
             {"quomi/beacons/a.h", "quomi/location/b.h", false},
             {"quomi/rules/a.cpp", "quomi/data/b.h", true},
             {"quomi/data/a.cpp", "quomi/api/b.h", false},
             {"quomi/sdk/sdk.cpp", "hosts/posix/b.h", false},
             {"quomi/sdk/sdk.cpp", "quomi/quomi.h", false},
             {"quomi/new_room/a.h", "quomi/util/b.h", false},
             {"quomi/util/a.h", "tests/support/b.h", false},
             {"hosts/simulated/a.h", "hosts/posix/b.h", true},
             {"hosts/simulated/a.h", "tools/quomi/b.h", false},
             {"tests/sdk/a.cpp", "tools/quomi/b.h", true}}) {
        const auto findings = findUpwardIncludes(treeOf({{from, "\n#include \"" + to + "\"\n"}}));
        EXPECT_EQ(findings.size(), isAllowed ? 0U : 1U) << from << " includes " << to;
        if (!isAllowed) {
            EXPECT_THAT(findings, ElementsAre(HasSubstr(from + ":2: includes")));
        }
    }
}

TEST(StructureChecks, FindLibrariesOutsideTheirRooms) {
    for (const auto& [from, header, isAllowed] :
         Table<std::string, std::string, bool>{{"quomi/data/a.h", "SQLiteCpp/Database.h", true},
                                               {"quomi/sdk/a.h", "SQLiteCpp/Database.h", false},
                                               {"hosts/posix/a.h", "sqlite3.h", false},
                                               {"tools/quomi/a.h", "iostream", true},
                                               {"quomi/util/a.h", "iostream", false},
                                               {"tools/quomi/a.h", "regex", false},
                                               {"quomi/util/a.h", "regex.h", false},
                                               {"quomi/rules/a.h", "re2/re2.h", false},
                                               {"tests/api/a.h", "curl/curl.h", true},
                                               {"quomi/util/a.h", "ios", true}}) {
        const auto findings = findMisplacedLibraries(treeOf({{from, "#include <" + header + ">\n"}}));
        EXPECT_EQ(findings.empty(), isAllowed) << from << " includes " << header;
    }
}

TEST(StructureChecks, TellCallsFromWhatLooksLikeThem) {
    const std::pair<const char*, bool> cases[] = {
        {"std::exit(1);", true},
        {"return ::exit (1);", true},
        {"if (broken) abort\n();", true},
        {"auto x = 1'000; abort(); auto y = 'a';", true},
        {"auto quote = '\"'; abort(); auto other = '\"';", true},
        {"auto text = \"\\\"\"; abort(); text = \"\";", true},
        {"/* what */ abort(); // why", true},
        {"region.exit(1);", false},
        {"region->exit(1);", false},
        {"Region::exit(1);", false},
        {"willExit(1);", false},
        {"exitRegion(1);", false},
        {"const bool exit = true;", false},
        {"// abort();", false},
        {"/* abort();\n abort(); */", false},
        {"auto text = \"abort()\";", false},
        {"auto text = R\"x(\" abort() )\" abort() )x\";", false},
        {"fmt::format_to(out, 1);", false},
    };
    for (const auto& [code, isFound] : cases) {
        EXPECT_EQ(!findForbiddenCalls(treeOf({{"quomi/sdk/a.cpp", code}})).empty(), isFound) << code;
    }
}

TEST(StructureChecks, FindHeadersWithoutGuard) {
    const auto sources = treeOf({{"quomi/util/a.h", "// what it is\n#pragma once\n"},
                                 {"tests/util/b.h", "// #pragma once\n"},
                                 {"quomi/util/c.cpp", ""},
                                 {"docs/d.h", ""}});
    EXPECT_THAT(findUnguardedHeaders(sources), ElementsAre("tests/util/b.h: no #pragma once"));
}

}  // namespace
}  // namespace quomi::test
