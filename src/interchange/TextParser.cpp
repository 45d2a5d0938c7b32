#include "TextParser.h"

#include "CSVParser.h"
#include "TSVParser.h"

#include <QIODevice>
#include <climits>

namespace brindle {

// ---------------------------------------------------------------------------
// TTextRow

QVariant TTextRow::Variant(int Index) const {
    if (IsNull(Index)) return QVariant();
    return Value(Index).toString();
}

TValues TTextRow::Values() const {
    TValues result;
    result.reserve(FItems.size());
    for (int i = 0; i < Count(); ++i) result.push_back(Variant(i));
    return result;
}

// ---------------------------------------------------------------------------
// TTextParser

TTextParser::TTextParser(QIODevice& Stream, const TEncoding& Encoding) : FBuffer(Stream, Encoding) {}

TTextParser::~TTextParser() = default;

TValues TTextParser::ReadValues() {
    TTextRow row;
    ReadRow(row);
    return row.Values();
}

void TTextParser::SkipLines(int Count) {
    char16_t c;
    while (Count > 0 && !FEof) {
        if (!FBuffer.GetChar(c)) {
            FEof = true;
        } else if (c == u'\n') {
            ++FLine;
            --Count;
        }
    }
}

std::unique_ptr<TTextParser> CreateTextParser(QIODevice& Stream, const TEncoding& Encoding,
                                              char16_t Delimiter, char16_t QuoteChar) {
    if (Delimiter == u'\t') return std::make_unique<TTSVParser>(Stream, Encoding);
    auto parser = std::make_unique<TCSVParser>(Stream, Encoding);
    parser->SetDelimiter(Delimiter);
    parser->SetQuoteChar(QuoteChar);
    return parser;
}

// ---------------------------------------------------------------------------
// FindDelimiter

namespace {

constexpr int kTrialLines = 256;

std::vector<char16_t> DelimiterCandidates() {
    std::vector<char16_t> result{u',', u';', u'\t'};
    for (const auto& [from, to] : {std::pair{33, 47}, {58, 64}, {91, 96}, {123, 126}})
        for (int c = from; c <= to; ++c) result.push_back(static_cast<char16_t>(c));
    return result;
}

}  // namespace

char16_t FindDelimiter(QIODevice& Stream, const TEncoding& Encoding) {
    char16_t result = 0;
    int best = 0;
    for (const char16_t candidate : DelimiterCandidates()) {
        try {
            if (!Stream.seek(0)) continue;
            const std::unique_ptr<TTextParser> parser = CreateTextParser(Stream, Encoding, candidate);
            TTextRow row;
            int lines = 0, colMin = INT_MAX, colMax = 0;
            do {
                try {
                    parser->ReadRow(row);
                } catch (...) {  // a row that cannot be read ends the trial
                    row.Clear();
                }
                ++lines;
                if (!row.IsBlank() && row.Count() > 0) {
                    colMin = std::min(colMin, row.Count());
                    colMax = std::max(colMax, row.Count());
                }
            } while (!row.IsEmpty() && lines < kTrialLines);
            // Rows may vary in width as long as the narrowest has at least
            // half the columns of the widest.
            if (colMin <= colMax && colMax / 2 <= colMin && colMin > best) {
                result = candidate;
                best = colMin;
            }
        } catch (...) {  // a candidate that fails as a whole is passed over
        }
    }
    return result;
}

}  // namespace brindle
