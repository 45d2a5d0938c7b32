#include "DataSetModel.h"

#include "data/DLDataSet.h"
#include "engine/Exceptions.h"

#include <QBrush>
#include <QPalette>

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
    Reload();
}

void TDataSetModel::Reload() {
    beginResetModel();
    // The rows already read; more come by fetchMore.
    FRows = FDataSet && FDataSet->Active() ? (FDataSet->EofReached() ? FDataSet->GetRecordCount()
                                                                      : FDataSet->GetLastRecNo())
                                           : 0;
    FColumns.clear();
    if (FDataSet && FDataSet->Active())
        for (int i = 0; i < FDataSet->Fields().Count(); ++i)
            if (FDataSet->Fields()[i].FVisible) FColumns.push_back(i);
    endResetModel();
}

void TDataSetModel::DataEvent(TDataSet&, TDataEvent Event) {
    // Scrolling the cursor changes nothing a view shows by index.
    if (Event == deDataSetChange || Event == deLayoutChange) Reload();
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
        Reload();  // the dataset closed itself; show what is left
        return;
    }
    const int rows = FDataSet->EofReached() ? FDataSet->GetRecordCount() : FDataSet->GetLastRecNo();
    if (rows <= FRows) {
        Reload();
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
        Reload();
    }
}

QString TDataSetModel::DisplayText(const QVariant& Value, TFieldType DataType) {
    if (!Value.isValid()) return QStringLiteral("NULL");
    if (DataType == ftBlob || DataType == ftGraphic)
        return QStringLiteral("(BLOB, %1 bytes)").arg(Value.toByteArray().size());
    QString text = Value.toString();
    if (text.size() > kMaxCellText) text = text.left(kMaxCellText) + QStringLiteral("...");
    return text;
}

QVariant TDataSetModel::data(const QModelIndex& Index, int Role) const {
    if (!Index.isValid() || !FDataSet || !FDataSet->Active()) return QVariant();
    if (Index.column() >= static_cast<int>(FColumns.size())) return QVariant();
    if (Role != Qt::DisplayRole && Role != Qt::ForegroundRole && Role != Qt::TextAlignmentRole) return QVariant();
    const TField& field = FDataSet->Fields()[FColumns[static_cast<size_t>(Index.column())]];
    if (Role == Qt::TextAlignmentRole) {
        const TFieldType t = field.DataType();
        const bool number = t == ftLargeint || t == ftFloat || t == ftCurrency || t == ftInteger || t == ftSmallint;
        return QVariant::fromValue(Qt::AlignVCenter | (number ? Qt::AlignRight : Qt::AlignLeft));
    }
    QVariant value;
    try {
        if (const TDLRecData* rec = FDataSet->RecordAt(Index.row())) value = GetFieldVariant(*rec, field);
    } catch (const ECustomException&) {
        return QVariant();
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
