// The small runtime that hand-generated recursive-descent grammars rest on
// (the dataset filter language): a scanner over UTF-16 text in memory, and a
// grammar base with an error list, suppression of follow-up errors, and
// bookmarks. Independent of the rest of this layer and of the SQL scanner
// above it.
#pragma once

#include "engine/Exceptions.h"

#include <QByteArray>
#include <QString>
#include <array>
#include <functional>
#include <memory>
#include <vector>

namespace brindle {

struct TSymbolPosition {
    int Line = 1;  // 1-based
    int Col = 1;   // 1-based
    int Len = 0;   // in characters
    int Pos = 0;   // 0-based character index in the source
};

class TCocoRScanner {
public:
    // What reading beyond the end gives.
    static constexpr char16_t EndOfInput = 26;

    TCocoRScanner() = default;
    virtual ~TCocoRScanner() = default;

    // The source stream: UTF-16 characters in native byte order.
    QByteArray& SourceStream() { return FSourceStream; }
    void SetSource(const QString& Text);
    // Back to the first character, with no symbol read.
    void Reset();
    // Reads the next symbol and returns its number. The symbol read before
    // becomes CurrentSymbol, the one before that LastSymbol.
    int Get();
    QString GetSymbolText(const TSymbolPosition& Symbol) const;
    // The character at Pos; EndOfInput beyond the end.
    char16_t CharAt(int Pos) const;
    int SourceLength() const { return static_cast<int>(FSourceStream.size() / 2); }

    const TSymbolPosition& CurrentSymbol() const { return FCurrentSymbol; }
    const TSymbolPosition& NextSymbol() const { return FNextSymbol; }
    const TSymbolPosition& LastSymbol() const { return FLastSymbol; }

protected:
    // Reads one symbol from FCurrInputCh on into FNextSymbol; its number.
    virtual int ReadSymbol() = 0;
    // One character on, counting lines and columns.
    void NextCh();
    // FNextSymbol begins at the current character; ends before it.
    void StartSymbol();
    void EndSymbol();
    int StartState(char16_t Ch) const { return Ch < FStartState.size() ? FStartState[Ch] : FStartStateOther; }

    // The state a symbol starting with a character begins in; characters from
    // 256 up share one entry.
    std::array<int, 256> FStartState{};
    int FStartStateOther = 0;
    char16_t FCurrInputCh = EndOfInput;
    int FBufferPosition = 0;
    int FCurrLine = 1;
    int FCurrCol = 1;
    TSymbolPosition FCurrentSymbol;
    TSymbolPosition FNextSymbol;
    TSymbolPosition FLastSymbol;

private:
    friend class TCocoRGrammar;  // bookmarks save and restore the state
    QByteArray FSourceStream;
};

enum TCocoErrorType { etSyntax, etSymantic };

struct TCocoError {
    int FErrorCode = 0;
    int FCol = 0;
    int FLine = 0;
    QString FData;  // the text of the symbol where the error stood
    TCocoErrorType FErrorType = etSyntax;
};

class ECocoBookmark : public ECustomException {
public:
    using ECustomException::ECustomException;
};

class TCocoRGrammar {
public:
    // Errors closer together than this many symbols are follow-ups of the first.
    static constexpr int minErrDist = 2;

    explicit TCocoRGrammar(std::unique_ptr<TCocoRScanner> Scanner);
    virtual ~TCocoRGrammar() = default;
    TCocoRGrammar(const TCocoRGrammar&) = delete;
    TCocoRGrammar& operator=(const TCocoRGrammar&) = delete;

    // Clears the errors, reads the first symbol and parses, between the hooks.
    void Execute();
    bool GetSuccessful() const { return FErrorList.empty(); }
    const std::vector<TCocoError>& ErrorList() const { return FErrorList; }
    void ClearErrors() { FErrorList.clear(); }
    TCocoRScanner& Scanner() { return *FScanner; }

    // The reading position as text, and back to it. A malformed text raises
    // ECocoBookmark.
    QString Bookmark() const;
    void GotoBookmark(const QString& Value);

    std::function<void()> FOnBeforeParse;
    std::function<void()> FOnAfterParse;

protected:
    virtual void Parse() = 0;
    // The next symbol becomes the lookahead.
    void Get();
    // The lookahead must be Symbol: consumed, or a syntax error.
    void Expect(int Symbol);
    void SynError(int ErrorCode);
    void SemError(int ErrorCode);

    int FCurrentInputSymbol = 0;  // the lookahead
    int FErrDist = minErrDist;    // symbols read since the last error

private:
    void StoreError(int ErrorCode, TCocoErrorType ErrorType);

    std::unique_ptr<TCocoRScanner> FScanner;
    std::vector<TCocoError> FErrorList;
};

}  // namespace brindle
