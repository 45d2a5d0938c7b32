#include "FrameSQL.h"

#include "widgets/BrindleDBGrid.h"
#include "widgets/DataSetModel.h"
#include "workbench/DataTools.h"
#include "widgets/SQLEditor.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSplitter>
#include <QStackedWidget>
#include <QTableView>
#include <QVBoxLayout>

namespace brindle {

TfrmSQL::TfrmSQL(QWidget* Parent) : QWidget(Parent) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    splSQL = new QSplitter(Qt::Vertical, this);
    splSQL->setObjectName(QStringLiteral("splSQL"));
    mmoSQL = new TSQLEditor(splSQL);
    mmoSQL->setObjectName(QStringLiteral("mmoSQL"));

    auto* results = new QWidget(splSQL);
    results->setObjectName(QStringLiteral("pnlSQLResults"));
    auto* resultsLayout = new QVBoxLayout(results);
    resultsLayout->setContentsMargins(0, 0, 0, 0);
    pnlSQLNavigator = new QWidget(results);
    pnlSQLNavigator->setObjectName(QStringLiteral("pnlSQLNavigator"));
    auto* bar = new QHBoxLayout(pnlSQLNavigator);
    bar->setContentsMargins(2, 2, 2, 2);
    btnExecuteSQL = new QPushButton(QStringLiteral("Execute SQL"), pnlSQLNavigator);
    btnExecuteSQL->setObjectName(QStringLiteral("btnExecuteSQL"));
    btnStopQuery = new QPushButton(QStringLiteral("Stop Query"), pnlSQLNavigator);
    btnStopQuery->setObjectName(QStringLiteral("btnStopQuery"));
    btnStopQuery->setEnabled(false);
    lblEditable = new QLabel(pnlSQLNavigator);
    lblEditable->setObjectName(QStringLiteral("lblEditable"));
    bar->addWidget(btnExecuteSQL);
    bar->addWidget(btnStopQuery);
    bar->addWidget(lblEditable, 1);
    resultsLayout->addWidget(pnlSQLNavigator);

    nbkSQLResults = new QStackedWidget(results);
    nbkSQLResults->setObjectName(QStringLiteral("nbkSQLResults"));
    dbgSQL = new TBrindleDBGrid(nbkSQLResults);
    dbgSQL->setObjectName(QStringLiteral("dbgSQL"));
    dsSQL = new TDataSetModel(this);
    dbgSQL->SetModel(dsSQL);
    tabGrid = dbgSQL;
    mmoSQLResults = new QPlainTextEdit(nbkSQLResults);
    mmoSQLResults->setObjectName(QStringLiteral("mmoSQLResults"));
    mmoSQLResults->setReadOnly(true);
    mmoSQLResults->setLineWrapMode(QPlainTextEdit::NoWrap);
    tabText = mmoSQLResults;
    nbkSQLResults->addWidget(tabGrid);
    nbkSQLResults->addWidget(tabText);
    resultsLayout->addWidget(nbkSQLResults, 1);
    splSQL->setStretchFactor(0, 1);
    splSQL->setStretchFactor(1, 1);
    layout->addWidget(splSQL);
}

TfrmSQL::~TfrmSQL() {
    // The window around may be half gone: the grid tells nobody.
    const QSignalBlocker quiet(dbgSQL);
    dsSQL->SetDataSet(nullptr);
    qrySQL.Close();
}

void TfrmSQL::SetResultsAsText(bool Value, int LimitMB) {
    FResultsAsText = Value;
    FTextSizeLimit = std::max(1, LimitMB);
    nbkSQLResults->setCurrentWidget(Value ? tabText : tabGrid);
    if (Value) {
        dsSQL->SetDataSet(nullptr);
        RenderText();
    } else {
        mmoSQLResults->clear();
        dsSQL->SetDataSet(qrySQL.Active() ? &qrySQL : nullptr);
    }
}

void TfrmSQL::RenderText() {
    mmoSQLResults->setPlainText(qrySQL.Active() ? DataSetToStrings(qrySQL, qint64(FTextSizeLimit) << 20) : QString());
}

void TfrmSQL::ShowResult(const TSQLRunOutcome& Outcome) {
    lblEditable->setText(Outcome.EditableLabel);
    if (FResultsAsText) {
        RenderText();
    } else {
        dsSQL->SetDataSet(nullptr);
        if (qrySQL.Active()) dsSQL->SetDataSet(&qrySQL);
    }
}

void TfrmSQL::CloseResult() {
    dsSQL->SetDataSet(nullptr);
    qrySQL.Close();
    lblEditable->clear();
    mmoSQLResults->clear();
}

}  // namespace brindle
