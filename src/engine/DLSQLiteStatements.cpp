// The road from SQL text to rows: the handle that walks a script statement
// by statement, prepare, parameter binding, execution and the bookkeeping
// after each statement (savepoints, attachments, extensions typed by hand),
// and the small services that run one statement for a value or a few rows.
#include "DLSQLiteDatabase.h"

#include "DLDateTime.h"
#include "DLSQLiteInternal.h"
#include "DLTools.h"

#include <QUuid>

namespace brindle {

using internal::drv;
using internal::TStatementGuard;

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

QString TDLSQLiteDatabase::IntegrityCheck() {
    CheckConnected();
    return GetStringValue(QStringLiteral("pragma integrity_check"));
}

bool TDLSQLiteDatabase::IsValidSQL(const QString& SQL) {
    TStatementGuard stmt;
    return InternalPrepareNoCheck(SQL, stmt.ref()) == SQLITE_OK;
}

void TDLSQLiteDatabase::CheckValidSQL(const QString& SQL) {
    TStatementGuard stmt;
    InternalPrepare(SQL, stmt.ref());
}

}  // namespace brindle
