#include "tools/quomi/store/store_command.h"

#include "quomi/data/schema_versions.h"
#include "tools/quomi/timeline/terminal_text.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <ostream>
#include <string_view>
#include <utility>

#include <CLI/CLI.hpp>
#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <SQLiteCpp/Transaction.h>
#include <fmt/format.h>

namespace quomi::tool {
namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 2;
constexpr double kSomeDay = 1.4e9;  // seconds since 1970

struct Options {
    int version = kCurrentVersionNumber;
    int rows = 10;
    std::string file;
};

bool hasOneRow(const Entity& entity) {
    return entity.name == "QuomiStatusInfo" || entity.name == "QuomiApplication";
}

/// Values of every shape, told by the attribute's place and the row; row numbers start at 1.
class Values {
public:
    Values(SQLite::Statement& insertion, int row) : insertion_(insertion), row_(row) {}

    void bind(const Attribute& attribute) {
        ++position_;
        const int seed = row_ * 31 + position_ * 7;
        if (attribute.optional && seed % 5 == 0) return;  // stays NULL
        bindValue(attribute, seed);
    }
    void bindOwner() { insertion_.bind(++position_, row_); }

private:
    void bindValue(const Attribute& attribute, int seed) {
        switch (attribute.type) {
            case AttributeType::integer16:
                return insertion_.bind(position_, seed % 7 == 0 ? -32768 : seed % 30000);
            case AttributeType::integer32:
                return insertion_.bind(position_, seed % 11 == 0 ? 2147483647 : seed * 1009);
            case AttributeType::boolean:
                return insertion_.bind(position_, seed % 2);
            case AttributeType::number:
                return insertion_.bind(position_, seed % 3);
            case AttributeType::real:
                return insertion_.bind(position_, seed / 8.0 - 40);
            case AttributeType::date:
                return insertion_.bind(position_, kSomeDay + seed * 0.125);
            case AttributeType::text:
                return insertion_.bind(position_, fmt::format("{} {} 'ä\"☃", attribute.name, row_));
            case AttributeType::history:
                return insertion_.bind(position_, seed % 2 == 0 ? "[]" : fmt::format("[{:.3f},{}.5]", kSomeDay, seed));
        }
    }

    SQLite::Statement& insertion_;
    int row_;
    int position_ = 0;
};

std::string insertionInto(const Entity& entity) {
    std::string columns;
    std::string places;
    const auto add = [&](std::string_view name) {
        columns += fmt::format("{}\"{}\"", columns.empty() ? "" : ", ", name);
        places += places.empty() ? "?" : ", ?";
    };
    for (const auto& attribute : entity.attributes) add(attribute.name);
    for (const auto& owner : entity.owners) add(owner.name);
    return fmt::format("INSERT INTO \"{}\" ({}) VALUES ({})", entity.name, columns, places);
}

void fill(SQLite::Database& database, const Entity& entity, int rows) {
    SQLite::Statement insertion(database, insertionInto(entity));
    for (int row = 1; row <= (hasOneRow(entity) ? std::min(rows, 1) : rows); ++row) {
        insertion.reset();
        insertion.clearBindings();
        Values values(insertion, row);
        for (const auto& attribute : entity.attributes) values.bind(attribute);
        for (std::size_t owner = 0; owner < entity.owners.size(); ++owner) values.bindOwner();
        insertion.exec();
    }
}

int makeStore(const Options& options, std::ostream& err) {
    if (std::filesystem::exists(options.file)) {
        err << fmt::format("quomi store: {} is there already\n", neutralised(options.file));
        return kUsage;
    }
    const auto& version = allVersions()[static_cast<std::size_t>(options.version - allVersions().front().number)];
    SQLite::Database database(options.file, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
    database.exec("PRAGMA journal_mode = WAL");
    SQLite::Transaction transaction(database);
    makeTables(database, version.entities, version.number);
    for (const auto& entity : version.entities) fill(database, entity, options.rows);
    transaction.commit();
    return 0;
}

int tellOfStore(const Options& options, std::ostream& out, std::ostream& err) {
    if (!std::filesystem::exists(options.file)) {
        err << fmt::format("quomi store: {}: no such file\n", neutralised(options.file));
        return kUsage;
    }
    // A log beside it stays as it is; without one, a connection that may write removes its own side files at the end.
    const bool hasLog = std::filesystem::exists(options.file + "-wal");
    const SQLite::Database database(options.file, hasLog ? SQLite::OPEN_READONLY : SQLite::OPEN_READWRITE);
    const SchemaVersion* version = findVersion(database);
    if (version == nullptr) {
        err << fmt::format("quomi store: {} is no store of any version\n", neutralised(options.file));
        return kUsage;
    }
    out << version->name << '\n';
    for (const auto& entity : version->entities) {
        SQLite::Statement query(database, fmt::format("SELECT count(*) FROM \"{}\"", entity.name));
        query.executeStep();
        out << fmt::format("  {:<30}{:>8}\n", entity.name, query.getColumn(0).getInt64());
    }
    return 0;
}

}  // namespace

int runStore(std::vector<std::string> args, std::ostream& out, std::ostream& err) {
    Options options;
    CLI::App app("Makes store files and looks into them.", "quomi store");
    app.require_subcommand(1);
    auto* make = app.add_subcommand("make", "Make a store of a version, filled with rows");
    make->add_option("--version", options.version, "The version's number")
        ->check(CLI::Range(allVersions().front().number, kCurrentVersionNumber))
        ->capture_default_str();
    make->add_option("--rows", options.rows, "Rows of each entity")
        ->check(CLI::Range(0, 1000000))
        ->capture_default_str();
    make->add_option("file", options.file, "The file to make")->required()->type_name("FILE.sqlite");
    auto* info = app.add_subcommand("info", "Tell a store's version and its rows");
    info->add_option("file", options.file, "The store")->required()->type_name("FILE.sqlite");
    std::ranges::reverse(args);  // as the library wants them
    try {
        app.parse(std::move(args));
        return make->parsed() ? makeStore(options, err) : tellOfStore(options, out, err);
    } catch (const CLI::CallForHelp&) {
        out << app.help();
        return 0;
    } catch (const CLI::ParseError& error) {
        err << "quomi store: " << neutralised(error.what()) << '\n';
        return kUsage;
    } catch (const SQLite::Exception& error) {
        err << fmt::format("quomi store: {}: {}\n", neutralised(options.file), error.what());
        return kFailed;
    }
}

}  // namespace quomi::tool
