// Delimited text into a dataset or a table. The importer detects a file's
// columns and their types (reading the whole file), loads rows into any
// dataset (the import preview, the paste flow), and imports into a table by
// one prepared insert under one savepoint, so that a failure or a stop
// leaves the table exactly as it was. Beside it, the guesses the import
// dialog fills its controls with when the file changes.
//
// The encoding is always the caller's: tools/Encodings.h (GetFileEncoding)
// detects a file's, as for any text file.
//
// Threading: everything runs on the caller's thread; only Cancel may be
// called from anywhere, a signal handler included.
#pragma once

#include "engine/DLParams.h"
#include "engine/Encoding.h"

#include <QString>
#include <QStringList>
#include <QStringView>
#include <atomic>
#include <functional>
#include <initializer_list>
#include <vector>

class QIODevice;

namespace brindle {

class TDataSet;
class TDLMemDataSet;
class TDLSQLiteDatabase;

// A set of field types.
class TFieldTypes {
public:
    constexpr TFieldTypes() = default;
    constexpr TFieldTypes(std::initializer_list<TFieldType> Types) {
        for (TFieldType t : Types) Include(t);
    }
    constexpr bool Contains(TFieldType Type) const { return FBits & Bit(Type); }
    constexpr void Include(TFieldType Type) { FBits |= Bit(Type); }
    constexpr void Exclude(TFieldType Type) { FBits &= ~Bit(Type); }
    constexpr bool IsEmpty() const { return FBits == 0; }
    constexpr bool operator==(const TFieldTypes&) const = default;

private:
    static constexpr quint64 Bit(TFieldType Type) { return quint64(1) << static_cast<int>(Type); }
    quint64 FBits = 0;
};

// One detected column: its name, the types its values still allow, and the
// length of its longest value in 16-bit characters.
struct TFieldInfo {
    QString FieldName;
    TFieldTypes FieldTypes;
    int MaxLength = 0;
};

// The field a detected column becomes: ftWideString (with Size),
// ftBoolean, ftLargeint, ftFloat, ftBlob or ftWideMemo.
struct TImportField {
    QString Name;
    TFieldType DataType = ftWideMemo;
    int Size = 0;
};

// Where ImportIntoTable writes.
struct TTextImportTarget {
    QString TableName;  // as the user wrote it; may be qualified ("main.t")
    // Create the table from Fields; refused when a table of that name exists.
    // Otherwise the table must exist: the file's header names (or, without
    // a header, its first columns in order) must be columns of it.
    bool NewTable = false;
    // Empty the table first, under the same savepoint.
    bool DeleteExistingData = false;
    // Types for a new table's columns when Fields is empty: detected, or
    // all memo ("Auto detect field types" off).
    bool AutoDetectTypes = true;
    // The columns of a new table, one per column of the file, in file order,
    // as detected (DetectFieldList) and as the user then named and typed
    // them. Empty: detected here.
    std::vector<TImportField> Fields;
};

struct TTextImportResult {
    qint64 RowsImported = 0;
    qint64 RowsSkipped = 0;  // bad rows left out under IgnoreErrors
    qint64 ShortRows = 0;    // rows with fewer values than columns: the rest NULL
    bool TableCreated = false;
    bool Canceled = false;  // stopped: the table is as it was
};

class TTextImporter {
public:
    // Message, and the importer's own stop flag: a handler that sets it
    // stops the run.
    using TProgressEvent = std::function<void(const QString& Message, bool& Canceled)>;
    using TSQLCallback = std::function<void(const QString& SQL, TParams& Params)>;

    TProgressEvent FOnProgress;
    // A bad row is noted in FErrors and left out, instead of ending the run.
    bool FIgnoreErrors = false;
    // "Line %d: message" per row left out, and notes of the run.
    QStringList FErrors;
    TSQLCallback FOnSQLCallback;  // SQLImport's statements
    // The quote character of the CSV dialect.
    char16_t FQuoteChar = u'"';
    // Lines passed over as they stand before the first row (or header).
    int FSkipLines = 0;
    // Rows read at most after the header, 0 for all: a quick preview. The
    // types of an import are detected over the whole file.
    qint64 FRowLimit = 0;

    // Stops the run at the next row; safe from any thread or a signal
    // handler. The flag stays set.
    void Cancel() { FCanceled.store(true, std::memory_order_relaxed); }
    bool Canceled() const { return FCanceled.load(std::memory_order_relaxed); }

    // Reads the whole text and returns one TFieldInfo per value of its first
    // row, named by that row (HasFieldNames) or "Field_%d". With AutoDetect
    // every later value prunes its column's types; without, each column is a
    // memo. Empty when the text is empty or the run was stopped. Throws
    // "Error: duplicate field name: '%s'" for a name twice (case-blind).
    std::vector<TFieldInfo> ScanFields(QIODevice& Stream, bool AutoDetect, char16_t Delimiter,
                                       const TEncoding& Encoding, bool HasFieldNames);
    // ScanFields, then the fields on DataSet (closed, definitions cleared).
    // A stopped run makes no fields.
    void DetectFields(TDataSet& DataSet, QIODevice& Stream, bool AutoDetect, char16_t Delimiter,
                      const TEncoding& Encoding, bool HasFieldNames);
    // ScanFields as the fields a new table gets (ChooseField of each).
    std::vector<TImportField> DetectFieldList(QIODevice& Stream, bool AutoDetect, char16_t Delimiter,
                                              const TEncoding& Encoding, bool HasFieldNames);

    // Appends the rows to the open DataSet; SkipFirstRow takes the first
    // row as the header whose names the values map by. A blank line is
    // neither loaded nor counted.
    void LoadDataSet(TDataSet& DataSet, QIODevice& Stream, char16_t Delimiter, const TEncoding& Encoding,
                     bool SkipFirstRow);
    // Gives each row to FOnSQLCallback as "insert into T(...) values(?, ...)"
    // with its values as parameters (text, Null, or the bytes of x'..'). The
    // dataset's visible fields are the column list when there is no header.
    void SQLImport(TDataSet& DataSet, QIODevice& Stream, const QString& TableName, char16_t Delimiter,
                   const TEncoding& Encoding, bool SkipFirstRow);
    // The whole import into a table under the savepoint
    // "brindle_import_text": the table made (new) or emptied (as asked), the
    // rows inserted by one prepared statement. On a failure the savepoint is
    // rolled back and the exception goes on; on a stop it is rolled back
    // and the result says Canceled. Throws with a clear message for an empty
    // file, a table that exists (new) or lacks the file's columns
    // (existing), and a row with more non-empty values than columns.
    TTextImportResult ImportIntoTable(TDLSQLiteDatabase& Database, QIODevice& Stream,
                                      const TTextImportTarget& Target, char16_t Delimiter,
                                      const TEncoding& Encoding, bool HasFieldNames);

    // Prunes Info's types by one value; Quoted tells a value that stood in
    // quotes, which is never binary.
    static void TestDataType(QStringView Value, TFieldInfo& Info, bool Quoted = false);
    // The field a column's surviving types and longest value make.
    static TImportField ChooseField(const TFieldInfo& Info);
    // Makes the fields on the closed DataSet; throws for a duplicate name.
    static void CreateStaticFields(TDataSet& DataSet, const std::vector<TFieldInfo>& FieldInfos);

private:
    std::atomic<bool> FCanceled{false};
};

// Pasted text into a memory dataset: fields detected with the first row as
// header, then every row loaded; the cursor on the first row.
void TextStreamToMemDataSet(TDLMemDataSet& DataSet, QIODevice& Stream, const TEncoding& Encoding,
                            char16_t Delimiter);

// --- what the import dialog asks when the file changes ----------------------

// The table a file goes to: an existing one whose name matches the file's
// base name (case-blind, dots made underscores), or else that name as a new
// table.
struct TTableGuess {
    QString TableName;
    bool Exists = false;
};
TTableGuess GuessTable(const QString& FileName, const QStringList& TableNames);
// FindDelimiter over the file; ',' when it cannot be read.
char16_t DetectDelimiter(const QString& FileName, const TEncoding& Encoding);
// Whether the first row is a header: its values fail the type that the
// values below them share, or, in all-text files, are distinct and filled.
// Reads at most the first 256 rows.
bool DetectFirstLine(const QString& FileName, const TEncoding& Encoding, char16_t Delimiter,
                     char16_t QuoteChar = u'"', int SkipLines = 0);

}  // namespace brindle
