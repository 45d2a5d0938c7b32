// A statement prepared once and stepped by hand, for the loops that bind
// values straight from their source (copies, imports).
#pragma once

#include <QString>
#include <memory>

struct sqlite3_stmt;

namespace brindle {

class TDLSQLiteDatabase;
class TSQLiteSQLHandle;

// One statement, prepared once and stepped as often as wanted. Finalized
// with the object, or when the database closes first.
class TPreparedStatement {
public:
    // Raises with the engine's message when the text does not prepare.
    TPreparedStatement(TDLSQLiteDatabase& Database, const QString& SQL);
    ~TPreparedStatement();
    TPreparedStatement(const TPreparedStatement&) = delete;
    TPreparedStatement& operator=(const TPreparedStatement&) = delete;

    // Null for a text without a statement.
    sqlite3_stmt* Handle() const;
    TSQLiteSQLHandle& SQLHandle() const { return *FHandle; }
    const QString& SQL() const { return FSQL; }
    // True while it gives rows; raises the engine's error with the text.
    bool Step();
    // Back to the start; the bound values stay.
    void Reset();

private:
    TDLSQLiteDatabase& FDatabase;
    QString FSQL;
    std::unique_ptr<TSQLiteSQLHandle> FHandle;
};

}  // namespace brindle
