#pragma once

#include <cstdint>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace quomi {

/// A prepared statement with nothing between it and SQLite, because rows are read by the thousand. Positions of "?"
/// count from 1, columns from 0. What SQLite refuses is thrown as SQLite::Exception.
class PreparedStatement {
public:
    /// The connection outlives the statement.
    PreparedStatement(sqlite3* database, const std::string& sql);
    ~PreparedStatement();
    PreparedStatement(const PreparedStatement&) = delete;
    PreparedStatement& operator=(const PreparedStatement&) = delete;

    void bind(int position, std::int64_t value);
    void bind(int position, double value);
    void bind(int position, std::string_view value);  ///< copied
    void bindNull(int position);

    /// Goes to the next row; false behind the last one.
    [[nodiscard]] bool step();
    /// Runs a statement to its end.
    void exec();
    /// Back to before the first row; what it read is let go of. `clear` also makes every "?" NULL.
    void reset() noexcept;
    void clear() noexcept;

    [[nodiscard]] bool isNull(int column) const;
    [[nodiscard]] std::int64_t integer(int column) const;
    [[nodiscard]] double real(int column) const;
    /// Lives until the next step.
    [[nodiscard]] std::string_view text(int column) const;

private:
    void require(int code) const;

    sqlite3* database_;
    sqlite3_stmt* statement_ = nullptr;
};

}  // namespace quomi
