#include "SQLExecution.h"

#include "Caches.h"
#include "data/DLQuery.h"
#include "data/DLSQLDataSet.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/DLTools.h"
#include "engine/Exceptions.h"
#include "engine/SQLScanner.h"

#include <cmath>
#include <memory>

namespace brindle {

// ---------------------------------------------------------------------------
// Classifying text

bool IsSQL(const QString& Value) {
    for (const QChar c : Value) {
        if (c.isLetter() || c == u'_' || c == u'/' || c == u'*' || c == u'-') return true;
        if (c == u'.') return false;
    }
    return true;
}

bool IsSchemaChangingCommand(TSQLTokenType Command) {
    switch (Command) {
        case stAlterTable: case stAnalyze: case stAttach: case stCommit: case stCreateIndex:
        case stCreateTable: case stCreateTrigger: case stCreateView: case stCreateVirtualTable:
        case stDetach: case stDropIndex: case stDropTable: case stDropTrigger: case stDropView:
        case stReindex: case stRelease: case stRollback:
            return true;
        default:
            return false;
    }
}

bool IsDataChangingCommand(TSQLTokenType Command) {
    return Command == stDelete || Command == stInsert || Command == stUpdate;
}

bool MayModifySchema(const QString& SQL) { return IsSchemaChangingCommand(GetSQLCommand(SQL)); }
bool MayModifyData(const QString& SQL) { return IsDataChangingCommand(GetSQLCommand(SQL)); }

// ---------------------------------------------------------------------------
// Typed parameter values

bool HasLeadingZeros(const QString& Value) {
    return Value.size() > 1 && Value[0] == u'0' && Value[1] != u'.';
}

namespace {

bool IsQuoted(const QString& v) { return v.size() >= 2 && v.front() == u'\'' && v.back() == u'\''; }

bool IsHexLiteral(const QString& v) {
    return v.size() >= 3 && (v[0] == u'x' || v[0] == u'X') && v[1] == u'\'' && v.back() == u'\'';
}

// The ladder shared by parameters and cell values. An integer beyond 32
// bits stays whole as a 64-bit one: as a float it would lose digits.
QVariant TypedValue(const QString& Value, TFieldType& Type) {
    if (Value.compare(QLatin1String("NULL"), Qt::CaseInsensitive) == 0) {
        Type = ftUnknown;
        return QVariant();
    }
    if (IsQuoted(Value)) {
        Type = ftWideString;
        return Value.mid(1, Value.size() - 2);
    }
    if (IsHexLiteral(Value)) {
        Type = ftBlob;
        return QByteArray::fromHex(Value.mid(2, Value.size() - 3).toLatin1());
    }
    if (HasLeadingZeros(Value)) {
        Type = ftWideString;
        return Value;
    }
    bool ok = false;
    const int i = Value.toInt(&ok);
    if (ok) {
        Type = ftInteger;
        return i;
    }
    const qint64 l = Value.toLongLong(&ok);
    if (ok) {
        Type = ftLargeint;
        return l;
    }
    const double d = Value.toDouble(&ok);
    if (ok && std::isfinite(d)) {
        Type = ftFloat;
        return d;
    }
    Type = ftWideString;
    return Value;
}

}  // namespace

void StringToParam(const QString& Value, TParam& Param) {
    TFieldType type = ftUnknown;
    const QVariant v = TypedValue(Value, type);
    if (type != ftUnknown) Param.DataType = type;
    Param.Value = v;
    Param.Bound = true;
}

QVariant StringToVariant(const QString& Value) {
    TFieldType type = ftUnknown;
    return TypedValue(Value, type);
}

QString NiceFormatTime(qint64 Milliseconds) { return QStringLiteral("%1 ms").arg(Milliseconds); }

QString NiceFormatKeyFields(const QString& KeyFieldNames) {
    if (KeyFieldNames.size() <= 100) return KeyFieldNames;
    return KeyFieldNames.left(100) + QStringLiteral("...");
}

// ---------------------------------------------------------------------------
// THiresTimer

void THiresTimer::Start() {
    FAccumulated = 0;
    FRunning = true;
    FTimer.start();
}

void THiresTimer::Pause() {
    if (!FRunning) return;
    FAccumulated += FTimer.elapsed();
    FRunning = false;
}

void THiresTimer::Resume() {
    FRunning = true;
    FTimer.start();
}

qint64 THiresTimer::Total() const { return FAccumulated + (FRunning ? FTimer.elapsed() : 0); }

// ---------------------------------------------------------------------------
// TSQLRunner

struct TSQLRunner::TRun {
    TDLSQLiteDatabase* Database = nullptr;
    QStringList List;
    std::vector<TSQLTokenType> Commands;  // stUnknown for dot lines
    int LastSelectIndex = -1;
    TParams Params;
    THiresTimer Timer;
    int Changes = 0;
    int LastTotalChanges = 0;
    bool Canceled = false;
    bool Updated = false;
    bool Aborted = false;
    bool NeedRefreshDatabase = false;
    bool NeedRefreshData = false;
    int Executed = 0;
};

TSQLRunner::TSQLRunner(TDLQuery& Query) : FQuery(Query) {}

void TSQLRunner::Abort() {
    if (FCanAbort.load()) FAborted.store(true);
}

void TSQLRunner::DatabaseProgress(bool& Continue) {
    if (!FCanAbort.load()) return;
    // The window is pumped at most every 10 ms: often enough to repaint and
    // see the stop control, rarely enough to cost the statement nothing.
    if (!FLastProgress.isValid() || FLastProgress.elapsed() >= 10) {
        if (FOnPump) FOnPump();
        FLastProgress.start();
    }
    if (FAborted.load()) Continue = false;
}

namespace {

// Puts back the database's progress hook however the run ends.
class TProgressHook {
public:
    TProgressHook(TDLSQLiteDatabase& Database, std::function<void(bool&)> Hook)
        : FDatabase(Database), FSaved(std::move(Database.FOnProgress)) {
        FDatabase.FOnProgress = std::move(Hook);
    }
    ~TProgressHook() { FDatabase.FOnProgress = std::move(FSaved); }
    TProgressHook(const TProgressHook&) = delete;
    TProgressHook& operator=(const TProgressHook&) = delete;

private:
    TDLSQLiteDatabase& FDatabase;
    std::function<void(bool&)> FSaved;
};

// A dot line ends at its line end as well as at a semicolon: without this
// a dot line and the statement under it would run as one text and fail.
QStringList SplitDotLines(const QStringList& List) {
    QStringList result;
    for (QString piece : List) {
        while (!IsSQL(piece)) {
            const int eol = piece.indexOf(u'\n', piece.indexOf(u'.'));
            if (eol < 0 || piece.mid(eol + 1).trimmed().isEmpty()) break;
            result << piece.left(eol + 1);
            piece = piece.mid(eol + 1);
        }
        result << piece;
    }
    return result;
}

}  // namespace

TSQLRunOutcome TSQLRunner::ExecuteSQL(TDLSQLiteDatabase* Database, const QString& SQL) {
    TSQLRunOutcome outcome;
    if (!Database) return outcome;
    outcome.Ran = true;

    TRun run;
    run.Database = Database;
    bool failed = false;
    try {
        FQuery.Close();
        TControlsDisabled disabled(FQuery);
        run.Timer.Start();
        FQuery.SetDatabase(Database);
        Database->SetConnected(true);
        run.LastTotalChanges = Database->GetTotalChanges();

        FAborted.store(false);
        FCanAbort.store(true);
        FLastProgress.invalidate();
        TProgressHook hook(*Database, [this](bool& Continue) { DatabaseProgress(Continue); });
        try {
            FQuery.SetSQL(QString());
            ParseSQL(SQL, run.List, true);
            run.List = SplitDotLines(run.List);
            // Each statement's kind once: a long script would otherwise be
            // labelled twice over.
            run.Commands.resize(static_cast<size_t>(run.List.size()), stUnknown);
            for (int i = 0; i < run.List.size(); ++i)
                if (IsSQL(run.List[i])) run.Commands[static_cast<size_t>(i)] = GetSQLCommand(run.List[i]);
            for (int i = run.List.size() - 1; i >= 0; --i) {
                const TSQLTokenType c = run.Commands[static_cast<size_t>(i)];
                if (c == stSelect || c == stPragma || c == stExplain) {
                    run.LastSelectIndex = i;
                    break;
                }
            }
            for (int i = 0; i < run.List.size(); ++i) {
                ExecuteStatement(run, i);
                if (run.Canceled || FAborted.load()) break;
            }
            run.Changes += Database->GetTotalChanges() - run.LastTotalChanges;
        } catch (const ESQLiteException&) {
            // An interrupt asked for by the user is a stop, not a failure.
            if (!FAborted.load()) throw;
            run.Aborted = true;
            run.Changes += Database->GetTotalChanges() - run.LastTotalChanges;
        }
        FCanAbort.store(false);
    } catch (const ECustomException& e) {
        failed = true;
        outcome.ErrorMessage = e.message();
    } catch (const std::exception& e) {
        failed = true;
        outcome.ErrorMessage = QString::fromUtf8(e.what());
    }
    FCanAbort.store(false);

    outcome.Milliseconds = run.Timer.Total();
    outcome.Aborted = !failed && (run.Aborted || FAborted.load());
    outcome.Status = (outcome.Aborted ? QStringLiteral("Query aborted after ") : QStringLiteral("Query executed in ")) +
                     NiceFormatTime(outcome.Milliseconds);
    outcome.LastSelectIndex = run.LastSelectIndex;
    outcome.StatementCount = run.List.size();
    outcome.ExecutedCount = run.Executed;
    outcome.Canceled = run.Canceled;
    outcome.Updated = run.Updated;
    outcome.NeedRefreshDatabase = run.NeedRefreshDatabase;
    outcome.NeedRefreshData = run.NeedRefreshData;
    try {
        UpdateLabels(run, outcome);
    } catch (const std::exception&) {
        // The labels are a courtesy; a closed connection must not hide the outcome.
    }
    if (!failed && !SQL.trimmed().isEmpty() && FHistory) {
        FHistory->AddSQL(Database->AliasName(), SQL);
        outcome.AddedToHistory = true;
    }
    return outcome;
}

void TSQLRunner::ExecuteStatement(TRun& Run, int Index) {
    const QString& statement = Run.List[Index];
    if (IsSQL(statement))
        ExecuteSQLStatement(Run, statement, Index == Run.LastSelectIndex);
    else
        ExecuteScriptStatement(Run, statement);
    if (Run.Canceled) return;
    ++Run.Executed;
    // Dot lines have no command: they change neither schema nor data.
    const TSQLTokenType command = Run.Commands[static_cast<size_t>(Index)];
    if (IsSchemaChangingCommand(command)) Run.NeedRefreshDatabase = true;
    if (IsDataChangingCommand(command)) Run.NeedRefreshData = true;
    Run.Updated = true;
}

void TSQLRunner::ExecuteSQLStatement(TRun& Run, const QString& SQL, bool UseDataSet) {
    TParams local;
    Run.Database->CreateParams(SQL, local);
    for (int i = 0; i < local.Count(); ++i) {
        TParam& p = local[i];
        if (p.Name.isEmpty()) continue;
        if (const TParam* set = Run.Params.FindParam(p.Name)) {
            p.DataType = set->DataType;
            p.Value = set->Value;
            p.Bound = true;
        }
    }
    for (int i = 0; i < local.Count(); ++i) {
        TParam& p = local[i];
        if (p.Bound) continue;
        const QString name = p.Name.isEmpty() ? QStringLiteral("?%1").arg(i + 1) : p.Name;
        if (!FOnMissingParameter)
            throw ECustomException(QStringLiteral("Missing parameter value: %1").arg(name));
        Run.Timer.Pause();
        QString value = FParamCache ? FParamCache->value(name) : QString();
        bool ok = false;
        try {
            ok = FOnMissingParameter(name, value);
        } catch (...) {
            Run.Timer.Resume();
            throw;
        }
        Run.Timer.Resume();
        if (!ok) {
            Run.Canceled = true;
            return;
        }
        StringToParam(value, p);
        if (FParamCache) FParamCache->insert(name, value);
    }

    if (UseDataSet) {
        FQuery.SetFilterText(QString());
        FQuery.SetSQL(SQL);
        TParams& target = FQuery.Params();
        // The query lists the same statement's parameters in the same order.
        for (int i = 0; i < target.Count() && i < local.Count(); ++i) target[i] = local[i];
        FQuery.Open();
    } else {
        Run.Database->Execute(SQL, &local);
    }
}

void TSQLRunner::ExecuteScriptStatement(TRun& Run, const QString& Script) {
    const auto fail = [] { return ECustomException(QStringLiteral("Extended syntax error")); };
    TTokenizer tokenizer;
    tokenizer.SetText(Script);
    int count = tokenizer.GetTokenCount();
    if (count == 0 || tokenizer.GetTokens(0)->FTokenType != ttDot) throw fail();
    if (tokenizer.GetTokens(count - 1)->FTokenType == ttSemicolon) --count;
    const auto word = [&](int i) { return tokenizer.GetTokens(i)->FValue; };
    const auto is = [&](int i, const char* w) { return word(i).compare(QLatin1String(w), Qt::CaseInsensitive) == 0; };

    if (count == 3) {
        if (!is(1, "RESET") || !is(2, "PARAMS")) throw fail();
        Run.Params.Clear();
        return;
    }
    if (count != 6) throw fail();
    // A six-token line that is no parameter setting is passed over in silence.
    if (!is(1, "SET") || !is(2, "PARAM")) return;
    const TToken* name = tokenizer.GetTokens(3);
    const TToken* value = tokenizer.GetTokens(5);
    if (name->FTokenType != ttParam || word(4) != QLatin1String("=")) return;
    const bool isNull = value->FTokenType == ttUnknown && !value->FIsIdent && is(5, "NULL");
    if (value->FTokenType != ttNumber && value->FTokenType != ttLiteral && !isNull) return;

    TParam* p = Run.Params.FindParam(name->FValue);
    if (!p) p = &Run.Params.Add(name->FValue);
    if (isNull) {
        p->Value = QVariant();
        p->Bound = true;
    } else if (value->FTokenType == ttLiteral) {
        StringToParam(value->FValue, *p);
    } else {
        bool ok = false;
        const double d = value->FValue.toDouble(&ok);
        if (!ok) throw fail();
        const qint64 whole = value->FValue.toLongLong(&ok);
        // A number is a float, unless it is a whole number that a float
        // cannot hold exactly.
        if (ok && std::fabs(d) > 9007199254740992.0) {
            p->DataType = ftLargeint;
            p->Value = whole;
        } else {
            p->DataType = ftFloat;
            p->Value = d;
        }
        p->Bound = true;
    }
}

void TSQLRunner::UpdateLabels(TRun& Run, TSQLRunOutcome& Outcome) {
    if (Run.Updated) {
        const int total = Run.Database->GetTotalChanges();
        Outcome.RowsAffected = (Run.Changes == 1 ? QStringLiteral("%1 row affected, %2 total")
                                                 : QStringLiteral("%1 rows affected, %2 total"))
                                   .arg(Run.Changes)
                                   .arg(total);
    }
    if (FQuery.Active() && FQuery.Fields().Count() > 0) {
        if (FQuery.GetCanModify()) {
            const int keys = FQuery.FKeyFieldNames.isEmpty() ? 0 : FQuery.FKeyFieldNames.split(u';').size();
            const QString names = NiceFormatKeyFields(FQuery.FOriginKeyFieldNames);
            if (keys == 0)
                Outcome.EditableLabel = QStringLiteral("Read-only");
            else if (keys == 1)
                Outcome.EditableLabel = QStringLiteral("Editable, using key field: ") + names;
            else
                Outcome.EditableLabel = QStringLiteral("Editable, using key fields: ") + names;
        } else {
            Outcome.EditableLabel = QStringLiteral("Read-only");
        }
    }
}

}  // namespace brindle
