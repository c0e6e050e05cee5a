#include "quomi/data/untrusted_file.h"

#include <sqlite3.h>
#include <utility>

#include <SQLiteCpp/Database.h>

namespace quomi {

void distrust(SQLite::Database& database) {
    auto* connection = database.getHandle();
    for (const auto& [option, value] : {std::pair{SQLITE_DBCONFIG_DEFENSIVE, 1},
                                        {SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0},
                                        {SQLITE_DBCONFIG_ENABLE_TRIGGER, 0},
                                        {SQLITE_DBCONFIG_ENABLE_VIEW, 0}}) {
        sqlite3_db_config(connection, option, value, nullptr);
    }
    database.exec("PRAGMA ignore_check_constraints = ON; PRAGMA cell_size_check = ON");
}

std::string quotedName(std::string_view name) {
    std::string quoted = "\"";
    for (const char c : name) quoted += c == '"' ? std::string(2, c) : std::string(1, c);
    return quoted + '"';
}

bool namesAnotherFile(std::string_view endOfJournal) {
    return endOfJournal == std::string_view("\xd9\xd5\x05\xf9\x20\xa1\x63\xd7", kEndOfJournal);
}

}  // namespace quomi
