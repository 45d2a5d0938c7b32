#include "CliCommands.h"

#include "engine/DLObjectNames.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"
#include "schema/DLSchemaReader.h"

#include <QFileInfo>
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
    "                 as the program writes them: tables, indexes, views, triggers\n";

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
