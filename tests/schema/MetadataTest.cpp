// The metadata tree against what the engine itself reports: every table,
// column, index, index column, foreign key, trigger and view of a rich
// schema (main, temp and an attached database) and of the demo database;
// what only the stored text tells; refresh after another connection's
// change; failures; record counts.
#include "TempDir.h"

#include "engine/DLQuoteTools.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "schema/DLSQLiteMetadata.h"
#include "schema/DLSQLiteParser.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QSet>
#include <QThread>
#include <gtest/gtest.h>
#include <cstring>

using namespace brindle;
using namespace brindle::test;

namespace {

const char* const kRichSchema = R"(
CREATE TABLE parent (
  a INTEGER NOT NULL,
  b TEXT COLLATE NOCASE,
  note TEXT DEFAULT 'x',
  CONSTRAINT parent_pk PRIMARY KEY (a DESC, b) ON CONFLICT ROLLBACK
);
CREATE TABLE kv (k TEXT PRIMARY KEY, v BLOB NOT NULL ON CONFLICT FAIL) WITHOUT ROWID;
CREATE TABLE log (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  at TEXT DEFAULT CURRENT_TIMESTAMP,
  msg TEXT CONSTRAINT msg_nn NOT NULL,
  CONSTRAINT msg_len CHECK (length(msg) < 200)
);
CREATE TABLE child (
  id INTEGER PRIMARY KEY,
  pa INTEGER,
  pb TEXT,
  code TEXT CONSTRAINT code_uq UNIQUE ON CONFLICT IGNORE,
  self_id INTEGER REFERENCES child (id) ON DELETE SET NULL,
  amount NUMERIC(10, 2) CHECK (amount >= 0),
  total REAL GENERATED ALWAYS AS (amount * 2) VIRTUAL,
  CONSTRAINT child_parent FOREIGN KEY (pa, pb) REFERENCES parent (a, b)
    ON DELETE CASCADE ON UPDATE RESTRICT DEFERRABLE INITIALLY DEFERRED,
  UNIQUE (pa, pb)
);
CREATE TABLE "odd name" ("a col" INTEGER, [b-col] TEXT, kv_k TEXT REFERENCES kv MATCH FULL);
CREATE TABLE cyc_a (id INTEGER PRIMARY KEY, b_id INTEGER REFERENCES cyc_b (id));
CREATE TABLE cyc_b (id INTEGER PRIMARY KEY, a_id INTEGER REFERENCES cyc_a (id));
CREATE INDEX child_amount ON child (amount DESC, code COLLATE NOCASE ASC);
CREATE INDEX child_partial ON child (pa) WHERE pa IS NOT NULL;
CREATE INDEX child_expr ON child (lower(code), pa + 1 DESC);
CREATE UNIQUE INDEX "odd idx" ON "odd name" ("a col");
CREATE VIEW v_child AS SELECT c.id, c.code, p.note FROM child c JOIN parent p ON p.a = c.pa;
CREATE VIEW v_top AS SELECT id, code FROM v_child WHERE id < 10;
CREATE VIEW v_cyc AS SELECT id FROM cyc_a;
CREATE TRIGGER child_ins AFTER INSERT ON child BEGIN INSERT INTO log (msg) VALUES ('child ' || new.id); END;
CREATE TRIGGER child_upd BEFORE UPDATE OF code ON child WHEN new.code IS NULL
BEGIN SELECT RAISE(ABORT, 'no code'); END;
CREATE TRIGGER v_top_ins INSTEAD OF INSERT ON v_top BEGIN INSERT INTO child (id, code) VALUES (new.id, new.code); END;
CREATE VIRTUAL TABLE docs3 USING fts3 (body);
CREATE TABLE docs3_stat (x);
CREATE VIRTUAL TABLE docs4 USING fts4 (title, body);
CREATE VIRTUAL TABLE boxes USING rtree (id, x0, x1, y0, y1);
CREATE VIRTUAL TABLE docs5 USING fts5 (body);
INSERT INTO parent (a, b) VALUES (1, 'one'), (2, 'two');
INSERT INTO child (id, pa, pb, code, amount) VALUES (1, 1, 'one', 'c1', 5), (2, 2, 'two', 'c2', 7);
INSERT INTO docs4 (title, body) VALUES ('a', 'b');
)";

const char* const kAttachedAndTemp = R"(
CREATE TABLE aux.things (id INTEGER PRIMARY KEY, name TEXT NOT NULL, parent INTEGER REFERENCES things (id));
CREATE INDEX aux.things_name ON things (name);
CREATE TRIGGER aux.things_trg AFTER DELETE ON things BEGIN DELETE FROM things WHERE parent = old.id; END;
CREATE TABLE aux.log (x);
CREATE VIEW aux.aux_v AS SELECT name FROM things;
CREATE TEMP TABLE scratch (id INTEGER PRIMARY KEY, v TEXT UNIQUE);
CREATE INDEX temp.scratch_v ON scratch (v DESC);
CREATE TEMP TRIGGER scratch_trg AFTER INSERT ON scratch BEGIN SELECT 1; END;
CREATE TEMP TRIGGER log_watch AFTER INSERT ON main.log BEGIN SELECT 1; END;
CREATE TEMP VIEW tv AS SELECT s.id, t.name FROM scratch s JOIN aux.things t ON t.id = s.id;
)";

class Metadata : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB)); }

    std::unique_ptr<TDLSQLiteDatabase> Open(const QString& file) {
        auto db = std::make_unique<TDLSQLiteDatabase>();
        db->FShowWaitCursor = false;
        db->SetFileName(file);
        db->SetConnected(true);
        return db;
    }

    // The rich schema in main, an attached database and temp.
    std::unique_ptr<TDLSQLiteDatabase> Rich() {
        auto db = std::make_unique<TDLSQLiteDatabase>();
        db->FShowWaitCursor = false;
        db->SetFileName(dir.file(QStringLiteral("rich.db")));
        db->CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
        db->Execute(QString::fromUtf8(kRichSchema));
        db->Attach(dir.file(QStringLiteral("aux.db")), QStringLiteral("aux"));
        db->Execute(QString::fromUtf8(kAttachedAndTemp));
        return db;
    }

    TempDir dir;
};

QString Lower(const QString& s) {
    return s.toLower();
}

// A set as sorted lines, so that a failure shows what differs.
std::string Lines(const QSet<QString>& set) {
    QStringList list(set.begin(), set.end());
    list.sort();
    return list.join(u'\n').toStdString();
}

// Rows of a statement, each as its columns' text.
std::vector<QStringList> Rows(TDLSQLiteDatabase& db, const QString& sql) {
    IRecordSetPtr rs = db.GetRecordSet(sql);
    std::vector<QStringList> rows;
    for (int r = 0; r < rs->GetRecordCount(); ++r) {
        QStringList row;
        for (int c = 0; c < rs->GetNames().size(); ++c) row << rs->GetValue(r, c);
        rows.push_back(row);
    }
    return rows;
}

QString Quoted(const QString& name) {
    return u'"' + QString(name).replace(u'"', QStringLiteral("\"\"")) + u'"';
}

QString Master(const QString& db) {
    return db == u"temp" ? QStringLiteral("sqlite_temp_master")
                         : Quoted(db) + QStringLiteral(".sqlite_master");
}

// Everything the pragmas say of the connection's tables, views, columns,
// indexes, index columns, foreign keys and triggers, held against the tree.
void ExpectAgreesWithPragmas(TDLSQLiteDatabase& db, const TDLSQLiteMetadata& md) {
    QSet<QString> expectedTables, expectedViews, seenTables, seenViews;
    for (const QStringList& d : Rows(db, QStringLiteral("pragma database_list"))) {
        const QString schema = d[1];
        for (const QStringList& o :
             Rows(db, QStringLiteral("select type, name, sql from %1 where type in ('table', "
                                     "'view') and name not like 'sqlite\\_%' escape '\\'")
                          .arg(Master(schema)))) {
            const QString qualified = QuoteObjectIfNeeded(schema, o[1]);
            (o[0] == u"table" ? expectedTables : expectedViews) << qualified;
            const TMetadataBaseItem* item =
                o[0] == u"table" ? static_cast<const TMetadataBaseItem*>(md.FindTable(qualified))
                                 : md.FindView(qualified);
            ASSERT_TRUE(item) << qualified.toStdString();
            EXPECT_EQ(item->GetName(), qualified);
        }
        // The engine's own word on virtual, shadow and rowid-less tables.
        for (const QStringList& t :
             Rows(db, QStringLiteral("select name, type, wr from pragma_table_list where "
                                     "schema = %1 and name not like 'sqlite\\_%' escape '\\'")
                          .arg(QuotedStr(schema)))) {
            const TSQLiteTableInfo* table = md.FindSQLiteTable(QuoteObjectIfNeeded(schema, t[0]));
            if (t[1] == u"view") continue;
            ASSERT_TRUE(table) << t[0].toStdString();
            EXPECT_EQ(table->FIsVirtual, t[1] == u"virtual") << t[0].toStdString();
            // The engine counts "_stat" and "_docsize" beside an fts3 table
            // as its own, though fts3 makes neither; the tree leaves such a
            // table to the user.
            bool userTable = false;
            for (const char* suffix : {"_stat", "_docsize"}) {
                const QString stem = t[0].left(t[0].size() - int(strlen(suffix)));
                const TSQLiteTableInfo* owner = t[0].endsWith(QLatin1String(suffix))
                                                    ? md.FindSQLiteTable(QuoteObjectIfNeeded(schema, stem))
                                                    : nullptr;
                userTable = userTable || (owner && owner->FModuleName.compare(QLatin1String("fts3"),
                                                                              Qt::CaseInsensitive) == 0);
            }
            EXPECT_EQ(table->FIsShadow, t[1] == u"shadow" && !userTable) << t[0].toStdString();
            EXPECT_EQ(table->FIsWithoutRowID, t[2] == u"1") << t[0].toStdString();
        }
    }
    for (int i = 0; i < md.TableCount(); ++i) seenTables << md.Tables(i).GetName();
    for (int i = 0; i < md.ViewCount(); ++i) seenViews << md.Views(i).GetName();
    EXPECT_EQ(Lines(seenTables), Lines(expectedTables));
    EXPECT_EQ(Lines(seenViews), Lines(expectedViews));

    for (int i = 0; i < md.TableCount(); ++i) {
        const TSQLiteTableInfo& t = md.SQLiteTables(i);
        SCOPED_TRACE(t.FTableName.toStdString());
        QString schema, name;
        SplitObjectName(t.FTableName, schema, name);
        const QString prefix = Quoted(schema) + u'.';
        EXPECT_EQ(t.FSQL, Rows(db, QStringLiteral("select sql from %1 where name = %2")
                                       .arg(Master(schema), QuotedStr(name)))[0][0]);

        // Columns, generated ones in their place; a virtual table's hidden
        // columns are no columns of the tree.
        std::vector<QStringList> columns;
        for (const QStringList& c :
             Rows(db, QStringLiteral("pragma %1table_xinfo(%2)").arg(prefix, Quoted(name))))
            if (c[6] != u"1") columns.push_back(c);
        ASSERT_EQ(t.FieldCount(), static_cast<int>(columns.size()));
        for (int k = 0; k < t.FieldCount(); ++k) {
            const TSQLiteFieldInfo& f = t.Field(k);
            const QStringList& c = columns[static_cast<size_t>(k)];
            EXPECT_EQ(f.FFieldName, c[1]);
            EXPECT_EQ(f.FFullSQLType, c[2]);
            EXPECT_EQ(f.FDefaultValue, c[4]) << f.FFieldName.toStdString();
            EXPECT_EQ(f.FPrimaryKey, c[5].toInt()) << f.FFieldName.toStdString();
            EXPECT_EQ(f.FGenerated, c[6] == u"2" || c[6] == u"3");
            // The text decides; only a key without rowid is not null
            // without saying so.
            if (!(t.FIsWithoutRowID && f.FPrimaryKey > 0)) {
                EXPECT_EQ(f.FNotNull, c[3] == u"1") << f.FFieldName.toStdString();
            }
        }

        // Indexes: every one the engine lists, and the key.
        QSet<QString> listed, held;
        bool keyIndexListed = false;
        for (const QStringList& ix :
             Rows(db, QStringLiteral("pragma %1index_list(%2)").arg(prefix, Quoted(name)))) {
            listed << ix[1];
            const TSQLiteIndexInfo* index = static_cast<const TSQLiteIndexInfo*>(t.FindIndex(ix[1]));
            ASSERT_TRUE(index) << ix[1].toStdString();
            EXPECT_EQ(bool(index->FOptions & ixUnique), ix[2] == u"1");
            EXPECT_EQ(bool(index->FOptions & ixPrimary), ix[3] == u"pk");
            EXPECT_EQ(!index->FWhereClause.isEmpty(), ix[4] == u"1");
            keyIndexListed = keyIndexListed || ix[3] == u"pk";
            std::vector<QStringList> keyColumns;
            for (const QStringList& c :
                 Rows(db, QStringLiteral("pragma %1index_xinfo(%2)").arg(prefix, Quoted(ix[1]))))
                if (c[5] == u"1") keyColumns.push_back(c);
            ASSERT_EQ(index->IndexFieldCount(), static_cast<int>(keyColumns.size())) << ix[1].toStdString();
            for (int k = 0; k < index->IndexFieldCount(); ++k) {
                const TSQLiteIndexFieldInfo& f = index->Field(k);
                const QStringList& c = keyColumns[static_cast<size_t>(k)];
                SCOPED_TRACE(ix[1].toStdString() + " column " + std::to_string(k));
                EXPECT_EQ(f.FFieldName, c[2]);
                EXPECT_EQ(f.FFieldName.isEmpty(), !f.FExpression.isEmpty());
                EXPECT_EQ(f.FSortOrder.compare(QLatin1String("DESC"), Qt::CaseInsensitive) == 0,
                          c[3] == u"1");
                QString collation = f.FCollate;
                if (collation.isEmpty() && !f.FFieldName.isEmpty())
                    collation = static_cast<TSQLiteFieldInfo*>(t.FindField(f.FFieldName))->FCollate;
                if (collation.isEmpty()) collation = QStringLiteral("BINARY");
                EXPECT_EQ(Lower(collation), Lower(c[4]));
            }
        }
        for (int k = 0; k < t.IndexCount(); ++k)
            if (!t.Indexes(k).FIndexName.isEmpty()) held << t.Indexes(k).FIndexName;
        EXPECT_EQ(Lines(held), Lines(listed));
        bool hasKey = false;
        for (int k = 0; k < t.FieldCount(); ++k) hasKey = hasKey || t.Field(k).FPrimaryKey > 0;
        ASSERT_EQ(t.PrimaryKey() != nullptr, hasKey);
        if (hasKey && !keyIndexListed) {
            // The rowid is the key: its columns are those the pragma numbers.
            const TBaseIndexInfo& key = *t.PrimaryKey();
            EXPECT_TRUE(key.FIndexName.isEmpty());
            for (int k = 0; k < key.IndexFieldCount(); ++k)
                EXPECT_EQ(
                    static_cast<TSQLiteFieldInfo*>(t.FindField(key.IndexFields(k).FFieldName))->FPrimaryKey,
                    k + 1);
        }

        // Foreign keys, as sets: the pragma numbers them backwards.
        QMap<int, QStringList> groups;
        for (const QStringList& fk :
             Rows(db, QStringLiteral("pragma %1foreign_key_list(%2)").arg(prefix, Quoted(name)))) {
            QStringList& g = groups[fk[0].toInt()];
            // The engine reads MATCH and ignores it: the text's word is
            // checked with the other texts.
            if (g.isEmpty()) g = QStringList{Lower(fk[2]), QString(), QString(), fk[5], fk[6]};
            g[1] += fk[3] + u',';
            g[2] += fk[4] + u',';
        }
        QSet<QString> engineKeys, treeKeys;
        for (const QStringList& g : groups) engineKeys << g.join(u'|');
        for (int k = 0; k < t.ForeignKeyCount(); ++k) {
            const TBaseForeignKeyInfo& fk = t.ForeignKeys(k);
            EXPECT_EQ(fk.FChildTableName, t.FTableName);
            QString parentKey;
            for (const QString& p : fk.FParentKey) parentKey += p + u',';
            if (fk.FParentKey.isEmpty()) parentKey = QString(fk.FChildKey.size(), u',');
            auto word = [](const QString& w, const char* absent) {
                return w.isEmpty() ? QString::fromLatin1(absent) : w.toUpper();
            };
            treeKeys << QStringList{Lower(fk.FParentTableName), fk.FChildKey.join(u',') + u',', parentKey,
                                    word(fk.FOnUpdateAction, "NO ACTION"),
                                    word(fk.FOnDeleteAction, "NO ACTION")}
                            .join(u'|');
        }
        EXPECT_EQ(Lines(treeKeys), Lines(engineKeys));

        // Triggers kept in the table's own database.
        QSet<QString> stored, kept;
        for (const QStringList& tr :
             Rows(db, QStringLiteral("select name, sql from %1 where type = 'trigger' and "
                                     "tbl_name = %2 collate nocase")
                          .arg(Master(schema), QuotedStr(name))))
            stored << tr[0] + u'\n' + tr[1];
        for (int k = 0; k < t.TriggerCount(); ++k)
            if (t.Triggers(k).FIsTemporary == (schema == u"temp"))
                kept << t.Triggers(k).FTriggerName + u'\n' + t.Triggers(k).FSQL;
        EXPECT_EQ(Lines(kept), Lines(stored));
    }

    for (int i = 0; i < md.ViewCount(); ++i) {
        const TBaseViewInfo& v = md.Views(i);
        QString schema, name;
        SplitObjectName(v.FViewName, schema, name);
        QStringList columns;
        for (const QStringList& c :
             Rows(db, QStringLiteral("pragma %1.table_info(%2)").arg(Quoted(schema), Quoted(name))))
            columns << c[1];
        QStringList held;
        for (int k = 0; k < v.FieldCount(); ++k) held << v.Fields(k).FFieldName;
        EXPECT_EQ(held.join(u',').toStdString(), columns.join(u',').toStdString())
            << v.FViewName.toStdString();
    }
}

}  // namespace

TEST_F(Metadata, RichSchemaAgreesWithTheEnginesPragmas) {
    auto db = Rich();
    TDLSQLiteMetadata md(db.get());
    md.Refresh();
    ExpectAgreesWithPragmas(*db, md);
    // Attached databases keep their own objects apart.
    ASSERT_TRUE(md.FindTable(QStringLiteral("aux.log")));
    EXPECT_NE(md.FindTable(QStringLiteral("aux.log")), md.FindTable(QStringLiteral("main.log")));
}

TEST_F(Metadata, DemoDatabaseAgreesWithTheEnginesPragmas) {
    auto db = Open(QStringLiteral(DEMO_DB));
    TDLSQLiteMetadata md(db.get());
    md.Refresh();
    ExpectAgreesWithPragmas(*db, md);
    EXPECT_EQ(md.TableCount(), 23);  // 13 tables, 2 virtual ones and their 8 shadow tables
    EXPECT_EQ(md.ViewCount(), 8);
}

TEST_F(Metadata, WhatOnlyTheStoredTextTells) {
    auto db = Rich();
    TDLSQLiteMetadata md(db.get());
    md.Refresh();

    const TSQLiteTableInfo& parent = *md.FindSQLiteTable(QStringLiteral("parent"));
    const auto& key = static_cast<const TSQLiteIndexInfo&>(*parent.PrimaryKey());
    EXPECT_EQ(key.FConflictClause, QStringLiteral("ROLLBACK"));
    EXPECT_EQ(key.Field(0).FSortOrder, QStringLiteral("DESC"));
    EXPECT_EQ(static_cast<TSQLiteFieldInfo*>(parent.FindField(QStringLiteral("b")))->FCollate,
              QStringLiteral("NOCASE"));

    const TSQLiteTableInfo& log = *md.FindSQLiteTable(QStringLiteral("log"));
    ASSERT_TRUE(log.PrimaryKey());
    EXPECT_TRUE(static_cast<const TSQLiteIndexInfo*>(log.PrimaryKey())->Field(0).FAutoincrement);
    EXPECT_TRUE(log.FindField(QStringLiteral("msg"))->FNotNull);
    ASSERT_EQ(log.CheckConstraintCount(), 1);
    EXPECT_EQ(log.CheckConstraints(0).FConstraintName, QStringLiteral("msg_len"));
    EXPECT_EQ(log.CheckConstraints(0).FExpression, QStringLiteral("length(msg) < 200"));
    // A temporary trigger hangs on the table of the database it names.
    ASSERT_EQ(log.TriggerCount(), 1);
    EXPECT_EQ(log.Triggers(0).FTriggerName, QStringLiteral("log_watch"));
    EXPECT_TRUE(log.Triggers(0).FIsTemporary);
    EXPECT_EQ(md.FindTable(QStringLiteral("aux.log"))->TriggerCount(), 0);

    const TSQLiteTableInfo& child = *md.FindSQLiteTable(QStringLiteral("CHILD"));
    EXPECT_EQ(&child, md.FindSQLiteTable(QStringLiteral("[main].[child]")));
    ASSERT_EQ(child.UniqueConstraintCount(), 2);
    EXPECT_EQ(child.UniqueConstraints(0).FConstraintName, QStringLiteral("code_uq"));
    EXPECT_EQ(child.UniqueConstraints(0).FConflictClause, QStringLiteral("IGNORE"));
    const TSQLiteFieldInfo& amount =
        *static_cast<TSQLiteFieldInfo*>(child.FindField(QStringLiteral("amount")));
    EXPECT_EQ(amount.FSize, QStringLiteral("10"));
    EXPECT_EQ(amount.FPrecision, QStringLiteral("2"));
    const TBaseForeignKeyInfo* named = nullptr;
    for (int i = 0; i < child.ForeignKeyCount(); ++i)
        if (child.ForeignKeys(i).FConstraintName == u"child_parent") named = &child.ForeignKeys(i);
    ASSERT_TRUE(named);
    EXPECT_EQ(named->FDeferrable, QStringLiteral("DEFERRABLE"));
    EXPECT_EQ(named->FInitially, QStringLiteral("INITIALLY DEFERRED"));
    const auto& partial =
        static_cast<const TSQLiteIndexInfo&>(*child.FindIndex(QStringLiteral("child_partial")));
    EXPECT_EQ(partial.FWhereClause, QStringLiteral("pa IS NOT NULL"));
    const auto& expr = static_cast<const TSQLiteIndexInfo&>(*child.FindIndex(QStringLiteral("child_expr")));
    EXPECT_TRUE(expr.FOptions & ixExpression);
    EXPECT_EQ(expr.Field(0).FExpression, QStringLiteral("lower(code)"));
    EXPECT_EQ(expr.Field(1).FExpression, QStringLiteral("pa + 1"));
    EXPECT_EQ(expr.Field(1).FSortOrder, QStringLiteral("DESC"));
    EXPECT_EQ(md.FindSQLiteTable(QStringLiteral("kv"))->Field(1).FNotNullConflictClause,
              QStringLiteral("FAIL"));
    EXPECT_EQ(md.FindTable(QStringLiteral("\"odd name\""))->ForeignKeys(0).FMatchName,
              QStringLiteral("FULL"));

    const TSQLiteTableInfo& docs4 = *md.FindSQLiteTable(QStringLiteral("docs4"));
    EXPECT_EQ(docs4.FModuleName, QStringLiteral("fts4"));
    EXPECT_EQ(docs4.FModuleArguments, QStringLiteral("title, body"));
    EXPECT_EQ(GetNodeType(&docs4), ntVirtualTable);
    EXPECT_EQ(GetNodeType(md.FindTable(QStringLiteral("docs4_docsize"))), ntShadowTable);
    // An fts3 table has no _stat of its own: that one is the user's.
    EXPECT_EQ(GetNodeType(md.FindTable(QStringLiteral("docs3_stat"))), ntTable);
    EXPECT_EQ(GetNodeType(md.FindView(QStringLiteral("v_top"))), ntView);
    EXPECT_EQ(md.FindView(QStringLiteral("v_top"))->TriggerCount(), 1);
}

// An index column's collation and order are the engine's, spelt as written
// where the text says the same; a key's order only where it has an index.
TEST_F(Metadata, IndexColumnsAsTheEngineKeepsThem) {
    auto db = Open(QStringLiteral(":memory:"));
    db->Execute(
        QStringLiteral("CREATE TABLE plan (key TEXT COLLATE NOCASE, total INT, row INT);"
                       "CREATE INDEX plan_ix ON plan (key, total COLLATE RTRIM DESC, (row) COLLATE nocase "
                       "desc, key COLLATE NOCASE);"
                       "CREATE TABLE rowid_key (id INTEGER, PRIMARY KEY (id DESC));"
                       "CREATE TABLE own_key (id INTEGER PRIMARY KEY DESC);"));
    TDLSQLiteMetadata md(db.get());
    md.Refresh();
    const auto& ix = static_cast<const TSQLiteIndexInfo&>(
        *md.FindTable(QStringLiteral("plan"))->FindIndex(QStringLiteral("plan_ix")));
    QStringList columns;
    for (int i = 0; i < ix.IndexFieldCount(); ++i)
        columns << ix.Field(i).FFieldName + u'/' + ix.Field(i).FCollate + u'/' + ix.Field(i).FSortOrder;
    EXPECT_EQ(columns.join(u' ').toStdString(), "key// total/RTRIM/DESC row/nocase/desc key/NOCASE/");

    const auto* rowid =
        static_cast<const TSQLiteIndexInfo*>(md.FindTable(QStringLiteral("rowid_key"))->PrimaryKey());
    ASSERT_TRUE(rowid);
    EXPECT_TRUE(rowid->FIndexName.isEmpty());
    EXPECT_TRUE(rowid->Field(0).FSortOrder.isEmpty());
    const auto* own =
        static_cast<const TSQLiteIndexInfo*>(md.FindTable(QStringLiteral("own_key"))->PrimaryKey());
    ASSERT_TRUE(own);
    EXPECT_FALSE(own->FIndexName.isEmpty());
    EXPECT_EQ(own->Field(0).FSortOrder, QStringLiteral("DESC"));
}

TEST_F(Metadata, DependenciesAndReferences) {
    auto db = Rich();
    TDLSQLiteMetadata md(db.get());
    md.Refresh();
    TBaseTableInfo* parent = md.FindTable(QStringLiteral("parent"));
    TBaseTableInfo* child = md.FindTable(QStringLiteral("child"));
    TBaseViewInfo* vChild = md.FindView(QStringLiteral("v_child"));
    TBaseViewInfo* vTop = md.FindView(QStringLiteral("v_top"));
    EXPECT_EQ(QSet<TMetadataBaseItem*>(child->FReferences.begin(), child->FReferences.end()),
              (QSet<TMetadataBaseItem*>{parent, child}));
    EXPECT_EQ(vTop->FReferences, std::vector<TMetadataBaseItem*>{vChild});
    EXPECT_EQ(QSet<TMetadataBaseItem*>(vChild->FReferences.begin(), vChild->FReferences.end()),
              (QSet<TMetadataBaseItem*>{child, parent}));
    // A temporary view sees every database.
    TBaseViewInfo* tv = md.FindView(QStringLiteral("tv"));
    EXPECT_EQ(QSet<TMetadataBaseItem*>(tv->FReferences.begin(), tv->FReferences.end()),
              (QSet<TMetadataBaseItem*>{md.FindTable(QStringLiteral("temp.scratch")),
                                        md.FindTable(QStringLiteral("aux.things"))}));

    // Who refers to a table: not the table itself, and through a named column.
    std::vector<TBaseForeignKeyInfo*> list;
    md.GetReferences(*parent, QString(), list);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0]->FChildTableName, QStringLiteral("main.child"));
    EXPECT_EQ(md.GetReferenceCount(QStringLiteral("parent"), QStringLiteral("B")), 1);
    EXPECT_EQ(md.GetReferenceCount(QStringLiteral("parent"), QStringLiteral("note")), 0);
    EXPECT_EQ(md.GetReferenceCount(QStringLiteral("child"), QString()), 0);
    EXPECT_EQ(md.GetReferenceCount(QStringLiteral("aux.things"), QString()), 0);

    std::vector<TMetadataBaseItem*> objects{vTop, vChild, child, parent};
    ASSERT_TRUE(SortByDependencies(objects));
    EXPECT_EQ(objects, (std::vector<TMetadataBaseItem*>{parent, child, vChild, vTop}));
    std::vector<TMetadataBaseItem*> cycle{md.FindTable(QStringLiteral("cyc_a")),
                                          md.FindTable(QStringLiteral("cyc_b"))};
    EXPECT_FALSE(SortByDependencies(cycle));
}

TEST_F(Metadata, RefreshSeesAnotherConnectionsChangeAndKeepsWhatStayed) {
    auto db = Rich();
    TDLSQLiteMetadata md(db.get());
    md.Refresh();
    TBaseTableInfo* parent = md.FindTable(QStringLiteral("parent"));
    TBaseTableInfo* child = md.FindTable(QStringLiteral("child"));
    TBaseFieldInfo* code = child->FindField(QStringLiteral("code"));
    TBaseIndexInfo* partial = child->FindIndex(QStringLiteral("child_partial"));
    TBaseTableInfo* cycA = md.FindTable(QStringLiteral("cyc_a"));
    {
        auto other = Open(db->FileName());
        other->Execute(QStringLiteral(
            "alter table parent add column extra integer default 7;"
            "create table fresh (id integer primary key, parent_a integer references parent (a));"
            "drop view v_top;"
            "drop index child_partial; create index child_partial on child (pb) where pb is not null;"
            "alter table cyc_a rename to cyc_x; alter table cyc_x rename to CYC_A;"));
    }
    // The tables alone: a view keeps no link to a table that went.
    md.RefreshTables();
    TBaseViewInfo* vCyc = md.FindView(QStringLiteral("v_cyc"));
    EXPECT_EQ(std::count(vCyc->FReferences.begin(), vCyc->FReferences.end(), cycA), 0);
    md.Refresh();
    EXPECT_EQ(vCyc->FReferences, std::vector<TMetadataBaseItem*>{md.FindTable(QStringLiteral("CYC_A"))});
    EXPECT_EQ(md.FindTable(QStringLiteral("parent")), parent);
    ASSERT_TRUE(parent->FindField(QStringLiteral("extra")));
    EXPECT_EQ(parent->FindField(QStringLiteral("extra"))->FDefaultValue, QStringLiteral("7"));
    EXPECT_EQ(md.FindTable(QStringLiteral("child")), child);
    EXPECT_EQ(child->FindField(QStringLiteral("code")), code);
    // An index of the same name with another text is read anew.
    EXPECT_EQ(child->FindIndex(QStringLiteral("child_partial")), partial);
    EXPECT_EQ(static_cast<TSQLiteIndexInfo*>(partial)->FWhereClause, QStringLiteral("pb is not null"));
    EXPECT_EQ(partial->IndexFields(0).FFieldName, QStringLiteral("pb"));
    EXPECT_FALSE(md.FindView(QStringLiteral("v_top")));
    ASSERT_TRUE(md.FindTable(QStringLiteral("fresh")));
    EXPECT_EQ(md.GetReferenceCount(QStringLiteral("parent"), QString()), 2);
    // A rename in case only is another table to the tree.
    ASSERT_TRUE(md.FindTable(QStringLiteral("main.CYC_A")));
    EXPECT_EQ(md.FindTable(QStringLiteral("main.CYC_A"))->GetName(), QStringLiteral("main.CYC_A"));
    EXPECT_NE(md.FindTable(QStringLiteral("main.CYC_A")), cycA);
    ExpectAgreesWithPragmas(*db, md);

    EXPECT_FALSE(md.FindTable(QStringLiteral("sqlite_sequence")));
    md.FIncludeSystemTables = true;
    md.Refresh();
    ASSERT_TRUE(md.FindTable(QStringLiteral("sqlite_sequence")));
    EXPECT_EQ(md.FindTable(QStringLiteral("sqlite_sequence"))->FieldCount(), 2);
}

TEST_F(Metadata, OneUnreadableObjectDoesNotStopTheRest) {
    {
        auto db = Rich();
        db->Execute(QStringLiteral("pragma writable_schema = on"));
        db->Execute(
            QStringLiteral("insert into sqlite_master values ('table', 'ghost', 'ghost', 0, "
                           "'CREATE VIRTUAL TABLE ghost USING nosuchmodule (x)')"));
    }
    auto db = Open(dir.file(QStringLiteral("rich.db")));
    db->Execute(QStringLiteral(
        "create table gone (b); create view over_gone as select b from gone; drop table gone"));
    TDLSQLiteMetadata md(db.get());
    // What failed is told, and kept with the metadata; the refresh itself
    // goes through.
    ASSERT_NO_THROW(md.Refresh());
    const QString errors = md.RefreshErrors();
    EXPECT_TRUE(errors.startsWith(
        QStringLiteral("The following errors were encountered while refreshing schema: \r\n\r\n"
                       "Error refreshing schema for table \"main.ghost\": ")))
        << errors.toStdString();
    EXPECT_TRUE(errors.contains(QStringLiteral("nosuchmodule")));
    EXPECT_TRUE(
        errors.contains(QStringLiteral("Error refreshing schema for view \"main.over_gone\": no such table")))
        << errors.toStdString();
    EXPECT_EQ(md.FindTable(QStringLiteral("parent"))->FieldCount(), 3);
    EXPECT_EQ(md.FindView(QStringLiteral("v_child"))->FieldCount(), 3);
    ASSERT_TRUE(md.FindTable(QStringLiteral("ghost")));
    ASSERT_TRUE(md.FindView(QStringLiteral("over_gone")));
    md.UpdateRecordCount(*md.FindTable(QStringLiteral("ghost")));
    EXPECT_FALSE(md.FindTable(QStringLiteral("ghost"))->FRecordCount);

    // Mended, the next refresh forgets the errors.
    db->Execute(
        QStringLiteral("drop view over_gone; pragma writable_schema = on; "
                       "delete from sqlite_master where name = 'ghost'"));
    db->SetConnected(false);
    db->SetConnected(true);
    md.Refresh();
    EXPECT_TRUE(md.RefreshErrors().isEmpty()) << md.RefreshErrors().toStdString();
    EXPECT_FALSE(md.FindView(QStringLiteral("over_gone")));

    // A catalogue that cannot be read at all still raises, and says so too.
    db->SetConnected(false);
    EXPECT_THROW(md.Refresh(), ECustomException);
    EXPECT_FALSE(md.RefreshErrors().isEmpty());
}

TEST_F(Metadata, RecordCountsArriveThroughTheCounter) {
    auto db = Rich();
    TDLSQLiteMetadata md(db.get());
    md.Refresh();
    md.UpdateRecordCounts();
    EXPECT_EQ(md.FindTable(QStringLiteral("child"))->FRecordCount, std::optional<qint64>(2));
    EXPECT_EQ(md.FindView(QStringLiteral("v_child"))->FRecordCount, std::optional<qint64>(2));
    EXPECT_EQ(md.RecordCountUpdates(), 0);

    // A counter that answers later, as a queue does.
    std::vector<std::pair<QString, TRecordCountDone>> pending;
    auto later = std::make_unique<TDLSQLiteMetadata>(db.get());
    later->SetRecordCounter(
        [&pending](const QString& name, const TRecordCountDone& done) { pending.emplace_back(name, done); });
    later->Refresh();
    QStringList arrived;
    later->FOnRecordCount = [&arrived](TMetadataBaseItem& item) { arrived << item.GetName(); };
    later->UpdateRecordCount(*later->FindTable(QStringLiteral("parent")));
    later->UpdateRecordCount(*later->FindTable(QStringLiteral("cyc_b")));
    EXPECT_EQ(later->RecordCountUpdates(), 2);
    EXPECT_FALSE(later->FindTable(QStringLiteral("parent"))->FRecordCount);
    db->Execute(QStringLiteral("drop table cyc_b"));
    later->Refresh();
    pending[0].second(42);
    pending[1].second(9);  // the table is gone: nothing to set
    EXPECT_EQ(later->FindTable(QStringLiteral("parent"))->FRecordCount, std::optional<qint64>(42));
    EXPECT_EQ(arrived, QStringList{QStringLiteral("main.parent")});
    EXPECT_EQ(later->RecordCountUpdates(), 0);

    later->UpdateRecordCount(*later->FindTable(QStringLiteral("parent")));
    later.reset();
    pending.back().second(1);  // the metadata is gone: dropped
}

TEST_F(Metadata, CountsThroughTheQueueNeverWaitForTheMainConnection) {
    static int argc = 1;
    static char name[] = "brindle_schema_tests";
    static char* argv[] = {name, nullptr};
    if (!QCoreApplication::instance()) new QCoreApplication(argc, argv);  // lives to the end of the run
    for (const char* journal : {"delete", "wal"}) {
        SCOPED_TRACE(journal);
        auto db = Rich();
        db->Execute(QStringLiteral("pragma journal_mode = %1").arg(QLatin1String(journal)));
        db->Execute(QStringLiteral("create table big(x); insert into big values (1), (2), (3)"));
        TDLSQLiteMetadata md(db.get());
        md.SetRecordCounter(QueryQueueRecordCounter(*db));
        md.Refresh();
        // The main connection writes and holds its transaction meanwhile.
        db->BeginTransaction();
        db->Execute(QStringLiteral("insert into big values (4); delete from child"));
        QThread* countedOn = nullptr;
        md.FOnRecordCount = [&countedOn](TMetadataBaseItem&) { countedOn = QThread::currentThread(); };
        md.UpdateRecordCounts();
        db->Execute(QStringLiteral("insert into big values (5)"));  // never blocked by the counts
        QElapsedTimer t;
        t.start();
        while (md.RecordCountUpdates() > 0 && t.elapsed() < 20000)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        ASSERT_EQ(md.RecordCountUpdates(), 0);
        EXPECT_EQ(countedOn, QThread::currentThread());
        // What was committed, read elsewhere; temp tables on the connection itself.
        EXPECT_EQ(md.FindTable(QStringLiteral("big"))->FRecordCount, std::optional<qint64>(3));
        EXPECT_EQ(md.FindTable(QStringLiteral("child"))->FRecordCount, std::optional<qint64>(2));
        db->Commit();
        EXPECT_EQ(db->GetStringValue(QStringLiteral("select count(*) from big")), QStringLiteral("5"));
        db->SetConnected(false);  // with the pool, cleanly
        db.reset();
        for (const char* f : {"rich.db", "rich.db-wal", "rich.db-shm", "aux.db", "aux.db-wal", "aux.db-shm"})
            QFile::remove(dir.file(QLatin1String(f)));
    }
}
