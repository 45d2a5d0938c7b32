// The SQL editor of the workbench: highlighting, line numbers, matching
// brackets, code templates and a completion list whose items come from the
// workbench's completion logic through FOnCompletion, never from the
// control's own word lists.
#pragma once

#include <Qsci/qsciscintilla.h>

#include <QStringList>
#include <functional>
#include <vector>

class QTimer;
class QsciLexerSQL;

namespace brindle {

// One item of the completion list: what the list shows and what goes in.
struct TEditorProposal {
    QString Display;
    QString Insert;
};

// One code template: typed Name and Ctrl+J puts Text in its place, with the
// caret Caret characters into it.
struct TEditorTemplate {
    QString Name;
    QString Description;
    QString Text;
    int Caret = 0;
};

class TSQLEditor : public QsciScintilla {
    Q_OBJECT

public:
    explicit TSQLEditor(QWidget* Parent = nullptr);
    ~TSQLEditor() override;

    void SetEditorFont(const QFont& Font);
    void SetTabWidth(int Width);
    void SetWordWrap(bool Value);
    // Delay in steps of the settings (0 none .. 3 high) before the list
    // opens by itself after a dot or a blank; Enabled false: only on
    // Ctrl+Space.
    void SetCompletion(bool Enabled, bool AutoInvoke, int Delay);
    void SetTemplates(std::vector<TEditorTemplate> Templates, bool Enabled);

    // The editor's lines, and the caret as a line and a column counted in
    // UTF-16 code units.
    QStringList Lines() const;
    void CaretPosition(int& Line, int& Column) const;
    // Positions in the text as UTF-16 indexes: the caret, the selection
    // (empty when none) and a selection set from them.
    int CaretIndex() const;
    void SelectionRange(int& Start, int& End) const;
    void SetSelectionRange(int Start, int End);
    // The word being typed before the caret.
    QString CurrentWord() const;

    // Opens the completion list at the caret, as Ctrl+Space does.
    void ShowCompletion();
    // The items shown by the last ShowCompletion, for tests.
    const std::vector<TEditorProposal>& ShownProposals() const { return FShown; }
    // Puts the proposal in place of the word being typed.
    void InsertProposal(const TEditorProposal& Proposal);
    // Replaces the word before the caret by its template; false when none.
    bool ExpandTemplate();
    // Comments out the selected lines with "--", or takes the marks off
    // when every line has them.
    void CommentText();

    // Given the text up to and from the caret and the word begun, the
    // items to offer, in their order.
    std::function<std::vector<TEditorProposal>(const QString& SQLBefore, const QString& SQLAfter,
                                               const QString& CurrentInput)>
        FOnCompletion;
    // One file dropped on the editor.
    std::function<void(const QString& FileName)> FOnDropFile;

protected:
    void keyPressEvent(QKeyEvent* Event) override;
    void dragEnterEvent(QDragEnterEvent* Event) override;
    void dropEvent(QDropEvent* Event) override;

private:
    int ToIndex(int BytePosition) const;
    int ToBytePosition(int Index) const;
    void OnUserListActivated(int Id, const QString& Text);
    void OnCharAdded(int Character);
    void ApplyTemplate(const TEditorTemplate& Template);

    QsciLexerSQL* FLexer = nullptr;  // owned by the editor through Qt
    QTimer* FCompletionTimer = nullptr;
    bool FCompletionEnabled = true;
    bool FAutoInvoke = true;
    bool FTemplatesEnabled = true;
    std::vector<TEditorTemplate> FTemplates;
    std::vector<TEditorProposal> FShown;
};

}  // namespace brindle
