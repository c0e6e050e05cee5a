#include "quomi/data/store_file.h"

#include "quomi/data/migration.h"
#include "quomi/data/prepared_statement.h"
#include "quomi/data/schema.h"
#include "quomi/data/schema_versions.h"
#include "quomi/data/untrusted_file.h"
#include "quomi/model/errors.h"
#include "quomi/platform/files.h"

#include <algorithm>
#include <sqlite3.h>
#include <system_error>
#include <unordered_map>
#include <utility>
#include <vector>

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <SQLiteCpp/Transaction.h>
#include <fmt/format.h>

namespace quomi {

namespace {

/// The file was read and is not a store of any version; everything else that fails is not its content's fault.
struct NotOurStore {
    std::optional<std::string> reason = std::nullopt;
};

/// Statements of ours fail with these only on a schema, or on rows, that no version of ours has written.
bool meansForeignContent(int code) {
    return code == SQLITE_NOTADB || code == SQLITE_CORRUPT || code == SQLITE_ERROR || code == SQLITE_CONSTRAINT ||
           code == SQLITE_MISMATCH || code == SQLITE_TOOBIG;
}

std::vector<std::string> schemaStatements() {
    std::vector<std::string> statements;
    for (const auto& entity : currentSchema()) {
        auto own = createStatements(entity);
        std::move(own.begin(), own.end(), std::back_inserter(statements));
    }
    return statements;
}

void createTables(SQLite::Database& database) {
    SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
    // Another process of the app may have been faster.
    if (database.execAndGet("SELECT COUNT(*) FROM sqlite_master").getInt() > 0) return;
    makeTables(database, currentSchema(), kCurrentVersionNumber);
    transaction.commit();
}

/// The statements that made the file's tables and indices, in order of creation, and the file's mark.
struct Contents {
    std::vector<std::string> statements;
    int mark = 0;
};

/// One query, because every opening pays for it.
Contents contentsOf(const SQLite::Database& database) {
    Contents contents;
    SQLite::Statement query(database,
                            "SELECT sql, (SELECT user_version FROM pragma_user_version) FROM sqlite_master"
                            " WHERE sql IS NOT NULL ORDER BY rowid");
    while (query.executeStep()) {
        contents.statements.push_back(query.getColumn(0).getString());
        contents.mark = query.getColumn(1).getInt();
    }
    return contents;
}

std::vector<std::string> indexStatements(std::vector<std::string> statements) {
    std::erase_if(statements, [](const std::string& text) { return text.starts_with("CREATE TABLE"); });
    std::ranges::sort(statements);
    return statements;
}

/// Gives a store of the current version that was made with other indices, or without a mark, those of now.
void renewIndices(SQLite::Database& database, const Contents& contents) {
    const auto wanted = indexStatements(schemaStatements());
    if (contents.mark == kCurrentVersionNumber && indexStatements(contents.statements) == wanted) return;
    std::vector<std::string> names;
    SQLite::Statement query(database, "SELECT name FROM sqlite_master WHERE type = 'index' AND sql IS NOT NULL");
    while (query.executeStep()) names.push_back(query.getColumn(0).getString());
    query.reset();
    SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
    for (const auto& name : names) database.exec("DROP INDEX " + quotedName(name));
    for (const auto& statement : wanted) database.exec(statement);
    database.exec(fmt::format("PRAGMA user_version = {}", kCurrentVersionNumber));
    transaction.commit();
}

/// Whether closing the last connection leaves the write-ahead log as it is instead of taking it into the file.
void keepLog(SQLite::Database& database, bool keep) {
    sqlite3_db_config(database.getHandle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, keep ? 1 : 0, nullptr);
}

bool isReadOnly(const SQLite::Database& database) {
    return sqlite3_db_readonly(database.getHandle(), "main") == 1;
}

void configure(SQLite::Database& database) {
    database.exec("PRAGMA journal_mode = WAL");
    database.exec("PRAGMA synchronous = NORMAL");
    database.exec("PRAGMA foreign_keys = ON");
}

enum class Found { nothing, earlierVersion, currentVersion, currentAsMadeNow };

bool isOfLaterVersion(const Contents& contents) {
    return contents.mark > kCurrentVersionNumber && std::ranges::any_of(contents.statements, [](const auto& statement) {
               return statement.starts_with("CREATE TABLE \"QuomiStatusInfo\"");
           });
}

Found lookAt(const SQLite::Database& database, const Contents& contents) {
    if (contents.statements.empty()) return Found::nothing;
    if (isOfLaterVersion(contents)) throw NotOurStore{"The store was made by a later version"};
    if (contents.mark == kCurrentVersionNumber && contents.statements == schemaStatements()) {
        return Found::currentAsMadeNow;
    }
    const SchemaVersion* version = findVersion(database);
    if (version == nullptr) throw NotOurStore();
    return version->number == kCurrentVersionNumber ? Found::currentVersion : Found::earlierVersion;
}

/// The connection to a store of the current version, made where there was nothing; null when it is of an earlier one.
std::unique_ptr<SQLite::Database> openDatabase(const std::filesystem::path& file, const Files& files) {
    // One thread at a time uses the connection, so that SQLite need not lock it at every call.
    const int flags = SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE | SQLite::OPEN_NOMUTEX;
    auto database = std::make_unique<SQLite::Database>(file.string(), flags, kLockPatienceMilliseconds);
    distrust(*database);
    std::error_code ignored;
    const auto endOfJournal = files.readTail(file.string() + "-journal", kEndOfJournal, ignored);
    if (endOfJournal && namesAnotherFile(*endOfJournal)) throw NotOurStore();
    keepLog(*database, files.size(file.string() + "-wal", ignored).value_or(0) > 0);  // it may be someone else's
    const auto contents = contentsOf(*database);
    const Found found = lookAt(*database, contents);
    // SQLite opens for reading what it may not write, and would fail no earlier than at the first change.
    if (isReadOnly(*database)) throw SQLite::Exception("the file cannot be written", SQLITE_READONLY);
    keepLog(*database, false);
    if (found == Found::earlierVersion) return nullptr;
    configure(*database);
    if (found == Found::nothing) createTables(*database);
    if (found == Found::currentVersion) renewIndices(*database, contents);
    return database;
}

/// The same after as many steps of migration as it takes.
std::unique_ptr<SQLite::Database> openOrMigrate(const std::filesystem::path& file, Files& files) {
    auto database = openDatabase(file, files);
    while (database == nullptr) {
        migrateOneStep(file, files);
        database = openDatabase(file, files);
    }
    removeMigrationLeftovers(file, files);
    return database;
}

bool isSound(SQLite::Database& database) {
    return database.execAndGet("PRAGMA quick_check(1)").getString() == "ok";
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

/// Whether there is a regular file; 603 when anything else stands there: opening that might wait for ever.
std::optional<bool> hasFile(const std::filesystem::path& file, const Files& files, const QuomiErrors& errors,
                            std::optional<Error>* error) {
    std::error_code failure;
    const auto type = files.type(file, failure);
    if (!failure && type == std::filesystem::file_type::regular) return true;
    if (!failure && type == std::filesystem::file_type::not_found) return false;
    const auto reason = failure ? failure.message() : fmt::format("{} is not a file", file.filename().string());
    assign(error, errors.errorWithCode(ErrorCode::storeOpening, reason));
    return std::nullopt;
}

/// SQLite makes its side files with the mode of the main one, so making that one private makes all of them private.
bool prepareFile(const std::filesystem::path& file, Files& files, const QuomiErrors& errors,
                 std::optional<Error>* error) {
    for (const auto suffix : kSideFileSuffixes) {
        if (!hasFile(file.string() + std::string(suffix), files, errors, error)) return false;
    }
    const auto isThere = hasFile(file, files, errors, error);
    if (!isThere || *isThere) return isThere.has_value();
    std::error_code failure;
    if (files.append(file, {}, failure)) return true;
    assign(error, errors.errorWithCode(ErrorCode::storeOpening, failure.message()));
    return false;
}

bool deleteStore(const std::filesystem::path& file, Files& files, const QuomiErrors& errors,
                 std::optional<Error>* error) {
    std::error_code failure;
    bool removed = files.remove(file, failure);
    for (const auto suffix : kSideFileSuffixes) {
        removed = files.remove(file.string() + std::string(suffix), failure) && removed;
    }
    if (!removed) assign(error, errors.errorWithCode(ErrorCode::storeDeletion));
    return removed;
}

}  // namespace

class StoreFile::Statements {
public:
    PreparedStatement& prepared(SQLite::Database& database, const std::string& sql) {
        auto found = cache_.find(sql);
        if (found == cache_.end()) {
            found = cache_.emplace(sql, std::make_unique<PreparedStatement>(database.getHandle(), sql)).first;
        }
        found->second->clear();
        return *found->second;
    }

    /// Ends what still reads, so that nothing holds a snapshot.
    void resetAll() noexcept {
        for (auto& entry : cache_) entry.second->reset();
    }

private:
    std::unordered_map<std::string, std::unique_ptr<PreparedStatement>> cache_;
};

std::unique_ptr<StoreFile> StoreFile::open(const std::filesystem::path& file, bool allowDeletion, Files& files,
                                           const QuomiErrors& errors, std::optional<Error>* error) {
    if (!prepareDirectory(file.parent_path(), files, errors, error)) return nullptr;
    for (bool deleted = false;; deleted = true) {
        if (!prepareFile(file, files, errors, error)) return nullptr;
        std::optional<std::string> reason;
        try {
            auto database = openOrMigrate(file, files);
            if (allowDeletion && !isSound(*database)) throw NotOurStore();
            return std::unique_ptr<StoreFile>(new StoreFile(std::move(database), errors));
        } catch (const NotOurStore& foreign) {
            reason = foreign.reason;
        } catch (const SQLite::Exception& exception) {
            if (!meansForeignContent(exception.getErrorCode())) {
                assign(error, errors.errorWithCode(ErrorCode::storeOpening, exception.what()));
                return nullptr;
            }
        } catch (const std::system_error& failure) {
            assign(error, errors.errorWithCode(ErrorCode::storeOpening, failure.what()));
            return nullptr;
        }
        if (!allowDeletion || deleted) {
            assign(error, reason ? errors.errorWithCode(ErrorCode::storeMigration, *reason)
                                 : errors.errorWithCode(ErrorCode::storeMigration));
            return nullptr;
        }
        if (!deleteStore(file, files, errors, error)) return nullptr;
    }
}

StoreFile::StoreFile(std::unique_ptr<SQLite::Database> database, const QuomiErrors& errors)
    : errors_(errors), database_(std::move(database)), statements_(std::make_unique<Statements>()) {}

StoreFile::~StoreFile() = default;

bool StoreFile::perform(const std::function<void()>& work, std::optional<Error>* error) const {
    try {
        work();
        return true;
    } catch (const SQLite::Exception& exception) {
        if (exception.getErrorCode() == SQLITE_BUSY) setPatience(false);
        assign(error, errors_.errorWithCode(ErrorCode::data, exception.what()));
    }
    statements_->resetAll();
    return false;
}

void StoreFile::setPatience(bool isPatient) const noexcept {
    if (std::exchange(isPatient_, isPatient) == isPatient) return;
    sqlite3_busy_timeout(database_->getHandle(), isPatient ? kLockPatienceMilliseconds : 0);
}

bool StoreFile::wipeFreePages(std::optional<Error>* error) {
    return perform(
        [this] {
            statements_->resetAll();
            database_->exec("VACUUM");
            SQLite::Statement checkpoint(*database_, "PRAGMA wal_checkpoint(TRUNCATE)");
            const bool isBusy = !checkpoint.executeStep() || checkpoint.getColumn(0).getInt() != 0;
            if (isBusy) throw SQLite::Exception("the log is in use", SQLITE_BUSY);
        },
        error);
}

std::uint32_t StoreFile::version() const {
    unsigned version = 0;
    sqlite3_file_control(database_->getHandle(), "main", SQLITE_FCNTL_DATA_VERSION, &version);
    return version;
}

void StoreFile::begin() {
    if (isInTransaction_) return;
    statement("BEGIN IMMEDIATE").exec();
    isInTransaction_ = true;
    setPatience(true);
}

void StoreFile::commit() {
    if (!isInTransaction_) return;
    statement("COMMIT").exec();
    isInTransaction_ = false;
}

void StoreFile::openSavepoint() {
    statement("SAVEPOINT overlay").exec();
    isInSavepoint_ = true;
}

void StoreFile::rollback() noexcept {
    if (!std::exchange(isInTransaction_, false)) return;
    statements_->resetAll();
    static_cast<void>(database_->tryExec("ROLLBACK"));  // SQLite may have done it already
}

void StoreFile::dropSavepoint() noexcept {
    if (!std::exchange(isInSavepoint_, false)) return;
    statements_->resetAll();
    static_cast<void>(database_->tryExec("ROLLBACK TO overlay; RELEASE overlay"));
}

PreparedStatement& StoreFile::statement(const std::string& sql) {
    return statements_->prepared(*database_, sql);
}

}  // namespace quomi
