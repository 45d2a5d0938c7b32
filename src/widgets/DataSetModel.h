// A table model over a SQL dataset for the grid. Rows are read by index
// through the dataset's window, so memory stays the same whatever the size
// of the result; the model grows as the view scrolls on (fetchMore) until
// the end of the result is known.
#pragma once

#include "data/DataSet.h"

#include <QAbstractTableModel>
#include <vector>

namespace brindle {

class TDLSQLDataSet;

class TDataSetModel : public QAbstractTableModel, private IDataSetListener {
    Q_OBJECT

public:
    explicit TDataSetModel(QObject* Parent = nullptr);
    ~TDataSetModel() override;

    // Not owned; the dataset must outlive the model or be detached by
    // SetDataSet(nullptr) first.
    void SetDataSet(TDLSQLDataSet* DataSet);
    TDLSQLDataSet* DataSet() const { return FDataSet; }
    // False while rows may follow those the model has (the count is a
    // lower bound).
    bool CountIsExact() const;
    // Reads on to the end of the result, so that every row has its place
    // (a jump to the last row); the dataset's cursor ends there.
    void FetchAll();

    int rowCount(const QModelIndex& Parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& Parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& Index, int Role = Qt::DisplayRole) const override;
    QVariant headerData(int Section, Qt::Orientation Orientation, int Role = Qt::DisplayRole) const override;
    bool canFetchMore(const QModelIndex& Parent) const override;
    void fetchMore(const QModelIndex& Parent) override;

    // Text a cell shows for a value; "NULL" stands for no value.
    static QString DisplayText(const QVariant& Value, TFieldType DataType);

private:
    void DataEvent(TDataSet& DataSet, TDataEvent Event) override;
    void Reload();

    TDLSQLDataSet* FDataSet = nullptr;  // not owned
    int FRows = 0;
    std::vector<int> FColumns;  // the visible fields' indexes, in order
};

}  // namespace brindle
