// Rows of delimited text: the abstract row reader over a TBuffer, the row
// it fills, and the guess of an unknown text's delimiter. The two dialects
// are TCSVParser (CSVParser.h) and TTSVParser (TSVParser.h). A parser knows
// nothing of fields or types: a row is a list of values whose length may
// differ from row to row.
//
// Ownership: the stream stays the caller's and must outlive the parser.
// One thread at a time.
#pragma once

#include "TextBuffers.h"

#include <QStringView>
#include <QVariant>
#include <memory>
#include <vector>

class QIODevice;

namespace brindle {

// A row that could not be read; the parser is usable at the next line.
class ECSVParserError : public ECustomException {
public:
    using ECustomException::ECustomException;
};

// What ReadValues gives: per value a string, or in the CSV dialect an
// invalid QVariant for Null (an empty field without quotes).
using TValues = std::vector<QVariant>;

// One row, kept in memory that the next row reuses: the characters of all
// values in one array, and per value where it lies, whether it is Null and
// whether it stood in quotes.
class TTextRow {
public:
    int Count() const { return static_cast<int>(FItems.size()); }
    bool IsEmpty() const { return FItems.empty(); }
    QStringView Value(int Index) const {
        const TItem& item = FItems[static_cast<size_t>(Index)];
        return QStringView(FChars.data() + item.Start, item.Length);
    }
    bool IsNull(int Index) const { return FItems[static_cast<size_t>(Index)].Null; }
    bool IsQuoted(int Index) const { return FItems[static_cast<size_t>(Index)].Quoted; }
    // Invalid for Null, else a QString.
    QVariant Variant(int Index) const;
    TValues Values() const;
    // Exactly one value and it empty: what a blank line gives.
    bool IsBlank() const { return FItems.size() == 1 && FItems.front().Length == 0; }
    // The line of the text on which the row began, from 1.
    qint64 Line() const { return FLine; }

    // --- for the parsers ----------------------------------------------------
    void SetLine(qint64 Line) { FLine = Line; }
    void Clear(qint64 Line = 0) {
        FChars.clear();
        FItems.clear();
        FStart = 0;
        FLine = Line;
    }
    void Append(char16_t C) { FChars.push_back(C); }
    void Append(const char16_t* Chars, qsizetype Count) { FChars.insert(FChars.end(), Chars, Chars + Count); }
    // The characters since the last value; Null only when there are none.
    void EndValue(bool Null, bool Quoted) {
        const qsizetype length = static_cast<qsizetype>(FChars.size()) - FStart;
        FItems.push_back({FStart, length, Null && length == 0, Quoted});
        FStart = static_cast<qsizetype>(FChars.size());
    }
    // Drops the characters of the value being read.
    void DropToken() { FChars.resize(static_cast<size_t>(FStart)); }

private:
    struct TItem {
        qsizetype Start;
        qsizetype Length;
        bool Null;
        bool Quoted;
    };
    std::vector<char16_t> FChars;
    std::vector<TItem> FItems;
    qsizetype FStart = 0;
    qint64 FLine = 1;
};

class TTextParser {
public:
    // Builds the buffer over Stream from its present position.
    TTextParser(QIODevice& Stream, const TEncoding& Encoding);
    virtual ~TTextParser();
    TTextParser(const TTextParser&) = delete;
    TTextParser& operator=(const TTextParser&) = delete;

    // One row; an empty list means the end of the input (or, in the CSV
    // dialect, that nothing but line ends was left).
    TValues ReadValues();
    // The same into Row, whose memory is reused; false when Row is empty.
    virtual bool ReadRow(TTextRow& Row) = 0;

    // Set when the source is exhausted, never reset.
    bool Eof() const { return FEof; }
    char16_t Delimiter() const { return FDelimiter; }
    void SetDelimiter(char16_t Value) { FDelimiter = Value; }
    // The line the next row begins on, from 1.
    qint64 Line() const { return FLine; }
    // Passes over Count lines as they stand, quotes or not: the text some
    // files carry above their header.
    void SkipLines(int Count);

protected:
    TBuffer FBuffer;
    bool FEof = false;
    char16_t FDelimiter = u',';
    qint64 FLine = 1;
};

// The dialect for a delimiter: TTSVParser for a tab, TCSVParser with the
// delimiter and quote character otherwise.
std::unique_ptr<TTextParser> CreateTextParser(QIODevice& Stream, const TEncoding& Encoding,
                                              char16_t Delimiter, char16_t QuoteChar = u'"');

// The delimiter that splits the first 256 lines into the most columns
// consistently (the narrowest row at least half as wide as the widest).
// Tries ',', ';', tab, then ASCII punctuation in code order; an earlier
// candidate wins a tie, a text nothing splits gives ',', and one that no
// trial can read (empty, or not in Encoding) gives code 0. Nothing escapes
// from the trials; the stream's position is left where the last trial
// left it.
char16_t FindDelimiter(QIODevice& Stream, const TEncoding& Encoding);

}  // namespace brindle
