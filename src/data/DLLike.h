// Pattern matching for the filter language's LIKE.
//
// Both functions are pure and safe on any thread.
#pragma once

#include <QChar>
#include <QString>

namespace brindle {

// Whether the Str characters (StrLength of them) match the Pattern characters
// (PatternLength of them). In the pattern, Percent matches any run of
// characters, empty included, and Underline exactly one character; Escape,
// unless it is the null character, makes the pattern character after it
// literal (a trailing Escape stands for itself). Any other pattern character
// must equal the text character, with only the ASCII letters a to z taken as
// their upper-case forms: matching is blind to ASCII case and to no other.
// The whole text must be matched.
bool Like(const QChar* Str, qsizetype StrLength, const QChar* Pattern, qsizetype PatternLength, QChar Percent,
          QChar Underline, QChar Escape = QChar());

// Like() over whole strings with no escape character, after undoing doubled
// single quotes in the pattern.
bool LikeStr(const QString& Str, const QString& Pattern, QChar Percent, QChar Underline);

}  // namespace brindle
