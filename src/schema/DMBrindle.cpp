#include "DMBrindle.h"

#include "DLObjectDefs.h"
#include "DLSQLiteParser.h"
#include "DLSchemaReader.h"
#include "engine/DLQuoteTools.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"
#include "engine/SQLText.h"

#include <map>

namespace brindle {

namespace {

const QString kCRLF = QStringLiteral("\r\n");
// Where the old table waits while its successor is filled. Fixed, so that a
// file left by a crash names what it is.
const QString kTempTableName = QStringLiteral("temp_table_27E74EF9F4E64890AD24B841846B1C72");
const QString kApplySavepoint = QStringLiteral("brindle_apply_design_transaction");

QString Lit(const QString& Value) {
    return QuotedStr(Value);
}

QString Bool(bool Value) {
    return Value ? QStringLiteral("1") : QStringLiteral("0");
}

bool IsTempDatabase(const QString& DatabaseName) {
    return DatabaseName.compare(QLatin1String("temp"), Qt::CaseInsensitive) == 0;
}

QString MasterOf(const QString& DatabaseName) {
    if (IsTempDatabase(DatabaseName)) return QStringLiteral("sqlite_temp_master");
    return QuoteSQLName(DatabaseName.isEmpty() ? QStringLiteral("main") : DatabaseName) +
           QStringLiteral(".sqlite_master");
}

// A comma-separated list of quoted names, as the design keeps key lists.
QStringList SplitFields(const QString& Fields) {
    QStringList list;
    FieldsToList(Fields, list, u',');
    for (QString& name : list) name = UnQuoteIdentifier(name.trimmed());
    list.removeAll(QString());
    return list;
}

QString JoinFields(const QStringList& Names) {
    QStringList quoted;
    for (const QString& n : Names) quoted.append(QuoteName(n));
    return quoted.join(u',');
}

// "name_1", "name_2", ...: the first that Taken does not know.
QString FreeName(const QString& Name, const std::function<bool(const QString&)>& Taken) {
    if (!Taken(Name)) return Name;
    for (int i = 1;; ++i) {
        const QString candidate = QStringLiteral("%1_%2").arg(Name).arg(i);
        if (!Taken(candidate)) return candidate;
    }
}

struct TColumn {
    QString Name;
    bool Generated = false;
};

// Every column in stored order, generated ones included (table_info hides
// them, and the design's old positions count them).
std::vector<TColumn> TableColumns(TDLSQLiteDatabase& Database, const QString& QualifiedName) {
    QString db, name;
    ParseObject(QualifiedName, db, name);
    IRecordSetPtr rs = Database.GetRecordSet(PragmaSQL(db, "table_xinfo", name));
    std::vector<TColumn> list;
    for (int r = 0; r < rs->GetRecordCount(); ++r) {
        const int hidden = rs->GetValueByName(r, QStringLiteral("hidden")).toInt();
        if (hidden == 1) continue;  // a virtual table's hidden column
        list.push_back({rs->GetValueByName(r, QStringLiteral("name")), hidden == 2 || hidden == 3});
    }
    return list;
}

// Indexes that a statement made (not the engine for a constraint).
QStringList CatalogueIndexes(TDLSQLiteDatabase& Database, const QString& DatabaseName, const QString& Table) {
    QStringList names;
    Database.GetValues(QStringLiteral("select name from %1 where type = 'index' and sql is not null and "
                                      "tbl_name = %2 collate nocase order by rowid")
                           .arg(MasterOf(DatabaseName), Lit(Table)),
                       names);
    return names;
}

struct TTriggerName {
    QString Name;
    bool IsTemporary;
};

// The table's triggers in its own database and the temporary ones on it.
std::vector<TTriggerName> CatalogueTriggers(TDLSQLiteDatabase& Database, const QString& DatabaseName,
                                            const QString& Table) {
    std::vector<TTriggerName> list;
    const QString select =
        QStringLiteral("select name, sql from %1 where type = 'trigger' and tbl_name = %2 collate nocase order by rowid");
    if (!IsTempDatabase(DatabaseName)) {
        IRecordSetPtr own = Database.GetRecordSet(select.arg(MasterOf(DatabaseName), Lit(Table)));
        for (int r = 0; r < own->GetRecordCount(); ++r) list.push_back({own->GetValue(r, 0), false});
    }
    IRecordSetPtr rs = Database.GetRecordSet(select.arg(MasterOf(QStringLiteral("temp")), Lit(Table)));
    for (int r = 0; r < rs->GetRecordCount(); ++r) {
        QString on = GetTriggerDatabaseName(rs->GetValue(r, 1));
        if (on.isEmpty()) on = QStringLiteral("main");
        if (IsTempDatabase(DatabaseName) || on.compare(DatabaseName, Qt::CaseInsensitive) == 0)
            list.push_back({rs->GetValue(r, 0), true});
    }
    return list;
}

// Whether the owner's trigger of that name is kept in temp; every trigger
// of a temporary owner is.
bool IsTemporaryTrigger(const std::vector<TTriggerName>& Names, const QString& Name, const QString& DatabaseName) {
    for (const TTriggerName& n : Names)
        if (n.Name.compare(Name, Qt::CaseInsensitive) == 0) return n.IsTemporary;
    return IsTempDatabase(DatabaseName);
}

}  // namespace

QString GetSizePrecisionStr(QString Size, QString Precision) {
    Size = Size.trimmed();
    Precision = Precision.trimmed();
    if (Precision.isEmpty()) Precision = QStringLiteral("0");
    if (Precision != u"0" && Size.isEmpty()) Size = QStringLiteral("0");
    if (Size.isEmpty()) return QString();
    if (Size == u"0" && Precision == u"0") return QString();
    if (Precision != u"0") return QStringLiteral("(%1, %2)").arg(Size, Precision);
    return QStringLiteral("(%1)").arg(Size);
}

TDesignField DesignField(TDLSQLiteDatabase& Database, const TDLFieldDef& Field) {
    TDesignField row;
    row.Name = Field.FFieldName;
    row.DeclaredType = Field.FDeclaredType;
    Database.SQLStrToDataType(Field.FDeclaredType, row.Type, row.Size, row.Precision);
    row.NotNull = Field.FNotNull;
    row.NotNullOnConflict = Field.FNotNullConflictClause;
    row.DefaultValue = Field.FDefaultValue;
    row.Collate = Field.FCollate;
    row.GeneratedExpression = Field.FGeneratedExpression;
    row.GeneratedStored = Field.FGeneratedStored;
    return row;
}

bool TableIsEmpty(TDLSQLiteDatabase& Database, const QString& TableName) {
    IRecordSetPtr rs = Database.GetRecordSet(QStringLiteral("select * from %1 limit 1").arg(QuoteObject(TableName)));
    return rs->GetRecordCount() == 0;
}

QStringList GetReferencingTables(TDLSQLiteDatabase& Database, const QString& TableName) {
    QString db, name;
    ParseObject(TableName, db, name);
    if (db.isEmpty()) db = QStringLiteral("main");
    QStringList tables;
    Database.GetValues(
        QStringLiteral("select distinct m.name from %1 m, pragma_foreign_key_list(m.name, %2) f "
                       "where m.type = 'table' and f.\"table\" = %3 collate nocase and m.name <> %3 collate nocase")
            .arg(MasterOf(db), Lit(db), Lit(name)),
        tables);
    for (QString& t : tables) t = QuoteObjectIfNeeded(db, t);
    return tables;
}

bool IsFieldReferenced(TDLSQLiteDatabase& Database, const QString& TableName, const QString& FieldName) {
    QString db, name;
    ParseObject(TableName, db, name);
    if (db.isEmpty()) db = QStringLiteral("main");
    // A key without parent columns names the parent's primary key.
    const QString sql = QStringLiteral(
        "select count(*) from %1 m, pragma_foreign_key_list(m.name, %2) f "
        "where m.type = 'table' and f.\"table\" = %3 collate nocase and m.name <> %3 collate nocase and "
        "(f.\"to\" = %4 collate nocase or (f.\"to\" is null and exists (select 1 from "
        "pragma_table_info(%3, %2) k where k.pk > 0 and k.name = %4 collate nocase)))");
    return Database.GetStringValue(sql.arg(MasterOf(db), Lit(db), Lit(name), Lit(FieldName))).toLongLong() > 0;
}

void RenameTable(TDLSQLiteDatabase& Database, const QString& OldName, const QString& NewName) {
    QString db, oldTable, newDb, newTable;
    ParseObject(OldName, db, oldTable);
    ParseObject(NewName, newDb, newTable);
    if (newTable == oldTable) return;
    const QString quotedOld = QuoteObject(db, oldTable);
    if (newTable.compare(oldTable, Qt::CaseInsensitive) != 0) {
        Database.Execute(QStringLiteral("alter table %1 rename to %2").arg(quotedOld, QuoteIdentifier(newTable)));
        return;
    }
    // The engine refuses a name that differs in case only: take a detour
    // through the first free name.
    QString temp;
    for (int i = 0;; ++i) {
        temp = QStringLiteral("%1_%2").arg(QStringLiteral("brindle_temp_table")).arg(i);
        if (Database.GetStringValue(QStringLiteral("select count(*) from %1 where name = %2 collate nocase")
                                        .arg(MasterOf(db), Lit(temp)))
                .toInt() == 0)
            break;
    }
    Database.Execute(QStringLiteral("alter table %1 rename to %2").arg(quotedOld, QuoteIdentifier(temp)));
    Database.Execute(QStringLiteral("alter table %1 rename to %2")
                         .arg(QuoteObject(db, temp), QuoteIdentifier(newTable)));
}

// ---------------------------------------------------------------------------

class TdmBrindle::TImpl {
public:
    explicit TImpl(TdmBrindle& Owner) : O(Owner) {}

    TDLSQLiteDatabase& Mem() { return *O.FMemDB; }
    void Exec(const QString& SQL) { Mem().Execute(SQL); }
    IRecordSetPtr Rows(const QString& SQL) { return Mem().GetRecordSet(SQL); }
    qint64 Int(const QString& SQL) { return Mem().GetStringValue(SQL).toLongLong(); }

    // The user's database, or the dry run's list.
    void Run(TDLSQLiteDatabase& Database, const QString& SQL) {
        if (O.FRecordOnly)
            O.FRecorded.append(SQL);
        else
            Database.Execute(SQL);
    }
    void Progress(const QString& Step) {
        if (FHooks && FHooks->OnProgress) FHooks->OnProgress(Step);
    }
    void Status(const QString& Word) {
        if (FHooks && FHooks->OnStatus) FHooks->OnStatus(Word);
    }

    void Touch(bool Fields, bool Indexes, bool Triggers) {
        O.FTableDesignModified = true;
        O.FFieldsModified = O.FFieldsModified || Fields;
        O.FIndexesModified = O.FIndexesModified || Indexes;
        O.FTableTriggersModified = O.FTableTriggersModified || Triggers;
    }

    bool NameTaken(const QString& Table, const QString& Name, qint64 ExceptRowID = 0) {
        return Int(QStringLiteral("select count(*) from %1 where Name = %2 collate nocase and rowid <> %3")
                       .arg(Table, Lit(Name))
                       .arg(ExceptRowID)) > 0;
    }

    void WriteField(qint64 RowID, const TDesignField& F, qint64 Position, const QString& OldPosition) {
        Exec(QStringLiteral("insert or replace into Fields(rowid, Position, OldPosition, Name, DeclaredType, Type, "
                            "Size, Precision, [Not Null], [Not Null On Conflict], DefaultValue, [Collate], [Generated], "
                            "[Generated Stored]) values(%1, %2, %3, %4, %5, %6, %7, %8, %9, %10, %11, %12, %13, %14)")
                 .arg(RowID > 0 ? QString::number(RowID) : QStringLiteral("null"))
                 .arg(Position)
                 .arg(OldPosition, Lit(F.Name), Lit(F.DeclaredType), Lit(F.Type), Lit(F.Size), Lit(F.Precision),
                      Bool(F.NotNull), Lit(F.NotNull ? F.NotNullOnConflict : QString()), Lit(F.DefaultValue),
                      Lit(F.Collate), Lit(F.GeneratedExpression), Bool(F.GeneratedStored)));
    }

    qint64 InsertIndex(const TDesignIndex& I) {
        Exec(QStringLiteral("insert into Indexes(Name, Type, [On Conflict], [Where Clause]) values(%1, %2, %3, %4)")
                 .arg(Lit(I.Name), Lit(I.Type), Lit(I.OnConflict), Lit(I.WhereClause)));
        const qint64 id = Mem().GetLastInsertRowID();
        WriteIndexFields(I);
        return id;
    }
    void WriteIndexFields(const TDesignIndex& I) {
        for (const TDesignIndexField& f : I.Fields)
            Exec(QStringLiteral("insert into IndexFields(IndexName, FieldName, [Collate], SortOrder, [Autoincrement]) "
                                "values(%1, %2, %3, %4, %5)")
                     .arg(Lit(I.Name), Lit(f.FieldName), Lit(f.Collate), Lit(f.SortOrder), Bool(f.Autoincrement)));
    }

    void CheckIndexName(const TDesignIndex& I, qint64 ExceptRowID) {
        if (I.Name.startsWith(QLatin1String("sqlite_"), Qt::CaseInsensitive) &&
            !IsAutoIndex(O.FCurrentTableName, I.Name))
            throw ECustomException(QStringLiteral("Index names beginning with 'sqlite_' are reserved for use by SQLite."));
        if (!I.Name.isEmpty() && NameTaken(QStringLiteral("Indexes"), I.Name, ExceptRowID))
            throw ECustomException(QStringLiteral("The design already has an index named %1.").arg(QuoteName(I.Name)));
    }

    qint64 InsertUnique(const TDesignUniqueConstraint& U) {
        Exec(QStringLiteral("insert into UniqueConstraints(Name, Fields, [On Conflict]) values(%1, %2, %3)")
                 .arg(Lit(U.Name), Lit(U.Fields), Lit(U.OnConflict)));
        return Mem().GetLastInsertRowID();
    }
    qint64 InsertCheck(const TDesignCheckConstraint& C) {
        Exec(QStringLiteral("insert into CheckConstraints(Name, Expression) values(%1, %2)")
                 .arg(Lit(C.Name), Lit(C.Expression)));
        return Mem().GetLastInsertRowID();
    }
    qint64 InsertForeignKey(const TDesignForeignKey& F) {
        Exec(QStringLiteral("insert into ForeignKeys(Name, [Parent Table], [Child Key], [Parent Key], [On Delete], "
                            "[On Update], [Match], [Deferrable], [Initially]) values(%1, %2, %3, %4, %5, %6, %7, %8, %9)")
                 .arg(Lit(F.Name), Lit(F.ParentTable), Lit(F.ChildKey), Lit(F.ParentKey), Lit(F.OnDelete),
                      Lit(F.OnUpdate), Lit(F.Match), Lit(F.Deferrable), Lit(F.Initially)));
        return Mem().GetLastInsertRowID();
    }
    qint64 InsertTrigger(const QString& Table, const TDesignTrigger& T) {
        Exec(QStringLiteral("insert into %1(Name, SQL, IsTemporary) values(%2, %3, %4)")
                 .arg(Table, Lit(T.Name), Lit(T.SQL), Bool(T.IsTemporary)));
        return Mem().GetLastInsertRowID();
    }

    std::vector<TDesignTrigger> Triggers(const QString& Table) {
        std::vector<TDesignTrigger> list;
        IRecordSetPtr rs = Rows(QStringLiteral("select rowid, Name, SQL, IsTemporary from %1 order by rowid").arg(Table));
        for (int r = 0; r < rs->GetRecordCount(); ++r)
            list.push_back({rs->GetValue(r, 0).toLongLong(), rs->GetValue(r, 1), rs->GetValue(r, 2),
                            rs->GetValue(r, 3) == u"1"});
        return list;
    }

    // Each pasted item keeps its name when free in Table, else the first
    // "name_N" that is.
    template <typename T, typename TInsert>
    void PasteNamed(const QString& Table, const std::vector<T>& Items, TInsert&& Insert) {
        for (T item : Items) {
            if (!item.Name.isEmpty())
                item.Name = FreeName(item.Name, [&](const QString& n) { return NameTaken(Table, n); });
            Insert(item);
        }
    }

    // After a failed apply: back to the savepoint inside the user's
    // transaction, or the whole transaction the savepoint began.
    void RollbackApply(TDLSQLiteDatabase& Database, bool WasInTransaction) {
        Status(QStringLiteral("Rollback transaction"));
        if (O.FRecordOnly || !Database.GetInTransaction()) return;
        try {
            if (WasInTransaction)
                Database.Execute(QStringLiteral("rollback to savepoint ") + kApplySavepoint);
            else
                Database.Rollback();
        } catch (const ECustomException&) {
            // The first failure is the one to report.
        }
    }

    void DeleteRows(const QString& Table, const QList<qint64>& RowIDs) {
        for (qint64 id : RowIDs) Exec(QStringLiteral("delete from %1 where rowid = %2").arg(Table).arg(id));
    }

    // Follows a column rename through the parts of the design that name it.
    void RenameReferences(const QString& OldName, const QString& NewName) {
        Exec(QStringLiteral("update IndexFields set FieldName = %1 where FieldName = %2 collate nocase")
                 .arg(Lit(NewName), Lit(OldName)));
        auto renameIn = [&](const QString& Table, const QString& Column) {
            IRecordSetPtr rs = Rows(QStringLiteral("select rowid, [%1] from %2").arg(Column, Table));
            for (int r = 0; r < rs->GetRecordCount(); ++r) {
                QStringList names = SplitFields(rs->GetValue(r, 1));
                bool changed = false;
                for (QString& n : names)
                    if (SameObject(n, OldName)) {
                        n = NewName;
                        changed = true;
                    }
                if (changed)
                    Exec(QStringLiteral("update %1 set [%2] = %3 where rowid = %4")
                             .arg(Table, Column, Lit(JoinFields(names)), rs->GetValue(r, 0)));
            }
        };
        renameIn(QStringLiteral("UniqueConstraints"), QStringLiteral("Fields"));
        renameIn(QStringLiteral("ForeignKeys"), QStringLiteral("Child Key"));
        for (const TDesignTrigger& t : Triggers(QStringLiteral("TableTriggers"))) {
            TTriggerRec rec = GetTriggerRec(t.SQL);
            bool changed = false;
            for (QString& f : rec.Fields)
                if (f == OldName) {
                    f = NewName;
                    changed = true;
                }
            if (changed)
                Exec(QStringLiteral("update TableTriggers set SQL = %1 where rowid = %2")
                         .arg(Lit(BuildTriggerSQL(rec, t.IsTemporary)))
                         .arg(t.RowID));
        }
    }

    // Drops and makes the table's triggers from the design rows.
    void CreateTriggers(TDLSQLiteDatabase& Database, const QString& NewTableName) {
        Progress(QStringLiteral("Create triggers"));
        QString db, table;
        ParseObject(NewTableName, db, table);
        for (const TDesignTrigger& t : Triggers(QStringLiteral("TableTriggers"))) {
            TTriggerRec rec = GetTriggerRec(t.SQL);
            rec.TableName = table;
            rec.DatabaseName = db;
            Run(Database, BuildTriggerSQL(rec, t.IsTemporary));
        }
    }

    void DropTriggers(TDLSQLiteDatabase& Database, const QString& DatabaseName, const QString& Table,
                      bool IfExists) {
        for (const TTriggerName& t : CatalogueTriggers(Database, DatabaseName, Table))
            Run(Database, (IfExists ? QStringLiteral("drop trigger if exists ") : QStringLiteral("drop trigger ")) +
                              QuoteObject(t.IsTemporary ? QStringLiteral("temp") : DatabaseName, t.Name));
    }

    void DropIndexes(TDLSQLiteDatabase& Database, const QString& DatabaseName, const QString& Table,
                     bool IfExists) {
        for (const QString& index : CatalogueIndexes(Database, DatabaseName, Table))
            if (!IsAutoIndex(Table, index))
                Run(Database, (IfExists ? QStringLiteral("drop index if exists ") : QStringLiteral("drop index ")) +
                                  QuoteObject(DatabaseName, index));
    }

    // Copies the rows by old position: names may have changed, places too.
    // The source's columns are read from ColumnsOf, which a dry run, where
    // the old table keeps its name, sets apart from Source.
    void CopyData(TDLSQLiteDatabase& Database, const QString& Source, const QString& Dest,
                  const QString& ColumnsOf) {
        Progress(QStringLiteral("Copy data"));
        const std::vector<TColumn> source = TableColumns(Database, ColumnsOf);
        const std::vector<TDesignField> fields = O.Fields();
        QStringList sourceList, destList;
        for (const TDesignField& f : fields) {
            if (!f.OldPosition || !f.GeneratedExpression.isEmpty()) continue;  // no source, or computed
            const size_t old = static_cast<size_t>(*f.OldPosition);
            if (old >= source.size()) continue;
            sourceList.append(QuoteIdentifier(source[old].Name));
            destList.append(QuoteIdentifier(f.Name));
        }
        if (sourceList.isEmpty()) return;
        Run(Database, QStringLiteral("insert into %1(%2) select %3 from %4")
                          .arg(QuoteObject(Dest), destList.join(u','), sourceList.join(u','), QuoteObject(Source)));
    }

    void CreateTable(TDLSQLiteDatabase& Database, const QString& TableName) {
        TDLTableDef def;
        O.GetTableDef(TableName, def);
        Run(Database, def.GetCreateSQL(true, true, false));
    }

    // Recreates the table from the design with its rows; leaves the
    // triggers of the design in place.
    void RecreateTable(TDLSQLiteDatabase& Database, const QString& NewTableName, bool ForeignKeysActive) {
        QString db, oldTable;
        ParseObject(O.FCurrentTableName, db, oldTable);
        if (db.isEmpty()) db = QStringLiteral("main");
        const QString oldName = QuoteObject(db, oldTable);

        Progress(QStringLiteral("Delete old indexes"));
        DropIndexes(Database, db, oldTable, false);
        Progress(QStringLiteral("Delete old triggers"));
        DropTriggers(Database, db, oldTable, false);

        if (TableIsEmpty(Database, oldName)) {
            Progress(QStringLiteral("Delete old table"));
            Run(Database, QStringLiteral("drop table ") + oldName);
            Progress(QStringLiteral("Create new table"));
            CreateTable(Database, NewTableName);
        } else if (!ForeignKeysActive) {
            // The legacy rename leaves other objects' references alone: they
            // name the table, which the new one becomes.
            const QString temp = QuoteObject(db, kTempTableName);
            Progress(QStringLiteral("Rename old table"));
            WithLegacyAlter(Database, [&] {
                Run(Database, QStringLiteral("alter table %1 rename to %2").arg(oldName, QuoteIdentifier(kTempTableName)));
            });
            Progress(QStringLiteral("Create new table"));
            CreateTable(Database, NewTableName);
            CopyData(Database, temp, NewTableName, O.FRecordOnly ? oldName : temp);
            Progress(QStringLiteral("Delete old table"));
            Run(Database, QStringLiteral("drop table ") + temp);
        } else {
            // Inside a transaction the foreign keys stay on, and a rename of
            // the old table would turn the children's keys to the passing
            // name even in legacy mode. The new table is made under the
            // passing name instead, and takes the real one last.
            QString newDb, newTable;
            ParseObject(NewTableName, newDb, newTable);
            if (newDb.isEmpty()) newDb = db;
            const QString temp = QuoteObject(newDb, kTempTableName);
            Progress(QStringLiteral("Create new table"));
            CreateTable(Database, temp);
            CopyData(Database, oldName, temp, oldName);
            Progress(QStringLiteral("Delete old table"));
            Run(Database, QStringLiteral("drop table ") + oldName);
            Progress(QStringLiteral("Rename new table"));
            WithLegacyAlter(Database, [&] {
                Run(Database, QStringLiteral("alter table %1 rename to %2").arg(temp, QuoteIdentifier(newTable)));
            });
        }
        CreateTriggers(Database, NewTableName);
    }

    template <typename F>
    void WithLegacyAlter(TDLSQLiteDatabase& Database, F&& Work) {
        const QString old = Database.GetStringValue(QStringLiteral("pragma legacy_alter_table"));
        Run(Database, QStringLiteral("pragma legacy_alter_table = on"));
        try {
            Work();
        } catch (...) {
            Run(Database, QStringLiteral("pragma legacy_alter_table = ") + (old == u"1" ? u'1' : u'0'));
            throw;
        }
        Run(Database, QStringLiteral("pragma legacy_alter_table = ") + (old == u"1" ? u'1' : u'0'));
    }

    void RecreateIndexes(TDLSQLiteDatabase& Database, const QString& NewTableName, bool Creating) {
        QString db, table;
        ParseObject(NewTableName, db, table);
        if (!Creating) {
            Progress(QStringLiteral("Delete old indexes"));
            QString oldDb, oldTable;
            ParseObject(O.FCurrentTableName, oldDb, oldTable);
            DropIndexes(Database, oldDb.isEmpty() ? db : oldDb, oldTable, true);
        }
        Progress(QStringLiteral("Create indexes"));
        TDLTableDef def(NewTableName);
        for (const TDesignIndex& ix : O.Indexes()) {
            if (ix.Type == u"Primary" || IsAutoIndex(table, ix.Name)) continue;
            TDLIndexFieldDefs fields;
            for (const TDesignIndexField& f : ix.Fields) fields.AddField(f.FieldName, f.Collate, f.SortOrder, false);
            TDLIndexDef index(ix.Name, std::move(fields), ix.Type == u"Unique" ? int(ixUnique) : 0, ix.OnConflict,
                              ix.WhereClause);
            Run(Database, def.GetIndexSQL(index));
        }
    }

    void RecreateTriggers(TDLSQLiteDatabase& Database, const QString& NewTableName, bool Creating) {
        QString db, table;
        ParseObject(NewTableName, db, table);
        if (!Creating) {
            Progress(QStringLiteral("Delete old triggers"));
            QString oldDb, oldTable;
            ParseObject(O.FCurrentTableName, oldDb, oldTable);
            if (oldDb.isEmpty()) oldDb = db;
            DropTriggers(Database, oldDb, oldTable, true);
            for (const TDesignTrigger& t : Triggers(QStringLiteral("TableTriggers")))
                Run(Database, QStringLiteral("drop trigger if exists ") +
                                  QuoteObject(t.IsTemporary ? QStringLiteral("temp") : db, t.Name));
        }
        CreateTriggers(Database, NewTableName);
    }

    TdmBrindle& O;
    const TApplyHooks* FHooks = nullptr;
    // What the loaded table had and the design cannot carry: of the table,
    // of a column (by old position), of an index (by name).
    QStringList FTableClauses;
    std::map<qint64, QStringList> FFieldClauses;
    std::map<QString, QStringList> FIndexClauses;
};

// ---------------------------------------------------------------------------

TdmBrindle::TdmBrindle() : FImpl(std::make_unique<TImpl>(*this)) {}

TdmBrindle::~TdmBrindle() = default;

void TdmBrindle::Initialize() {
    if (FMemDB) return;
    FMemDB = std::make_unique<TDLSQLiteDatabase>();
    FMemDB->FShowWaitCursor = false;
    FMemDB->SetFileName(QStringLiteral(":memory:"));
    FMemDB->SetAliasName(QStringLiteral("design"));
    FMemDB->SetConnected(true);
    FMemDB->Execute(QStringLiteral(
        "create table Fields(rowid integer primary key, Name text, DeclaredType text, Type text, Size text, "
        "Precision text, [Not Null] integer, [Not Null On Conflict] text, DefaultValue text, [Collate] text, "
        "[Generated] text, [Generated Stored] integer, Position integer, OldPosition integer);"
        "create table Indexes(rowid integer primary key, Name text, Type text, [On Conflict] text, "
        "[Where Clause] text);"
        "create table IndexFields(rowid integer primary key, IndexName text, FieldName text, [Collate] text, "
        "SortOrder text, [Autoincrement] integer);"
        "create table UniqueConstraints(rowid integer primary key, Name text, Fields text, [On Conflict] text);"
        "create table CheckConstraints(rowid integer primary key, Name text, Expression text);"
        "create table ForeignKeys(rowid integer primary key, Name text, [Parent Table] text, [Child Key] text, "
        "[Parent Key] text, [On Delete] text, [On Update] text, [Match] text, [Deferrable] text, [Initially] text);"
        "create table TableTriggers(rowid integer primary key, Name text, SQL text, IsTemporary integer);"
        "create table ViewTriggers(rowid integer primary key, Name text, SQL text, IsTemporary integer);"));
}

void TdmBrindle::Uninitialize() {
    FMemDB.reset();
}

void TdmBrindle::ClearDesign() {
    Initialize();
    FImpl->Exec(QStringLiteral(
        "delete from Fields; delete from Indexes; delete from IndexFields; delete from UniqueConstraints; "
        "delete from CheckConstraints; delete from ForeignKeys; delete from TableTriggers;"));
    FImpl->FTableClauses.clear();
    FImpl->FFieldClauses.clear();
    FImpl->FIndexClauses.clear();
    FTableDesignModified = FFieldsModified = FIndexesModified = FTableTriggersModified = false;
    FCreatingTable = false;
    FCurrentTableName.clear();
    FTableName.clear();
    FIsWithoutRowID = FIsStrict = FIsTemporary = false;
}

void TdmBrindle::NewTableDesign() {
    ClearDesign();
    FCreatingTable = true;
    FTableDesignModified = FFieldsModified = FIndexesModified = FTableTriggersModified = true;
}

void TdmBrindle::LoadTableDesign(TDLSQLiteDatabase& Database, const QString& TableName) {
    TDLTableDef def;
    ReadTableDef(Database, TableName, def);
    ClearDesign();
    FCurrentTableName = TableName;
    FTableName = TableName;
    FIsWithoutRowID = def.FIsWithoutRowID;
    FIsStrict = def.FIsStrict;
    FIsTemporary = def.FIsTemporary;
    FImpl->FTableClauses = def.FUnsupportedClauses;

    // One transaction for the whole fill: a wide table stays quick.
    FImpl->Exec(QStringLiteral("begin"));
    try {
        for (int i = 0; i < def.FieldCount(); ++i) {
            const TDLFieldDef& f = def.Fields(i);
            FImpl->WriteField(0, DesignField(Database, f), i, QString::number(i));
            if (!f.FUnsupportedClauses.isEmpty()) FImpl->FFieldClauses[i] = f.FUnsupportedClauses;
        }
        for (int i = 0; i < def.IndexCount(); ++i) {
            const TDLIndexDef& ix = def.Indexes(i);
            TDesignIndex row;
            row.Name = ix.FIndexName;
            // A key is unique too; it must read as the key.
            row.Type = (ix.FOptions & ixPrimary) ? QStringLiteral("Primary")
                       : (ix.FOptions & ixUnique) ? QStringLiteral("Unique")
                                                  : QString();
            row.OnConflict = ix.FConflictClause;
            row.WhereClause = ix.FWhereClause;
            for (int k = 0; k < ix.FIndexFields.Count(); ++k) {
                const TDLIndexFieldDef& f = ix.FIndexFields.Items(k);
                row.Fields.push_back({f.FFieldName, f.FCollate, f.FSortOrder, f.FAutoincrement});
            }
            FImpl->InsertIndex(row);
            if (!ix.FUnsupportedClauses.isEmpty()) FImpl->FIndexClauses[ix.FIndexName.toLower()] = ix.FUnsupportedClauses;
        }
        for (int i = 0; i < def.UniqueConstraintCount(); ++i) {
            const TDLUniqueConstraintDef& u = def.UniqueConstraints(i);
            FImpl->InsertUnique({0, u.FConstraintName, JoinFields(u.FFields), u.FConflictClause});
        }
        for (int i = 0; i < def.CheckConstraintCount(); ++i) {
            const TDLCheckConstraintDef& c = def.CheckConstraints(i);
            FImpl->InsertCheck({0, c.FConstraintName, c.FExpression});
        }
        for (int i = 0; i < def.ForeignKeyCount(); ++i) {
            const TDLForeignKeyDef& k = def.ForeignKeys(i);
            FImpl->InsertForeignKey({0, k.FConstraintName, k.FParentTableName, JoinFields(k.FChildKey),
                                     JoinFields(k.FParentKey), k.FOnDeleteAction, k.FOnUpdateAction, k.FMatchName,
                                     k.FDeferrable, k.FInitially});
        }
        QString db, table;
        ParseObject(TableName, db, table);
        if (db.isEmpty()) db = QStringLiteral("main");
        const std::vector<TTriggerName> names = CatalogueTriggers(Database, db, table);
        for (int i = 0; i < def.TriggerCount(); ++i)
            FImpl->InsertTrigger(QStringLiteral("TableTriggers"),
                                 {0, def.Triggers(i).FTriggerName, def.Triggers(i).FSQL,
                                  IsTemporaryTrigger(names, def.Triggers(i).FTriggerName, db)});
        FImpl->Exec(QStringLiteral("commit"));
    } catch (...) {
        FImpl->Exec(QStringLiteral("rollback"));
        throw;
    }
}

void TdmBrindle::LoadViewDesign(TDLSQLiteDatabase& Database, const QString& ViewName) {
    Initialize();
    TDLViewDef def;
    ReadViewDef(Database, ViewName, def);
    FImpl->Exec(QStringLiteral("delete from ViewTriggers"));
    QString db, view;
    ParseObject(ViewName, db, view);
    if (db.isEmpty()) db = QStringLiteral("main");
    const std::vector<TTriggerName> names = CatalogueTriggers(Database, db, view);
    for (int i = 0; i < def.GetTriggerCount(); ++i)
        FImpl->InsertTrigger(QStringLiteral("ViewTriggers"),
                             {0, def.GetTrigger(i).FTriggerName, def.GetTrigger(i).FSQL,
                              IsTemporaryTrigger(names, def.GetTrigger(i).FTriggerName, db)});
    FCurrentViewName = ViewName;
    FViewDesignModified = false;
}

// --- reading ---------------------------------------------------------------

std::vector<TDesignField> TdmBrindle::Fields() const {
    std::vector<TDesignField> list;
    IRecordSetPtr rs = FImpl->Rows(QStringLiteral(
        "select rowid, Name, DeclaredType, Type, Size, Precision, [Not Null], [Not Null On Conflict], DefaultValue, "
        "[Collate], [Generated], [Generated Stored], Position, ifnull(OldPosition, -1) from Fields order by Position, rowid"));
    for (int r = 0; r < rs->GetRecordCount(); ++r) {
        TDesignField f;
        f.RowID = rs->GetValue(r, 0).toLongLong();
        f.Name = rs->GetValue(r, 1);
        f.DeclaredType = rs->GetValue(r, 2);
        f.Type = rs->GetValue(r, 3);
        f.Size = rs->GetValue(r, 4);
        f.Precision = rs->GetValue(r, 5);
        f.NotNull = rs->GetValue(r, 6) == u"1";
        f.NotNullOnConflict = rs->GetValue(r, 7);
        f.DefaultValue = rs->GetValue(r, 8);
        f.Collate = rs->GetValue(r, 9);
        f.GeneratedExpression = rs->GetValue(r, 10);
        f.GeneratedStored = rs->GetValue(r, 11) == u"1";
        f.Position = rs->GetValue(r, 12).toLongLong();
        const qint64 old = rs->GetValue(r, 13).toLongLong();
        if (old >= 0) f.OldPosition = old;
        list.push_back(f);
    }
    return list;
}

std::vector<TDesignIndex> TdmBrindle::Indexes() const {
    std::vector<TDesignIndex> list;
    IRecordSetPtr rs =
        FImpl->Rows(QStringLiteral("select rowid, Name, Type, [On Conflict], [Where Clause] from Indexes order by rowid"));
    for (int r = 0; r < rs->GetRecordCount(); ++r) {
        TDesignIndex ix;
        ix.RowID = rs->GetValue(r, 0).toLongLong();
        ix.Name = rs->GetValue(r, 1);
        ix.Type = rs->GetValue(r, 2);
        ix.OnConflict = rs->GetValue(r, 3);
        ix.WhereClause = rs->GetValue(r, 4);
        IRecordSetPtr fs = FImpl->Rows(
            QStringLiteral("select FieldName, [Collate], SortOrder, [Autoincrement] from IndexFields where IndexName = %1 "
                           "order by rowid")
                .arg(Lit(ix.Name)));
        for (int k = 0; k < fs->GetRecordCount(); ++k)
            ix.Fields.push_back({fs->GetValue(k, 0), fs->GetValue(k, 1), fs->GetValue(k, 2), fs->GetValue(k, 3) == u"1"});
        list.push_back(ix);
    }
    return list;
}

std::vector<TDesignUniqueConstraint> TdmBrindle::UniqueConstraints() const {
    std::vector<TDesignUniqueConstraint> list;
    IRecordSetPtr rs = FImpl->Rows(QStringLiteral("select rowid, Name, Fields, [On Conflict] from UniqueConstraints order by rowid"));
    for (int r = 0; r < rs->GetRecordCount(); ++r)
        list.push_back({rs->GetValue(r, 0).toLongLong(), rs->GetValue(r, 1), rs->GetValue(r, 2), rs->GetValue(r, 3)});
    return list;
}

std::vector<TDesignCheckConstraint> TdmBrindle::CheckConstraints() const {
    std::vector<TDesignCheckConstraint> list;
    IRecordSetPtr rs = FImpl->Rows(QStringLiteral("select rowid, Name, Expression from CheckConstraints order by rowid"));
    for (int r = 0; r < rs->GetRecordCount(); ++r)
        list.push_back({rs->GetValue(r, 0).toLongLong(), rs->GetValue(r, 1), rs->GetValue(r, 2)});
    return list;
}

std::vector<TDesignForeignKey> TdmBrindle::ForeignKeys() const {
    std::vector<TDesignForeignKey> list;
    IRecordSetPtr rs = FImpl->Rows(QStringLiteral(
        "select rowid, Name, [Parent Table], [Child Key], [Parent Key], [On Delete], [On Update], [Match], [Deferrable], "
        "[Initially] from ForeignKeys order by rowid"));
    for (int r = 0; r < rs->GetRecordCount(); ++r)
        list.push_back({rs->GetValue(r, 0).toLongLong(), rs->GetValue(r, 1), rs->GetValue(r, 2), rs->GetValue(r, 3),
                        rs->GetValue(r, 4), rs->GetValue(r, 5), rs->GetValue(r, 6), rs->GetValue(r, 7),
                        rs->GetValue(r, 8), rs->GetValue(r, 9)});
    return list;
}

std::vector<TDesignTrigger> TdmBrindle::TableTriggers() const {
    return FImpl->Triggers(QStringLiteral("TableTriggers"));
}

std::vector<TDesignTrigger> TdmBrindle::ViewTriggers() const {
    return FImpl->Triggers(QStringLiteral("ViewTriggers"));
}

QStringList TdmBrindle::GetFields() const {
    QStringList names;
    for (const TDesignField& f : Fields()) names.append(f.Name);
    return names;
}

bool TdmBrindle::HasPrimaryKey() const {
    return FImpl->Int(QStringLiteral("select count(*) from Indexes where Type = 'Primary'")) > 0;
}

bool TdmBrindle::FieldExists(const QString& FieldName) const {
    for (const TDesignField& f : Fields())
        if (f.Name.compare(FieldName, Qt::CaseInsensitive) == 0) return true;
    return false;
}

// --- editing ---------------------------------------------------------------

namespace {

// A type the engine would read past its end (it takes "VARCHAR(10" whole)
// and that no reader can take apart again.
void CheckFieldType(const QString& Type) {
    int depth = 0;
    for (const QChar c : Type) {
        if (c == u'(') ++depth;
        if (c == u')' && --depth < 0) break;
    }
    if (depth != 0)
        throw ECustomException(QStringLiteral("The type %1 has unbalanced parentheses.").arg(Type.trimmed()));
}

}  // namespace

qint64 TdmBrindle::AddField(const TDesignField& Field) {
    CheckFieldType(Field.Type);
    TDesignField f = Field;
    f.DeclaredType = f.Type.trimmed() + GetSizePrecisionStr(f.Size, f.Precision);
    const qint64 position = FImpl->Int(QStringLiteral("select ifnull(max(Position) + 1, 1) from Fields"));
    FImpl->WriteField(0, f, position, QStringLiteral("null"));
    FImpl->Touch(true, false, false);
    return FImpl->Mem().GetLastInsertRowID();
}

void TdmBrindle::ModifyField(qint64 RowID, const TDesignField& Field) {
    TDesignField old;
    for (const TDesignField& f : Fields())
        if (f.RowID == RowID) old = f;
    if (old.RowID == 0) return;
    CheckFieldType(Field.Type);
    TDesignField f = Field;
    // A declared type that the type, size and precision boxes still show
    // as loaded keeps its own spelling ("UNSIGNED BIG INT", "NUMERIC(10,2)").
    if (f.Type == old.Type && f.Size == old.Size && f.Precision == old.Precision)
        f.DeclaredType = old.DeclaredType;
    else
        f.DeclaredType = f.Type.trimmed() + GetSizePrecisionStr(f.Size, f.Precision);
    FImpl->WriteField(RowID, f, old.Position,
                      old.OldPosition ? QString::number(*old.OldPosition) : QStringLiteral("null"));
    if (old.Name != f.Name) FImpl->RenameReferences(old.Name, f.Name);
    FImpl->Touch(true, false, false);
}

void TdmBrindle::DeleteFields(const QList<qint64>& RowIDs) {
    FImpl->DeleteRows(QStringLiteral("Fields"), RowIDs);
    qint64 position = 1;
    for (const TDesignField& f : Fields())
        FImpl->Exec(QStringLiteral("update Fields set Position = %1 where rowid = %2").arg(position++).arg(f.RowID));
    FImpl->Touch(true, false, false);
}

bool TdmBrindle::MoveUpField(qint64 RowID) {
    const std::vector<TDesignField> fields = Fields();
    bool moved = false;
    for (size_t i = 1; i < fields.size(); ++i)
        if (fields[i].RowID == RowID) {
            FImpl->Exec(QStringLiteral("update Fields set Position = %1 where rowid = %2")
                            .arg(fields[i - 1].Position).arg(RowID));
            FImpl->Exec(QStringLiteral("update Fields set Position = %1 where rowid = %2")
                            .arg(fields[i].Position).arg(fields[i - 1].RowID));
            moved = true;
        }
    FImpl->Touch(true, false, false);
    return moved;
}

bool TdmBrindle::MoveDownField(qint64 RowID) {
    const std::vector<TDesignField> fields = Fields();
    for (size_t i = 0; i + 1 < fields.size(); ++i)
        if (fields[i].RowID == RowID) return MoveUpField(fields[i + 1].RowID);
    FImpl->Touch(true, false, false);
    return false;
}

void TdmBrindle::MoveField(qint64 RowID, int NewPlace) {
    for (int guard = 0; guard < 100000; ++guard) {
        const std::vector<TDesignField> fields = Fields();
        int place = -1;
        for (size_t i = 0; i < fields.size(); ++i)
            if (fields[i].RowID == RowID) place = static_cast<int>(i);
        if (place < 0 || place == NewPlace) break;
        if (!(place > NewPlace ? MoveUpField(RowID) : MoveDownField(RowID))) break;
    }
}

void TdmBrindle::PasteFields(const std::vector<TDesignField>& Fields) {
    for (TDesignField f : Fields) {
        f.Name = FreeName(f.Name, [&](const QString& n) { return FImpl->NameTaken(QStringLiteral("Fields"), n); });
        const qint64 position = FImpl->Int(QStringLiteral("select count(*) + 1 from Fields"));
        FImpl->WriteField(0, f, position, QStringLiteral("null"));
    }
    FImpl->Touch(true, false, false);
}

qint64 TdmBrindle::AddIndex(const TDesignIndex& Index) {
    FImpl->CheckIndexName(Index, 0);
    const qint64 id = FImpl->InsertIndex(Index);
    FImpl->Touch(Index.Type == u"Primary", true, false);
    return id;
}

void TdmBrindle::ModifyIndex(qint64 RowID, const TDesignIndex& Index) {
    FImpl->CheckIndexName(Index, RowID);
    bool wasPrimary = false;
    for (const TDesignIndex& ix : Indexes())
        if (ix.RowID == RowID) {
            wasPrimary = ix.Type == u"Primary";
            FImpl->Exec(QStringLiteral("delete from IndexFields where IndexName = %1").arg(Lit(ix.Name)));
        }
    FImpl->Exec(QStringLiteral("update Indexes set Name = %1, Type = %2, [On Conflict] = %3, [Where Clause] = %4 "
                               "where rowid = %5")
                    .arg(Lit(Index.Name), Lit(Index.Type), Lit(Index.OnConflict), Lit(Index.WhereClause))
                    .arg(RowID));
    FImpl->WriteIndexFields(Index);
    FImpl->Touch(wasPrimary || Index.Type == u"Primary", true, false);
}

void TdmBrindle::DeleteIndexes(const QList<qint64>& RowIDs) {
    bool primary = false;
    for (const TDesignIndex& ix : Indexes())
        if (RowIDs.contains(ix.RowID)) {
            primary = primary || ix.Type == u"Primary";
            FImpl->Exec(QStringLiteral("delete from IndexFields where IndexName = %1").arg(Lit(ix.Name)));
        }
    FImpl->DeleteRows(QStringLiteral("Indexes"), RowIDs);
    FImpl->Touch(primary, true, false);
}

void TdmBrindle::PasteIndexes(const std::vector<TDesignIndex>& Indexes) {
    bool primary = false;
    for (TDesignIndex ix : Indexes) {
        ix.Name = FreeName(ix.Name, [&](const QString& n) { return FImpl->NameTaken(QStringLiteral("Indexes"), n); });
        FImpl->InsertIndex(ix);
        primary = primary || ix.Type == u"Primary";
    }
    FImpl->Touch(primary, true, false);
}

qint64 TdmBrindle::AddUniqueConstraint(const TDesignUniqueConstraint& Constraint) {
    const qint64 id = FImpl->InsertUnique(Constraint);
    FImpl->Touch(true, false, false);
    return id;
}

void TdmBrindle::ModifyUniqueConstraint(qint64 RowID, const TDesignUniqueConstraint& C) {
    FImpl->Exec(QStringLiteral("update UniqueConstraints set Name = %1, Fields = %2, [On Conflict] = %3 where rowid = %4")
                    .arg(Lit(C.Name), Lit(C.Fields), Lit(C.OnConflict))
                    .arg(RowID));
    FImpl->Touch(true, false, false);
}

void TdmBrindle::DeleteUniqueConstraints(const QList<qint64>& RowIDs) {
    FImpl->DeleteRows(QStringLiteral("UniqueConstraints"), RowIDs);
    FImpl->Touch(true, true, false);
}

void TdmBrindle::PasteUniqueConstraints(const std::vector<TDesignUniqueConstraint>& Constraints) {
    FImpl->PasteNamed(QStringLiteral("UniqueConstraints"), Constraints, [&](const TDesignUniqueConstraint& c) { FImpl->InsertUnique(c); });
    FImpl->Touch(true, false, false);
}

qint64 TdmBrindle::AddCheckConstraint(const TDesignCheckConstraint& Constraint) {
    const qint64 id = FImpl->InsertCheck(Constraint);
    FImpl->Touch(true, false, false);
    return id;
}

void TdmBrindle::ModifyCheckConstraint(qint64 RowID, const TDesignCheckConstraint& C) {
    FImpl->Exec(QStringLiteral("update CheckConstraints set Name = %1, Expression = %2 where rowid = %3")
                    .arg(Lit(C.Name), Lit(C.Expression))
                    .arg(RowID));
    FImpl->Touch(true, false, false);
}

void TdmBrindle::DeleteCheckConstraints(const QList<qint64>& RowIDs) {
    FImpl->DeleteRows(QStringLiteral("CheckConstraints"), RowIDs);
    FImpl->Touch(true, true, false);
}

void TdmBrindle::PasteCheckConstraints(const std::vector<TDesignCheckConstraint>& Constraints) {
    FImpl->PasteNamed(QStringLiteral("CheckConstraints"), Constraints, [&](const TDesignCheckConstraint& c) { FImpl->InsertCheck(c); });
    FImpl->Touch(true, false, false);
}

qint64 TdmBrindle::AddForeignKey(const TDesignForeignKey& ForeignKey) {
    const qint64 id = FImpl->InsertForeignKey(ForeignKey);
    FImpl->Touch(true, false, false);
    return id;
}

void TdmBrindle::ModifyForeignKey(qint64 RowID, const TDesignForeignKey& F) {
    FImpl->Exec(QStringLiteral("update ForeignKeys set Name = %1, [Parent Table] = %2, [Child Key] = %3, "
                               "[Parent Key] = %4, [On Delete] = %5, [On Update] = %6, [Match] = %7, [Deferrable] = %8, "
                               "Initially = %9 where rowid = %10")
                    .arg(Lit(F.Name), Lit(F.ParentTable), Lit(F.ChildKey), Lit(F.ParentKey), Lit(F.OnDelete),
                         Lit(F.OnUpdate), Lit(F.Match), Lit(F.Deferrable), Lit(F.Initially))
                    .arg(RowID));
    FImpl->Touch(true, false, false);
}

void TdmBrindle::DeleteForeignKeys(const QList<qint64>& RowIDs) {
    FImpl->DeleteRows(QStringLiteral("ForeignKeys"), RowIDs);
    FImpl->Touch(true, true, false);
}

void TdmBrindle::PasteForeignKeys(const std::vector<TDesignForeignKey>& ForeignKeys) {
    FImpl->PasteNamed(QStringLiteral("ForeignKeys"), ForeignKeys, [&](const TDesignForeignKey& c) { FImpl->InsertForeignKey(c); });
    FImpl->Touch(true, false, false);
}

qint64 TdmBrindle::AddTableTrigger(const TDesignTrigger& Trigger) {
    const qint64 id = FImpl->InsertTrigger(QStringLiteral("TableTriggers"), Trigger);
    FImpl->Touch(false, false, true);
    return id;
}

void TdmBrindle::ModifyTableTrigger(qint64 RowID, const TDesignTrigger& T) {
    FImpl->Exec(QStringLiteral("update TableTriggers set Name = %1, SQL = %2, IsTemporary = %3 where rowid = %4")
                    .arg(Lit(T.Name), Lit(T.SQL), Bool(T.IsTemporary))
                    .arg(RowID));
    FImpl->Touch(false, false, true);
}

void TdmBrindle::DeleteTableTriggers(const QList<qint64>& RowIDs) {
    FImpl->DeleteRows(QStringLiteral("TableTriggers"), RowIDs);
    FImpl->Touch(false, false, true);
}

void TdmBrindle::PasteTableTriggers(const std::vector<TDesignTrigger>& Triggers) {
    for (TDesignTrigger t : Triggers) {
        const QString name =
            FreeName(t.Name, [&](const QString& n) { return FImpl->NameTaken(QStringLiteral("TableTriggers"), n); });
        if (name != t.Name) t.SQL = ReplaceTriggerName(t.SQL, name);
        t.Name = name;
        FImpl->InsertTrigger(QStringLiteral("TableTriggers"), t);
    }
    FImpl->Touch(false, false, true);
}

qint64 TdmBrindle::AddViewTrigger(const TDesignTrigger& Trigger) {
    const qint64 id = FImpl->InsertTrigger(QStringLiteral("ViewTriggers"), Trigger);
    FViewDesignModified = true;
    return id;
}

void TdmBrindle::ModifyViewTrigger(qint64 RowID, const TDesignTrigger& T) {
    FImpl->Exec(QStringLiteral("update ViewTriggers set Name = %1, SQL = %2, IsTemporary = %3 where rowid = %4")
                    .arg(Lit(T.Name), Lit(T.SQL), Bool(T.IsTemporary))
                    .arg(RowID));
    FViewDesignModified = true;
}

void TdmBrindle::DeleteViewTriggers(const QList<qint64>& RowIDs) {
    FImpl->DeleteRows(QStringLiteral("ViewTriggers"), RowIDs);
    FViewDesignModified = true;
}

void TdmBrindle::PasteViewTriggers(const std::vector<TDesignTrigger>& Triggers) {
    for (TDesignTrigger t : Triggers) {
        const QString name =
            FreeName(t.Name, [&](const QString& n) { return FImpl->NameTaken(QStringLiteral("ViewTriggers"), n); });
        if (name != t.Name) t.SQL = ReplaceTriggerName(t.SQL, name);
        t.Name = name;
        FImpl->InsertTrigger(QStringLiteral("ViewTriggers"), t);
    }
    FViewDesignModified = true;
}

void TdmBrindle::SetTableName(const QString& Name) {
    if (Name == FTableName) return;
    FTableName = Name;
    FTableDesignModified = true;
}

void TdmBrindle::SetWithoutRowID(bool Value) {
    if (Value == FIsWithoutRowID) return;
    FIsWithoutRowID = Value;
    FImpl->Touch(true, false, false);
}

void TdmBrindle::SetStrict(bool Value) {
    if (Value == FIsStrict) return;
    FIsStrict = Value;
    FImpl->Touch(true, false, false);
}

// --- checks ----------------------------------------------------------------

void TdmBrindle::CheckTableConsistency(const QString& NewTableName) {
    (void)NewTableName;
    FImpl->Progress(QStringLiteral("Check table consistency"));
    QString faults;
    for (const TDesignIndex& ix : Indexes())
        for (const TDesignIndexField& f : ix.Fields)
            if (!FieldExists(f.FieldName))
                faults += QStringLiteral("Field %1 referenced by index %2 does not exist%3")
                              .arg(QuoteIdentifier(f.FieldName), QuoteIdentifier(ix.Name), kCRLF);
    for (const TDesignUniqueConstraint& u : UniqueConstraints())
        for (const QString& name : SplitFields(u.Fields))
            if (!FieldExists(name))
                faults += QStringLiteral("Field %1 referenced by constraint %2 does not exist%3")
                              .arg(QuoteIdentifier(name), QuoteIdentifier(u.Name), kCRLF);
    for (const TDesignTrigger& t : TableTriggers()) {
        const TTriggerRec rec = GetTriggerRec(t.SQL);
        for (const QString& name : rec.Fields)
            if (!FieldExists(name))
                faults += QStringLiteral("Field %1 referenced by trigger %2 does not exist%3")
                              .arg(QuoteIdentifier(name), QuoteObject(QString(), t.Name), kCRLF);
    }
    faults = faults.trimmed();
    if (!faults.isEmpty()) throw ECustomException(faults);
}

QStringList TdmBrindle::UnsupportedClauses() const {
    QStringList list = FImpl->FTableClauses;
    for (const TDesignField& f : Fields())
        if (f.OldPosition) {
            const auto it = FImpl->FFieldClauses.find(*f.OldPosition);
            if (it != FImpl->FFieldClauses.end())
                for (const QString& c : it->second) list.append(QStringLiteral("%1 (column %2)").arg(c, f.Name));
        }
    for (const TDesignIndex& ix : Indexes()) {
        const auto it = FImpl->FIndexClauses.find(ix.Name.toLower());
        if (it != FImpl->FIndexClauses.end())
            for (const QString& c : it->second) list.append(QStringLiteral("%1 (index %2)").arg(c, ix.Name));
    }
    return list;
}

void TdmBrindle::GetTableDef(const QString& TableName, TDLTableDef& Def) const {
    Def.Clear();
    Def.FTableName = TableName;
    for (const TDesignField& f : Fields()) {
        TDLFieldDef& field = Def.AddField(f.Name, f.DeclaredType, f.DefaultValue, f.Collate, f.NotNull,
                                          f.NotNull ? f.NotNullOnConflict : QString());
        field.FGeneratedExpression = f.GeneratedExpression;
        field.FGeneratedStored = f.GeneratedStored;
    }
    for (const TDesignIndex& ix : Indexes()) {
        if (ix.Type != u"Primary") continue;
        TDLIndexFieldDefs fields;
        for (const TDesignIndexField& f : ix.Fields) fields.AddField(f.FieldName, f.Collate, f.SortOrder, f.Autoincrement);
        Def.AddIndex(ix.Name, std::move(fields), ixPrimary, ix.OnConflict, ix.WhereClause);
    }
    for (const TDesignCheckConstraint& c : CheckConstraints())
        Def.AddCheckConstraint(std::make_unique<TDLCheckConstraintDef>(c.Name, c.Expression));
    for (const TDesignUniqueConstraint& u : UniqueConstraints())
        Def.AddUniqueConstraint(std::make_unique<TDLUniqueConstraintDef>(u.Name, SplitFields(u.Fields), u.OnConflict));
    for (const TDesignForeignKey& k : ForeignKeys()) {
        auto key = std::make_unique<TDLForeignKeyDef>();
        key->FConstraintName = k.Name;
        key->FParentTableName = k.ParentTable;
        key->FChildKey = SplitFields(k.ChildKey);
        key->FParentKey = SplitFields(k.ParentKey);
        key->FOnDeleteAction = k.OnDelete;
        key->FOnUpdateAction = k.OnUpdate;
        key->FMatchName = k.Match;
        key->FDeferrable = k.Deferrable;
        key->FInitially = k.Initially;
        Def.AddForeignKey(std::move(key));
    }
    QString db, table;
    ParseObject(TableName, db, table);
    Def.FIsTemporary = FIsTemporary || IsTempDatabase(db);
    Def.FIsWithoutRowID = FIsWithoutRowID;
    Def.FIsStrict = FIsStrict;
}

// --- applying --------------------------------------------------------------

TApplyResult TdmBrindle::ApplyTableDesign(TDLSQLiteDatabase& Database, QString& TableName, const TApplyHooks& Hooks) {
    TApplyResult result;
    if (!FTableDesignModified) return result;
    FImpl->FHooks = &Hooks;
    struct TClearHooks {
        TImpl& I;
        ~TClearHooks() { I.FHooks = nullptr; }
    } clearHooks{*FImpl};

    QString db, table;
    ParseObject(TableName, db, table);
    if (table.trimmed().isEmpty()) throw ECustomException(QStringLiteral("The table has no name."));
    if (db.isEmpty()) {
        db = FIsTemporary && FCreatingTable ? QStringLiteral("temp") : QStringLiteral("main");
        TableName = QuoteObjectIfNeeded(db, table);
    }
    const bool exists = !FCreatingTable && !FCurrentTableName.isEmpty();

    // What the design cannot write would be lost by a rebuild.
    const QStringList unsupported = UnsupportedClauses();
    if (!unsupported.isEmpty() && (FFieldsModified || FIndexesModified))
        throw ECustomException(
            QStringLiteral("The table cannot be restructured: the design cannot carry %1. Nothing was changed.")
                .arg(unsupported.join(QStringLiteral(", "))));
    if (FFieldsModified && Fields().empty())
        throw ECustomException(QStringLiteral("The table must have at least one field."));

    const QString oldForeignKeys = Database.GetStringValue(QStringLiteral("pragma foreign_keys"));
    if (oldForeignKeys == u"1" && exists && Database.GetInTransaction()) {
        for (const QString& child : GetReferencingTables(Database, FCurrentTableName))
            if (!TableIsEmpty(Database, child))
                throw ECustomException(QStringLiteral(
                    "The current table has foreign key references and cannot be restructured while a transaction "
                    "is in progress."));
    }
    FImpl->Run(Database, QStringLiteral("pragma foreign_keys = off"));
    struct TRestoreForeignKeys {
        TImpl& I;
        TDLSQLiteDatabase& D;
        QString Value;
        ~TRestoreForeignKeys() {
            try {
                I.Run(D, QStringLiteral("pragma foreign_keys = ") + (Value == u"1" ? u'1' : u'0'));
            } catch (...) {
            }
        }
    } restore{*FImpl, Database, oldForeignKeys};
    // Inside a transaction the pragma does not change.
    const bool foreignKeysActive =
        !FRecordOnly && Database.GetStringValue(QStringLiteral("pragma foreign_keys")) == u"1";

    struct TReady {
        TImpl& I;
        ~TReady() { I.Status(QStringLiteral("Ready!")); }
    } ready{*FImpl};

    CheckTableConsistency(TableName);

    FImpl->Status(QStringLiteral("Begin transaction"));
    const bool wasInTransaction = Database.GetInTransaction();
    FImpl->Run(Database, QStringLiteral("savepoint ") + kApplySavepoint);
    try {
        if (FFieldsModified && exists) {
            FImpl->Status(QStringLiteral("Recreating table"));
            const QString oldName = QuoteObject(FCurrentTableName);
            result.RecordsBefore = Database.GetRecordCount(QStringLiteral("select * from ") + oldName);
            FImpl->RecreateTable(Database, TableName, foreignKeysActive);
            result.Rebuilt = true;
            result.RecordsAfter = FRecordOnly ? result.RecordsBefore
                                              : Database.GetRecordCount(QStringLiteral("select * from ") +
                                                                        QuoteObject(TableName));
            if (result.RecordsBefore != result.RecordsAfter) {
                const QString question =
                    QStringLiteral("Could not copy all the data to the new table: ") + kCRLF + kCRLF +
                    QStringLiteral("Number of records before: ") + QString::number(result.RecordsBefore) + kCRLF +
                    QStringLiteral("Number of records after: ") + QString::number(result.RecordsAfter) + kCRLF +
                    kCRLF + QStringLiteral("Accept the changes?");
                if (!Hooks.OnConfirm || !Hooks.OnConfirm(question))
                    throw ECustomException(QStringLiteral("The changes will be rolled back."));
            }
        } else if (FFieldsModified) {
            FImpl->Status(QStringLiteral("Creating table"));
            FImpl->CreateTable(Database, TableName);
        }
        FImpl->Status(QStringLiteral("Recreating indexes"));
        if (FIndexesModified || FFieldsModified) FImpl->RecreateIndexes(Database, TableName, !exists);
        FImpl->Status(QStringLiteral("Recreating triggers"));
        if (FTableTriggersModified || FFieldsModified) FImpl->RecreateTriggers(Database, TableName, !exists);
        FImpl->Status(QStringLiteral("Commit transaction"));
        FImpl->Run(Database, QStringLiteral("release savepoint ") + kApplySavepoint);
    } catch (...) {
        FImpl->RollbackApply(Database, wasInTransaction);
        throw;
    }
    FImpl->Status(QStringLiteral("Refresh database"));
    FTableDesignModified = false;
    FFieldsModified = FIndexesModified = FTableTriggersModified = false;
    FCreatingTable = false;
    result.Applied = true;
    result.TableName = TableName;
    if (!FRecordOnly) FCurrentTableName = TableName;
    return result;
}

void TdmBrindle::ApplyViewDesign(TDLSQLiteDatabase& Database, const QString& ViewName, const QString& AsClause,
                                 const QStringList& ColumnNames, bool IsTemporary, bool NewView) {
    const bool wasInTransaction = Database.GetInTransaction();
    FImpl->Run(Database, QStringLiteral("savepoint ") + kApplySavepoint);
    try {
        if (!NewView) FImpl->Run(Database, QStringLiteral("drop view ") + QuoteObject(FCurrentViewName));
        QString db, view;
        ParseObject(ViewName, db, view);
        TDLViewDef def(ViewName, AsClause, IsTemporary);
        def.FColumnNames = ColumnNames;
        for (const TDesignTrigger& t : ViewTriggers()) {
            TTriggerRec rec = GetTriggerRec(t.SQL);
            rec.TableName = view;
            rec.DatabaseName = db;
            def.AddTrigger(t.Name, BuildTriggerSQL(rec, t.IsTemporary));
        }
        FImpl->Run(Database, def.GetCreateSQL(true, true));
        FImpl->Run(Database, QStringLiteral("release savepoint ") + kApplySavepoint);
    } catch (...) {
        FImpl->RollbackApply(Database, wasInTransaction);
        throw;
    }
    FViewDesignModified = false;
    if (!FRecordOnly) FCurrentViewName = ViewName;
}

void TdmBrindle::ApplyVirtualTableDesign(TDLSQLiteDatabase& Database, const QString& OldTableName,
                                         const QString& TableName, const QString& ModuleName,
                                         const QString& ModuleArguments, bool NewTable,
                                         const TFieldMappingHook& Mapping, const TApplyHooks& Hooks) {
    FImpl->FHooks = &Hooks;
    struct TClearHooks {
        TImpl& I;
        ~TClearHooks() { I.FHooks = nullptr; }
    } clearHooks{*FImpl};
    TDLVirtualTableDef def(TableName, ModuleName, ModuleArguments);
    const bool wasInTransaction = Database.GetInTransaction();
    FImpl->Status(QStringLiteral("Begin transaction"));
    FImpl->Run(Database, QStringLiteral("savepoint ") + kApplySavepoint);
    try {
        if (NewTable) {
            FImpl->Progress(QStringLiteral("Create new table"));
            FImpl->Run(Database, def.GetCreateSQL());
        } else {
            QString db, oldTable;
            ParseObject(OldTableName, db, oldTable);
            if (db.isEmpty()) db = QStringLiteral("main");
            const QString oldName = QuoteObject(db, oldTable);
            if (TableIsEmpty(Database, oldName)) {
                FImpl->Progress(QStringLiteral("Delete old table"));
                FImpl->Run(Database, QStringLiteral("drop table ") + oldName);
                FImpl->Progress(QStringLiteral("Create new table"));
                FImpl->Run(Database, def.GetCreateSQL());
            } else {
                const QString temp = QuoteObject(db, kTempTableName);
                FImpl->Progress(QStringLiteral("Rename old table"));
                FImpl->WithLegacyAlter(Database, [&] {
                    FImpl->Run(Database, QStringLiteral("alter table %1 rename to %2")
                                             .arg(oldName, QuoteIdentifier(kTempTableName)));
                });
                FImpl->Progress(QStringLiteral("Create new table"));
                FImpl->Run(Database, def.GetCreateSQL());
                FImpl->Progress(QStringLiteral("Copy data"));
                // The full-text tables of old name their rowid docid; every
                // other module has rowid.
                auto keyOf = [&](const QString& Module) {
                    return Module.startsWith(QLatin1String("fts3"), Qt::CaseInsensitive) ||
                                   Module.startsWith(QLatin1String("fts4"), Qt::CaseInsensitive)
                               ? QStringLiteral("docid")
                               : QStringLiteral("rowid");
                };
                QString oldModule;
                Database.IsVirtualTable(OldTableName, &oldModule);
                QStringList source, dest;
                const QString sourceSelect = FRecordOnly ? oldName : temp;
                Database.GetFieldNamesFromSQL(
                    QStringLiteral("select %1, * from %2 limit 0, 0").arg(keyOf(oldModule), sourceSelect), source);
                if (!FRecordOnly)
                    Database.GetFieldNamesFromSQL(
                        QStringLiteral("select %1, * from %2 limit 0, 0").arg(keyOf(ModuleName), QuoteObject(TableName)),
                        dest);
                QStringList mappedSource, mappedDest;
                if (!Mapping || !Mapping(source, dest, mappedSource, mappedDest))
                    throw ECustomException(QStringLiteral("Virtual Table creation canceled."));
                QStringList s, d;
                for (qsizetype i = 0; i < mappedSource.size() && i < mappedDest.size(); ++i) {
                    s.append(QuoteIdentifier(mappedSource[i]));
                    d.append(QuoteIdentifier(mappedDest[i]));
                }
                if (!s.isEmpty())
                    FImpl->Run(Database, QStringLiteral("insert into %1(%2) select %3 from %4")
                                             .arg(QuoteObject(TableName), d.join(u','), s.join(u','), temp));
                FImpl->Progress(QStringLiteral("Delete old table"));
                FImpl->Run(Database, QStringLiteral("drop table ") + temp);
            }
        }
        FImpl->Status(QStringLiteral("Commit transaction"));
        FImpl->Run(Database, QStringLiteral("release savepoint ") + kApplySavepoint);
    } catch (...) {
        FImpl->RollbackApply(Database, wasInTransaction);
        throw;
    }
    FVirtualTableDesignModified = false;
}

}  // namespace brindle
