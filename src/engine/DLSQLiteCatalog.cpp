// What the catalogue says of a database's objects: whether a table or view
// exists and of what kind, the names of tables, views, indexes, triggers
// and collations, a table's columns, indexes, key and rowid, and the
// declared types as field types.
#include "DLSQLiteDatabase.h"

#include "DLSQLiteInternal.h"

#include <algorithm>

namespace brindle {

using internal::drv;
using internal::LikeName;
using internal::TStatementGuard;

namespace {

bool endsWithCI(const QString& s, const char* suffix, QString& stem) {
    const QLatin1String suf(suffix);
    if (s.size() > suf.size() && s.endsWith(suf, Qt::CaseInsensitive)) {
        stem = s.left(s.size() - suf.size());
        return true;
    }
    return false;
}

}  // namespace

// ---------------------------------------------------------------------------
// Schema helpers

QString TDLSQLiteDatabase::MasterTable(const QString& DatabaseName) const {
    if (SameObject(DatabaseName, QStringLiteral("temp"))) return QStringLiteral("sqlite_temp_master");
    return QuoteObject(DatabaseName, QStringLiteral("sqlite_master"));
}

int TDLSQLiteDatabase::CountRows(const QString& SQL) {
    QStringList rows;
    InternalGetStringValues(SQL, rows, 0);
    return static_cast<int>(rows.size());
}

bool TDLSQLiteDatabase::ObjectExists(const QString& QualifiedName, const char* Type, bool SystemNames) {
    if (!Connected()) return false;
    QString db, name;
    ParseObject(QualifiedName, db, name);
    if (SystemNames && (db.isEmpty() || SameObject(db, QStringLiteral("main")))) {
        if (name.compare(QLatin1String("sqlite_master"), Qt::CaseInsensitive) == 0 ||
            name.compare(QLatin1String("sqlite_temp_master"), Qt::CaseInsensitive) == 0)
            return true;
    }
    if (DatabaseExists(db) &&
        CountRows(QStringLiteral("select name from %1 where [type] like '%2' and name like %3 ")
                      .arg(MasterTable(db), QLatin1String(Type), LikeName(name))) > 0)
        return true;
    // Unqualified names are looked up in temp too; for views too this asks
    // for a temporary table, which is how the check has always answered.
    if (db.isEmpty())
        return CountRows(QStringLiteral("select name from sqlite_temp_master where [type] like 'table' and name like %1")
                             .arg(LikeName(name))) > 0;
    return false;
}

bool TDLSQLiteDatabase::TableExists(const QString& TableName) { return ObjectExists(TableName, "table", true); }

bool TDLSQLiteDatabase::ViewExists(const QString& ViewName) { return ObjectExists(ViewName, "view", false); }

bool TDLSQLiteDatabase::DatabaseExists(const QString& Name) {
    if (Name.isEmpty()) return true;
    for (const QString& d : DatabaseNames())
        if (d.compare(Name, Qt::CaseInsensitive) == 0) return true;
    return false;
}

bool TDLSQLiteDatabase::IsSystemTable(const QString& TableName) {
    return TableName.toLower().startsWith(QLatin1String("sqlite_"));
}

bool TDLSQLiteDatabase::IsTempTable(const QString& TableName) {
    QString db, name;
    ParseObject(TableName, db, name);
    return SameObject(db, QStringLiteral("temp"));
}

bool TDLSQLiteDatabase::IsTempView(const QString& ViewName) { return IsTempTable(ViewName); }

bool TDLSQLiteDatabase::IsRowIDField(const QString& FieldName) {
    return FieldName.compare(QLatin1String("rowid"), Qt::CaseInsensitive) == 0 ||
           FieldName.compare(QLatin1String("_rowid_"), Qt::CaseInsensitive) == 0 ||
           FieldName.compare(QLatin1String("oid"), Qt::CaseInsensitive) == 0;
}

QString TDLSQLiteDatabase::GetObjectDDL(const QString& OwnerName, const QString& ObjectName) {
    QString db, name;
    ParseObject(ObjectName, db, name);
    if (!OwnerName.isEmpty()) db = OwnerName;
    QString sql = GetStringValue(
        QStringLiteral("select SQL from %1 where name like %2").arg(MasterTable(db), LikeName(name)));
    if (sql.isEmpty() && db.isEmpty())
        sql = GetStringValue(QStringLiteral("select SQL from sqlite_temp_master where name like %1").arg(LikeName(name)));
    return sql;
}

QString TDLSQLiteDatabase::GetTriggerDDL(const QString& OwnerName, const QString& ObjectName, bool IsTemporary) {
    QString db, name;
    ParseObject(ObjectName, db, name);
    if (!OwnerName.isEmpty()) db = OwnerName;
    const QString master = IsTemporary ? QStringLiteral("sqlite_temp_master") : MasterTable(db);
    QString sql = GetStringValue(QStringLiteral("select SQL from %1 where name like %2 and [type] like 'trigger'")
                                     .arg(master, LikeName(name)));
    if (sql.isEmpty() && db.isEmpty())
        sql = GetStringValue(
            QStringLiteral("select SQL from sqlite_temp_master where name like %1 and [type] like 'trigger'")
                .arg(LikeName(name)));
    return sql;
}

bool TDLSQLiteDatabase::IsVirtualTable(const QString& TableName, QString* ModuleName) {
    const QString ddl = GetObjectDDL(QString(), TableName);
    const QString upper = ddl.toUpper();
    if (!upper.contains(QLatin1String("VIRTUAL")) || !upper.contains(QLatin1String("USING")) ||
        GetSQLCommand(ddl) != stCreateVirtualTable)
        return false;
    if (ModuleName) *ModuleName = GetVirtualTableModule(ddl);
    return true;
}

bool TDLSQLiteDatabase::IsFtsVirtualTable(const QString& TableName) {
    QString module;
    return IsVirtualTable(TableName, &module) && (module.compare(QLatin1String("fts3"), Qt::CaseInsensitive) == 0 ||
                                                  module.compare(QLatin1String("fts4"), Qt::CaseInsensitive) == 0);
}

bool TDLSQLiteDatabase::IsFtsShadowTable(const QString& TableName) {
    QString db, name, stem, module;
    ParseObject(TableName, db, name);
    auto stemModule = [&](QString& m) { return IsVirtualTable(QuoteObject(db, stem), &m); };
    if (endsWithCI(name, "_content", stem) || endsWithCI(name, "_segdir", stem) ||
        endsWithCI(name, "_segments", stem)) {
        return stemModule(module) && (module.compare(QLatin1String("fts3"), Qt::CaseInsensitive) == 0 ||
                                      module.compare(QLatin1String("fts4"), Qt::CaseInsensitive) == 0);
    }
    if (endsWithCI(name, "_stat", stem) || endsWithCI(name, "_docsize", stem))
        return stemModule(module) && module.compare(QLatin1String("fts4"), Qt::CaseInsensitive) == 0;
    return false;
}

bool TDLSQLiteDatabase::IsRtreeShadowTable(const QString& TableName) {
    QString db, name, stem, module;
    ParseObject(TableName, db, name);
    if (endsWithCI(name, "_node", stem) || endsWithCI(name, "_rowid", stem) || endsWithCI(name, "_parent", stem))
        return IsVirtualTable(QuoteObject(db, stem), &module) &&
               module.compare(QLatin1String("rtree"), Qt::CaseInsensitive) == 0;
    return false;
}

bool TDLSQLiteDatabase::CanModifyTable(const QString& TableName) {
    if (IsFtsShadowTable(TableName) || IsRtreeShadowTable(TableName)) return false;
    // Newer modules (fts5 and others) have shadow tables of other names; the
    // engine knows them all. A library without table_list cannot tell.
    QString db, name;
    ParseObject(TableName, db, name);
    try {
        return GetStringValue(QStringLiteral("select type from pragma_table_list where name = %1%2")
                                  .arg(QuotedStr(name), db.isEmpty() ? QString() : QStringLiteral(" and schema = ") + QuotedStr(db))) !=
               QLatin1String("shadow");
    } catch (const ECustomException&) {
        return true;
    }
}

bool TDLSQLiteDatabase::IsWithoutRowID(const QString& TableName) {
    const QString ddl = GetObjectDDL(QString(), TableName);
    return !ddl.isEmpty() && IsWithoutRowid(ddl);
}

void TDLSQLiteDatabase::DropTable(const QString& TableName) {
    Execute(QStringLiteral("drop table ") + QuoteObject(TableName));
}

void TDLSQLiteDatabase::DropView(const QString& ViewName) {
    Execute(QStringLiteral("drop view ") + QuoteObject(ViewName));
}

void TDLSQLiteDatabase::GetTableNames(const QString& DatabaseName, std::vector<TNameEntry>& TableNames,
                                      bool SystemTables, bool ShadowTables, bool QualifyTableNames) {
    const bool isTemp = SameObject(DatabaseName, QStringLiteral("temp"));
    QString sql = QStringLiteral("select name from %1 where [type] like 'table' ").arg(MasterTable(DatabaseName));
    if (!SystemTables)
        sql += QStringLiteral(" and not (substr(lower(name),1,7) like 'sqlite|_%' escape '|')");
    if (SystemTables && !isTemp) {
        TableNames.push_back({QStringLiteral("sqlite_master"), false});
        TableNames.push_back({QStringLiteral("sqlite_temp_master"), false});
    }
    QStringList names;
    GetValues(sql, names);
    std::vector<TNameEntry> found;
    for (const QString& n : names) {
        const QString qualified = QuoteObject(DatabaseName, n);
        const bool shadow = IsFtsShadowTable(qualified) || IsRtreeShadowTable(qualified);
        if (shadow && !ShadowTables) continue;
        TNameEntry e;
        e.Name = QualifyTableNames ? QuoteObjectIfNeeded(DatabaseName, n) : QuoteObjectIfNeeded(QString(), n);
        e.Flag = IsVirtualTable(qualified) || (ShadowTables && shadow);
        found.push_back(e);
    }
    std::stable_sort(found.begin(), found.end(), [](const TNameEntry& a, const TNameEntry& b) {
        if (a.Flag != b.Flag) return !a.Flag;
        return a.Name.compare(b.Name, Qt::CaseInsensitive) < 0;
    });
    TableNames.insert(TableNames.end(), found.begin(), found.end());
}

void TDLSQLiteDatabase::GetTableNames(QStringList& List, bool SystemTables) {
    SetConnected(true);
    for (const QString& db : DatabaseNames()) {
        std::vector<TNameEntry> entries;
        GetTableNames(db, entries, SystemTables, false, true);
        for (const TNameEntry& e : entries) List.append(e.Name);
    }
}

void TDLSQLiteDatabase::GetViewNames(const QString& DatabaseName, std::vector<TNameEntry>& ViewNames,
                                     bool QualifyViewNames) {
    QStringList names;
    GetValues(QStringLiteral("select name from %1 where [type] like 'view' ").arg(MasterTable(DatabaseName)), names);
    std::vector<TNameEntry> found;
    for (const QString& n : names)
        found.push_back({QualifyViewNames ? QuoteObjectIfNeeded(DatabaseName, n) : QuoteObjectIfNeeded(QString(), n),
                         false});
    std::stable_sort(found.begin(), found.end(), [](const TNameEntry& a, const TNameEntry& b) {
        return a.Name.compare(b.Name, Qt::CaseInsensitive) < 0;
    });
    ViewNames.insert(ViewNames.end(), found.begin(), found.end());
}

void TDLSQLiteDatabase::GetViewNames(QStringList& List) {
    SetConnected(true);
    for (const QString& db : DatabaseNames()) {
        std::vector<TNameEntry> entries;
        GetViewNames(db, entries, true);
        for (const TNameEntry& e : entries) List.append(e.Name);
    }
}

void TDLSQLiteDatabase::GetIndexNames(const QString& TableName, QStringList& IndexNames) {
    QString db, name;
    ParseObject(TableName, db, name);
    GetValues(QStringLiteral("select name from %1 where tbl_name like %2 and [type] like 'index'")
                  .arg(MasterTable(db), LikeName(name)),
              IndexNames);
    if (db.isEmpty())
        GetValues(QStringLiteral("select name from sqlite_temp_master where tbl_name like %1 and [type] like 'index'")
                      .arg(LikeName(name)),
                  IndexNames);
}

void TDLSQLiteDatabase::GetTriggerNames(const QString& TableName, QStringList& TriggerNames) {
    QString db, name;
    ParseObject(TableName, db, name);
    if (SameObject(db, QStringLiteral("temp"))) return;
    GetValues(QStringLiteral("select name from %1 where tbl_name like %2 and [type] like 'trigger'")
                  .arg(MasterTable(db), LikeName(name)),
              TriggerNames);
}

void TDLSQLiteDatabase::GetTemporaryTriggerNames(const QString& TableName, QStringList& TriggerNames) {
    QString db, name;
    ParseObject(TableName, db, name);
    const QString sql = QStringLiteral("select name from sqlite_temp_master where tbl_name like %1 and [type] like 'trigger'")
                            .arg(LikeName(name));
    if (SameObject(db, QStringLiteral("temp"))) {
        GetValues(sql, TriggerNames);
        return;
    }
    // Temporary triggers may hang on a table of any database; keep those of
    // this table's database.
    QStringList names;
    GetValues(sql, names);
    const QString tableDb = db.isEmpty() ? QStringLiteral("main") : db;
    for (const QString& n : names) {
        const QString ddl = GetStringValue(
            QStringLiteral("select sql from sqlite_temp_master where name like %1 and [type] like 'trigger'")
                .arg(LikeName(n)));
        QString trigDb = GetTriggerDatabaseName(ddl);
        if (trigDb.isEmpty()) trigDb = QStringLiteral("main");
        if (SameObject(trigDb, tableDb)) TriggerNames.append(n);
    }
}

void TDLSQLiteDatabase::GetCollations(const QString& DatabaseName, QStringList& List) {
    const QString sql = DatabaseName.isEmpty()
                            ? QStringLiteral("pragma collation_list")
                            : QStringLiteral("pragma %1.collation_list").arg(QuoteIdentifier(DatabaseName));
    IRecordSetPtr rs = GetRecordSet(sql);
    for (int r = 0; r < rs->GetRecordCount(); ++r) List.append(rs->GetValueByName(r, QStringLiteral("name")));
}

void TDLSQLiteDatabase::ReadTableInfo(const QString& TableName, IRecordSetPtr& Result) {
    QString db, name;
    ParseObject(TableName, db, name);
    Result = GetRecordSet(PragmaSQL(db, "table_info", name));
}

void TDLSQLiteDatabase::SQLStrToDataType(const QString& SQLType, TFieldType& DataType, int& Size, int& Precision,
                                         QString& BaseType) {
    QString size, precision;
    SQLStrToDataType(SQLType, BaseType, size, precision);
    SQLStrToDataType(SQLType, DataType, Size, Precision);
}

void TDLSQLiteDatabase::SQLStrToDataType(const QString& SQLType, QString& DataType, QString& Size,
                                         QString& Precision) {
    DataType.clear();
    Size.clear();
    Precision.clear();
    FTypeMappings.SQLStrToDataType(SQLType, DataType, Size, Precision);
}

void TDLSQLiteDatabase::SQLStrToDataType(const QString& SQLType, TFieldType& DataType, QString& Size,
                                         QString& Precision) {
    DataType = ftUnknown;
    Size.clear();
    Precision.clear();
    FTypeMappings.SQLStrToDataType(SQLType, DataType, Size, Precision);
}

void TDLSQLiteDatabase::SQLStrToDataType(const QString& SQLType, TFieldType& DataType, int& Size,
                                         int& Precision) {
    DataType = ftUnknown;
    Size = 0;
    Precision = 0;
    FTypeMappings.SQLStrToDataType(SQLType, DataType, Size, Precision);
}

void TDLSQLiteDatabase::GetFields(const QString& TableName, TFieldRecords& FieldRecs) {
    IRecordSetPtr rs;
    ReadTableInfo(TableName, rs);
    for (int r = 0; r < rs->GetRecordCount(); ++r) {
        TFieldRecord f;
        f.FieldName = rs->GetValueByName(r, QStringLiteral("name"));
        f.OriginalFieldName = f.FieldName;
        f.FullSQLType = rs->GetValueByName(r, QStringLiteral("type"));
        SQLStrToDataType(f.FullSQLType, f.DataType, f.Size, f.Precision, f.SQLType);
        f.Required = rs->GetValueByName(r, QStringLiteral("notnull")) != QLatin1String("0");
        f.DefaultValue = rs->GetValueByName(r, QStringLiteral("dflt_value"));
        FieldRecs.push_back(f);
    }
}

void TDLSQLiteDatabase::GetIndexes(const QString& TableName, TIndexRecords& IndexRecs) {
    IRecordSetPtr info;
    ReadTableInfo(TableName, info);
    bool hasPrimaryKey = false, integerPrimaryKey = false;
    for (int r = 0; r < info->GetRecordCount(); ++r) {
        if (info->GetValueByName(r, QStringLiteral("pk")) == QLatin1String("0")) continue;
        if (hasPrimaryKey) {
            integerPrimaryKey = false;  // a second key column
            break;
        }
        hasPrimaryKey = true;
        integerPrimaryKey = info->GetValueByName(r, QStringLiteral("type")).toUpper() == QLatin1String("INTEGER");
    }
    // INTEGER PRIMARY KEY DESC is no rowid: its key has an index of its own.
    if (integerPrimaryKey) integerPrimaryKey = !GetRowIDAliasField(TableName).isEmpty();
    QString db, name;
    ParseObject(TableName, db, name);
    IRecordSetPtr list =
        GetRecordSet(PragmaSQL(db, "index_list", name));
    TIndexRecords result;
    if (hasPrimaryKey) result.push_back({QString(), ixPrimary | ixUnique});
    // Engines since 3.8.9 tell which index stems from the key; older ones
    // leave a guess at the first automatic index.
    const bool hasOrigin = list->GetNames().contains(QLatin1String("origin"));
    for (int r = 0; r < list->GetRecordCount(); ++r) {
        const QString ixName = list->GetValueByName(r, QStringLiteral("name"));
        const bool keyIndex = hasOrigin ? list->GetValueByName(r, QStringLiteral("origin")) == QLatin1String("pk")
                                        : ixName.left(17) == QLatin1String("sqlite_autoindex_");
        if (hasPrimaryKey && !integerPrimaryKey && result[0].IndexName.isEmpty() && keyIndex) {
            result[0].IndexName = ixName;
            continue;
        }
        TIndexRecord rec{ixName, 0};
        if (list->GetValueByName(r, QStringLiteral("unique")) == QLatin1String("1")) rec.Options |= ixUnique;
        result.push_back(rec);
    }
    if (result.size() > 1) {
        auto key = [](const TIndexRecord& x) {
            return QString((x.Options & ixPrimary) ? u'0' : u'1') + x.IndexName;
        };
        std::stable_sort(result.begin(), result.end(), [&](const TIndexRecord& a, const TIndexRecord& b) {
            return key(a).compare(key(b), Qt::CaseInsensitive) < 0;
        });
    }
    IndexRecs.insert(IndexRecs.end(), result.begin(), result.end());
}

void TDLSQLiteDatabase::GetIndexFields(const QString& TableName, const QString& IndexName, QStringList& Fields) {
    QString db, name;
    ParseObject(TableName, db, name);
    const qsizetype before = Fields.size();
    if (IndexName.isEmpty()) {
        IRecordSetPtr info;
        ReadTableInfo(TableName, info);
        // Older engines numbered every key column 1; today's give the key
        // position, so all key columns are taken in that order.
        std::vector<std::pair<int, QString>> key;
        for (int r = 0; r < info->GetRecordCount(); ++r) {
            const int pk = info->GetValueByName(r, QStringLiteral("pk")).toInt();
            if (pk > 0) key.emplace_back(pk, info->GetValueByName(r, QStringLiteral("name")));
        }
        std::stable_sort(key.begin(), key.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
        for (const auto& k : key) Fields.append(k.second);
        if (Fields.size() > before) return;
    }
    IRecordSetPtr rs =
        GetRecordSet(PragmaSQL(db, "index_info", IndexName));
    for (int r = 0; r < rs->GetRecordCount(); ++r) Fields.append(rs->GetValueByName(r, QStringLiteral("name")));
}

void TDLSQLiteDatabase::GetRowIDFields(const QString& TableName, QStringList& List) {
    const QString ddl = GetObjectDDL(QString(), TableName);
    if (!ddl.isEmpty() && IsWithoutRowid(ddl)) return;
    QStringList columns;
    GetFieldNamesFromTable(TableName, columns);
    for (const char* candidate : {"rowid", "_rowid_", "oid"}) {
        bool taken = false;
        for (const QString& c : columns) taken = taken || c.compare(QLatin1String(candidate), Qt::CaseInsensitive) == 0;
        if (!taken) List.append(QLatin1String(candidate));
    }
}

QString TDLSQLiteDatabase::GetRowIDFieldName(const QString& TableName) {
    QStringList list;
    GetRowIDFields(TableName, list);
    return list.value(0);
}

QString TDLSQLiteDatabase::GetRowIDAliasField(const QString& TableName) {
    IRecordSetPtr info;
    ReadTableInfo(TableName, info);
    QString key, type;
    int keys = 0;
    for (int r = 0; r < info->GetRecordCount(); ++r) {
        if (info->GetValueByName(r, QStringLiteral("pk")) == QLatin1String("0")) continue;
        ++keys;
        key = info->GetValueByName(r, QStringLiteral("name"));
        type = info->GetValueByName(r, QStringLiteral("type"));
    }
    if (keys != 1 || type.trimmed().compare(QLatin1String("INTEGER"), Qt::CaseInsensitive) != 0) return QString();
    // Any other key (DESC, or a table without rowid) is kept in an index of
    // its own; the rowid's alias needs none.
    QString db, name;
    ParseObject(TableName, db, name);
    IRecordSetPtr list =
        GetRecordSet(PragmaSQL(db, "index_list", name));
    const bool hasOrigin = list->GetNames().contains(QLatin1String("origin"));
    for (int r = 0; r < list->GetRecordCount(); ++r) {
        if (hasOrigin) {
            if (list->GetValueByName(r, QStringLiteral("origin")) == QLatin1String("pk")) return QString();
        } else if (list->GetValueByName(r, QStringLiteral("name")).startsWith(QLatin1String("sqlite_autoindex_"))) {
            QStringList columns;
            GetIndexFields(TableName, list->GetValueByName(r, QStringLiteral("name")), columns);
            if (columns.size() == 1 && columns.first().compare(key, Qt::CaseInsensitive) == 0) return QString();
        }
    }
    return key;
}

QString TDLSQLiteDatabase::GetSelectSQL(const QString& TableName, const QStringList* Fields) {
    QString list = (Fields && !Fields->isEmpty()) ? ListToFields(*Fields, true, QStringLiteral(","))
                                                  : QStringLiteral("*");
    const QString rowid = GetRowIDFieldName(TableName);
    if (!rowid.isEmpty()) list = QStringLiteral("%1 as %1, ").arg(rowid) + list;
    return QStringLiteral("select ") + list + QStringLiteral(" from ") + QuoteObject(TableName);
}

void TDLSQLiteDatabase::GetFieldNamesFromTable(const QString& TableName, QStringList& List) {
    GetFieldNamesFromSQL(QStringLiteral("select * from ") + QuoteObject(TableName), List);
}

void TDLSQLiteDatabase::GetFieldNamesFromSQL(const QString& SQL, QStringList& List) {
    TStatementGuard stmt;
    InternalPrepare(SQL, stmt.ref());
    if (!stmt.get()) return;
    const int cols = drv().sqlite3_column_count(stmt.get());
    for (int c = 0; c < cols; ++c)
        List.append(FUnicode
                        ? QString::fromUtf16(static_cast<const char16_t*>(drv().sqlite3_column_name16(stmt.get(), c)))
                        : QString::fromLocal8Bit(drv().sqlite3_column_name(stmt.get(), c)));
}

}  // namespace brindle
