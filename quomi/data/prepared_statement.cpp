#include "quomi/data/prepared_statement.h"

#include <sqlite3.h>

#include <SQLiteCpp/Exception.h>

namespace quomi {

PreparedStatement::PreparedStatement(sqlite3* database, const std::string& sql) : database_(database) {
    require(sqlite3_prepare_v3(database, sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT,
                               &statement_, nullptr));
}

PreparedStatement::~PreparedStatement() {
    sqlite3_finalize(statement_);
}

void PreparedStatement::bind(int position, std::int64_t value) {
    require(sqlite3_bind_int64(statement_, position, value));
}

void PreparedStatement::bind(int position, double value) {
    require(sqlite3_bind_double(statement_, position, value));
}

void PreparedStatement::bind(int position, std::string_view value) {
    const char* text = value.empty() ? "" : value.data();  // a null pointer would bind NULL
    require(sqlite3_bind_text64(statement_, position, text, value.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
}

void PreparedStatement::bindNull(int position) {
    require(sqlite3_bind_null(statement_, position));
}

bool PreparedStatement::step() {
    const int code = sqlite3_step(statement_);
    if (code == SQLITE_ROW) return true;
    if (code != SQLITE_DONE) throw SQLite::Exception(database_, code);
    return false;
}

void PreparedStatement::exec() {
    while (step()) {
    }
    reset();
}

void PreparedStatement::reset() noexcept {
    sqlite3_reset(statement_);
}

void PreparedStatement::clear() noexcept {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
}

bool PreparedStatement::isNull(int column) const {
    return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}

std::int64_t PreparedStatement::integer(int column) const {
    return sqlite3_column_int64(statement_, column);
}

double PreparedStatement::real(int column) const {
    return sqlite3_column_double(statement_, column);
}

std::string_view PreparedStatement::text(int column) const {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    if (text == nullptr) return {};
    return {text, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column))};
}

void PreparedStatement::require(int code) const {
    if (code != SQLITE_OK) throw SQLite::Exception(database_, code);
}

}  // namespace quomi
