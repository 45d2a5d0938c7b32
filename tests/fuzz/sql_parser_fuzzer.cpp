// Any input through the scanner, the labeller and the splitters. The input is
// UTF-8 text, or, behind a first byte 0x01, raw UTF-16 units, so that NUL
// characters and lone surrogates reach the scanner as they are.
#include "../schema/ExerciseParser.h"

#include <cstdint>
#include <cstring>

using namespace brindle;

namespace {

void Check(bool condition) {
    if (!condition) __builtin_trap();
}

QString Decode(const uint8_t* data, size_t size) {
    if (size > 0 && data[0] == 1) {
        QString text(static_cast<qsizetype>((size - 1) / 2), Qt::Uninitialized);
        std::memcpy(text.data(), data + 1, static_cast<size_t>(text.size()) * 2);
        return text;
    }
    return QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString text = Decode(data, size);

    TSQLParser p;
    p.SetText(text);
    const int n = p.GetTokenCount();
    int end = 0;
    for (int i = 0; i < n; ++i) {
        const TSQLToken* t = p.SQLTokens(i);
        Check(t->StartIndex() >= end && t->FSize > 0 && t->EndIndex() <= text.size());
        end = t->EndIndex();
        if (t->FTokenType == ttOpenParen) {
            const int close = p.ClosingParen(i);
            Check(close == -1 || (close > i && p.GetTokens(close)->FTokenType == ttCloseParen));
        }
    }
    brindle::test::AskEveryQuestion(p);
    p.ReplaceTriggerName(QStringLiteral("x"));

    for (auto split : {SplitSQL, FastParseSQL, SafeParseSQL}) {
        QStringList pieces;
        split(text, pieces, false);
        Check(pieces.join(QString()) == text);
        for (const QString& piece : pieces) Check(!piece.isEmpty());
        pieces.clear();
        split(text, pieces, true);
        for (const QString& piece : pieces) Check(!piece.isEmpty());
    }
    return 0;
}
