// One SQL tab: the editor above, the result below (a grid or text), and the
// bar with the run and stop buttons and the label that tells whether the
// result can be edited. The run itself is TSQLRunner's; the tab holds the
// query whose rows it shows.
#pragma once

#include "data/DLQuery.h"
#include "workbench/SQLExecution.h"

#include <QWidget>

class QLabel;
class QPlainTextEdit;
class QPushButton;
class QSplitter;
class QStackedWidget;
class QTableView;

namespace brindle {

class TBrindleDBGrid;
class TDataSetModel;
class TSQLEditor;

class TfrmSQL : public QWidget {
    Q_OBJECT

public:
    explicit TfrmSQL(QWidget* Parent = nullptr);
    ~TfrmSQL() override;

    // Shows the result as the grid or as text (up to LimitMB megabytes).
    void SetResultsAsText(bool Value, int LimitMB);
    // After a run: binds the grid or writes the text, and the label.
    void ShowResult(const TSQLRunOutcome& Outcome);
    // The result goes: a history entry was loaded, or the tab closes.
    void CloseResult();

    TSQLEditor* mmoSQL = nullptr;
    QSplitter* splSQL = nullptr;
    QStackedWidget* nbkSQLResults = nullptr;
    QWidget *tabGrid = nullptr, *tabText = nullptr;
    QWidget* pnlSQLNavigator = nullptr;
    QPushButton* btnExecuteSQL = nullptr;
    QPushButton* btnStopQuery = nullptr;
    QLabel* lblEditable = nullptr;
    TBrindleDBGrid* dbgSQL = nullptr;
    QPlainTextEdit* mmoSQLResults = nullptr;
    TDataSetModel* dsSQL = nullptr;
    TDLQuery qrySQL;
    TSQLRunner FRunner{qrySQL};

private:
    void RenderText();
    bool FResultsAsText = false;
    int FTextSizeLimit = 10;
};

}  // namespace brindle
