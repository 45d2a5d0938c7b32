// What the three parts of the database object share, and nothing else
// includes: the driver, statement finalizing, LIKE patterns of names.
#pragma once

#include "Assert.h"
#include "DLQuoteTools.h"
#include "DLSQLite3API.h"

#include <QString>

namespace brindle::internal {

inline TSQLite3Driver& drv() {
    BRINDLE_ASSERT(SQLite3Driver, "no SQLite driver");
    return *SQLite3Driver;
}

// A name as the pattern of a LIKE: case-insensitive as names are, but an
// "_" or "%" in the name matches only itself.
inline QString LikeName(const QString& name) {
    QString pattern = name;
    pattern.replace(u'\\', QStringLiteral("\\\\")).replace(u'%', QStringLiteral("\\%")).replace(u'_', QStringLiteral("\\_"));
    return QuotedStr(pattern) + QStringLiteral(" escape '\\'");
}

// Finalizes a prepared statement however the scope is left.
class TStatementGuard {
public:
    TStatementGuard() = default;
    ~TStatementGuard() {
        if (FStmt) drv().sqlite3_finalize(FStmt);
    }
    TStatementGuard(const TStatementGuard&) = delete;
    TStatementGuard& operator=(const TStatementGuard&) = delete;
    sqlite3_stmt*& ref() { return FStmt; }
    sqlite3_stmt* get() const { return FStmt; }

private:
    sqlite3_stmt* FStmt = nullptr;
};

}  // namespace brindle::internal
