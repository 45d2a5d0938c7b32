#include "DesignDialogs.h"

#include "engine/DLQuoteTools.h"
#include "engine/SQLText.h"
#include "schema/DLSQLiteParser.h"
#include "widgets/SQLEditor.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QTableWidget>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>

namespace brindle {

namespace {

QComboBox* MakeCombo(QWidget* Parent, const char* Name, const QStringList& Items, bool Editable) {
    auto* box = new QComboBox(Parent);
    box->setObjectName(QLatin1String(Name));
    box->addItems(Items);
    box->setEditable(Editable);
    return box;
}

QLineEdit* MakeEdit(QWidget* Parent, const char* Name) {
    auto* edit = new QLineEdit(Parent);
    edit->setObjectName(QLatin1String(Name));
    return edit;
}

// Shows the text in the box's current entry, adding it when the list lacks it.
void SetComboText(QComboBox* Box, const QString& Text) {
    int i = Box->findText(Text, Qt::MatchFixedString);
    if (i < 0 && Box->isEditable()) {
        Box->setEditText(Text);
        return;
    }
    if (i < 0) {
        Box->addItem(Text);
        i = Box->count() - 1;
    }
    Box->setCurrentIndex(i);
}

QString ComboText(const QComboBox* Box) {
    return Box->currentText().trimmed();
}

// OK and Cancel under the form.
void AddButtons(QDialog* Dialog, QBoxLayout* Layout) {
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, Dialog);
    QObject::connect(buttons, &QDialogButtonBox::accepted, Dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, Dialog, &QDialog::reject);
    Layout->addWidget(buttons);
}

// The common end of accept(): a refusal keeps the dialog open.
bool Refused(QDialog* Dialog, const QString& Message) {
    if (Message.isEmpty()) return false;
    QMessageBox::warning(Dialog, Dialog->windowTitle(), Message);
    return true;
}

bool SameName(const QString& A, const QString& B) {
    return A.compare(B, Qt::CaseInsensitive) == 0;
}

const QStringList kActions = {QString(),           QStringLiteral("SET NULL"), QStringLiteral("SET DEFAULT"),
                              QStringLiteral("CASCADE"), QStringLiteral("RESTRICT"), QStringLiteral("NO ACTION")};

}  // namespace

QStringList ConflictClauses() {
    return {QString(),
            QStringLiteral("ROLLBACK"),
            QStringLiteral("ABORT"),
            QStringLiteral("FAIL"),
            QStringLiteral("IGNORE"),
            QStringLiteral("REPLACE")};
}

// --- key fields ----------------------------------------------------------------

TKeyFieldsEdit::TKeyFieldsEdit(QWidget* Parent) : QWidget(Parent) {
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    edFields = MakeEdit(this, "edFields");
    cbField = MakeCombo(this, "cbField", {}, false);
    btnAdd = new QToolButton(this);
    btnAdd->setObjectName(QStringLiteral("btnAdd"));
    btnAdd->setText(QStringLiteral("Add"));
    layout->addWidget(edFields, 2);
    layout->addWidget(cbField, 1);
    layout->addWidget(btnAdd);
    connect(btnAdd, &QToolButton::clicked, this, [this] {
        if (cbField->currentText().isEmpty()) return;
        const QString name = QuoteIdentifier(cbField->currentText());
        const QString text = edFields->text().trimmed();
        edFields->setText(text.isEmpty() ? name : text + QStringLiteral(", ") + name);
    });
}

void TKeyFieldsEdit::SetChoices(const QStringList& FieldNames) {
    cbField->clear();
    cbField->addItems(FieldNames);
}

QString TKeyFieldsEdit::Text() const {
    return edFields->text().trimmed();
}

void TKeyFieldsEdit::SetText(const QString& Text) {
    edFields->setText(Text);
}

QStringList TKeyFieldsEdit::Names() const {
    QStringList names;
    FieldsToList(Text(), names, u',');
    for (QString& name : names) name = UnQuoteIdentifier(name.trimmed());
    names.removeAll(QString());
    return names;
}

// --- field -----------------------------------------------------------------------

TfrmFieldEditor::TfrmFieldEditor(const TFieldDialogContext& Context, QWidget* Parent)
    : QDialog(Parent), FContext(Context) {
    setObjectName(QStringLiteral("TfrmFieldEditor"));
    setWindowTitle(QStringLiteral("Field"));
    auto* layout = new QVBoxLayout(this);
    auto* form = new QFormLayout;
    edName = MakeEdit(this, "edName");
    lblReferenced = new QLabel(kReferencedFieldMessage, this);
    lblReferenced->setObjectName(QStringLiteral("lblReferenced"));
    lblReferenced->setVisible(Context.IsReferenced);
    // A referenced field keeps its name: the references would break.
    edName->setReadOnly(Context.IsReferenced);
    cbType = MakeCombo(this, "cbType", Context.Types, true);
    edSize = MakeEdit(this, "edSize");
    edPrecision = MakeEdit(this, "edPrecision");
    cbNotNull = new QCheckBox(QStringLiteral("Not null"), this);
    cbNotNull->setObjectName(QStringLiteral("cbNotNull"));
    cbNotNullOnConflict = MakeCombo(this, "cbNotNullOnConflict", ConflictClauses(), false);
    edDefault = MakeEdit(this, "edDefault");
    QStringList collations = Context.Collations;
    collations.prepend(QString());
    cbCollate = MakeCombo(this, "cbCollate", collations, true);
    edGenerated = MakeEdit(this, "edGenerated");
    cbGeneratedStorage =
        MakeCombo(this, "cbGeneratedStorage", {QStringLiteral("VIRTUAL"), QStringLiteral("STORED")}, false);

    form->addRow(QStringLiteral("Name:"), edName);
    form->addRow(QString(), lblReferenced);
    form->addRow(QStringLiteral("Type:"), cbType);
    form->addRow(QStringLiteral("Size:"), edSize);
    form->addRow(QStringLiteral("Precision:"), edPrecision);
    auto* notNull = new QHBoxLayout;
    notNull->addWidget(cbNotNull);
    notNull->addWidget(new QLabel(QStringLiteral("On conflict:"), this));
    notNull->addWidget(cbNotNullOnConflict, 1);
    form->addRow(QString(), notNull);
    form->addRow(QStringLiteral("Default value:"), edDefault);
    form->addRow(QStringLiteral("Collate:"), cbCollate);
    auto* generated = new QHBoxLayout;
    generated->addWidget(edGenerated, 1);
    generated->addWidget(cbGeneratedStorage);
    form->addRow(QStringLiteral("Generated as:"), generated);
    layout->addLayout(form);
    AddButtons(this, layout);

    auto sync = [this] {
        cbNotNullOnConflict->setEnabled(cbNotNull->isChecked());
        cbGeneratedStorage->setEnabled(!edGenerated->text().trimmed().isEmpty());
    };
    connect(cbNotNull, &QCheckBox::toggled, this, sync);
    connect(edGenerated, &QLineEdit::textChanged, this, sync);
    sync();
}

void TfrmFieldEditor::SetField(const TDesignField& Field) {
    FField = Field;
    edName->setText(Field.Name);
    SetComboText(cbType, Field.Type.isEmpty() && Field.DeclaredType.isEmpty() ? QString()
                         : Field.Type.isEmpty()                             ? Field.DeclaredType
                                                                            : Field.Type);
    edSize->setText(Field.Size);
    edPrecision->setText(Field.Precision);
    cbNotNull->setChecked(Field.NotNull);
    SetComboText(cbNotNullOnConflict, Field.NotNullOnConflict);
    edDefault->setText(Field.DefaultValue);
    SetComboText(cbCollate, Field.Collate);
    edGenerated->setText(Field.GeneratedExpression);
    cbGeneratedStorage->setCurrentIndex(Field.GeneratedStored ? 1 : 0);
}

TDesignField TfrmFieldEditor::Field() const {
    TDesignField f = FField;
    // The name box is read-only then, but the rule does not rest on that.
    f.Name = FContext.IsReferenced ? FField.Name : edName->text().trimmed();
    f.Type = ComboText(cbType);
    f.Size = edSize->text().trimmed();
    f.Precision = edPrecision->text().trimmed();
    f.DeclaredType = f.Type + GetSizePrecisionStr(f.Size, f.Precision);
    f.NotNull = cbNotNull->isChecked();
    f.NotNullOnConflict = f.NotNull ? ComboText(cbNotNullOnConflict) : QString();
    f.DefaultValue = edDefault->text().trimmed();
    f.Collate = ComboText(cbCollate);
    f.GeneratedExpression = edGenerated->text().trimmed();
    f.GeneratedStored = !f.GeneratedExpression.isEmpty() && cbGeneratedStorage->currentIndex() == 1;
    return f;
}

QString TfrmFieldEditor::CheckAccept() const {
    const QString name = edName->text().trimmed();
    if (FContext.IsReferenced && name != FField.Name) return kReferencedFieldMessage;
    if (name.isEmpty()) return QStringLiteral("The field needs a name.");
    for (const QString& other : FContext.OtherFieldNames)
        if (SameName(other, name)) return QStringLiteral("The table has a field %1 already.").arg(name);
    bool ok = true;
    for (QLineEdit* number : {edSize, edPrecision})
        if (!number->text().trimmed().isEmpty()) number->text().trimmed().toInt(&ok);
    if (!ok) return QStringLiteral("Size and precision are whole numbers.");
    if (!edGenerated->text().trimmed().isEmpty() && !edDefault->text().trimmed().isEmpty())
        return QStringLiteral("A generated field has no default value.");
    return QString();
}

void TfrmFieldEditor::accept() {
    if (!Refused(this, CheckAccept())) QDialog::accept();
}

bool TfrmFieldEditor::Execute(QWidget* Parent, const TFieldDialogContext& Context, TDesignField& Field) {
    TfrmFieldEditor dialog(Context, Parent);
    dialog.SetField(Field);
    if (dialog.exec() != QDialog::Accepted) return false;
    Field = dialog.Field();
    return true;
}

// --- index -----------------------------------------------------------------------

bool AutoincrementAllowed(const QString& IndexType, const QStringList& FieldNames,
                          const std::vector<TDesignField>& Fields) {
    if (IndexType != QLatin1String("Primary") || FieldNames.size() != 1) return false;
    for (const TDesignField& f : Fields)
        if (SameName(f.Name, FieldNames.front()))
            return f.DeclaredType.trimmed().compare(QLatin1String("INTEGER"), Qt::CaseInsensitive) == 0;
    return false;
}

namespace {
enum { colField, colCollate, colSortOrder, colAutoincrement };
}

TfrmIndexEditor::TfrmIndexEditor(const TIndexDialogContext& Context, QWidget* Parent)
    : QDialog(Parent), FContext(Context) {
    setObjectName(QStringLiteral("TfrmIndexEditor"));
    setWindowTitle(QStringLiteral("Index"));
    auto* layout = new QVBoxLayout(this);
    auto* form = new QFormLayout;
    edName = MakeEdit(this, "edName");
    cbType = MakeCombo(this, "cbType",
                       {QStringLiteral("Primary"), QStringLiteral("Unique"), QStringLiteral("Index")}, false);
    cbOnConflict = MakeCombo(this, "cbOnConflict", ConflictClauses(), false);
    edWhereClause = MakeEdit(this, "edWhereClause");
    form->addRow(QStringLiteral("Name:"), edName);
    form->addRow(QStringLiteral("Type:"), cbType);
    form->addRow(QStringLiteral("On conflict:"), cbOnConflict);
    form->addRow(QStringLiteral("Where:"), edWhereClause);
    layout->addLayout(form);

    grdColumns = new QTableWidget(0, 4, this);
    grdColumns->setObjectName(QStringLiteral("grdColumns"));
    grdColumns->setHorizontalHeaderLabels({QStringLiteral("Field"), QStringLiteral("Collate"),
                                           QStringLiteral("Sort Order"), QStringLiteral("Autoincrement")});
    grdColumns->horizontalHeader()->setStretchLastSection(true);
    grdColumns->setSelectionBehavior(QAbstractItemView::SelectRows);
    grdColumns->verticalHeader()->setVisible(false);
    layout->addWidget(grdColumns, 1);
    auto* buttons = new QHBoxLayout;
    auto* add = new QToolButton(this);
    add->setText(QStringLiteral("Add field"));
    auto* remove = new QToolButton(this);
    remove->setText(QStringLiteral("Remove field"));
    buttons->addWidget(add);
    buttons->addWidget(remove);
    buttons->addStretch(1);
    layout->addLayout(buttons);
    AddButtons(this, layout);

    connect(add, &QToolButton::clicked, this, [this] { AddColumn(); });
    connect(remove, &QToolButton::clicked, this, [this] {
        if (grdColumns->currentRow() >= 0) RemoveColumn(grdColumns->currentRow());
    });
    connect(cbType, &QComboBox::currentIndexChanged, this, [this] {
        // The conflict clause belongs to the primary key alone.
        cbOnConflict->setEnabled(cbType->currentIndex() == 0);
        edWhereClause->setEnabled(cbType->currentIndex() != 0);
        UpdateAutoincrement();
    });
    cbType->setCurrentIndex(2);
}

void TfrmIndexEditor::AddColumn(const TDesignIndexField& Field) {
    const int row = grdColumns->rowCount();
    grdColumns->insertRow(row);
    QStringList names;
    for (const TDesignField& f : FContext.Fields) names << f.Name;
    auto* field = MakeCombo(grdColumns, "cbField", names, true);
    SetComboText(field, Field.FieldName.isEmpty() && !names.isEmpty() ? names.front() : Field.FieldName);
    QStringList collations = FContext.Collations;
    collations.prepend(QString());
    auto* collate = MakeCombo(grdColumns, "cbCollate", collations, true);
    SetComboText(collate, Field.Collate);
    auto* sort = MakeCombo(grdColumns, "cbSortOrder", {QString(), QStringLiteral("ASC"), QStringLiteral("DESC")},
                           false);
    SetComboText(sort, Field.SortOrder);
    grdColumns->setCellWidget(row, colField, field);
    grdColumns->setCellWidget(row, colCollate, collate);
    grdColumns->setCellWidget(row, colSortOrder, sort);
    auto* autoincrement = new QTableWidgetItem;
    autoincrement->setCheckState(Field.Autoincrement ? Qt::Checked : Qt::Unchecked);
    grdColumns->setItem(row, colAutoincrement, autoincrement);
    connect(field, &QComboBox::currentTextChanged, this, [this] { UpdateAutoincrement(); });
    UpdateAutoincrement();
}

void TfrmIndexEditor::RemoveColumn(int Row) {
    grdColumns->removeRow(Row);
    UpdateAutoincrement();
}

QStringList TfrmIndexEditor::ColumnNames() const {
    QStringList names;
    for (int r = 0; r < grdColumns->rowCount(); ++r)
        names << ComboText(static_cast<QComboBox*>(grdColumns->cellWidget(r, colField)));
    return names;
}

bool TfrmIndexEditor::AutoincrementOffered() const {
    static const QString types[] = {QStringLiteral("Primary"), QStringLiteral("Unique"), QString()};
    return AutoincrementAllowed(types[std::clamp(cbType->currentIndex(), 0, 2)], ColumnNames(), FContext.Fields);
}

void TfrmIndexEditor::UpdateAutoincrement() {
    const bool offered = AutoincrementOffered();
    for (int r = 0; r < grdColumns->rowCount(); ++r) {
        QTableWidgetItem* item = grdColumns->item(r, colAutoincrement);
        if (!item) continue;
        item->setFlags(offered ? Qt::ItemIsEnabled | Qt::ItemIsUserCheckable : Qt::NoItemFlags);
        if (!offered) item->setCheckState(Qt::Unchecked);
    }
}

void TfrmIndexEditor::SetIndex(const TDesignIndex& Index) {
    FIndex = Index;
    edName->setText(Index.Name);
    cbType->setCurrentIndex(Index.Type == QLatin1String("Primary")  ? 0
                            : Index.Type == QLatin1String("Unique") ? 1
                                                                    : 2);
    SetComboText(cbOnConflict, Index.OnConflict);
    edWhereClause->setText(Index.WhereClause);
    grdColumns->setRowCount(0);
    for (const TDesignIndexField& f : Index.Fields) AddColumn(f);
    UpdateAutoincrement();
}

TDesignIndex TfrmIndexEditor::Index() const {
    TDesignIndex index = FIndex;
    index.Name = edName->text().trimmed();
    static const QString types[] = {QStringLiteral("Primary"), QStringLiteral("Unique"), QString()};
    index.Type = types[std::clamp(cbType->currentIndex(), 0, 2)];
    index.OnConflict = index.Type == QLatin1String("Primary") ? ComboText(cbOnConflict) : QString();
    index.WhereClause = index.Type == QLatin1String("Primary") ? QString() : edWhereClause->text().trimmed();
    const bool autoincrement = AutoincrementOffered();
    index.Fields.clear();
    for (int r = 0; r < grdColumns->rowCount(); ++r) {
        TDesignIndexField f;
        f.FieldName = ComboText(static_cast<QComboBox*>(grdColumns->cellWidget(r, colField)));
        f.Collate = ComboText(static_cast<QComboBox*>(grdColumns->cellWidget(r, colCollate)));
        f.SortOrder = ComboText(static_cast<QComboBox*>(grdColumns->cellWidget(r, colSortOrder)));
        f.Autoincrement = autoincrement && grdColumns->item(r, colAutoincrement)->checkState() == Qt::Checked;
        index.Fields.push_back(std::move(f));
    }
    return index;
}

QString TfrmIndexEditor::CheckAccept() const {
    const TDesignIndex index = Index();
    if (index.Name.startsWith(QLatin1String("sqlite_"), Qt::CaseInsensitive)) return kReservedIndexNameMessage;
    if (index.Type != QLatin1String("Primary") && index.Name.isEmpty())
        return QStringLiteral("The index needs a name.");
    if (index.Type == QLatin1String("Primary") && FContext.HasOtherPrimaryKey)
        return QStringLiteral("The table has a primary key already.");
    if (index.Fields.empty()) return QStringLiteral("The index needs at least one field.");
    for (const TDesignIndexField& f : index.Fields) {
        bool known = false;
        for (const TDesignField& d : FContext.Fields) known = known || SameName(d.Name, f.FieldName);
        if (!known) return QStringLiteral("The table has no field %1.").arg(f.FieldName);
    }
    return QString();
}

void TfrmIndexEditor::accept() {
    if (!Refused(this, CheckAccept())) QDialog::accept();
}

bool TfrmIndexEditor::Execute(QWidget* Parent, const TIndexDialogContext& Context, TDesignIndex& Index) {
    TfrmIndexEditor dialog(Context, Parent);
    dialog.SetIndex(Index);
    if (dialog.exec() != QDialog::Accepted) return false;
    Index = dialog.Index();
    return true;
}

// --- foreign key -------------------------------------------------------------------

TfrmForeignKeyEditor::TfrmForeignKeyEditor(const TForeignKeyDialogContext& Context, QWidget* Parent)
    : QDialog(Parent), FContext(Context) {
    setObjectName(QStringLiteral("TfrmForeignKeyEditor"));
    setWindowTitle(QStringLiteral("Foreign Key"));
    auto* layout = new QVBoxLayout(this);
    auto* form = new QFormLayout;
    edName = MakeEdit(this, "edName");
    cbParentTable = MakeCombo(this, "cbParentTable", Context.ParentTables, true);
    cbParentTable->setCurrentIndex(-1);
    edChildKey = new TKeyFieldsEdit(this);
    edChildKey->setObjectName(QStringLiteral("edChildKey"));
    edChildKey->SetChoices(Context.Fields);
    edParentKey = new TKeyFieldsEdit(this);
    edParentKey->setObjectName(QStringLiteral("edParentKey"));
    cbOnDelete = MakeCombo(this, "cbOnDelete", kActions, false);
    cbOnUpdate = MakeCombo(this, "cbOnUpdate", kActions, false);
    cbMatch = MakeCombo(this, "cbMatch",
                        {QString(), QStringLiteral("SIMPLE"), QStringLiteral("FULL"), QStringLiteral("PARTIAL")}, true);
    cbDeferrable = MakeCombo(this, "cbDeferrable",
                             {QString(), QStringLiteral("DEFERRABLE"), QStringLiteral("NOT DEFERRABLE")}, false);
    cbInitially = MakeCombo(
        this, "cbInitially",
        {QString(), QStringLiteral("INITIALLY DEFERRED"), QStringLiteral("INITIALLY IMMEDIATE")}, false);
    form->addRow(QStringLiteral("Name:"), edName);
    form->addRow(QStringLiteral("Parent table:"), cbParentTable);
    form->addRow(QStringLiteral("Child key:"), edChildKey);
    form->addRow(QStringLiteral("Parent key:"), edParentKey);
    form->addRow(QStringLiteral("On delete:"), cbOnDelete);
    form->addRow(QStringLiteral("On update:"), cbOnUpdate);
    form->addRow(QStringLiteral("Match:"), cbMatch);
    form->addRow(QStringLiteral("Deferrable:"), cbDeferrable);
    form->addRow(QStringLiteral("Initially:"), cbInitially);
    layout->addLayout(form);
    AddButtons(this, layout);
    connect(cbParentTable, &QComboBox::currentTextChanged, this, [this] { ParentTableChanged(); });
    connect(cbDeferrable, &QComboBox::currentIndexChanged, this,
            [this] { cbInitially->setEnabled(cbDeferrable->currentIndex() > 0); });
    cbInitially->setEnabled(false);
}

void TfrmForeignKeyEditor::ParentTableChanged() {
    QStringList fields;
    const QString table = ComboText(cbParentTable);
    if (!table.isEmpty() && FContext.GetParentFields) {
        // A parent that cannot be read offers no names; the key stays typable.
        try {
            fields = FContext.GetParentFields(table);
        } catch (const std::exception&) {
        }
    }
    edParentKey->SetChoices(fields);
}

void TfrmForeignKeyEditor::SetForeignKey(const TDesignForeignKey& ForeignKey) {
    FForeignKey = ForeignKey;
    edName->setText(ForeignKey.Name);
    SetComboText(cbParentTable, ForeignKey.ParentTable);
    ParentTableChanged();
    edChildKey->SetText(ForeignKey.ChildKey);
    edParentKey->SetText(ForeignKey.ParentKey);
    SetComboText(cbOnDelete, ForeignKey.OnDelete);
    SetComboText(cbOnUpdate, ForeignKey.OnUpdate);
    SetComboText(cbMatch, ForeignKey.Match);
    SetComboText(cbDeferrable, ForeignKey.Deferrable);
    SetComboText(cbInitially, ForeignKey.Initially);
}

TDesignForeignKey TfrmForeignKeyEditor::ForeignKey() const {
    TDesignForeignKey k = FForeignKey;
    k.Name = edName->text().trimmed();
    k.ParentTable = ComboText(cbParentTable);
    k.ChildKey = edChildKey->Text();
    k.ParentKey = edParentKey->Text();
    k.OnDelete = ComboText(cbOnDelete);
    k.OnUpdate = ComboText(cbOnUpdate);
    k.Match = ComboText(cbMatch);
    k.Deferrable = ComboText(cbDeferrable);
    k.Initially = k.Deferrable.isEmpty() ? QString() : ComboText(cbInitially);
    return k;
}

QString TfrmForeignKeyEditor::CheckAccept() const {
    if (ComboText(cbParentTable).isEmpty()) return QStringLiteral("The foreign key needs a parent table.");
    const QStringList child = edChildKey->Names(), parent = edParentKey->Names();
    if (child.isEmpty()) return QStringLiteral("The foreign key needs the fields of its child key.");
    for (const QString& name : child)
        if (!FContext.Fields.contains(name, Qt::CaseInsensitive))
            return QStringLiteral("The table has no field %1.").arg(name);
    if (!parent.isEmpty() && parent.size() != child.size())
        return QStringLiteral("The parent key needs as many fields as the child key.");
    return QString();
}

void TfrmForeignKeyEditor::accept() {
    if (!Refused(this, CheckAccept())) QDialog::accept();
}

bool TfrmForeignKeyEditor::Execute(QWidget* Parent, const TForeignKeyDialogContext& Context,
                                   TDesignForeignKey& ForeignKey) {
    TfrmForeignKeyEditor dialog(Context, Parent);
    dialog.SetForeignKey(ForeignKey);
    if (dialog.exec() != QDialog::Accepted) return false;
    ForeignKey = dialog.ForeignKey();
    return true;
}

// --- unique constraint -------------------------------------------------------------

TfrmUniqueConstraintEditor::TfrmUniqueConstraintEditor(const QStringList& Fields, QWidget* Parent)
    : QDialog(Parent) {
    setObjectName(QStringLiteral("TfrmUniqueConstraintEditor"));
    setWindowTitle(QStringLiteral("Unique Constraint"));
    auto* layout = new QVBoxLayout(this);
    auto* form = new QFormLayout;
    edName = MakeEdit(this, "edName");
    edFields = new TKeyFieldsEdit(this);
    edFields->setObjectName(QStringLiteral("edFields"));
    edFields->SetChoices(Fields);
    cbOnConflict = MakeCombo(this, "cbOnConflict", ConflictClauses(), false);
    form->addRow(QStringLiteral("Name:"), edName);
    form->addRow(QStringLiteral("Fields:"), edFields);
    form->addRow(QStringLiteral("On conflict:"), cbOnConflict);
    layout->addLayout(form);
    AddButtons(this, layout);
}

void TfrmUniqueConstraintEditor::SetConstraint(const TDesignUniqueConstraint& Constraint) {
    FConstraint = Constraint;
    edName->setText(Constraint.Name);
    edFields->SetText(Constraint.Fields);
    SetComboText(cbOnConflict, Constraint.OnConflict);
}

TDesignUniqueConstraint TfrmUniqueConstraintEditor::Constraint() const {
    TDesignUniqueConstraint c = FConstraint;
    c.Name = edName->text().trimmed();
    c.Fields = edFields->Text();
    c.OnConflict = ComboText(cbOnConflict);
    return c;
}

QString TfrmUniqueConstraintEditor::CheckAccept() const {
    if (edFields->Names().isEmpty()) return QStringLiteral("The constraint needs at least one field.");
    return QString();
}

void TfrmUniqueConstraintEditor::accept() {
    if (!Refused(this, CheckAccept())) QDialog::accept();
}

bool TfrmUniqueConstraintEditor::Execute(QWidget* Parent, const QStringList& Fields,
                                         TDesignUniqueConstraint& Constraint) {
    TfrmUniqueConstraintEditor dialog(Fields, Parent);
    dialog.SetConstraint(Constraint);
    if (dialog.exec() != QDialog::Accepted) return false;
    Constraint = dialog.Constraint();
    return true;
}

// --- check constraint --------------------------------------------------------------

TfrmCheckConstraintEditor::TfrmCheckConstraintEditor(QWidget* Parent) : QDialog(Parent) {
    setObjectName(QStringLiteral("TfrmCheckConstraintEditor"));
    setWindowTitle(QStringLiteral("Check Constraint"));
    auto* layout = new QVBoxLayout(this);
    auto* form = new QFormLayout;
    edName = MakeEdit(this, "edName");
    mmoExpression = new QPlainTextEdit(this);
    mmoExpression->setObjectName(QStringLiteral("mmoExpression"));
    form->addRow(QStringLiteral("Name:"), edName);
    form->addRow(QStringLiteral("Expression:"), mmoExpression);
    layout->addLayout(form);
    AddButtons(this, layout);
}

void TfrmCheckConstraintEditor::SetConstraint(const TDesignCheckConstraint& Constraint) {
    FConstraint = Constraint;
    edName->setText(Constraint.Name);
    mmoExpression->setPlainText(Constraint.Expression);
}

TDesignCheckConstraint TfrmCheckConstraintEditor::Constraint() const {
    TDesignCheckConstraint c = FConstraint;
    c.Name = edName->text().trimmed();
    // Kept as typed but for the blanks around it: the text goes verbatim.
    c.Expression = mmoExpression->toPlainText().trimmed();
    return c;
}

QString TfrmCheckConstraintEditor::CheckAccept() const {
    if (mmoExpression->toPlainText().trimmed().isEmpty())
        return QStringLiteral("The constraint needs an expression.");
    return QString();
}

void TfrmCheckConstraintEditor::accept() {
    if (!Refused(this, CheckAccept())) QDialog::accept();
}

bool TfrmCheckConstraintEditor::Execute(QWidget* Parent, TDesignCheckConstraint& Constraint) {
    TfrmCheckConstraintEditor dialog(Parent);
    dialog.SetConstraint(Constraint);
    if (dialog.exec() != QDialog::Accepted) return false;
    Constraint = dialog.Constraint();
    return true;
}

// --- trigger --------------------------------------------------------------------------

QString NewTriggerSQL(const QString& TriggerName, const QString& QuotedOwner, bool OnView) {
    return QStringLiteral("CREATE TRIGGER %1 %2 ON %3\r\nFOR EACH ROW\r\nBEGIN\r\n  \r\nEND")
        .arg(QuoteIdentifier(TriggerName), OnView ? QStringLiteral("INSTEAD OF INSERT") : QStringLiteral("AFTER INSERT"),
             QuotedOwner);
}

TfrmTriggerEditor::TfrmTriggerEditor(QWidget* Parent) : QDialog(Parent) {
    setObjectName(QStringLiteral("TfrmTriggerEditor"));
    setWindowTitle(QStringLiteral("Trigger"));
    resize(640, 420);
    auto* layout = new QVBoxLayout(this);
    auto* form = new QFormLayout;
    edName = MakeEdit(this, "edName");
    cbTemporary = new QCheckBox(QStringLiteral("Temporary"), this);
    cbTemporary->setObjectName(QStringLiteral("cbTemporary"));
    form->addRow(QStringLiteral("Name:"), edName);
    form->addRow(QString(), cbTemporary);
    layout->addLayout(form);
    mmoSQL = new TSQLEditor(this);
    mmoSQL->setObjectName(QStringLiteral("mmoSQL"));
    layout->addWidget(mmoSQL, 1);
    AddButtons(this, layout);
}

void TfrmTriggerEditor::SetTrigger(const TDesignTrigger& Trigger) {
    FTrigger = Trigger;
    edName->setText(Trigger.Name);
    cbTemporary->setChecked(Trigger.IsTemporary);
    mmoSQL->setText(Trigger.SQL);
}

TDesignTrigger TfrmTriggerEditor::Trigger() const {
    TDesignTrigger t = FTrigger;
    t.SQL = mmoSQL->text().trimmed();
    t.IsTemporary = cbTemporary->isChecked();
    const QString name = edName->text().trimmed();
    const QString textName = GetTriggerRec(t.SQL).TriggerName;
    if (name.isEmpty()) {
        t.Name = textName;
    } else {
        t.Name = name;
        if (name != textName) t.SQL = ReplaceTriggerName(t.SQL, QuoteIdentifier(name));
    }
    return t;
}

QString TfrmTriggerEditor::CheckAccept() const {
    const QString sql = mmoSQL->text().trimmed();
    if (GetSQLCommand(sql) != stCreateTrigger)
        return QStringLiteral("The text of a trigger is one CREATE TRIGGER statement.");
    if (edName->text().trimmed().isEmpty() && GetTriggerRec(sql).TriggerName.isEmpty())
        return QStringLiteral("The trigger needs a name.");
    return QString();
}

void TfrmTriggerEditor::accept() {
    if (!Refused(this, CheckAccept())) QDialog::accept();
}

bool TfrmTriggerEditor::Execute(QWidget* Parent, TDesignTrigger& Trigger) {
    TfrmTriggerEditor dialog(Parent);
    dialog.SetTrigger(Trigger);
    if (dialog.exec() != QDialog::Accepted) return false;
    Trigger = dialog.Trigger();
    return true;
}

}  // namespace brindle
