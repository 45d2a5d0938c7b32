#include "DataSetModel.h"

#include "data/DLSQLDataSet.h"
#include "engine/DLDateTime.h"
#include "engine/Exceptions.h"

#include <QBrush>
#include <QLocale>
#include <QPalette>
#include <QUuid>

namespace brindle {

namespace {

// The longest text a cell shows; a memo is cut there.
constexpr int kMaxCellText = 1000;

}  // namespace

TDataSetModel::TDataSetModel(QObject* Parent) : QAbstractTableModel(Parent) {}

TDataSetModel::~TDataSetModel() {
    if (FDataSet) FDataSet->RemoveListener(this);
}

void TDataSetModel::SetDataSet(TDLSQLDataSet* DataSet) {
    if (FDataSet == DataSet) return;
    if (FDataSet) FDataSet->RemoveListener(this);
    FDataSet = DataSet;
    if (FDataSet) FDataSet->AddListener(this);
    Reload(true);
}

void TDataSetModel::Reload(bool Hard) {
    // The rows already read; more come by fetchMore.
    const int rows = FDataSet && FDataSet->Active() ? (FDataSet->EofReached() ? FDataSet->GetRecordCount()
                                                                               : FDataSet->GetLastRecNo())
                                                    : 0;
    std::vector<int> columns;
    if (FDataSet && FDataSet->Active())
        for (int i = 0; i < FDataSet->Fields().Count(); ++i)
            if (FDataSet->Fields()[i].FVisible) columns.push_back(i);
    QStringList names;
    for (int i : columns) names << FDataSet->Fields()[i].FieldName();
    if (Hard || columns != FColumns || names != FColumnNames) {
        beginResetModel();
        FRows = rows;
        FColumns = std::move(columns);
        FColumnNames = std::move(names);
        endResetModel();
        return;
    }
    // The same columns: the cursor moved, rows were read, refreshed or
    // filtered. Views keep their columns, widths and place.
    if (rows > FRows) {
        beginInsertRows(QModelIndex(), FRows, rows - 1);
        FRows = rows;
        endInsertRows();
    } else if (rows < FRows) {
        beginRemoveRows(QModelIndex(), rows, FRows - 1);
        FRows = rows;
        endRemoveRows();
    }
    if (FRows > 0 && !FColumns.empty())
        emit dataChanged(index(0, 0), index(FRows - 1, static_cast<int>(FColumns.size()) - 1));
}

void TDataSetModel::DataEvent(TDataSet&, TDataEvent Event) {
    if (Event == deDataSetChange) Reload(false);
    else if (Event == deLayoutChange) Reload(true);
}

bool TDataSetModel::CountIsExact() const {
    return !FDataSet || !FDataSet->Active() || FDataSet->EofReached();
}

int TDataSetModel::rowCount(const QModelIndex& Parent) const {
    return Parent.isValid() ? 0 : FRows;
}

int TDataSetModel::columnCount(const QModelIndex& Parent) const {
    return Parent.isValid() ? 0 : static_cast<int>(FColumns.size());
}

bool TDataSetModel::canFetchMore(const QModelIndex& Parent) const {
    return !Parent.isValid() && !CountIsExact();
}

void TDataSetModel::fetchMore(const QModelIndex& Parent) {
    if (!canFetchMore(Parent)) return;
    // Reading the row behind the known ones pages the next window in.
    try {
        FDataSet->RecordAt(FRows);
    } catch (const ECustomException&) {
        Reload(true);  // the dataset closed itself; show what is left
        return;
    }
    const int rows = FDataSet->EofReached() ? FDataSet->GetRecordCount() : FDataSet->GetLastRecNo();
    if (rows <= FRows) {
        Reload(false);
        return;
    }
    beginInsertRows(QModelIndex(), FRows, rows - 1);
    FRows = rows;
    endInsertRows();
}

void TDataSetModel::FetchAll() {
    if (CountIsExact()) return;
    try {
        FDataSet->Last();  // announces the change, which reloads the model
    } catch (const ECustomException&) {
        Reload(true);
    }
}

QString TDataSetModel::EditText(const QVariant& Value, TFieldType DataType) {
    if (!Value.isValid()) return QString();
    switch (DataType) {
        case ftDate:
            return DateToString(Value.toDouble());
        case ftTime:
            return TimeToString(Value.toDouble());
        case ftDateTime:
            return DateTimeToString(Value.toDouble());
        case ftCurrency:
        case ftFloat:
            return QString::number(Value.toDouble(), 'g', QLocale::FloatingPointShortest);
        case ftGuid:
            return Value.value<QUuid>().toString(QUuid::WithBraces).toUpper();
        default:
            return Value.toString();
    }
}

QString TDataSetModel::DisplayText(const QVariant& Value, TFieldType DataType) {
    if (!Value.isValid()) return QStringLiteral("(null)");
    if (DataType == ftBlob || DataType == ftGraphic) return QStringLiteral("(BLOB)");
    QString text = EditText(Value, DataType);
    // A memo shows without the blanks around it; its editor has them all.
    if (DataType == ftMemo || DataType == ftWideMemo) text = text.trimmed();
    if (text.size() > kMaxCellText) text = text.left(kMaxCellText) + QStringLiteral("...");
    return text;
}

const TField* TDataSetModel::FieldAt(int Column) const {
    if (!FDataSet || !FDataSet->Active() || Column < 0 || Column >= static_cast<int>(FColumns.size())) return nullptr;
    return &FDataSet->Fields()[FColumns[static_cast<size_t>(Column)]];
}

bool TDataSetModel::Editing() const {
    return FDataSet && (FDataSet->State() == dsEdit || FDataSet->State() == dsInsert);
}

bool TDataSetModel::IsEditedRow(int Row) const {
    return Editing() && FDataSet->State() == dsEdit && FDataSet->GetRecNo() == Row + 1;
}

Qt::ItemFlags TDataSetModel::flags(const QModelIndex& Index) const {
    Qt::ItemFlags result = QAbstractTableModel::flags(Index);
    const TField* field = FieldAt(Index.column());
    if (!field || !FDataSet->GetCanModify() || field->FReadOnly) return result;
    if (IsBinaryType(field->DataType())) return result;
    return result | Qt::ItemIsEditable;
}

QVariant TDataSetModel::ValueFromText(const QString& Text, TFieldType DataType) {
    bool ok = true;
    QVariant value;
    switch (DataType) {
        case ftSmallint:
        case ftInteger:
        case ftWord:
        case ftLargeint:
        case ftAutoInc:
            value = Text.trimmed().toLongLong(&ok);
            if (!ok) throw ECustomException(QStringLiteral("'%1' is not a valid integer value").arg(Text));
            return value;
        case ftFloat:
        case ftCurrency:
        case ftBCD:
        case ftFMTBcd:
            value = Text.trimmed().toDouble(&ok);
            if (!ok) throw ECustomException(QStringLiteral("'%1' is not a valid floating point value").arg(Text));
            return value;
        case ftBoolean: {
            const QString t = Text.trimmed().toLower();
            if (t == u"1" || t == u"true") return true;
            if (t == u"0" || t == u"false") return false;
            throw ECustomException(QStringLiteral("'%1' is not a valid boolean value").arg(Text));
        }
        case ftDate:
        case ftTime:
        case ftDateTime:
            return StringToDateTime(Text.trimmed());
        case ftGuid: {
            const QUuid id(Text.trimmed());
            if (id.isNull() && !Text.trimmed().isEmpty())
                throw ECustomException(QStringLiteral("'%1' is not a valid GUID value").arg(Text));
            return id;
        }
        default:
            return Text;
    }
}

bool TDataSetModel::setData(const QModelIndex& Index, const QVariant& Value, int Role) {
    if (Role != Qt::EditRole || !(flags(Index) & Qt::ItemIsEditable)) return false;
    const TField& field = *FieldAt(Index.column());
    try {
        // A text put back unchanged is no edit: a value the display cannot
        // render exactly (bytes that are not UTF-8) stays as stored.
        if (!IsEditedRow(Index.row()) && Value.toString() == data(Index, Qt::EditRole).toString()) return true;
        const QVariant value = ValueFromText(Value.toString(), field.DataType());
        if (!IsEditedRow(Index.row())) {
            // Another row's pending edit goes first; the cursor then moves.
            if (Editing()) FDataSet->Post();
            FDataSet->SetRecNo(Index.row() + 1);
        }
        FDataSet->Edit();
        FDataSet->SetFieldValue(field, value);
        FDataSet->Post();
    } catch (const ECustomException& e) {
        emit dataChanged(index(Index.row(), 0), index(Index.row(), columnCount() - 1));
        emit PostFailed(e.message());
        return false;
    }
    emit dataChanged(index(Index.row(), 0), index(Index.row(), columnCount() - 1));
    return true;
}

void TDataSetModel::CancelEdit() {
    if (!Editing()) return;
    const int row = FDataSet->GetRecNo() - 1;
    FDataSet->Cancel();
    if (row >= 0) emit dataChanged(index(row, 0), index(row, columnCount() - 1));
}

QVariant TDataSetModel::data(const QModelIndex& Index, int Role) const {
    if (!Index.isValid() || !FDataSet || !FDataSet->Active()) return QVariant();
    if (Index.column() >= static_cast<int>(FColumns.size())) return QVariant();
    if (Role != Qt::DisplayRole && Role != Qt::EditRole && Role != Qt::ForegroundRole &&
        Role != Qt::TextAlignmentRole && Role != Qt::ToolTipRole && Role != ValueRole)
        return QVariant();
    const TField& field = FDataSet->Fields()[FColumns[static_cast<size_t>(Index.column())]];
    if (Role == Qt::TextAlignmentRole) {
        const TFieldType t = field.DataType();
        const bool number = t == ftLargeint || t == ftFloat || t == ftCurrency || t == ftInteger || t == ftSmallint;
        return QVariant::fromValue(Qt::AlignVCenter | (number ? Qt::AlignRight : Qt::AlignLeft));
    }
    QVariant value;
    try {
        // The row being edited shows the user's values, posted or not.
        if (IsEditedRow(Index.row()))
            value = FDataSet->GetFieldValue(field);
        else if (const TDLRecData* rec = FDataSet->RecordAt(Index.row()))
            value = GetFieldVariant(*rec, field);
    } catch (const ECustomException&) {
        return QVariant();
    }
    if (Role == ValueRole) return value;
    // A BLOB the dataset left out of its rows is not known to be null.
    if (!value.isValid() && Role == Qt::DisplayRole && IsBinaryType(field.DataType()) && !FDataSet->FCacheBlobs)
        return QStringLiteral("(BLOB)");
    if (Role == Qt::EditRole) return EditText(value, field.DataType());
    if (Role == Qt::ToolTipRole) {
        if (!value.isValid()) return QStringLiteral("(null)");
        if (IsBinaryType(field.DataType()))
            return QStringLiteral("(BLOB, %1 bytes)").arg(value.toByteArray().size());
        return EditText(value, field.DataType());
    }
    if (Role == Qt::ForegroundRole)
        return value.isValid() ? QVariant() : QVariant(QPalette().brush(QPalette::Disabled, QPalette::Text));
    return DisplayText(value, field.DataType());
}

QVariant TDataSetModel::headerData(int Section, Qt::Orientation Orientation, int Role) const {
    if (Role != Qt::DisplayRole) return QVariant();
    if (Orientation == Qt::Vertical) return Section + 1;
    if (!FDataSet || !FDataSet->Active() || Section < 0 || Section >= static_cast<int>(FColumns.size()))
        return QVariant();
    return FDataSet->Fields()[FColumns[static_cast<size_t>(Section)]].DisplayName();
}

}  // namespace brindle
