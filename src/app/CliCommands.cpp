#include "CliCommands.h"

#include "CliInterrupt.h"
#include "CliTransfer.h"

#include "data/DLQuery.h"
#include "interchange/CSVWriter.h"
#include "interchange/TextExport.h"
#include "interchange/TextImport.h"
#include "tools/Encodings.h"
#include "workbench/SQLExecution.h"
#include "engine/DLObjectNames.h"
#include "engine/DLQuoteTools.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"
#include "schema/DLSQLiteMetadata.h"
#include "schema/DLSQLiteParser.h"
#include "schema/DLSchemaReader.h"
#include "schema/DMBrindle.h"
#include "engine/SQLScanner.h"

#include <QBuffer>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <unistd.h>
#include <functional>
#include <map>
#include <utility>

namespace brindle::cli {

namespace {

struct Options {
    QString library = SQLITE_INTERNAL_LIB;
    QString key;
    QStringList positional;
    QStringList params;  // NAME=VALUE
    // Changes of alter in the order given: option and value.
    std::vector<std::pair<QString, QString>> changes;
    bool sqlOnly = false;
    // import and export
    QString exportSQL;  // export --sql
    QString encoding;
    QString delimiter;
    bool tsv = false;
    bool noHeader = false;
    bool noDetect = false;
    bool replace = false;
};

const char* const kUsage =
    "usage: brindle-cli [--library FILE] [--key KEY] COMMAND ARGS\n"
    "commands:\n"
    "  info FILE      library version and capabilities, page size, encoding,\n"
    "                 journal mode and object counts of a database\n"
    "  objects FILE   the names of the database's objects, one per line\n"
    "  schema FILE [OBJECT]\n"
    "                 the CREATE statements of every object (or of the one named)\n"
    "                 as the program writes them: tables, indexes, views, triggers\n"
    "  tree FILE      the metadata tree: tables, virtual tables, shadow tables and\n"
    "                 views of every database, each table with its record count,\n"
    "                 columns, indexes, triggers, checks, foreign keys and the keys\n"
    "                 that refer to it, each view with its columns, triggers and\n"
    "                 the objects it depends on\n"
    "  query FILE SQL the rows of the text's last SELECT as CSV; Ctrl+C stops the run\n"
    "  exec FILE [SCRIPT.sql | -] [--param NAME=VALUE]...\n"
    "                 runs a script (standard input without one or with -) as the\n"
    "                 SQL tab does, dot lines included; the rows of its last\n"
    "                 SELECT go to standard output as CSV, the rows affected and\n"
    "                 the time to standard error; a new FILE is created; Ctrl+C\n"
    "                 stops the run\n"
    "  import FILE TABLE SOURCE.csv [--tsv | --delimiter C] [--encoding NAME]\n"
    "         [--no-header] [--no-detect] [--replace]\n"
    "                 loads delimited text into TABLE, made from the file's\n"
    "                 columns with detected types when it does not exist; the\n"
    "                 encoding and delimiter are detected unless given; all or\n"
    "                 nothing, Ctrl+C included; a new FILE is created\n"
    "  export FILE (TABLE | --sql SELECT) OUT.csv [--tsv] [--encoding NAME]\n"
    "                 writes a table or a query's rows as CSV (UTF-8 unless\n"
    "                 told) or TSV; OUT is replaced only when complete\n";

QString yesNo(bool v) { return v ? QStringLiteral("yes") : QStringLiteral("no"); }

// Messages of the program carry CRLF line ends; a terminal wants LF.
QString forTerminal(QString s) { return s.replace(QStringLiteral("\r\n"), QStringLiteral("\n")); }

void loadLibrary(const Options& o) {
    if (!SQLite3Driver->sqlite3drv_load_library(o.library)) {
        QString msg = QStringLiteral("Could not load SQLite library: ") + o.library;
        if (!SQLite3Driver->sqlite3drv_last_load_error().isEmpty())
            msg += QStringLiteral("\n") + SQLite3Driver->sqlite3drv_last_load_error();
        throw ECustomException(msg);
    }
}

void openDatabase(TDLSQLiteDatabase& db, const Options& o, const QString& file) {
    db.SetFileName(file);
    db.SetAliasName(QFileInfo(file).completeBaseName());
    if (!o.key.isEmpty()) db.SetEncryptionKey(o.key);
    db.FShowWaitCursor = false;
    db.SetConnected(true);
}

void cmdInfo(const Options& o, QTextStream& out) {
    loadLibrary(o);
    TDLSQLiteDatabase db;
    openDatabase(db, o, o.positional.value(1));
    TSQLite3Driver& d = *SQLite3Driver;
    const QString lib = d.sqlite3drv_filename() == SQLITE_INTERNAL_LIB ? QStringLiteral("[internal]")
                                                                      : d.sqlite3drv_filename();
    out << "SQLite library: " << lib << "\n";
    out << "Version: " << d.sqlite3drv_libversion() << "\n";
    out << "Thread safe: " << yesNo(d.sqlite3_threadsafe() != 0) << "\n";
    out << "FTS3: " << yesNo(d.sqlite3drv_supports_fts3()) << "\n";
    out << "FTS4: " << yesNo(d.sqlite3drv_supports_fts4()) << "\n";
    out << "R*Tree: " << yesNo(d.sqlite3drv_supports_rtree()) << "\n";
    out << "ICU: " << yesNo(d.sqlite3drv_supports_icu()) << "\n";
    out << "Without rowid: " << yesNo(d.sqlite3drv_supports_without_rowid()) << "\n";
    out << "Partial indexes: " << yesNo(d.sqlite3drv_supports_partial_indexes()) << "\n";
    out << "Backup: " << yesNo(d.sqlite3drv_supports_backup()) << "\n";
    out << "Encryption: " << yesNo(d.sqlite3drv_supports_encryption()) << "\n";
    out << "Profile: " << yesNo(d.sqlite3drv_supports_profile()) << "\n";

    out << "File: " << db.FileName() << "\n";
    out << "Page size: " << db.DatabaseParams().PageSize() << "\n";
    out << "Encoding: " << db.DatabaseParams().Encoding() << "\n";
    out << "Journal mode: " << db.GetStringValue(QStringLiteral("pragma journal_mode")) << "\n";
    out << "Schema version: " << db.SchemaVersion() << "\n";
    const TObjectNames names = GetObjectNames(db);
    out << "Tables: " << names.Tables.size() << "\n";
    out << "Virtual tables: " << names.VirtualTables.size() << "\n";
    out << "Shadow tables: " << names.ShadowTables.size() << "\n";
    out << "Views: " << names.Views.size() << "\n";
    out << "Indexes: " << names.Indexes.size() << "\n";
    out << "Triggers: " << names.Triggers.size() << "\n";
}

void cmdObjects(const Options& o, QTextStream& out) {
    loadLibrary(o);
    TDLSQLiteDatabase db;
    openDatabase(db, o, o.positional.value(1));
    const TObjectNames names = GetObjectNames(db);
    auto print = [&out](const char* kind, const QStringList& list) {
        for (const QString& n : list) out << kind << '\t' << n << '\n';
    };
    print("table", names.Tables);
    print("virtual table", names.VirtualTables);
    print("shadow table", names.ShadowTables);
    print("view", names.Views);
    print("index", names.Indexes);
    print("trigger", names.Triggers);
}

void cmdSchema(const Options& o, QTextStream& out) {
    loadLibrary(o);
    TDLSQLiteDatabase db;
    openDatabase(db, o, o.positional.value(1));
    out << forTerminal(GetSchemaScript(db, o.positional.value(2)));
}

// Texts kept verbatim (checks, module arguments, where clauses) may span
// lines; a tree line holds them on one.
QString oneLine(const QString& s) { return s.simplified(); }

QString bareName(const QString& qualified) { return UnQuoteIdentifier(ExtractObjectName(qualified)); }

QString databaseOf(const QString& qualified) {
    QString database, name;
    ParseObject(qualified, database, name);
    return UnQuoteIdentifier(database);
}

QString columnLine(const TSQLiteTableInfo& t, const TSQLiteFieldInfo& f) {
    QString line = f.FFieldName;
    if (!f.FFullSQLType.isEmpty()) line += u' ' + f.FFullSQLType;
    if (f.FPrimaryKey > 0) {
        int keyColumns = 0;
        for (int i = 0; i < t.FieldCount(); ++i) keyColumns += t.Field(i).FPrimaryKey > 0;
        line += keyColumns == 1 ? QStringLiteral(" PRIMARY KEY")
                                : QStringLiteral(" PRIMARY KEY (%1 of %2)").arg(f.FPrimaryKey).arg(keyColumns);
        if (const auto* key = static_cast<const TSQLiteIndexInfo*>(t.PrimaryKey()))
            for (int i = 0; i < key->IndexFieldCount(); ++i)
                if (key->Field(i).FFieldName == f.FFieldName && key->Field(i).FAutoincrement)
                    line += QStringLiteral(" AUTOINCREMENT");
    }
    if (f.FNotNull) line += QStringLiteral(" NOT NULL");
    if (!f.FCollate.isEmpty()) line += QStringLiteral(" COLLATE ") + f.FCollate;
    if (!f.FDefaultValue.isEmpty()) line += QStringLiteral(" DEFAULT ") + f.FDefaultValue;
    if (f.FGenerated) line += QStringLiteral(" GENERATED");
    return line;
}

QString indexLine(const TSQLiteIndexInfo& ix) {
    QString line = ix.FIndexName.isEmpty() ? QStringLiteral("(rowid)") : ix.FIndexName;
    if (ix.FOptions & ixPrimary)
        line += QStringLiteral(" PRIMARY KEY");
    else if (ix.FOptions & ixUnique)
        line += QStringLiteral(" UNIQUE");
    QStringList columns;
    for (int i = 0; i < ix.IndexFieldCount(); ++i) {
        const TSQLiteIndexFieldInfo& f = ix.Field(i);
        QString c = f.FFieldName.isEmpty() ? oneLine(f.FExpression) : f.FFieldName;
        if (!f.FCollate.isEmpty()) c += QStringLiteral(" COLLATE ") + f.FCollate;
        if (!f.FSortOrder.isEmpty()) c += u' ' + f.FSortOrder.toUpper();
        columns << c;
    }
    line += QStringLiteral(" (") + columns.join(QStringLiteral(", ")) + u')';
    if (!ix.FConflictClause.isEmpty()) line += QStringLiteral(" ON CONFLICT ") + ix.FConflictClause;
    if (!ix.FWhereClause.isEmpty()) line += QStringLiteral(" WHERE ") + oneLine(ix.FWhereClause);
    return line;
}

QString triggerLine(const TBaseTriggerInfo& tr) {
    const TTriggerRec rec = GetTriggerRec(tr.FSQL);
    QString line = tr.FTriggerName;
    if (tr.FIsTemporary) line += QStringLiteral(" TEMPORARY");
    if (!rec.WhenClause.isEmpty()) line += u' ' + rec.WhenClause.toUpper();
    if (!rec.DatabaseEvent.isEmpty()) line += u' ' + rec.DatabaseEvent.toUpper();
    if (!rec.Fields.isEmpty()) line += u' ' + rec.Fields.join(QStringLiteral(", "));
    return line;
}

QString foreignKeyLine(const TBaseForeignKeyInfo& k) {
    QString line;
    if (!k.FConstraintName.isEmpty()) line += QStringLiteral("CONSTRAINT ") + k.FConstraintName + u' ';
    line += u'(' + k.FChildKey.join(QStringLiteral(", ")) + QStringLiteral(") REFERENCES ") + k.FParentTableName;
    if (!k.FParentKey.isEmpty()) line += QStringLiteral(" (") + k.FParentKey.join(QStringLiteral(", ")) + u')';
    if (!k.FOnDeleteAction.isEmpty()) line += QStringLiteral(" ON DELETE ") + k.FOnDeleteAction.toUpper();
    if (!k.FOnUpdateAction.isEmpty()) line += QStringLiteral(" ON UPDATE ") + k.FOnUpdateAction.toUpper();
    if (!k.FMatchName.isEmpty()) line += QStringLiteral(" MATCH ") + k.FMatchName;
    if (!k.FDeferrable.isEmpty()) line += u' ' + k.FDeferrable.toUpper();
    if (!k.FDeferrable.isEmpty() && !k.FInitially.isEmpty()) line += u' ' + k.FInitially.toUpper();
    return line;
}

// A group line and its entries, nothing when there are none.
void printGroup(QTextStream& out, int depth, const char* title, const QStringList& lines) {
    if (lines.isEmpty()) return;
    const QString indent(depth * 2, u' ');
    out << indent << title << '\n';
    for (const QString& l : lines) out << indent << "  " << l << '\n';
}

// The name as the object tree shows it: with the record count when there is one.
QString nodeText(const TMetadataBaseItem& item) {
    QString text = bareName(item.GetName());
    if (item.FRecordCount) text += QStringLiteral(" (%1)").arg(*item.FRecordCount);
    return text;
}

void printTable(QTextStream& out, const TDLSQLiteMetadata& md, const TSQLiteTableInfo& t) {
    out << "    " << nodeText(t);
    if (t.FIsVirtual) out << " USING " << t.FModuleName;
    if (t.FIsVirtual && !t.FModuleArguments.trimmed().isEmpty()) out << " (" << oneLine(t.FModuleArguments) << ')';
    if (t.FIsWithoutRowID) out << " WITHOUT ROWID";
    out << '\n';
    QStringList lines;
    for (int i = 0; i < t.FieldCount(); ++i) lines << columnLine(t, t.Field(i));
    printGroup(out, 3, "columns", lines);
    lines.clear();
    for (int i = 0; i < t.IndexCount(); ++i) lines << indexLine(t.Index(i));
    printGroup(out, 3, "indexes", lines);
    lines.clear();
    for (int i = 0; i < t.TriggerCount(); ++i) lines << triggerLine(t.Triggers(i));
    printGroup(out, 3, "triggers", lines);
    lines.clear();
    for (int i = 0; i < t.CheckConstraintCount(); ++i) {
        const TBaseCheckConstraintInfo& c = t.CheckConstraints(i);
        lines << (c.FConstraintName.isEmpty() ? QString() : QStringLiteral("CONSTRAINT ") + c.FConstraintName + u' ') +
                     QStringLiteral("CHECK (") + oneLine(c.FExpression) + u')';
    }
    printGroup(out, 3, "checks", lines);
    lines.clear();
    for (int i = 0; i < t.ForeignKeyCount(); ++i) lines << foreignKeyLine(t.ForeignKeys(i));
    printGroup(out, 3, "foreign keys", lines);
    lines.clear();
    std::vector<TBaseForeignKeyInfo*> referring;
    md.GetReferences(t, QString(), referring);
    for (const TBaseForeignKeyInfo* k : referring)
        lines << bareName(k->FChildTableName) + QStringLiteral(" (") + k->FChildKey.join(QStringLiteral(", ")) + u')';
    printGroup(out, 3, "referenced by", lines);
}

void printView(QTextStream& out, const TBaseViewInfo& v) {
    out << "    " << nodeText(v) << '\n';
    QStringList lines;
    for (int i = 0; i < v.FieldCount(); ++i)
        lines << (v.Fields(i).FFullSQLType.isEmpty() ? v.Fields(i).FFieldName
                                                     : v.Fields(i).FFieldName + u' ' + v.Fields(i).FFullSQLType);
    printGroup(out, 3, "columns", lines);
    lines.clear();
    for (int i = 0; i < v.TriggerCount(); ++i) lines << triggerLine(v.Triggers(i));
    printGroup(out, 3, "triggers", lines);
    lines.clear();
    for (const TMetadataBaseItem* r : v.FReferences)
        lines << (databaseOf(r->GetName()) == databaseOf(v.FViewName) ? bareName(r->GetName()) : r->GetName());
    lines.sort(Qt::CaseInsensitive);
    printGroup(out, 3, "depends on", lines);
}

void cmdTree(const Options& o, QTextStream& out) {
    loadLibrary(o);
    TDLSQLiteDatabase db;
    openDatabase(db, o, o.positional.value(1));
    TDLSQLiteMetadata md(&db);
    // A table that cannot be read (a module that is not loaded) keeps its
    // place in the tree; the message follows the tree.
    QString failure;
    try {
        md.Refresh();
    } catch (const ECustomException& e) {
        failure = e.message();
    }
    if (failure.isEmpty()) failure = md.RefreshErrors();  // objects read only in part
    for (int i = 0; i < md.TableCount(); ++i) md.UpdateRecordCount(md.Tables(i));

    QStringList databases;
    for (int i = 0; i < md.TableCount(); ++i) databases << databaseOf(md.Tables(i).FTableName);
    for (int i = 0; i < md.ViewCount(); ++i) databases << databaseOf(md.Views(i).FViewName);
    databases.removeDuplicates();
    for (const QString& database : databases) {
        out << database << '\n';
        auto inDatabase = [&database](const QString& name) { return databaseOf(name) == database; };
        const std::pair<const char*, TTreeNodeType> groups[] = {
            {"tables", ntTable}, {"virtual tables", ntVirtualTable}, {"shadow tables", ntShadowTable}};
        for (const auto& [title, type] : groups) {
            bool first = true;
            for (int i = 0; i < md.TableCount(); ++i) {
                const TSQLiteTableInfo& t = md.SQLiteTables(i);
                if (!inDatabase(t.FTableName) || GetNodeType(&t) != type) continue;
                if (std::exchange(first, false)) out << "  " << title << '\n';
                printTable(out, md, t);
            }
        }
        bool first = true;
        for (int i = 0; i < md.ViewCount(); ++i) {
            if (!inDatabase(md.Views(i).FViewName)) continue;
            if (std::exchange(first, false)) out << "  views\n";
            printView(out, md.Views(i));
        }
    }
    if (!failure.isEmpty()) throw ECustomException(failure);
}

// The open result as CSV: a header line, then every row. Only what the
// statement selects: nothing the dataset added to find rows. False when a
// stop cut the rows short.
bool printRows(TDLQuery& query, QTextStream& out) {
    const TFields& fields = query.Fields();
    std::vector<int> shown;
    for (int i = 0; i < fields.Count(); ++i)
        if (fields[i].FVisible) shown.push_back(i);
    // The program's one CSV writer, in the terminal's dialect: line feeds,
    // BLOBs as bare hex.
    out.flush();
    QBuffer collected;
    QIODevice* device = out.device();
    if (!device) {
        collected.open(QIODevice::WriteOnly);
        device = &collected;
    }
    TCSVWriter csv(*device, TEncoding::UTF8(), u',', u"\n", TCSVWriter::bsHex);
    const auto done = [&](bool complete) {
        csv.Flush();
        if (!out.device()) out << QString::fromUtf8(collected.data());
        return complete;
    };
    for (size_t i = 0; i < shown.size(); ++i) {
        if (i > 0) csv.Separator();
        csv.Text(fields[shown[i]].FieldName());
    }
    if (!shown.empty()) csv.EndLine();
    for (int r = 0;; ++r) {
        const TDLRecData* rec = query.RecordAt(r);
        if (query.Aborted()) return done(false);
        if (!rec) break;
        const auto& row = static_cast<const TDLSQLiteRecData&>(*rec);
        for (size_t i = 0; i < shown.size(); ++i) {
            if (i > 0) csv.Separator();
            csv.StoredValue(row, shown[i]);
        }
        csv.EndLine();
    }
    return done(true);
}

void cmdQuery(const Options& o, QTextStream& out) {
    loadLibrary(o);
    TDLSQLiteDatabase db;
    openDatabase(db, o, o.positional.value(1));
    TDLQuery query;
    // Rows to print, not to edit: the statement runs as written.
    query.FAllowPreprocess = false;
    query.SetDatabase(&db);
    query.SetSQL(o.positional.value(2));
    TInterruptScope interrupts({&db});
    auto leave = [&db](const QString& message) {
        // A transaction the text began and did not end is not left open.
        if (db.GetInTransaction()) db.Rollback();
        throw ECustomException(message);
    };
    try {
        query.Open();
    } catch (const ECustomException& e) {
        leave(e.message());
    }
    if (!printRows(query, out)) leave(QStringLiteral("interrupted"));
    query.Close();
    if (db.GetInTransaction()) db.Rollback();
}

// The script of exec, a file or standard input, read in the encoding it was
// saved in, as the SQL tab loads files.
QString readScript(const QString& name) {
    if (name.isEmpty() || name == u"-") {
        QFile f;
        if (!f.open(stdin, QIODevice::ReadOnly)) throw ECustomException(QStringLiteral("Cannot read standard input"));
        return DecodeText(f.readAll(), QStringLiteral("standard input"));
    }
    if (!QFileInfo(name).isFile()) throw ECustomException(QStringLiteral("Cannot open file \"%1\"").arg(name));
    return LoadStrings(name);
}

// The design row of a column by its name, as the user spells it.
TDesignField designField(const TdmBrindle& dm, const QString& name) {
    for (const TDesignField& f : dm.Fields())
        if (f.Name.compare(UnQuoteIdentifier(name), Qt::CaseInsensitive) == 0) return f;
    throw ECustomException(QStringLiteral("No column named %1").arg(name));
}

// A column definition as a CREATE TABLE would hold it, read by the same
// reader as any table: the column, and the constraints it carries.
void addColumn(TdmBrindle& dm, const QString& definition) {
    TDLSQLiteDatabase scratch;
    scratch.FShowWaitCursor = false;
    scratch.SetFileName(QStringLiteral(":memory:"));
    scratch.SetConnected(true);
    scratch.Execute(QStringLiteral("create table t(%1)").arg(definition));
    TDLTableDef def;
    ReadTableDef(scratch, QStringLiteral("t"), def);
    if (def.FieldCount() != 1) throw ECustomException(QStringLiteral("One column, please: %1").arg(definition));
    if (def.IndexCount() > 0 || def.HasUnsupportedClauses())
        throw ECustomException(QStringLiteral("A column of its own key or with clauses of its own cannot be "
                                              "added here: %1").arg(definition));
    const TDLFieldDef& f = def.Fields(0);
    const TDesignField field = DesignField(scratch, f);
    const qint64 id = dm.AddField(field);
    // The type as written, not as the boxes would rebuild it.
    TDesignField added = designField(dm, field.Name);
    if (added.RowID == id && added.DeclaredType != f.FDeclaredType) {
        added.DeclaredType = f.FDeclaredType;
        dm.ModifyField(id, added);
    }
    for (int i = 0; i < def.UniqueConstraintCount(); ++i)
        dm.AddUniqueConstraint({0, def.UniqueConstraints(i).FConstraintName, QuoteIdentifier(f.FFieldName),
                                def.UniqueConstraints(i).FConflictClause});
    for (int i = 0; i < def.CheckConstraintCount(); ++i)
        dm.AddCheckConstraint({0, def.CheckConstraints(i).FConstraintName, def.CheckConstraints(i).FExpression});
    for (int i = 0; i < def.ForeignKeyCount(); ++i) {
        const TDLForeignKeyDef& k = def.ForeignKeys(i);
        dm.AddForeignKey({0, k.FConstraintName, k.FParentTableName, QuoteIdentifier(f.FFieldName),
                          k.FParentKey.isEmpty() ? QString() : QuoteIdentifier(k.FParentKey.front()), k.FOnDeleteAction,
                          k.FOnUpdateAction, k.FMatchName, k.FDeferrable, k.FInitially});
    }
}

void cmdAlter(const Options& o, QTextStream& out, QTextStream& err) {
    loadLibrary(o);
    TDLSQLiteDatabase db;
    const QString file = o.positional.value(1);
    if (!QFileInfo(file).isFile()) throw ECustomException(QStringLiteral("Cannot open file \"%1\"").arg(file));
    openDatabase(db, o, file);
    QString table = o.positional.value(2);
    if (!db.TableExists(table)) throw ECustomException(QStringLiteral("No table named %1").arg(table));

    TdmBrindle dm;
    dm.Initialize();
    dm.LoadTableDesign(db, table);
    QString newName;
    for (const auto& [option, value] : o.changes) {
        if (option == u"--rename-column") {
            TDesignField f = designField(dm, value.section(u'=', 0, 0));
            const QString name = value.section(u'=', 1);
            if (name.isEmpty()) throw ECustomException(QStringLiteral("--rename-column wants OLD=NEW"));
            // As the field dialog: a column that other tables' keys name keeps it.
            if (f.OldPosition && IsFieldReferenced(db, table, f.Name))
                throw ECustomException(QStringLiteral("Current field cannot be renamed due to external references."));
            f.Name = UnQuoteIdentifier(name);
            dm.ModifyField(f.RowID, f);
        } else if (option == u"--drop-column") {
            dm.DeleteFields({designField(dm, value).RowID});
        } else if (option == u"--add-column") {
            addColumn(dm, value);
        } else if (option == u"--move-column") {
            bool ok = false;
            const int position = value.section(u'=', 1).toInt(&ok);
            if (!ok || position < 1 || position > static_cast<int>(dm.Fields().size()))
                throw ECustomException(QStringLiteral("--move-column wants NAME=POSITION, from 1 to %1")
                                           .arg(dm.Fields().size()));
            dm.MoveField(designField(dm, value.section(u'=', 0, 0)).RowID, position - 1);
        } else if (option == u"--rename-table") {
            newName = value;
        }
    }
    // No change at all: the table is rebuilt as it stands.
    if (newName.isEmpty() && !dm.FTableDesignModified) dm.FTableDesignModified = dm.FFieldsModified = true;

    dm.FRecordOnly = o.sqlOnly;
    TApplyHooks hooks;
    hooks.OnConfirm = [&err](const QString& question) {
        err << forTerminal(question).section(u'\n', 0, -2).trimmed() << "\n";
        return false;
    };
    TInterruptScope interrupts({&db});
    TApplyResult result;
    if (newName.isEmpty()) {
        result = dm.ApplyTableDesign(db, table, hooks);
    } else {
        // The design and the user's rename as one change: the keys are off
        // around the savepoint, since they cannot be switched inside it.
        const QString foreignKeys = db.GetStringValue(QStringLiteral("pragma foreign_keys"));
        auto run = [&](const QString& sql) {
            if (o.sqlOnly)
                dm.FRecorded.append(sql);
            else
                db.Execute(sql);
        };
        run(QStringLiteral("pragma foreign_keys = off"));
        run(QStringLiteral("savepoint brindle_alter"));
        try {
            if (dm.FTableDesignModified) result = dm.ApplyTableDesign(db, table, hooks);
            if (o.sqlOnly) {
                dm.FRecorded.append(QStringLiteral("alter table %1 rename to %2")
                                        .arg(QuoteObject(table), QuoteIdentifier(UnQuoteIdentifier(newName))));
            } else {
                RenameTable(db, table, newName);
            }
            run(QStringLiteral("release brindle_alter"));
        } catch (...) {
            if (!o.sqlOnly && db.GetInTransaction()) db.Rollback();
            run(QStringLiteral("pragma foreign_keys = ") + foreignKeys);
            throw;
        }
        run(QStringLiteral("pragma foreign_keys = ") + foreignKeys);
    }
    if (o.sqlOnly) {
        for (const QString& sql : dm.FRecorded) out << forTerminal(EndStatement(sql.trimmed())) << "\n";
        return;
    }
    if (result.Rebuilt) {
        out << "Records before: " << result.RecordsBefore << "\n";
        out << "Records after: " << result.RecordsAfter << "\n";
    } else {
        const qint64 count = db.GetRecordCount(QStringLiteral("select * from ") +
                                               QuoteObject(newName.isEmpty() ? table : newName));
        out << "Records before: " << count << "\n";
        out << "Records after: " << count << "\n";
    }
}

void cmdExec(const Options& o, QTextStream& out, QTextStream& err) {
    loadLibrary(o);
    const QString script = readScript(o.positional.value(2));
    TDLSQLiteDatabase db;
    const QString file = o.positional.value(1);
    if (!QFileInfo::exists(file)) {
        db.FShowWaitCursor = false;
        db.SetFileName(file);
        db.CreateDatabase(0, 0, QStringLiteral("UTF-8"), o.key);
        db.SetConnected(false);
    }
    openDatabase(db, o, file);
    TDLQuery query;
    // Rows to print, not to edit: the statement runs as written.
    query.FAllowPreprocess = false;
    TSQLRunner runner(query);
    runner.FOnMissingParameter = [&o](const QString& Name, QString& Value) {
        // Given with or without its mark: ":a", "@a", "$a" and "a" name the same.
        const QString bare = Name.mid(Name.isEmpty() || Name[0].isLetterOrNumber() ? 0 : 1);
        for (const QString& p : o.params) {
            const QString name = p.section(u'=', 0, 0);
            if (name == Name || name == bare) {
                Value = p.section(u'=', 1);
                return true;
            }
        }
        throw ECustomException(QStringLiteral("Missing parameter value: %1 (give it with --param %2=VALUE)").arg(Name, bare));
    };
    TInterruptScope interrupts({.Database = &db, .Runner = &runner});
    const TSQLRunOutcome outcome = runner.ExecuteSQL(&db, script);
    bool complete = true;
    if (outcome.ErrorMessage.isEmpty() && query.Active()) complete = printRows(query, out);
    out.flush();
    query.Close();
    if (!outcome.RowsAffected.isEmpty()) err << outcome.RowsAffected << "\n";
    err << outcome.Status << "\n";
    if (!outcome.ErrorMessage.isEmpty()) throw ECustomException(outcome.ErrorMessage);
    if (outcome.Aborted || !complete) throw ECustomException(QStringLiteral("interrupted"));
}

// Progress on standard error, for a person at a terminal only, and at most
// a few times a second.
class TProgressLine {
public:
    explicit TProgressLine(QTextStream& Err) : FErr(Err), FShown(isatty(STDERR_FILENO) != 0) {
        FTimer.start();
    }
    ~TProgressLine() {
        if (FWritten) FErr << "\n";
        FErr.flush();
    }
    void Show(const QString& Message) {
        if (!FShown || FTimer.elapsed() < 250) return;
        FTimer.restart();
        FErr << "\r" << Message << "\x1b[K";
        FErr.flush();
        FWritten = true;
    }

private:
    QTextStream& FErr;
    bool FShown;
    bool FWritten = false;
    QElapsedTimer FTimer;
};

TEncoding encodingOption(const Options& o, const TEncoding& Default) {
    return o.encoding.isEmpty() ? Default : TEncoding::GetEncodingByName(o.encoding);
}

char16_t delimiterOption(const Options& o, const QString& source, const TEncoding& encoding) {
    if (o.tsv) return u'\t';
    if (o.delimiter.isEmpty()) return DetectDelimiter(source, encoding);
    if (o.delimiter == u"\\t" || o.delimiter.compare(QLatin1String("tab"), Qt::CaseInsensitive) == 0)
        return u'\t';
    if (o.delimiter.size() != 1) throw ECustomException(QStringLiteral("--delimiter wants one character"));
    return o.delimiter[0].unicode();
}

void cmdImport(const Options& o, QTextStream& out, QTextStream& err) {
    loadLibrary(o);
    const QString file = o.positional.value(1);
    const QString table = o.positional.value(2);
    const QString source = o.positional.value(3);
    QFile text(source);
    if (!QFileInfo(source).isFile() || !text.open(QIODevice::ReadOnly))
        throw ECustomException(QStringLiteral("Cannot open file \"%1\"").arg(source));
    // A text file's own encoding, as the SQL tab reads one; pure ASCII reads
    // as UTF-8.
    const TEncoding encoding = encodingOption(o, GetFileEncoding(source));
    const char16_t delimiter = delimiterOption(o, source, encoding);

    TDLSQLiteDatabase db;
    const bool created = !QFileInfo::exists(file);
    if (created) {
        db.FShowWaitCursor = false;
        db.SetFileName(file);
        db.CreateDatabase(0, 0, QStringLiteral("UTF-8"), o.key);
        db.SetConnected(false);
    }
    TTextImporter importer;
    TTextImportResult result;
    try {
        openDatabase(db, o, file);
        TTextImportTarget target;
        target.TableName = table;
        target.NewTable = !db.TableExists(table);
        target.DeleteExistingData = o.replace;
        target.AutoDetectTypes = !o.noDetect;
        TProgressLine progress(err);
        importer.FOnProgress = [&progress](const QString& Message, bool&) { progress.Show(Message); };
        TInterruptScope interrupts({.Database = &db, .Importer = &importer});
        try {
            result = importer.ImportIntoTable(db, text, target, delimiter, encoding, !o.noHeader);
        } catch (const ECustomException&) {
            // A stop that cut a statement short fails it: the stop it is.
            if (importer.Canceled())
                result.Canceled = true;
            else
                throw;
        }
        if (result.Canceled) throw ECustomException(QStringLiteral("interrupted"));
    } catch (...) {
        // A file made for the import goes again with it.
        if (created) {
            db.SetConnected(false);
            QFile::remove(file);
        }
        throw;
    }
    for (const QString& note : importer.FErrors) err << forTerminal(note) << "\n";
    out << result.RowsImported << " rows imported into " << table
        << (result.TableCreated ? " (a new table)" : "") << "\n";
}

void cmdExport(const Options& o, QTextStream& out, QTextStream& err) {
    loadLibrary(o);
    const QString file = o.positional.value(1);
    if (!QFileInfo(file).isFile())
        throw ECustomException(QStringLiteral("Cannot open file \"%1\"").arg(file));
    TDLSQLiteDatabase db;
    openDatabase(db, o, file);
    QString sql = o.exportSQL;
    QString target = o.positional.value(2);
    // Rows to write, and nothing changed on the way.
    if (!sql.isEmpty() && !db.HasSQLCursor(sql))
        throw ECustomException(QStringLiteral("Only a SELECT (or a PRAGMA or EXPLAIN) can be exported."));
    if (sql.isEmpty()) {
        const QString table = o.positional.value(2);
        if (!db.TableExists(table) && !db.ViewExists(table))
            throw ECustomException(QStringLiteral("No table named %1").arg(table));
        sql = QStringLiteral("select * from ") + QuoteObject(table);
        target = o.positional.value(3);
    }
    TDLQuery query;
    // Rows to write, not to edit: the statement runs as written.
    query.FAllowPreprocess = false;
    query.SetDatabase(&db);
    query.SetSQL(sql);
    std::unique_ptr<TTextExporter> exporter;
    if (o.tsv)
        exporter = std::make_unique<TTSVExporter>(&query);
    else
        exporter = std::make_unique<TCSVExporter>(&query);
    exporter->FEncoding = encodingOption(o, TEncoding::UTF8());
    // A byte order mark where readers need one to know the text: UTF-16/32.
    exporter->FWriteEncodingPreamble =
        exporter->FEncoding.IsUnicode() && exporter->FEncoding.CodePage() != 65001;
    QStringList notes;
    exporter->FErrorLog = &notes;
    TProgressLine progress(err);
    exporter->FOnProgress = [&progress](int Count) {
        progress.Show(QStringLiteral("%1 rows exported").arg(Count));
    };
    TInterruptScope interrupts({.Database = &db, .Exporter = exporter.get()});
    const auto stopped = [&] {
        if (db.GetInTransaction()) db.Rollback();
        throw ECustomException(QStringLiteral("interrupted"));
    };
    try {
        query.Open();
        exporter->Export(target);
    } catch (const ECustomException&) {
        if (exporter->Canceled() || query.Aborted()) stopped();
        throw;
    }
    if (exporter->Canceled() || query.Aborted()) stopped();
    for (const QString& note : notes) err << note << "\n";
    out << exporter->RecordCount() << " rows exported to " << target << "\n";
}

}  // namespace

int Run(const QStringList& args, QTextStream& out, QTextStream& err) {
    if (const int code = RunTransferCommand(args, out, err); code >= 0) return code;
    Options o;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& a = args[i];
        if ((a == u"--library" || a == u"--key") && i + 1 < args.size()) {
            (a == u"--library" ? o.library : o.key) = args[++i];
        } else if (a == u"--param" && i + 1 < args.size() && args[i + 1].contains(u'=')) {
            o.params.append(args[++i]);
        } else if ((a == u"--rename-column" || a == u"--drop-column" || a == u"--add-column" ||
                    a == u"--move-column" || a == u"--rename-table") &&
                   i + 1 < args.size()) {
            o.changes.emplace_back(a, args[++i]);
        } else if (a == u"--sql" && o.positional.value(0) == u"export" && i + 1 < args.size()) {
            o.exportSQL = args[++i];
        } else if (a == u"--sql") {
            o.sqlOnly = true;
        } else if ((a == u"--encoding" || a == u"--delimiter") && i + 1 < args.size()) {
            (a == u"--encoding" ? o.encoding : o.delimiter) = args[++i];
        } else if (a == u"--tsv") {
            o.tsv = true;
        } else if (a == u"--no-header") {
            o.noHeader = true;
        } else if (a == u"--no-detect") {
            o.noDetect = true;
        } else if (a == u"--replace") {
            o.replace = true;
        } else if (a == u"-h" || a == u"--help") {
            out << kUsage << kTransferUsage;
            return 0;
        } else {
            o.positional.append(a);
        }
    }
    using Command = std::function<void(const Options&, QTextStream&, QTextStream&)>;
    const auto quiet = [](void (*f)(const Options&, QTextStream&)) -> Command {
        return [f](const Options& o, QTextStream& out, QTextStream&) { f(o, out); };
    };
    struct TCommand {
        int MinArgs, MaxArgs;  // the command's name included
        Command Run;
    };
    const std::map<QString, TCommand> commands = {
        {QStringLiteral("info"), {2, 2, quiet(cmdInfo)}},
        {QStringLiteral("objects"), {2, 2, quiet(cmdObjects)}},
        {QStringLiteral("schema"), {2, 3, quiet(cmdSchema)}},
        {QStringLiteral("query"), {3, 3, quiet(cmdQuery)}},
        {QStringLiteral("tree"), {2, 2, quiet(cmdTree)}},
        {QStringLiteral("exec"), {2, 3, cmdExec}},
        {QStringLiteral("alter"), {3, 3, cmdAlter}},
        {QStringLiteral("import"), {4, 4, cmdImport}},
        {QStringLiteral("export"), {3, 4, cmdExport}},
    };
    const auto it = commands.find(o.positional.value(0));
    // export names a table or gives --sql, not both.
    const bool exportMismatch =
        o.positional.value(0) == u"export" && o.positional.size() != (o.exportSQL.isEmpty() ? 4 : 3);
    if (it == commands.end() || o.positional.size() < it->second.MinArgs ||
        o.positional.size() > it->second.MaxArgs || exportMismatch || (o.tsv && !o.delimiter.isEmpty())) {
        err << kUsage << kTransferUsage;
        return 2;
    }
    try {
        it->second.Run(o, out, err);
    } catch (const ECustomException& e) {
        out.flush();
        err << forTerminal(e.message()) << "\n";
        return 1;
    }
    out.flush();
    return 0;
}

}  // namespace brindle::cli
