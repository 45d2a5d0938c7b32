// The database object's connection: open and create, close, the error
// road, attachments, extensions, backup, transactions, the background
// queues and the engine's callbacks. Statements are in
// DLSQLiteStatements.cpp, questions to the catalogue in DLSQLiteCatalog.cpp.
#include "DLSQLiteDatabase.h"

#include "DLDateTime.h"
#include "DLPragmaOptions.h"
#include "DLQueryQueue.h"
#include "DLSQLiteInternal.h"
#include "DLTools.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <chrono>
#include <thread>

namespace brindle {

using internal::drv;

namespace {

// Virtual-machine instructions between two progress calls. A call at every
// instruction costs long queries about a third of their time; at this period
// the cost vanishes in the noise and a stop still lands within microseconds.
constexpr int kProgressPeriod = 100;

}  // namespace

// ---------------------------------------------------------------------------
// Small containers

int TSavepointList::FindLast(const QString& Name) const {
    for (int i = Count() - 1; i >= 0; --i)
        if (FItems[i].compare(Name, Qt::CaseInsensitive) == 0) return i;
    return -1;
}

void TSavepointList::Release(const QString& Name) {
    const int i = FindLast(Name);
    if (i >= 0) FItems.erase(FItems.begin() + i, FItems.end());
}

void TSavepointList::Rollback(const QString& Name) {
    if (Name.isEmpty()) {
        FItems.clear();
        return;
    }
    // The savepoint itself stays open after ROLLBACK TO.
    const int i = FindLast(Name);
    if (i >= 0) FItems.erase(FItems.begin() + i + 1, FItems.end());
}

int TNameValueContainer::IndexOf(const QString& Name) const {
    for (int i = 0; i < Count(); ++i)
        if (FNames[i].compare(Name, Qt::CaseInsensitive) == 0) return i;
    return -1;
}

void TNameValueContainer::Clear() {
    FNames.clear();
    FValues.clear();
}

void TNameValueContainer::Delete(const QString& Name) {
    const int i = IndexOf(Name);
    if (i >= 0) {
        FNames.removeAt(i);
        FValues.removeAt(i);
    }
}

QString TNameValueContainer::ValuesByName(const QString& Name) const {
    const int i = IndexOf(Name);
    return i >= 0 ? FValues[i] : QString();
}

void TNameValueContainer::SetValueByName(const QString& Name, const QString& Value) {
    const int i = IndexOf(Name);
    if (i >= 0) {
        FValues[i] = Value;
    } else {
        FNames.append(Name);
        FValues.append(Value);
    }
}

int ValidateStringOptions(int options) {
    return (options & (soUseMemo | soUseDefaultSize)) ? options : (options | soUseMemo);
}

int TSQLiteDatabaseParams::IntPragma(const char* name) const {
    bool ok = false;
    const int v = FOwner->GetStringValue(QStringLiteral("pragma ") + QLatin1String(name)).toInt(&ok);
    return ok ? v : 0;
}

int TSQLiteDatabaseParams::AutoVacuum() const { return IntPragma("auto_vacuum"); }

void TSQLiteDatabaseParams::SetAutoVacuum(int value) {
    FOwner->Execute(QStringLiteral("pragma auto_vacuum = \"%1\"").arg(value));
}

int TSQLiteDatabaseParams::PageSize() const { return IntPragma("page_size"); }

void TSQLiteDatabaseParams::SetPageSize(int value) {
    FOwner->Execute(QStringLiteral("pragma page_size = \"%1\"").arg(value));
}

QString TSQLiteDatabaseParams::Encoding() const { return FOwner->GetStringValue(QStringLiteral("pragma encoding")); }

void TSQLiteDatabaseParams::SetEncoding(const QString& value) {
    FOwner->Execute(QStringLiteral("pragma encoding = \"%1\"").arg(value));
}

// ---------------------------------------------------------------------------
// TDLSQLiteDatabase: lifecycle

TDLSQLiteDatabase::TDLSQLiteDatabase() : FPragmas(std::make_unique<TSQLitePragmaOptions>(this)) {}

TDLSQLiteDatabase::~TDLSQLiteDatabase() {
    try {
        SetConnected(false);
    } catch (...) {
        // A failing rollback on the way out must not escape a destructor.
    }
    DetachClients();
    // Handles that outlive their database lose their statement.
    const std::vector<TSQLiteSQLHandle*> handles = FSQLHandles;
    for (TSQLiteSQLHandle* h : handles) h->Detach();
    FSQLHandles.clear();
}

void TDLSQLiteDatabase::SetFileName(const QString& value) {
    if (Connected()) throw CreateException(QStringLiteral("Cannot change FileName while connected"));
    FFileName = value;
}

void TDLSQLiteDatabase::SetUnicode(bool value) {
    if (Connected()) {
        // Built and dropped on purpose: the value changes all the same.
        (void)CreateException(QStringLiteral("Cannot change Unicode while connected"));
    }
    FUnicode = value;
}

void TDLSQLiteDatabase::SetEncryptionKey(const QString& value) {
    if (value == FEncryptionKey) return;
    FEncryptionKey = value;
    if (!Connected()) return;
    if (!drv().sqlite3_rekey) throw CreateException(QStringLiteral("Encryption is not supported by the SQLite library."));
    const QByteArray key = value.toLocal8Bit();
    SQLiteCheck(drv().sqlite3_rekey(FDB, key.isEmpty() ? nullptr : key.constData(), static_cast<int>(key.size())));
    InitializeQueryQueue();
}

void TDLSQLiteDatabase::SetLoadExtensionEnabled(bool value) {
    if (!Connected() || value == FLoadExtensionEnabled) return;
    FLoadExtensionEnabled = value;
    if (drv().sqlite3_enable_load_extension) {
        SQLiteCheck(drv().sqlite3_enable_load_extension(FDB, value ? 1 : 0));
    } else {
        FLoadExtensionEnabled = false;
    }
}

void TDLSQLiteDatabase::DoConnect() {
    if (FLoading || Connected()) return;
    FCorruptedFile = false;
    FDatabaseFiles.Clear();
    FDatabaseFiles.SetValueByName(QStringLiteral("main"), FFileName);
    FExtensions.clear();
    FSavepoints.Clear();
    if (!SQLite3Driver || !SQLite3Driver->sqlite3drv_loaded())
        throw CreateException(QStringLiteral("SQLite Library not loaded"));
    if (FFileName.compare(QLatin1String(":MEMORY:"), Qt::CaseInsensitive) != 0 && !QFileInfo::exists(FFileName))
        throw CreateException(QStringLiteral("File %1 does not exist").arg(FFileName));
    try {
        InternalOpen(false);
    } catch (...) {
        FCorruptedFile = true;
        DoDisconnect();
        throw;
    }
}

void TDLSQLiteDatabase::InternalOpen(bool Create) {
    int flags = Create ? (SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)
                       : (FReadOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE);
    flags |= SQLITE_OPEN_FULLMUTEX;
    // The engine knows ":memory:" in lower case only; any other spelling
    // would name a file.
    const bool memory = FFileName.compare(QLatin1String(":memory:"), Qt::CaseInsensitive) == 0;
    const QByteArray name = memory ? QByteArray(":memory:") : FFileName.toUtf8();
    SQLiteCheck(drv().sqlite3_open_v2(name.constData(), &FDB, flags, nullptr));

    if (!FEncryptionKey.isEmpty()) {
        if (!drv().sqlite3_key) throw CreateException(QStringLiteral("SQLite library does not support encryption."));
        const QByteArray key = FEncryptionKey.toLocal8Bit();
        SQLiteCheck(drv().sqlite3_key(FDB, key.constData(), static_cast<int>(key.size())));
    }

    // Reading the catalogue proves that the file is a database we can read.
    try {
        Execute(QStringLiteral("select name from sqlite_master limit 0, 0"));
    } catch (ESQLiteException& e) {
        if (e.GetParam(QStringLiteral("ErrorCode")) == QLatin1String("26")) {
            if (!FEncryptionKey.isEmpty())
                e.setMessage(QStringLiteral(
                    "File is encrypted or not a SQLite3 database or encryption key does not match"));
            else if (GetDatabaseVersion(FFileName) == 2)
                e.setMessage(QStringLiteral("Database version is not supported"));
        }
        throw;
    }

    drv().sqlite3_progress_handler(FDB, kProgressPeriod, &TDLSQLiteDatabase::ProgressCallback, this);
    if (drv().sqlite3_profile) drv().sqlite3_profile(FDB, &TDLSQLiteDatabase::ProfileCallback, this);
    drv().sqlite3_busy_timeout(FDB, 3000);

    Execute(QStringLiteral("pragma full_column_names = 0"));
    Execute(QStringLiteral("pragma foreign_keys = ON"));

    FLoadExtensionEnabled = false;
    SetLoadExtensionEnabled(true);

    if (Connected()) CheckIfSupportsSavepoints();

    if (DatabaseCount() == 0 || Databases(0) != QLatin1String("main"))
        throw ECustomException(QStringLiteral("Database not supported"));

    InitializeQueryQueue();
}

void TDLSQLiteDatabase::CheckIfSupportsSavepoints() {
    try {
        Execute(QStringLiteral("savepoint test"));
        Execute(QStringLiteral("rollback"));
    } catch (const std::exception&) {
        throw CreateException(QStringLiteral("SQLite versions prior to 3.6.8 are not supported"));
    }
}

int TDLSQLiteDatabase::GetDatabaseVersion(const QString& FileName) {
    QFile f(FileName);
    if (!f.exists() || !f.open(QIODevice::ReadOnly)) return 0;
    const QString head = QString::fromLatin1(f.read(50));
    if (!head.contains(QLatin1String("SQLite"))) return 0;
    if (head.startsWith(QLatin1String("SQLite format 3"))) return 3;
    if (head.contains(QLatin1String("SQLite 2"))) return 2;
    return 0;
}

void TDLSQLiteDatabase::CreateDatabase(int AutoVacuum, int PageSize, const QString& Encoding,
                                       const QString& EncryptionKey) {
    FEncryptionKey = EncryptionKey;
    if (Connected()) throw CreateException(QStringLiteral("Already connected"));
    if (!SQLite3Driver || !SQLite3Driver->sqlite3drv_loaded())
        throw CreateException(QStringLiteral("SQLite Library not loaded"));
    if (FFileName.compare(QLatin1String(":MEMORY:"), Qt::CaseInsensitive) != 0 && QFileInfo::exists(FFileName))
        throw CreateException(QStringLiteral("File %1 already exists").arg(FFileName));
    if (BeforeConnect) BeforeConnect();
    FDatabaseFiles.Clear();
    FDatabaseFiles.SetValueByName(QStringLiteral("main"), FFileName);
    FExtensions.clear();
    FSavepoints.Clear();
    try {
        InternalOpen(true);
        // The linked engine fixes the page size once auto_vacuum is set on a
        // new file, so the page size goes first.
        FDatabaseParams.SetPageSize(PageSize);
        FDatabaseParams.SetAutoVacuum(AutoVacuum);
        if (!Encoding.isEmpty()) FDatabaseParams.SetEncoding(Encoding);
    } catch (...) {
        DoDisconnect();
        throw;
    }
    if (AfterConnect) AfterConnect();
}

void TDLSQLiteDatabase::DoDisconnect() {
    FinalizeQueryQueue();
    if (FDB && GetInTransaction()) {
        // An open transaction is rolled back, never committed, on close.
        try {
            Rollback();
        } catch (const std::exception&) {
        }
    }
    if (FDB) {
        // Statements held by live handles would keep the connection open.
        for (TSQLiteSQLHandle* h : FSQLHandles) h->Finalize();
        if (drv().sqlite3_profile) drv().sqlite3_profile(FDB, nullptr, nullptr);
        drv().sqlite3_progress_handler(FDB, 0, nullptr, nullptr);
        drv().sqlite3_close(FDB);
        FDB = nullptr;
    }
    FDatabaseFiles.Clear();
    FExtensions.clear();
    FSavepoints.Clear();
    FEncoding = 0;
    FLastLockTime = 0;
}

// ---------------------------------------------------------------------------
// Errors

int TDLSQLiteDatabase::SQLiteCheck(int ErrorCode, const QString& SQL, const TParams* Params) {
    try {
        drv().sqlite3drv_check_error_msg(FDB, ErrorCode);
    } catch (ECustomException& e) {
        CheckException(e, SQL, Params);
        throw;
    }
    return ErrorCode;
}

void TDLSQLiteDatabase::CheckException(ECustomException& E, const QString& SQL, const TParams* Params) {
    if (!dynamic_cast<ESQLiteException*>(&E)) return;
    E.SetParam(QStringLiteral("Database Alias"), FAliasName);
    E.SetParam(QStringLiteral("File"), FFileName);
    if (!SQL.isEmpty()) E.SetParam(QStringLiteral("SQL"), SQL);
    if (Params) {
        for (int i = 0; i < Params->Count(); ++i) {
            const TParam& p = (*Params)[i];
            QString name = QStringLiteral("SQL param %1").arg(i + 1);
            if (p.IsNull()) {
                E.SetParam(name, QStringLiteral("null"));
                continue;
            }
            switch (p.DataType) {
                case ftString:
                case ftMemo:
                case ftWideString:
                case ftWideMemo:
                    name += QStringLiteral("(text)");
                    break;
                case ftSmallint:
                case ftInteger:
                case ftWord:
                    name += QStringLiteral("(integer)");
                    break;
                case ftBoolean:
                    name += QStringLiteral("(boolean)");
                    break;
                case ftFloat:
                case ftCurrency:
                    name += QStringLiteral("(float)");
                    break;
                case ftLargeint:
                    name += QStringLiteral("(int64)");
                    break;
                default:
                    break;
            }
            E.SetParam(name, p.Value.toString());
        }
    }
    const QString trimmed = SQL.trimmed();
    if (!trimmed.isEmpty()) {
        QStringList lines = trimmed.split(u'\n');
        for (QString& l : lines)
            if (l.endsWith(u'\r')) l.chop(1);
        QString shown = lines.mid(0, 5).join(QStringLiteral("\r\n"));
        if (lines.size() > 5) shown += QStringLiteral("\r\n...");
        E.setMessage(E.message() + QStringLiteral("\r\n\r\nSQL Statement:\r\n\r\n") + shown);
    }
}

ESQLiteException TDLSQLiteDatabase::CreateException(const QString& Message) {
    ESQLiteException e(Message);
    CheckException(e, QString(), nullptr);
    return e;
}

ESQLiteException TDLSQLiteDatabase::CreateException(const QString& Message, const QString& Name,
                                                    const QString& Value) {
    ESQLiteException e(Message, Name, Value);
    CheckException(e, QString(), nullptr);
    return e;
}

// ---------------------------------------------------------------------------
// State of the connection

void TDLSQLiteDatabase::Interrupt() {
    if (FDB) drv().sqlite3_interrupt(FDB);
}

int TDLSQLiteDatabase::GetChanges() { return FDB ? drv().sqlite3_changes(FDB) : 0; }

int TDLSQLiteDatabase::GetTotalChanges() { return FDB ? drv().sqlite3_total_changes(FDB) : 0; }

qint64 TDLSQLiteDatabase::GetLastInsertRowID() { return FDB ? drv().sqlite3_last_insert_rowid(FDB) : 0; }

TDatabaseStatus TDLSQLiteDatabase::GetStatus() {
    if (Connected()) return dsConnected;
    if (!Exists()) return dsUnavailable;
    if (FCorruptedFile) return dsAccessError;
    return dsDisconnected;
}

bool TDLSQLiteDatabase::Exists() {
    return FFileName.compare(QLatin1String(":memory:"), Qt::CaseInsensitive) == 0 || QFileInfo::exists(FFileName);
}

int TDLSQLiteDatabase::GetEncoding() {
    if (FEncoding) return FEncoding;
    if (!FUnicode) return 65001;  // the system's narrow encoding here is UTF-8
    const QString e = FDatabaseParams.Encoding();
    if (e.compare(QLatin1String("UTF-8"), Qt::CaseInsensitive) == 0)
        FEncoding = 65001;
    else if (e.compare(QLatin1String("UTF-16"), Qt::CaseInsensitive) == 0 ||
             e.compare(QLatin1String("UTF-16le"), Qt::CaseInsensitive) == 0)
        FEncoding = 1200;
    else
        FEncoding = 1201;
    return FEncoding;
}

QString TDLSQLiteDatabase::SchemaVersion() {
    const TSQLitePragmaOption* option = PragmaByName(QStringLiteral("schema_version"));
    QStringList versions;
    for (const QString& db : DatabaseNames()) versions.append(option->GetValue(db));
    return versions.join(u',');
}

int TDLSQLiteDatabase::PragmaCount() const { return FPragmas->Count(); }

TSQLitePragmaOption* TDLSQLiteDatabase::Pragma(int i) const { return FPragmas->Items(i); }

TSQLitePragmaOption* TDLSQLiteDatabase::PragmaByName(const QString& Name) const { return FPragmas->ByName(Name); }

QStringList TDLSQLiteDatabase::DatabaseNames() {
    QStringList names;
    if (!Connected()) return names;
    InternalGetStringValues(QStringLiteral("pragma database_list"), names, 1);
    return names;
}

int TDLSQLiteDatabase::DatabaseCount() { return static_cast<int>(DatabaseNames().size()); }

QString TDLSQLiteDatabase::Databases(int i) { return DatabaseNames().value(i); }

int TDLSQLiteDatabase::AttachedDatabaseCount() {
    int n = 0;
    for (const QString& d : DatabaseNames())
        if (d.compare(QLatin1String("main"), Qt::CaseInsensitive) != 0 &&
            d.compare(QLatin1String("temp"), Qt::CaseInsensitive) != 0)
            ++n;
    return n;
}

QString TDLSQLiteDatabase::AttachedDatabases(int i) {
    for (const QString& d : DatabaseNames()) {
        if (d.compare(QLatin1String("main"), Qt::CaseInsensitive) == 0 ||
            d.compare(QLatin1String("temp"), Qt::CaseInsensitive) == 0)
            continue;
        if (i-- == 0) return d;
    }
    return {};
}

// ---------------------------------------------------------------------------
// Transactions

bool TDLSQLiteDatabase::GetInTransaction() {
    if (!Connected()) return false;
    if (!drv().sqlite3_get_autocommit)
        throw CreateException(QStringLiteral("SQLite versions prior to 3.2.2. are not supported"));
    return FDB && drv().sqlite3_get_autocommit(FDB) == 0;
}

void TDLSQLiteDatabase::BeginTransaction() {
    CheckConnected();
    if (GetInTransaction()) throw CreateException(QStringLiteral("Transaction already open"));
    Execute(QStringLiteral("BEGIN TRANSACTION"));
}

void TDLSQLiteDatabase::Commit() {
    CheckConnected();
    if (!GetInTransaction()) throw CreateException(QStringLiteral("No open transaction"));
    Execute(QStringLiteral("COMMIT"));
}

void TDLSQLiteDatabase::Rollback() {
    CheckConnected();
    if (!GetInTransaction()) throw CreateException(QStringLiteral("No open transaction"));
    Execute(QStringLiteral("ROLLBACK"));
}

// ---------------------------------------------------------------------------
// Background queries

// Workers on one file; enough to count the tables of a database side by
// side without crowding the machine.
constexpr int kQueryQueueCount = 8;

std::unique_ptr<TThreadTask> TDLSQLiteDatabase::RunAsyncTask(std::unique_ptr<TThreadTask> Task, bool HighPriority) {
    if (!Connected()) return Task;
    if (!FThreadPool) InitializeQueryQueue();
    return FThreadPool ? FThreadPool->AddTask(std::move(Task), HighPriority) : std::move(Task);
}

void TDLSQLiteDatabase::InitializeQueryQueue() {
    if (!Connected()) return;
    FinalizeQueryQueue();
    auto pool = std::make_unique<TThreadPool>();
    const QFileInfo file(FFileName);
    if (FFileName.compare(QLatin1String(":memory:"), Qt::CaseInsensitive) != 0 && file.isFile()) {
        for (int i = 0; i < kQueryQueueCount; ++i)
            pool->AddQueue(std::make_unique<TQueryQueue>(FFileName, FEncryptionKey));
    }
    FThreadPool = std::move(pool);
}

void TDLSQLiteDatabase::FinalizeQueryQueue() {
    // The field is cleared before the pool goes, so nothing reaches a pool
    // that is winding down.
    std::unique_ptr<TThreadPool> pool = std::move(FThreadPool);
    pool.reset();
}

// ---------------------------------------------------------------------------
// Connection level

void TDLSQLiteDatabase::Attach(const QString& FileName, const QString& Alias) {
    Execute(QStringLiteral("attach %1 as %2").arg(QuotedStr(FileName), QuoteIdentifier(Alias)));
}

QString TDLSQLiteDatabase::GetAttachedFileName(const QString& DatabaseName) const {
    return FDatabaseFiles.ValuesByName(DatabaseName);
}

void TDLSQLiteDatabase::LoadExtension(const QString& FileName, const QString& EntryPoint) {
    CheckConnected();
    const QByteArray file = FileName.toUtf8();
    const QByteArray entry = EntryPoint.toUtf8();
    char* error = nullptr;
    const int rc =
        drv().sqlite3_load_extension(FDB, file.constData(), EntryPoint.isEmpty() ? nullptr : entry.constData(), &error);
    const QString text = error ? QString::fromUtf8(error) : drv().sqlite3drv_get_error_msg(FDB, rc);
    if (error) drv().sqlite3_free(error);
    if (rc != SQLITE_OK) throw ECustomException(text);
    FExtensions.push_back({FileName, EntryPoint});
}

int TDLSQLiteDatabase::Backup(const QString& FileName, const TBackupProgress& Progress) {
    if (!drv().sqlite3drv_supports_backup())
        throw ECustomException(QStringLiteral("SQLite library does not support the online backup API"));
    sqlite3* dest = nullptr;
    const QByteArray name = FileName.toUtf8();
    int rc = drv().sqlite3_open(name.constData(), &dest);
    struct CloseDest {
        sqlite3*& d;
        ~CloseDest() {
            if (d) drv().sqlite3_close(d);
        }
    } closer{dest};
    if (rc == SQLITE_OK && !FEncryptionKey.isEmpty()) {
        const QByteArray key = FEncryptionKey.toLocal8Bit();
        if (!drv().sqlite3_rekey) throw CreateException(QStringLiteral("SQLite library does not support encryption."));
        SQLiteCheck(drv().sqlite3_rekey(dest, nullptr, 0));
        SQLiteCheck(drv().sqlite3_rekey(dest, key.constData(), static_cast<int>(key.size())));
        drv().sqlite3_exec(dest, "PRAGMA secure_delete=OFF", nullptr, nullptr, nullptr);
    }
    if (rc == SQLITE_OK) {
        sqlite3_backup* b = drv().sqlite3_backup_init(dest, "main", FDB, "main");
        if (b) {
            while (true) {
                const int step = drv().sqlite3_backup_step(b, 5);
                const int pages = drv().sqlite3_backup_pagecount(b);
                const int remaining = drv().sqlite3_backup_remaining(b);
                bool stop = false;
                if (Progress) Progress(remaining, pages, stop);
                if (stop) break;
                if (step == SQLITE_OK || step == SQLITE_BUSY || step == SQLITE_LOCKED) {
                    if (step != SQLITE_OK) std::this_thread::sleep_for(std::chrono::milliseconds(50));
                    continue;
                }
                break;
            }
            drv().sqlite3_backup_finish(b);
        }
        rc = drv().sqlite3_errcode(dest);
    }
    return rc;
}

// ---------------------------------------------------------------------------
// Events and callbacks

void TDLSQLiteDatabase::DoBeforePrepare(const QString& SQL) {
    if (FBeforePrepare) FBeforePrepare(SQL);
}

void TDLSQLiteDatabase::DoAfterPrepare(const QString& SQL, int ErrorCode) {
    if (FAfterPrepare) FAfterPrepare(SQL, ErrorCode);
}

void TDLSQLiteDatabase::DoOnProgress(bool& Continue) {
    if (FOnProgress) FOnProgress(Continue);
}

int TDLSQLiteDatabase::ProgressCallback(void* Obj) {
    auto* db = static_cast<TDLSQLiteDatabase*>(Obj);
    if (!db || !db->FOnProgress) return 0;
    bool cont = true;
    db->DoOnProgress(cont);
    return cont ? 0 : 1;
}

void TDLSQLiteDatabase::ProfileCallback(void* Obj, const char* SQL, quint64 Time) {
    auto* db = static_cast<TDLSQLiteDatabase*>(Obj);
    if (!db || !db->FOnProfile) return;
    // Only statements of the main thread reach the log.
    const QCoreApplication* app = QCoreApplication::instance();
    if (app && QThread::currentThread() != app->thread()) return;
    db->FOnProfile(QString::fromUtf8(SQL), Time);
}

}  // namespace brindle
