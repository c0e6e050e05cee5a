#include "tools/quomi/backoffice/inbox.h"

#include "hosts/posix/files.h"
#include "quomi/data/untrusted_file.h"
#include "quomi/util/dates.h"
#include "quomi/util/error.h"

#include <algorithm>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <SQLiteCpp/Transaction.h>
#include <boost/json/object.hpp>
#include <fmt/format.h>

namespace quomi::tool {
namespace {

constexpr int kBusyTimeoutMilliseconds = 1000;
constexpr std::int64_t kApplicationId = 0x51426F78;  // "QBox"; it tells an inbox from other databases
constexpr std::int64_t kVersion = 1;

constexpr const char* kOther = "the inbox of a back office, found another database";

/// The kinds as the file has them, in the order of the enumerators: the names stay, or files no longer read.
constexpr const char* kKinds[] = {"user", "event", "push token", "battery alert"};

constexpr const char* kSchema = R"sql(
CREATE TABLE received (
    number INTEGER PRIMARY KEY AUTOINCREMENT,
    kind TEXT NOT NULL, received_at TEXT NOT NULL, udid TEXT NOT NULL, date TEXT NOT NULL, content TEXT NOT NULL,
    bytes INTEGER NOT NULL);
CREATE TABLE totals (
    users INTEGER NOT NULL, events INTEGER NOT NULL, push_tokens INTEGER NOT NULL, battery_alerts INTEGER NOT NULL,
    dropped INTEGER NOT NULL, kept INTEGER NOT NULL, kept_bytes INTEGER NOT NULL);
INSERT INTO totals VALUES (0, 0, 0, 0, 0, 0, 0);
CREATE VIEW users AS
    SELECT number, received_at, udid, content AS record FROM received WHERE kind = 'user';
CREATE VIEW events AS
    SELECT number, received_at, udid, date, content AS data FROM received WHERE kind = 'event';
CREATE VIEW push_tokens AS
    SELECT number, received_at, udid, json_extract(content, '$.push_token') AS push_token
    FROM received WHERE kind = 'push token';
CREATE VIEW battery_alerts AS
    SELECT number, received_at, json_extract(content, '$.uuid') AS uuid,
        json_extract(content, '$.battery_service_id') AS battery_service_id
    FROM received WHERE kind = 'battery alert';
)sql";

std::size_t sizeOf(const Received& entry) {
    return sizeof(Received) + entry.udid.size() + entry.date.size() + entry.content.size();
}

std::int64_t asColumn(std::size_t number) {
    return static_cast<std::int64_t>(
        std::min(number, static_cast<std::size_t>(std::numeric_limits<std::int64_t>::max())));
}

ReceivedKind kindNamed(std::string_view name) {
    const auto at = std::ranges::find(kKinds, name);
    return at == std::end(kKinds) ? ReceivedKind::event : static_cast<ReceivedKind>(at - std::begin(kKinds));
}

Received entryOf(SQLite::Statement& row) {
    return {kindNamed(row.getColumn(0).getString()),
            QuomiUtils::isoDate(row.getColumn(1).getString()).value_or(WallTime()), row.getColumn(2).getString(),
            row.getColumn(3).getString(), row.getColumn(4).getString()};
}

enum class FileState { none, ours, open };

/// Makes the file, private, where there is none. `open` is one that others may read or write.
FileState made(const std::string& path) {
    const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (file >= 0) ::close(file);
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return FileState::none;
    return (status.st_mode & 07777U) == (S_IRUSR | S_IWUSR) ? FileState::ours : FileState::open;
}

/// SQLite makes its side files with the mode of the main one; those of a process that was killed may still be there.
bool makePrivate(const std::string& path) {
    for (const char* suffix : {"-wal", "-shm"}) ::chmod((path + suffix).c_str(), S_IRUSR | S_IWUSR);
    return ::chmod(path.c_str(), S_IRUSR | S_IWUSR) == 0;
}

/// Whether SQLite can open what lies beside the file without waiting for anybody and without touching other files.
bool hasHarmlessSideFiles(const std::string& path) {
    const posix::PosixFiles files({});
    std::error_code failure;
    const auto isHarmless = [&](std::string_view suffix) {
        const auto type = files.type(path + std::string(suffix), failure);
        return type == std::filesystem::file_type::not_found || type == std::filesystem::file_type::regular;
    };
    return std::ranges::all_of(kSideFileSuffixes, isHarmless) &&
           !namesAnotherFile(files.readTail(path + "-journal", kEndOfJournal, failure).value_or(""));
}

std::int64_t pragma(SQLite::Database& database, const char* name) {
    return database.execAndGet(fmt::format("PRAGMA {}", name)).getInt64();
}

bool isEmpty(SQLite::Database& database) {
    return pragma(database, "application_id") == 0 &&
           database.execAndGet("SELECT count(*) FROM sqlite_master").getInt() == 0;
}

/// The statements that the schema is made of, sorted.
std::vector<std::string> schemaOf(SQLite::Database& database) {
    std::vector<std::string> statements;
    SQLite::Statement query(database,
                            "SELECT type || ' ' || name || ' ' || coalesce(sql, '') FROM sqlite_master ORDER BY 1");
    while (query.executeStep()) statements.push_back(query.getColumn(0).getString());
    return statements;
}

/// A file with the mark of an inbox and anything else in it (a trigger, say) is none.
bool isInbox(SQLite::Database& database) {
    if (pragma(database, "application_id") != kApplicationId || pragma(database, "user_version") != kVersion)
        return false;
    SQLite::Database asMadeNow(":memory:", SQLite::OPEN_READWRITE);
    asMadeNow.exec(kSchema);
    return schemaOf(database) == schemaOf(asMadeNow);
}

/// Whether a file that nobody is writing may be used. It is only read, without even the side files that opening makes:
/// it may be another program's.
bool isUsable(const std::string& path) {
    std::string uri = "file:";
    for (const char c : path) {
        const bool isSpecial = c == '%' || c == '?' || c == '#';
        uri += isSpecial ? fmt::format("%{:02X}", static_cast<unsigned char>(c)) : std::string(1, c);
    }
    SQLite::Database database(uri + "?immutable=1", SQLite::OPEN_READONLY | SQLite::OPEN_URI);
    distrust(database);
    return isEmpty(database) || isInbox(database);
}

/// Whether the database is an inbox; an empty one becomes one.
bool prepare(SQLite::Database& database) {
    SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
    if (!isEmpty(database)) return isInbox(database);
    database.exec(kSchema);
    database.exec(fmt::format("PRAGMA application_id = {}; PRAGMA user_version = {}", kApplicationId, kVersion));
    transaction.commit();
    return true;
}

void report(std::optional<Error>* slot, const std::string& text) {
    boost::json::object info;
    info[kLocalizedDescriptionKey] = text;
    assign(slot, Error{kInboxErrorDomain, 1, std::move(info)});
}

}  // namespace

/// The connection and its statements. Its operations throw what SQLite reports.
class Inbox::Database {
public:
    explicit Database(const std::string& path)
        : connection_(path, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE, kBusyTimeoutMilliseconds) {
        distrust(connection_);
    }

    [[nodiscard]] SQLite::Database& connection() { return connection_; }

    /// After `prepare`: the statements need its tables.
    void ready() {
        insert_.emplace(
            connection_,
            "INSERT INTO received (kind, received_at, udid, date, content, bytes) VALUES (?, ?, ?, ?, ?, ?)");
        count_.emplace(connection_,
                       "UPDATE totals SET users = users + (?1 = 0), events = events + (?1 = 1), "
                       "push_tokens = push_tokens + (?1 = 2), battery_alerts = battery_alerts + (?1 = 3), "
                       "kept = kept + 1, kept_bytes = kept_bytes + ?2");
        overfull_.emplace(connection_, "SELECT 1 FROM totals WHERE kept > 0 AND (kept > ?1 OR kept_bytes > ?2)");
        uncount_.emplace(connection_,
                         "UPDATE totals SET dropped = dropped + 1, kept = kept - 1, kept_bytes = kept_bytes "
                         "- (SELECT bytes FROM received ORDER BY number LIMIT 1)");
        drop_.emplace(connection_, "DELETE FROM received WHERE number = (SELECT min(number) FROM received)");
    }

    void keep(const Received& entry) {
        const std::size_t bytes = sizeOf(entry);
        insert_->bind(1, nameOf(entry.kind));
        insert_->bind(2, QuomiUtils::stringUTCForDate(entry.at, "UTC"));
        insert_->bind(3, entry.udid);
        insert_->bind(4, entry.date);
        insert_->bind(5, entry.content);
        insert_->bind(6, asColumn(bytes));
        run(*insert_);
        count_->bind(1, static_cast<int>(entry.kind));
        count_->bind(2, asColumn(bytes));
        run(*count_);
    }

    void bound(const Bounds& bounds) {
        overfull_->bind(1, asColumn(bounds.entries));
        overfull_->bind(2, asColumn(bounds.bytes));
        while (overfull_->executeStep()) {
            overfull_->reset();
            run(*uncount_);
            run(*drop_);
        }
        overfull_->reset();
    }

    /// Lets go of what a failure left half run.
    void rest() {
        for (auto* statement : {&insert_, &count_, &overfull_, &uncount_, &drop_}) {
            if (*statement) (*statement)->tryReset();
        }
    }

private:
    static void run(SQLite::Statement& statement) {
        statement.exec();
        statement.reset();
    }

    SQLite::Database connection_;
    std::optional<SQLite::Statement> insert_;
    std::optional<SQLite::Statement> count_;
    std::optional<SQLite::Statement> overfull_;
    std::optional<SQLite::Statement> uncount_;
    std::optional<SQLite::Statement> drop_;
};

Inbox::Inbox() : Inbox(Bounds()) {}

Inbox::Inbox(const Bounds& bounds) : Inbox(bounds, std::make_unique<Database>(":memory:")) {
    static_cast<void>(prepare(database_->connection()));
    database_->ready();
}

Inbox::Inbox(const Bounds& bounds, std::unique_ptr<Database> database)
    : bounds_(bounds), database_(std::move(database)) {}

Inbox::~Inbox() = default;

std::unique_ptr<Inbox> Inbox::open(const std::string& path, std::optional<Error>* error) {
    return open(path, Bounds(), error);
}

std::unique_ptr<Inbox> Inbox::open(const std::string& path, const Bounds& bounds, std::optional<Error>* error) {
    const auto refused = [&](std::string_view why) {
        report(error, fmt::format("{}: expected {}", path, why));
        return nullptr;
    };
    const FileState state = made(path);
    if (state == FileState::none) return refused("a file that can be made or written");
    try {
        const std::string absolute = std::filesystem::absolute(path).string();
        if (!hasHarmlessSideFiles(absolute)) return refused(kOther);
        if (state == FileState::open) {
            if (!isUsable(absolute)) return refused(kOther);
            if (!makePrivate(absolute)) return refused("a file of this user");
        }
        auto database = std::make_unique<Database>(absolute);
        if (!prepare(database->connection())) return refused(kOther);
        database->connection().exec("PRAGMA journal_mode = WAL");
        database->connection().exec("PRAGMA synchronous = NORMAL");
        database->ready();
        return std::unique_ptr<Inbox>(new Inbox(bounds, std::move(database)));
    } catch (const std::exception& exception) {
        return refused(fmt::format("the inbox of a back office: {}", exception.what()));
    }
}

bool Inbox::add(const std::vector<Received>& entries) {
    const std::lock_guard lock(mutex_);
    try {
        SQLite::Transaction transaction(database_->connection(), SQLite::TransactionBehavior::IMMEDIATE);
        for (const Received& entry : entries) {
            database_->keep(entry);
            database_->bound(bounds_);
        }
        transaction.commit();
        return true;
    } catch (const std::exception&) {
        database_->rest();
        return false;
    }
}

std::vector<Received> Inbox::newest(std::size_t most) const {
    const std::lock_guard lock(mutex_);
    std::vector<Received> entries;
    try {
        SQLite::Statement rows(
            database_->connection(),
            "SELECT kind, received_at, udid, date, content FROM received ORDER BY number DESC LIMIT ?");
        rows.bind(1, asColumn(most));
        while (rows.executeStep()) entries.push_back(entryOf(rows));
    } catch (const std::exception&) {
        entries.clear();
    }
    std::ranges::reverse(entries);
    return entries;
}

std::vector<Received> Inbox::all() const {
    return newest(std::numeric_limits<std::size_t>::max());
}

Inbox::Counts Inbox::counts() const {
    const std::lock_guard lock(mutex_);
    const auto number = [](const SQLite::Column& column) { return static_cast<std::uint64_t>(column.getInt64()); };
    try {
        SQLite::Statement row(database_->connection(),
                              "SELECT users, events, push_tokens, battery_alerts, dropped FROM totals");
        if (!row.executeStep()) return {};
        return {number(row.getColumn(0)), number(row.getColumn(1)), number(row.getColumn(2)), number(row.getColumn(3)),
                number(row.getColumn(4))};
    } catch (const std::exception&) {
        return {};
    }
}

}  // namespace quomi::tool
