#include "DLSchemaReader.h"

#include "DLSQLiteParser.h"
#include "engine/DLQuoteTools.h"
#include "engine/DLSQLiteDatabase.h"

namespace brindle {

namespace {

bool IsTempDatabase(const QString& DatabaseName) {
    return DatabaseName.compare(QLatin1String("temp"), Qt::CaseInsensitive) == 0;
}

QString PragmaPrefix(const QString& DatabaseName) {
    return DatabaseName.isEmpty() ? QString() : QuoteIdentifier(DatabaseName) + u'.';
}

void AddFields(TDLSQLiteDatabase& Database, const QString& TableName, const QString& SQL, bool HasGenerated,
               TDLTableDef& TableDef) {
    struct TColumn {
        QString Name, Type, Default;
    };
    std::vector<TColumn> columns;
    if (HasGenerated) {
        // table_info leaves generated columns out; they must keep their place.
        QString db, name;
        ParseObject(TableName, db, name);
        IRecordSetPtr rs = Database.GetRecordSet(
            QStringLiteral("pragma %1table_xinfo(%2)").arg(PragmaPrefix(db), QuoteIdentifier(name)));
        for (int r = 0; r < rs->GetRecordCount(); ++r)
            columns.push_back({rs->GetValueByName(r, QStringLiteral("name")), rs->GetValueByName(r, QStringLiteral("type")),
                               rs->GetValueByName(r, QStringLiteral("dflt_value"))});
    } else {
        TFieldRecords recs;
        Database.GetFields(TableName, recs);
        for (const TFieldRecord& f : recs) columns.push_back({f.FieldName, f.FullSQLType, f.DefaultValue});
    }
    TSQLParser& parser = GetParser(SQL);
    for (const TColumn& c : columns) {
        // The not-null state follows the text: a key column of a table
        // without rowid is reported not null without saying so.
        const TSQLFieldRec info = parser.GetSQLFieldInfo(c.Name);
        TableDef.AddField(c.Name, c.Type, c.Default, info.Collate, info.NotNull, info.NotNullConflictClause);
    }
}

void AddIndexes(TDLSQLiteDatabase& Database, const QString& TableName, const QString& SQL, TDLTableDef& TableDef) {
    QString db, name;
    ParseObject(TableName, db, name);
    TIndexRecords recs;
    Database.GetIndexes(TableName, recs);
    for (const TIndexRecord& rec : recs) {
        QStringList names;
        Database.GetIndexFields(TableName, rec.IndexName, names);
        TDLIndexFieldDefs fields;
        if (rec.Options & ixPrimary) {
            const TPrimaryKeyRec key = GetPrimaryKeyOptions(SQL);
            for (int i = 0; i < names.size(); ++i) {
                if (static_cast<size_t>(i) < key.Fields.size()) {
                    const TPrimaryKeyFieldRec& k = key.Fields[static_cast<size_t>(i)];
                    fields.AddField(names[i], k.Collate, k.SortOrder, k.Autoincrement);
                } else {
                    fields.AddField(names[i]);
                }
            }
            TableDef.AddIndex(rec.IndexName, std::move(fields), rec.Options, key.ConflictClause);
            continue;
        }
        if (IsAutoIndex(name, rec.IndexName)) continue;
        const QString indexSQL = Database.GetObjectDDL(db, QuoteIdentifier(rec.IndexName));
        bool expression = false;
        for (const QString& field : names) {
            expression = expression || field.isEmpty();
            fields.AddField(field, GetIndexCollateOption(indexSQL, field), GetIndexFieldSortOrder(indexSQL, field));
        }
        TDLIndexDef& index =
            TableDef.AddIndex(rec.IndexName, std::move(fields), rec.Options, QString(), GetIndexWhereClause(indexSQL));
        if (expression) index.FUnsupportedClauses.append(QStringLiteral("an expression as a column"));
    }
}

template <typename TOwner>
void AddTriggers(TDLSQLiteDatabase& Database, const QString& OwnerName, TOwner& Owner) {
    QString db, name;
    ParseObject(OwnerName, db, name);
    QStringList names;
    Database.GetTriggerNames(OwnerName, names);
    for (const QString& trigger : names)
        Owner.AddTrigger(trigger, BuildTriggerSQL(GetTriggerRec(Database.GetTriggerDDL(db, QuoteIdentifier(trigger), false)), false));
    names.clear();
    Database.GetTemporaryTriggerNames(OwnerName, names);
    for (const QString& trigger : names)
        Owner.AddTrigger(trigger, BuildTriggerSQL(GetTriggerRec(Database.GetTriggerDDL(QString(), QuoteIdentifier(trigger), true)), true));
}

void AddConstraints(const QString& SQL, TDLTableDef& TableDef) {
    for (const TUniqueConstraintRec& u : GetUniqueConstraints(SQL))
        TableDef.AddUniqueConstraint(std::make_unique<TDLUniqueConstraintDef>(u.ConstraintName, u.Fields, u.ConflictClause));
    for (const TCheckConstraintRec& c : GetCheckConstraints(SQL))
        TableDef.AddCheckConstraint(std::make_unique<TDLCheckConstraintDef>(c.ConstraintName, c.Expression));
    for (const TForeignKeyRec& f : GetForeignKeys(SQL)) {
        auto key = std::make_unique<TDLForeignKeyDef>();
        key->FConstraintName = f.ConstraintName;
        key->FChildKey = f.ChildKey;
        key->FParentKey = f.ParentKey;
        key->FParentTableName = f.ParentTableName;
        key->FOnDeleteAction = f.OnDeleteAction;
        key->FOnUpdateAction = f.OnUpdateAction;
        key->FMatchName = f.MatchName;
        key->FDeferrable = f.Deferrable;
        key->FInitially = f.Initially;
        TableDef.AddForeignKey(std::move(key));
    }
}

}  // namespace

void ReadTableDef(TDLSQLiteDatabase& Database, const QString& TableName, TDLTableDef& TableDef) {
    TableDef.Clear();
    TableDef.FTableName = TableName;
    QString db, name;
    ParseObject(TableName, db, name);
    TableDef.FIsTemporary = IsTempDatabase(db);
    // The text is copied: the parser cache may hand its slot on while the
    // catalogue is read.
    const QString sql = Database.GetObjectDDL(QString(), TableName);
    const std::vector<TUnsupportedClause> unsupported = GetUnsupportedClauses(sql);
    bool generated = false;
    for (const TUnsupportedClause& u : unsupported) generated = generated || !u.FieldName.isEmpty();

    AddFields(Database, TableName, sql, generated, TableDef);
    AddIndexes(Database, TableName, sql, TableDef);
    AddTriggers(Database, TableName, TableDef);
    AddConstraints(sql, TableDef);
    TableDef.FIsWithoutRowID = IsWithoutRowid(sql);

    for (const TUnsupportedClause& u : unsupported) {
        QStringList* target = &TableDef.FUnsupportedClauses;
        for (int i = 0; i < TableDef.FieldCount() && !u.FieldName.isEmpty(); ++i)
            if (SameObject(TableDef.Fields(i).FFieldName, u.FieldName)) target = &TableDef.Fields(i).FUnsupportedClauses;
        target->append(u.Clause);
    }
}

void ReadViewDef(TDLSQLiteDatabase& Database, const QString& ViewName, TDLViewDef& ViewDef) {
    ViewDef.Clear();
    QString db, name;
    ParseObject(ViewName, db, name);
    const QString sql = Database.GetObjectDDL(QString(), ViewName);
    ViewDef.FViewName = ViewName;
    ViewDef.FIsTemporary = IsTempDatabase(db);
    ViewDef.FAsClause = GetViewRec(sql).AsClause;
    for (const TUnsupportedClause& u : GetUnsupportedClauses(sql)) ViewDef.FUnsupportedClauses.append(u.Clause);
    AddTriggers(Database, ViewName, ViewDef);
}

void ReadVirtualTableDef(TDLSQLiteDatabase& Database, const QString& TableName, TDLVirtualTableDef& Def) {
    const TVirtualTableRec rec = GetVirtualTableRec(Database.GetObjectDDL(QString(), TableName));
    Def.FTableName = TableName;
    Def.FModuleName = rec.ModuleName;
    Def.FModuleArguments = rec.ModuleArguments;
}

QString ReadTriggerSQL(TDLSQLiteDatabase& Database, const QString& TriggerName, bool IsTemporary) {
    QString db, name;
    ParseObject(TriggerName, db, name);
    return BuildTriggerSQL(GetTriggerRec(Database.GetTriggerDDL(db, QuoteIdentifier(name), IsTemporary)), IsTemporary);
}

bool IsAutoIndex(const QString& TableName, const QString& IndexName) {
    return IndexName.startsWith(QStringLiteral("sqlite_autoindex_%1_").arg(ExtractObjectName(TableName)));
}

QString GetCreateSQL(TDLSQLiteDatabase&, const TDLTableDef& TableDef, bool IncludeStructure, bool IncludeIndexes,
                     bool IncludeTriggers) {
    return TableDef.GetCreateSQL(IncludeStructure, IncludeIndexes, IncludeTriggers);
}

void CreateTable(TDLSQLiteDatabase& Database, const TDLTableDef& TableDef, bool IncludeStructure, bool IncludeIndexes,
                 bool IncludeTriggers) {
    Database.Execute(GetCreateSQL(Database, TableDef, IncludeStructure, IncludeIndexes, IncludeTriggers));
}

}  // namespace brindle
