#include "SQLPage.h"

#include "Application.h"
#include "FrameSQL.h"
#include "SearchDialogs.h"

#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"
#include "tools/Encodings.h"
#include "widgets/DataSetModel.h"
#include "widgets/SQLEditor.h"
#include "workbench/Caches.h"
#include "workbench/CodeComplete.h"
#include "workbench/EditorText.h"
#include "workbench/TextSearch.h"

#include <QAction>
#include <QApplication>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QKeyEvent>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSplitter>
#include <QTabBar>
#include <QTabWidget>
#include <QVBoxLayout>

namespace brindle {

namespace {

QAction* MakeAction(QWidget* Owner, const char* Name, const QString& Text, const QKeySequence& Key = {}) {
    auto* a = new QAction(Text, Owner);
    a->setObjectName(QLatin1String(Name));
    if (!Key.isEmpty()) a->setShortcut(Key);
    Owner->addAction(a);
    return a;
}

// A history entry as one line of the menu.
QString SQLToCaption(const QString& SQL) {
    QString s = SQL;
    for (QChar& c : s)
        if (c < u' ') c = u' ';
    return s.size() > 200 ? s.left(200) + QStringLiteral("...") : s;
}

// The editor keeps line feeds; the texts the workbench reads join lines
// with CR LF, as the program writes them everywhere.
QString EditorText(const TSQLEditor& Editor) { return Editor.Lines().join(QStringLiteral("\r\n")); }

}  // namespace

TSQLPage::TSQLPage(THost Host, QWidget* Parent)
    : QWidget(Parent), FHost(std::move(Host)), FSynSearch(std::make_unique<TSynSearch>()) {
    setObjectName(QStringLiteral("tabSQL"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    pcSQL = new QTabWidget(this);
    pcSQL->setObjectName(QStringLiteral("pcSQL"));
    pcSQL->setDocumentMode(true);
    layout->addWidget(pcSQL);
    CreateActions();
    connect(pcSQL, &QTabWidget::currentChanged, this, [this] {
        if (FHost.AsyncUpdateControls) FHost.AsyncUpdateControls();
    });
    NewSQLTab();
}

TSQLPage::~TSQLPage() {
    if (FCanAbort) qApp->removeEventFilter(this);
}

void TSQLPage::CreateActions() {
    acExecuteSQL = MakeAction(this, "acExecuteSQL", QStringLiteral("E&xecute SQL"), Qt::Key_F5);
    acExecuteCurrentLineSQL = MakeAction(this, "acExecuteCurrentLineSQL", QStringLiteral("E&xecute SQL (current line)"),
                                         QKeySequence(Qt::SHIFT | Qt::Key_F5));
    acExecuteCurrentStatementSQL =
        MakeAction(this, "acExecuteCurrentStatementSQL", QStringLiteral("E&xecute SQL (current statement)"),
                   QKeySequence(Qt::CTRL | Qt::Key_F5));
    // Esc during a run reaches the stop through the input filter: as a
    // shortcut it would take the key from every grid and editor.
    acStopQuery = MakeAction(this, "acStopQuery", QStringLiteral("Stop &Query"));
    acResultsAsText = MakeAction(this, "acResultsAsText", QStringLiteral("Results as &text"));
    acResultsAsText->setCheckable(true);
    acNewSQLTab = MakeAction(this, "acNewSQLTab", QStringLiteral("New SQL tab"), QKeySequence(Qt::CTRL | Qt::Key_T));
    acCloseSQLTab = MakeAction(this, "acCloseSQLTab", QStringLiteral("Close SQL tab"), QKeySequence(Qt::CTRL | Qt::Key_W));
    acCloseOtherSQLTabs = MakeAction(this, "acCloseOtherSQLTabs", QStringLiteral("Close other SQL tabs"));
    acLoadSQL = MakeAction(this, "acLoadSQL", QStringLiteral("&Load SQL script"));
    acSaveSQL = MakeAction(this, "acSaveSQL", QStringLiteral("&Save SQL script"));
    acClearSQL = MakeAction(this, "acClearSQL", QStringLiteral("C&lear SQL"));
    acEditComment = MakeAction(this, "acEditComment", QStringLiteral("Comment/Uncomment text"),
                               QKeySequence(Qt::CTRL | Qt::Key_Slash));
    acFind = MakeAction(this, "acFind", QStringLiteral("&Find..."), QKeySequence(Qt::CTRL | Qt::Key_F));
    acFindNext = MakeAction(this, "acFindNext", QStringLiteral("Find &next..."), Qt::Key_F3);
    acFindPrev = MakeAction(this, "acFindPrev", QStringLiteral("Find &previous..."), QKeySequence(Qt::SHIFT | Qt::Key_F3));
    acReplace = MakeAction(this, "acReplace", QStringLiteral("&Replace"), QKeySequence(Qt::CTRL | Qt::Key_H));
    miSQLHistory = new QMenu(QStringLiteral("SQL &History..."), this);
    miSQLHistory->setObjectName(QStringLiteral("miSQLHistory"));
    acSQLHistory = miSQLHistory->menuAction();
    acSQLHistory->setObjectName(QStringLiteral("acSQLHistory"));
    connect(miSQLHistory, &QMenu::aboutToShow, this, &TSQLPage::FillHistoryMenu);

    connect(acExecuteSQL, &QAction::triggered, this, [this] {
        TfrmSQL* f = GetSQLFrame();
        ExecuteText(f->mmoSQL->hasSelectedText() ? f->mmoSQL->selectedText() : EditorText(*f->mmoSQL));
    });
    connect(acExecuteCurrentLineSQL, &QAction::triggered, this, [this] { ExecuteText(CurrentLineText()); });
    connect(acExecuteCurrentStatementSQL, &QAction::triggered, this, [this] { ExecuteText(CurrentStatementText()); });
    connect(acStopQuery, &QAction::triggered, this, &TSQLPage::CheckAbortQuery);
    connect(acResultsAsText, &QAction::toggled, this, [this](bool On) { SetResultsAsText(On, FTextSizeLimit); });
    connect(acNewSQLTab, &QAction::triggered, this, [this] { NewSQLTab(); });
    // Posted: a tab can't go away inside its own event handler.
    connect(acCloseSQLTab, &QAction::triggered, this, [this] {
        QMetaObject::invokeMethod(this, [this] { CloseCurrentSQLTab(); }, Qt::QueuedConnection);
    });
    connect(acCloseOtherSQLTabs, &QAction::triggered, this, [this] {
        QMetaObject::invokeMethod(this, [this] { CloseOtherSQLTabs(); }, Qt::QueuedConnection);
    });
    connect(acLoadSQL, &QAction::triggered, this, &TSQLPage::acLoadSQLExecute);
    connect(acSaveSQL, &QAction::triggered, this, &TSQLPage::acSaveSQLExecute);
    connect(acClearSQL, &QAction::triggered, this, [this] { GetSQLFrame()->mmoSQL->clear(); });
    connect(acEditComment, &QAction::triggered, this, [this] {
        if (TSQLEditor* e = ActiveEditor()) e->CommentText();
    });
    connect(acFind, &QAction::triggered, this, [this] { ShowSearchReplaceDialog(false); });
    connect(acReplace, &QAction::triggered, this, [this] { ShowSearchReplaceDialog(true); });
    connect(acFindNext, &QAction::triggered, this, [this] {
        if (!FSynSearch->gsSearchText.isEmpty()) DoSearchReplaceText(false, FSynSearch->gbSearchBackwards);
    });
    connect(acFindPrev, &QAction::triggered, this, [this] {
        if (!FSynSearch->gsSearchText.isEmpty()) DoSearchReplaceText(false, !FSynSearch->gbSearchBackwards);
    });
    // The last editor or result pane that had the focus is the one the
    // commands of the menu work on.
    connect(qApp, &QApplication::focusChanged, this, [this](QWidget*, QWidget* Now) {
        if (Now && isAncestorOf(Now)) FLastFocused = Now;
    });
}

// ---------------------------------------------------------------------------
// Tabs

int TSQLPage::TabCount() const { return pcSQL->count(); }
TfrmSQL* TSQLPage::Frame(int Index) const { return qobject_cast<TfrmSQL*>(pcSQL->widget(Index)); }
TfrmSQL* TSQLPage::GetSQLFrame() const { return qobject_cast<TfrmSQL*>(pcSQL->currentWidget()); }

TfrmSQL* TSQLPage::NewSQLTab() {
    auto* f = new TfrmSQL(pcSQL);
    if (TfrmSQL* model = GetSQLFrame()) {
        // A new tab takes the settings of the others.
        f->mmoSQL->SetEditorFont(model->mmoSQL->font());
        f->mmoSQL->setWrapMode(model->mmoSQL->wrapMode());
        f->mmoSQL->setTabWidth(model->mmoSQL->tabWidth());
    }
    f->mmoSQL->FOnCompletion = [this](const QString& Before, const QString& After, const QString& Input) {
        std::vector<TEditorProposal> items;
        for (TCompletionItem& c : CompletionProposal(FHost.CurrentDatabase(), Before, After, Input))
            items.push_back({c.Name + QStringLiteral("  (") + c.Kind + u')', c.Insert});
        return items;
    };
    f->mmoSQL->FOnDropFile = [this](const QString& FileName) { LoadSQLFile(FileName); };
    connect(f->btnExecuteSQL, &QPushButton::clicked, acExecuteSQL, &QAction::trigger);
    connect(f->btnStopQuery, &QPushButton::clicked, this, &TSQLPage::CheckAbortQuery);
    connect(f->mmoSQL, &QsciScintilla::textChanged, this, [this] {
        if (FHost.AsyncUpdateControls) FHost.AsyncUpdateControls();
    });
    connect(f->dsSQL, &TDataSetModel::PostFailed, this, [this](const QString& Message) {
        if (FHost.ShowError) FHost.ShowError(Message);
    });
    f->SetResultsAsText(FResultsAsText, FTextSizeLimit);
    if (FHost.FrameCreated) FHost.FrameCreated(*f);
    pcSQL->addTab(f, QString());
    pcSQL->setCurrentWidget(f);
    pcSQL->tabBar()->setVisible(pcSQL->count() > 1);
    RenumberSQLTabs();
    if (FHost.AsyncUpdateControls) FHost.AsyncUpdateControls();
    return f;
}

void TSQLPage::RenumberSQLTabs() {
    for (int i = 0; i < pcSQL->count(); ++i) pcSQL->setTabText(i, QStringLiteral("SQL %1").arg(i + 1));
}

void TSQLPage::CloseSQLTab(int Index) {
    if (pcSQL->count() <= 1 || FCanAbort) return;
    QWidget* w = pcSQL->widget(Index);
    pcSQL->removeTab(Index);
    if (FLastFocused && w->isAncestorOf(FLastFocused)) FLastFocused = nullptr;
    delete w;
}

void TSQLPage::CloseCurrentSQLTab() {
    CloseSQLTab(pcSQL->currentIndex());
    pcSQL->tabBar()->setVisible(pcSQL->count() > 1);
    RenumberSQLTabs();
    if (FHost.AsyncUpdateControls) FHost.AsyncUpdateControls();
}

void TSQLPage::CloseOtherSQLTabs() {
    if (pcSQL->count() <= 1) return;
    // The survivor keeps its number until the tabs are numbered again.
    const QWidget* keep = pcSQL->currentWidget();
    for (int i = pcSQL->count() - 1; i >= 0; --i)
        if (pcSQL->widget(i) != keep) CloseSQLTab(i);
    pcSQL->tabBar()->setVisible(pcSQL->count() > 1);
    if (FHost.AsyncUpdateControls) FHost.AsyncUpdateControls();
}

QStringList TSQLPage::Texts() const {
    QStringList texts;
    for (int i = 0; i < pcSQL->count(); ++i) texts << Frame(i)->mmoSQL->text();
    return texts;
}

QList<int> TSQLPage::PanelHeights() const {
    QList<int> heights;
    for (int i = 0; i < pcSQL->count(); ++i) heights << Frame(i)->splSQL->sizes().value(0);
    return heights;
}

void TSQLPage::RestoreTabs(const QStringList& Texts, const QList<int>& PanelHeights, int Active) {
    while (pcSQL->count() < std::max<qsizetype>(1, Texts.size())) NewSQLTab();
    for (int i = 0; i < pcSQL->count(); ++i) {
        TfrmSQL* f = Frame(i);
        f->mmoSQL->setText(Texts.value(i));
        const int h = PanelHeights.value(i, -1);
        if (h > 0) f->splSQL->setSizes({h, std::max(100, f->splSQL->height() - h)});
    }
    if (Active >= 0 && Active < pcSQL->count()) pcSQL->setCurrentIndex(Active);
    RenumberSQLTabs();
}

void TSQLPage::ApplyEditorSettings(const QFont& Font, bool WordWrap, int TabWidth, bool Completion, bool AutoInvoke,
                                   int Delay, const QString& Templates, bool TemplatesEnabled) {
    std::vector<TEditorTemplate> templates = ParseTemplates(Templates);
    for (int i = 0; i < pcSQL->count(); ++i) {
        TSQLEditor* e = Frame(i)->mmoSQL;
        e->SetEditorFont(Font);
        e->SetWordWrap(WordWrap);
        e->SetTabWidth(TabWidth);
        e->SetCompletion(Completion, AutoInvoke, Delay);
        e->SetTemplates(templates, TemplatesEnabled);
    }
}

std::vector<TEditorTemplate> TSQLPage::ParseTemplates(const QString& Text) const {
    const std::vector<TCodeTemplate> parsed =
        Text.isEmpty() || Text == QString(QChar(3)) ? DefaultCodeTemplates() : ParseCodeTemplates(Text);
    std::vector<TEditorTemplate> result;
    for (const TCodeTemplate& t : parsed) {
        QString text;
        int caret = 0;
        if (!ExpandCodeTemplate(parsed, t.Name, text, caret)) continue;
        // The editor keeps line feeds.
        const int crs = static_cast<int>(text.left(caret).count(u'\r'));
        text.remove(u'\r');
        result.push_back({t.Name, t.Description, text, caret - crs});
    }
    return result;
}

TSQLEditor* TSQLPage::ActiveEditor() const {
    if (auto* e = qobject_cast<TSQLEditor*>(FLastFocused)) return e;
    TfrmSQL* f = GetSQLFrame();
    return f ? f->mmoSQL : nullptr;
}

// ---------------------------------------------------------------------------
// Runs

QString TSQLPage::CurrentLineText() const {
    const TSQLEditor* e = GetSQLFrame()->mmoSQL;
    int line = 0, column = 0;
    e->CaretPosition(line, column);
    const QString text = e->Lines().value(line);
    return text.trimmed().isEmpty() ? QString() : text;
}

QString TSQLPage::CurrentStatementText() const {
    const TSQLEditor* e = GetSQLFrame()->mmoSQL;
    int line = 0, column = 0;
    e->CaretPosition(line, column);
    QString before, after;
    GetEditorText(e->Lines(), line, column, before, after);
    SeparateStatements(before, after);
    const QString text = before + after;
    return text.trimmed().isEmpty() ? QString() : text;
}

void TSQLPage::ExecuteText(const QString& Text) {
    if (FCanAbort || Text.trimmed().isEmpty()) return;
    ExecuteSQL(Text);
}

void TSQLPage::ExecuteSQL(const QString& SQL) {
    TDLSQLiteDatabase* db = FHost.CurrentDatabase ? FHost.CurrentDatabase() : nullptr;
    TfrmSQL* f = GetSQLFrame();
    if (!db || !f || FCanAbort) return;
    if (FHost.SetStatus) FHost.SetStatus(QStringLiteral("Executing query..."));
    f->CloseResult();
    QApplication::setOverrideCursor(Qt::WaitCursor);
    TSQLRunner& runner = f->FRunner;
    runner.FParamCache = &FParamCache;
    runner.FHistory = FHost.DBCache ? &FHost.DBCache() : nullptr;
    runner.FOnMissingParameter = [this](const QString& Name, QString& Value) {
        if (FOnParameterPrompt) return FOnParameterPrompt(Name, Value);
        QApplication::restoreOverrideCursor();
        bool ok = false;
        const QString text = QInputDialog::getText(this, QStringLiteral("Missing parameter value"),
                                                   QStringLiteral("Please enter the value for ") + Name + u':',
                                                   QLineEdit::Normal, Value, &ok);
        QApplication::setOverrideCursor(Qt::WaitCursor);
        if (ok) Value = text;
        return ok;
    };
    runner.FOnPump = [] { QCoreApplication::processEvents(QEventLoop::AllEvents, 5); };

    FCanAbort = true;
    f->btnStopQuery->setEnabled(true);
    if (FHost.UpdateControls) FHost.UpdateControls();
    qApp->installEventFilter(this);
    FLastOutcome = runner.ExecuteSQL(db, SQL);
    qApp->removeEventFilter(this);
    FCanAbort = false;
    f->btnStopQuery->setEnabled(false);
    QApplication::restoreOverrideCursor();

    f->ShowResult(FLastOutcome);
    if (FHost.SetRowsAffected) FHost.SetRowsAffected(FLastOutcome.RowsAffected);
    if (FLastOutcome.NeedRefreshDatabase) {
        if (FHost.RefreshDatabase) FHost.RefreshDatabase();
    } else if (FLastOutcome.NeedRefreshData) {
        if (FHost.RefreshData) FHost.RefreshData();
    }
    if (FHost.SetStatus) FHost.SetStatus(FLastOutcome.Status);
    if (!FLastOutcome.ErrorMessage.isEmpty() && FHost.ShowError) FHost.ShowError(FLastOutcome.ErrorMessage);
    if (FHost.AsyncUpdateControls) FHost.AsyncUpdateControls();
}

void TSQLPage::CheckAbortQuery() {
    // Esc pressed again while the question is up asks nothing more.
    if (!FCanAbort || FAskingStop) return;
    FAskingStop = true;
    const bool yes = !FHost.Confirm || FHost.Confirm(QStringLiteral("Stop query execution?"));
    FAskingStop = false;
    if (yes && FCanAbort) GetSQLFrame()->FRunner.Abort();
}

bool TSQLPage::eventFilter(QObject* Watched, QEvent* Event) {
    switch (Event->type()) {
        case QEvent::MouseButtonPress:
        case QEvent::MouseButtonRelease:
        case QEvent::MouseButtonDblClick:
        case QEvent::Wheel:
        case QEvent::KeyPress:
        case QEvent::KeyRelease:
        case QEvent::ShortcutOverride:
        case QEvent::Shortcut:
        case QEvent::ContextMenu:
        case QEvent::Drop:
        case QEvent::Close: {
            // Window-level events go on to the widget under them, and are
            // judged there.
            auto* w = qobject_cast<QWidget*>(Watched);
            if (!w) return Event->type() == QEvent::Shortcut;
            if (QWidget* modal = QApplication::activeModalWidget(); modal && (w == modal || modal->isAncestorOf(w)))
                return false;
            TfrmSQL* f = GetSQLFrame();
            if (f && (w == f->btnStopQuery || f->btnStopQuery->isAncestorOf(w))) return false;
            if (Event->type() == QEvent::KeyPress && static_cast<QKeyEvent*>(Event)->key() == Qt::Key_Escape)
                CheckAbortQuery();
            if (Event->type() == QEvent::Close) Event->ignore();
            return true;
        }
        default:
            return false;
    }
}

// ---------------------------------------------------------------------------
// Results, history, files

void TSQLPage::SetResultsAsText(bool Value, int LimitMB) {
    FResultsAsText = Value;
    FTextSizeLimit = LimitMB;
    if (acResultsAsText->isChecked() != Value) acResultsAsText->setChecked(Value);
    for (int i = 0; i < pcSQL->count(); ++i) Frame(i)->SetResultsAsText(Value, LimitMB);
}

void TSQLPage::FillHistoryMenu() {
    miSQLHistory->clear();
    TDLSQLiteDatabase* db = FHost.CurrentDatabase ? FHost.CurrentDatabase() : nullptr;
    if (!db || !FHost.DBCache) return;
    const TDBCache::TDBItem* item = FHost.DBCache().GetItem(db->AliasName());
    if (!item) return;
    const QStringList history = item->SQLHistory;
    for (qsizetype i = 0; i < history.size(); ++i) {
        QAction* a = miSQLHistory->addAction(SQLToCaption(history[i]));
        connect(a, &QAction::triggered, this, [this, history, i] {
            if (i >= history.size()) return;
            TfrmSQL* f = GetSQLFrame();
            f->mmoSQL->setText(QString(history[i]).replace(QStringLiteral("\r\n"), QStringLiteral("\n")));
            f->CloseResult();
        });
    }
}

void TSQLPage::LoadSQLFile(const QString& FileName) {
    try {
        const QString text = LoadStrings(FileName);
        TfrmSQL* f = GetSQLFrame();
        f->mmoSQL->setText(QString(text).replace(QStringLiteral("\r\n"), QStringLiteral("\n")));
        FLastSQLDirectory = QFileInfo(FileName).absolutePath();
        FLastSQLFile = QFileInfo(FileName).fileName();
    } catch (const std::exception& e) {
        if (FHost.ShowError) FHost.ShowError(ExceptionMessage(e));
    }
}

void TSQLPage::SaveSQLFile(const QString& FileName, const QString& Encoding) {
    const QString text = EditorText(*GetSQLFrame()->mmoSQL);
    try {
        const TEncodingChoice choice = Encoding.isEmpty() ? ChooseSaveEncoding(text) : SelectedEncoding(Encoding);
        SaveStrings(FileName, text, choice.Encoding, choice.WithPreamble);
        FLastSQLDirectory = QFileInfo(FileName).absolutePath();
        FLastSQLFile = QFileInfo(FileName).fileName();
        if (!Encoding.isEmpty()) FLastEncoding = Encoding;
    } catch (const std::exception& e) {
        if (FHost.ShowError) FHost.ShowError(ExceptionMessage(e));
    }
}

void TSQLPage::acLoadSQLExecute() {
    QString file = FLastSQLDirectory.isEmpty() ? FLastSQLFile : FLastSQLDirectory + u'/' + FLastSQLFile;
    if (FOnOpenFileName) {
        if (!FOnOpenFileName(file)) return;
    } else {
        file = QFileDialog::getOpenFileName(this, QStringLiteral("Load SQL script"), file,
                                            QStringLiteral("SQL files (*.sql);;All files (*.*)"));
        if (file.isEmpty()) return;
    }
    QApplication::setOverrideCursor(Qt::WaitCursor);
    LoadSQLFile(file);
    QApplication::restoreOverrideCursor();
}

void TSQLPage::acSaveSQLExecute() {
    QString file = FLastSQLDirectory.isEmpty() ? FLastSQLFile : FLastSQLDirectory + u'/' + FLastSQLFile;
    QString encoding = FLastEncoding.isEmpty() ? QStringLiteral("UTF-8") : FLastEncoding;
    if (FOnSaveFileName) {
        if (!FOnSaveFileName(file, encoding)) return;
    } else {
        file = QFileDialog::getSaveFileName(this, QStringLiteral("Save SQL script"), file,
                                            QStringLiteral("SQL files (*.sql);;All files (*.*)"));
        if (file.isEmpty()) return;
        if (QFileInfo(file).suffix().isEmpty()) file += QStringLiteral(".sql");
        if (!FHost.SelectEncoding || !FHost.SelectEncoding(QStringLiteral("Select Encoding"), encoding)) return;
    }
    SaveSQLFile(file, encoding);
}

// ---------------------------------------------------------------------------
// Rules

void TSQLPage::UpdateControls(bool Connected, bool Idle, bool OnSQL, bool FindReplace, bool History) {
    TfrmSQL* f = GetSQLFrame();
    const bool hasSQL = f && !f->mmoSQL->text().trimmed().isEmpty();
    for (QAction* a : {acExecuteSQL, acExecuteCurrentLineSQL, acExecuteCurrentStatementSQL})
        a->setEnabled(Connected && hasSQL && Idle && OnSQL);
    acStopQuery->setEnabled(FCanAbort);
    acSaveSQL->setEnabled(hasSQL && !FCanAbort && OnSQL);
    acLoadSQL->setEnabled(!FCanAbort && OnSQL);
    acClearSQL->setEnabled(Idle && OnSQL && hasSQL);
    acNewSQLTab->setEnabled(Idle && OnSQL);
    acCloseSQLTab->setEnabled(Idle && OnSQL && pcSQL->count() > 1);
    acCloseOtherSQLTabs->setEnabled(Idle && OnSQL && pcSQL->count() > 1);
    acResultsAsText->setEnabled(!FCanAbort);
    bool hasHistory = false;
    if (TDLSQLiteDatabase* db = FHost.CurrentDatabase ? FHost.CurrentDatabase() : nullptr; db && FHost.DBCache)
        if (const TDBCache::TDBItem* item = FHost.DBCache().GetItem(db->AliasName()))
            hasHistory = !item->SQLHistory.isEmpty();
    acSQLHistory->setEnabled(Connected && Idle && OnSQL && hasHistory);
    acSQLHistory->setVisible(History);
    QWidget* active = FLastFocused ? FLastFocused.data() : nullptr;
    auto* editor = qobject_cast<TSQLEditor*>(active);
    auto* textResult = qobject_cast<QPlainTextEdit*>(active);
    const bool searchable = (editor || textResult) && Idle && OnSQL;
    acFind->setEnabled(searchable);
    acFindNext->setEnabled(searchable && !FSynSearch->gsSearchText.isEmpty());
    acFindPrev->setEnabled(editor && Idle && OnSQL && !FSynSearch->gsSearchText.isEmpty());
    acReplace->setEnabled(editor && !editor->isReadOnly() && Idle && OnSQL);
    acEditComment->setEnabled(editor && !editor->isReadOnly() && Idle);
    for (QAction* a : {acFind, acFindNext, acFindPrev, acReplace}) a->setVisible(FindReplace);
    if (f) f->btnExecuteSQL->setEnabled(acExecuteSQL->isEnabled());
}

}  // namespace brindle

namespace brindle {

// ---------------------------------------------------------------------------
// Find and replace

void TSQLPage::ShowSearchReplaceDialog(bool AReplace) {
    QWidget* target = FLastFocused ? FLastFocused.data() : nullptr;
    auto* editor = qobject_cast<TSQLEditor*>(target);
    auto* pane = qobject_cast<QPlainTextEdit*>(target);
    if (!editor && !pane) editor = ActiveEditor();
    if (AReplace && (!editor || editor->isReadOnly())) return;
    TSynSearch& s = *FSynSearch;
    if (s.gbSearchTextAtCaret && editor) {
        // A selection on one line, else the word at the caret.
        const QString selected = editor->selectedText();
        if (!selected.isEmpty() && !selected.contains(u'\n')) {
            s.gsSearchText = selected;
        } else {
            int line = 0, column = 0;
            editor->CaretPosition(line, column);
            const QString text = editor->Lines().value(line);
            int a = column, b = column;
            while (a > 0 && (text[a - 1].isLetterOrNumber() || text[a - 1] == u'_')) --a;
            while (b < text.size() && (text[b].isLetterOrNumber() || text[b] == u'_')) ++b;
            if (b > a) s.gsSearchText = text.mid(a, b - a);
        }
    }
    if (FOnSearchDialog) {
        if (!FOnSearchDialog(AReplace)) return;
    } else {
        TfrmTextSearchDialog dialog(s, this, AReplace);
        if (dialog.exec() != QDialog::Accepted) return;
        dialog.ReadBack(s);
    }
    if (s.gsSearchText.isEmpty()) return;
    DoSearchReplaceText(AReplace, s.gbSearchBackwards);
}

void TSQLPage::DoSearchReplaceText(bool AReplace, bool ABackwards) {
    QWidget* target = FLastFocused ? FLastFocused.data() : nullptr;
    auto* editor = qobject_cast<TSQLEditor*>(target);
    auto* pane = qobject_cast<QPlainTextEdit*>(target);
    if (!editor && !pane) editor = ActiveEditor();
    if (!editor && !pane) return;
    const TSynSearch& s = *FSynSearch;
    try {
        const TTextSearch search(s.gsSearchText, SearchOptionsOf(s, ABackwards));
        TEditorText state;
        if (editor) {
            state.Text = editor->text();
            state.Caret = editor->CaretIndex();
            int a = 0, b = 0;
            editor->SelectionRange(a, b);
            state.Selection = {a, b};
        } else {
            const QTextCursor c = pane->textCursor();
            state.Text = pane->toPlainText();
            state.Caret = c.position();
            state.Selection = {c.selectionStart(), c.selectionEnd()};
        }
        const auto select = [&](TTextRange Range, qsizetype Caret) {
            if (editor) {
                // The caret stands at the end the search moved towards.
                if (Caret == Range.Start)
                    editor->SetSelectionRange(static_cast<int>(Range.End), static_cast<int>(Range.Start));
                else
                    editor->SetSelectionRange(static_cast<int>(Range.Start), static_cast<int>(Range.End));
                editor->ensureCursorVisible();
            } else {
                QTextCursor c = pane->textCursor();
                c.setPosition(static_cast<int>(Caret == Range.Start ? Range.End : Range.Start));
                c.setPosition(static_cast<int>(Caret), QTextCursor::KeepAnchor);
                pane->setTextCursor(c);
            }
        };
        if (!AReplace || !editor) {
            const TSearchResult r = search.Find(state);
            if (!r.Found) QApplication::beep();
            select(r.Selection, r.Caret);
            return;
        }
        editor->beginUndoAction();
        const TReplaceResult r = search.ReplaceAll(
            state, s.gsReplaceText,
            [&](const QString& Text, TTextRange Hit, const QString&) {
                select(Hit, Hit.End);
                const QString hit = Text.mid(Hit.Start, Hit.Length());
                const int answer = FOnConfirmReplace ? FOnConfirmReplace(hit) : ConfirmReplace(this, hit);
                static constexpr TReplaceAction kActions[] = {TReplaceAction::Replace, TReplaceAction::Skip,
                                                              TReplaceAction::ReplaceAll, TReplaceAction::Cancel};
                return kActions[std::clamp(answer, 0, 3)];
            },
            [&](TTextRange Hit, const QString& Replacement) {
                editor->SetSelectionRange(static_cast<int>(Hit.Start), static_cast<int>(Hit.End));
                editor->replaceSelectedText(Replacement);
            });
        editor->endUndoAction();
        if (!r.Found) QApplication::beep();
        select(r.Selection, r.Caret);
    } catch (const std::exception& e) {
        if (FHost.ShowError) FHost.ShowError(ExceptionMessage(e));
    }
}

}  // namespace brindle
