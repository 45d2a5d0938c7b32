// The filter language of datasets: a text such as "Name LIKE 'a%'" that is
// parsed and evaluated in one pass, anew for each row.
//
// Values are QVariants of these kinds: Null (an invalid QVariant), bool,
// qint64, double, QString, and dates as QDateTime. Dates count by their
// calendar date and wall-clock time; the time zone is ignored. Where a date
// meets a number, the date stands for the program's day count (days since
// 1899-12-30, time of day in the fraction). An identifier's value may also
// come as another integer or floating type, a QDate, a QTime (a time of day
// 0), a QByteArray (read as UTF-8) or anything else that converts to QString;
// it is brought to one of the kinds above.
//
// Operators, all of one rank at the top level and applied left to right:
// - Null in any operand gives Null, except for IS [NOT] NULL and LIKE (a Null
//   text or pattern is no match). A filter takes Null as not true.
// - A boolean that meets a number counts as -1 (true) or 0 (false).
// - AND, OR and NOT are logical on booleans and bit by bit on integers; a
//   string operand reads as "true"/"false" or as an integer.
// - "+" joins two strings. Otherwise a string operand is read as a number.
//   "/" always divides as floating point; integer results that overflow
//   become floating point. A date plus or minus a number of days is a date,
//   the difference of two dates a number of days.
// - Comparisons: strings by their UTF-16 code units, case-sensitively;
//   numbers by value; a boolean with a string reads the string as a boolean.
//   A string that meets a date is read as a date: with the date format when
//   one is set, else as "yyyy-mm-dd" with an optional time "hh:nn[:ss[.zzz]]".
// Operands that fit none of these, division by zero, and dates beyond years 1
// to 9999 are listed as semantic errors; nothing is thrown.
//
// A TDLExpr is used by one thread at a time.
#pragma once

#include "data/CocoRGrammar.h"

#include <QString>
#include <QStringList>
#include <QVariant>
#include <functional>

namespace brindle {

// The symbols of the filter language, in the numbering its error codes use.
enum TDLExprSymbol {
    exprEOF = 0,
    exprIdent,
    exprInt,
    exprFloat,
    exprString,
    exprEqual,         // =
    exprGreater,       // >
    exprLess,          // <
    exprNotEqual,      // <>
    exprGreaterEqual,  // >=
    exprLessEqual,     // <=
    exprAnd,
    exprOr,
    exprIs,
    exprNot,
    exprNull,
    exprLike,
    exprPlus,
    exprMinus,
    exprStar,
    exprSlash,
    exprTrue,
    exprFalse,
    exprOpenParen,
    exprCloseParen,
    exprNotExpected,  // any other character
};

// Error codes beyond the symbols (a symbol's number means "<symbol> expected").
enum TDLExprError {
    exprInvalidFactor = 26,
    exprInvalidTerm = 27,
    // Semantic errors, found while evaluating.
    exprTypeMismatch = 28,
    exprDivisionByZero = 29,
    exprNestedTooDeeply = 30,
    exprDateOutOfRange = 31,
};

class TDLExprScanner : public TCocoRScanner {
public:
    TDLExprScanner();

protected:
    int ReadSymbol() override;

private:
    int ReadNumber();
    // Up to and past Close; false when the text ends first.
    bool ReadQuoted(char16_t Close, bool Doubling);
};

class TDLExpr : public TCocoRGrammar {
public:
    TDLExpr();

    const QString& Expression() const { return FExpression; }
    void SetExpression(const QString& Value);

    // Execute() (inherited) clears the errors, parses and evaluates. After
    // any listed error the value is Null.
    bool Successful() const { return GetSuccessful(); }
    const QVariant& GetValue() const { return FValue; }

    // Upper-cases both sides of a LIKE between strings first. Whatever this
    // says, LIKE is blind to the case of ASCII letters.
    bool CaseInsensitive() const { return FCaseInsensitive; }
    void SetCaseInsensitive(bool Value) { FCaseInsensitive = Value; }

    // The format strings compared with dates are read in: d, m, y, h, n
    // (minutes; m right after h means minutes too), s, z and am/pm, any case,
    // with "/" for the date separator and text in quotes kept literally.
    // Numbers may go without leading zeros; a date alone may be followed by a
    // time "hh:nn[:ss[.zzz]]"; two-digit years fall into 1950 to 2049. The
    // separator becomes the first character that is not a letter a to z; a
    // format of such letters alone keeps the one before ("-" at first).
    const QString& DateFormat() const { return FDateFormat; }
    void SetDateFormat(const QString& Value);
    QChar DateSeparator() const { return FDateSeparator; }

    // The message for an error code; Data is the text where the error stood.
    QString ErrorStr(int Code, const QString& Data) const;
    // The error list as "Error: <message> (line L, column C)".
    QStringList ErrorMessages() const;

    // Gives an identifier's value, the name without its brackets or quotes;
    // the value stays Null when this is not set.
    std::function<void(const QString& Ident, QVariant& Value)> FOnGetIdentifier;
    // When set, decides LIKE in place of the pattern match; not called for a
    // Null text.
    std::function<void(const QVariant& Source, const QVariant& Pattern, bool& Result)> FOnCustomLike;

protected:
    void Parse() override;

private:
    void ParseExpression(QVariant& Value);
    void ParseTerm(QVariant& Value);
    void ParseFactor(QVariant& Value);

    // The operations; each lists a semantic error and gives Null when its
    // operands do not fit.
    QVariant Arithmetic(int Op, const QVariant& A, const QVariant& B);
    QVariant Compare(int Op, QVariant A, QVariant B);
    QVariant Logic(int Op, const QVariant& A, const QVariant& B);
    QVariant LogicalNot(const QVariant& A);
    QVariant Negate(const QVariant& A);
    bool IsLike(const QVariant& Source, const QVariant& Pattern);
    // A string compared with a date becomes a date under the date format.
    void CheckDateTime(const QVariant& A, QVariant& B);
    // Lists a semantic error, unless one is listed already.
    void Fail(int Code);

    QString FExpression;
    QVariant FValue;
    bool FCaseInsensitive = false;
    QString FDateFormat;
    QChar FDateSeparator = u'-';
    QStringList FDateFormats;  // FDateFormat as the formats to try, in Qt's notation
    int FDepth = 0;            // parentheses open while parsing
};

}  // namespace brindle
