// The SQL page of the main window: its tabs, the commands that run, stop,
// load and save their text, the history of run texts per alias, and
// find and replace in the editors and text results. The main window owns
// it and answers through THost what the page cannot know alone.
//
// While a run is under way the window keeps painting, and input reaches
// only the stop button (and a box it opens): an application-wide filter
// swallows every other click and key until the run ends.
#pragma once

#include "workbench/SQLExecution.h"

#include <QPointer>
#include <QWidget>
#include <functional>
#include <memory>
#include <vector>

class QAction;
class QMenu;
class QTabWidget;

namespace brindle {

class TDBCache;
class TDLSQLiteDatabase;
class TfrmSQL;
class TSQLEditor;
struct TEditorTemplate;
struct TSynSearch;

class TSQLPage : public QWidget {
    Q_OBJECT

public:
    struct THost {
        std::function<TDLSQLiteDatabase*()> CurrentDatabase;
        std::function<TDBCache&()> DBCache;
        std::function<void(const QString& Text)> SetStatus;
        std::function<void(const QString& Text)> SetRowsAffected;
        std::function<void(const QString& Message)> ShowError;
        std::function<bool(const QString& Question)> Confirm;
        // "Select Encoding": false when cancelled.
        std::function<bool(const QString& Caption, QString& Encoding)> SelectEncoding;
        // After a run: the tree (schema changed) or the data page (rows
        // changed) are read again.
        std::function<void()> RefreshDatabase;
        std::function<void()> RefreshData;
        std::function<void()> UpdateControls;
        std::function<void()> AsyncUpdateControls;
        // A new tab's grid, for the window's grid commands.
        std::function<void(TfrmSQL& Frame)> FrameCreated;
    };

    TSQLPage(THost Host, QWidget* Parent = nullptr);
    ~TSQLPage() override;

    // Commands, named as the rule table names them; the main window puts
    // them in its menus.
    QAction *acExecuteSQL, *acExecuteCurrentLineSQL, *acExecuteCurrentStatementSQL, *acStopQuery,
        *acResultsAsText, *acNewSQLTab, *acCloseSQLTab, *acCloseOtherSQLTabs, *acLoadSQL, *acSaveSQL, *acClearSQL,
        *acEditComment, *acFind, *acFindNext, *acFindPrev, *acReplace;
    QMenu* miSQLHistory = nullptr;  // acSQLHistory is its menu action
    QAction* acSQLHistory = nullptr;

    QTabWidget* pcSQL = nullptr;
    int TabCount() const;
    TfrmSQL* Frame(int Index) const;
    TfrmSQL* GetSQLFrame() const;
    TfrmSQL* NewSQLTab();
    void CloseSQLTab(int Index);
    void CloseCurrentSQLTab();
    void CloseOtherSQLTabs();

    // The single entry of a run: the text on the current database, in the
    // current tab. Never raises.
    void ExecuteSQL(const QString& SQL);
    bool Running() const { return FCanAbort; }
    // Stop Query: asks "Stop query execution?" and stops on Yes.
    void CheckAbortQuery();
    TSQLRunOutcome LastOutcome() const { return FLastOutcome; }

    // Rule-table state of the page's commands. OnSQL: the SQL page shows.
    void UpdateControls(bool Connected, bool Idle, bool OnSQL, bool FindReplace, bool History);
    void SetResultsAsText(bool Value, int LimitMB);
    void ApplyEditorSettings(const QFont& Font, bool WordWrap, int TabWidth, bool Completion, bool AutoInvoke,
                             int Delay, const QString& Templates, bool TemplatesEnabled);

    // Settings: the texts and splitter heights of the tabs, the active one.
    QStringList Texts() const;
    QList<int> PanelHeights() const;
    void RestoreTabs(const QStringList& Texts, const QList<int>& PanelHeights, int Active);
    QString FLastSQLDirectory, FLastSQLFile;
    // "UTF-8" ... as "Select Encoding" offers; empty: chosen by content.
    QString FLastEncoding;

    // Files: load detects the encoding; save writes the one chosen.
    void LoadSQLFile(const QString& FileName);
    void SaveSQLFile(const QString& FileName, const QString& Encoding);

    // Find and replace on the focused editor or text result.
    void ShowSearchReplaceDialog(bool AReplace);
    void DoSearchReplaceText(bool AReplace, bool ABackwards);
    TSynSearch& SearchOptions() { return *FSynSearch; }

    // Test hooks: what a person would answer. Unset, real dialogs ask.
    std::function<bool(const QString& Name, QString& Value)> FOnParameterPrompt;
    std::function<bool(QString& FileName)> FOnOpenFileName;
    std::function<bool(QString& FileName, QString& Encoding)> FOnSaveFileName;
    // Replace prompt: 0 replace, 1 skip, 2 all, 3 cancel.
    std::function<int(const QString& Hit)> FOnConfirmReplace;
    std::function<bool(bool AReplace)> FOnSearchDialog;

protected:
    bool eventFilter(QObject* Watched, QEvent* Event) override;

private:
    void CreateActions();
    void RenumberSQLTabs();
    void ExecuteText(const QString& Text);
    QString CurrentLineText() const;
    QString CurrentStatementText() const;
    void FillHistoryMenu();
    void acLoadSQLExecute();
    void acSaveSQLExecute();
    std::vector<TEditorTemplate> ParseTemplates(const QString& Text) const;
    TSQLEditor* ActiveEditor() const;

    THost FHost;
    TParamCache FParamCache;
    TSQLRunOutcome FLastOutcome;
    bool FCanAbort = false;
    bool FAskingStop = false;
    bool FResultsAsText = false;
    int FTextSizeLimit = 1;
    std::unique_ptr<TSynSearch> FSynSearch;
    QPointer<QWidget> FLastFocused;
};

}  // namespace brindle
