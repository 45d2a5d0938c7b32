#include "CliTransfer.h"

#include "CliInterrupt.h"

#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Encoding.h"
#include "engine/Exceptions.h"
#include "interchange/DataTransfer.h"
#include "interchange/ScriptExport.h"
#include "interchange/ScriptLoad.h"
#include "schema/DLSQLiteMetadata.h"
#include "tools/Encodings.h"

#include <unistd.h>
#include <QElapsedTimer>
#include <QFileInfo>

namespace brindle::cli {

const char* const kTransferUsage =
    "  dump FILE OUT.sql [OBJECT...] [--no-data] [--encoding NAME]\n"
    "                 writes the database (or the tables and views named) as a\n"
    "                 script that makes it again: tables, rows, indexes, views,\n"
    "                 then triggers, in one transaction; UTF-8 unless told\n"
    "  load FILE SCRIPT.sql\n"
    "                 runs a script of SQL, of any size, read in the encoding it\n"
    "                 was saved in; a new FILE is created; stops at the first\n"
    "                 failing statement (a transaction the script began is\n"
    "                 rolled back)\n"
    "  transfer SOURCE DEST [OBJECT...] [--no-data] [--drop] [--rename-indexes]\n"
    "                 copies the tables and views of SOURCE (or those named)\n"
    "                 into DEST, all or nothing; a new DEST is created; --drop\n"
    "                 replaces objects of the same name, --rename-indexes names\n"
    "                 indexes TABLE_INDEX\n"
    "                 Progress shows on a terminal; Ctrl+C stops and undoes\n";

namespace {

struct TOptions {
    QString library = SQLITE_INTERNAL_LIB;
    QString key;
    QString command;
    QStringList positional;  // behind the command
    QString encoding;
    bool noData = false;
    bool drop = false;
    bool renameIndexes = false;
};

// Messages of the program carry CRLF line ends; a terminal wants LF.
QString forTerminal(QString s) {
    return s.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
}

// One line of progress on standard error, rewritten in place a few times a
// second; only when it is a terminal, so that scripts get clean output.
class TProgress {
public:
    explicit TProgress(QTextStream& Err) : FErr(Err), FShow(::isatty(STDERR_FILENO) == 1) { FTimer.start(); }
    ~TProgress() {
        if (FShown) FErr << "\n";
    }
    TProgress(const TProgress&) = delete;
    TProgress& operator=(const TProgress&) = delete;

    void Show(const QString& Text) {
        if (!FShow || (FShown && FTimer.elapsed() < 200)) return;
        FTimer.restart();
        FErr << '\r' << Text.leftJustified(FWidth) << Qt::flush;
        FWidth = static_cast<int>(Text.size());
        FShown = true;
    }
    // Hooks the transfer's events to the line.
    void Watch(TDataTransfer& Transfer) {
        Transfer.FOnTableProgress = [this](TDataTransfer&, const QString& Table, qint64 Records) {
            Show(QStringLiteral("%1: %2 rows").arg(Table).arg(Records));
        };
        Transfer.FOnCheckAbort = [](TDataTransfer&, bool& Aborted) {
            Aborted = Aborted || TInterruptScope::Interrupted();
        };
    }

private:
    QTextStream& FErr;
    bool FShow;
    bool FShown = false;
    int FWidth = 0;
    QElapsedTimer FTimer;
};

void loadLibrary(const TOptions& o) {
    if (!SQLite3Driver->sqlite3drv_load_library(o.library)) {
        QString msg = QStringLiteral("Could not load SQLite library: ") + o.library;
        if (!SQLite3Driver->sqlite3drv_last_load_error().isEmpty())
            msg += QStringLiteral("\n") + SQLite3Driver->sqlite3drv_last_load_error();
        throw ECustomException(msg);
    }
}

// Opens the file, made first when it does not exist yet; true when it was
// made.
bool openDatabase(TDLSQLiteDatabase& db, const TOptions& o, const QString& file, bool create) {
    db.FShowWaitCursor = false;
    db.SetFileName(file);
    bool created = false;
    if (create && !QFileInfo::exists(file)) {
        // No pragma is set here: a script or the source sets page size and
        // encoding while the file is still empty.
        db.CreateDatabase(0, 0, QString(), o.key);
        db.SetConnected(false);
        created = true;
    }
    db.SetAliasName(QFileInfo(file).completeBaseName());
    if (!o.key.isEmpty()) db.SetEncryptionKey(o.key);
    db.SetConnected(true);
    return created;
}

// The metadata of a source, every object read whole: a dump or copy that
// silently lost one would look complete.
void refresh(TDLSQLiteMetadata& md) {
    md.Refresh();
    if (!md.RefreshErrors().isEmpty()) throw ECustomException(md.RefreshErrors());
}

void cmdDump(const TOptions& o, QTextStream& err) {
    loadLibrary(o);
    const QString file = o.positional.value(0);
    if (!QFileInfo(file).isFile())
        throw ECustomException(QStringLiteral("Cannot open file \"%1\"").arg(file));
    TDLSQLiteDatabase db;
    openDatabase(db, o, file, false);
    TDLSQLiteMetadata md(&db);
    refresh(md);
    TSQLiteToScript script;
    script.FFileName = o.positional.value(1);
    script.FSourceMetadata = &md;
    script.FSourceDatabase = &db;
    const QStringList objects = o.positional.mid(2);
    AddTransferObjects(script.FObjects, md, objects, !o.noData);
    script.FEncoding = o.encoding.isEmpty() ? TEncoding::UTF8() : TEncoding::GetEncodingByName(o.encoding);
    script.FUseTransaction = true;
    // A whole database takes its page size and encoding along.
    script.FIncludeDBProperties = objects.isEmpty();
    TProgress progress(err);
    progress.Watch(script);
    // Stopped between rows, not inside a statement: the script still gets
    // its closing lines.
    TInterruptScope interrupts(TInterruptTargets{});
    script.Execute();
    if (script.Aborted()) throw ECustomException(QStringLiteral("interrupted"));
}

void cmdLoad(const TOptions& o, QTextStream& err) {
    loadLibrary(o);
    const QString scriptFile = o.positional.value(1);
    if (!QFileInfo(scriptFile).isFile())
        throw ECustomException(QStringLiteral("Cannot open file \"%1\"").arg(scriptFile));
    TDLSQLiteDatabase db;
    openDatabase(db, o, o.positional.value(0), true);
    TScriptToSQLite load;
    load.FFileName = scriptFile;
    load.FDestDatabase = &db;
    // Read as it was saved: a mark, or what the bytes look like.
    load.FEncoding = GetFileEncoding(scriptFile);
    TProgress progress(err);
    load.FOnProgress = [&progress](TDataTransfer&, int Position, int Max) {
        progress.Show(QStringLiteral("%1%").arg(Max > 0 ? qint64(Position) * 100 / Max : 100));
    };
    load.FOnCheckAbort = [](TDataTransfer&, bool& Aborted) {
        Aborted = Aborted || TInterruptScope::Interrupted();
    };
    TInterruptScope interrupts({.Second = &db});
    load.Execute();
    // Whatever the script began and did not end is not kept.
    auto leave = [&db](const QString& message) {
        if (db.GetInTransaction()) db.Rollback();
        throw ECustomException(message);
    };
    if (!load.ErrorMessage().isEmpty()) leave(load.ErrorMessage());
    if (load.Aborted()) leave(QStringLiteral("interrupted"));
    if (db.GetInTransaction())
        leave(QStringLiteral("The script left a transaction open; it was rolled back"));
}

void cmdTransfer(const TOptions& o, QTextStream& err) {
    loadLibrary(o);
    const QString sourceFile = o.positional.value(0);
    if (!QFileInfo(sourceFile).isFile())
        throw ECustomException(QStringLiteral("Cannot open file \"%1\"").arg(sourceFile));
    TDLSQLiteDatabase source;
    openDatabase(source, o, sourceFile, false);
    TDLSQLiteMetadata md(&source);
    refresh(md);
    if (QFileInfo(o.positional.value(1)).exists() &&
        QFileInfo(sourceFile).canonicalFilePath() == QFileInfo(o.positional.value(1)).canonicalFilePath())
        throw ECustomException(QStringLiteral("SOURCE and DEST are the same file"));
    TDLSQLiteDatabase dest;
    const bool created = openDatabase(dest, o, o.positional.value(1), true);
    TSQLiteToSQLite transfer;
    transfer.FSourceDatabase = &source;
    transfer.FDestDatabase = &dest;
    AddTransferObjects(transfer.FObjects, md, o.positional.mid(2), !o.noData);
    transfer.FUseTransaction = true;
    transfer.FHideExceptions = false;
    transfer.FDropDestination = o.drop;
    transfer.FRenameIndexes = o.renameIndexes;
    // Only a new file takes the source's page size and encoding.
    transfer.FIncludeDBProperties = created;
    TProgress progress(err);
    progress.Watch(transfer);
    TInterruptScope interrupts({.Database = &source, .Second = &dest});
    transfer.Execute();
    if (transfer.Aborted()) throw ECustomException(QStringLiteral("interrupted"));
}

}  // namespace

int RunTransferCommand(const QStringList& args, QTextStream& out, QTextStream& err) {
    (void)out;
    TOptions o;
    bool usage = false;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& a = args[i];
        auto value = [&]() -> QString {
            if (i + 1 < args.size()) return args[++i];
            usage = true;
            return QString();
        };
        if (a == u"--library") {
            o.library = value();
        } else if (a == u"--key") {
            o.key = value();
        } else if (o.command.isEmpty()) {
            if (a != u"dump" && a != u"load" && a != u"transfer") return -1;
            o.command = a;
        } else if (a == u"--encoding" && o.command == u"dump") {
            o.encoding = value();
        } else if (a == u"--no-data" && o.command != u"load") {
            o.noData = true;
        } else if (a == u"--drop" && o.command == u"transfer") {
            o.drop = true;
        } else if (a == u"--rename-indexes" && o.command == u"transfer") {
            o.renameIndexes = true;
        } else if (a.startsWith(QLatin1String("--"))) {
            usage = true;
        } else {
            o.positional.append(a);
        }
    }
    if (o.command.isEmpty()) return -1;
    if (usage || o.positional.size() < 2 || (o.command == u"load" && o.positional.size() != 2)) {
        err << "usage:\n" << kTransferUsage;
        return 2;
    }
    try {
        if (o.command == u"dump")
            cmdDump(o, err);
        else if (o.command == u"load")
            cmdLoad(o, err);
        else
            cmdTransfer(o, err);
    } catch (const ECustomException& e) {
        err << forTerminal(e.message()) << "\n";
        return 1;
    }
    return 0;
}

}  // namespace brindle::cli
