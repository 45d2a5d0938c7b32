// What a query's text says of its columns and tables: filled by the SQL
// parser, completed by the dataset that edits the query's rows.
#pragma once

#include "DLParams.h"

#include <QString>
#include <QStringList>

namespace brindle {

// A table of a query's FROM clause; names unquoted.
struct TTableInfoRec {
    QString DatabaseName;
    QString TableName;
    QString TableAlias;
    int RowIDIndex = -1;    // the column that holds the rowid, -1 for none
    QString RowIDField;     // the name the rowid can be selected under
    QStringList KeyFieldNames;        // the key's columns as the query names them
    QStringList OriginKeyFieldNames;  // the same, as the table's index names them
};

// A column of a query's select list.
struct TFieldInfoRec {
    int TableIndex = -1;  // into the table records; -1 when unresolved
    QString FieldName;    // unquoted; "*" only while the list is read
    QString OriginalFieldName;  // the name the engine reports
    QString FieldAlias;
    QString FinalName;  // the dataset field's unique name
    QString DeclaredType;
    TFieldType DataType = ftUnknown;
    bool Loaded = false;  // the statement run selects it
    bool Hidden = false;  // added by the rewrite, not shown
};

}  // namespace brindle
