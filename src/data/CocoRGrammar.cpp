#include "CocoRGrammar.h"

#include <QStringList>
#include <cstring>

namespace brindle {

// ---------------------------------------------------------------------------
// TCocoRScanner

void TCocoRScanner::SetSource(const QString& Text) {
    FSourceStream = QByteArray(reinterpret_cast<const char*>(Text.utf16()), Text.size() * 2);
    Reset();
}

void TCocoRScanner::Reset() {
    FBufferPosition = 0;
    FCurrLine = 1;
    FCurrCol = 1;
    FCurrInputCh = CharAt(0);
    FCurrentSymbol = FNextSymbol = FLastSymbol = TSymbolPosition();
}

int TCocoRScanner::Get() {
    FLastSymbol = FCurrentSymbol;
    FCurrentSymbol = FNextSymbol;
    return ReadSymbol();
}

QString TCocoRScanner::GetSymbolText(const TSymbolPosition& Symbol) const {
    QString text;
    text.reserve(Symbol.Len);
    for (int i = 0; i < Symbol.Len; ++i) text += QChar(CharAt(Symbol.Pos + i));
    return text;
}

char16_t TCocoRScanner::CharAt(int Pos) const {
    if (Pos < 0 || Pos >= SourceLength()) return EndOfInput;
    char16_t c;
    std::memcpy(&c, FSourceStream.constData() + static_cast<qsizetype>(Pos) * 2, sizeof c);
    return c;
}

void TCocoRScanner::NextCh() {
    if (FBufferPosition >= SourceLength()) return;  // stays at the end
    if (FCurrInputCh == u'\n') {
        ++FCurrLine;
        FCurrCol = 1;
    } else {
        ++FCurrCol;
    }
    FCurrInputCh = CharAt(++FBufferPosition);
}

void TCocoRScanner::StartSymbol() {
    FNextSymbol.Pos = FBufferPosition;
    FNextSymbol.Line = FCurrLine;
    FNextSymbol.Col = FCurrCol;
    FNextSymbol.Len = 0;
}

void TCocoRScanner::EndSymbol() {
    FNextSymbol.Len = FBufferPosition - FNextSymbol.Pos;
}

// ---------------------------------------------------------------------------
// TCocoRGrammar

TCocoRGrammar::TCocoRGrammar(std::unique_ptr<TCocoRScanner> Scanner) : FScanner(std::move(Scanner)) {}

void TCocoRGrammar::Execute() {
    if (FOnBeforeParse) FOnBeforeParse();
    ClearErrors();
    FScanner->Reset();
    FErrDist = minErrDist;
    Get();
    Parse();
    if (FOnAfterParse) FOnAfterParse();
}

void TCocoRGrammar::Get() {
    FCurrentInputSymbol = FScanner->Get();
    ++FErrDist;
}

void TCocoRGrammar::Expect(int Symbol) {
    if (FCurrentInputSymbol == Symbol)
        Get();
    else
        SynError(Symbol);
}

void TCocoRGrammar::SynError(int ErrorCode) {
    StoreError(ErrorCode, etSyntax);
}

void TCocoRGrammar::SemError(int ErrorCode) {
    StoreError(ErrorCode, etSymantic);
}

void TCocoRGrammar::StoreError(int ErrorCode, TCocoErrorType ErrorType) {
    if (FErrDist >= minErrDist) {
        const TSymbolPosition& at = FScanner->NextSymbol();
        FErrorList.push_back({ErrorCode, at.Col, at.Line, FScanner->GetSymbolText(at), ErrorType});
    }
    FErrDist = 0;
}

namespace {

constexpr int BookmarkFields = 17;

void AppendSymbol(QStringList& parts, const TSymbolPosition& s) {
    for (int v : {s.Line, s.Col, s.Len, s.Pos}) parts << QString::number(v);
}

TSymbolPosition TakeSymbol(const std::vector<int>& v, size_t& k) {
    TSymbolPosition s;
    s.Line = v[k++];
    s.Col = v[k++];
    s.Len = v[k++];
    s.Pos = v[k++];
    return s;
}

}  // namespace

QString TCocoRGrammar::Bookmark() const {
    const TCocoRScanner& s = *FScanner;
    QStringList parts;
    for (int v : {s.FBufferPosition, s.FCurrLine, s.FCurrCol, FCurrentInputSymbol, FErrDist})
        parts << QString::number(v);
    AppendSymbol(parts, s.FCurrentSymbol);
    AppendSymbol(parts, s.FNextSymbol);
    AppendSymbol(parts, s.FLastSymbol);
    return parts.join(QLatin1Char(' '));
}

void TCocoRGrammar::GotoBookmark(const QString& Value) {
    const QStringList parts = Value.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    const QString message = QStringLiteral("Invalid bookmark");
    if (parts.size() != BookmarkFields) throw ECocoBookmark(message, QStringLiteral("Bookmark"), Value);
    std::vector<int> v;
    for (const QString& part : parts) {
        bool ok = false;
        v.push_back(part.toInt(&ok));
        if (!ok) throw ECocoBookmark(message, QStringLiteral("Bookmark"), Value);
    }
    TCocoRScanner& s = *FScanner;
    if (v[0] < 0 || v[0] > s.SourceLength()) throw ECocoBookmark(message, QStringLiteral("Bookmark"), Value);
    s.FBufferPosition = v[0];
    s.FCurrInputCh = s.CharAt(v[0]);
    s.FCurrLine = v[1];
    s.FCurrCol = v[2];
    FCurrentInputSymbol = v[3];
    FErrDist = v[4];
    size_t k = 5;
    s.FCurrentSymbol = TakeSymbol(v, k);
    s.FNextSymbol = TakeSymbol(v, k);
    s.FLastSymbol = TakeSymbol(v, k);
}

}  // namespace brindle
