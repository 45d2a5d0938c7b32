// The editors of design rows and the field mapping, through their seams:
// a row in, the values out, and the text that refuses them.
#include "QtPrinters.h"

#include "shell/DesignDialogs.h"
#include "shell/FieldMapping.h"

#include <gtest/gtest.h>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QTableWidget>
#include <QToolButton>

using namespace brindle;

namespace {

TDesignField Field(const QString& Name, const QString& DeclaredType) {
    TDesignField f;
    f.Name = Name;
    f.DeclaredType = DeclaredType;
    f.Type = DeclaredType;
    return f;
}

TEST(DesignDialogsTest, FieldValuesComeBackAndAReferencedFieldKeepsItsName) {
    TFieldDialogContext context{{QStringLiteral("INTEGER"), QStringLiteral("VARCHAR")},
                                {QStringLiteral("NOCASE")},
                                false,
                                {QStringLiteral("other")}};
    TfrmFieldEditor dialog(context);
    TDesignField field = Field(QStringLiteral("name"), QStringLiteral("VARCHAR"));
    field.RowID = 7;
    field.OldPosition = 2;
    field.Size = QStringLiteral("10");
    field.NotNull = true;
    field.NotNullOnConflict = QStringLiteral("IGNORE");
    field.Collate = QStringLiteral("NOCASE");
    dialog.SetField(field);
    TDesignField back = dialog.Field();
    EXPECT_EQ(back.RowID, 7);
    EXPECT_EQ(back.OldPosition, 2);
    EXPECT_EQ(back.DeclaredType, QStringLiteral("VARCHAR(10)"));
    EXPECT_EQ(back.NotNullOnConflict, QStringLiteral("IGNORE"));
    EXPECT_EQ(back.Collate, QStringLiteral("NOCASE"));
    EXPECT_EQ(dialog.CheckAccept(), QString());
    // The conflict clause goes with NOT NULL.
    dialog.cbNotNull->setChecked(false);
    EXPECT_EQ(dialog.Field().NotNullOnConflict, QString());
    dialog.edName->setText(QStringLiteral("OTHER"));
    EXPECT_FALSE(dialog.CheckAccept().isEmpty());
    dialog.edName->setText(QString());
    EXPECT_FALSE(dialog.CheckAccept().isEmpty());

    context.IsReferenced = true;
    TfrmFieldEditor referenced(context);
    referenced.SetField(field);
    EXPECT_TRUE(referenced.edName->isReadOnly());
    EXPECT_TRUE(referenced.lblReferenced->isVisibleTo(&referenced));
    EXPECT_EQ(referenced.lblReferenced->text(),
              QStringLiteral("Current field cannot be renamed due to external references."));
    referenced.edName->setText(QStringLiteral("renamed"));
    EXPECT_EQ(referenced.CheckAccept(), kReferencedFieldMessage);
    EXPECT_EQ(referenced.Field().Name, QStringLiteral("name"));
}

TEST(DesignDialogsTest, IndexNamesOfTheEngineAreRefused) {
    TIndexDialogContext context{QStringLiteral("t"), {Field(QStringLiteral("a"), QStringLiteral("TEXT"))}, {}, false};
    TfrmIndexEditor dialog(context);
    TDesignIndex index;
    index.Fields = {{QStringLiteral("a"), {}, QStringLiteral("DESC"), false}};
    for (const QString& name : {QStringLiteral("sqlite_x"), QStringLiteral("SQLITE_autoindex_t_1")}) {
        index.Name = name;
        dialog.SetIndex(index);
        EXPECT_EQ(dialog.CheckAccept(),
                  QStringLiteral("Index names beginning with 'sqlite_' are reserved for use by SQLite."));
    }
    index.Name = QStringLiteral("my_sqlite_index");
    dialog.SetIndex(index);
    EXPECT_EQ(dialog.CheckAccept(), QString());
    const TDesignIndex back = dialog.Index();
    EXPECT_EQ(back.Type, QString());  // a plain index
    ASSERT_EQ(back.Fields.size(), 1u);
    EXPECT_EQ(back.Fields[0].SortOrder, QStringLiteral("DESC"));
    // A second primary key, and a column the table lacks.
    TIndexDialogContext keyed = context;
    keyed.HasOtherPrimaryKey = true;
    TfrmIndexEditor second(keyed);
    index.Type = QStringLiteral("Primary");
    second.SetIndex(index);
    EXPECT_FALSE(second.CheckAccept().isEmpty());
    index.Type.clear();
    index.Fields[0].FieldName = QStringLiteral("missing");
    dialog.SetIndex(index);
    EXPECT_FALSE(dialog.CheckAccept().isEmpty());
}

TEST(DesignDialogsTest, AutoincrementOnlyForASingleIntegerKey) {
    const std::vector<TDesignField> fields = {Field(QStringLiteral("id"), QStringLiteral("INTEGER")),
                                              Field(QStringLiteral("n"), QStringLiteral("INT")),
                                              Field(QStringLiteral("s"), QStringLiteral("integer"))};
    EXPECT_TRUE(AutoincrementAllowed(QStringLiteral("Primary"), {QStringLiteral("id")}, fields));
    EXPECT_TRUE(AutoincrementAllowed(QStringLiteral("Primary"), {QStringLiteral("S")}, fields));
    EXPECT_FALSE(AutoincrementAllowed(QStringLiteral("Primary"), {QStringLiteral("n")}, fields));
    EXPECT_FALSE(AutoincrementAllowed(QStringLiteral("Unique"), {QStringLiteral("id")}, fields));
    EXPECT_FALSE(AutoincrementAllowed(QStringLiteral("Primary"), {QStringLiteral("id"), QStringLiteral("s")}, fields));

    TfrmIndexEditor dialog({QStringLiteral("t"), fields, {}, false});
    TDesignIndex key;
    key.Type = QStringLiteral("Primary");
    key.Fields = {{QStringLiteral("id"), {}, {}, true}};
    dialog.SetIndex(key);
    EXPECT_TRUE(dialog.AutoincrementOffered());
    EXPECT_TRUE(dialog.Index().Fields[0].Autoincrement);
    // A second column takes the offer back, and the check with it.
    dialog.AddColumn({QStringLiteral("n"), {}, {}, false});
    EXPECT_FALSE(dialog.AutoincrementOffered());
    EXPECT_FALSE(dialog.Index().Fields[0].Autoincrement);
    EXPECT_FALSE(dialog.grdColumns->item(0, 3)->flags() & Qt::ItemIsUserCheckable);
    dialog.RemoveColumn(1);
    dialog.cbType->setCurrentIndex(1);  // Unique
    EXPECT_FALSE(dialog.AutoincrementOffered());
}

TEST(DesignDialogsTest, KeysConstraintsAndTriggersAreChecked) {
    TForeignKeyDialogContext context;
    context.Fields = {QStringLiteral("a"), QStringLiteral("b")};
    context.ParentTables = {QStringLiteral("p")};
    context.GetParentFields = [](const QString& Table) {
        return Table == u"p" ? QStringList{QStringLiteral("x"), QStringLiteral("y")} : QStringList();
    };
    TfrmForeignKeyEditor key(context);
    TDesignForeignKey k;
    k.ParentTable = QStringLiteral("p");
    k.ChildKey = QStringLiteral("[a], [b]");
    k.ParentKey = QStringLiteral("[x]");
    k.OnDelete = QStringLiteral("CASCADE");
    key.SetForeignKey(k);
    EXPECT_EQ(key.edParentKey->cbField->count(), 2);  // the parent's fields to pick from
    EXPECT_FALSE(key.CheckAccept().isEmpty());        // two child fields, one parent field
    key.edParentKey->btnAdd->click();                 // adds the first choice, x
    EXPECT_EQ(key.edParentKey->Names(), (QStringList{"x", "x"}));
    EXPECT_EQ(key.CheckAccept(), QString());
    EXPECT_EQ(key.ForeignKey().OnDelete, QStringLiteral("CASCADE"));
    key.edChildKey->SetText(QStringLiteral("[c]"));
    EXPECT_FALSE(key.CheckAccept().isEmpty());

    TfrmUniqueConstraintEditor unique({QStringLiteral("a")});
    EXPECT_FALSE(unique.CheckAccept().isEmpty());
    unique.edFields->btnAdd->click();
    EXPECT_EQ(unique.Constraint().Fields, QStringLiteral("[a]"));
    EXPECT_EQ(unique.CheckAccept(), QString());

    TfrmCheckConstraintEditor check;
    EXPECT_FALSE(check.CheckAccept().isEmpty());
    check.mmoExpression->setPlainText(QStringLiteral("  a > 0\n"));
    EXPECT_EQ(check.Constraint().Expression, QStringLiteral("a > 0"));

    TfrmTriggerEditor trigger;
    TDesignTrigger t;
    t.SQL = QStringLiteral("select 1");
    trigger.SetTrigger(t);
    EXPECT_FALSE(trigger.CheckAccept().isEmpty());
    t.SQL = NewTriggerSQL(QStringLiteral("tr"), QStringLiteral("[t]"), false);
    trigger.SetTrigger(t);
    EXPECT_EQ(trigger.CheckAccept(), QString());
    EXPECT_EQ(trigger.Trigger().Name, QStringLiteral("tr"));  // from the text
    trigger.edName->setText(QStringLiteral("renamed"));
    EXPECT_TRUE(trigger.Trigger().SQL.startsWith(QStringLiteral("CREATE TRIGGER [renamed] AFTER INSERT ON [t]")))
        << trigger.Trigger().SQL.toStdString();
}

TEST(FieldMappingTest, SameNamesFirstThenPlaces) {
    QStringList source, dest;
    DefaultFieldMapping({"docid", "B", "a"}, {"a", "b", "docid"}, source, dest);
    EXPECT_EQ(source, (QStringList{"a", "B", "docid"}));
    EXPECT_EQ(dest, (QStringList{"a", "b", "docid"}));
    // A renamed column pairs by its place; a place taken by name elsewhere
    // does not pair twice, and what has no partner stays out.
    DefaultFieldMapping({"id", "old", "x"}, {"id", "new", "extra", "old2"}, source, dest);
    EXPECT_EQ(source, (QStringList{"id", "old", "x"}));
    EXPECT_EQ(dest, (QStringList{"id", "new", "extra"}));
    DefaultFieldMapping({"b", "a"}, {"a", "c"}, source, dest);
    EXPECT_EQ(source, (QStringList{"a"}));
    EXPECT_EQ(dest, (QStringList{"a"}));

    TfrmFieldMapping window(QStringLiteral("Map them:"), {"s1", "s2"}, {"d1", "d2", "d3"});
    EXPECT_EQ(window.lblCaption->text(), QStringLiteral("Map them:"));
    window.SetMapping({"s2", "s1"}, {"d1", "d3"});
    window.GetMapping(source, dest);
    EXPECT_EQ(source, (QStringList{"s2", "s1"}));
    EXPECT_EQ(dest, (QStringList{"d1", "d3"}));
    static_cast<QComboBox*>(window.grdMapping->cellWidget(0, 1))->setCurrentIndex(0);  // unmapped
    window.GetMapping(source, dest);
    EXPECT_EQ(dest, QStringList{"d3"});
}

}  // namespace
