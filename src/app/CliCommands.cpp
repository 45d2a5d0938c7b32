#include "CliCommands.h"

#include "data/DLDataSet.h"
#include "engine/DLObjectNames.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"
#include "schema/DLSchemaReader.h"

#include <QFileInfo>
#include <atomic>
#include <csignal>
#include <functional>
#include <map>

namespace brindle::cli {

namespace {

struct Options {
    QString library = SQLITE_INTERNAL_LIB;
    QString key;
    QStringList positional;
};

const char* const kUsage =
    "usage: brindle-cli [--library FILE] [--key KEY] COMMAND ARGS\n"
    "commands:\n"
    "  info FILE      library version and capabilities, page size, encoding,\n"
    "                 journal mode and object counts of a database\n"
    "  objects FILE   the names of the database's objects, one per line\n"
    "  schema FILE [OBJECT]\n"
    "                 the CREATE statements of every object (or of the one named)\n"
    "                 as the program writes them: tables, indexes, views, triggers\n"
    "  query FILE SQL the rows of the text's last SELECT as CSV; Ctrl+C stops the run\n";

QString yesNo(bool v) { return v ? QStringLiteral("yes") : QStringLiteral("no"); }

// Messages of the program carry CRLF line ends; a terminal wants LF.
QString forTerminal(QString s) { return s.replace(QStringLiteral("\r\n"), QStringLiteral("\n")); }

void loadLibrary(const Options& o) {
    if (!SQLite3Driver->sqlite3drv_load_library(o.library)) {
        QString msg = QStringLiteral("Could not load SQLite library: ") + o.library;
        if (!SQLite3Driver->sqlite3drv_last_load_error().isEmpty())
            msg += QStringLiteral("\n") + SQLite3Driver->sqlite3drv_last_load_error();
        throw ECustomException(msg);
    }
}

void openDatabase(TDLSQLiteDatabase& db, const Options& o, const QString& file) {
    db.SetFileName(file);
    db.SetAliasName(QFileInfo(file).completeBaseName());
    if (!o.key.isEmpty()) db.SetEncryptionKey(o.key);
    db.FShowWaitCursor = false;
    db.SetConnected(true);
}

void cmdInfo(const Options& o, QTextStream& out) {
    loadLibrary(o);
    TDLSQLiteDatabase db;
    openDatabase(db, o, o.positional.value(1));
    TSQLite3Driver& d = *SQLite3Driver;
    const QString lib = d.sqlite3drv_filename() == SQLITE_INTERNAL_LIB ? QStringLiteral("[internal]")
                                                                      : d.sqlite3drv_filename();
    out << "SQLite library: " << lib << "\n";
    out << "Version: " << d.sqlite3drv_libversion() << "\n";
    out << "Thread safe: " << yesNo(d.sqlite3_threadsafe() != 0) << "\n";
    out << "FTS3: " << yesNo(d.sqlite3drv_supports_fts3()) << "\n";
    out << "FTS4: " << yesNo(d.sqlite3drv_supports_fts4()) << "\n";
    out << "R*Tree: " << yesNo(d.sqlite3drv_supports_rtree()) << "\n";
    out << "ICU: " << yesNo(d.sqlite3drv_supports_icu()) << "\n";
    out << "Without rowid: " << yesNo(d.sqlite3drv_supports_without_rowid()) << "\n";
    out << "Partial indexes: " << yesNo(d.sqlite3drv_supports_partial_indexes()) << "\n";
    out << "Backup: " << yesNo(d.sqlite3drv_supports_backup()) << "\n";
    out << "Encryption: " << yesNo(d.sqlite3drv_supports_encryption()) << "\n";
    out << "Profile: " << yesNo(d.sqlite3drv_supports_profile()) << "\n";

    out << "File: " << db.FileName() << "\n";
    out << "Page size: " << db.DatabaseParams().PageSize() << "\n";
    out << "Encoding: " << db.DatabaseParams().Encoding() << "\n";
    out << "Journal mode: " << db.GetStringValue(QStringLiteral("pragma journal_mode")) << "\n";
    out << "Schema version: " << db.SchemaVersion() << "\n";
    const TObjectNames names = GetObjectNames(db);
    out << "Tables: " << names.Tables.size() << "\n";
    out << "Virtual tables: " << names.VirtualTables.size() << "\n";
    out << "Shadow tables: " << names.ShadowTables.size() << "\n";
    out << "Views: " << names.Views.size() << "\n";
    out << "Indexes: " << names.Indexes.size() << "\n";
    out << "Triggers: " << names.Triggers.size() << "\n";
}

void cmdObjects(const Options& o, QTextStream& out) {
    loadLibrary(o);
    TDLSQLiteDatabase db;
    openDatabase(db, o, o.positional.value(1));
    const TObjectNames names = GetObjectNames(db);
    auto print = [&out](const char* kind, const QStringList& list) {
        for (const QString& n : list) out << kind << '\t' << n << '\n';
    };
    print("table", names.Tables);
    print("virtual table", names.VirtualTables);
    print("shadow table", names.ShadowTables);
    print("view", names.Views);
    print("index", names.Indexes);
    print("trigger", names.Triggers);
}

void cmdSchema(const Options& o, QTextStream& out) {
    loadLibrary(o);
    TDLSQLiteDatabase db;
    openDatabase(db, o, o.positional.value(1));
    out << forTerminal(GetSchemaScript(db, o.positional.value(2)));
}

// A field of CSV: quoted when it holds a separator, a quote, a line break
// or blanks at either end, and when it is empty text, which NULL is not.
QString csvField(const QString& value, bool isText = true) {
    const bool quote = (isText && value.isEmpty()) || value.contains(u',') || value.contains(u'"') ||
                       value.contains(u'\n') || value.contains(u'\r') || value.startsWith(u' ') ||
                       value.endsWith(u' ');
    if (!quote) return value;
    QString quoted = value;
    return u'"' + quoted.replace(QStringLiteral("\""), QStringLiteral("\"\"")) + u'"';
}

// The stored value as it is, whatever the column's declared type says.
QString storedText(const TDLSQLiteRecData& rec, int index) {
    const QByteArray& raw = rec.GetRawData(index);
    switch (rec.GetStorageClass(index)) {
        case scInteger:
            return QString::number(RawToInt64(raw));
        case scFloat:
            return QString::number(RawToFloat(raw), 'g', QLocale::FloatingPointShortest);
        case scText:
            return RawToString(raw);
        case scBlob:
            return QString::fromLatin1(raw.toHex());
        default:
            return QString();
    }
}

// Ctrl+C stops the statement that runs; the engine's interrupt is safe to
// call from a signal handler.
std::atomic<TDLSQLiteDatabase*> interruptTarget{nullptr};

extern "C" void interruptQuery(int) {
    if (TDLSQLiteDatabase* db = interruptTarget.load()) db->Interrupt();
}

void cmdQuery(const Options& o, QTextStream& out) {
    loadLibrary(o);
    TDLSQLiteDatabase db;
    openDatabase(db, o, o.positional.value(1));
    TDLQuery query;
    query.SetDatabase(&db);
    query.SetSQL(o.positional.value(2));
    interruptTarget = &db;
    auto previous = std::signal(SIGINT, interruptQuery);
    struct TRestore {
        decltype(previous) handler;
        ~TRestore() {
            std::signal(SIGINT, handler);
            interruptTarget = nullptr;
        }
    } restore{previous};
    auto leave = [&db](const QString& message) {
        // A transaction the text began and did not end is not left open.
        if (db.GetInTransaction()) db.Rollback();
        throw ECustomException(message);
    };
    try {
        query.Open();
    } catch (const ECustomException& e) {
        leave(e.message());
    }
    const TFields& fields = query.Fields();
    QStringList header;
    for (int i = 0; i < fields.Count(); ++i) header << csvField(fields[i].FieldName());
    if (fields.Count() > 0) out << header.join(u',') << '\n';
    for (int r = 0;; ++r) {
        const TDLRecData* rec = query.RecordAt(r);
        if (query.Aborted()) leave(QStringLiteral("interrupted"));
        if (!rec) break;
        QStringList line;
        const auto& row = static_cast<const TDLSQLiteRecData&>(*rec);
        for (int i = 0; i < fields.Count(); ++i)
            line << csvField(storedText(row, i), row.GetStorageClass(i) == scText);
        out << line.join(u',') << '\n';
    }
    query.Close();
    if (db.GetInTransaction()) db.Rollback();
}

}  // namespace

int Run(const QStringList& args, QTextStream& out, QTextStream& err) {
    Options o;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& a = args[i];
        if ((a == u"--library" || a == u"--key") && i + 1 < args.size()) {
            (a == u"--library" ? o.library : o.key) = args[++i];
        } else if (a == u"-h" || a == u"--help") {
            out << kUsage;
            return 0;
        } else {
            o.positional.append(a);
        }
    }
    using Command = std::function<void(const Options&, QTextStream&)>;
    struct TCommand {
        int MinArgs, MaxArgs;  // the command's name included
        Command Run;
    };
    const std::map<QString, TCommand> commands = {
        {QStringLiteral("info"), {2, 2, cmdInfo}},
        {QStringLiteral("objects"), {2, 2, cmdObjects}},
        {QStringLiteral("schema"), {2, 3, cmdSchema}},
        {QStringLiteral("query"), {3, 3, cmdQuery}},
    };
    const auto it = commands.find(o.positional.value(0));
    if (it == commands.end() || o.positional.size() < it->second.MinArgs || o.positional.size() > it->second.MaxArgs) {
        err << kUsage;
        return 2;
    }
    try {
        it->second.Run(o, out);
    } catch (const ECustomException& e) {
        out.flush();
        err << forTerminal(e.message()) << "\n";
        return 1;
    }
    return 0;
}

}  // namespace brindle::cli
