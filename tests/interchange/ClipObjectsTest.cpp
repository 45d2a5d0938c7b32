// The clipboard's text form of design rows and object lists: its exact
// layout, round trips of awkward values, and what the reader refuses.
#include "QtPrinters.h"

#include "engine/Exceptions.h"
#include "interchange/ClipObjects.h"
#include "schema/DMBrindle.h"

#include <gtest/gtest.h>

using namespace brindle;

namespace {

// Names and texts that a line-based, quoted form could mangle.
const QString kAwkward = QStringLiteral("it's \"x\"\r\nnext\tline; Größe ☃ 𝄞");

TEST(ClipObjectsTest, FieldsAreWrittenInTheStreamedTextForm) {
    TClipFields clip;
    clip.Items.push_back({QStringLiteral("id"), QStringLiteral("INTEGER"), QStringLiteral("INTEGER"), {}, {},
                          QStringLiteral("True"), QStringLiteral("ABORT"), {}, {}, {}, {}});
    clip.Items.push_back({QStringLiteral("it's"), QStringLiteral("VARCHAR(10)"), QStringLiteral("VARCHAR"),
                          QStringLiteral("10"), {}, QStringLiteral("False"), {}, QStringLiteral("'a'"),
                          QStringLiteral("NOCASE"), {}, {}});
    EXPECT_EQ(ComponentToBytes(clip),
              QByteArray("object TClipFields\r\n"
                         "  Items = <\r\n"
                         "    item\r\n"
                         "      FieldName = 'id'\r\n"
                         "      DeclaredType = 'INTEGER'\r\n"
                         "      FieldType = 'INTEGER'\r\n"
                         "      NotNull = 'True'\r\n"
                         "      NotNullOnConflict = 'ABORT'\r\n"
                         "    end\r\n"
                         "    item\r\n"
                         "      FieldName = 'it''s'\r\n"
                         "      DeclaredType = 'VARCHAR(10)'\r\n"
                         "      FieldType = 'VARCHAR'\r\n"
                         "      Size = '10'\r\n"
                         "      NotNull = 'False'\r\n"
                         "      DefaultValue = '''a'''\r\n"
                         "      Collate = 'NOCASE'\r\n"
                         "    end>\r\n"
                         "end\r\n"));
    TClipFields back;
    ASSERT_TRUE(BytesToComponent(ComponentToBytes(clip), back));
    EXPECT_EQ(back, clip);
}

TEST(ClipObjectsTest, ObjectListsAndTriggersUseStringListsAndBooleans) {
    TClipObjects objects{QStringLiteral("db"), {QStringLiteral("main.t"), QStringLiteral("v")}};
    EXPECT_EQ(ComponentToBytes(objects), QByteArray("object TClipObjects\r\n"
                                                    "  DatabaseAlias = 'db'\r\n"
                                                    "  Items.Strings = (\r\n"
                                                    "    'main.t'\r\n"
                                                    "    'v')\r\n"
                                                    "end\r\n"));
    TClipTriggers triggers;
    triggers.Items.push_back({QStringLiteral("tr"), QStringLiteral("CREATE TRIGGER tr\r\nBEGIN END"), true});
    triggers.Items.push_back({QStringLiteral("plain"), QString(), false});
    EXPECT_EQ(ComponentToBytes(triggers), QByteArray("object TClipTriggers\r\n"
                                                     "  Items = <\r\n"
                                                     "    item\r\n"
                                                     "      TriggerName = 'tr'\r\n"
                                                     "      SQL = 'CREATE TRIGGER tr'#13#10'BEGIN END'\r\n"
                                                     "      IsTemporary = True\r\n"
                                                     "    end\r\n"
                                                     "    item\r\n"
                                                     "      TriggerName = 'plain'\r\n"
                                                     "    end>\r\n"
                                                     "end\r\n"));
    // An empty collection is still written, as "<>".
    EXPECT_EQ(ComponentToBytes(TClipCheckConstraints{}),
              QByteArray("object TClipCheckConstraints\r\n  Items = <>\r\nend\r\n"));
}

TEST(ClipObjectsTest, AwkwardValuesSurviveEveryClass) {
    TClipIndexes indexes;
    indexes.Items.push_back({kAwkward, QStringLiteral("Unique"), QStringLiteral("REPLACE"),
                             {{kAwkward, QStringLiteral("NOCASE"), QStringLiteral("DESC"), QStringLiteral("False")},
                              {QStringLiteral("b"), {}, {}, QStringLiteral("False")}},
                             QStringLiteral("a > 'x'")});
    indexes.Items.push_back({QStringLiteral("pk"), QStringLiteral("Primary"), {}, {}, {}});
    TClipIndexes indexesBack;
    const QByteArray bytes = ComponentToBytes(indexes);
    // Plain ASCII, one value a line, whatever the values hold.
    for (const char c : bytes) EXPECT_TRUE(c > 0 && c < 127) << int(c);
    ASSERT_TRUE(BytesToComponent(bytes, indexesBack));
    EXPECT_EQ(indexesBack, indexes);

    TClipTriggers triggers;
    triggers.Items.push_back({kAwkward, QStringLiteral("CREATE TRIGGER [ä] AFTER INSERT ON t\r\nBEGIN\r\n  "
                                                       "select 'it''s';\r\nEND"),
                              false});
    TClipTriggers triggersBack;
    ASSERT_TRUE(BytesToComponent(ComponentToBytes(triggers), triggersBack));
    EXPECT_EQ(triggersBack, triggers);

    TClipForeignKeys keys;
    keys.Items.push_back({kAwkward, kAwkward, QStringLiteral("[a], [b]"), QStringLiteral("[x], [y]"),
                          QStringLiteral("CASCADE"), QStringLiteral("SET NULL"), QStringLiteral("FULL"),
                          QStringLiteral("DEFERRABLE"), QStringLiteral("INITIALLY DEFERRED")});
    TClipForeignKeys keysBack;
    ASSERT_TRUE(BytesToComponent(ComponentToBytes(keys), keysBack));
    EXPECT_EQ(keysBack, keys);

    TClipUniqueConstraints unique;
    unique.Items.push_back({kAwkward, QStringLiteral("[a]"), QStringLiteral("IGNORE")});
    TClipUniqueConstraints uniqueBack;
    ASSERT_TRUE(BytesToComponent(ComponentToBytes(unique), uniqueBack));
    EXPECT_EQ(uniqueBack, unique);

    TClipCheckConstraints checks;
    checks.Items.push_back({QString(), QStringLiteral("a <> ''\r\n and b")});
    TClipCheckConstraints checksBack;
    ASSERT_TRUE(BytesToComponent(ComponentToBytes(checks), checksBack));
    EXPECT_EQ(checksBack, checks);

    TClipObjects objects{kAwkward, {kAwkward, QStringLiteral("''")}};
    TClipObjects objectsBack;
    ASSERT_TRUE(BytesToComponent(ComponentToBytes(objects), objectsBack));
    EXPECT_EQ(objectsBack, objects);
}

TEST(ClipObjectsTest, ReaderTakesJoinedPiecesRawTextAndOtherNames) {
    const QByteArray text = QStringLiteral("object Clip1: TClipCheckConstraints\n"
                                           "  Items = <\n"
                                           "    item\n"
                                           "      ConstraintName = 'Größe'\n"
                                           "      Expression = 'a > 1 ' +\n"
                                           "        'and b'#10 + 'c'\n"
                                           "      Unknown = 12\n"
                                           "      Flag = False\n"
                                           "    end>\n"
                                           "end")
                                .toUtf8();
    TClipCheckConstraints clip;
    ASSERT_TRUE(BytesToComponent(text, clip));
    ASSERT_EQ(clip.Items.size(), 1u);
    EXPECT_EQ(clip.Items[0].ConstraintName, QStringLiteral("Größe"));
    EXPECT_EQ(clip.Items[0].Expression, QStringLiteral("a > 1 and b\nc"));
}

TEST(ClipObjectsTest, NoBytesOrAnotherClassGiveNothingAndBadTextRaises) {
    TClipFields fields;
    fields.Items.resize(1);
    EXPECT_FALSE(BytesToComponent(QByteArray(), fields));
    EXPECT_EQ(fields.Items.size(), 1u);  // left alone
    EXPECT_FALSE(BytesToComponent(ComponentToBytes(TClipTriggers{}), fields));

    const QByteArray broken[] = {
        "object TClipFields\r\n  Items = <\r\n    item\r\n      FieldName = 'a\r\n    end>\r\nend\r\n",
        "object TClipFields\r\n  Items = <\r\n    item\r\n      FieldName = 'a'\r\n",
        "object TClipFields\r\n  Items = <\r\n  end>\r\nend\r\n",
        "object TClipFields\r\n  Items = \r\nend\r\n",
        "TClipFields\r\nend\r\n",
        "object TClipFields\r\nend\r\nmore",
        "object TClipFields\r\n  Name = #99999\r\nend\r\n",
        "object TClipFields\r\n  object Child: TClipFields\r\n  end\r\nend\r\n",
    };
    for (const QByteArray& text : broken) {
        try {
            BytesToComponent(text, fields);
            ADD_FAILURE() << "accepted: " << text.toStdString();
        } catch (const ECustomException& e) {
            EXPECT_TRUE(e.message().startsWith(QStringLiteral("Invalid clipboard data: line ")))
                << e.message().toStdString();
        }
    }
}

// Design rows go out and come back with every column, Booleans as text.
TEST(ClipObjectsTest, DesignRowsRoundTrip) {
    TDesignField field;
    field.Name = kAwkward;
    field.DeclaredType = QStringLiteral("NUMERIC(10, 2)");
    field.Type = QStringLiteral("NUMERIC");
    field.Size = QStringLiteral("10");
    field.Precision = QStringLiteral("2");
    field.NotNull = true;
    field.NotNullOnConflict = QStringLiteral("FAIL");
    field.DefaultValue = QStringLiteral("'x'");
    field.Collate = QStringLiteral("NOCASE");
    TDesignField generated;
    generated.Name = QStringLiteral("g");
    generated.GeneratedExpression = QStringLiteral("a + 1");
    generated.GeneratedStored = true;
    TClipFields clip = ClipFromFields({field, generated});
    EXPECT_EQ(clip.Items[0].NotNull, QStringLiteral("True"));
    EXPECT_EQ(clip.Items[1].NotNull, QStringLiteral("False"));
    TClipFields back;
    ASSERT_TRUE(BytesToComponent(ComponentToBytes(clip), back));
    const std::vector<TDesignField> fields = FieldsFromClip(back);
    ASSERT_EQ(fields.size(), 2u);
    EXPECT_EQ(fields[0].Name, kAwkward);
    EXPECT_EQ(fields[0].DeclaredType, field.DeclaredType);
    EXPECT_EQ(fields[0].Precision, QStringLiteral("2"));
    EXPECT_TRUE(fields[0].NotNull);
    EXPECT_EQ(fields[0].NotNullOnConflict, QStringLiteral("FAIL"));
    EXPECT_EQ(fields[0].DefaultValue, QStringLiteral("'x'"));
    EXPECT_FALSE(fields[1].NotNull);
    EXPECT_EQ(fields[1].GeneratedExpression, QStringLiteral("a + 1"));
    EXPECT_TRUE(fields[1].GeneratedStored);
    EXPECT_FALSE(fields[1].OldPosition.has_value());

    TDesignIndex index;
    index.Name = QStringLiteral("pk");
    index.Type = QStringLiteral("Primary");
    index.Fields = {{QStringLiteral("id"), QString(), QStringLiteral("ASC"), true}};
    const std::vector<TDesignIndex> indexes = IndexesFromClip(ClipFromIndexes({index}));
    ASSERT_EQ(indexes.size(), 1u);
    ASSERT_EQ(indexes[0].Fields.size(), 1u);
    EXPECT_TRUE(indexes[0].Fields[0].Autoincrement);
    EXPECT_EQ(indexes[0].Fields[0].SortOrder, QStringLiteral("ASC"));

    TDesignTrigger trigger;
    trigger.Name = QStringLiteral("t");
    trigger.SQL = QStringLiteral("CREATE TEMP TRIGGER t ...");
    trigger.IsTemporary = true;
    TClipTriggers triggers;
    ASSERT_TRUE(BytesToComponent(ComponentToBytes(ClipFromTriggers({trigger})), triggers));
    EXPECT_TRUE(TriggersFromClip(triggers).at(0).IsTemporary);

    TDesignForeignKey key;
    key.ParentTable = QStringLiteral("p");
    key.ChildKey = QStringLiteral("[a]");
    key.Match = QStringLiteral("FULL");
    EXPECT_EQ(ForeignKeysFromClip(ClipFromForeignKeys({key})).at(0).Match, QStringLiteral("FULL"));
}

}  // namespace
