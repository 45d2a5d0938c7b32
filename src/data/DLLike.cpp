#include "DLLike.h"

namespace brindle {

namespace {

char16_t FoldAscii(QChar c) {
    const char16_t u = c.unicode();
    return u >= u'a' && u <= u'z' ? static_cast<char16_t>(u - (u'a' - u'A')) : u;
}

}  // namespace

// The plain reading of a '%' is "try every rest of the text in turn, shortest
// skip first", which takes exponential time on patterns such as "%a%a%a%...b".
// Only the last '%' seen ever needs to be retried: whatever an earlier one
// could absorb, the later one can absorb as well. So the walk remembers that
// one '%' and, on a mismatch, lets it take one more character and starts
// over behind it. Same answers, at most text length times pattern length
// steps.
bool Like(const QChar* Str, qsizetype StrLength, const QChar* Pattern, qsizetype PatternLength, QChar Percent,
          QChar Underline, QChar Escape) {
    const bool hasEscape = !Escape.isNull();
    qsizetype s = 0, p = 0;
    qsizetype retryPattern = -1;  // just behind the last '%'
    qsizetype retryText = 0;      // where the text stood when that '%' began absorbing
    while (s < StrLength) {
        if (p < PatternLength) {
            QChar c = Pattern[p];
            qsizetype width = 1;
            bool literal = false;
            if (hasEscape && c == Escape && p + 1 < PatternLength) {
                c = Pattern[p + 1];
                width = 2;
                literal = true;
            }
            if (!literal && c == Percent) {
                p += width;
                if (p == PatternLength) return true;  // a final '%' takes all that is left
                retryPattern = p;
                retryText = s;
                continue;
            }
            if ((!literal && c == Underline) || FoldAscii(c) == FoldAscii(Str[s])) {
                ++s;
                p += width;
                continue;
            }
        }
        if (retryPattern < 0) return false;
        p = retryPattern;
        s = ++retryText;
    }
    // The text has ended: only '%' may be left of the pattern.
    while (p < PatternLength && Pattern[p] == Percent &&
           !(hasEscape && Pattern[p] == Escape && p + 1 < PatternLength))
        ++p;
    return p == PatternLength;
}

bool LikeStr(const QString& Str, const QString& Pattern, QChar Percent, QChar Underline) {
    QString pattern = Pattern;
    pattern.replace(QStringLiteral("''"), QStringLiteral("'"));
    return Like(Str.constData(), Str.size(), pattern.constData(), pattern.size(), Percent, Underline);
}

}  // namespace brindle
