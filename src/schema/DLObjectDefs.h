// Definitions of tables, indexes, triggers, views and virtual tables, and
// the one place where they become CREATE text.
//
// The generated layout (CRLF line ends, two-blank indents, ", " at line
// ends, column constraints in a fixed order) is part of what the program
// writes into user databases, so it never changes. Nothing here validates
// or touches a database; the engine reports faults when the text runs.
//
// Strings hold names unquoted; an empty string means "absent". Lists own
// their items and keep the order of addition, which is the order of the
// generated text. Plain values: one thread at a time.
#pragma once

#include "engine/DLDatabase.h"

#include <QString>
#include <QStringList>
#include <memory>
#include <vector>

namespace brindle {

// A default as the engine wants it: bare, unless it is no single string
// literal and holds an operator or punctuation, then in parentheses ("-1"
// gives "(-1)" on purpose, "'a' || 'b'" gives "('a' || 'b')").
QString DefaultToSQL(const QString& Value);
// "([a], [b])".
QString MakeColumnList(const QStringList& Fields);
// A name as generated text writes it. Name is taken as it stands, never as
// quoted already, and enclosed in the user's quote characters when the
// engine reads it back from them unchanged; otherwise (a "]" inside
// brackets, a name that looks quoted, quoting switched off) in double
// quotes, which hold any name.
QString QuoteName(const QString& Name);
// A possibly qualified name (main.t, "a.b"): each part, as ParseObject
// reads it, through QuoteName.
QString QuoteQualifiedName(const QString& QualifiedName);

// One column of a table design.
class TDLFieldDef {
public:
    TDLFieldDef() = default;
    explicit TDLFieldDef(const QString& FieldName, const QString& DeclaredType = QString(),
                         const QString& DefaultValue = QString(), const QString& Collate = QString(),
                         bool NotNull = false, const QString& NotNullConflictClause = QString());

    QString FFieldName;
    QString FDeclaredType;  // with any size, "VARCHAR(10)"
    QString FDefaultValue;  // without the word DEFAULT
    bool FNotNull = false;
    QString FCollate;
    QString FNotNullConflictClause;  // ROLLBACK, ABORT, FAIL, IGNORE or REPLACE
    // GENERATED ALWAYS AS: the expression verbatim, without its
    // parentheses; empty for a column that is not generated. STORED, or
    // else VIRTUAL.
    QString FGeneratedExpression;
    bool FGeneratedStored = false;
    // Clauses of the stored text that no field here can hold, set by
    // whoever read the text. The CREATE text leaves them out, so a design
    // with any of them must not be applied.
    QStringList FUnsupportedClauses;
};

// One column of an index or primary key.
class TDLIndexFieldDef {
public:
    TDLIndexFieldDef() = default;
    explicit TDLIndexFieldDef(const QString& FieldName, const QString& Collate = QString(),
                              const QString& SortOrder = QString(), bool Autoincrement = false);

    QString FFieldName;
    QString FCollate;
    bool FAutoincrement = false;  // only on the one column of a primary key
    // Empty, ASC or DESC, written as given. On the one INTEGER column of a
    // primary key, DESC also says that the column is not the rowid (the
    // engine's rule), and the key is written so.
    QString FSortOrder;
};

class TDLIndexFieldDefs {
public:
    TDLIndexFieldDef& AddField(const QString& FieldName, const QString& Collate = QString(),
                               const QString& SortOrder = QString(), bool Autoincrement = false);
    TDLIndexFieldDef& Add(std::unique_ptr<TDLIndexFieldDef> Field);
    int Count() const { return static_cast<int>(FItems.size()); }
    TDLIndexFieldDef& Items(int i) const { return *FItems[static_cast<size_t>(i)]; }
    void Clear() { FItems.clear(); }

private:
    std::vector<std::unique_ptr<TDLIndexFieldDef>> FItems;
};

// An index, or a table's primary key (ixPrimary among the options); FFields
// and FIndexFields always hold the same columns in the same order.
class TDLIndexDef {
public:
    TDLIndexDef(const QString& IndexName, const QStringList& Fields, int Options,
                const QString& ConflictClause = QString(), const QString& WhereClause = QString());
    // Takes the column objects over.
    TDLIndexDef(const QString& IndexName, TDLIndexFieldDefs Fields, int Options,
                const QString& ConflictClause = QString(), const QString& WhereClause = QString());

    QString FIndexName;
    int FOptions = 0;  // TIndexOption bits; ixPrimary, ixUnique, ixDescending count here
    QStringList FFields;
    TDLIndexFieldDefs FIndexFields;
    QString FConflictClause;
    QString FWhereClause;  // partial index condition, without WHERE
    // Parts of the stored index that no member here holds (a column that is
    // an expression); see TDLFieldDef.
    QStringList FUnsupportedClauses;
};

class TDLUniqueConstraintDef {
public:
    TDLUniqueConstraintDef() = default;
    TDLUniqueConstraintDef(const QString& ConstraintName, const QStringList& Fields,
                           const QString& ConflictClause = QString());

    QString FConstraintName;
    QStringList FFields;
    QString FConflictClause;
};

class TDLCheckConstraintDef {
public:
    TDLCheckConstraintDef() = default;
    TDLCheckConstraintDef(const QString& ConstraintName, const QString& Expression);

    QString FConstraintName;
    QString FExpression;  // verbatim from the source, without the parentheses
};

class TDLForeignKeyDef {
public:
    // A single child column is always written on its column's line,
    // whatever form the source had.
    bool IsColumnConstraint() const { return FChildKey.size() == 1; }
    // The constraint as it stands in a column line or among the table
    // constraints.
    QString GetClause() const;

    QString FConstraintName;
    QStringList FChildKey;   // columns of this table
    QStringList FParentKey;  // columns of the parent; may be empty
    QString FParentTableName;
    QString FOnDeleteAction;  // the words after ON DELETE, "SET NULL"
    QString FOnUpdateAction;
    QString FMatchName;
    QString FDeferrable;  // the whole phrase, "NOT DEFERRABLE"
    QString FInitially;   // the whole phrase, "INITIALLY DEFERRED"; dropped without FDeferrable
};

class TDLTriggerDef {
public:
    TDLTriggerDef() = default;
    TDLTriggerDef(const QString& TriggerName, const QString& SQL) : FTriggerName(TriggerName), FSQL(SQL) {}

    QString FTriggerName;
    QString FSQL;  // the whole CREATE TRIGGER text, verbatim
};

// Triggers owned by a view or a table.
class TDLTriggerDefs {
public:
    TDLTriggerDef& Add(std::unique_ptr<TDLTriggerDef> Trigger);
    int Count() const { return static_cast<int>(FItems.size()); }
    TDLTriggerDef& Items(int i) const { return *FItems[static_cast<size_t>(i)]; }
    void Clear() { FItems.clear(); }
    // CRLF and the text of each trigger, ended with ";" (EndStatement).
    QString GetSQL() const;

private:
    std::vector<std::unique_ptr<TDLTriggerDef>> FItems;
};

class TDLViewDef {
public:
    TDLViewDef() = default;
    explicit TDLViewDef(const QString& ViewName, const QString& AsClause = QString(),
                        bool IsTemporary = false)
        : FViewName(ViewName), FAsClause(AsClause), FIsTemporary(IsTemporary) {}

    TDLTriggerDef& AddTrigger(std::unique_ptr<TDLTriggerDef> Trigger) {
        return FTriggers.Add(std::move(Trigger));
    }
    TDLTriggerDef& AddTrigger(const QString& TriggerName, const QString& SQL);
    TDLTriggerDef& GetTrigger(int i) const { return FTriggers.Items(i); }
    int GetTriggerCount() const { return FTriggers.Count(); }
    void ClearTriggers() { FTriggers.Clear(); }
    // Back to an empty definition.
    void Clear();
    // No ";" at the end of the view alone: the select is kept as the source
    // had it. With triggers behind it, every statement is ended, so that
    // the text runs as a script.
    QString GetCreateSQL(bool IncludeStructure, bool IncludeTriggers) const;

    QString FViewName;  // may be qualified, "main.v"
    QString FAsClause;  // the text after AS, verbatim
    // The names in parentheses behind the view's name; empty when none.
    QStringList FColumnNames;
    TDLTriggerDefs FTriggers;
    bool FIsTemporary = false;
    // Parts of the stored text that this definition cannot hold; see
    // TDLFieldDef.
    QStringList FUnsupportedClauses;
};

class TDLVirtualTableDef {
public:
    TDLVirtualTableDef() = default;
    TDLVirtualTableDef(const QString& TableName, const QString& ModuleName,
                       const QString& ModuleArguments = QString())
        : FTableName(TableName), FModuleName(ModuleName), FModuleArguments(ModuleArguments) {}

    QString GetCreateSQL() const;

    QString FTableName;  // may be qualified
    QString FModuleName;
    QString FModuleArguments;  // between the parentheses of USING, verbatim
};

// A table design. Owns everything added to it, ready-made objects too.
class TDLTableDef {
public:
    TDLTableDef() = default;
    explicit TDLTableDef(const QString& TableName) : FTableName(TableName) {}
    TDLTableDef(const TDLTableDef&) = delete;
    TDLTableDef& operator=(const TDLTableDef&) = delete;

    void Clear();
    void ClearFields() { FFields.clear(); }
    void ClearIndexes() { FIndexes.clear(); }
    void ClearTriggers() { FTriggers.Clear(); }
    // Unique, check and foreign key constraints.
    void ClearConstraints();

    TDLFieldDef& Fields(int i) const { return *FFields[static_cast<size_t>(i)]; }
    int FieldCount() const { return static_cast<int>(FFields.size()); }
    TDLIndexDef& Indexes(int i) const { return *FIndexes[static_cast<size_t>(i)]; }
    int IndexCount() const { return static_cast<int>(FIndexes.size()); }
    TDLTriggerDef& Triggers(int i) const { return FTriggers.Items(i); }
    int TriggerCount() const { return FTriggers.Count(); }
    TDLUniqueConstraintDef& UniqueConstraints(int i) const {
        return *FUniqueConstraints[static_cast<size_t>(i)];
    }
    int UniqueConstraintCount() const { return static_cast<int>(FUniqueConstraints.size()); }
    TDLCheckConstraintDef& CheckConstraints(int i) const {
        return *FCheckConstraints[static_cast<size_t>(i)];
    }
    int CheckConstraintCount() const { return static_cast<int>(FCheckConstraints.size()); }
    TDLForeignKeyDef& ForeignKeys(int i) const { return *FForeignKeys[static_cast<size_t>(i)]; }
    int ForeignKeyCount() const { return static_cast<int>(FForeignKeys.size()); }

    TDLFieldDef& AddField(std::unique_ptr<TDLFieldDef> Field);
    TDLFieldDef& AddField(const QString& FieldName, const QString& DeclaredType,
                          const QString& DefaultValue = QString(), const QString& Collate = QString(),
                          bool NotNull = false, const QString& NotNullConflictClause = QString());
    TDLIndexDef& AddIndex(std::unique_ptr<TDLIndexDef> Index);
    TDLIndexDef& AddIndex(const QString& IndexName, TDLIndexFieldDefs Fields, int Options,
                          const QString& ConflictClause = QString(), const QString& WhereClause = QString());
    // Removes the index from the table and hands it to the caller.
    std::unique_ptr<TDLIndexDef> TakeIndex(int i);
    TDLTriggerDef& AddTrigger(std::unique_ptr<TDLTriggerDef> Trigger) {
        return FTriggers.Add(std::move(Trigger));
    }
    TDLTriggerDef& AddTrigger(const QString& TriggerName, const QString& SQL);
    TDLUniqueConstraintDef& AddUniqueConstraint(std::unique_ptr<TDLUniqueConstraintDef> Constraint);
    TDLCheckConstraintDef& AddCheckConstraint(std::unique_ptr<TDLCheckConstraintDef> Constraint);
    TDLForeignKeyDef& AddForeignKey(std::unique_ptr<TDLForeignKeyDef> ForeignKey);

    // The CREATE TABLE statement, then each index and trigger behind a CRLF,
    // each statement ended with ";", so that the text runs as a script.
    // Without the structure the text starts with a CRLF.
    QString GetCreateSQL(bool IncludeStructure, bool IncludeIndexes, bool IncludeTriggers) const;
    // CREATE INDEX for an index that is not the primary key (asserted).
    QString GetIndexSQL(const TDLIndexDef& DLIndexDef) const;
    // The index's columns with collation and sort order, ", " between.
    static QString GetSQLFieldNames(const TDLIndexDef& DLIndexDef);
    // Exact, case-sensitive name; null when absent.
    TDLIndexDef* FindIndex(const QString& IndexName) const;
    // The table, one of its fields or indexes has clauses the CREATE text
    // would drop.
    bool HasUnsupportedClauses() const;

    QString FTableName;  // may be qualified, "main.t"
    bool FIsTemporary = false;
    bool FIsWithoutRowID = false;
    bool FIsStrict = false;
    // Clauses of the stored text that this definition cannot hold (an
    // unknown table option, a collated UNIQUE column); see TDLFieldDef.
    QStringList FUnsupportedClauses;

private:
    std::vector<std::unique_ptr<TDLFieldDef>> FFields;
    std::vector<std::unique_ptr<TDLIndexDef>> FIndexes;
    TDLTriggerDefs FTriggers;
    std::vector<std::unique_ptr<TDLUniqueConstraintDef>> FUniqueConstraints;
    std::vector<std::unique_ptr<TDLCheckConstraintDef>> FCheckConstraints;
    std::vector<std::unique_ptr<TDLForeignKeyDef>> FForeignKeys;
};

}  // namespace brindle
