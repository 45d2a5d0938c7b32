#include "TextSearch.h"

#include "engine/Exceptions.h"

#include <algorithm>

namespace brindle {

namespace {

bool IsWordChar(QChar C) {
    return C.isLetterOrNumber() || C == u'_';
}

// One position on, never into the middle of a surrogate pair, where the
// regular-expression engine may not start.
qsizetype Advance(const QString& Text, qsizetype Pos) {
    ++Pos;
    if (Pos < Text.size() && Text.at(Pos).isLowSurrogate() && Text.at(Pos - 1).isHighSurrogate()) ++Pos;
    return Pos;
}

// The selection with SelectionOnly and a selection to search; else all.
TTextRange Scope(const TEditorText& Editor, const TSearchOptions& Options) {
    const qsizetype size = Editor.Text.size();
    if (Options.SelectionOnly && Editor.Selection.Length() > 0)
        return {std::clamp<qsizetype>(Editor.Selection.Start, 0, size),
                std::clamp<qsizetype>(Editor.Selection.End, 0, size)};
    return {0, size};
}

// Where the search begins: the caret side of the selection away from the
// last hit, or the scope's edge. Within a selection the search always runs
// over all of it.
qsizetype StartingPoint(const TEditorText& Editor, const TSearchOptions& Options, TTextRange Scope) {
    if (!Options.FromCaret || (Options.SelectionOnly && Editor.Selection.Length() > 0))
        return Options.Backwards ? Scope.End : Scope.Start;
    const bool selected = Editor.Selection.Length() > 0;
    const qsizetype point =
        selected ? (Options.Backwards ? Editor.Selection.Start : Editor.Selection.End) : Editor.Caret;
    return std::clamp(point, Scope.Start, Scope.End);
}

TSearchResult NotFound(const TEditorText& Editor, const TSearchOptions& Options) {
    const qsizetype point = Options.Backwards ? Editor.Selection.End : Editor.Selection.Start;
    return {false, {point, point}, point};
}

}  // namespace

QStringList SearchHistoryItems(const QString& History) {
    static const QRegularExpression breaks(QStringLiteral("\r\n|\r|\n"));
    return History.split(breaks, Qt::SkipEmptyParts);
}

QString GetSearchTextHistory(const QString& Text, const QString& History) {
    if (Text.isEmpty()) return History;
    QStringList items = SearchHistoryItems(History);
    items.removeIf([&](const QString& item) { return item.compare(Text, Qt::CaseInsensitive) == 0; });
    items.prepend(Text);
    return items.join(QStringLiteral("\r\n"));
}

TSearchOptions SearchOptionsOf(const TSynSearch& Search, bool Backwards) {
    TSearchOptions options;
    options.Backwards = Backwards;
    options.CaseSensitive = Search.gbSearchCaseSensitive;
    options.FromCaret = Search.gbSearchFromCaret;
    options.SelectionOnly = Search.gbSearchSelectionOnly;
    options.WholeWords = Search.gbSearchWholeWords;
    options.Regex = Search.gbSearchRegex;
    return options;
}

TTextSearch::TTextSearch(const QString& SearchText, const TSearchOptions& Options)
    : FSearchText(SearchText), FOptions(Options) {
    // Unicode properties, so that \w and \b know the same letters as the
    // whole-word test does.
    QRegularExpression::PatternOptions patternOptions =
        QRegularExpression::MultilineOption | QRegularExpression::UseUnicodePropertiesOption;
    if (!Options.CaseSensitive) patternOptions |= QRegularExpression::CaseInsensitiveOption;
    // The editors' lines end in CR LF as often as in LF: both, and a lone
    // CR, end a line for ^ and $.
    const QString newlines = QStringLiteral("(*ANYCRLF)");
    FExpression.setPattern(newlines + (Options.Regex ? SearchText : QRegularExpression::escape(SearchText)));
    FExpression.setPatternOptions(patternOptions);
    if (Options.Regex && !FExpression.isValid()) {
        // The offset in the user's own text, without the prefix.
        const qsizetype offset = std::max<qsizetype>(0, FExpression.patternErrorOffset() - newlines.size());
        ECustomException e(QStringLiteral("Invalid regular expression: %1 at offset %2.")
                               .arg(FExpression.errorString())
                               .arg(offset),
                           QStringLiteral("Offset"), QString::number(offset));
        e.SetParam(QStringLiteral("Pattern"), SearchText);
        throw e;
    }
}

bool TTextSearch::IsWholeWord(const QString& Text, qsizetype Start, qsizetype End) const {
    if (Start > 0 && IsWordChar(Text.at(Start - 1))) return false;
    if (End < Text.size() && IsWordChar(Text.at(End))) return false;
    return true;
}

TTextRange TTextSearch::Next(const QString& Text, qsizetype From, qsizetype Floor, qsizetype Limit) const {
    qsizetype pos = std::max(From, Floor);
    while (pos < Limit) {
        const QRegularExpressionMatch m = FExpression.match(Text, pos);
        if (!m.hasMatch() || m.capturedStart() >= Limit) break;
        const qsizetype start = m.capturedStart(), end = m.capturedEnd();
        // A hit running past the scope may have a shorter one behind it.
        if (end > start && end <= Limit && (!FOptions.WholeWords || IsWholeWord(Text, start, end)))
            return {start, end};
        pos = Advance(Text, start);
    }
    return {};
}

// The engine only searches forwards: walk the hits from the floor and keep
// the last that ends by From, trying every start so overlapping ones count.
TTextRange TTextSearch::Previous(const QString& Text, qsizetype From, qsizetype Floor) const {
    TTextRange best;
    qsizetype pos = Floor;
    while (pos < From) {
        const QRegularExpressionMatch m = FExpression.match(Text, pos);
        if (!m.hasMatch() || m.capturedStart() >= From) break;
        const qsizetype start = m.capturedStart(), end = m.capturedEnd();
        if (end > start && end <= From && (!FOptions.WholeWords || IsWholeWord(Text, start, end)))
            best = {start, end};
        pos = Advance(Text, start);
    }
    return best;
}

TSearchResult TTextSearch::Find(const TEditorText& Editor) const {
    if (FSearchText.isEmpty()) return NotFound(Editor, FOptions);
    const TTextRange scope = Scope(Editor, FOptions);
    const qsizetype from = StartingPoint(Editor, FOptions, scope);
    const TTextRange hit = FOptions.Backwards ? Previous(Editor.Text, from, scope.Start)
                                              : Next(Editor.Text, from, scope.Start, scope.End);
    if (hit.Length() == 0) return NotFound(Editor, FOptions);
    return {true, hit, FOptions.Backwards ? hit.Start : hit.End};
}

QString TTextSearch::Replacement(const QString& Text, TTextRange Hit, const QString& ReplaceText) const {
    if (!FOptions.Regex) return ReplaceText;
    const QRegularExpressionMatch m = FExpression.match(Text, Hit.Start, QRegularExpression::NormalMatch,
                                                        QRegularExpression::AnchorAtOffsetMatchOption);
    QString result;
    result.reserve(ReplaceText.size());
    for (qsizetype i = 0; i < ReplaceText.size(); ++i) {
        const QChar c = ReplaceText.at(i);
        if (c != u'\\' || i + 1 == ReplaceText.size()) {
            result += c;
            continue;
        }
        const QChar next = ReplaceText.at(++i);
        if (next.isDigit() && next.unicode() <= u'9')
            result += m.captured(next.unicode() - u'0');
        else if (next == u'\\')
            result += u'\\';
        else if (next == u'n')
            result += u'\n';
        else if (next == u'r')
            result += u'\r';
        else if (next == u't')
            result += u'\t';
        else {
            result += c;
            result += next;
        }
    }
    return result;
}

TReplaceResult TTextSearch::ReplaceAll(
    const TEditorText& Editor, const QString& ReplaceText, const TConfirmReplace& Confirm,
    const std::function<void(TTextRange Hit, const QString& Replacement)>& OnReplaced) const {
    TReplaceResult result;
    result.Text = Editor.Text;
    if (FSearchText.isEmpty()) {
        const TSearchResult none = NotFound(Editor, FOptions);
        result.Selection = none.Selection;
        result.Caret = none.Caret;
        return result;
    }
    TTextRange scope = Scope(Editor, FOptions);
    qsizetype pos = StartingPoint(Editor, FOptions, scope);
    bool ask = true;
    TTextRange last;
    QString& text = result.Text;
    for (;;) {
        const TTextRange hit =
            FOptions.Backwards ? Previous(text, pos, scope.Start) : Next(text, pos, scope.Start, scope.End);
        if (hit.Length() == 0) break;
        result.Found = true;
        last = hit;
        const QString replacement = Replacement(text, hit, ReplaceText);
        TReplaceAction action = TReplaceAction::Skip;
        if (QStringView(text).sliced(hit.Start, hit.Length()) != replacement)
            action = ask ? Confirm(text, hit, replacement) : TReplaceAction::Replace;
        if (action == TReplaceAction::Cancel) break;
        if (action == TReplaceAction::Skip) {
            pos = FOptions.Backwards ? hit.Start : hit.End;
            continue;
        }
        if (action == TReplaceAction::ReplaceAll) ask = false;
        text.replace(hit.Start, hit.Length(), replacement);
        if (OnReplaced) OnReplaced(hit, replacement);
        ++result.Count;
        last = {hit.Start, hit.Start + replacement.size()};
        scope.End += replacement.size() - hit.Length();
        pos = FOptions.Backwards ? last.Start : last.End;
    }
    if (!result.Found) {
        const TSearchResult none = NotFound(Editor, FOptions);
        result.Selection = none.Selection;
        result.Caret = none.Caret;
    } else {
        result.Selection = last;
        result.Caret = FOptions.Backwards ? last.Start : last.End;
    }
    return result;
}

}  // namespace brindle
