#include "TSVParser.h"

namespace brindle {

TTSVParser::TTSVParser(QIODevice& Stream, const TEncoding& Encoding) : TTextParser(Stream, Encoding) {
    FDelimiter = u'\t';
}

// A carriage return ends a value in every state, even after one just ended,
// so a row ended by CR LF carries no extra value but "a\r\r\n" does; a line
// feed alone ends the row.
bool TTSVParser::ReadRow(TTextRow& Row) {
    Row.Clear(FLine);
    if (FEof) return false;  // nothing is read behind the end, a code 0 included
    TParserState state = psNone;
    bool eol = false;
    const auto endToken = [&] {
        Row.EndValue(false, false);
        state = psNone;
        eol = false;
    };
    char16_t c;
    for (;;) {
        if (!FBuffer.GetChar(c)) {
            if (state == psTab || state == psToken) endToken();
            FEof = true;
            break;
        }
        if (Row.IsEmpty() && state == psNone) Row.SetLine(FLine);
        switch (c) {
            case u'\t':
                Row.EndValue(false, false);
                state = psTab;
                eol = false;
                break;
            case u'\n':
                ++FLine;
                if (state == psTab || state == psToken) endToken();
                eol = true;
                break;
            case u'\r':
                endToken();
                break;
            default:
                Row.Append(c);
                state = psToken;
                eol = false;
                break;
        }
        if (eol && !Row.IsEmpty()) break;
    }
    return !Row.IsEmpty();
}

}  // namespace brindle
