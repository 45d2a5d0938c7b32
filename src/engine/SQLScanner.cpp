#include "SQLScanner.h"

#include <array>
#include <climits>
#include <unordered_map>

namespace brindle {

namespace {

// ---------------------------------------------------------------------------
// Character classes. Everything from 128 up (surrogates, NUL-free Unicode) is
// a word character: the scanner never decodes, so no text can trip it.

enum class TCharClass : unsigned char {
    Word,
    Nul,
    Blank,
    DoubleQuote,
    SingleQuote,
    OpenBracket,
    Punct,
    Minus,
    Slash,
    Predicate,
    Digit,
    ParamStart,
};

constexpr std::array<TCharClass, 128> MakeCharClasses() {
    std::array<TCharClass, 128> t{};
    t[0] = TCharClass::Nul;
    for (char c : {'\t', '\n', '\r', ' '}) t[static_cast<unsigned char>(c)] = TCharClass::Blank;
    t['"'] = TCharClass::DoubleQuote;
    t['\''] = TCharClass::SingleQuote;
    t['['] = TCharClass::OpenBracket;
    for (char c : {'(', ')', ',', ';', '.'}) t[static_cast<unsigned char>(c)] = TCharClass::Punct;
    t['-'] = TCharClass::Minus;
    t['/'] = TCharClass::Slash;
    for (char c : {'<', '=', '>'}) t[static_cast<unsigned char>(c)] = TCharClass::Predicate;
    for (char c = '0'; c <= '9'; ++c) t[static_cast<unsigned char>(c)] = TCharClass::Digit;
    for (char c : {'$', ':', '?', '@'}) t[static_cast<unsigned char>(c)] = TCharClass::ParamStart;
    return t;
}

constexpr std::array<TCharClass, 128> CharClasses = MakeCharClasses();

inline TCharClass ClassOf(char16_t c) {
    return c < 128 ? CharClasses[c] : TCharClass::Word;
}

inline TTokenType PunctType(char16_t c) {
    switch (c) {
        case u'(':
            return ttOpenParen;
        case u')':
            return ttCloseParen;
        case u',':
            return ttComma;
        case u';':
            return ttSemicolon;
        default:
            return ttDot;
    }
}

// The single pass over a text. Calls Sink(kind, quoted, start, size) for each
// token, start 0-based. Stops at the end or at the first NUL character.
//
// The only backtracking is at an unterminated quote, where scanning resumes
// behind the quote. For ' and " that cannot repeat badly: a failed run proves
// that the rest holds only doubled quotes, and every later run then closes
// within its own group. A failed [ proves that no ] follows at all, so later
// brackets fail at once instead of rescanning to the end.
template <class Sink>
void ScanText(const char16_t* s, qsizetype n, Sink&& sink) {
    auto at = [s, n](qsizetype i) -> char16_t { return i < n ? s[i] : char16_t(0); };
    qsizetype p = 0;
    qsizetype tokenStart = -1;
    bool isParam = false;
    bool bracketNeverCloses = false;

    auto startToken = [&] {
        if (tokenStart < 0) {
            tokenStart = p;
            isParam = false;
        }
    };
    auto addToken = [&](TTokenType kind, bool quoted) {
        sink(isParam ? ttParam : kind, quoted, tokenStart, p - tokenStart);
        tokenStart = -1;
        isParam = false;
    };
    auto endToken = [&] {
        if (tokenStart < 0) return false;
        addToken(ttUnknown, false);
        return true;
    };
    // From the opening quote at p: true with p behind the closing quote.
    auto scanQuoted = [&](char16_t close, bool doubling) {
        qsizetype i = p + 1;
        for (;;) {
            const char16_t c = at(i);
            if (c == 0) return false;
            if (c == close) {
                if (doubling && at(i + 1) == close) {
                    i += 2;
                    continue;
                }
                p = i + 1;
                return true;
            }
            ++i;
        }
    };
    auto skipTo = [&](auto stop) {
        while (true) {
            const char16_t c = at(p);
            if (c == 0 || stop(c)) return;
            ++p;
        }
    };

    for (;;) {
        const char16_t c = at(p);
        switch (ClassOf(c)) {
            case TCharClass::Nul:
                endToken();
                return;
            case TCharClass::Blank:
                endToken();
                do ++p;
                while (ClassOf(at(p)) == TCharClass::Blank);
                break;
            case TCharClass::DoubleQuote:
            case TCharClass::SingleQuote:
            case TCharClass::OpenBracket: {
                endToken();
                startToken();
                const bool bracket = c == u'[';
                const bool closed =
                    bracket ? !bracketNeverCloses && scanQuoted(u']', false) : scanQuoted(c, true);
                if (closed) {
                    addToken(c == u'\'' ? ttLiteral : ttUnknown, true);
                } else {
                    // Unterminated: the quote begins a plain word and scanning
                    // goes on inside what would have been the string.
                    if (bracket) bracketNeverCloses = true;
                    p = tokenStart + 1;
                }
                break;
            }
            case TCharClass::Punct:
                endToken();
                startToken();
                ++p;
                addToken(PunctType(c), false);
                break;
            case TCharClass::Minus:
                endToken();
                startToken();
                ++p;
                if (at(p) == u'-') {
                    skipTo([](char16_t x) { return x == u'\n' || x == u'\r'; });
                    tokenStart = -1;
                }
                break;
            case TCharClass::Slash:
                // A pending word stays pending: a comment glued to it drops it.
                startToken();
                ++p;
                if (at(p) == u'*') {
                    ++p;
                    while (at(p) != 0 && !(at(p) == u'*' && at(p + 1) == u'/')) ++p;
                    if (at(p) != 0) p += 2;
                    tokenStart = -1;
                } else if (at(p) == u'/') {
                    skipTo([](char16_t x) { return x == u'\t' || x == u'\n' || x == u'\r'; });
                    tokenStart = -1;
                }
                break;
            case TCharClass::Predicate:
                if (endToken()) break;  // look at the same character again
                startToken();
                while (ClassOf(at(p)) == TCharClass::Predicate) ++p;
                addToken(ttPredicate, false);
                break;
            case TCharClass::Digit:
                if (tokenStart >= 0) {
                    ++p;
                    break;
                }
                startToken();
                while (ClassOf(at(p)) == TCharClass::Digit || at(p) == u'.') ++p;
                addToken(ttNumber, false);
                break;
            case TCharClass::ParamStart:
                if (tokenStart < 0) {
                    startToken();
                    isParam = true;
                }
                ++p;
                break;
            case TCharClass::Word: {
                startToken();
                // The rest of the word at once: digits and parameter marks
                // only extend a pending word.
                TCharClass next;
                do {
                    ++p;
                    next = ClassOf(at(p));
                } while (next == TCharClass::Word || next == TCharClass::Digit ||
                         next == TCharClass::ParamStart);
                break;
            }
        }
    }
}

// Token positions are ints; a text beyond that is scanned as far as they reach.
qsizetype ScanLimit(const QString& text) {
    return std::min<qsizetype>(text.size(), INT_MAX - 1);
}

// ---------------------------------------------------------------------------
// The keyword classification, in the order the words are tried. Pairs come
// before their parts (NOT NULL before NOT); operators come last.

struct TKeywordRow {
    const char* Phrase;
    TSQLTokenType Type;
    TKeywordAsName AsName = kaReserved;
};

constexpr TKeywordRow KeywordRows[] = {
    {"FOREIGN KEY", stForeignKey},
    {"REFERENCES", stReferences},
    {"ON DELETE", stOnDelete},
    {"ON UPDATE", stOnUpdate},
    {"SET NULL", stSetNull},
    {"SET DEFAULT", stSetDefault},
    {"DEFAULT VALUES", stDefaultValues},
    {"CASCADE", stCascade, kaName},
    {"RESTRICT", stRestrict, kaName},
    {"NO ACTION", stNoAction},
    {"MATCH", stMatch, kaNotAlias},
    {"NOT DEFERRABLE", stNotDeferrable},
    {"DEFERRABLE", stDeferrable},
    {"INITIALLY DEFERRED", stInitiallyDeferred},
    {"INITIALLY IMMEDIATE", stInitiallyImmediate},
    {"SELECT", stSelect},
    {"UPDATE OF", stUpdateOf},
    {"UPDATE", stUpdate},
    {"INSERT", stInsert},
    {"DELETE", stDelete},
    {"BEGIN", stBegin, kaName},
    {"COMMIT", stCommit},
    {"DATABASE", stDatabase, kaName},
    {"TRANSACTION", stTransaction},
    {"CREATE TABLE", stCreateTable},
    {"CREATE VIRTUAL TABLE", stCreateVirtualTable},
    {"CREATE TEMPORARY TABLE", stCreateTable},
    {"CREATE TEMP TABLE", stCreateTable},
    {"CREATE VIEW", stCreateView},
    {"CREATE TEMPORARY VIEW", stCreateView},
    {"CREATE TEMP VIEW", stCreateView},
    {"CREATE TRIGGER", stCreateTrigger},
    {"CREATE TEMPORARY TRIGGER", stCreateTrigger},
    {"CREATE TEMP TRIGGER", stCreateTrigger},
    {"CREATE INDEX", stCreateIndex},
    {"CREATE UNIQUE INDEX", stCreateIndex},
    {"INDEXED BY", stIndexedBy},
    {"NOT INDEXED", stNotIndexed},
    {"CREATE", stCreate},
    {"INDEX", stIndex},
    {"ALTER TABLE", stAlterTable},
    {"ALTER", stAlter},
    {"ANALYZE", stAnalyze, kaName},
    {"*", stAllFields},
    {"ATTACH", stAttach, kaName},
    {"TEMPORARY", stTemporary, kaName},
    {"TEMP", stTemporary, kaName},
    {"DETACH DATABASE", stDetach},
    {"DETACH", stDetach, kaName},
    {"DROP TABLE", stDropTable},
    {"DROP INDEX", stDropIndex},
    {"DROP VIEW", stDropView},
    {"DROP TRIGGER", stDropTrigger},
    {"DROP", stDrop},
    {"ROLLBACK", stRollback, kaName},
    {"REPLACE", stReplace, kaName},
    {"REINDEX", stReindex, kaName},
    {"PRAGMA", stPragma, kaName},
    {"EXPLAIN", stExplain, kaName},
    {"VACUUM", stVacuum, kaName},
    {"LIMIT", stLimit},
    {"OFFSET", stOffset, kaName},
    {"END", stEnd, kaName},
    {"DISTINCT", stDistinct},
    {"ASC", stAscending, kaName},
    {"ASCENDING", stAscending, kaName},
    {"DESC", stDescending, kaName},
    {"DESCENDING", stDescending, kaName},
    {"AUTOINCREMENT", stAutoincrement},
    {"AND", stAnd},
    {"OR", stOr},
    {"ON CONFLICT", stOnConflict},
    {"ON", stOn},
    {"AS", stAs},
    {"LIKE", stLike, kaNotAlias},
    {"FROM", stFrom},
    {"WHERE", stWhere},
    {"HAVING", stHaving},
    {"UNION", stUnion},
    {"PLAN", stPlan, kaName},
    {"COLLATE", stCollate},
    {"CONSTRAINT", stConstraint},
    {"UNIQUE", stUnique},
    {"IS NULL", stIsNull},
    {"IS NOT NULL", stIsNotNull},
    {"NOT NULL", stNotNull},
    {"IF EXISTS", stIfExists},
    {"IF NOT EXISTS", stIfNotExists},
    {"GROUP BY", stGroupBy},
    {"ORDER BY", stOrderBy},
    {"FOR UPDATE", stForUpdate},
    {"VALUES", stValues},
    {"DEFAULT", stDefault},
    {"INTO", stInto},
    {"ALL", stAll},
    {"AVG", stAvg, kaName},
    {"COUNT", stCount, kaName},
    {"MAX", stMax, kaName},
    {"MIN", stMin, kaName},
    {"SUM", stSum, kaName},
    {"TOTAL", stTotal, kaName},
    {"CHECK", stCheck},
    {"PRIMARY KEY", stPrimaryKey},
    {"BEFORE", stBefore, kaName},
    {"AFTER", stAfter, kaName},
    {"INTERSECT", stIntersect},
    {"EXCEPT", stExcept},
    {"INSTEAD OF", stInsteadOf},
    {"FOR EACH ROW", stForEachRow},
    {"FOR EACH STATEMENT", stForEachStatement},
    {"ADD COLUMN", stAddColumn},
    {"RENAME TO", stRenameTo},
    {"QUERY PLAN", stQueryPlan},
    {"WHEN", stWhen},
    {"TO", stTo},
    {"SAVEPOINT", stSavepoint, kaName},
    {"RELEASE", stRelease, kaName},
    {"TABLE", stTable},
    {"VIEW", stView, kaName},
    {"TRIGGER", stTrigger, kaName},
    {"VIRTUAL", stVirtual, kaName},
    {"LOAD_EXTENSION", stLoadExtension, kaName},
    {"ABORT", stAbort, kaName},
    {"ACTION", stAction, kaName},
    {"ADD", stAdd},
    {"BETWEEN", stBetween},
    {"BY", stBy, kaName},
    {"CASE", stCase},
    {"CAST", stCast, kaNotInExpression},
    {"COLUMN", stColumn, kaName},
    {"CONFLICT", stConflict, kaName},
    {"CROSS", stCross, kaNotAlias},
    {"CURRENT_DATE", stCurrentDate, kaNotInExpression},
    {"CURRENT_TIME", stCurrentTime, kaNotInExpression},
    {"CURRENT_TIMESTAMP", stCurrentTimestamp, kaNotInExpression},
    {"DEFERRED", stDeferred, kaName},
    {"EACH", stEach, kaName},
    {"ELSE", stElse},
    {"ESCAPE", stEscape},
    {"EXCLUSIVE", stExclusive, kaName},
    {"EXISTS", stExists},
    {"FAIL", stFail, kaName},
    {"FOR", stFor, kaName},
    {"FOREIGN", stForeign},
    {"FULL", stFull, kaNotAlias},
    {"GLOB", stGlob, kaNotAlias},
    {"GROUP", stGroup},
    {"IF", stIf, kaName},
    {"IGNORE", stIgnore, kaName},
    {"IMMEDIATE", stImmediate, kaName},
    {"IN", stIn},
    {"INDEXED", stIndexed, kaNotAlias},
    {"INITIALLY", stInitially, kaName},
    {"INNER", stInner, kaNotAlias},
    {"INSTEAD", stInstead, kaName},
    {"IS", stIs},
    {"JOIN", stJoin},
    {"KEY", stKey, kaName},
    {"LEFT", stLeft, kaNotAlias},
    {"NATURAL", stNatural, kaNotAlias},
    {"NO", stNo, kaName},
    {"NOT", stNot},
    {"NULL", stNull},
    {"OF", stOf, kaName},
    {"ORDER", stOrder},
    {"OUTER", stOuter, kaNotAlias},
    {"PRIMARY", stPrimary},
    {"QUERY", stQuery, kaName},
    {"RAISE", stRaise, kaNotInExpression},
    {"REGEXP", stRegexp, kaNotAlias},
    {"RENAME", stRename, kaName},
    {"RIGHT", stRight, kaNotAlias},
    {"ROW", stRow, kaName},
    {"SET", stSet},
    {"TEMP", stTemp, kaName},  // shadowed by TEMP above; kept so the type has its word
    {"THEN", stThen},
    {"USING", stUsing},
    {"WITHOUT ROWID", stWithoutRowid},
    // Operators. Those of comparison characters never get here as words,
    // since the scanner makes them predicates.
    {"||", stOperator},
    {"/", stOperator},
    {"%", stOperator},
    {"+", stOperator},
    {"-", stOperator},
    {"<<", stOperator},
    {">>", stOperator},
    {"&", stOperator},
    {"|", stOperator},
    {"<", stOperator},
    {"<=", stOperator},
    {">", stOperator},
    {">=", stOperator},
    {"=", stOperator},
    {"==", stOperator},
    {"!=", stOperator},
    {"<>", stOperator},
};

constexpr qsizetype MaxKeywordLength = 24;

class TKeywordIndex {
public:
    TKeywordIndex() {
        for (const TKeywordRow& row : KeywordRows) {
            TSQLKeyword k{{}, 0, row.Type, row.AsName};
            std::string_view rest(row.Phrase);
            while (!rest.empty()) {
                const size_t blank = rest.find(' ');
                k.Words[k.WordCount++] = rest.substr(0, blank);
                rest = blank == std::string_view::npos ? std::string_view() : rest.substr(blank + 1);
            }
            FKeywords.push_back(k);
        }
        // Pointers only after the vector stops growing.
        for (const TSQLKeyword& k : FKeywords) FByFirstWord[k.Words[0]].push_back(&k);
    }

    std::span<const TSQLKeyword* const> Find(QStringView word) const {
        if (word.isEmpty() || word.size() > MaxKeywordLength) return {};
        char upper[MaxKeywordLength];
        for (qsizetype i = 0; i < word.size(); ++i) {
            const char16_t c = word[i].unicode();
            if (c >= 128) return {};
            upper[i] = static_cast<char>(c >= u'a' && c <= u'z' ? c - 32 : c);
        }
        const auto it = FByFirstWord.find(std::string_view(upper, static_cast<size_t>(word.size())));
        if (it == FByFirstWord.end()) return {};
        return it->second;
    }

    std::span<const TSQLKeyword> All() const { return FKeywords; }

private:
    std::vector<TSQLKeyword> FKeywords;
    std::unordered_map<std::string_view, std::vector<const TSQLKeyword*>> FByFirstWord;
};

const TKeywordIndex& KeywordIndex() {
    static const TKeywordIndex index;
    return index;
}

// ---------------------------------------------------------------------------
// Splitting helpers.

void AddPiece(const QString& text, qsizetype start, qsizetype end, bool endsWithSemicolon, bool strip,
              QStringList& list) {
    if (strip && endsWithSemicolon) --end;
    if (end <= start) return;
    // The whole text as one statement shares its buffer instead of copying.
    list.append(start == 0 && end == text.size() ? text : text.mid(start, end - start));
}

// Word (upper case) occurs in the text, ignoring ASCII case.
bool ContainsUpper(QStringView text, std::string_view word) {
    const char16_t first = static_cast<char16_t>(word[0]);
    const qsizetype last = text.size() - static_cast<qsizetype>(word.size());
    const char16_t* s = text.utf16();
    for (qsizetype i = 0; i <= last; ++i) {
        if ((s[i] & ~char16_t(0x20)) != first) continue;
        size_t k = 1;
        while (k < word.size() && (s[i + k] & ~char16_t(0x20)) == static_cast<char16_t>(word[k])) ++k;
        if (k == word.size()) return true;
    }
    return false;
}

}  // namespace

// ---------------------------------------------------------------------------
// TTokenizer

void TTokenizer::SetText(const QString& Value) {
    if (Value == FText) return;
    FText = Value;
    UnInitialize();
}

TToken* TTokenizer::GetTokens(int Index) {
    CheckInitialized();
    return FTokens.Items(Index);
}

int TTokenizer::GetTokenCount() {
    CheckInitialized();
    return FTokens.Count();
}

void TTokenizer::Delete(int Index) {
    CheckInitialized();
    FTokens.Delete(Index);
}

void TTokenizer::InternalGetTokens() {
    const QString& text = FText;
    ScanText(reinterpret_cast<const char16_t*>(text.utf16()), ScanLimit(text),
             [&](TTokenType kind, bool quoted, qsizetype start, qsizetype size) {
                 std::unique_ptr<TToken> t = CreateToken();
                 t->FTokenType = kind;
                 t->FIsIdent = quoted;
                 t->FValue = text.mid(start, size);
                 t->FStartPos = static_cast<int>(start) + 1;
                 t->FSize = static_cast<int>(size);
                 FTokens.Add(std::move(t));
             });
}

std::unique_ptr<TToken> TTokenizer::CreateToken() {
    return std::make_unique<TToken>();
}

void TTokenizer::UnInitialize() {
    FInitialized = false;
    FTokens.Clear();  // the memory goes now, not at the next scan
}

void TTokenizer::ParseText() {
    FTokens.Clear();
    FInitialized = true;
    if (!FText.isEmpty()) InternalGetTokens();
}

void TTokenizer::CheckInitialized() {
    if (!FInitialized) ParseText();
}

// ---------------------------------------------------------------------------
// Keywords

std::span<const TSQLKeyword* const> KeywordCandidates(QStringView Word) {
    return KeywordIndex().Find(Word);
}

std::span<const TSQLKeyword> Keywords() {
    return KeywordIndex().All();
}

bool SameKeyword(QStringView Word, std::string_view Keyword) {
    if (Word.size() != static_cast<qsizetype>(Keyword.size())) return false;
    for (qsizetype i = 0; i < Word.size(); ++i) {
        char16_t c = Word[i].unicode();
        if (c >= u'a' && c <= u'z') c -= 32;
        char16_t k = static_cast<unsigned char>(Keyword[static_cast<size_t>(i)]);
        if (k >= u'a' && k <= u'z') k -= 32;
        if (c != k) return false;
    }
    return true;
}

// ---------------------------------------------------------------------------
// Splitters

void SplitSQL(const QString& Value, QStringList& List, bool StripSemicolon) {
    if (ContainsUpper(Value, "TRIGGER") && ContainsUpper(Value, "CREATE"))
        SafeParseSQL(Value, List, StripSemicolon);
    else
        FastParseSQL(Value, List, StripSemicolon);
}

void FastParseSQL(const QString& Value, QStringList& List, bool StripSemicolon) {
    const char16_t* s = reinterpret_cast<const char16_t*>(Value.utf16());
    const qsizetype n = Value.size();
    auto at = [s, n](qsizetype i) -> char16_t { return i < n ? s[i] : char16_t(0); };
    auto skipLine = [&](qsizetype i, bool tabEnds) {
        while (i < n && s[i] != 0 && s[i] != u'\n' && s[i] != u'\r' && !(tabEnds && s[i] == u'\t')) ++i;
        return i;
    };
    qsizetype start = 0;
    qsizetype i = 0;
    while (i < n) {
        const char16_t c = s[i];
        switch (c) {
            case u'\'':
            case u'"':
            case u'[': {
                const char16_t close = c == u'[' ? u']' : c;
                ++i;
                while (i < n && s[i] != close) ++i;
                ++i;
                break;
            }
            case u'-':
                i = at(i + 1) == u'-' ? skipLine(i + 2, false) : i + 1;
                break;
            case u'/':
                if (at(i + 1) == u'*') {
                    i += 2;
                    while (i < n && !(s[i] == u'*' && at(i + 1) == u'/')) ++i;
                    i += 2;
                } else if (at(i + 1) == u'/') {
                    i = skipLine(i + 2, true);
                } else {
                    ++i;
                }
                break;
            case u';':
                ++i;
                AddPiece(Value, start, i, true, StripSemicolon, List);
                start = i;
                break;
            default:
                ++i;
                break;
        }
    }
    if (start < n) AddPiece(Value, start, n, false, StripSemicolon, List);
}

namespace {

enum TParseSections { psUnknown, psCreateTrigger, psTriggerBody };

// The few words the safe splitter looks for.
enum class TWord : unsigned char { Other, Create, Temp, Trigger, Begin, Case, End, Semicolon };

TWord WordOf(TTokenType kind, QStringView v) {
    if (kind == ttSemicolon) return TWord::Semicolon;
    if (kind != ttUnknown) return TWord::Other;
    switch (v.size()) {
        case 3:
            return SameKeyword(v, "END") ? TWord::End : TWord::Other;
        case 4:
            if (SameKeyword(v, "CASE")) return TWord::Case;
            return SameKeyword(v, "TEMP") ? TWord::Temp : TWord::Other;
        case 5:
            return SameKeyword(v, "BEGIN") ? TWord::Begin : TWord::Other;
        case 6:
            return SameKeyword(v, "CREATE") ? TWord::Create : TWord::Other;
        case 7:
            return SameKeyword(v, "TRIGGER") ? TWord::Trigger : TWord::Other;
        case 9:
            return SameKeyword(v, "TEMPORARY") ? TWord::Temp : TWord::Other;
        default:
            return TWord::Other;
    }
}

}  // namespace

void SafeParseSQL(const QString& Value, QStringList& List, bool StripSemicolon) {
    const char16_t* s = reinterpret_cast<const char16_t*>(Value.utf16());
    qsizetype lastEnd = 0;       // end of the last statement added
    int index = 0;               // the token's place in its statement
    TWord back1 = TWord::Other;  // the two tokens before, within the statement
    TWord back2 = TWord::Other;
    TParseSections state = psUnknown;
    int caseLevel = 0;
    bool afterEnd = false;

    auto endStatement = [&](qsizetype end) {
        AddPiece(Value, lastEnd, end, true, StripSemicolon, List);
        lastEnd = end;
        index = 0;
        back1 = back2 = TWord::Other;
        // Each statement starts afresh, so that a plain statement behind a
        // trigger is split at its own semicolon.
        state = psUnknown;
        caseLevel = 0;
        afterEnd = false;
    };

    ScanText(s, Value.size(), [&](TTokenType kind, bool, qsizetype start, qsizetype size) {
        const TWord w = WordOf(kind, QStringView(s + start, size));
        if (w == TWord::Trigger && index <= 2 &&
            ((index >= 1 && back1 == TWord::Create) ||
             (index >= 2 && back1 == TWord::Temp && back2 == TWord::Create)))
            state = psCreateTrigger;
        switch (state) {
            case psUnknown:
                if (w == TWord::Semicolon) return endStatement(start + size);
                break;
            case psCreateTrigger:
                if (w == TWord::Begin) state = psTriggerBody;
                break;
            case psTriggerBody:
                if (afterEnd) {
                    // The END of a CASE is not the END of the body.
                    if (w == TWord::Semicolon && caseLevel == 0) return endStatement(start + size);
                    if (caseLevel > 0) --caseLevel;
                }
                if (w == TWord::Case) ++caseLevel;
                afterEnd = w == TWord::End;
                break;
        }
        back2 = back1;
        back1 = w;
        ++index;
    });
    if (lastEnd < Value.size()) AddPiece(Value, lastEnd, Value.size(), false, StripSemicolon, List);
}

// ---------------------------------------------------------------------------
// Ending a statement

QString EndStatement(const QString& SQL) {
    enum { Code, LineComment, BlockComment, Quoted } state = Code;
    char16_t close = 0;
    bool ended = false;  // the last token is a ";"
    const qsizetype n = SQL.size();
    for (qsizetype i = 0; i < n; ++i) {
        const char16_t c = SQL[i].unicode();
        const char16_t next = i + 1 < n ? SQL[i + 1].unicode() : 0;
        switch (state) {
            case Code:
                if (c == u'-' && next == u'-') {
                    state = LineComment;
                    ++i;
                } else if (c == u'/' && next == u'*') {
                    state = BlockComment;
                    ++i;
                } else if (c == u'\'' || c == u'"' || c == u'`' || c == u'[') {
                    state = Quoted;
                    close = c == u'[' ? u']' : c;
                    ended = false;
                } else if (c == u';') {
                    ended = true;
                } else if (c != u' ' && c != u'\t' && c != u'\n' && c != u'\r' && c != u'\f') {
                    ended = false;
                }
                break;
            case LineComment:
                if (c == u'\n') state = Code;
                break;
            case BlockComment:
                if (c == u'*' && next == u'/') {
                    state = Code;
                    ++i;
                }
                break;
            case Quoted:
                if (c != close) break;
                if (close != u']' && next == close)
                    ++i;  // a doubled quote stands for itself
                else
                    state = Code;
                break;
        }
    }
    if (ended) return SQL;
    switch (state) {
        case LineComment:
            return SQL + QStringLiteral("\r\n;");
        case BlockComment:
            return SQL + QStringLiteral("*/;");
        case Quoted:
            return SQL + QChar(close) + u';';
        default:
            return SQL + u';';
    }
}

}  // namespace brindle
