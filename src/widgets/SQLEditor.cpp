#include "SQLEditor.h"

#include "workbench/CodeComplete.h"
#include "workbench/EditorText.h"

#include <Qsci/qscilexersql.h>

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileInfo>
#include <QKeyEvent>
#include <QMimeData>
#include <QTimer>

namespace brindle {

namespace {

constexpr int kCompletionList = 1;
constexpr int kTemplateList = 2;

}  // namespace

TSQLEditor::TSQLEditor(QWidget* Parent) : QsciScintilla(Parent) {
    setUtf8(true);
    FLexer = new QsciLexerSQL(this);
    FLexer->setFoldComments(true);
    setLexer(FLexer);
    setMarginType(0, NumberMargin);
    setMarginLineNumbers(0, true);
    setMarginWidth(0, QStringLiteral("00000"));
    setBraceMatching(SloppyBraceMatch);
    setAutoIndent(true);
    setIndentationsUseTabs(false);
    setTabWidth(2);
    setAcceptDrops(true);
    // Our own list in our own order, matched without regard to case.
    SendScintilla(SCI_AUTOCSETORDER, 2 /* SC_ORDER_CUSTOM */);
    SendScintilla(SCI_AUTOCSETIGNORECASE, 1L);
    SendScintilla(SCI_AUTOCSETMAXHEIGHT, 12L);
    FCompletionTimer = new QTimer(this);
    FCompletionTimer->setSingleShot(true);
    connect(FCompletionTimer, &QTimer::timeout, this, &TSQLEditor::ShowCompletion);
    connect(this, &QsciScintilla::userListActivated, this, &TSQLEditor::OnUserListActivated);
    connect(this, &QsciScintillaBase::SCN_CHARADDED, this, &TSQLEditor::OnCharAdded);
}

TSQLEditor::~TSQLEditor() = default;

void TSQLEditor::SetEditorFont(const QFont& Font) {
    FLexer->setDefaultFont(Font);
    FLexer->setFont(Font);
    setMarginsFont(Font);
    setFont(Font);
}

void TSQLEditor::SetTabWidth(int Width) { setTabWidth(std::clamp(Width, 1, 32)); }

void TSQLEditor::SetWordWrap(bool Value) { setWrapMode(Value ? WrapWord : WrapNone); }

void TSQLEditor::SetCompletion(bool Enabled, bool AutoInvoke, int Delay) {
    FCompletionEnabled = Enabled;
    FAutoInvoke = Enabled && AutoInvoke;
    static constexpr int kDelays[] = {0, 200, 500, 1000};
    FCompletionTimer->setInterval(kDelays[std::clamp(Delay, 0, 3)]);
}

void TSQLEditor::SetTemplates(std::vector<TEditorTemplate> Templates, bool Enabled) {
    FTemplates = std::move(Templates);
    FTemplatesEnabled = Enabled;
}

// The control counts in bytes of UTF-8; the workbench in UTF-16 units.
int TSQLEditor::ToIndex(int BytePosition) const {
    const QByteArray bytes = const_cast<TSQLEditor*>(this)->bytes(0, BytePosition);
    // bytes() ends with a NUL of its own.
    return QString::fromUtf8(bytes.constData(), std::min<qsizetype>(BytePosition, bytes.size())).size();
}

int TSQLEditor::ToBytePosition(int Index) const { return text().left(Index).toUtf8().size(); }

QStringList TSQLEditor::Lines() const {
    QString t = text();
    t.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    t.replace(u'\r', u'\n');
    return t.split(u'\n');
}

void TSQLEditor::CaretPosition(int& Line, int& Column) const {
    auto* self = const_cast<TSQLEditor*>(this);
    const long pos = self->SendScintilla(SCI_GETCURRENTPOS);
    Line = static_cast<int>(self->SendScintilla(SCI_LINEFROMPOSITION, pos));
    const long lineStart = self->SendScintilla(SCI_POSITIONFROMLINE, Line);
    Column = ToIndex(static_cast<int>(pos)) - ToIndex(static_cast<int>(lineStart));
}

int TSQLEditor::CaretIndex() const {
    return ToIndex(static_cast<int>(const_cast<TSQLEditor*>(this)->SendScintilla(SCI_GETCURRENTPOS)));
}

void TSQLEditor::SelectionRange(int& Start, int& End) const {
    auto* self = const_cast<TSQLEditor*>(this);
    Start = ToIndex(static_cast<int>(self->SendScintilla(SCI_GETSELECTIONSTART)));
    End = ToIndex(static_cast<int>(self->SendScintilla(SCI_GETSELECTIONEND)));
}

void TSQLEditor::SetSelectionRange(int Start, int End) {
    SendScintilla(SCI_SETSEL, ToBytePosition(Start), static_cast<long>(ToBytePosition(End)));
}

QString TSQLEditor::CurrentWord() const {
    int line = 0, column = 0;
    CaretPosition(line, column);
    return GetCurrentInput(Lines().value(line).left(column));
}

void TSQLEditor::ShowCompletion() {
    FCompletionTimer->stop();
    if (!FOnCompletion || isReadOnly()) return;
    int line = 0, column = 0;
    CaretPosition(line, column);
    QString before, after;
    GetEditorText(Lines(), line, column, before, after);
    const QString input = GetCurrentInput(before);
    std::vector<TEditorProposal> all = FOnCompletion(before, after, input);
    // The list shows what begins with the word typed so far; the rest of
    // the narrowing is the control's as the user goes on typing.
    FShown.clear();
    QStringList shown;
    for (TEditorProposal& p : all) {
        QString bare = p.Insert;
        if (bare.startsWith(u'"') || bare.startsWith(u'[') || bare.startsWith(u'`')) bare.remove(0, 1);
        if (!input.isEmpty() && !bare.startsWith(input, Qt::CaseInsensitive) &&
            !p.Insert.startsWith(input, Qt::CaseInsensitive))
            continue;
        shown << p.Display;
        FShown.push_back(std::move(p));
    }
    if (shown.isEmpty()) return;
    showUserList(kCompletionList, shown);
}

void TSQLEditor::InsertProposal(const TEditorProposal& Proposal) {
    const int caret = CaretIndex();
    const int wordStart = caret - CurrentWord().size();
    beginUndoAction();
    SetSelectionRange(wordStart, caret);
    replaceSelectedText(Proposal.Insert);
    endUndoAction();
}

void TSQLEditor::OnUserListActivated(int Id, const QString& Text) {
    if (Id == kCompletionList) {
        for (const TEditorProposal& p : FShown)
            if (p.Display == Text) return InsertProposal(p);
    } else if (Id == kTemplateList) {
        for (const TEditorTemplate& t : FTemplates)
            if (t.Name + QStringLiteral(" - ") + t.Description == Text) return ApplyTemplate(t);
    }
}

void TSQLEditor::ApplyTemplate(const TEditorTemplate& Template) {
    const int caret = CaretIndex();
    const int start = caret - CurrentWord().size();
    beginUndoAction();
    SetSelectionRange(start, caret);
    replaceSelectedText(Template.Text);
    endUndoAction();
    const int at = start + std::clamp(Template.Caret, 0, static_cast<int>(Template.Text.size()));
    SetSelectionRange(at, at);
}

bool TSQLEditor::ExpandTemplate() {
    if (!FTemplatesEnabled || isReadOnly()) return false;
    const QString word = CurrentWord();
    for (const TEditorTemplate& t : FTemplates) {
        if (!word.isEmpty() && t.Name.compare(word, Qt::CaseInsensitive) == 0) {
            ApplyTemplate(t);
            return true;
        }
    }
    // No template of that name: the list of them.
    QStringList names;
    for (const TEditorTemplate& t : FTemplates)
        if (t.Name.startsWith(word, Qt::CaseInsensitive)) names << t.Name + QStringLiteral(" - ") + t.Description;
    if (!names.isEmpty()) showUserList(kTemplateList, names);
    return false;
}

void TSQLEditor::CommentText() {
    if (isReadOnly()) return;
    int lineFrom = 0, indexFrom = 0, lineTo = 0, indexTo = 0;
    getSelection(&lineFrom, &indexFrom, &lineTo, &indexTo);
    if (lineFrom < 0) {
        getCursorPosition(&lineFrom, &indexFrom);
        lineTo = lineFrom;
        indexTo = indexFrom;
    } else if (indexTo == 0 && lineTo > lineFrom) {
        --lineTo;  // a selection that ends at a line's start leaves that line alone
    }
    bool allCommented = true;
    for (int l = lineFrom; l <= lineTo; ++l)
        if (!text(l).trimmed().isEmpty() && !text(l).trimmed().startsWith(QLatin1String("--"))) allCommented = false;
    beginUndoAction();
    for (int l = lineFrom; l <= lineTo; ++l) {
        const QString t = text(l);
        if (allCommented) {
            const int at = t.indexOf(QLatin1String("--"));
            if (at < 0) continue;
            setSelection(l, at, l, at + 2);
            removeSelectedText();
        } else {
            insertAt(QStringLiteral("--"), l, 0);
        }
    }
    endUndoAction();
}

void TSQLEditor::OnCharAdded(int Character) {
    if (!FAutoInvoke || isListActive()) return;
    if (Character == '.' || Character == ' ' || Character == '(' || Character == ',')
        FCompletionTimer->start();
    else
        FCompletionTimer->stop();
}

void TSQLEditor::keyPressEvent(QKeyEvent* Event) {
    const bool ctrl = Event->modifiers() & Qt::ControlModifier;
    if (ctrl && Event->key() == Qt::Key_Space) {
        if (FCompletionEnabled) ShowCompletion();
        return;
    }
    if (ctrl && Event->key() == Qt::Key_J) {
        ExpandTemplate();
        return;
    }
    QsciScintilla::keyPressEvent(Event);
}

void TSQLEditor::dragEnterEvent(QDragEnterEvent* Event) {
    if (Event->mimeData()->hasUrls())
        Event->acceptProposedAction();
    else
        QsciScintilla::dragEnterEvent(Event);
}

void TSQLEditor::dropEvent(QDropEvent* Event) {
    if (!Event->mimeData()->hasUrls()) return QsciScintilla::dropEvent(Event);
    const QList<QUrl> urls = Event->mimeData()->urls();
    Event->acceptProposedAction();
    // Only exactly one file loads: two at once are more likely a slip.
    if (urls.size() == 1 && urls[0].isLocalFile() && FOnDropFile) FOnDropFile(urls[0].toLocalFile());
}

}  // namespace brindle
