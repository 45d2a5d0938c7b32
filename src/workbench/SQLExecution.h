// The run of a SQL tab's text: the text is cut into statements, each runs on
// the database in turn, at most one of them feeds the result, lines that
// begin with a dot set parameters for the statements behind them, missing
// parameters are asked for, and the run can be stopped. The window around it
// only shows what a run reports; a test or the command line drives it alone.
//
// Threading: main thread only, except Abort, which any thread or a signal
// handler may call while a run is under way.
#pragma once

#include "engine/DLParams.h"
#include "engine/SQLText.h"

#include <QElapsedTimer>
#include <QMap>
#include <QString>
#include <QVariant>
#include <atomic>
#include <functional>

namespace brindle {

class TDBCache;
class TDLQuery;
class TDLSQLDataSet;
class TDLSQLiteDatabase;

// Only a text whose first significant character is a dot is an extended
// statement; a comment in front of it makes it SQL.
bool IsSQL(const QString& Value);
// The statements after which the tree must be read again, and those after
// which the rows on show may be stale.
bool MayModifySchema(const QString& SQL);
bool MayModifyData(const QString& SQL);
bool IsSchemaChangingCommand(TSQLTokenType Command);
bool IsDataChangingCommand(TSQLTokenType Command);
// Text typed for a parameter to a typed value: NULL, a quoted literal (inner
// quotes left as typed), x'..' as bytes, a number with leading zeros as
// text, a 32-bit integer, a float, else text.
void StringToParam(const QString& Value, TParam& Param);
QVariant StringToVariant(const QString& Value);
bool HasLeadingZeros(const QString& Value);
// "%d ms".
QString NiceFormatTime(qint64 Milliseconds);
// The key fields for a label, cut to 100 characters and "...".
QString NiceFormatKeyFields(const QString& KeyFieldNames);

// Run time without the pauses for prompts.
class THiresTimer {
public:
    void Start();
    void Pause();
    void Resume();
    qint64 Total() const;

private:
    qint64 FAccumulated = 0;
    bool FRunning = false;
    QElapsedTimer FTimer;
};

// The last value typed for each parameter name, over all tabs and databases,
// for the whole program run.
using TParamCache = QMap<QString, QString>;

// What a run leaves for the window to show.
struct TSQLRunOutcome {
    bool Ran = false;             // false: no database
    QString Status;               // "Query executed in N ms" / "Query aborted after N ms"
    QString RowsAffected;         // "%d rows affected, %d total", or empty
    QString EditableLabel;        // "Read-only", "Editable, using key field: ..." or empty
    QString ErrorMessage;         // the failing statement's message; empty on success
    int LastSelectIndex = -1;
    int StatementCount = 0;
    int ExecutedCount = 0;        // statements that completed
    bool Canceled = false;        // a parameter prompt was refused
    bool Aborted = false;         // the user stopped the run
    bool Updated = false;         // at least one statement completed
    bool NeedRefreshDatabase = false;
    bool NeedRefreshData = false;
    bool AddedToHistory = false;
    qint64 Milliseconds = 0;
};

// One tab's runner over the query that shows its result. The query and the
// caches are not owned and must outlive the runner.
class TSQLRunner {
public:
    explicit TSQLRunner(TDLQuery& Query);
    TSQLRunner(const TSQLRunner&) = delete;
    TSQLRunner& operator=(const TSQLRunner&) = delete;

    // Runs SQL on Database; never raises. The query stays open on the
    // result of the statement at LastSelectIndex for browsing and editing.
    TSQLRunOutcome ExecuteSQL(TDLSQLiteDatabase* Database, const QString& SQL);

    // Asks the running statement to stop; safe from any thread and from a
    // signal handler. Nothing when no run is under way.
    void Abort();
    bool CanAbort() const { return FCanAbort.load(); }
    bool AbortRequested() const { return FAborted.load(); }

    // Asked for a parameter that no dot line set. Value comes in with the
    // last value typed for the name; false refuses, which ends the run
    // quietly. May raise, which fails the run with that message. Without a
    // handler a missing parameter fails the run.
    std::function<bool(const QString& Name, QString& Value)> FOnMissingParameter;
    // Called at most every 10 ms while a statement runs, to keep the window
    // painted and the stop control alive.
    std::function<void()> FOnPump;
    // Where typed values are remembered and where a finished run's text
    // goes under the database's alias; either may be null.
    TParamCache* FParamCache = nullptr;
    TDBCache* FHistory = nullptr;

private:
    struct TRun;
    void ExecuteStatement(TRun& Run, int Index);
    void ExecuteSQLStatement(TRun& Run, const QString& SQL, bool UseDataSet);
    void ExecuteScriptStatement(TRun& Run, const QString& Script);
    void DatabaseProgress(bool& Continue);
    void UpdateLabels(TRun& Run, TSQLRunOutcome& Outcome);

    TDLQuery& FQuery;
    std::atomic<bool> FCanAbort{false};
    std::atomic<bool> FAborted{false};
    QElapsedTimer FLastProgress;
};

}  // namespace brindle
