#include "CSVParser.h"

namespace brindle {

// One row by a state machine over the characters. What follows from it, on
// purpose: a carriage return ends a value, only a line feed ends the row; a
// blank line ended by CR LF is a row of one Null while one ended by LF alone
// is no row at all; text between a closing quote and the next delimiter is
// dropped; line ends inside quotes are kept as they stand. A character of
// code 0 outside quotes ends the whole input; inside quotes it is part of
// the value, which the exporter quotes for that reason.
bool TCSVParser::ReadRow(TTextRow& Row) {
    Row.Clear(FLine);
    if (FEof) return false;  // nothing is read behind the end, a code 0 included
    TParserState state = psNone;
    bool eol = false;
    bool quoted = false;   // the value being read began with a quote
    qint64 quoteLine = 0;  // the line it began on
    bool unexpectedQuote = false;

    // An empty value is Null only when nothing, not even quotes, made it.
    const auto addToken = [&] {
        Row.EndValue(state == psNone || state == psComma, quoted);
        quoted = false;
    };
    const auto endToken = [&] {
        addToken();
        state = psNone;
    };

    char16_t c;
    for (;;) {
        if (!FBuffer.GetChar(c) || (c == 0 && state != psToken)) {
            if (state == psToken) {
                Row.Clear(Row.Line());
                FEof = true;
                throw ECSVParserError(
                    QStringLiteral(
                        "CSV parser error: the quoted value that begins on line %1 is never closed.")
                        .arg(quoteLine),
                    QStringLiteral("Line"), QString::number(quoteLine));
            }
            if (state != psNone) endToken();
            FEof = true;
            break;
        }
        if (Row.IsEmpty() && state == psNone && c != u'\n') Row.SetLine(FLine);
        if (c == u'\n') {
            ++FLine;
            if (state == psToken) {
                Row.Append(c);
            } else {
                if (state != psNone) endToken();
                eol = true;
            }
        } else if (c == u'\r') {
            if (state == psToken)
                Row.Append(c);
            else if (state != psNone || Row.IsEmpty())
                endToken();
        } else if (c == FQuoteChar) {
            switch (state) {
                case psNone:
                case psComma:
                    Row.DropToken();
                    state = psToken;
                    quoted = true;
                    quoteLine = FLine;
                    eol = false;
                    break;
                case psToken:
                    state = psTokenQuote;
                    break;
                case psUnquotedToken:
                    unexpectedQuote = true;
                    break;
                case psTokenQuote:  // a doubled quote gives one, back inside quotes
                    Row.Append(c);
                    state = psToken;
                    eol = false;
                    break;
            }
        } else if (c == FDelimiter) {
            if (state == psToken) {
                Row.Append(c);
            } else {
                addToken();
                state = psComma;
            }
            eol = false;
        } else if (state == psToken) {
            Row.Append(c);
        } else if (state != psTokenQuote) {  // after a closing quote: dropped
            Row.Append(c);
            state = psUnquotedToken;
            eol = false;
        }
        // The rest of a value in one run, up to the next character that
        // means something in its state.
        if (state == psUnquotedToken || state == psToken) {
            const char16_t* run = FBuffer.Current();
            const qsizetype available = FBuffer.Available();
            qsizetype n = 0;
            if (state == psUnquotedToken) {
                for (; n < available; ++n) {
                    const char16_t x = run[n];
                    if (x == FDelimiter || x == FQuoteChar || x == u'\n' || x == u'\r' || x == 0) break;
                }
            } else {
                while (n < available && run[n] != FQuoteChar && run[n] != u'\n') ++n;
            }
            Row.Append(run, n);
            FBuffer.Skip(n);
        }
        if (eol && !Row.IsEmpty()) break;
    }
    if (state != psNone) endToken();
    if (unexpectedQuote) {
        Row.Clear(Row.Line());
        throw ECSVParserError(QStringLiteral("CSV parser error: unexpected double-quote character."));
    }
    return !Row.IsEmpty();
}

}  // namespace brindle
