// The names of one database's objects, grouped as the object tree and the
// command-line tool show them.
#pragma once

#include <QString>
#include <QStringList>

namespace brindle {

class TDLSQLiteDatabase;

struct TObjectNames {
    QStringList Tables;         // ordinary tables, sorted
    QStringList VirtualTables;  // sorted
    QStringList ShadowTables;   // tables that back a full-text or R*Tree table
    QStringList Views;
    QStringList Indexes;        // of all tables, in table order
    QStringList Triggers;       // of all tables and views
};

// Reads the catalogue of DatabaseName ("main" by default). The database
// must be connected; engine failures raise.
TObjectNames GetObjectNames(TDLSQLiteDatabase& Database, const QString& DatabaseName = QStringLiteral("main"));

}  // namespace brindle
