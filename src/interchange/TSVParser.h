// The TSV dialect: values split by tabs, no quoting at all; every value is
// a string, an empty field the empty string. The tab is fixed: Delimiter is
// not consulted.
#pragma once

#include "TextParser.h"

namespace brindle {

class TTSVParser : public TTextParser {
public:
    enum TParserState { psNone, psTab, psToken };

    TTSVParser(QIODevice& Stream, const TEncoding& Encoding);

    bool ReadRow(TTextRow& Row) override;
};

}  // namespace brindle
