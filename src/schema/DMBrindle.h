// The working copy of a table, view or virtual table design, and the flows
// that apply it to a database.
//
// A design lives in small tables of a private in-memory database (memDB):
// fields, indexes and their columns, unique and check constraints, foreign
// keys, and the triggers of a table or of a view. Nothing touches the user's
// database until an apply. A table apply never alters columns in place: any
// change to columns, constraints or the primary key rebuilds the table by
// rename, create, copy, drop, under one savepoint, with foreign keys off for
// its time; index-only and trigger-only changes drop and recreate all
// indexes or all triggers of the table.
//
// Identity of a column: Position only orders the design's rows; OldPosition
// is the column's zero-based place in the table as loaded, null for a new
// column. The copy step ties every new column to its source through it, so
// a renamed or moved column keeps its data and a deleted one drops it.
//
// Rows are identified by their RowID in the design table, which stays fixed
// while the design is edited. The editing functions take the values that a
// dialog gave back; the dialogs themselves live in the shell.
//
// Ownership: TdmBrindle owns memDB. The database given to a load or an apply
// is not owned and must outlive the call. Threading: main thread only.
#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace brindle {

class TDLSQLiteDatabase;
class TDLFieldDef;
class TDLTableDef;

struct TDesignField {
    qint64 RowID = 0;
    QString Name;
    QString DeclaredType;  // Type and GetSizePrecisionStr, "VARCHAR(10)"
    QString Type;
    QString Size;
    QString Precision;
    bool NotNull = false;
    QString NotNullOnConflict;
    QString DefaultValue;
    QString Collate;
    // GENERATED ALWAYS AS: the expression without parentheses, empty for a
    // stored value; STORED or else VIRTUAL.
    QString GeneratedExpression;
    bool GeneratedStored = false;
    qint64 Position = 0;
    std::optional<qint64> OldPosition;
};

struct TDesignIndexField {
    QString FieldName;
    QString Collate;
    QString SortOrder;
    bool Autoincrement = false;
};

struct TDesignIndex {
    qint64 RowID = 0;
    QString Name;
    QString Type;  // "Primary", "Unique", or anything else for a plain index
    QString OnConflict;
    QString WhereClause;
    std::vector<TDesignIndexField> Fields;
};

struct TDesignUniqueConstraint {
    qint64 RowID = 0;
    QString Name;
    QString Fields;  // quoted names, comma-separated
    QString OnConflict;
};

struct TDesignCheckConstraint {
    qint64 RowID = 0;
    QString Name;
    QString Expression;
};

struct TDesignForeignKey {
    qint64 RowID = 0;
    QString Name;
    QString ParentTable;
    QString ChildKey;   // quoted names, comma-separated
    QString ParentKey;  // the same; empty for the parent's primary key
    QString OnDelete;
    QString OnUpdate;
    QString Match;
    QString Deferrable;
    QString Initially;
};

struct TDesignTrigger {
    qint64 RowID = 0;
    QString Name;
    QString SQL;  // the whole CREATE TRIGGER text
    bool IsTemporary = false;
};

// What an apply did, for those that report it.
struct TApplyResult {
    bool Applied = false;          // false: nothing was pending
    bool Rebuilt = false;          // the table was recreated with its rows
    qint64 RecordsBefore = -1;     // counts around a rebuild, -1 when none ran
    qint64 RecordsAfter = -1;
    QString TableName;             // as the tree should select it afterwards
};

// What the caller of an apply answers and hears. Every member may be empty:
// no status, no progress, and a count mismatch is refused.
struct TApplyHooks {
    std::function<void(const QString& Status)> OnStatus;      // "Begin transaction", ...
    std::function<void(const QString& Step)> OnProgress;      // "Rename old table", ...
    std::function<bool(const QString& Question)> OnConfirm;   // Yes: true
};

// "(10)", "(10, 2)" or empty.
QString GetSizePrecisionStr(QString Size, QString Precision);
// A column of a read definition as a design row (no RowID, no positions);
// the type is taken apart by the database's type mapping.
TDesignField DesignField(TDLSQLiteDatabase& Database, const TDLFieldDef& Field);
// "select * from <table> limit 1" returns no row.
bool TableIsEmpty(TDLSQLiteDatabase& Database, const QString& TableName);
// Renames a table as the user asks: the engine's modern rename, which also
// rewrites references in other objects; a change of case alone goes through
// a free temporary name. Raises with the engine's message.
void RenameTable(TDLSQLiteDatabase& Database, const QString& OldName, const QString& NewName);
// Tables of the database whose foreign keys name the table (itself left out).
QStringList GetReferencingTables(TDLSQLiteDatabase& Database, const QString& TableName);
// Another table's foreign key names the column of this table.
bool IsFieldReferenced(TDLSQLiteDatabase& Database, const QString& TableName, const QString& FieldName);

class TdmBrindle {
public:
    TdmBrindle();
    ~TdmBrindle();
    TdmBrindle(const TdmBrindle&) = delete;
    TdmBrindle& operator=(const TdmBrindle&) = delete;

    // Connects memDB and creates the design tables; Uninitialize closes it.
    void Initialize();
    void Uninitialize();
    // The design database, for grids that show its tables: "Fields",
    // "Indexes", "IndexFields", "UniqueConstraints", "CheckConstraints",
    // "ForeignKeys", "TableTriggers", "ViewTriggers".
    TDLSQLiteDatabase& memDB() const { return *FMemDB; }

    // --- loading ----------------------------------------------------------
    // Empties the design and fills it from the table; clears every flag.
    // The table's name (qualified as given) becomes the current table.
    void LoadTableDesign(TDLSQLiteDatabase& Database, const QString& TableName);
    // An empty design for a table that does not exist yet: all four table
    // flags set, FCreatingTable set.
    void NewTableDesign();
    // The view's triggers into ViewTriggers; clears FViewDesignModified.
    void LoadViewDesign(TDLSQLiteDatabase& Database, const QString& ViewName);
    void ClearDesign();

    // --- reading the design -----------------------------------------------
    std::vector<TDesignField> Fields() const;  // by Position
    std::vector<TDesignIndex> Indexes() const;
    std::vector<TDesignUniqueConstraint> UniqueConstraints() const;
    std::vector<TDesignCheckConstraint> CheckConstraints() const;
    std::vector<TDesignForeignKey> ForeignKeys() const;
    std::vector<TDesignTrigger> TableTriggers() const;
    std::vector<TDesignTrigger> ViewTriggers() const;
    QStringList GetFields() const;
    // A row of Indexes has Type exactly "Primary".
    bool HasPrimaryKey() const;
    bool FieldExists(const QString& FieldName) const;
    // The current table as loaded, empty for a new one.
    const QString& CurrentTableName() const { return FCurrentTableName; }
    const QString& CurrentViewName() const { return FCurrentViewName; }

    // --- editing: each sets the flags of its kind --------------------------
    // A new field goes last with a null OldPosition; returns its RowID.
    qint64 AddField(const TDesignField& Field);
    // Writes the dialog's values (DeclaredType is made from Type, Size and
    // Precision; the conflict clause is kept only with NOT NULL). A changed
    // name is followed through indexes, constraints, foreign keys and
    // trigger heads.
    void ModifyField(qint64 RowID, const TDesignField& Field);
    // Deletes, then renumbers Position from 1.
    void DeleteFields(const QList<qint64>& RowIDs);
    // Swap with the neighbour; false at the edge.
    bool MoveUpField(qint64 RowID);
    bool MoveDownField(qint64 RowID);
    // Moves a field to the zero-based place, by steps of the above.
    void MoveField(qint64 RowID, int NewPlace);
    // Pastes copied fields: each name kept if free, else "name_1", "name_2",
    // ...; new positions behind the last.
    void PasteFields(const std::vector<TDesignField>& Fields);

    // Raises "Index names beginning with 'sqlite_' are reserved for use by
    // SQLite." for such a name.
    qint64 AddIndex(const TDesignIndex& Index);
    void ModifyIndex(qint64 RowID, const TDesignIndex& Index);
    void DeleteIndexes(const QList<qint64>& RowIDs);
    void PasteIndexes(const std::vector<TDesignIndex>& Indexes);

    qint64 AddUniqueConstraint(const TDesignUniqueConstraint& Constraint);
    void ModifyUniqueConstraint(qint64 RowID, const TDesignUniqueConstraint& Constraint);
    void DeleteUniqueConstraints(const QList<qint64>& RowIDs);
    void PasteUniqueConstraints(const std::vector<TDesignUniqueConstraint>& Constraints);

    qint64 AddCheckConstraint(const TDesignCheckConstraint& Constraint);
    void ModifyCheckConstraint(qint64 RowID, const TDesignCheckConstraint& Constraint);
    void DeleteCheckConstraints(const QList<qint64>& RowIDs);
    void PasteCheckConstraints(const std::vector<TDesignCheckConstraint>& Constraints);

    qint64 AddForeignKey(const TDesignForeignKey& ForeignKey);
    void ModifyForeignKey(qint64 RowID, const TDesignForeignKey& ForeignKey);
    void DeleteForeignKeys(const QList<qint64>& RowIDs);
    void PasteForeignKeys(const std::vector<TDesignForeignKey>& ForeignKeys);

    qint64 AddTableTrigger(const TDesignTrigger& Trigger);
    void ModifyTableTrigger(qint64 RowID, const TDesignTrigger& Trigger);
    void DeleteTableTriggers(const QList<qint64>& RowIDs);
    void PasteTableTriggers(const std::vector<TDesignTrigger>& Triggers);

    qint64 AddViewTrigger(const TDesignTrigger& Trigger);
    void ModifyViewTrigger(qint64 RowID, const TDesignTrigger& Trigger);
    void DeleteViewTriggers(const QList<qint64>& RowIDs);
    void PasteViewTriggers(const std::vector<TDesignTrigger>& Triggers);

    // Table options; each change marks the design.
    void SetTableName(const QString& Name);
    const QString& TableName() const { return FTableName; }
    void SetWithoutRowID(bool Value);
    bool IsWithoutRowID() const { return FIsWithoutRowID; }
    void SetStrict(bool Value);
    bool IsStrict() const { return FIsStrict; }
    void SetTemporary(bool Value) { FIsTemporary = Value; }
    bool IsTemporary() const { return FIsTemporary; }

    // --- checks -----------------------------------------------------------
    // Raises the collected lines when the design names columns it no longer
    // has (indexes, unique constraints, UPDATE OF of triggers).
    void CheckTableConsistency(const QString& NewTableName);
    // Clauses of the loaded table that the design cannot carry and that are
    // still in it; an apply refuses while any is.
    QStringList UnsupportedClauses() const;

    // --- applying ---------------------------------------------------------
    // The whole table apply: guard on foreign keys, savepoint, rebuild or
    // create, indexes, triggers, release; on failure the rollback and the
    // exception raised again, with the design and flags as they were.
    // TableName is the editor's name; an unqualified one is qualified with
    // "main" (written back). The caller refreshes its picture afterwards.
    TApplyResult ApplyTableDesign(TDLSQLiteDatabase& Database, QString& TableName, const TApplyHooks& Hooks);
    // The view apply: savepoint, drop the old view (unless new), create the
    // view with its triggers from ViewTriggers, release.
    void ApplyViewDesign(TDLSQLiteDatabase& Database, const QString& ViewName, const QString& AsClause,
                         const QStringList& ColumnNames, bool IsTemporary, bool NewView);
    // The source and destination columns of a virtual table rebuild; the
    // hook shows both lists and gives back the chosen pairs. False cancels.
    using TFieldMappingHook = std::function<bool(const QStringList& SourceFields, const QStringList& DestFields,
                                                 QStringList& MappedSource, QStringList& MappedDest)>;
    // The virtual table apply: savepoint, create (new) or recreate with the
    // mapping the hook confirms, release.
    void ApplyVirtualTableDesign(TDLSQLiteDatabase& Database, const QString& OldTableName,
                                 const QString& TableName, const QString& ModuleName,
                                 const QString& ModuleArguments, bool NewTable, const TFieldMappingHook& Mapping,
                                 const TApplyHooks& Hooks = {});

    // The design as a definition, as CreateTable writes it (the primary key
    // alone among the indexes).
    void GetTableDef(const QString& TableName, TDLTableDef& Def) const;

    // With FRecordOnly set, statements that would change the user's
    // database are collected in FRecorded instead of run (a dry run).
    bool FRecordOnly = false;
    QStringList FRecorded;

    bool FTableDesignModified = false;
    bool FFieldsModified = false;
    bool FIndexesModified = false;
    bool FTableTriggersModified = false;
    bool FViewDesignModified = false;
    bool FVirtualTableDesignModified = false;
    bool FCreatingTable = false;

private:
    class TImpl;
    std::unique_ptr<TImpl> FImpl;
    std::unique_ptr<TDLSQLiteDatabase> FMemDB;
    QString FCurrentTableName, FCurrentViewName, FTableName;
    bool FIsWithoutRowID = false, FIsStrict = false, FIsTemporary = false;
    friend class TImpl;
};

}  // namespace brindle
