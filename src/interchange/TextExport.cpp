#include "TextExport.h"

#include "CSVWriter.h"

#include "data/DLDataSet.h"
#include "data/DLRecData.h"
#include "data/DLSQLDataSet.h"
#include "engine/DLTools.h"
#include "engine/Exceptions.h"

#include <QBuffer>
#include <QSaveFile>

namespace brindle {

namespace {

// The spread of progress reports: no rhythm the eye would follow.
constexpr int kProgressRecords = 67;

constexpr TFieldType kCSVPrintable[] = {
    ftString,    ftSmallint,   ftInteger,  ftWord,    ftBoolean,   ftFloat,         ftCurrency,
    ftDate,      ftTime,       ftDateTime, ftAutoInc, ftBlob,      ftMemo,          ftGraphic,
    ftFixedChar, ftWideString, ftLargeint, ftGuid,    ftTimeStamp, ftFixedWideChar, ftWideMemo};

bool IsPrintable(TFieldType Type, bool Blobs) {
    if (!Blobs && (Type == ftBlob || Type == ftGraphic)) return false;
    return std::find(std::begin(kCSVPrintable), std::end(kCSVPrintable), Type) != std::end(kCSVPrintable);
}

// A value the row left out (a BLOB beyond the cache) is read now.
void RequestFullData(TDataSet& DataSet, const TDLRecData& Rec, const TField& Field) {
    const int index = Field.Index();
    if (Rec.GetHasData(index) && !Rec.GetFullData(index)) DataSet.LoadField(Rec, Field);
}

// A SQLite row's value as it is stored, rather than as the field's type
// would read it: a column declared INTEGER may hold text, which must not
// become 0.
const TDLSQLiteRecData* StoredRow(const TDLRecData* Rec) {
    return dynamic_cast<const TDLSQLiteRecData*>(Rec);
}

QString QuotedFileName(const QString& FileName) {
    return QStringLiteral("\"%1\"").arg(FileName);
}

}  // namespace

// ---------------------------------------------------------------------------
// TDataSetExporter

TDataSetExporter::TDataSetExporter(TDataSet* DataSet) : FDataSet(DataSet) {}

TDataSetExporter::~TDataSetExporter() = default;

void TDataSetExporter::SetFieldNames(const QStringList* Names) {
    FFieldNames = Names ? *Names : QStringList();
}

void TDataSetExporter::Export(const QString& FileName) {
    QSaveFile file(FileName);
    if (!file.open(QIODevice::WriteOnly))
        throw ECustomException(
            QStringLiteral("Cannot create the file %1: %2").arg(QuotedFileName(FileName), file.errorString()),
            QStringLiteral("FileName"), FileName);
    Export(static_cast<QIODevice&>(file));
    if (Canceled()) return;  // the file is dropped unwritten
    if (!file.commit())
        throw ECustomException(
            QStringLiteral("Cannot write the file %1: %2").arg(QuotedFileName(FileName), file.errorString()),
            QStringLiteral("FileName"), FileName);
}

void TDataSetExporter::Export(QByteArray& Bytes) {
    Bytes.clear();
    QBuffer buffer(&Bytes);
    buffer.open(QIODevice::WriteOnly);
    Export(static_cast<QIODevice&>(buffer));
}

void TDataSetExporter::Export(QIODevice& Stream) {
    if (!FDataSet) return;
    InitFieldList();
    InitializeExport(Stream);
    ExportHeader(Stream);
    {
        TControlsDisabled quiet(*FDataSet);
        DataSetFirst();
        while (!DataSetEof() && !Canceled()) {
            ExportRecord(Stream, FRecNo);
            DataSetNext();
            if (FRecNo % kProgressRecords == 0) DoOnProgress();
        }
        DoOnProgress();
    }
    FinalizeExport(Stream);
}

void TDataSetExporter::InitFieldList() {
    if (!FFieldNames.isEmpty()) return;
    // Calculated fields and hidden ones (the row identity) stay out.
    for (int i = 0; i < FDataSet->Fields().Count(); ++i) {
        const TField& f = FDataSet->Fields()[i];
        if (f.FFieldKind == fkData && f.FVisible) FFieldNames << f.FieldName();
    }
}

void TDataSetExporter::InitializeExport(QIODevice&) {}
void TDataSetExporter::ExportHeader(QIODevice&) {}
void TDataSetExporter::ExportRecord(QIODevice&, int) {}
void TDataSetExporter::FinalizeExport(QIODevice&) {}

// Chosen records are reached by Next where the step is one, which is cheap
// on a cursor, and by record number otherwise.
void TDataSetExporter::DataSetFirst() {
    FRecNo = 0;
    FCurrent = 0;
    FInPlace = nullptr;
    auto* dl = dynamic_cast<TDLDataSet*>(FDataSet);
    // In place only where it sees what the cursor would: every row, none
    // being edited, no filter in memory.
    if (dl && FRecordNumbers.empty() && FBookmarks.empty() && dl->State() == dsBrowse && !dl->Filtered() &&
        !dl->OnFilterRecord) {
        FInPlace = dl;
        FRecord = dl->RecordAt(0);
        return;
    }
    if (!FRecordNumbers.empty())
        FDataSet->SetRecNo(FRecordNumbers.front());
    else if (!FBookmarks.empty())
        FDataSet->GotoBookmark(FBookmarks.front());
    else
        FDataSet->First();
    FRecord = FDataSet->ActiveRecData();
}

void TDataSetExporter::DataSetNext() {
    ++FRecNo;
    if (FInPlace) {
        FRecord = FInPlace->RecordAt(FRecNo);
        // A statement stopped mid-way ends the rows short: a stop it is.
        auto* sql = dynamic_cast<TDLSQLDataSet*>(FInPlace);
        if (sql && sql->Aborted()) Cancel();
        return;
    }
    if (!FRecordNumbers.empty()) {
        if (++FCurrent >= FRecordNumbers.size()) return;
        const int wanted = FRecordNumbers[FCurrent];
        if (wanted - FDataSet->GetRecNo() == 1)
            FDataSet->Next();
        else
            FDataSet->SetRecNo(wanted);
    } else if (!FBookmarks.empty()) {
        if (++FCurrent < FBookmarks.size()) FDataSet->GotoBookmark(FBookmarks[FCurrent]);
    } else {
        FDataSet->Next();
    }
    FRecord = FDataSet->ActiveRecData();
}

bool TDataSetExporter::DataSetEof() const {
    if (FInPlace) return FRecord == nullptr;
    if (!FRecordNumbers.empty()) return FCurrent >= FRecordNumbers.size();
    if (!FBookmarks.empty()) return FCurrent >= FBookmarks.size();
    return FDataSet->Eof();
}

void TDataSetExporter::DoOnProgress() {
    if (FOnProgress) FOnProgress(FRecNo);
}

// ---------------------------------------------------------------------------
// TTextExporter

TTextExporter::TTextExporter(TDataSet* DataSet) : TDataSetExporter(DataSet) {}

TTextExporter::~TTextExporter() = default;

void TTextExporter::InitializeExport(QIODevice& Stream) {
    FWriter = std::make_unique<TCSVWriter>(Stream, FEncoding, FDelimiter);
    FFields.clear();
    for (const QString& name : FFieldNames) FFields.push_back(FDataSet->FindField(name));
}

void TTextExporter::FinalizeExport(QIODevice&) {
    FWriter->Flush();
    FWriter.reset();
}

void TTextExporter::WritePreamble() {
    FWriter->WritePreamble();
}

void TTextExporter::WriteString(QStringView Value) {
    FWriter->Raw(Value);
}

// ---------------------------------------------------------------------------
// TCSVExporter

void TCSVExporter::ExportHeader(QIODevice&) {
    if (FWriteEncodingPreamble) WritePreamble();
    for (size_t i = 0; i < FFields.size(); ++i) {
        if (i > 0) FWriter->Separator();
        FWriter->Text(FFields[i] ? FFields[i]->DisplayName() : FFieldNames[static_cast<int>(i)]);
    }
    FWriter->EndLine();
}

void TCSVExporter::ExportRecord(QIODevice&, int) {
    TCSVWriter& w = *FWriter;
    const TDLRecData* rec = FRecord;
    const TDLSQLiteRecData* stored = StoredRow(rec);
    for (size_t i = 0; i < FFields.size(); ++i) {
        if (i > 0) w.Separator();
        const TField* field = FFields[i];
        // A field that is not there, or of a kind text cannot show, is left
        // empty: it reads back as NULL.
        if (!field || !rec || !IsPrintable(field->DataType(), true)) continue;
        if (field->IsBlob()) RequestFullData(*FDataSet, *rec, *field);
        if (stored) {
            const int index = field->Index();
            if (stored->GetStorageClass(index) == scBlob && !FIncludeBlobs)
                w.Text(u"(BLOB)");
            else
                w.StoredValue(*stored, index);
            continue;
        }
        const QVariant value = GetFieldVariant(*rec, *field);
        if (!value.isValid() || value.isNull()) continue;  // only NULL writes nothing at all
        switch (field->DataType()) {
            case ftBlob:
            case ftGraphic:
                if (FIncludeBlobs)
                    w.Bytes(value.toByteArray());
                else
                    w.Text(u"(BLOB)");
                break;
            case ftGuid:
                w.Text(value.typeId() == QMetaType::QUuid ? GUIDToString(value.toUuid()) : value.toString());
                break;
            case ftFloat:
                w.Float(value.toDouble());
                break;
            default:
                w.Text(value.toString());
                break;
        }
    }
    w.EndLine();
}

// ---------------------------------------------------------------------------
// TTSVExporter

void TTSVExporter::WriteValue(const QString& Value) {
    if (Value.contains(u'\t') || Value.contains(u'\r') || Value.contains(u'\n')) {
        WriteString(u"[INVALID_DATA]");
        FHasTabsOrCRLF = true;
    } else {
        WriteString(Value);
    }
}

void TTSVExporter::ExportHeader(QIODevice&) {
    FHasTabsOrCRLF = false;
    FHasBlobs = false;
    if (FWriteEncodingPreamble) WritePreamble();
    for (size_t i = 0; i < FFields.size(); ++i) {
        if (i > 0) WriteString(u"\t");
        WriteValue(FFields[i] ? FFields[i]->DisplayName() : FFieldNames[static_cast<int>(i)]);
    }
    FWriter->EndLine();
}

void TTSVExporter::ExportRecord(QIODevice&, int) {
    const TDLSQLiteRecData* stored = StoredRow(FRecord);
    for (size_t i = 0; i < FFields.size(); ++i) {
        if (i > 0) WriteString(u"\t");
        const TField* field = FFields[i];
        if (!field || !FRecord) continue;
        bool printable = IsPrintable(field->DataType(), false);
        QString text;
        if (stored) {
            // By storage class: text in an INTEGER column stays text.
            const int index = field->Index();
            const QByteArray& raw = stored->GetRawData(index);
            switch (stored->GetStorageClass(index)) {
                case scInteger:
                    text = QString::number(RawToInt64(raw));
                    break;
                case scFloat:
                    text = FloatToText(RawToFloat(raw));
                    break;
                case scText:
                    text = RawToString(raw);
                    break;
                case scBlobText:
                    text = QString::fromUtf8(raw);
                    printable = true;
                    break;
                case scBlob:
                    printable = false;
                    break;
                default:
                    break;
            }
        } else if (printable) {
            const QVariant value = GetFieldVariant(*FRecord, *field);
            text = field->DataType() == ftFloat && value.isValid() ? FloatToText(value.toDouble())
                                                                   : value.toString();
        }
        if (printable) {
            WriteValue(text);
        } else {
            WriteString(u"[BLOB_DATA]");
            FHasBlobs = true;
        }
    }
    FWriter->EndLine();
}

void TTSVExporter::FinalizeExport(QIODevice& Stream) {
    if (FErrorLog) {
        if (FHasTabsOrCRLF)
            FErrorLog->append(
                QStringLiteral("Columns containing TAB, CR or LF characters have been saved as "
                               "[INVALID_DATA]"));
        if (FHasBlobs)
            FErrorLog->append(QStringLiteral("Columns containing BLOB data have been saved as [BLOB_DATA]"));
    }
    TTextExporter::FinalizeExport(Stream);
}

}  // namespace brindle
