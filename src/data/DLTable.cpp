#include "DLTable.h"

#include "DLSQLiteEdit.h"
#include "engine/DLQuoteTools.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"

namespace brindle {

TDLTable::TDLTable() = default;

TDLTable::~TDLTable() {
    try {
        Close();
    } catch (...) {  // nothing may leave a destructor
    }
}

void TDLTable::SetTableName(const QString& Value) {
    CheckInactive();
    FTableName = Value;
    SetSQLStr(QString());
    FIndexFieldNames.clear();
    FDescFields.clear();
    FIndexName.clear();
}

void TDLTable::SettingsChanged() {
    if (!Active()) return;
    // Read again from the top under the new statement.
    Close();
    Open();
}

void TDLTable::SetIndexName(const QString& Value) {
    if (Active()) CheckBrowseMode();
    if (Value == FIndexName && FIndexFieldNames.isEmpty()) return;
    FIndexName = Value;
    FIndexFieldNames.clear();
    SettingsChanged();
}

void TDLTable::SetIndexFieldNames(const QString& Value) {
    if (Active()) CheckBrowseMode();
    if (Value == FIndexFieldNames && FIndexName.isEmpty()) return;
    FIndexFieldNames = Value;
    FIndexName.clear();
    SettingsChanged();
}

void TDLTable::SetDescFields(const QString& Value) {
    if (Value == FDescFields) return;
    FDescFields = Value;
    SettingsChanged();
}

void TDLTable::SetOffset(int Value) {
    if (Value == FOffset) return;
    FOffset = Value;
    SettingsChanged();
}

void TDLTable::SetLimit(int Value) {
    if (Value == FLimit) return;
    FLimit = Value;
    SettingsChanged();
}

void TDLTable::SetMasterSource(TDataSet* Master, const QString& MasterFields) {
    if (Master == this) throw ECustomException(QStringLiteral("Circular reference"));
    FMasterLink.reset();
    FMaster = Master;
    FMasterFields = MasterFields;
    if (Master) FMasterLink = std::make_unique<TDLDataLink>(*Master, *this);
    SettingsChanged();
}

QStringList TDLTable::DetailFields() {
    QStringList fields;
    if (!FIndexFieldNames.isEmpty()) return FIndexFieldNames.split(u';', Qt::SkipEmptyParts);
    Database()->GetIndexFields(FTableName, FIndexName, fields);
    return fields;
}

QString TDLTable::GetWhereClause() {
    if (!FMaster || !FMaster->Active() || FMasterFields.isEmpty()) return QString();
    const QStringList masterFields = FMasterFields.split(u';', Qt::SkipEmptyParts);
    const QStringList detailFields = DetailFields();
    QStringList terms;
    for (int i = 0; i < masterFields.size() && i < detailFields.size(); ++i) {
        const QVariant value = FMaster->GetFieldValue(FMaster->FieldByName(masterFields[i].trimmed()));
        const QString field = QuoteIdentifier(detailFields[i].trimmed());
        terms << (value.isValid() ? QStringLiteral("(%1 = %2)").arg(field, QuotedStr(value.toString()))
                                  : QStringLiteral("(%1 is null )").arg(field));
    }
    return terms.isEmpty() ? QString() : QStringLiteral(" where ") + terms.join(QStringLiteral(" and "));
}

QString TDLTable::GetInternalSQL(bool IncludeOrderClause) {
    TDLSQLiteDatabase& db = *Database();
    // Every column as the table has it now: a list kept from an earlier
    // open would break when the table was changed since.
    // A view's "rowid" is null on every row: nothing to find a row by.
    const QString rowid = IsView(db, FTableName) ? QString() : db.GetRowIDFieldName(FTableName);
    QString sql = rowid.isEmpty() ? QStringLiteral("select * from ") + QuoteObject(FTableName)
                                  : db.GetSelectSQL(FTableName, nullptr);

    QString where = GetWhereClause();
    FServerFiltered = false;
    if (FFiltered && !FFilterText.isEmpty()) {
        const QString fixed = ServerFilterCondition();
        if (!fixed.isEmpty()) {
            where += where.isEmpty() ? QStringLiteral(" where ") + fixed : QStringLiteral(" and (") + fixed + u')';
            FServerFiltered = true;
        }
    }
    sql += where;

    FSeekSQL.clear();
    FNaturalOrder.clear();
    FRowidScanSQL.clear();
    if (IncludeOrderClause) {
        QStringList order;
        if (!FIndexFieldNames.isEmpty()) {
            const QStringList desc = FDescFields.split(u';', Qt::SkipEmptyParts);
            for (const QString& f : FIndexFieldNames.split(u';', Qt::SkipEmptyParts)) {
                const bool descending = desc.contains(f.trimmed(), Qt::CaseInsensitive);
                order << QuoteIdentifier(f.trimmed()) + (descending ? QStringLiteral(" DESC") : QString());
            }
        } else {
            QStringList fields;
            if (!FIndexName.isEmpty()) db.GetIndexFields(FTableName, FIndexName, fields);
            else db.GetIndexFields(FTableName, QString(), fields);  // the primary key
            for (const QString& f : fields) order << QuoteIdentifier(f);
        }
        // Rows in rowid order, all of them: a window far back is read from
        // a noted rowid on rather than from the first row.
        if (!rowid.isEmpty() && where.isEmpty() && FLimit < 0 && FOffset < 1 &&
            (order.isEmpty() || (order.size() == 1 && IsRowIDAlias(order[0])))) {
            // Without an order of its own the statement keeps the text a
            // sort can extend; the rowid order is added when it runs.
            if (order.isEmpty()) FNaturalOrder = QStringLiteral("order by ") + rowid;
            FSeekSQL = db.GetSelectSQL(FTableName, nullptr) +
                       QStringLiteral(" where %1 >= ?1 order by %1").arg(rowid);
            FRowidScanSQL = QStringLiteral("select %1 from %2 order by %1").arg(rowid, QuoteObject(FTableName));
        }
        if (!order.isEmpty()) sql += QStringLiteral(" order by ") + order.join(QStringLiteral(", "));
    }
    if (FLimit >= 0 || FOffset >= 1) sql += QStringLiteral(" limit %1, %2 ").arg(FOffset).arg(FLimit);
    return sql;
}

bool TDLTable::IsRowIDAlias(const QString& QuotedField) {
    // The one key column declared INTEGER stands for the rowid.
    QString db, name;
    ParseObject(FTableName, db, name);
    const QString type = Database()->GetStringValue(
        QStringLiteral("select upper(type) from pragma_table_info(%1%2) where pk = 1 and "
                       "(select count(*) from pragma_table_info(%1%2) where pk > 0) = 1 and %3 = name")
            .arg(QuotedStr(name), db.isEmpty() ? QString() : u',' + QuotedStr(db), QuotedStr(UnQuoteIdentifier(QuotedField))));
    return type == QLatin1String("INTEGER") && !FIsWithoutRowID;
}

void TDLTable::SetActive(bool Value) {
    if (Value && !Active()) {
        CheckConnected();
        if (FTableName.isEmpty()) throw ECustomException(QStringLiteral("Table name not set"));
        FIsWithoutRowID = Database()->IsWithoutRowID(FTableName);
        SetSQLStr(GetInternalSQL(true));
    }
    TDLSQLDataSet::SetActive(Value);
}

void TDLTable::InternalInitFieldDefs() {
    TDLSQLDataSet::InternalInitFieldDefs();
    if (FFieldDefs.Count() == 0 || !TDLSQLiteDatabase::IsRowIDField(FFieldDefs.Items(0).Name)) return;
    TFieldDef& rowid = FFieldDefs.Items(0);
    rowid.Required = true;
    if (FHideRowID) rowid.Attributes |= faHiddenCol;
}

void TDLTable::CreateFields() {
    TDLSQLDataSet::CreateFields();
    if (FFields.Count() == 0 || !TDLSQLiteDatabase::IsRowIDField(FFields[0].FieldName())) return;
    TField& rowid = FFields[0];
    rowid.FReadOnly = true;
    rowid.FVisible = !FHideRowID;
    // The column itself: statements name it beside the table, and a
    // qualified table would make "[main.t].[rowid]" of a table and a column.
    rowid.FOrigin = rowid.FieldName();
}

void TDLTable::DoOnNewRecord() {
    // A new detail row belongs to the master's current row.
    if (FMaster && FMaster->Active() && !FMasterFields.isEmpty()) {
        const QStringList masterFields = FMasterFields.split(u';', Qt::SkipEmptyParts);
        const QStringList detailFields = DetailFields();
        for (int i = 0; i < masterFields.size() && i < detailFields.size(); ++i)
            if (const TField* f = FindField(detailFields[i].trimmed()))
                SetFieldValue(*f, FMaster->GetFieldValue(FMaster->FieldByName(masterFields[i].trimmed())));
    }
    TDLSQLDataSet::DoOnNewRecord();
}

bool TDLTable::Exists() {
    return Active() || (Database() && Database()->TableExists(FTableName));
}

void TDLTable::DeleteTable() {
    CheckInactive();
    Database()->Execute(QStringLiteral("drop table ") + QuoteObject(FTableName));
}

void TDLTable::EmptyTable() {
    const bool wasActive = Active();
    Close();
    Database()->Execute(QStringLiteral("delete from ") + QuoteObject(FTableName));
    if (wasActive) Open();
}

QStringList TDLTable::GetIndexNames() {
    QStringList names;
    if (Database()) Database()->GetIndexNames(FTableName, names);
    return names;
}

}  // namespace brindle
