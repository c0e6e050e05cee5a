#pragma once

#include "quomi/util/error.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace SQLite {
class Database;
}  // namespace SQLite

namespace quomi {

class Files;
class PreparedStatement;
class QuomiErrors;

/// The SQLite file under the store: one connection, prepared statements kept, changes in transactions.
///
/// A change is whole or not there, whenever the process is killed. A loss of power may cost the last changes but leaves
/// a sound file. The file is not trusted: nothing that a doctored one holds is run. A lock that another process holds
/// is waited for 250 ms; after a wait in vain nobody waits again before the lock was got once. One thread at a time.
class StoreFile {
public:
    /// Opens the file, making it and its directory when they are not there, and taking a store of an earlier version to
    /// the current one. Fails: 604 when a file stands where the directory belongs, 601 when the file is no store of any
    /// version, or one of a later version than this one knows, 603 with the reason when it cannot be read, written or
    /// locked or is no regular file. What is there stays untouched then, but
    /// for a store of an earlier version, which may have become one of a later. With `allowDeletion` the whole file is
    /// checked, and one that is damaged or no store of any version is deleted and made anew (602 when it cannot be
    /// deleted).
    [[nodiscard]] static std::unique_ptr<StoreFile> open(const std::filesystem::path& file, bool allowDeletion,
                                                         Files& files, const QuomiErrors& errors,
                                                         std::optional<Error>* error);
    ~StoreFile();
    StoreFile(const StoreFile&) = delete;
    StoreFile& operator=(const StoreFile&) = delete;

    /// Runs work on the file. False, with an error of code 600, when SQLite fails in it; the work throws nothing of its
    /// own. The operations below are for use inside.
    bool perform(const std::function<void()>& work, std::optional<Error>* error = nullptr) const;
    /// The prepared statement of the text, reset and without bindings.
    [[nodiscard]] PreparedStatement& statement(const std::string& sql);
    /// Begins a transaction unless one is open. Nobody else writes until it ends.
    void begin();
    [[nodiscard]] bool isInTransaction() const { return isInTransaction_; }
    /// Ends the open transaction, if there is one.
    void commit();
    /// A point to go back to, in the open transaction or without one.
    void openSavepoint();

    /// A number that is another one once the file has changed, whoever changed it, as this connection's latest
    /// statement found the file.
    [[nodiscard]] std::uint32_t version() const;

    /// Leaves nothing of removed rows in the file, its free pages and its log. Outside of transactions.
    bool wipeFreePages(std::optional<Error>* error = nullptr);

    /// Takes back what was done in the open transaction, or since the savepoint; nothing without one. Anywhere.
    void rollback() noexcept;
    void dropSavepoint() noexcept;

private:
    class Statements;
    void setPatience(bool isPatient) const noexcept;
    StoreFile(std::unique_ptr<SQLite::Database> database, const QuomiErrors& errors);

    const QuomiErrors& errors_;
    std::unique_ptr<SQLite::Database> database_;
    std::unique_ptr<Statements> statements_;  // after the database: they end first
    bool isInTransaction_ = false;
    bool isInSavepoint_ = false;
    mutable bool isPatient_ = true;
};

}  // namespace quomi
