// The tolerant SQL scanner: any text becomes a flat list of tokens that
// remember where they stood, so that later stages can cut verbatim pieces out
// of the source. It never fails: whatever the text, a token list comes back.
//
// Also here: the keyword classification table that the parser (in the schema
// layer) applies to the tokens, and the statement splitters behind ParseSQL.
#pragma once

#include "SQLText.h"

#include <QString>
#include <QStringList>
#include <QStringView>
#include <memory>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace brindle {

// The raw kind of a token, as the characters give it.
enum TTokenType {
    ttUnknown,  // a bare word, or a quoted name when FIsIdent is set
    ttPredicate,
    ttNumber,
    ttComma,
    ttDot,
    ttOpenParen,
    ttCloseParen,
    ttSemicolon,
    ttParam,
    ttLiteral,  // a string literal, always quoted
};

class TToken {
public:
    virtual ~TToken() = default;

    // 0-based bounds in the text, for cutting.
    int StartIndex() const { return FStartPos - 1; }
    int EndIndex() const { return FStartPos - 1 + FSize; }

    TTokenType FTokenType = ttUnknown;
    bool FIsIdent = false;  // the token was quoted
    QString FValue;         // the characters as they stand, quotes included
    int FStartPos = 0;      // one-based character index in the text
    int FSize = 0;          // length in characters
};

class TSQLToken : public TToken {
public:
    TSQLTokenType FSQLToken = stUnknown;  // the classification or role
    TSQLTokenType FSection = stUnknown;   // the clause the token stands in
};

// An owning list of tokens.
class TTokenList {
public:
    int Count() const { return static_cast<int>(FItems.size()); }
    TToken* Items(int Index) const { return FItems[static_cast<size_t>(Index)].get(); }
    void Add(std::unique_ptr<TToken> Token) { FItems.push_back(std::move(Token)); }
    void Delete(int Index) { FItems.erase(FItems.begin() + Index); }
    void Clear() { FItems.clear(); }

    // Bulk rework of the whole list (the classification pass merges tokens
    // without paying a shift per merge).
    std::vector<std::unique_ptr<TToken>> Take() { return std::exchange(FItems, {}); }
    void Assign(std::vector<std::unique_ptr<TToken>> Items) { FItems = std::move(Items); }

private:
    std::vector<std::unique_ptr<TToken>> FItems;
};

// Scans lazily: the tokens are made on the first question after the text
// changed. Not thread-safe; one tokenizer belongs to one thread at a time.
class TTokenizer {
public:
    TTokenizer() = default;
    virtual ~TTokenizer() = default;
    TTokenizer(const TTokenizer&) = delete;
    TTokenizer& operator=(const TTokenizer&) = delete;

    const QString& Text() const { return FText; }
    void SetText(const QString& Value);
    TToken* GetTokens(int Index);
    int GetTokenCount();
    void Delete(int Index);
    // Whether the tokens of the text exist now; Release drops them, to be
    // made again on the next question.
    bool Scanned() const { return FInitialized; }
    void Release() { UnInitialize(); }

protected:
    virtual void InternalGetTokens();
    virtual std::unique_ptr<TToken> CreateToken();
    virtual void UnInitialize();
    void ParseText();
    void CheckInitialized();

    QString FText;
    bool FInitialized = false;
    TTokenList FTokens;
};

// Whether the engine takes a keyword for a name where its grammar expects
// one (its fallback of keywords to identifiers): never; anywhere; anywhere
// but as an alias without AS (join words and operators, which would go on
// with the clause); anywhere but in an expression (words that begin one:
// CAST, RAISE, CURRENT_TIME ...). A word the engine does not know as a
// keyword at all (COUNT, TOTAL) is a name anywhere. Phrases are never names.
enum TKeywordAsName : unsigned char { kaReserved, kaName, kaNotAlias, kaNotInExpression };

// One row of the keyword classification: a word or a phrase of up to three
// words, the type its tokens get, and whether it may stand as a name.
struct TSQLKeyword {
    std::string_view Words[3];
    int WordCount;
    TSQLTokenType Type;
    TKeywordAsName AsName;
};

// The rows whose first word equals Word (ignoring ASCII case), in the order
// they are tried; the first that matches wins. Empty for any other word.
std::span<const TSQLKeyword* const> KeywordCandidates(QStringView Word);
// Every row, operators included, in the order they are tried.
std::span<const TSQLKeyword> Keywords();
// Word equals Keyword ignoring ASCII case; nothing else folds.
bool SameKeyword(QStringView Word, std::string_view Keyword);

// The statement splitters. Pieces keep their surrounding white space and
// comments; together they are the whole text (before semicolons are stripped),
// and empty pieces are not added. ParseSQL (SQLText.h) is SplitSQL.
void SplitSQL(const QString& Value, QStringList& List, bool StripSemicolon);
// Quotes and comments only: right for any script without a trigger.
void FastParseSQL(const QString& Value, QStringList& List, bool StripSemicolon);
// Token-based: keeps a trigger body with its inner statements and CASE ... END
// in one piece.
void SafeParseSQL(const QString& Value, QStringList& List, bool StripSemicolon);

// SQL with a ";" behind it that ends it for the engine, to be followed by
// more statements: on a line of its own when SQL ends inside a "--" comment,
// behind a "*/" when it ends inside a block comment left open, and nothing
// added when a ";" ends it already. The engine's own lexical rules decide
// (backquotes quote, "//" is no comment), not the tolerant scanner's.
QString EndStatement(const QString& SQL);

}  // namespace brindle
