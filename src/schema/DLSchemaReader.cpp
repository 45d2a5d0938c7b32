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

bool SameName(const QString& A, const QString& B) {
    return A.compare(B, Qt::CaseInsensitive) == 0;
}

QString MasterTable(const QString& DatabaseName) {
    if (IsTempDatabase(DatabaseName)) return QStringLiteral("sqlite_temp_master");
    return QuoteSQLName(DatabaseName.isEmpty() ? QStringLiteral("main") : DatabaseName) +
           QStringLiteral(".sqlite_master");
}

// The stored text of an object of the database (main when empty, and then
// temp when main has none), by its exact name in the engine's comparison.
QString ObjectSQL(TDLSQLiteDatabase& Database, const QString& DatabaseName, const QString& Name,
                  const char* Type) {
    auto read = [&](const QString& db) {
        return Database.GetStringValue(
            QStringLiteral("select sql from %1 where type = '%2' and name = %3 collate nocase")
                .arg(MasterTable(db), QLatin1String(Type), QuotedStr(Name)));
    };
    QString sql = read(DatabaseName);
    if (sql.isEmpty() && DatabaseName.isEmpty()) sql = read(QStringLiteral("temp"));
    return sql;
}

struct TColumn {
    QString Name, Type, Default;
    int KeyPlace = 0;  // in the primary key, from 1
};

std::vector<TColumn> ReadColumns(TDLSQLiteDatabase& Database, const QString& DatabaseName,
                                 const QString& Name, bool HasGenerated) {
    // table_info leaves generated columns out; they must keep their place.
    IRecordSetPtr rs =
        Database.GetRecordSet(PragmaSQL(DatabaseName, HasGenerated ? "table_xinfo" : "table_info", Name));
    std::vector<TColumn> columns;
    for (int r = 0; r < rs->GetRecordCount(); ++r)
        columns.push_back({rs->GetValueByName(r, QStringLiteral("name")),
                           rs->GetValueByName(r, QStringLiteral("type")),
                           rs->GetValueByName(r, QStringLiteral("dflt_value")),
                           rs->GetValueByName(r, QStringLiteral("pk")).toInt()});
    return columns;
}

void AddFields(const std::vector<TColumn>& Columns, const std::vector<std::pair<QString, TSQLFieldRec>>& Infos,
               TDLTableDef& TableDef) {
    for (const TColumn& c : Columns) {
        // The not-null state follows the text: a key column of a table
        // without rowid is reported not null without saying so.
        TSQLFieldRec info;
        for (const auto& [name, rec] : Infos)
            if (SameObject(name, c.Name)) {
                info = rec;
                break;
            }
        TDLFieldDef& field =
            TableDef.AddField(c.Name, c.Type, c.Default, info.Collate, info.NotNull, info.NotNullConflictClause);
        field.FGeneratedExpression = info.GeneratedExpression;
        field.FGeneratedStored = info.GeneratedStored;
        // The engine allows no default on a generated column.
        if (!field.FGeneratedExpression.isEmpty()) field.FDefaultValue.clear();
    }
}

// The columns of an index with their collations and orders as the engine
// keeps them (IndexColumnOptions).
TDLIndexFieldDefs ReadIndexColumns(TDLSQLiteDatabase& Database, const QString& DatabaseName,
                                   const QString& IndexName, const QString& IndexSQL,
                                   const TDLTableDef& TableDef, bool& HasExpression) {
    TDLIndexFieldDefs fields;
    IRecordSetPtr rs = Database.GetRecordSet(PragmaSQL(DatabaseName, "index_xinfo", IndexName));
    for (int r = 0, place = 0; r < rs->GetRecordCount(); ++r, ++place) {
        if (rs->GetValueByName(r, QStringLiteral("key")) != u"1")
            break;  // the rowid or key behind the columns
        const QString name = rs->GetValueByName(r, QStringLiteral("name"));
        HasExpression = HasExpression || name.isEmpty();
        QString own;
        for (int i = 0; i < TableDef.FieldCount(); ++i)
            if (SameName(TableDef.Fields(i).FFieldName, name)) own = TableDef.Fields(i).FCollate;
        QString collate, order;
        if (!name.isEmpty())
            IndexColumnOptions(IndexSQL, place, rs->GetValueByName(r, QStringLiteral("coll")),
                               rs->GetValueByName(r, QStringLiteral("desc")) == u"1", own, collate, order);
        fields.AddField(name, collate, order);
    }
    return fields;
}

void AddIndexes(TDLSQLiteDatabase& Database, const QString& DatabaseName, const QString& Name,
                const QString& SQL, const std::vector<TColumn>& Columns, TDLTableDef& TableDef) {
    // The key's columns in key order.
    std::vector<const TColumn*> keyColumns;
    for (const TColumn& c : Columns)
        if (c.KeyPlace > 0) keyColumns.push_back(&c);
    std::stable_sort(keyColumns.begin(), keyColumns.end(),
                     [](const TColumn* a, const TColumn* b) { return a->KeyPlace < b->KeyPlace; });

    struct TIndex {
        QString Name;
        bool Unique;
    };
    std::vector<TIndex> indexes;
    QString keyIndex;  // empty: the key is the rowid
    IRecordSetPtr list = Database.GetRecordSet(PragmaSQL(DatabaseName, "index_list", Name));
    const bool hasOrigin = list->GetNames().contains(QLatin1String("origin"));
    const bool integerKey =
        keyColumns.size() == 1 && SameName(keyColumns[0]->Type, QStringLiteral("INTEGER"));
    for (int r = 0; r < list->GetRecordCount(); ++r) {
        const QString index = list->GetValueByName(r, QStringLiteral("name"));
        // Engines before 3.8.9 do not tell which index stems from what; the
        // first automatic one is then the best guess at the key's.
        const QString origin = hasOrigin ? list->GetValueByName(r, QStringLiteral("origin")) : QString();
        const bool automatic = hasOrigin ? origin != u"c" : IsAutoIndex(Name, index);
        const bool isKey = hasOrigin ? origin == u"pk" : automatic && !integerKey;
        if (!keyColumns.empty() && isKey && keyIndex.isEmpty()) {
            keyIndex = index;
            continue;
        }
        if (!automatic) indexes.push_back({index, list->GetValueByName(r, QStringLiteral("unique")) == u"1"});
    }

    if (!keyColumns.empty()) {
        const TPrimaryKeyRec key = GetPrimaryKeyOptions(SQL);
        TDLIndexFieldDefs fields;
        for (size_t i = 0; i < keyColumns.size(); ++i) {
            if (i >= key.Fields.size()) {
                fields.AddField(keyColumns[i]->Name);
                continue;
            }
            const TPrimaryKeyFieldRec& k = key.Fields[i];
            // A key that is the rowid has no order of its own: a DESC in its
            // table constraint changes nothing, and written on the column's
            // line it would make the column no rowid.
            fields.AddField(keyColumns[i]->Name, k.Collate, keyIndex.isEmpty() ? QString() : k.SortOrder,
                            k.Autoincrement);
        }
        TableDef.AddIndex(keyIndex, std::move(fields), ixPrimary | ixUnique, key.ConflictClause);
    }
    std::stable_sort(indexes.begin(), indexes.end(), [](const TIndex& a, const TIndex& b) {
        return a.Name.compare(b.Name, Qt::CaseInsensitive) < 0;
    });
    for (const TIndex& index : indexes) {
        const QString indexSQL = ObjectSQL(Database, DatabaseName, index.Name, "index");
        bool expression = false;
        TDLIndexFieldDefs fields =
            ReadIndexColumns(Database, DatabaseName, index.Name, indexSQL, TableDef, expression);
        TDLIndexDef& def = TableDef.AddIndex(index.Name, std::move(fields), index.Unique ? int(ixUnique) : 0,
                                             QString(), GetIndexWhereClause(indexSQL));
        if (expression) def.FUnsupportedClauses.append(QStringLiteral("an expression as a column"));
    }
}

// The triggers on an owner: those kept in its database, then the temporary
// ones that hang on it (a temporary trigger names its table's database, or
// else hangs on main's).
template <typename TOwner>
void AddTriggers(TDLSQLiteDatabase& Database, const QString& DatabaseName, const QString& Name,
                 TOwner& Owner) {
    const QString select =
        QStringLiteral("select name, sql from %1 where type = 'trigger' and tbl_name = %2 collate nocase");
    if (!IsTempDatabase(DatabaseName)) {
        IRecordSetPtr rs = Database.GetRecordSet(select.arg(MasterTable(DatabaseName), QuotedStr(Name)));
        for (int r = 0; r < rs->GetRecordCount(); ++r)
            Owner.AddTrigger(rs->GetValue(r, 0), BuildTriggerSQL(GetTriggerRec(rs->GetValue(r, 1)), false));
    }
    const QString ownerDatabase = DatabaseName.isEmpty() ? QStringLiteral("main") : DatabaseName;
    IRecordSetPtr rs =
        Database.GetRecordSet(select.arg(MasterTable(QStringLiteral("temp")), QuotedStr(Name)));
    for (int r = 0; r < rs->GetRecordCount(); ++r) {
        const QString sql = rs->GetValue(r, 1);
        QString triggerDatabase = GetTriggerDatabaseName(sql);
        if (triggerDatabase.isEmpty()) triggerDatabase = QStringLiteral("main");
        if (IsTempDatabase(ownerDatabase) || SameName(triggerDatabase, ownerDatabase))
            Owner.AddTrigger(rs->GetValue(r, 0), BuildTriggerSQL(GetTriggerRec(sql), true));
    }
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
    const QString sql = ObjectSQL(Database, db, name, "table");
    const std::vector<TUnsupportedClause> unsupported = GetUnsupportedClauses(sql);
    const std::vector<std::pair<QString, TSQLFieldRec>> infos = GetParser(sql).GetSQLFieldInfos();
    bool generated = false;
    for (const auto& info : infos) generated = generated || !info.second.GeneratedExpression.isEmpty();

    const std::vector<TColumn> columns = ReadColumns(Database, db, name, generated);
    AddFields(columns, infos, TableDef);
    AddIndexes(Database, db, name, sql, columns, TableDef);
    AddTriggers(Database, db, name, TableDef);
    AddConstraints(sql, TableDef);
    TableDef.FIsWithoutRowID = IsWithoutRowid(sql);
    TableDef.FIsStrict = IsStrictTable(sql);

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
    const QString sql = ObjectSQL(Database, db, name, "view");
    ViewDef.FViewName = ViewName;
    ViewDef.FIsTemporary = IsTempDatabase(db);
    const TViewDataRec rec = GetViewRec(sql);
    ViewDef.FAsClause = rec.AsClause;
    ViewDef.FColumnNames = rec.ColumnNames;
    for (const TUnsupportedClause& u : GetUnsupportedClauses(sql)) ViewDef.FUnsupportedClauses.append(u.Clause);
    AddTriggers(Database, db, name, ViewDef);
}

void ReadVirtualTableDef(TDLSQLiteDatabase& Database, const QString& TableName, TDLVirtualTableDef& Def) {
    QString db, name;
    ParseObject(TableName, db, name);
    const TVirtualTableRec rec = GetVirtualTableRec(ObjectSQL(Database, db, name, "table"));
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
    return BuildTriggerSQL(
        GetTriggerRec(ObjectSQL(Database, IsTemporary ? QStringLiteral("temp") : db, name, "trigger")),
        IsTemporary);
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
    const QString sql = GetCreateSQL(Database, TableDef, IncludeStructure, IncludeIndexes, IncludeTriggers);
    // Several statements: all of them or none.
    Database.Execute(QStringLiteral("savepoint brindle_create_table"));
    try {
        Database.Execute(sql);
    } catch (const ECustomException&) {
        Database.Execute(QStringLiteral("rollback to brindle_create_table"));
        Database.Execute(QStringLiteral("release brindle_create_table"));
        throw;
    }
    Database.Execute(QStringLiteral("release brindle_create_table"));
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

// One statement of the script, ended with ";" where the engine sees it (a
// text may end in a comment). When the definitions cannot carry a clause,
// the stored text is given instead, behind a comment that names what they
// would drop.
void AppendStatement(QString& Script, const QString& Name, const QStringList& Unsupported, const QString& SQL,
                     const QString& StoredSQL) {
    const QString text = (Unsupported.isEmpty() ? SQL : StoredSQL).trimmed();
    if (!Unsupported.isEmpty())
        Script += QStringLiteral("-- %1: the definitions cannot carry %2; the stored text follows.\r\n")
                      .arg(QString(Name).replace(u'\n', u' ').replace(u'\r', u' '),
                           Unsupported.join(QStringLiteral(", ")));
    Script += EndStatement(text) + QStringLiteral("\r\n\r\n");
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
    // wait for their turn among the indexes. Names go to the readers and
    // the definitions quoted, so that a dot or a quote in one splits
    // nothing; every object is written unqualified, for the database the
    // script runs in.
    std::map<QString, std::unique_ptr<TDLTableDef>> tables;
    std::map<QString, std::unique_ptr<TDLIndexDef>> indexes;
    auto tableDef = [&](const QString& name) -> TDLTableDef& {
        auto& def = tables[name.toLower()];
        if (!def) {
            def = std::make_unique<TDLTableDef>();
            ReadTableDef(Database, QuoteName(name), *def);
            def->FTableName = QuoteName(name);
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
        if (obj.Type == u"table" && GetSQLCommand(obj.SQL) == stCreateVirtualTable) {
            TDLVirtualTableDef def;
            ReadVirtualTableDef(Database, QuoteName(obj.Name), def);
            def.FTableName = QuoteName(obj.Name);
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
            ReadViewDef(Database, QuoteName(obj.Name), def);
            def.FViewName = QuoteName(obj.Name);
            AppendStatement(script, obj.Name, def.FUnsupportedClauses, def.GetCreateSQL(true, false), obj.SQL);
        } else if (obj.Type == u"trigger") {
            TTriggerRec rec = GetTriggerRec(obj.SQL);
            rec.DatabaseName.clear();  // a trigger's table is in its own database
            AppendStatement(script, obj.Name, {}, BuildTriggerSQL(rec, false), obj.SQL);
        }
    }
    return script;
}

}  // namespace brindle
