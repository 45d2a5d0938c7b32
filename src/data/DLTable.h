// A dataset over one table: its statement is built from the table's name,
// the chosen order, the filter, a master row to follow, and a range.
#pragma once

#include "DLQuery.h"

namespace brindle {

class TDLTable : public TDLSQLDataSet {
public:
    TDLTable();
    ~TDLTable() override;

    const QString& TableName() const { return FTableName; }
    // Only while closed; clears the order settings.
    void SetTableName(const QString& Value);
    // Rows in the order of a named index, or of a semicolon-separated field
    // list; DescFields lists the fields of that list that sort descending.
    const QString& IndexName() const { return FIndexName; }
    void SetIndexName(const QString& Value);
    const QString& IndexFieldNames() const { return FIndexFieldNames; }
    void SetIndexFieldNames(const QString& Value);
    void SetDescFields(const QString& Value);
    // Follows the master's current row: detail fields (the order's fields,
    // or the key) equal the master's MasterFields. The master must outlive
    // the link; null ends it.
    void SetMasterSource(TDataSet* Master, const QString& MasterFields);
    // A range of rows: Offset rows skipped, at most Limit (-1: all).
    void SetOffset(int Value);
    void SetLimit(int Value);
    // The rowid comes first in every row; hidden unless this is false.
    bool FHideRowID = true;
    bool IsWithoutRowID() const { return FIsWithoutRowID; }

    bool CanServerFilter() override { return true; }
    void SetActive(bool Value) override;
    // The statement for the current settings, with or without its order.
    QString GetInternalSQL(bool IncludeOrderClause);

    bool Exists();
    void DeleteTable();
    // Deletes every row; open again afterwards if it was open.
    void EmptyTable();
    QStringList GetIndexNames();

protected:
    void InternalInitFieldDefs() override;
    void CreateFields() override;
    void DoOnNewRecord() override;

private:
    QString GetWhereClause();
    QStringList DetailFields();
    bool IsRowIDAlias(const QString& QuotedField);
    void SettingsChanged();

    QString FTableName;
    QString FIndexName;
    QString FIndexFieldNames;
    QString FDescFields;
    QString FMasterFields;
    TDataSet* FMaster = nullptr;  // not owned
    std::unique_ptr<TDLDataLink> FMasterLink;
    int FOffset = 0;
    int FLimit = -1;
    bool FIsWithoutRowID = false;
};

}  // namespace brindle
