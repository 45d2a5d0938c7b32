#include "DLSchemaReader.h"

#include "DLSQLiteParser.h"
#include "engine/DLQuoteTools.h"
#include "engine/DLObjectNames.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"

#include <map>

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
    // The written text puts the arguments on a line of their own; that line
    // break is the writer's, not the user's, and would pile up with every
    // rebuild.
    QString arguments = rec.ModuleArguments;
    if (arguments.startsWith(QLatin1String("\r\n")))
        arguments.remove(0, 2);
    else if (arguments.startsWith(u'\n'))
        arguments.remove(0, 1);
    Def.FModuleArguments = arguments;
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

namespace {

// Tables the engine makes by itself, for full-text and R*Tree tables.
QStringList ShadowTableNames(TDLSQLiteDatabase& Database) {
    QStringList names;
    try {
        Database.GetValues(
            QStringLiteral("select name from pragma_table_list where schema = 'main' and type = 'shadow'"), names);
    } catch (const ECustomException&) {
        names = GetObjectNames(Database).ShadowTables;  // a library older than table_list
    }
    return names;
}

// One statement of the script, ended with ";". When the definitions cannot
// carry a clause, the stored text is given instead, behind a comment that
// names what they would drop.
void AppendStatement(QString& Script, const QString& Name, const QStringList& Unsupported, const QString& SQL,
                     const QString& StoredSQL) {
    QString text = (Unsupported.isEmpty() ? SQL : StoredSQL).trimmed();
    if (!Unsupported.isEmpty())
        Script += QStringLiteral("-- %1: the definitions cannot carry %2; the stored text follows.\r\n")
                      .arg(Name, Unsupported.join(QStringLiteral(", ")));
    if (!text.endsWith(u';')) text += u';';
    Script += text + QStringLiteral("\r\n\r\n");
}

QStringList UnsupportedOf(const TDLTableDef& Def) {
    QStringList list = Def.FUnsupportedClauses;
    for (int i = 0; i < Def.FieldCount(); ++i)
        for (const QString& c : Def.Fields(i).FUnsupportedClauses)
            list.append(QStringLiteral("%1 (column %2)").arg(c, Def.Fields(i).FFieldName));
    return list;
}

}  // namespace

QString GetSchemaScript(TDLSQLiteDatabase& Database, const QString& ObjectName) {
    const QStringList shadows = ShadowTableNames(Database);
    struct TObject {
        QString Type, Name, Table, SQL;
    };
    std::vector<TObject> objects;
    IRecordSetPtr rs = Database.GetRecordSet(QStringLiteral(
        "select type, name, tbl_name, sql from sqlite_master where sql is not null and name not like 'sqlite\\_%' "
        "escape '\\' order by case type when 'table' then 0 when 'index' then 1 when 'view' then 2 else 3 end, rowid"));
    for (int r = 0; r < rs->GetRecordCount(); ++r) {
        TObject obj{rs->GetValue(r, 0), rs->GetValue(r, 1), rs->GetValue(r, 2), rs->GetValue(r, 3)};
        if (obj.Type == u"table" && shadows.contains(obj.Name, Qt::CaseInsensitive)) continue;
        if (!ObjectName.isEmpty() && !SameObject(obj.Name, ObjectName)) continue;
        objects.push_back(obj);
    }
    if (!ObjectName.isEmpty() && objects.empty())
        throw ECustomException(QStringLiteral("Object not found: ") + ObjectName);

    // Each table is read once. Its indexes other than the key are taken out
    // of the definition, so that the table text holds the key alone, and
    // wait for their turn among the indexes.
    std::map<QString, std::unique_ptr<TDLTableDef>> tables;
    std::map<QString, std::unique_ptr<TDLIndexDef>> indexes;
    auto tableDef = [&](const QString& name) -> TDLTableDef& {
        auto& def = tables[name.toLower()];
        if (!def) {
            def = std::make_unique<TDLTableDef>();
            ReadTableDef(Database, QuoteIdentifier(name), *def);
            def->FTableName = name;
            for (int i = def->IndexCount() - 1; i >= 0; --i) {
                if (def->Indexes(i).FOptions & ixPrimary) continue;
                std::unique_ptr<TDLIndexDef> index = def->TakeIndex(i);
                const QString key = index->FIndexName.toLower();
                indexes[key] = std::move(index);
            }
        }
        return *def;
    };
    QString script;
    for (const TObject& obj : objects) {
        if (obj.Type == u"table" && Database.IsVirtualTable(QuoteIdentifier(obj.Name))) {
            TDLVirtualTableDef def;
            ReadVirtualTableDef(Database, QuoteIdentifier(obj.Name), def);
            def.FTableName = obj.Name;
            AppendStatement(script, obj.Name, {}, def.GetCreateSQL(), obj.SQL);
        } else if (obj.Type == u"table") {
            const TDLTableDef& def = tableDef(obj.Name);
            AppendStatement(script, obj.Name, UnsupportedOf(def), def.GetCreateSQL(true, true, false), obj.SQL);
        } else if (obj.Type == u"index") {
            const TDLTableDef& def = tableDef(obj.Table);
            const auto it = indexes.find(obj.Name.toLower());
            if (it == indexes.end()) continue;  // made by a constraint of its table
            AppendStatement(script, obj.Name, it->second->FUnsupportedClauses, def.GetIndexSQL(*it->second), obj.SQL);
        } else if (obj.Type == u"view") {
            TDLViewDef def;
            ReadViewDef(Database, QuoteIdentifier(obj.Name), def);
            def.FViewName = obj.Name;
            AppendStatement(script, obj.Name, def.FUnsupportedClauses, def.GetCreateSQL(true, false), obj.SQL);
        } else if (obj.Type == u"trigger") {
            AppendStatement(script, obj.Name, {}, ReadTriggerSQL(Database, QuoteIdentifier(obj.Name), false), obj.SQL);
        }
    }
    return script;
}

}  // namespace brindle
