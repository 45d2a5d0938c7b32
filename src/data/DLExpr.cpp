#include "DLExpr.h"

#include "data/DLLike.h"
#include "engine/DLDateTime.h"

#include <QDateTime>
#include <cmath>
#include <limits>

namespace brindle {

namespace {

// ---------------------------------------------------------------------------
// Scanning

enum TStartState {
    ssNotExpected,
    ssBlank,
    ssEnd,
    ssIdent,
    ssNumber,
    ssString,
    ssBracketName,
    ssQuotedName,
    ssEqual,
    ssGreater,
    ssLess,
    ssPlus,
    ssMinus,
    ssStar,
    ssSlash,
    ssOpenParen,
    ssCloseParen,
};

int SingleCharSymbol(int state) {
    switch (state) {
        case ssEqual:
            return exprEqual;
        case ssPlus:
            return exprPlus;
        case ssMinus:
            return exprMinus;
        case ssStar:
            return exprStar;
        case ssSlash:
            return exprSlash;
        case ssOpenParen:
            return exprOpenParen;
        case ssCloseParen:
            return exprCloseParen;
        default:
            return exprNotExpected;
    }
}

bool IsDigit(char16_t c) {
    return c >= u'0' && c <= u'9';
}

// A word begins with a character from "@" to "{" other than "[" (which opens
// a bracketed name), or from "}" up.
bool IsIdentStart(char16_t c) {
    return (c >= u'@' && c <= u'{' && c != u'[') || c >= u'}';
}

bool IsIdentPart(char16_t c) {
    return (c >= u'@' && c <= u'{') || c >= u'}' || IsDigit(c) || c == u'!' || c == u'#' || c == u'$';
}

// The one keyword table; words match without regard to ASCII case.
struct TKeyword {
    QLatin1String Word;
    int Symbol;
};
constexpr TKeyword Keywords[] = {
    {QLatin1String("AND"), exprAnd},   {QLatin1String("FALSE"), exprFalse}, {QLatin1String("IS"), exprIs},
    {QLatin1String("LIKE"), exprLike}, {QLatin1String("NOT"), exprNot},     {QLatin1String("NULL"), exprNull},
    {QLatin1String("OR"), exprOr},     {QLatin1String("TRUE"), exprTrue},
};

bool SameAsciiText(const QString& text, QLatin1String word) {
    if (text.size() != word.size()) return false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        char16_t c = text[i].unicode();
        if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - (u'a' - u'A'));
        if (c != static_cast<unsigned char>(word[i].toLatin1())) return false;
    }
    return true;
}

int KeywordOrIdent(const QString& text) {
    for (const TKeyword& k : Keywords)
        if (SameAsciiText(text, k.Word)) return k.Symbol;
    return exprIdent;
}

// ---------------------------------------------------------------------------
// Values: Null, bool, qint64, double, QString, QDateTime (UTC, wall clock)

enum TKind { kNull, kBool, kInt, kFloat, kString, kDate };

TKind KindOf(const QVariant& v) {
    switch (v.typeId()) {
        case QMetaType::Bool:
            return kBool;
        case QMetaType::LongLong:
            return kInt;
        case QMetaType::Double:
            return kFloat;
        case QMetaType::QString:
            return kString;
        case QMetaType::QDateTime:
            return kDate;
        default:
            return kNull;
    }
}

constexpr qint64 MSecsPerDay = 86400000;

QVariant MakeDate(const QDate& date, const QTime& time) {
    return QDateTime(date, time, Qt::UTC);
}

// An identifier's value in one of the kinds above; false when it has none.
bool Canonical(const QVariant& v, QVariant& result) {
    result = QVariant();
    if (!v.isValid() || v.isNull()) return true;
    switch (v.typeId()) {
        case QMetaType::Bool:
            result = v.toBool();
            return true;
        case QMetaType::Int:
        case QMetaType::UInt:
        case QMetaType::Long:
        case QMetaType::LongLong:
        case QMetaType::Short:
        case QMetaType::UShort:
        case QMetaType::Char:
        case QMetaType::SChar:
        case QMetaType::UChar:
            result = v.toLongLong();
            return true;
        case QMetaType::ULong:
        case QMetaType::ULongLong: {
            const qulonglong u = v.toULongLong();
            if (u <= static_cast<qulonglong>(std::numeric_limits<qint64>::max()))
                result = static_cast<qint64>(u);
            else
                result = static_cast<double>(u);
            return true;
        }
        case QMetaType::Double:
        case QMetaType::Float:
            result = v.toDouble();
            return true;
        case QMetaType::QString:
            result = v.toString();
            return true;
        case QMetaType::QByteArray:
            result = QString::fromUtf8(v.toByteArray());
            return true;
        case QMetaType::QDate:
            if (v.toDate().isValid()) result = MakeDate(v.toDate(), QTime(0, 0));
            return true;
        case QMetaType::QTime:
            if (v.toTime().isValid()) result = MakeDate(QDate(1899, 12, 30), v.toTime());
            return true;
        case QMetaType::QDateTime: {
            const QDateTime d = v.toDateTime();
            if (d.isValid()) result = MakeDate(d.date(), d.time());
            return true;
        }
        default:
            if (!v.canConvert<QString>()) return false;
            result = v.toString();
            return true;
    }
}

// The program's day count of a date; false beyond years 1 to 9999.
bool ToDays(const QVariant& date, double& result) {
    const QDateTime d = date.toDateTime();
    const QTime t = d.time();
    return TryEncodeDateTime(d.date().year(), d.date().month(), d.date().day(), t.hour(), t.minute(),
                             t.second(), t.msec(), result);
}

bool ReadNumber(const QString& text, QVariant& result) {
    const QString t = text.trimmed();
    bool ok = false;
    const qint64 i = t.toLongLong(&ok);
    if (ok) {
        result = i;
        return true;
    }
    const double d = t.toDouble(&ok);
    if (!ok || !std::isfinite(d)) return false;
    result = d;
    return true;
}

bool ReadBool(const QString& text, bool& result) {
    const QString t = text.trimmed();
    if (t.compare(QLatin1String("true"), Qt::CaseInsensitive) == 0) {
        result = true;
    } else if (t.compare(QLatin1String("false"), Qt::CaseInsensitive) == 0) {
        result = false;
    } else {
        return false;
    }
    return true;
}

// A number (qint64 or double) for arithmetic: booleans count -1 and 0.
bool ToNumber(const QVariant& v, QVariant& result) {
    switch (KindOf(v)) {
        case kInt:
        case kFloat:
            result = v;
            return true;
        case kBool:
            result = qint64(v.toBool() ? -1 : 0);
            return true;
        case kString:
            return ReadNumber(v.toString(), result);
        default:
            return false;
    }
}

// A bool or a qint64 for AND, OR and NOT.
bool ToLogical(const QVariant& v, QVariant& result) {
    switch (KindOf(v)) {
        case kBool:
        case kInt:
            result = v;
            return true;
        case kString: {
            bool b = false;
            if (ReadBool(v.toString(), b)) {
                result = b;
                return true;
            }
            return ReadNumber(v.toString(), result) && KindOf(result) == kInt;
        }
        default:
            return false;
    }
}

qint64 AsInteger(const QVariant& v) {
    return KindOf(v) == kBool ? (v.toBool() ? -1 : 0) : v.toLongLong();
}

QString ToText(const QVariant& v) {
    switch (KindOf(v)) {
        case kBool:
            return v.toBool() ? QStringLiteral("True") : QStringLiteral("False");
        case kInt:
            return QString::number(v.toLongLong());
        case kFloat:
            return QString::number(v.toDouble(), 'g', 15);
        case kDate: {
            double days = 0;
            return ToDays(v, days) ? DateTimeToString(days) : v.toDateTime().toString(Qt::ISODateWithMs);
        }
        default:
            return v.toString();
    }
}

// ---------------------------------------------------------------------------
// Date formats

QString QuotedLiteral(QString text) {
    return u'\'' + text.replace(u'\'', QLatin1String("''")) + u'\'';
}

// A date format in the notation of SetDateFormat() as a format of
// QDateTime::fromString(). Repeated letters collapse where Qt's single letter
// reads numbers with or without leading zeros.
QString ToQtDateFormat(const QString& format, QChar separator, bool& hasTime) {
    QString out;
    hasTime = false;
    bool afterHour = false;  // "m" after "h" means minutes
    qsizetype i = 0;
    while (i < format.size()) {
        const QChar c = format[i];
        if (c == u'"' || c == u'\'') {
            qsizetype close = format.indexOf(c, i + 1);
            if (close < 0) close = format.size();
            out += QuotedLiteral(format.mid(i + 1, close - i - 1));
            i = close + 1;
            continue;
        }
        if (c == u'/') {
            out += QuotedLiteral(separator);
            ++i;
            continue;
        }
        if (QStringView(format).mid(i, 5).compare(QLatin1String("am/pm"), Qt::CaseInsensitive) == 0) {
            out += QLatin1String("AP");
            hasTime = true;
            i += 5;
            continue;
        }
        const QChar letter = c.toLower();
        qsizetype run = 1;
        while (i + run < format.size() && format[i + run].toLower() == letter) ++run;
        switch (letter.unicode()) {
            case u'd':
                out += run <= 2   ? QLatin1String("d")
                       : run == 3 ? QLatin1String("ddd")
                                  : QLatin1String("dddd");
                break;
            case u'm':
                if (afterHour) {
                    out += u'm';
                    hasTime = true;
                } else {
                    out += run <= 2   ? QLatin1String("M")
                           : run == 3 ? QLatin1String("MMM")
                                      : QLatin1String("MMMM");
                }
                break;
            case u'n':
                out += u'm';
                hasTime = true;
                break;
            case u'y':
                out += run <= 2 ? QLatin1String("yy") : QLatin1String("yyyy");
                break;
            case u'h':
            case u's':
            case u'z':
                out += letter;
                hasTime = true;
                break;
            default:
                out += QuotedLiteral(format.mid(i, run));
                break;
        }
        if (letter.isLetter()) afterHour = letter == u'h';
        i += run;
    }
    return out;
}

// The formats to try for a date format: itself, and when it has no time,
// with a time behind it.
QStringList QtDateFormats(const QString& format, QChar separator) {
    bool hasTime = false;
    const QString f = ToQtDateFormat(format, separator, hasTime);
    if (hasTime) return {f};
    return {f, f + QLatin1String(" h:m"), f + QLatin1String(" h:m:s"), f + QLatin1String(" h:m:s.z")};
}

const QStringList& StoredDateFormats() {
    static const QStringList formats = QtDateFormats(QStringLiteral("yyyy/mm/dd"), u'-');
    return formats;
}

bool ReadDate(const QString& text, const QStringList& formats, QVariant& result) {
    const QString t = text.trimmed();
    for (const QString& f : formats) {
        QDateTime d = QDateTime::fromString(t, f);
        if (!d.isValid()) continue;
        // Qt reads two digits as 19xx; a window around now suits typed dates better.
        if (f.contains(QLatin1String("yy")) && !f.contains(QLatin1String("yyyy")) && d.date().year() < 1950)
            d = d.addYears(100);
        result = MakeDate(d.date(), d.time());
        return true;
    }
    return false;
}

constexpr int MaxDepth = 200;  // far beyond any filter; keeps the stack safe from hostile text

bool IsFactorStart(int symbol) {
    switch (symbol) {
        case exprIdent:
        case exprInt:
        case exprFloat:
        case exprString:
        case exprNull:
        case exprTrue:
        case exprFalse:
        case exprOpenParen:
            return true;
        default:
            return false;
    }
}

bool IsComparison(int symbol) {
    return symbol >= exprEqual && symbol <= exprLessEqual;
}

}  // namespace

// ---------------------------------------------------------------------------
// TDLExprScanner

TDLExprScanner::TDLExprScanner() {
    for (size_t c = 0; c < FStartState.size(); ++c) {
        const auto ch = static_cast<char16_t>(c);
        FStartState[c] = IsIdentStart(ch) ? ssIdent : IsDigit(ch) ? ssNumber : ssNotExpected;
    }
    FStartStateOther = ssIdent;
    for (char16_t c : {u' ', u'\t', u'\r', u'\n'}) FStartState[c] = ssBlank;
    FStartState[EndOfInput] = ssEnd;
    FStartState[u'\''] = ssString;
    FStartState[u'['] = ssBracketName;
    FStartState[u'"'] = ssQuotedName;
    FStartState[u'='] = ssEqual;
    FStartState[u'>'] = ssGreater;
    FStartState[u'<'] = ssLess;
    FStartState[u'+'] = ssPlus;
    FStartState[u'-'] = ssMinus;
    FStartState[u'*'] = ssStar;
    FStartState[u'/'] = ssSlash;
    FStartState[u'('] = ssOpenParen;
    FStartState[u')'] = ssCloseParen;
}

int TDLExprScanner::ReadSymbol() {
    while (StartState(FCurrInputCh) == ssBlank) NextCh();
    StartSymbol();
    int symbol = exprNotExpected;
    switch (StartState(FCurrInputCh)) {
        case ssEnd:
            symbol = exprEOF;  // stays put: reading on gives the end again
            break;
        case ssIdent:
            do NextCh();
            while (IsIdentPart(FCurrInputCh));
            EndSymbol();
            return KeywordOrIdent(GetSymbolText(FNextSymbol));
        case ssNumber:
            return ReadNumber();
        case ssString:
            symbol = ReadQuoted(u'\'', true) ? exprString : exprNotExpected;
            break;
        case ssBracketName:
            symbol = ReadQuoted(u']', false) ? exprIdent : exprNotExpected;
            break;
        case ssQuotedName:
            symbol = ReadQuoted(u'"', false) ? exprIdent : exprNotExpected;
            break;
        case ssGreater:
            NextCh();
            symbol = exprGreater;
            if (FCurrInputCh == u'=') {
                NextCh();
                symbol = exprGreaterEqual;
            }
            break;
        case ssLess:
            NextCh();
            symbol = exprLess;
            if (FCurrInputCh == u'>') {
                NextCh();
                symbol = exprNotEqual;
            } else if (FCurrInputCh == u'=') {
                NextCh();
                symbol = exprLessEqual;
            }
            break;
        case ssEqual:
        case ssPlus:
        case ssMinus:
        case ssStar:
        case ssSlash:
        case ssOpenParen:
        case ssCloseParen:
            symbol = SingleCharSymbol(StartState(FCurrInputCh));
            NextCh();
            break;
        default:  // one character that has no place in the language
            NextCh();
            break;
    }
    EndSymbol();
    return symbol;
}

// Digits, then an optional "." and digits, then an optional exponent; an "e"
// not followed by digits is left for the next symbol.
int TDLExprScanner::ReadNumber() {
    bool isFloat = false;
    while (IsDigit(FCurrInputCh)) NextCh();
    if (FCurrInputCh == u'.') {
        isFloat = true;
        NextCh();
        while (IsDigit(FCurrInputCh)) NextCh();
    }
    if (FCurrInputCh == u'e' || FCurrInputCh == u'E') {
        int digitAt = FBufferPosition + 1;
        const char16_t sign = CharAt(digitAt);
        if (sign == u'+' || sign == u'-') ++digitAt;
        if (IsDigit(CharAt(digitAt))) {
            isFloat = true;
            while (FBufferPosition < digitAt) NextCh();
            while (IsDigit(FCurrInputCh)) NextCh();
        }
    }
    EndSymbol();
    return isFloat ? exprFloat : exprInt;
}

bool TDLExprScanner::ReadQuoted(char16_t Close, bool Doubling) {
    NextCh();
    for (;;) {
        if (FCurrInputCh == EndOfInput) return false;
        if (FCurrInputCh == Close) {
            NextCh();
            if (!Doubling || FCurrInputCh != Close) return true;
        }
        NextCh();
    }
}

// ---------------------------------------------------------------------------
// TDLExpr

TDLExpr::TDLExpr() : TCocoRGrammar(std::make_unique<TDLExprScanner>()) {}

void TDLExpr::SetExpression(const QString& Value) {
    FExpression = Value;
    Scanner().SetSource(Value);
}

void TDLExpr::SetDateFormat(const QString& Value) {
    FDateFormat = Value;
    for (QChar c : Value) {
        if (c < u'a' || c > u'z') {
            FDateSeparator = c;
            break;
        }
    }
    FDateFormats = QtDateFormats(FDateFormat, FDateSeparator);
}

QString TDLExpr::ErrorStr(int Code, [[maybe_unused]] const QString& Data) const {
    static const char* const Symbols[] = {
        "EOF",    "ident",  "int",     "float",    "string",    "\"=\"",   "\">\"",    "\"<\"",    "\"<>\"",
        "\">=\"", "\"<=\"", "\"AND\"", "\"OR\"",   "\"IS\"",    "\"NOT\"", "\"NULL\"", "\"LIKE\"", "\"+\"",
        "\"-\"",  "\"*\"",  "\"/\"",   "\"TRUE\"", "\"FALSE\"", "\"(\"",   "\")\"",
    };
    if (Code >= 0 && Code < exprNotExpected)
        return QString::fromLatin1(Symbols[Code]) + QLatin1String(" expected");
    static const char* const Messages[] = {
        "not expected",     "invalid Factor",    "invalid Term",      "type mismatch",
        "division by zero", "nested too deeply", "date out of range",
    };
    if (Code >= exprNotExpected && Code <= exprDateOutOfRange)
        return QString::fromLatin1(Messages[Code - exprNotExpected]);
    return QStringLiteral("error %1").arg(Code);
}

QStringList TDLExpr::ErrorMessages() const {
    QStringList out;
    for (const TCocoError& e : ErrorList())
        out << QStringLiteral("Error: %1 (line %2, column %3)")
                   .arg(ErrorStr(e.FErrorCode, e.FData))
                   .arg(e.FLine)
                   .arg(e.FCol);
    return out;
}

void TDLExpr::Fail(int Code) {
    if (GetSuccessful()) SemError(Code);
}

// Expression = Term { ("=" | ">" | "<" | "<>" | ">=" | "<=" | "AND" | "OR" | "+" | "-") Term
//                   | "IS" ["NOT"] "NULL" | ["NOT"] "LIKE" Term }
void TDLExpr::Parse() {
    FDepth = 0;
    QVariant value;
    ParseExpression(value);
    Expect(exprEOF);
    // A listed error leaves nothing worth acting on; Null is never accepted.
    FValue = GetSuccessful() ? value : QVariant();
}

void TDLExpr::ParseExpression(QVariant& Value) {
    ParseTerm(Value);
    for (;;) {
        const int op = FCurrentInputSymbol;
        if (IsComparison(op) || op == exprAnd || op == exprOr || op == exprPlus || op == exprMinus) {
            Get();
            QVariant right;
            ParseTerm(right);
            if (IsComparison(op))
                Value = Compare(op, Value, right);
            else if (op == exprAnd || op == exprOr)
                Value = Logic(op, Value, right);
            else
                Value = Arithmetic(op, Value, right);
        } else if (op == exprIs) {
            Get();
            bool negate = false;
            if (FCurrentInputSymbol == exprNot) {
                Get();
                negate = true;
            }
            Expect(exprNull);
            Value = (KindOf(Value) == kNull) != negate;
        } else if (op == exprNot || op == exprLike) {
            Get();
            if (op == exprNot) Expect(exprLike);
            QVariant pattern;
            ParseTerm(pattern);
            Value = IsLike(Value, pattern) != (op == exprNot);
        } else {
            break;
        }
    }
}

// Term = Factor { ("*" | "/") Factor } | "NOT" Factor | "+" Factor | "-" Factor
void TDLExpr::ParseTerm(QVariant& Value) {
    const int symbol = FCurrentInputSymbol;
    if (IsFactorStart(symbol)) {
        ParseFactor(Value);
        while (FCurrentInputSymbol == exprStar || FCurrentInputSymbol == exprSlash) {
            const int op = FCurrentInputSymbol;
            Get();
            QVariant right;
            ParseFactor(right);
            Value = Arithmetic(op, Value, right);
        }
    } else if (symbol == exprNot || symbol == exprPlus || symbol == exprMinus) {
        Get();
        QVariant operand;
        ParseFactor(operand);
        Value = symbol == exprNot ? LogicalNot(operand) : symbol == exprMinus ? Negate(operand) : operand;
    } else {
        SynError(exprInvalidTerm);
        Value = QVariant();
    }
}

// Factor = ident | int | float | string | "NULL" | "TRUE" | "FALSE" | "(" Expression ")"
void TDLExpr::ParseFactor(QVariant& Value) {
    Value = QVariant();
    const int symbol = FCurrentInputSymbol;
    if (!IsFactorStart(symbol)) {
        SynError(exprInvalidFactor);
        return;
    }
    if (symbol == exprOpenParen && FDepth >= MaxDepth) {
        Fail(exprNestedTooDeeply);
        while (FCurrentInputSymbol != exprEOF) Get();
        FErrDist = 0;  // the unmatched parentheses behind are no news
        return;
    }
    Get();
    const QString text = Scanner().GetSymbolText(Scanner().CurrentSymbol());
    switch (symbol) {
        case exprIdent: {
            const bool quoted = text.startsWith(u'[') || text.startsWith(u'"');
            QVariant given;
            if (FOnGetIdentifier) FOnGetIdentifier(quoted ? text.mid(1, text.size() - 2) : text, given);
            if (!Canonical(given, Value)) Fail(exprTypeMismatch);
            break;
        }
        case exprInt: {
            bool ok = false;
            const qint64 i = text.toLongLong(&ok);
            Value = ok ? QVariant(i) : QVariant(text.toDouble());
            break;
        }
        case exprFloat:
            Value = text.toDouble();
            break;
        case exprString:
            Value = text.mid(1, text.size() - 2).replace(QLatin1String("''"), QLatin1String("'"));
            break;
        case exprTrue:
        case exprFalse:
            Value = symbol == exprTrue;
            break;
        case exprOpenParen:
            ++FDepth;
            ParseExpression(Value);
            --FDepth;
            Expect(exprCloseParen);
            break;
        default:  // NULL
            break;
    }
}

QVariant TDLExpr::Arithmetic(int Op, const QVariant& A, const QVariant& B) {
    const TKind ka = KindOf(A), kb = KindOf(B);
    if (ka == kNull || kb == kNull) return {};
    if (Op == exprPlus && ka == kString && kb == kString) return A.toString() + B.toString();

    QVariant a, b;
    if (ka == kDate || kb == kDate) {
        // A date moves by a number of days; two dates are apart by one.
        if (Op == exprMinus && ka == kDate && kb == kDate)
            return static_cast<double>(B.toDateTime().msecsTo(A.toDateTime())) / MSecsPerDay;
        const bool dateFirst = ka == kDate;
        if ((Op != exprPlus && !(Op == exprMinus && dateFirst)) || !ToNumber(dateFirst ? B : A, b)) {
            Fail(exprTypeMismatch);
            return {};
        }
        const double days = Op == exprMinus ? -b.toDouble() : b.toDouble();
        if (std::fabs(days) > 1e7) {
            Fail(exprDateOutOfRange);
            return {};
        }
        const QDateTime moved = (dateFirst ? A : B).toDateTime().addMSecs(std::llround(days * MSecsPerDay));
        if (moved.date().year() < 1 || moved.date().year() > 9999) {
            Fail(exprDateOutOfRange);
            return {};
        }
        return moved;
    }

    if (!ToNumber(A, a) || !ToNumber(B, b)) {
        Fail(exprTypeMismatch);
        return {};
    }
    if (Op == exprSlash) {
        if (b.toDouble() == 0) {
            Fail(exprDivisionByZero);
            return {};
        }
        return a.toDouble() / b.toDouble();
    }
    if (KindOf(a) == kInt && KindOf(b) == kInt) {
        const qint64 x = a.toLongLong(), y = b.toLongLong();
        qint64 r = 0;
        const bool overflow = Op == exprPlus    ? __builtin_add_overflow(x, y, &r)
                              : Op == exprMinus ? __builtin_sub_overflow(x, y, &r)
                                                : __builtin_mul_overflow(x, y, &r);
        if (!overflow) return r;
    }
    const double x = a.toDouble(), y = b.toDouble();
    return Op == exprPlus ? x + y : Op == exprMinus ? x - y : x * y;
}

void TDLExpr::CheckDateTime(const QVariant& A, QVariant& B) {
    if (KindOf(A) != kDate || KindOf(B) != kString) return;
    // Without a format, the text form dates are stored in.
    const QStringList& formats = FDateFormat.isEmpty() ? StoredDateFormats() : FDateFormats;
    QVariant date;
    if (ReadDate(B.toString(), formats, date)) {
        B = date;
    } else {
        Fail(exprTypeMismatch);
        B = QVariant();
    }
}

QVariant TDLExpr::Compare(int Op, QVariant A, QVariant B) {
    if (KindOf(A) == kNull || KindOf(B) == kNull) return {};
    CheckDateTime(A, B);
    CheckDateTime(B, A);
    const TKind ka = KindOf(A), kb = KindOf(B);
    if (ka == kNull || kb == kNull) return {};

    int order = 0;
    if (ka == kString && kb == kString) {
        order = QString::compare(A.toString(), B.toString(), Qt::CaseSensitive);
    } else if (ka == kDate && kb == kDate) {
        const QDateTime a = A.toDateTime(), b = B.toDateTime();
        order = a < b ? -1 : b < a ? 1 : 0;
    } else if ((ka == kBool && kb == kString) || (ka == kString && kb == kBool)) {
        bool text = false;
        if (!ReadBool((ka == kString ? A : B).toString(), text)) {
            Fail(exprTypeMismatch);
            return {};
        }
        const bool a = ka == kBool ? A.toBool() : text, b = kb == kBool ? B.toBool() : text;
        order = int(a) - int(b);
    } else if (ka == kBool && kb == kBool) {
        order = int(A.toBool()) - int(B.toBool());
    } else {
        // Numbers; a date stands for its day count.
        const auto number = [](const QVariant& v, QVariant& result) {
            double days = 0;
            if (KindOf(v) != kDate) return ToNumber(v, result);
            if (!ToDays(v, days)) return false;
            result = days;
            return true;
        };
        QVariant a, b;
        const bool dateWithBool = (ka == kDate && kb == kBool) || (ka == kBool && kb == kDate);
        if (dateWithBool || !number(A, a) || !number(B, b)) {
            Fail(exprTypeMismatch);
            return {};
        }
        if (KindOf(a) == kInt && KindOf(b) == kInt) {
            const qint64 x = a.toLongLong(), y = b.toLongLong();
            order = x < y ? -1 : x > y ? 1 : 0;
        } else {
            const double x = a.toDouble(), y = b.toDouble();
            if (std::isnan(x) || std::isnan(y)) return {};
            order = x < y ? -1 : x > y ? 1 : 0;
        }
    }
    switch (Op) {
        case exprEqual:
            return order == 0;
        case exprGreater:
            return order > 0;
        case exprLess:
            return order < 0;
        case exprNotEqual:
            return order != 0;
        case exprGreaterEqual:
            return order >= 0;
        default:  // exprLessEqual
            return order <= 0;
    }
}

QVariant TDLExpr::Logic(int Op, const QVariant& A, const QVariant& B) {
    if (KindOf(A) == kNull || KindOf(B) == kNull) return {};
    QVariant a, b;
    if (!ToLogical(A, a) || !ToLogical(B, b)) {
        Fail(exprTypeMismatch);
        return {};
    }
    if (KindOf(a) == kBool && KindOf(b) == kBool)
        return Op == exprAnd ? a.toBool() && b.toBool() : a.toBool() || b.toBool();
    const qint64 x = AsInteger(a), y = AsInteger(b);
    return Op == exprAnd ? x & y : x | y;
}

QVariant TDLExpr::LogicalNot(const QVariant& A) {
    if (KindOf(A) == kNull) return {};
    QVariant a;
    if (!ToLogical(A, a)) {
        Fail(exprTypeMismatch);
        return {};
    }
    if (KindOf(a) == kBool) return !a.toBool();
    return ~a.toLongLong();
}

QVariant TDLExpr::Negate(const QVariant& A) {
    if (KindOf(A) == kNull) return {};
    QVariant a;
    if (!ToNumber(A, a)) {
        Fail(exprTypeMismatch);
        return {};
    }
    if (KindOf(a) == kFloat) return -a.toDouble();
    const qint64 i = a.toLongLong();
    if (i == std::numeric_limits<qint64>::min()) return -static_cast<double>(i);
    return -i;
}

bool TDLExpr::IsLike(const QVariant& Source, const QVariant& Pattern) {
    if (KindOf(Source) == kNull) return false;
    if (FOnCustomLike) {
        bool result = false;
        FOnCustomLike(Source, Pattern, result);
        return result;
    }
    if (KindOf(Pattern) == kNull) return false;
    QString source = ToText(Source), pattern = ToText(Pattern);
    if (FCaseInsensitive && KindOf(Source) == kString && KindOf(Pattern) == kString) {
        source = source.toUpper();
        pattern = pattern.toUpper();
    }
    return LikeStr(source, pattern, u'%', u'_');
}

}  // namespace brindle
