// The CSV dialect: values split by the delimiter, optionally in quotes with
// inner quotes doubled; an empty field without quotes is Null, "" the empty
// string. Only a line feed ends a row; a carriage return ends a value.
#pragma once

#include "TextParser.h"

namespace brindle {

class TCSVParser : public TTextParser {
public:
    enum TParserState { psNone, psComma, psToken, psUnquotedToken, psTokenQuote };

    using TTextParser::TTextParser;

    // Throws ECSVParserError, once the row has been read to its end, for a
    // quote inside a value that did not begin with one, and for a quoted
    // value still open at the end of the input (naming the line it began
    // on). The next call goes on with the next line.
    bool ReadRow(TTextRow& Row) override;

    char16_t QuoteChar() const { return FQuoteChar; }
    void SetQuoteChar(char16_t Value) { FQuoteChar = Value; }

private:
    char16_t FQuoteChar = u'"';
};

}  // namespace brindle
