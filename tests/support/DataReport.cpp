#include "DataReport.h"

#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"

#include <cstring>

namespace brindle::test {

namespace {

QString Hex(const void* Data, int Size) {
    return QString::fromLatin1(QByteArray(static_cast<const char*>(Data), Size).toHex());
}

// One row per line, read through the engine's own calls rather than the
// program's datasets, which are what a copy goes through.
// A table's rows come with their rowids, where it has them.
void AddRows(TDLSQLiteDatabase& Database, const QString& Name, QStringList& Lines) {
    TSQLite3Driver& d = *SQLite3Driver;
    const QByteArray from = " from \"" + QString(Name).replace(u'"', QStringLiteral("\"\"")).toUtf8() + '"';
    sqlite3_stmt* stmt = nullptr;
    if (d.sqlite3_prepare_v2(Database.Handle(), "select rowid, *" + from, -1, &stmt, nullptr) != SQLITE_OK) {
        d.sqlite3_finalize(stmt);
        stmt = nullptr;
    }
    if (!stmt &&
        d.sqlite3_prepare_v2(Database.Handle(), "select *" + from, -1, &stmt, nullptr) != SQLITE_OK) {
        Lines << Name + QStringLiteral(" unreadable: ") +
                     QString::fromUtf8(d.sqlite3_errmsg(Database.Handle()));
        d.sqlite3_finalize(stmt);
        return;
    }
    const int columns = d.sqlite3_column_count(stmt);
    while (d.sqlite3_step(stmt) == SQLITE_ROW) {
        QStringList cells;
        for (int c = 0; c < columns; ++c) {
            switch (d.sqlite3_column_type(stmt, c)) {
                case SQLITE_INTEGER:
                    cells << QStringLiteral("integer ") + QString::number(d.sqlite3_column_int64(stmt, c));
                    break;
                case SQLITE_FLOAT: {
                    const double v = d.sqlite3_column_double(stmt, c);
                    quint64 bits;
                    std::memcpy(&bits, &v, sizeof bits);
                    cells << QStringLiteral("real %1 (%2)").arg(bits, 16, 16, QChar(u'0')).arg(v, 0, 'g', 17);
                    break;
                }
                case SQLITE_TEXT:
                    cells << QStringLiteral("text ") +
                                 Hex(d.sqlite3_column_text(stmt, c), d.sqlite3_column_bytes(stmt, c));
                    break;
                case SQLITE_BLOB:
                    cells << QStringLiteral("blob ") +
                                 Hex(d.sqlite3_column_blob(stmt, c), d.sqlite3_column_bytes(stmt, c));
                    break;
                default:
                    cells << QStringLiteral("null");
            }
        }
        Lines << Name + QStringLiteral(": ") + cells.join(QStringLiteral(" | "));
    }
    d.sqlite3_finalize(stmt);
}

}  // namespace

QStringList DataReport(TDLSQLiteDatabase& Database) {
    QStringList shadows, names;
    Database.GetValues(
        QStringLiteral("select name from pragma_table_list where schema = 'main' and type = 'shadow'"),
        shadows);
    Database.GetValues(QStringLiteral("select name from sqlite_master where type in ('table', 'view') and "
                                      "name not like 'sqlite_stat%' order by name"),
                       names);
    QStringList lines;
    for (const QString& name : names)
        if (!shadows.contains(name)) AddRows(Database, name, lines);
    lines.sort();
    return lines;
}

}  // namespace brindle::test
