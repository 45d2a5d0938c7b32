// The editors of one design row: a field, an index, a foreign key, a unique
// or check constraint, a trigger. Each shows a row of the working copy
// (schema/DMBrindle.h) and gives back the changed values; nothing here
// touches the design or a database.
//
// Every dialog has the same seam: SetX fills the controls from a row, X()
// reads them back, and CheckAccept() gives the text that refuses the values
// (empty when they are taken). accept() shows that text and stays open, so
// a test drives a dialog without exec() through these three alone.
//
// Three rules are fixed: an index name beginning with "sqlite_" is refused;
// a field that other tables' foreign keys name keeps its name; and
// AUTOINCREMENT is offered only for a primary key of one field of declared
// type INTEGER.
#pragma once

#include "schema/DMBrindle.h"

#include <QDialog>
#include <functional>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QTableWidget;
class QToolButton;

namespace brindle {

class TSQLEditor;

inline const QString kReservedIndexNameMessage =
    QStringLiteral("Index names beginning with 'sqlite_' are reserved for use by SQLite.");
inline const QString kReferencedFieldMessage =
    QStringLiteral("Current field cannot be renamed due to external references.");

// The conflict words of ON CONFLICT, the first one empty.
QStringList ConflictClauses();

// A list of quoted, comma-separated names with a picker that appends one:
// the keys of foreign keys and unique constraints, where order counts.
class TKeyFieldsEdit : public QWidget {
    Q_OBJECT

public:
    explicit TKeyFieldsEdit(QWidget* Parent = nullptr);
    void SetChoices(const QStringList& FieldNames);
    QString Text() const;
    void SetText(const QString& Text);
    // The names of the list, unquoted.
    QStringList Names() const;

    QLineEdit* edFields;
    QComboBox* cbField;
    QToolButton* btnAdd;
};

// --- field ---------------------------------------------------------------------

struct TFieldDialogContext {
    QStringList Types;       // declared type names for the type box
    QStringList Collations;  // of the database, for the collate box
    // Other tables' foreign keys name this field: its name stays.
    bool IsReferenced = false;
    // The design's other fields, so that no name is taken twice.
    QStringList OtherFieldNames;
};

class TfrmFieldEditor : public QDialog {
    Q_OBJECT

public:
    TfrmFieldEditor(const TFieldDialogContext& Context, QWidget* Parent = nullptr);
    void SetField(const TDesignField& Field);
    // The row as edited; RowID, Position and OldPosition as given to SetField.
    TDesignField Field() const;
    QString CheckAccept() const;
    void accept() override;
    // Shows the dialog on Field; false when cancelled.
    static bool Execute(QWidget* Parent, const TFieldDialogContext& Context, TDesignField& Field);

    QLineEdit* edName;
    QLabel* lblReferenced;
    QComboBox* cbType;
    QLineEdit *edSize, *edPrecision;
    QCheckBox* cbNotNull;
    QComboBox* cbNotNullOnConflict;
    QLineEdit* edDefault;
    QComboBox* cbCollate;
    QLineEdit* edGenerated;
    QComboBox* cbGeneratedStorage;  // "VIRTUAL", "STORED"

private:
    TFieldDialogContext FContext;
    TDesignField FField;
};

// --- index ---------------------------------------------------------------------

struct TIndexDialogContext {
    QString TableName;
    // The design's fields, for the column boxes and the AUTOINCREMENT rule.
    std::vector<TDesignField> Fields;
    QStringList Collations;
    // Another row of the design is the primary key already.
    bool HasOtherPrimaryKey = false;
};

// True when AUTOINCREMENT may stand: a primary key of exactly one field
// whose declared type is INTEGER.
bool AutoincrementAllowed(const QString& IndexType, const QStringList& FieldNames,
                          const std::vector<TDesignField>& Fields);

class TfrmIndexEditor : public QDialog {
    Q_OBJECT

public:
    TfrmIndexEditor(const TIndexDialogContext& Context, QWidget* Parent = nullptr);
    void SetIndex(const TDesignIndex& Index);
    // AUTOINCREMENT comes back only where AutoincrementAllowed holds.
    TDesignIndex Index() const;
    QString CheckAccept() const;
    void accept() override;
    static bool Execute(QWidget* Parent, const TIndexDialogContext& Context, TDesignIndex& Index);

    // Column rows; each holds a field box, a collate box, a sort box and an
    // AUTOINCREMENT check item.
    void AddColumn(const TDesignIndexField& Field = {});
    void RemoveColumn(int Row);
    // Whether the AUTOINCREMENT items can be checked now.
    bool AutoincrementOffered() const;

    QLineEdit* edName;
    QComboBox* cbType;  // "Primary", "Unique", "Index"
    QComboBox* cbOnConflict;
    QLineEdit* edWhereClause;
    QTableWidget* grdColumns;

private:
    QStringList ColumnNames() const;
    void UpdateAutoincrement();

    TIndexDialogContext FContext;
    TDesignIndex FIndex;
};

// --- foreign key -----------------------------------------------------------------

struct TForeignKeyDialogContext {
    QStringList Fields;        // the design's fields: the child key's choices
    QStringList ParentTables;  // tables of the database
    // The parent's fields for the parent key's choices.
    std::function<QStringList(const QString& ParentTable)> GetParentFields;
};

class TfrmForeignKeyEditor : public QDialog {
    Q_OBJECT

public:
    TfrmForeignKeyEditor(const TForeignKeyDialogContext& Context, QWidget* Parent = nullptr);
    void SetForeignKey(const TDesignForeignKey& ForeignKey);
    TDesignForeignKey ForeignKey() const;
    QString CheckAccept() const;
    void accept() override;
    static bool Execute(QWidget* Parent, const TForeignKeyDialogContext& Context, TDesignForeignKey& ForeignKey);

    QLineEdit* edName;
    QComboBox* cbParentTable;
    TKeyFieldsEdit *edChildKey, *edParentKey;
    QComboBox *cbOnDelete, *cbOnUpdate, *cbMatch, *cbDeferrable, *cbInitially;

private:
    void ParentTableChanged();

    TForeignKeyDialogContext FContext;
    TDesignForeignKey FForeignKey;
};

// --- unique and check constraints ---------------------------------------------------

class TfrmUniqueConstraintEditor : public QDialog {
    Q_OBJECT

public:
    TfrmUniqueConstraintEditor(const QStringList& Fields, QWidget* Parent = nullptr);
    void SetConstraint(const TDesignUniqueConstraint& Constraint);
    TDesignUniqueConstraint Constraint() const;
    QString CheckAccept() const;
    void accept() override;
    static bool Execute(QWidget* Parent, const QStringList& Fields, TDesignUniqueConstraint& Constraint);

    QLineEdit* edName;
    TKeyFieldsEdit* edFields;
    QComboBox* cbOnConflict;

private:
    TDesignUniqueConstraint FConstraint;
};

class TfrmCheckConstraintEditor : public QDialog {
    Q_OBJECT

public:
    explicit TfrmCheckConstraintEditor(QWidget* Parent = nullptr);
    void SetConstraint(const TDesignCheckConstraint& Constraint);
    TDesignCheckConstraint Constraint() const;
    QString CheckAccept() const;
    void accept() override;
    static bool Execute(QWidget* Parent, TDesignCheckConstraint& Constraint);

    QLineEdit* edName;
    QPlainTextEdit* mmoExpression;

private:
    TDesignCheckConstraint FConstraint;
};

// --- trigger ---------------------------------------------------------------------------

// The text a new trigger starts with, on the quoted table or view.
QString NewTriggerSQL(const QString& TriggerName, const QString& QuotedOwner, bool OnView);

class TfrmTriggerEditor : public QDialog {
    Q_OBJECT

public:
    explicit TfrmTriggerEditor(QWidget* Parent = nullptr);
    void SetTrigger(const TDesignTrigger& Trigger);
    // A name typed in the name box goes into the text's head; an empty box
    // takes the text's name.
    TDesignTrigger Trigger() const;
    QString CheckAccept() const;
    void accept() override;
    static bool Execute(QWidget* Parent, TDesignTrigger& Trigger);

    QLineEdit* edName;
    TSQLEditor* mmoSQL;
    QCheckBox* cbTemporary;

private:
    TDesignTrigger FTrigger;
};

}  // namespace brindle
