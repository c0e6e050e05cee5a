#pragma once

#include <array>
#include <string>
#include <string_view>

namespace SQLite {
class Database;
}

namespace quomi {

/// How long a connection waits for a lock of another process.
inline constexpr int kLockPatienceMilliseconds = 250;

/// What SQLite may have beside a database file, and opens together with it.
inline constexpr std::array<std::string_view, 3> kSideFileSuffixes = {"-wal", "-shm", "-journal"};

/// Makes the connection safe for a file that somebody else may have written, as far as SQLite's own switches go:
/// nothing that the file's schema says runs more than plain arithmetic, no trigger and no CHECK runs at all, and no
/// statement writes to the schema itself. Before the first use of the file; throws what SQLite throws.
void distrust(SQLite::Database& database);

/// The name as SQL text takes it, whatever it holds.
[[nodiscard]] std::string quotedName(std::string_view name);

/// Whether a rollback journal that ends with these bytes names a file elsewhere, which SQLite would remove when it
/// rolls the journal back. No journal of ours does.
[[nodiscard]] bool namesAnotherFile(std::string_view endOfJournal);
/// How many bytes of its end that takes.
inline constexpr std::size_t kEndOfJournal = 8;

}  // namespace quomi
