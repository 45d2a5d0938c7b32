#include "TextImport.h"

#include "TextParser.h"

#include "data/DLMemDataSet.h"
#include "data/DataSet.h"
#include "engine/DLPreparedStatement.h"
#include "engine/DLQuoteTools.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/DLTools.h"
#include "schema/DLObjectDefs.h"

#include <QFile>
#include <QFileInfo>
#include <QStringEncoder>
#include <charconv>
#include <string>

namespace brindle {

namespace {

constexpr int kProgressRows = 1024;
const QString kSavepoint = QStringLiteral("brindle_import_text");

// --- the type tests ----------------------------------------------------------

// Numbers are plain ASCII; a longer text is no number worth keeping as one.
constexpr qsizetype kMaxNumberLength = 64;

// Value as Latin-1 bytes when it is short and ASCII; false otherwise.
bool AsciiNumberText(QStringView Value, char* Out, qsizetype& Length) {
    if (Value.size() > kMaxNumberLength) return false;
    for (qsizetype i = 0; i < Value.size(); ++i) {
        const char16_t c = Value[i].unicode();
        if (c > 127) return false;
        Out[i] = static_cast<char>(c);
    }
    Length = Value.size();
    return true;
}

bool IsLargeintText(QStringView Value) {
    char text[kMaxNumberLength];
    qsizetype length = 0;
    if (!AsciiNumberText(Value, text, length) || length == 0) return false;
    const char* first = text;
    if (*first == '+') ++first;  // from_chars takes a minus only
    qint64 number = 0;
    const auto [end, error] = std::from_chars(first, text + length, number);
    return error == std::errc() && end == text + length && first != end;
}

// The significant digits of a decimal number and the power of ten that
// puts the point before the first of them: "012.50" and "1.25e1" both
// give ("125", 2). Zero gives ("", 0).
struct TDecimal {
    std::string Digits;
    long Exponent = 0;
    bool operator==(const TDecimal&) const = default;
};

TDecimal Normalize(const char* First, const char* Last) {
    TDecimal result;
    long point = -1;
    const char* p = First;
    if (p != Last && (*p == '+' || *p == '-')) ++p;
    for (; p != Last && *p != 'e' && *p != 'E'; ++p) {
        if (*p == '.')
            point = static_cast<long>(result.Digits.size());
        else
            result.Digits += *p;
    }
    if (point < 0) point = static_cast<long>(result.Digits.size());
    long exponent = 0;
    if (p != Last) std::from_chars(p + 1 + (p[1] == '+'), Last, exponent);
    const size_t lead = result.Digits.find_first_not_of('0');
    if (lead == std::string::npos) return {};
    result.Digits.erase(0, lead);
    result.Digits.erase(result.Digits.find_last_not_of('0') + 1);
    result.Exponent = point - static_cast<long>(lead) + exponent;
    return result;
}

// A number in the fixed format settings (decimal point, optional exponent)
// whose value a double holds to every digit written: more digits than a
// double keeps would be changed by storing it as one, so such a text stays
// text.
bool IsFloatText(QStringView Value) {
    char text[kMaxNumberLength];
    qsizetype length = 0;
    if (!AsciiNumberText(Value, text, length) || length == 0) return false;
    // from_chars also reads "inf" and "nan"; only digits, point, sign and
    // exponent are numbers here.
    for (qsizetype i = 0; i < length; ++i) {
        const char c = text[i];
        if (!((c >= '0' && c <= '9') || c == '.' || c == '-' || c == '+' || c == 'e' || c == 'E'))
            return false;
    }
    const char* first = text;
    if (*first == '+') ++first;
    double number = 0;
    const auto [end, error] = std::from_chars(first, text + length, number, std::chars_format::general);
    if (error != std::errc() || end != text + length || first == end) return false;
    const TDecimal written = Normalize(first, end);
    const int digits = static_cast<int>(written.Digits.size());
    if (digits <= 15) return true;  // every such decimal survives a double
    // The double to as many digits as the text has must give them back.
    char again[400];
    const auto r =
        std::to_chars(again, again + sizeof again, number, std::chars_format::scientific, digits - 1);
    return r.ec == std::errc() && Normalize(again, r.ptr) == written;
}

bool IsBooleanText(QStringView Value) {
    return Value.compare(u"TRUE", Qt::CaseInsensitive) == 0 ||
           Value.compare(u"FALSE", Qt::CaseInsensitive) == 0;
}

bool HasLineBreakOrZero(QStringView Value) {
    for (const QChar c : Value)
        if (c == u'\r' || c == u'\n' || c == u'\0') return true;
    return false;
}

// A binary literal, x'..' with an even count of hex digits, that stood
// without quotes: quoted, it is text that only looks like one.
bool IsBinaryValue(QStringView Value, bool Quoted) {
    if (Quoted || Value.size() < 3 || (Value[0] != u'x' && Value[0] != u'X') || Value[1] != u'\'' ||
        Value.back() != u'\'')
        return false;
    if ((Value.size() - 3) % 2 != 0) return false;
    for (qsizetype i = 2; i + 1 < Value.size(); ++i) {
        const char16_t c = Value[i].unicode();
        if (!((c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F'))) return false;
    }
    return true;
}

QByteArray BinaryValue(QStringView Value) {
    return QByteArray::fromHex(Value.sliced(2, Value.size() - 3).toLatin1());
}

// --- reading --------------------------------------------------------------------

// Where the rows go. Values beyond FieldNames have been checked to be
// empty; a row shorter than FieldNames leaves the rest null.
class TTextImportDest {
public:
    virtual ~TTextImportDest() = default;
    virtual void AppendRecord(const QStringList& FieldNames, const TTextRow& Values) = 0;
    // A failure after which no row can follow, whatever IgnoreErrors says.
    virtual bool Broken() const { return false; }
};

class TTextImportDestDataSet : public TTextImportDest {
public:
    explicit TTextImportDestDataSet(TDataSet& DataSet) : FDataSet(DataSet) {}

    void AppendRecord(const QStringList& FieldNames, const TTextRow& Values) override {
        FDataSet.Append();
        try {
            const int count = std::min(static_cast<int>(FieldNames.size()), Values.Count());
            for (int i = 0; i < count; ++i) {
                TField* field = FDataSet.FindField(FieldNames[i]);
                if (!field) continue;
                const QStringView value = Values.Value(i);
                if (IsBinaryValue(value, Values.IsQuoted(i)))
                    field->SetValue(BinaryValue(value));
                else if (Values.IsNull(i))
                    field->SetValue(QVariant());
                else if (field->DataType() == ftFloat)
                    field->SetValue(value.toDouble());
                else
                    field->SetValue(value.toString());
            }
            FDataSet.Post();
        } catch (...) {
            FDataSet.Cancel();
            throw;
        }
    }

private:
    TDataSet& FDataSet;
};

// One statement per row for a caller that runs it: text, Null, or the
// bytes of a binary literal; never a number, the column's affinity decides.
class TTextImportDestSQL : public TTextImportDest {
public:
    TTextImportDestSQL(const QString& TableName, const TTextImporter::TSQLCallback& Callback)
        : FTableName(TableName), FOnCallback(Callback) {}

    void AppendRecord(const QStringList& FieldNames, const TTextRow& Values) override {
        if (FFieldNames != FieldNames) {
            FFieldNames = FieldNames;
            QStringList fields;
            for (const QString& name : FieldNames) fields << QuoteIdentifier(name);
            FSQL = InsertSQL(QuoteObject(FTableName), fields);
        }
        TParams params;
        for (int i = 0; i < FieldNames.size(); ++i) {
            if (i >= Values.Count() || Values.IsNull(i))
                params.Add(QString(), ftString).Bound = true;
            else if (IsBinaryValue(Values.Value(i), Values.IsQuoted(i)))
                params.Add(QString(), ftBlob, BinaryValue(Values.Value(i)));
            else
                params.Add(QString(), ftString, Values.Value(i).toString());
        }
        if (FOnCallback) FOnCallback(FSQL, params);
    }

private:
    QString FTableName;
    TTextImporter::TSQLCallback FOnCallback;
    QStringList FFieldNames;
    QString FSQL;
};

// Rows into a table through one prepared insert, bound straight from the
// row's characters.
class TTextImportDestTable : public TTextImportDest {
public:
    TTextImportDestTable(TDLSQLiteDatabase& Database, const QString& TableName, const QStringList& Columns)
        : FDatabase(Database) {
        QStringList fields;
        for (const QString& name : Columns) fields << QuoteSQLName(name);
        FInsert = std::make_unique<TPreparedStatement>(Database, InsertSQL(QuoteObject(TableName), fields));
        FColumnCount = static_cast<int>(Columns.size());
        FUtf8File = Database.Unicode() && Database.GetEncoding() == 65001;
        FSpans.resize(Columns.size());
    }

    // Text goes in the file's own encoding where that is UTF-8: made here
    // for the whole row in one buffer, it spares the engine a conversion
    // and an allocation per value.
    void AppendRecord(const QStringList&, const TTextRow& Values) override {
        TSQLite3Driver& drv = *SQLite3Driver;
        sqlite3_stmt* stmt = FInsert->Handle();
        const int count = std::min(FColumnCount, Values.Count());
        if (FUtf8File) {
            qsizetype room = 0;
            for (int i = 0; i < count; ++i) room += FEncoder.requiredSpace(Values.Value(i).size());
            if (FUtf8.size() < room) FUtf8.resize(room);
            char* const begin = FUtf8.data();
            char* out = begin;
            for (int i = 0; i < count; ++i) {
                char* const start = out;
                if (!Values.IsNull(i)) out = FEncoder.appendToBuffer(out, Values.Value(i));
                FSpans[static_cast<size_t>(i)] = {start - begin, out - start};
            }
        }
        for (int i = 0; i < FColumnCount; ++i) {
            int rc;
            if (i >= count || Values.IsNull(i)) {
                rc = drv.sqlite3_bind_null(stmt, i + 1);
            } else if (const QStringView value = Values.Value(i); IsBinaryValue(value, Values.IsQuoted(i))) {
                const QByteArray bytes = BinaryValue(value);
                rc = drv.sqlite3_bind_blob(stmt, i + 1, bytes.constData(), static_cast<int>(bytes.size()),
                                           SQLITE_TRANSIENT);
            } else if (FUtf8File) {
                // The buffer holds still until the step.
                const auto [start, length] = FSpans[static_cast<size_t>(i)];
                rc = drv.sqlite3_bind_text(stmt, i + 1, FUtf8.constData() + start, static_cast<int>(length),
                                           SQLITE_STATIC);
            } else {
                rc = drv.sqlite3_bind_text16(stmt, i + 1, value.utf16(), static_cast<int>(value.size() * 2),
                                             SQLITE_STATIC);
            }
            if (rc != SQLITE_OK) FDatabase.SQLiteCheck(rc, FInsert->SQL());
        }
        try {
            FInsert->Step();
            FInsert->Reset();
        } catch (...) {
            // Errors such as a full disk end the transaction itself.
            FBroken = !FDatabase.GetInTransaction();
            throw;
        }
    }

    bool Broken() const override { return FBroken; }

private:
    TDLSQLiteDatabase& FDatabase;
    std::unique_ptr<TPreparedStatement> FInsert;
    int FColumnCount = 0;
    bool FBroken = false;
    bool FUtf8File = false;
    QStringEncoder FEncoder{QStringEncoder::Utf8, QStringConverter::Flag::Stateless};
    QByteArray FUtf8;
    std::vector<std::pair<qsizetype, qsizetype>> FSpans;  // per column: offset and length in FUtf8
};

QString LineMessage(qint64 Line, const QString& Message) {
    return QStringLiteral("Line %1: %2").arg(Line).arg(Message);
}

// The exception again with "Line %d: " ahead of its message.
[[noreturn]] void RethrowAtLine(qint64 Line) {
    try {
        throw;
    } catch (ETextDecodeError&) {
        throw;  // names its line itself
    } catch (ECustomException& e) {
        e.setMessage(LineMessage(Line, e.message()));
        throw;
    } catch (const std::exception& e) {
        throw ECustomException(LineMessage(Line, QString::fromUtf8(e.what())));
    }
}

QString FieldName(const TTextRow& Row, int Index, bool HasFieldNames) {
    // A header without a name for a column: the column still needs one.
    if (!HasFieldNames || Row.Value(Index).isEmpty()) return QStringLiteral("Field_%1").arg(Index + 1);
    return Row.Value(Index).toString();
}

void CheckDuplicateNames(const std::vector<TFieldInfo>& Infos) {
    for (size_t i = 0; i < Infos.size(); ++i)
        for (size_t j = 0; j < i; ++j)
            if (Infos[i].FieldName.compare(Infos[j].FieldName, Qt::CaseInsensitive) == 0)
                throw ECustomException(
                    QStringLiteral("Error: duplicate field name: '%1'").arg(Infos[i].FieldName));
}

bool SeekStart(QIODevice& Stream) {
    if (!Stream.seek(0)) throw ECustomException(QStringLiteral("Cannot read the text from its start."));
    return true;
}

}  // namespace

// ---------------------------------------------------------------------------
// Type detection

void TTextImporter::TestDataType(QStringView Value, TFieldInfo& Info, bool Quoted) {
    if (Value.size() > Info.MaxLength) Info.MaxLength = static_cast<int>(Value.size());
    if (Value.isEmpty()) return;  // empty values prune nothing
    TFieldTypes& types = Info.FieldTypes;
    if (IsBinaryValue(Value, Quoted)) {
        types = {ftBlob};
    } else {
        if (types.Contains(ftBoolean) && !IsBooleanText(Value)) types.Exclude(ftBoolean);
        if (types.Contains(ftFloat) && !IsFloatText(Value)) types.Exclude(ftFloat);
        if (types.Contains(ftWideString) && HasLineBreakOrZero(Value)) types.Exclude(ftWideString);
        if (types.Contains(ftLargeint) && !IsLargeintText(Value)) types.Exclude(ftLargeint);
    }
    // Codes such as "007" (or "-007") stay text, while "0.5" stays a number.
    const qsizetype sign = Value[0] == u'-' || Value[0] == u'+' ? 1 : 0;
    if (Value.size() > sign + 1 && Value[sign] == u'0' && !Value.contains(u'.')) {
        types.Exclude(ftFloat);
        types.Exclude(ftLargeint);
    }
}

TImportField TTextImporter::ChooseField(const TFieldInfo& Info) {
    const TFieldTypes& t = Info.FieldTypes;
    TImportField f{Info.FieldName, ftUnknown, 0};
    // The first row that matches decides: so a column of nothing but empty
    // values is text of 50, and booleans outrank integers, integers floats,
    // floats text.
    if (t.Contains(ftWideString) && Info.MaxLength == 0)
        f.DataType = ftWideString, f.Size = 50;
    else if (t.Contains(ftString) && Info.MaxLength == 0)
        f.DataType = ftString, f.Size = 50;
    else if (t.Contains(ftBoolean))
        f.DataType = ftBoolean;
    else if (t.Contains(ftLargeint))
        f.DataType = ftLargeint;
    else if (t.Contains(ftFloat))
        f.DataType = ftFloat;
    else if (t.Contains(ftWideString))
        f.DataType = ftWideString, f.Size = Info.MaxLength;
    else if (t.Contains(ftString))
        f.DataType = ftString, f.Size = Info.MaxLength;
    else if (t.Contains(ftBlob))
        f.DataType = ftBlob;
    else if (t.Contains(ftWideMemo))
        f.DataType = ftWideMemo;
    else
        f.DataType = ftMemo;
    return f;
}

void TTextImporter::CreateStaticFields(TDataSet& DataSet, const std::vector<TFieldInfo>& FieldInfos) {
    TControlsDisabled quiet(DataSet);
    DataSet.Close();
    DataSet.FieldDefs().Clear();
    DataSet.Fields().Clear();
    for (const TFieldInfo& info : FieldInfos) {
        if (DataSet.FindField(info.FieldName))
            throw ECustomException(QStringLiteral("Error: duplicate field name: '%1'").arg(info.FieldName));
        const TImportField f = ChooseField(info);
        if (f.DataType == ftUnknown)
            throw ECustomException(QStringLiteral("Could not detect field type for ") + info.FieldName);
        TField& field = DataSet.Fields().Add(
            std::make_unique<TField>(&DataSet, f.Name, f.DataType, f.Size, DataSet.Fields().Count()));
        field.FFieldKind = fkData;
    }
}

std::vector<TFieldInfo> TTextImporter::ScanFields(QIODevice& Stream, bool AutoDetect, char16_t Delimiter,
                                                  const TEncoding& Encoding, bool HasFieldNames) {
    if (Canceled()) return {};
    SeekStart(Stream);
    const std::unique_ptr<TTextParser> parser = CreateTextParser(Stream, Encoding, Delimiter, FQuoteChar);
    parser->SkipLines(FSkipLines);
    TTextRow row;
    qint64 counter = 0;
    try {
        parser->ReadRow(row);
    } catch (...) {
        RethrowAtLine(row.Line());
    }
    if (HasFieldNames) ++counter;
    const TFieldTypes initial = AutoDetect
                                    ? TFieldTypes{ftBoolean, ftFloat, ftWideString, ftLargeint, ftWideMemo}
                                    : TFieldTypes{ftWideMemo};
    std::vector<TFieldInfo> infos;
    for (int i = 0; i < row.Count(); ++i) infos.push_back({FieldName(row, i, HasFieldNames), initial, 0});
    if (!AutoDetect || infos.empty()) return infos;

    const qint64 limit = FRowLimit > 0 ? FRowLimit + counter : 0;
    do {
        if (counter > 0) {
            try {
                parser->ReadRow(row);
            } catch (const ETextDecodeError&) {
                throw;  // nothing behind such bytes can be read
            } catch (...) {
                // The import reads the same row again and decides then.
                if (!FIgnoreErrors) RethrowAtLine(row.Line());
                row.Clear();
            }
        }
        ++counter;
        const int count = std::min(static_cast<int>(infos.size()), row.Count());
        for (int i = 0; i < count; ++i)
            TestDataType(row.Value(i), infos[static_cast<size_t>(i)], row.IsQuoted(i));
        if (counter % kProgressRows == 0 && FOnProgress) {
            bool canceled = Canceled();
            FOnProgress(QStringLiteral("Detecting fields, %1 lines read").arg(counter), canceled);
            if (canceled) Cancel();
        }
        if (Canceled()) return {};
    } while (!parser->Eof() && (limit == 0 || counter < limit));
    return infos;
}

void TTextImporter::DetectFields(TDataSet& DataSet, QIODevice& Stream, bool AutoDetect, char16_t Delimiter,
                                 const TEncoding& Encoding, bool HasFieldNames) {
    const std::vector<TFieldInfo> infos = ScanFields(Stream, AutoDetect, Delimiter, Encoding, HasFieldNames);
    if (Canceled()) return;
    CreateStaticFields(DataSet, infos);
}

std::vector<TImportField> TTextImporter::DetectFieldList(QIODevice& Stream, bool AutoDetect,
                                                         char16_t Delimiter, const TEncoding& Encoding,
                                                         bool HasFieldNames) {
    const std::vector<TFieldInfo> infos = ScanFields(Stream, AutoDetect, Delimiter, Encoding, HasFieldNames);
    CheckDuplicateNames(infos);
    std::vector<TImportField> result;
    for (const TFieldInfo& info : infos) result.push_back(ChooseField(info));
    return result;
}

// ---------------------------------------------------------------------------
// The import loop

namespace {

struct TImportRun {
    TTextImporter& Importer;
    TTextImportDest& Dest;
    QStringList& FieldNames;
    TTextImportResult& Result;
};

// Rows from the start of the stream into Dest. With SkipFirstRow the first
// row is a header, whose names replace FieldNames when TakeHeaderNames.
void InternalImport(TImportRun Run, QIODevice& Stream, char16_t Delimiter, const TEncoding& Encoding,
                    bool SkipFirstRow, bool TakeHeaderNames) {
    TTextImporter& im = Run.Importer;
    if (im.Canceled()) return;
    SeekStart(Stream);
    const std::unique_ptr<TTextParser> parser = CreateTextParser(Stream, Encoding, Delimiter, im.FQuoteChar);
    parser->SkipLines(im.FSkipLines);
    TTextRow row;
    if (SkipFirstRow) {
        try {
            parser->ReadRow(row);
            if (TakeHeaderNames) {
                Run.FieldNames.clear();
                for (int i = 0; i < row.Count(); ++i) Run.FieldNames << FieldName(row, i, true);
            }
        } catch (...) {
            try {
                RethrowAtLine(row.Line());
            } catch (const ETextDecodeError&) {
                throw;
            } catch (const ECustomException& e) {
                if (!im.FIgnoreErrors) throw;
                im.FErrors << e.message();
            }
        }
    }
    const auto progress = [&] {
        if (!im.FOnProgress) return;
        bool canceled = im.Canceled();
        im.FOnProgress(QStringLiteral("%1 rows imported, %2 rows skipped")
                           .arg(Run.Result.RowsImported)
                           .arg(Run.Result.RowsSkipped),
                       canceled);
        if (canceled) im.Cancel();
    };
    qint64 firstShortLine = 0;
    const int columns = static_cast<int>(Run.FieldNames.size());
    while (!im.Canceled() && !parser->Eof()) {
        if (im.FRowLimit > 0 && Run.Result.RowsImported >= im.FRowLimit) break;
        try {
            parser->ReadRow(row);
            if (!row.IsEmpty() && !row.IsBlank()) {
                // Values beyond the columns would be lost: only empty ones,
                // such as a trailing delimiter makes, may go.
                for (int i = columns; i < row.Count(); ++i)
                    if (!row.Value(i).isEmpty())
                        throw ECustomException(
                            QStringLiteral("The row has %1 values, but there are %2 columns.")
                                .arg(row.Count())
                                .arg(columns));
                Run.Dest.AppendRecord(Run.FieldNames, row);
                if (row.Count() < columns && Run.Result.ShortRows++ == 0) firstShortLine = row.Line();
                if (++Run.Result.RowsImported % kProgressRows == 0) progress();
            }
        } catch (...) {
            try {
                RethrowAtLine(row.Line());
            } catch (const ETextDecodeError&) {
                throw;
            } catch (const ECustomException& e) {
                if (!im.FIgnoreErrors || Run.Dest.Broken()) throw;
                im.FErrors << e.message();
                ++Run.Result.RowsSkipped;
            }
        }
    }
    if (parser->Eof() && !im.Canceled()) progress();
    if (Run.Result.ShortRows > 0)
        im.FErrors << QStringLiteral(
                          "%1 rows had fewer values than columns, the first on line %2; their other "
                          "columns are NULL.")
                          .arg(Run.Result.ShortRows)
                          .arg(firstShortLine);
}

QStringList VisibleFieldNames(TDataSet& DataSet) {
    QStringList names;
    for (int i = 0; i < DataSet.Fields().Count(); ++i)
        if (DataSet.Fields()[i].FVisible) names << DataSet.Fields()[i].FieldName();
    return names;
}

}  // namespace

void TTextImporter::LoadDataSet(TDataSet& DataSet, QIODevice& Stream, char16_t Delimiter,
                                const TEncoding& Encoding, bool SkipFirstRow) {
    QStringList names = VisibleFieldNames(DataSet);
    TTextImportDestDataSet dest(DataSet);
    TTextImportResult result;
    TControlsDisabled quiet(DataSet);
    InternalImport({*this, dest, names, result}, Stream, Delimiter, Encoding, SkipFirstRow, true);
}

void TTextImporter::SQLImport(TDataSet& DataSet, QIODevice& Stream, const QString& TableName,
                              char16_t Delimiter, const TEncoding& Encoding, bool SkipFirstRow) {
    QStringList names = VisibleFieldNames(DataSet);
    TTextImportDestSQL dest(TableName, FOnSQLCallback);
    TTextImportResult result;
    InternalImport({*this, dest, names, result}, Stream, Delimiter, Encoding, SkipFirstRow, true);
}

// ---------------------------------------------------------------------------
// Into a table

namespace {

// The file's first row: its names with a header, else as many columns.
TTextRow FirstRow(TTextImporter& Importer, QIODevice& Stream, char16_t Delimiter, const TEncoding& Encoding) {
    SeekStart(Stream);
    const std::unique_ptr<TTextParser> parser =
        CreateTextParser(Stream, Encoding, Delimiter, Importer.FQuoteChar);
    parser->SkipLines(Importer.FSkipLines);
    TTextRow row;
    try {
        parser->ReadRow(row);
    } catch (...) {
        RethrowAtLine(row.Line());
    }
    return row;
}

[[noreturn]] void ThrowEmpty() {
    throw ECustomException(QStringLiteral("The file holds no rows to import."));
}

// The table's columns for the file's, by header name (case-blind) or, with
// no header, by position.
QStringList MapColumns(TDLSQLiteDatabase& Database, const QString& TableName, const TTextRow& First,
                       bool HasFieldNames) {
    QStringList tableColumns;
    Database.GetFieldNamesFromTable(TableName, tableColumns);
    QStringList result;
    if (!HasFieldNames) {
        if (First.Count() > tableColumns.size())
            throw ECustomException(QStringLiteral("The file has %1 columns, but the table %2 has only %3.")
                                       .arg(First.Count())
                                       .arg(TableName)
                                       .arg(tableColumns.size()));
        return tableColumns.mid(0, First.Count());
    }
    for (int i = 0; i < First.Count(); ++i) {
        const QString name = FieldName(First, i, true);
        const auto found = std::find_if(tableColumns.begin(), tableColumns.end(), [&](const QString& c) {
            return c.compare(name, Qt::CaseInsensitive) == 0;
        });
        if (found == tableColumns.end())
            throw ECustomException(
                QStringLiteral(
                    "The table %1 has no column named \"%2\" for the file's column %3; its columns are: %4.")
                    .arg(TableName, name)
                    .arg(i + 1)
                    .arg(tableColumns.join(QStringLiteral(", "))));
        if (result.contains(*found, Qt::CaseInsensitive))
            throw ECustomException(QStringLiteral("Error: duplicate field name: '%1'").arg(name));
        result << *found;
    }
    return result;
}

}  // namespace

TTextImportResult TTextImporter::ImportIntoTable(TDLSQLiteDatabase& Database, QIODevice& Stream,
                                                 const TTextImportTarget& Target, char16_t Delimiter,
                                                 const TEncoding& Encoding, bool HasFieldNames) {
    TTextImportResult result;
    const QString& table = Target.TableName;
    if (table.trimmed().isEmpty()) throw ECustomException(QStringLiteral("No table named for the import."));
    const bool exists = Database.TableExists(table);
    if (Target.NewTable && exists)
        throw ECustomException(QStringLiteral("A table named %1 exists already.").arg(table));
    if (!Target.NewTable && !exists) throw ECustomException(QStringLiteral("No table named %1").arg(table));

    std::vector<TImportField> fields = Target.Fields;
    QStringList columns;
    if (Target.NewTable) {
        if (fields.empty())
            fields = DetectFieldList(Stream, Target.AutoDetectTypes, Delimiter, Encoding, HasFieldNames);
        if (Canceled()) {
            result.Canceled = true;
            return result;
        }
        if (fields.empty()) ThrowEmpty();
        for (const TImportField& f : fields) columns << f.Name;
    } else {
        const TTextRow first = FirstRow(*this, Stream, Delimiter, Encoding);
        if (first.IsEmpty()) ThrowEmpty();
        columns = MapColumns(Database, table, first, HasFieldNames);
    }

    // A failure or a stop undoes all: back to the savepoint inside a
    // transaction that was open before, or the whole transaction it began.
    const bool inTransaction = Database.GetInTransaction();
    Database.Execute(QStringLiteral("savepoint ") + kSavepoint);
    const auto undo = [&] {
        if (!Database.GetInTransaction()) return;
        if (inTransaction) {
            Database.Execute(QStringLiteral("rollback to savepoint ") + kSavepoint);
            Database.Execute(QStringLiteral("release savepoint ") + kSavepoint);
        } else {
            Database.Rollback();
        }
    };
    try {
        if (Target.NewTable) {
            TDLTableDef def(table);
            for (const TImportField& f : fields)
                def.AddField(f.Name, Database.DataTypeToSQLStr(f.DataType, f.Size, 0));
            Database.Execute(def.GetCreateSQL(true, false, false));
            result.TableCreated = true;
        } else if (Target.DeleteExistingData) {
            Database.Execute(QStringLiteral("delete from ") + QuoteObject(table));
        }
        {
            TTextImportDestTable dest(Database, table, columns);
            InternalImport({*this, dest, columns, result}, Stream, Delimiter, Encoding, HasFieldNames, false);
        }
        if (Canceled()) {
            undo();
            result.Canceled = true;
            result.TableCreated = false;
            return result;
        }
        Database.Execute(QStringLiteral("release savepoint ") + kSavepoint);
    } catch (...) {
        try {
            undo();
        } catch (...) {  // the first failure is the one to report
        }
        throw;
    }
    if (result.RowsImported == 0 && result.RowsSkipped == 0)
        FErrors << (HasFieldNames ? QStringLiteral("No rows imported: the file holds only its header line.")
                                  : QStringLiteral("No rows imported: the file holds only blank lines."));
    return result;
}

// ---------------------------------------------------------------------------

void TextStreamToMemDataSet(TDLMemDataSet& DataSet, QIODevice& Stream, const TEncoding& Encoding,
                            char16_t Delimiter) {
    DataSet.Close();
    try {
        TTextImporter importer;
        DataSet.FieldDefs().Clear();
        DataSet.Fields().Clear();
        importer.DetectFields(DataSet, Stream, true, Delimiter, Encoding, true);
        DataSet.Open();
        importer.LoadDataSet(DataSet, Stream, Delimiter, Encoding, true);
        DataSet.First();
    } catch (...) {
        if (DataSet.Active()) DataSet.Cancel();
        throw;
    }
}

TTableGuess GuessTable(const QString& FileName, const QStringList& TableNames) {
    // A dot would read as a database name before the table's.
    QString base = QFileInfo(FileName).completeBaseName();
    base.replace(u'.', u'_');
    for (const QString& name : TableNames)
        if (SameObject(name, base)) return {name, true};
    return {base, false};
}

char16_t DetectDelimiter(const QString& FileName, const TEncoding& Encoding) {
    QFile file(FileName);
    if (!file.open(QIODevice::ReadOnly)) return u',';
    const char16_t found = FindDelimiter(file, Encoding);
    return found ? found : u',';
}

bool DetectFirstLine(const QString& FileName, const TEncoding& Encoding, char16_t Delimiter,
                     char16_t QuoteChar, int SkipLines) {
    QFile file(FileName);
    if (!file.open(QIODevice::ReadOnly)) return true;
    try {
        TTextImporter importer;
        importer.FQuoteChar = QuoteChar;
        importer.FSkipLines = SkipLines;
        importer.FIgnoreErrors = true;
        importer.FRowLimit = 255;
        const std::vector<TFieldInfo> below = importer.ScanFields(file, true, Delimiter, Encoding, true);
        if (below.empty()) return true;
        const TTextRow first = FirstRow(importer, file, Delimiter, Encoding);
        // A vote per column whose values below share a type the first
        // row's value lacks (a name over numbers), and against where it
        // has it too.
        int votes = 0;
        for (size_t i = 0; i < below.size(); ++i) {
            TFieldInfo alone{QString(), {ftBoolean, ftFloat, ftLargeint}, 0};
            TTextImporter::TestDataType(first.Value(static_cast<int>(i)), alone,
                                        first.IsQuoted(static_cast<int>(i)));
            const TFieldTypes& rest = below[i].FieldTypes;
            const bool typed =
                rest.Contains(ftBoolean) || rest.Contains(ftFloat) || rest.Contains(ftLargeint);
            if (!typed || below[i].MaxLength == 0) continue;
            const bool same = (rest.Contains(ftBoolean) && alone.FieldTypes.Contains(ftBoolean)) ||
                              (rest.Contains(ftFloat) && alone.FieldTypes.Contains(ftFloat)) ||
                              (rest.Contains(ftLargeint) && alone.FieldTypes.Contains(ftLargeint));
            votes += same ? -1 : 1;
        }
        if (votes != 0) return votes > 0;
        // Text over text: names are filled and differ from each other.
        for (int i = 0; i < first.Count(); ++i) {
            if (first.Value(i).isEmpty()) return false;
            for (int j = 0; j < i; ++j)
                if (first.Value(i).compare(first.Value(j), Qt::CaseInsensitive) == 0) return false;
        }
        return true;
    } catch (...) {
        return true;
    }
}

}  // namespace brindle
