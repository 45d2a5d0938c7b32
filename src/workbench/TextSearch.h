// Search and replace in the SQL editors, apart from any widget: the options
// kept across uses, their histories, and an engine that works on the
// editor's text, caret and selection and says where they end up. Positions
// are UTF-16 indexes into the text; a range is [Start, End).
#pragma once

#include <QRegularExpression>
#include <QString>
#include <QStringList>
#include <functional>

namespace brindle {

// The options of the search and replace dialogs, one object for the
// program, kept for the run only.
struct TSynSearch {
    bool gbSearchBackwards = false;
    bool gbSearchCaseSensitive = false;
    bool gbSearchFromCaret = false;  // else the entire scope
    bool gbSearchSelectionOnly = false;
    bool gbSearchTextAtCaret = false;  // prefill the dialog from the editor
    bool gbSearchWholeWords = false;
    bool gbSearchRegex = false;
    QString gsSearchText;
    QString gsSearchTextHistory;  // earlier texts, one a line, newest first
    QString gsReplaceText;
    QString gsReplaceTextHistory;
};

// The history after a search for Text: Text first, then the old entries
// without one that equals Text but for case, joined by CR LF. An empty
// Text leaves the history as it is.
QString GetSearchTextHistory(const QString& Text, const QString& History);
// The entries of a history, for the dialog's list.
QStringList SearchHistoryItems(const QString& History);

struct TTextRange {
    qsizetype Start = 0;
    qsizetype End = 0;
    qsizetype Length() const { return End - Start; }
    bool operator==(const TTextRange&) const = default;
};

struct TSearchOptions {
    bool Backwards = false;
    bool CaseSensitive = false;
    bool FromCaret = false;  // else from the scope's start (its end backwards)
    bool SelectionOnly = false;
    bool WholeWords = false;
    bool Regex = false;
};

// The options of one search: the stored ones, in the direction of the
// command (find next or find previous).
TSearchOptions SearchOptionsOf(const TSynSearch& Search, bool Backwards);

// Where the editor stands: its text, the caret, the selection. With no
// selection, Selection is empty at the caret.
struct TEditorText {
    QString Text;
    qsizetype Caret = 0;
    TTextRange Selection;
};

// Where the caret and selection go after a search.
struct TSearchResult {
    bool Found = false;
    // The hit; with none, the old selection collapsed to its start, or to
    // its end when searching backwards.
    TTextRange Selection;
    // The hit's end, or its start when searching backwards; with no hit,
    // the collapse point.
    qsizetype Caret = 0;
};

enum class TReplaceAction { Replace, Skip, ReplaceAll, Cancel };

// Asked before each replacement: the text as it stands (earlier
// replacements made), the hit in it and what would replace it.
using TConfirmReplace =
    std::function<TReplaceAction(const QString& Text, TTextRange Hit, const QString& Replacement)>;

struct TReplaceResult {
    bool Found = false;  // any hit, replaced or not
    int Count = 0;       // replacements that changed the text
    QString Text;
    // The last hit handled (as it stands in the new text), or the collapsed
    // selection with no hit; the caret as TSearchResult has it.
    TTextRange Selection;
    qsizetype Caret = 0;
};

// One search text with its options. A regular expression is that of
// QRegularExpression (Perl syntax), with ^ and $ at line ends; its
// replacement text may name groups as \0 to \9 (\0 is the whole hit), and
// \\, \n, \r, \t stand for a backslash, line feed, carriage return and
// tab. A plain search text and its replacement are literal. An empty hit
// is no hit: it can't be selected and would stall a replace.
class TTextSearch {
public:
    // Throws ECustomException for an invalid regular expression, with
    // QRegularExpression's message and the offset in the pattern.
    TTextSearch(const QString& SearchText, const TSearchOptions& Options);

    // The scope is the selection with SelectionOnly, else the whole text.
    // From the caret, a search forwards starts at the selection's end and
    // one backwards ends at its start, so a repeated search never finds the
    // hit it has just selected. An empty search text finds nothing.
    TSearchResult Find(const TEditorText& Editor) const;

    // What replaces Hit, a hit of this search in Text.
    QString Replacement(const QString& Text, TTextRange Hit, const QString& ReplaceText) const;

    // Goes through the hits in the search's direction and asks Confirm for
    // each: Replace, Skip, ReplaceAll (this one and the rest, unasked) or
    // Cancel (stop here; what is replaced stays). A hit whose replacement
    // is the same text is skipped without asking. With ReplaceAll from the
    // start, pass a Confirm that returns ReplaceAll. OnReplaced, if set,
    // hears each replacement as it is made, so an editor can follow along.
    TReplaceResult ReplaceAll(
        const TEditorText& Editor, const QString& ReplaceText, const TConfirmReplace& Confirm,
        const std::function<void(TTextRange Hit, const QString& Replacement)>& OnReplaced = {}) const;

private:
    // The first hit at or after From that ends by Limit (forwards), or the
    // last that starts at or after Floor and ends by From (backwards);
    // an empty range if none.
    TTextRange Next(const QString& Text, qsizetype From, qsizetype Floor, qsizetype Limit) const;
    TTextRange Previous(const QString& Text, qsizetype From, qsizetype Floor) const;
    bool IsWholeWord(const QString& Text, qsizetype Start, qsizetype End) const;

    QString FSearchText;
    TSearchOptions FOptions;
    QRegularExpression FExpression;
};

}  // namespace brindle
