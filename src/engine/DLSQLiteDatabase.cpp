#include "DLSQLiteDatabase.h"

#include "Assert.h"
#include "DLDateTime.h"
#include "DLPragmaOptions.h"
#include "DLQueryQueue.h"
#include "DLQuoteTools.h"
#include "DLSQLite3API.h"
#include "DLTools.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <algorithm>
#include <chrono>
#include <thread>

namespace brindle {

namespace {

// A name as the pattern of a LIKE: case-insensitive as names are, but an
// "_" or "%" in the name matches only itself.
QString LikeName(const QString& name) {
    QString pattern = name;
    pattern.replace(u'\\', QStringLiteral("\\\\")).replace(u'%', QStringLiteral("\\%")).replace(u'_', QStringLiteral("\\_"));
    return QuotedStr(pattern) + QStringLiteral(" escape '\\'");
}

TSQLite3Driver& drv() {
    BRINDLE_ASSERT(SQLite3Driver, "no SQLite driver");
    return *SQLite3Driver;
}

// Virtual-machine instructions between two progress calls. A call at every
// instruction costs long queries about a third of their time; at this period
// the cost vanishes in the noise and a stop still lands within microseconds.
constexpr int kProgressPeriod = 100;

QString pragmaPrefix(const QString& databaseName) {
    return databaseName.isEmpty() ? QString() : QuoteIdentifier(databaseName) + u'.';
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

bool endsWithCI(const QString& s, const char* suffix, QString& stem) {
    const QLatin1String suf(suffix);
    if (s.size() > suf.size() && s.endsWith(suf, Qt::CaseInsensitive)) {
        stem = s.left(s.size() - suf.size());
        return true;
    }
    return false;
}

}  // namespace

// ---------------------------------------------------------------------------
// TSQLiteSQLHandle

TSQLiteSQLHandle::TSQLiteSQLHandle(TDLSQLiteDatabase* Database, const QString& SQL) : FDatabase(Database) {
    ParseSQL(SQL, FItems, true);
    if (FDatabase) FDatabase->FSQLHandles.push_back(this);
}

TSQLiteSQLHandle::~TSQLiteSQLHandle() {
    Finalize();
    if (FDatabase) {
        auto& list = FDatabase->FSQLHandles;
        list.erase(std::remove(list.begin(), list.end(), this), list.end());
    }
}

QString TSQLiteSQLHandle::CurrentStatement() const {
    return (FCurrent >= 0 && FCurrent < FItems.size()) ? FItems[FCurrent] : QString();
}

void TSQLiteSQLHandle::Reset() {
    FLastSteppedRecNo = 0;
    if (FSQLHandle) drv().sqlite3_reset(FSQLHandle);
}

void TSQLiteSQLHandle::Finalize() {
    if (FSQLHandle) {
        drv().sqlite3_finalize(FSQLHandle);
        FSQLHandle = nullptr;
    }
}

void TSQLiteSQLHandle::Detach() {
    Finalize();
    FDatabase = nullptr;
}

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
// Statements

std::unique_ptr<TSQLiteSQLHandle> TDLSQLiteDatabase::CreateSQLHandle(const QString& SQL) {
    return std::make_unique<TSQLiteSQLHandle>(this, SQL);
}

int TDLSQLiteDatabase::InternalPrepareNoCheck(const QString& SQL, sqlite3_stmt*& Handle) {
    CheckConnected();
    DoBeforePrepare(SQL);
    Handle = nullptr;
    int rc;
    if (FUnicode) {
        rc = drv().sqlite3_prepare16_v2(FDB, SQL.utf16(), -1, &Handle, nullptr);
    } else {
        const QByteArray text = SQL.toLocal8Bit();
        rc = drv().sqlite3_prepare_v2(FDB, text.constData(), -1, &Handle, nullptr);
    }
    DoAfterPrepare(SQL, rc);
    return rc;
}

int TDLSQLiteDatabase::InternalPrepare(const QString& SQL, sqlite3_stmt*& Handle) {
    return SQLiteCheck(InternalPrepareNoCheck(SQL, Handle), SQL);
}

void TDLSQLiteDatabase::GetParamNames(const QString& SQL, QStringList& ParamNames) {
    if (!GetConnected()) return;
    sqlite3_stmt* stmt = nullptr;
    if (InternalPrepareNoCheck(SQL, stmt) != SQLITE_OK || !stmt) {
        if (stmt) drv().sqlite3_finalize(stmt);
        return;
    }
    const int n = drv().sqlite3_bind_parameter_count(stmt);
    for (int i = 1; i <= n; ++i) {
        const char* name = drv().sqlite3_bind_parameter_name(stmt, i);
        ParamNames.append(name ? (FUnicode ? QString::fromUtf8(name) : QString::fromLocal8Bit(name)) : QString());
    }
    drv().sqlite3_finalize(stmt);
}

void TDLSQLiteDatabase::CreateParams(const QString& SQL, TParams& Params) {
    Params.Clear();
    QStringList names;
    GetParamNames(SQL, names);
    for (const QString& name : names) Params.Add(name);
}

void TDLSQLiteDatabase::Prepare(TSQLiteSQLHandle& SQLHandle) {
    SQLHandle.Finalize();
    SQLHandle.FCurrent = SQLHandle.FNext;
    SQLHandle.FLastSteppedRecNo = 0;
    // A failing statement leaves the handle where it was.
    InternalPrepare(SQLHandle.CurrentStatement(), SQLHandle.FSQLHandle);
    ++SQLHandle.FNext;
}

void TDLSQLiteDatabase::BindParams(TSQLiteSQLHandle& SQLHandle, const TParams* Params) {
    sqlite3_stmt* stmt = SQLHandle.FSQLHandle;
    if (!stmt || !Params) return;
    const QString sql = SQLHandle.CurrentStatement();
    const int count = drv().sqlite3_bind_parameter_count(stmt);
    for (int i = 0; i < Params->Count(); ++i) {
        const TParam& p = (*Params)[i];
        int index = -1;
        if (p.Name.isEmpty()) {
            index = i + 1;
        } else {
            const QChar c = p.Name[0];
            if (c == u'$' || c == u':' || c == u'@') {
                const QByteArray n = FUnicode ? p.Name.toUtf8() : p.Name.toLocal8Bit();
                index = drv().sqlite3_bind_parameter_index(stmt, n.constData());
            } else if (c == u'?') {
                // "?x" names no position: it stays -1, and the engine refuses it.
                bool number = true;
                index = p.Name.size() == 1 ? i + 1 : p.Name.mid(1).toInt(&number);
                if (!number) index = -1;
            }
        }
        // A list may carry more values than this statement uses.
        if (index == 0 || index > count) continue;
        int rc = SQLITE_OK;
        if (p.IsNull()) {
            rc = drv().sqlite3_bind_null(stmt, index);
        } else {
            switch (p.DataType) {
                case ftString:
                case ftMemo:
                case ftWideString:
                case ftWideMemo: {
                    const QString text = p.Value.toString();
                    if (FUnicode) {
                        rc = drv().sqlite3_bind_text16(stmt, index, text.utf16(),
                                                       static_cast<int>(text.size() * 2), SQLITE_TRANSIENT);
                    } else {
                        const QByteArray b = text.toLocal8Bit();
                        rc = drv().sqlite3_bind_text(stmt, index, b.constData(), static_cast<int>(b.size()),
                                                     SQLITE_TRANSIENT);
                    }
                    break;
                }
                case ftInteger:
                    rc = drv().sqlite3_bind_int64(stmt, index, static_cast<qint64>(p.Value.toInt()));
                    break;
                case ftLargeint:
                    rc = drv().sqlite3_bind_int64(stmt, index, p.Value.toLongLong());
                    break;
                case ftBoolean:
                    rc = drv().sqlite3_bind_int(stmt, index, p.Value.toBool() ? 1 : 0);
                    break;
                case ftFloat:
                case ftCurrency:
                    rc = drv().sqlite3_bind_double(stmt, index, p.Value.toDouble());
                    break;
                case ftDate:
                case ftTime:
                case ftDateTime: {
                    // Dates are stored as text, never as a number.
                    const double d = p.Value.toDouble();
                    const QString text = p.DataType == ftDate   ? DateToString(d)
                                         : p.DataType == ftTime ? TimeToString(d)
                                                                : DateTimeToString(d);
                    rc = drv().sqlite3_bind_text16(stmt, index, text.utf16(), static_cast<int>(text.size() * 2),
                                                   SQLITE_TRANSIENT);
                    break;
                }
                case ftBlob:
                case ftGraphic:
                    if (p.Value.typeId() == QMetaType::QByteArray) {
                        const QByteArray b = p.Value.toByteArray();
                        rc = drv().sqlite3_bind_blob(stmt, index, b.constData(), static_cast<int>(b.size()),
                                                     SQLITE_TRANSIENT);
                    }
                    break;
                case ftGuid: {
                    const QUuid g = p.Value.typeId() == QMetaType::QUuid ? p.Value.toUuid()
                                                                          : StringToGUID(p.Value.toString());
                    const QByteArray bytes = GUIDToBytes(g);
                    rc = drv().sqlite3_bind_blob(stmt, index, bytes.constData(), 16, SQLITE_TRANSIENT);
                    break;
                }
                default:
                    throw CreateException(QStringLiteral("Unsupported field type in BindParams."));
            }
        }
        SQLiteCheck(rc, sql);
    }
}

void TDLSQLiteDatabase::ExecuteNext(TSQLiteSQLHandle& SQLHandle) {
    if (SQLHandle.FSQLHandle) {
        const QString sql = SQLHandle.CurrentStatement();
        InternalBeforeExecute(sql);
        const int rc = drv().sqlite3_step(SQLHandle.FSQLHandle);
        SQLHandle.Finalize();
        if (rc != SQLITE_ROW && rc != SQLITE_DONE) SQLiteCheck(rc, sql);
        InternalAfterExecute(sql);
    }
    // Autocommit ends every savepoint, whatever ended the transaction.
    if (!GetInTransaction()) ClearSavepoints();
}

void TDLSQLiteDatabase::InternalBeforeExecute(const QString& SQL) {
    if (GetSQLCommand(SQL) != stSelect) ResetHandles();
    if (FBeforeExecute) FBeforeExecute(SQL);
}

void TDLSQLiteDatabase::InternalAfterExecute(const QString& SQL) {
    if (SQL.contains(QLatin1String("encoding"), Qt::CaseInsensitive)) FEncoding = 0;
    switch (GetSQLCommand(SQL)) {
        case stSavepoint:
            FSavepoints.Savepoint(GetSavepointName(SQL));
            break;
        case stRelease:
            FSavepoints.Release(GetSavepointName(SQL));
            break;
        case stRollback:
            FSavepoints.Rollback(GetSavepointName(SQL));
            break;
        case stCommit:
        case stEnd:
            FSavepoints.Clear();
            break;
        case stAttach:
            Attached(UnQuoteIdentifier(GetDatabaseNameFromSQL(SQL)), GetFileNameFromSQL(SQL));
            break;
        case stDetach:
            Detached(UnQuoteIdentifier(GetDatabaseNameFromSQL(SQL)));
            break;
        case stSelect:
            CheckLoadExtension(SQL);
            break;
        default:
            break;
    }
    if (FAfterExecute) FAfterExecute(SQL);
}

void TDLSQLiteDatabase::ResetHandles() {
    for (TSQLiteSQLHandle* h : FSQLHandles) h->Reset();
    FLastLockTime = 0;
}

void TDLSQLiteDatabase::Attached(const QString& Name, const QString& FileName) {
    FDatabaseFiles.SetValueByName(Name, FileName);
}

void TDLSQLiteDatabase::Detached(const QString& Name) { FDatabaseFiles.Delete(Name); }

void TDLSQLiteDatabase::CheckLoadExtension(const QString& SQL) {
    if (!SQL.contains(QLatin1String("load_extension"), Qt::CaseInsensitive)) return;
    QString file, entry;
    if (GetLoadExtensionParams(SQL, file, entry) && !file.isEmpty()) FExtensions.push_back({file, entry});
}

void TDLSQLiteDatabase::Execute(const QString& SQL, const TParams* Params) {
    CheckConnected();
    TWaitCursorGuard cursor(FShowWaitCursor);
    std::unique_ptr<TSQLiteSQLHandle> h = CreateSQLHandle(SQL);
    while (!h->Complete()) {
        Prepare(*h);
        if (Params && Params->Count() > 0) BindParams(*h, Params);
        ExecuteNext(*h);
    }
}

QString TDLSQLiteDatabase::ColumnText(sqlite3_stmt* stmt, int col) const {
    if (FUnicode) {
        const void* p = drv().sqlite3_column_text16(stmt, col);
        const int bytes = drv().sqlite3_column_bytes16(stmt, col);
        return p ? QString::fromUtf16(static_cast<const char16_t*>(p), bytes / 2) : QString();
    }
    const unsigned char* p = drv().sqlite3_column_text(stmt, col);
    return p ? QString::fromLocal8Bit(reinterpret_cast<const char*>(p)) : QString();
}

// ---------------------------------------------------------------------------
// Generic services

QString TDLSQLiteDatabase::InternalGetStringValue(const QString& SQL) {
    CheckConnected();
    TStatementGuard stmt;
    InternalPrepare(SQL, stmt.ref());
    QString result;
    if (stmt.get() && SQLiteCheck(drv().sqlite3_step(stmt.get()), SQL) == SQLITE_ROW) {
        result = ColumnText(stmt.get(), 0);
        SQLiteCheck(drv().sqlite3_step(stmt.get()), SQL);
    }
    return result;
}

QString TDLSQLiteDatabase::GetStringValue(const QString& SQL) { return InternalGetStringValue(SQL); }

void TDLSQLiteDatabase::InternalGetStringValues(const QString& SQL, QStringList& Values, int Index) {
    CheckConnected();
    TStatementGuard stmt;
    InternalPrepare(SQL, stmt.ref());
    while (stmt.get() && SQLiteCheck(drv().sqlite3_step(stmt.get()), SQL) == SQLITE_ROW)
        Values.append(ColumnText(stmt.get(), Index));
}

void TDLSQLiteDatabase::GetValues(const QString& SQL, QStringList& Values) { InternalGetStringValues(SQL, Values, 0); }

IRecordSetPtr TDLSQLiteDatabase::GetRecordSet(const QString& SQL) {
    CheckConnected();
    auto rs = std::make_shared<TRecordSet>();
    TSQLiteSQLHandle h(this, SQL);
    if (h.Complete()) return rs;
    Prepare(h);
    sqlite3_stmt* stmt = h.FSQLHandle;
    if (!stmt) return rs;
    const int cols = drv().sqlite3_column_count(stmt);
    for (int c = 0; c < cols; ++c) {
        rs->AddField(FUnicode ? QString::fromUtf16(static_cast<const char16_t*>(drv().sqlite3_column_name16(stmt, c)))
                              : QString::fromLocal8Bit(drv().sqlite3_column_name(stmt, c)));
    }
    while (SQLiteCheck(drv().sqlite3_step(stmt), h.CurrentStatement()) == SQLITE_ROW) {
        const int r = rs->Append();
        for (int c = 0; c < cols; ++c) rs->SetValue(r, c, ColumnText(stmt, c));
    }
    return rs;
}

bool TDLSQLiteDatabase::HasSQLCursor(const QString& SQL) {
    const TSQLTokenType cmd = GetSQLCommand(SQL);
    return cmd == stExplain || cmd == stPragma || cmd == stSelect;
}

bool TDLSQLiteDatabase::IsSelectSQL(const QString& SQL) {
    return GetSQLCommand(SQL) == stSelect;
}

bool TDLSQLiteDatabase::IsSimpleSelect(const QString& SQL) {
    return brindle::IsSimpleSelect(SQL);
}

bool TDLSQLiteDatabase::HasOrderBy(const QString& SQL) {
    return brindle::HasOrderBy(SQL);
}

QString TDLSQLiteDatabase::GetTableNameFromSQL(const QString& SQL) {
    return brindle::GetTableNameFromSQL(SQL);
}

int TDLSQLiteDatabase::GetTableCountFromSQL(const QString& SQL) {
    return brindle::GetTableCountFromSQL(SQL);
}

QString TDLSQLiteDatabase::FixFilterExpression(const QString& SQL, const QStringList& ExcludedFieldNames) {
    return brindle::FixFilterExpression(SQL, ExcludedFieldNames);
}

qint64 TDLSQLiteDatabase::GetRecordCount(const QString& SQL) {
    if (!HasSQLCursor(SQL)) return 0;
    return InternalGetRecordCount(SQL);
}

qint64 TDLSQLiteDatabase::InternalGetRecordCount(const QString& SQL) {
    CheckConnected();
    if (GetSQLCommand(SQL) == stSelect) {
        try {
            const QString v = GetStringValue(QStringLiteral("select count(*) from (%1)").arg(SQL));
            bool ok = false;
            const qint64 n = v.toLongLong(&ok);
            if (!v.isEmpty() && ok && n >= 0) return n;
        } catch (const std::exception&) {
            // Statements that cannot stand in a subquery are counted by stepping.
        }
    }
    TStatementGuard stmt;
    InternalPrepare(SQL, stmt.ref());
    qint64 count = 0;
    while (stmt.get() && SQLiteCheck(drv().sqlite3_step(stmt.get()), SQL) == SQLITE_ROW) ++count;
    return count;
}

void TDLSQLiteDatabase::Interrupt() {
    if (FDB) drv().sqlite3_interrupt(FDB);
}

int TDLSQLiteDatabase::GetChanges() { return FDB ? drv().sqlite3_changes(FDB) : 0; }

int TDLSQLiteDatabase::GetTotalChanges() { return FDB ? drv().sqlite3_total_changes(FDB) : 0; }

qint64 TDLSQLiteDatabase::GetLastInsertRowID() { return FDB ? drv().sqlite3_last_insert_rowid(FDB) : 0; }

QString TDLSQLiteDatabase::IntegrityCheck() {
    CheckConnected();
    return GetStringValue(QStringLiteral("pragma integrity_check"));
}

TDatabaseStatus TDLSQLiteDatabase::GetStatus() {
    if (Connected()) return dsConnected;
    if (!Exists()) return dsUnavailable;
    if (FCorruptedFile) return dsAccessError;
    return dsDisconnected;
}

bool TDLSQLiteDatabase::Exists() {
    return FFileName.compare(QLatin1String(":memory:"), Qt::CaseInsensitive) == 0 || QFileInfo::exists(FFileName);
}

bool TDLSQLiteDatabase::IsValidSQL(const QString& SQL) {
    TStatementGuard stmt;
    return InternalPrepareNoCheck(SQL, stmt.ref()) == SQLITE_OK;
}

void TDLSQLiteDatabase::CheckValidSQL(const QString& SQL) {
    TStatementGuard stmt;
    InternalPrepare(SQL, stmt.ref());
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
// Schema helpers

QString TDLSQLiteDatabase::MasterTable(const QString& DatabaseName) const {
    if (SameObject(DatabaseName, QStringLiteral("temp"))) return QStringLiteral("sqlite_temp_master");
    return QuoteObject(DatabaseName, QStringLiteral("sqlite_master"));
}

int TDLSQLiteDatabase::CountRows(const QString& SQL) {
    QStringList rows;
    InternalGetStringValues(SQL, rows, 0);
    return static_cast<int>(rows.size());
}

bool TDLSQLiteDatabase::ObjectExists(const QString& QualifiedName, const char* Type, bool SystemNames) {
    if (!Connected()) return false;
    QString db, name;
    ParseObject(QualifiedName, db, name);
    if (SystemNames && (db.isEmpty() || SameObject(db, QStringLiteral("main")))) {
        if (name.compare(QLatin1String("sqlite_master"), Qt::CaseInsensitive) == 0 ||
            name.compare(QLatin1String("sqlite_temp_master"), Qt::CaseInsensitive) == 0)
            return true;
    }
    if (DatabaseExists(db) &&
        CountRows(QStringLiteral("select name from %1 where [type] like '%2' and name like %3 ")
                      .arg(MasterTable(db), QLatin1String(Type), LikeName(name))) > 0)
        return true;
    // Unqualified names are looked up in temp too; for views too this asks
    // for a temporary table, which is how the check has always answered.
    if (db.isEmpty())
        return CountRows(QStringLiteral("select name from sqlite_temp_master where [type] like 'table' and name like %1")
                             .arg(LikeName(name))) > 0;
    return false;
}

bool TDLSQLiteDatabase::TableExists(const QString& TableName) { return ObjectExists(TableName, "table", true); }

bool TDLSQLiteDatabase::ViewExists(const QString& ViewName) { return ObjectExists(ViewName, "view", false); }

bool TDLSQLiteDatabase::DatabaseExists(const QString& Name) {
    if (Name.isEmpty()) return true;
    for (const QString& d : DatabaseNames())
        if (d.compare(Name, Qt::CaseInsensitive) == 0) return true;
    return false;
}

bool TDLSQLiteDatabase::IsSystemTable(const QString& TableName) {
    return TableName.toLower().startsWith(QLatin1String("sqlite_"));
}

bool TDLSQLiteDatabase::IsTempTable(const QString& TableName) {
    QString db, name;
    ParseObject(TableName, db, name);
    return SameObject(db, QStringLiteral("temp"));
}

bool TDLSQLiteDatabase::IsTempView(const QString& ViewName) { return IsTempTable(ViewName); }

bool TDLSQLiteDatabase::IsRowIDField(const QString& FieldName) {
    return FieldName.compare(QLatin1String("rowid"), Qt::CaseInsensitive) == 0 ||
           FieldName.compare(QLatin1String("_rowid_"), Qt::CaseInsensitive) == 0 ||
           FieldName.compare(QLatin1String("oid"), Qt::CaseInsensitive) == 0;
}

QString TDLSQLiteDatabase::GetObjectDDL(const QString& OwnerName, const QString& ObjectName) {
    QString db, name;
    ParseObject(ObjectName, db, name);
    if (!OwnerName.isEmpty()) db = OwnerName;
    QString sql = GetStringValue(
        QStringLiteral("select SQL from %1 where name like %2").arg(MasterTable(db), LikeName(name)));
    if (sql.isEmpty() && db.isEmpty())
        sql = GetStringValue(QStringLiteral("select SQL from sqlite_temp_master where name like %1").arg(LikeName(name)));
    return sql;
}

QString TDLSQLiteDatabase::GetTriggerDDL(const QString& OwnerName, const QString& ObjectName, bool IsTemporary) {
    QString db, name;
    ParseObject(ObjectName, db, name);
    if (!OwnerName.isEmpty()) db = OwnerName;
    const QString master = IsTemporary ? QStringLiteral("sqlite_temp_master") : MasterTable(db);
    QString sql = GetStringValue(QStringLiteral("select SQL from %1 where name like %2 and [type] like 'trigger'")
                                     .arg(master, LikeName(name)));
    if (sql.isEmpty() && db.isEmpty())
        sql = GetStringValue(
            QStringLiteral("select SQL from sqlite_temp_master where name like %1 and [type] like 'trigger'")
                .arg(LikeName(name)));
    return sql;
}

bool TDLSQLiteDatabase::IsVirtualTable(const QString& TableName, QString* ModuleName) {
    const QString ddl = GetObjectDDL(QString(), TableName);
    const QString upper = ddl.toUpper();
    if (!upper.contains(QLatin1String("VIRTUAL")) || !upper.contains(QLatin1String("USING")) ||
        GetSQLCommand(ddl) != stCreateVirtualTable)
        return false;
    if (ModuleName) *ModuleName = GetVirtualTableModule(ddl);
    return true;
}

bool TDLSQLiteDatabase::IsFtsVirtualTable(const QString& TableName) {
    QString module;
    return IsVirtualTable(TableName, &module) && (module.compare(QLatin1String("fts3"), Qt::CaseInsensitive) == 0 ||
                                                  module.compare(QLatin1String("fts4"), Qt::CaseInsensitive) == 0);
}

bool TDLSQLiteDatabase::IsFtsShadowTable(const QString& TableName) {
    QString db, name, stem, module;
    ParseObject(TableName, db, name);
    auto stemModule = [&](QString& m) { return IsVirtualTable(QuoteObject(db, stem), &m); };
    if (endsWithCI(name, "_content", stem) || endsWithCI(name, "_segdir", stem) ||
        endsWithCI(name, "_segments", stem)) {
        return stemModule(module) && (module.compare(QLatin1String("fts3"), Qt::CaseInsensitive) == 0 ||
                                      module.compare(QLatin1String("fts4"), Qt::CaseInsensitive) == 0);
    }
    if (endsWithCI(name, "_stat", stem) || endsWithCI(name, "_docsize", stem))
        return stemModule(module) && module.compare(QLatin1String("fts4"), Qt::CaseInsensitive) == 0;
    return false;
}

bool TDLSQLiteDatabase::IsRtreeShadowTable(const QString& TableName) {
    QString db, name, stem, module;
    ParseObject(TableName, db, name);
    if (endsWithCI(name, "_node", stem) || endsWithCI(name, "_rowid", stem) || endsWithCI(name, "_parent", stem))
        return IsVirtualTable(QuoteObject(db, stem), &module) &&
               module.compare(QLatin1String("rtree"), Qt::CaseInsensitive) == 0;
    return false;
}

bool TDLSQLiteDatabase::CanModifyTable(const QString& TableName) {
    if (IsFtsShadowTable(TableName) || IsRtreeShadowTable(TableName)) return false;
    // Newer modules (fts5 and others) have shadow tables of other names; the
    // engine knows them all. A library without table_list cannot tell.
    QString db, name;
    ParseObject(TableName, db, name);
    try {
        return GetStringValue(QStringLiteral("select type from pragma_table_list where name = %1%2")
                                  .arg(QuotedStr(name), db.isEmpty() ? QString() : QStringLiteral(" and schema = ") + QuotedStr(db))) !=
               QLatin1String("shadow");
    } catch (const ECustomException&) {
        return true;
    }
}

bool TDLSQLiteDatabase::IsWithoutRowID(const QString& TableName) {
    const QString ddl = GetObjectDDL(QString(), TableName);
    return !ddl.isEmpty() && IsWithoutRowid(ddl);
}

void TDLSQLiteDatabase::DropTable(const QString& TableName) {
    Execute(QStringLiteral("drop table ") + QuoteObject(TableName));
}

void TDLSQLiteDatabase::DropView(const QString& ViewName) {
    Execute(QStringLiteral("drop view ") + QuoteObject(ViewName));
}

void TDLSQLiteDatabase::GetTableNames(const QString& DatabaseName, std::vector<TNameEntry>& TableNames,
                                      bool SystemTables, bool ShadowTables, bool QualifyTableNames) {
    const bool isTemp = SameObject(DatabaseName, QStringLiteral("temp"));
    QString sql = QStringLiteral("select name from %1 where [type] like 'table' ").arg(MasterTable(DatabaseName));
    if (!SystemTables)
        sql += QStringLiteral(" and not (substr(lower(name),1,7) like 'sqlite|_%' escape '|')");
    if (SystemTables && !isTemp) {
        TableNames.push_back({QStringLiteral("sqlite_master"), false});
        TableNames.push_back({QStringLiteral("sqlite_temp_master"), false});
    }
    QStringList names;
    GetValues(sql, names);
    std::vector<TNameEntry> found;
    for (const QString& n : names) {
        const QString qualified = QuoteObject(DatabaseName, n);
        const bool shadow = IsFtsShadowTable(qualified) || IsRtreeShadowTable(qualified);
        if (shadow && !ShadowTables) continue;
        TNameEntry e;
        e.Name = QualifyTableNames ? QuoteObjectIfNeeded(DatabaseName, n) : QuoteObjectIfNeeded(QString(), n);
        e.Flag = IsVirtualTable(qualified) || (ShadowTables && shadow);
        found.push_back(e);
    }
    std::stable_sort(found.begin(), found.end(), [](const TNameEntry& a, const TNameEntry& b) {
        if (a.Flag != b.Flag) return !a.Flag;
        return a.Name.compare(b.Name, Qt::CaseInsensitive) < 0;
    });
    TableNames.insert(TableNames.end(), found.begin(), found.end());
}

void TDLSQLiteDatabase::GetTableNames(QStringList& List, bool SystemTables) {
    SetConnected(true);
    for (const QString& db : DatabaseNames()) {
        std::vector<TNameEntry> entries;
        GetTableNames(db, entries, SystemTables, false, true);
        for (const TNameEntry& e : entries) List.append(e.Name);
    }
}

void TDLSQLiteDatabase::GetViewNames(const QString& DatabaseName, std::vector<TNameEntry>& ViewNames,
                                     bool QualifyViewNames) {
    QStringList names;
    GetValues(QStringLiteral("select name from %1 where [type] like 'view' ").arg(MasterTable(DatabaseName)), names);
    std::vector<TNameEntry> found;
    for (const QString& n : names)
        found.push_back({QualifyViewNames ? QuoteObjectIfNeeded(DatabaseName, n) : QuoteObjectIfNeeded(QString(), n),
                         false});
    std::stable_sort(found.begin(), found.end(), [](const TNameEntry& a, const TNameEntry& b) {
        return a.Name.compare(b.Name, Qt::CaseInsensitive) < 0;
    });
    ViewNames.insert(ViewNames.end(), found.begin(), found.end());
}

void TDLSQLiteDatabase::GetViewNames(QStringList& List) {
    SetConnected(true);
    for (const QString& db : DatabaseNames()) {
        std::vector<TNameEntry> entries;
        GetViewNames(db, entries, true);
        for (const TNameEntry& e : entries) List.append(e.Name);
    }
}

void TDLSQLiteDatabase::GetIndexNames(const QString& TableName, QStringList& IndexNames) {
    QString db, name;
    ParseObject(TableName, db, name);
    GetValues(QStringLiteral("select name from %1 where tbl_name like %2 and [type] like 'index'")
                  .arg(MasterTable(db), LikeName(name)),
              IndexNames);
    if (db.isEmpty())
        GetValues(QStringLiteral("select name from sqlite_temp_master where tbl_name like %1 and [type] like 'index'")
                      .arg(LikeName(name)),
                  IndexNames);
}

void TDLSQLiteDatabase::GetTriggerNames(const QString& TableName, QStringList& TriggerNames) {
    QString db, name;
    ParseObject(TableName, db, name);
    if (SameObject(db, QStringLiteral("temp"))) return;
    GetValues(QStringLiteral("select name from %1 where tbl_name like %2 and [type] like 'trigger'")
                  .arg(MasterTable(db), LikeName(name)),
              TriggerNames);
}

void TDLSQLiteDatabase::GetTemporaryTriggerNames(const QString& TableName, QStringList& TriggerNames) {
    QString db, name;
    ParseObject(TableName, db, name);
    const QString sql = QStringLiteral("select name from sqlite_temp_master where tbl_name like %1 and [type] like 'trigger'")
                            .arg(LikeName(name));
    if (SameObject(db, QStringLiteral("temp"))) {
        GetValues(sql, TriggerNames);
        return;
    }
    // Temporary triggers may hang on a table of any database; keep those of
    // this table's database.
    QStringList names;
    GetValues(sql, names);
    const QString tableDb = db.isEmpty() ? QStringLiteral("main") : db;
    for (const QString& n : names) {
        const QString ddl = GetStringValue(
            QStringLiteral("select sql from sqlite_temp_master where name like %1 and [type] like 'trigger'")
                .arg(LikeName(n)));
        QString trigDb = GetTriggerDatabaseName(ddl);
        if (trigDb.isEmpty()) trigDb = QStringLiteral("main");
        if (SameObject(trigDb, tableDb)) TriggerNames.append(n);
    }
}

void TDLSQLiteDatabase::GetCollations(const QString& DatabaseName, QStringList& List) {
    const QString sql = DatabaseName.isEmpty()
                            ? QStringLiteral("pragma collation_list")
                            : QStringLiteral("pragma %1.collation_list").arg(QuoteIdentifier(DatabaseName));
    IRecordSetPtr rs = GetRecordSet(sql);
    for (int r = 0; r < rs->GetRecordCount(); ++r) List.append(rs->GetValueByName(r, QStringLiteral("name")));
}

void TDLSQLiteDatabase::ReadTableInfo(const QString& TableName, IRecordSetPtr& Result) {
    QString db, name;
    ParseObject(TableName, db, name);
    Result = GetRecordSet(QStringLiteral("pragma %1table_info(%2)").arg(pragmaPrefix(db), QuoteIdentifier(name)));
}

void TDLSQLiteDatabase::SQLStrToDataType(const QString& SQLType, TFieldType& DataType, int& Size, int& Precision,
                                         QString& BaseType) {
    QString size, precision;
    SQLStrToDataType(SQLType, BaseType, size, precision);
    SQLStrToDataType(SQLType, DataType, Size, Precision);
}

void TDLSQLiteDatabase::SQLStrToDataType(const QString& SQLType, QString& DataType, QString& Size,
                                         QString& Precision) {
    DataType.clear();
    Size.clear();
    Precision.clear();
    FTypeMappings.SQLStrToDataType(SQLType, DataType, Size, Precision);
}

void TDLSQLiteDatabase::SQLStrToDataType(const QString& SQLType, TFieldType& DataType, QString& Size,
                                         QString& Precision) {
    DataType = ftUnknown;
    Size.clear();
    Precision.clear();
    FTypeMappings.SQLStrToDataType(SQLType, DataType, Size, Precision);
}

void TDLSQLiteDatabase::SQLStrToDataType(const QString& SQLType, TFieldType& DataType, int& Size,
                                         int& Precision) {
    DataType = ftUnknown;
    Size = 0;
    Precision = 0;
    FTypeMappings.SQLStrToDataType(SQLType, DataType, Size, Precision);
}

void TDLSQLiteDatabase::GetFields(const QString& TableName, TFieldRecords& FieldRecs) {
    IRecordSetPtr rs;
    ReadTableInfo(TableName, rs);
    for (int r = 0; r < rs->GetRecordCount(); ++r) {
        TFieldRecord f;
        f.FieldName = rs->GetValueByName(r, QStringLiteral("name"));
        f.OriginalFieldName = f.FieldName;
        f.FullSQLType = rs->GetValueByName(r, QStringLiteral("type"));
        SQLStrToDataType(f.FullSQLType, f.DataType, f.Size, f.Precision, f.SQLType);
        f.Required = rs->GetValueByName(r, QStringLiteral("notnull")) != QLatin1String("0");
        f.DefaultValue = rs->GetValueByName(r, QStringLiteral("dflt_value"));
        FieldRecs.push_back(f);
    }
}

void TDLSQLiteDatabase::GetIndexes(const QString& TableName, TIndexRecords& IndexRecs) {
    IRecordSetPtr info;
    ReadTableInfo(TableName, info);
    bool hasPrimaryKey = false, integerPrimaryKey = false;
    for (int r = 0; r < info->GetRecordCount(); ++r) {
        if (info->GetValueByName(r, QStringLiteral("pk")) == QLatin1String("0")) continue;
        if (hasPrimaryKey) {
            integerPrimaryKey = false;  // a second key column
            break;
        }
        hasPrimaryKey = true;
        integerPrimaryKey = info->GetValueByName(r, QStringLiteral("type")).toUpper() == QLatin1String("INTEGER");
    }
    QString db, name;
    ParseObject(TableName, db, name);
    IRecordSetPtr list =
        GetRecordSet(QStringLiteral("pragma %1index_list(%2)").arg(pragmaPrefix(db), QuoteIdentifier(name)));
    TIndexRecords result;
    if (hasPrimaryKey) result.push_back({QString(), ixPrimary | ixUnique});
    // Engines since 3.8.9 tell which index stems from the key; older ones
    // leave a guess at the first automatic index.
    const bool hasOrigin = list->GetNames().contains(QLatin1String("origin"));
    for (int r = 0; r < list->GetRecordCount(); ++r) {
        const QString ixName = list->GetValueByName(r, QStringLiteral("name"));
        const bool keyIndex = hasOrigin ? list->GetValueByName(r, QStringLiteral("origin")) == QLatin1String("pk")
                                        : ixName.left(17) == QLatin1String("sqlite_autoindex_");
        if (hasPrimaryKey && !integerPrimaryKey && result[0].IndexName.isEmpty() && keyIndex) {
            result[0].IndexName = ixName;
            continue;
        }
        TIndexRecord rec{ixName, 0};
        if (list->GetValueByName(r, QStringLiteral("unique")) == QLatin1String("1")) rec.Options |= ixUnique;
        result.push_back(rec);
    }
    if (result.size() > 1) {
        auto key = [](const TIndexRecord& x) {
            return QString((x.Options & ixPrimary) ? u'0' : u'1') + x.IndexName;
        };
        std::stable_sort(result.begin(), result.end(), [&](const TIndexRecord& a, const TIndexRecord& b) {
            return key(a).compare(key(b), Qt::CaseInsensitive) < 0;
        });
    }
    IndexRecs.insert(IndexRecs.end(), result.begin(), result.end());
}

void TDLSQLiteDatabase::GetIndexFields(const QString& TableName, const QString& IndexName, QStringList& Fields) {
    QString db, name;
    ParseObject(TableName, db, name);
    const qsizetype before = Fields.size();
    if (IndexName.isEmpty()) {
        IRecordSetPtr info;
        ReadTableInfo(TableName, info);
        // Older engines numbered every key column 1; today's give the key
        // position, so all key columns are taken in that order.
        std::vector<std::pair<int, QString>> key;
        for (int r = 0; r < info->GetRecordCount(); ++r) {
            const int pk = info->GetValueByName(r, QStringLiteral("pk")).toInt();
            if (pk > 0) key.emplace_back(pk, info->GetValueByName(r, QStringLiteral("name")));
        }
        std::stable_sort(key.begin(), key.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
        for (const auto& k : key) Fields.append(k.second);
        if (Fields.size() > before) return;
    }
    IRecordSetPtr rs =
        GetRecordSet(QStringLiteral("pragma %1index_info(%2)").arg(pragmaPrefix(db), QuoteIdentifier(IndexName)));
    for (int r = 0; r < rs->GetRecordCount(); ++r) Fields.append(rs->GetValueByName(r, QStringLiteral("name")));
}

void TDLSQLiteDatabase::GetRowIDFields(const QString& TableName, QStringList& List) {
    const QString ddl = GetObjectDDL(QString(), TableName);
    if (!ddl.isEmpty() && IsWithoutRowid(ddl)) return;
    QStringList columns;
    GetFieldNamesFromTable(TableName, columns);
    for (const char* candidate : {"rowid", "_rowid_", "oid"}) {
        bool taken = false;
        for (const QString& c : columns) taken = taken || c.compare(QLatin1String(candidate), Qt::CaseInsensitive) == 0;
        if (!taken) List.append(QLatin1String(candidate));
    }
}

QString TDLSQLiteDatabase::GetRowIDFieldName(const QString& TableName) {
    QStringList list;
    GetRowIDFields(TableName, list);
    return list.value(0);
}

QString TDLSQLiteDatabase::GetRowIDAliasField(const QString& TableName) {
    IRecordSetPtr info;
    ReadTableInfo(TableName, info);
    QString key, type;
    int keys = 0;
    for (int r = 0; r < info->GetRecordCount(); ++r) {
        if (info->GetValueByName(r, QStringLiteral("pk")) == QLatin1String("0")) continue;
        ++keys;
        key = info->GetValueByName(r, QStringLiteral("name"));
        type = info->GetValueByName(r, QStringLiteral("type"));
    }
    if (keys != 1 || type.trimmed().compare(QLatin1String("INTEGER"), Qt::CaseInsensitive) != 0) return QString();
    // Any other key (DESC, or a table without rowid) is kept in an index of
    // its own; the rowid's alias needs none.
    QString db, name;
    ParseObject(TableName, db, name);
    IRecordSetPtr list =
        GetRecordSet(QStringLiteral("pragma %1index_list(%2)").arg(pragmaPrefix(db), QuoteIdentifier(name)));
    const bool hasOrigin = list->GetNames().contains(QLatin1String("origin"));
    for (int r = 0; r < list->GetRecordCount(); ++r) {
        if (hasOrigin) {
            if (list->GetValueByName(r, QStringLiteral("origin")) == QLatin1String("pk")) return QString();
        } else if (list->GetValueByName(r, QStringLiteral("name")).startsWith(QLatin1String("sqlite_autoindex_"))) {
            QStringList columns;
            GetIndexFields(TableName, list->GetValueByName(r, QStringLiteral("name")), columns);
            if (columns.size() == 1 && columns.first().compare(key, Qt::CaseInsensitive) == 0) return QString();
        }
    }
    return key;
}

QString TDLSQLiteDatabase::GetSelectSQL(const QString& TableName, const QStringList* Fields) {
    QString list = (Fields && !Fields->isEmpty()) ? ListToFields(*Fields, true, QStringLiteral(","))
                                                  : QStringLiteral("*");
    const QString rowid = GetRowIDFieldName(TableName);
    if (!rowid.isEmpty()) list = QStringLiteral("%1 as %1, ").arg(rowid) + list;
    return QStringLiteral("select ") + list + QStringLiteral(" from ") + QuoteObject(TableName);
}

void TDLSQLiteDatabase::GetFieldNamesFromTable(const QString& TableName, QStringList& List) {
    GetFieldNamesFromSQL(QStringLiteral("select * from ") + QuoteObject(TableName), List);
}

void TDLSQLiteDatabase::GetFieldNamesFromSQL(const QString& SQL, QStringList& List) {
    TStatementGuard stmt;
    InternalPrepare(SQL, stmt.ref());
    if (!stmt.get()) return;
    const int cols = drv().sqlite3_column_count(stmt.get());
    for (int c = 0; c < cols; ++c)
        List.append(FUnicode
                        ? QString::fromUtf16(static_cast<const char16_t*>(drv().sqlite3_column_name16(stmt.get(), c)))
                        : QString::fromLocal8Bit(drv().sqlite3_column_name(stmt.get(), c)));
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
