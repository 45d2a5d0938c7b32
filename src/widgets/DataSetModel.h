// A table model over a SQL dataset for the grid. Rows are read by index
// through the dataset's window, so memory stays the same whatever the size
// of the result; the model grows as the view scrolls on (fetchMore) until
// the end of the result is known.
#pragma once

#include "data/DataSet.h"

#include <QAbstractTableModel>
#include <QStringList>
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

    // Cells of an editable result take edits: each one is posted at once.
    // A post that fails leaves the row in edit with the user's value shown,
    // reports the engine's message through PostFailed, and returns false.
    Qt::ItemFlags flags(const QModelIndex& Index) const override;
    bool setData(const QModelIndex& Index, const QVariant& Value, int Role = Qt::EditRole) override;
    // Drops a pending edit: the row shows what the database holds.
    void CancelEdit();
    bool Editing() const;

    int rowCount(const QModelIndex& Parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& Parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& Index, int Role = Qt::DisplayRole) const override;
    QVariant headerData(int Section, Qt::Orientation Orientation, int Role = Qt::DisplayRole) const override;
    bool canFetchMore(const QModelIndex& Parent) const override;
    void fetchMore(const QModelIndex& Parent) override;

    // The field behind a visible column; null outside them.
    const TField* FieldAt(int Column) const;
    // The stored value of a cell (a BLOB's bytes), by this role.
    static constexpr int ValueRole = Qt::UserRole + 1;

    // Text a cell shows for a value; "(null)" stands for no value.
    static QString DisplayText(const QVariant& Value, TFieldType DataType);
    // The whole value as text to edit; empty for no value.
    static QString EditText(const QVariant& Value, TFieldType DataType);

    // The text a user typed as the field's value; raises for a value the
    // field's type cannot take.
    static QVariant ValueFromText(const QString& Text, TFieldType DataType);

signals:
    void PostFailed(const QString& Message);

private:
    void DataEvent(TDataSet& DataSet, TDataEvent Event) override;
    bool IsEditedRow(int Row) const;
    // Hard: the columns or the dataset changed, the views start afresh.
    // Otherwise rows are added or dropped at the end and all repainted.
    void Reload(bool Hard);

    TDLSQLDataSet* FDataSet = nullptr;  // not owned
    int FRows = 0;
    std::vector<int> FColumns;  // the visible fields' indexes, in order
    QStringList FColumnNames;
};

}  // namespace brindle
