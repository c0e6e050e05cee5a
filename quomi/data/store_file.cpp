#include "quomi/data/store_file.h"

#include <algorithm>
#include <unordered_map>
#include <utility>
#include <vector>

#include "quomi/core/errors.h"
#include "quomi/data/schema.h"
#include "quomi/platform/files.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <SQLiteCpp/Transaction.h>
#include <fmt/format.h>
#include <sqlite3.h>

namespace quomi {

namespace {

constexpr int kBusyTimeoutMilliseconds = 1000;

/// The file was read and is not a store of this version; everything else that fails is not its content's fault.
struct NotOurStore {};

bool meansForeignContent(int code) { return code == SQLITE_NOTADB || code == SQLITE_CORRUPT; }

std::vector<std::string> schemaStatements() {
    std::vector<std::string> statements;
    for (const auto& entity : currentSchema()) {
        auto own = createStatements(entity);
        std::move(own.begin(), own.end(), std::back_inserter(statements));
    }
    return statements;
}

void createTables(SQLite::Database& database) {
    SQLite::Transaction transaction(database);
    for (const auto& statement : schemaStatements()) database.exec(statement);
    transaction.commit();
}

/// The statements that made the file's tables and indices, in order of creation.
std::vector<std::string> statementsOf(const SQLite::Database& database) {
    std::vector<std::string> statements;
    SQLite::Statement query(database, "SELECT sql FROM sqlite_master WHERE sql IS NOT NULL ORDER BY rowid");
    while (query.executeStep()) statements.push_back(query.getColumn(0).getString());
    return statements;
}

void configure(SQLite::Database& database) {
    database.exec("PRAGMA journal_mode = WAL");
    database.exec("PRAGMA synchronous = NORMAL");
    database.exec("PRAGMA foreign_keys = ON");
}

std::unique_ptr<SQLite::Database> openDatabase(const std::filesystem::path& file) {
    auto database = std::make_unique<SQLite::Database>(file.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE,
                                                       kBusyTimeoutMilliseconds);
    const auto present = statementsOf(*database);
    if (!present.empty() && present != schemaStatements()) throw NotOurStore();
    configure(*database);
    if (present.empty()) createTables(*database);
    return database;
}

bool prepareDirectory(const std::filesystem::path& directory, Files& files, const QuomiErrors& errors,
                      std::optional<Error>* error) {
    std::error_code failure;
    const auto type = files.type(directory, failure);
    if (!failure && type == std::filesystem::file_type::directory) return true;
    if (!failure && type != std::filesystem::file_type::not_found) {
        assign(error, errors.errorWithCode(ErrorCode::directoryIsFile));
        return false;
    }
    if (!failure && files.createDirectories(directory, failure)) return true;
    assign(error, errors.errorWithCode(ErrorCode::storeOpening, failure.message()));
    return false;
}

/// SQLite makes its side files with the mode of the main one, so making that one private makes all of them private.
bool prepareFile(const std::filesystem::path& file, Files& files, const QuomiErrors& errors,
                 std::optional<Error>* error) {
    std::error_code failure;
    if (files.type(file, failure) != std::filesystem::file_type::not_found) return true;
    if (!failure && files.append(file, {}, failure)) return true;
    assign(error, errors.errorWithCode(ErrorCode::storeOpening, failure.message()));
    return false;
}

bool deleteStore(const std::filesystem::path& file, Files& files, const QuomiErrors& errors,
                 std::optional<Error>* error) {
    std::error_code failure;
    bool removed = true;
    for (const char* suffix : {"", "-wal", "-shm"}) removed = files.remove(file.string() + suffix, failure) && removed;
    if (!removed) assign(error, errors.errorWithCode(ErrorCode::storeDeletion));
    return removed;
}

}  // namespace

class StoreFile::Statements {
public:
    SQLite::Statement& prepared(SQLite::Database& database, const std::string& sql) {
        auto found = cache_.find(sql);
        if (found == cache_.end()) {
            found = cache_.emplace(sql, std::make_unique<SQLite::Statement>(database, sql)).first;
        }
        found->second->reset();
        found->second->clearBindings();
        return *found->second;
    }

    /// Ends what still reads, so that nothing holds a snapshot.
    void resetAll() {
        for (auto& entry : cache_) entry.second->tryReset();
    }

private:
    std::unordered_map<std::string, std::unique_ptr<SQLite::Statement>> cache_;
};

std::unique_ptr<StoreFile> StoreFile::open(const std::filesystem::path& file, bool allowDeletion, Files& files,
                                           const QuomiErrors& errors, std::optional<Error>* error) {
    if (!prepareDirectory(file.parent_path(), files, errors, error)) return nullptr;
    for (bool deleted = false;; deleted = true) {
        if (!prepareFile(file, files, errors, error)) return nullptr;
        try {
            return std::unique_ptr<StoreFile>(new StoreFile(openDatabase(file), errors));
        } catch (const NotOurStore&) {
        } catch (const SQLite::Exception& exception) {
            if (!meansForeignContent(exception.getErrorCode())) {
                assign(error, errors.errorWithCode(ErrorCode::storeOpening, exception.what()));
                return nullptr;
            }
        }
        if (!allowDeletion || deleted) {
            assign(error, errors.errorWithCode(ErrorCode::storeMigration));
            return nullptr;
        }
        if (!deleteStore(file, files, errors, error)) return nullptr;
    }
}

StoreFile::StoreFile(std::unique_ptr<SQLite::Database> database, const QuomiErrors& errors)
    : errors_(errors), database_(std::move(database)), statements_(std::make_unique<Statements>()) {}

StoreFile::~StoreFile() = default;

bool StoreFile::change(const std::function<void()>& work, std::optional<Error>* error) {
    return read(
        [this, &work] {
            SQLite::Transaction transaction(*database_, SQLite::TransactionBehavior::IMMEDIATE);
            work();
            statements_->resetAll();
            transaction.commit();
        },
        error);
}

bool StoreFile::read(const std::function<void()>& work, std::optional<Error>* error) const {
    bool done = false;
    try {
        work();
        done = true;
    } catch (const SQLite::Exception& exception) {
        assign(error, errors_.errorWithCode(ErrorCode::data, exception.what()));
    }
    statements_->resetAll();
    return done;
}

SQLite::Statement& StoreFile::statement(const std::string& sql) { return statements_->prepared(*database_, sql); }

}  // namespace quomi
