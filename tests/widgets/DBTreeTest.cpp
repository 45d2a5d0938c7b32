// The object tree over real database files: which nodes it shows, what a
// refresh keeps, groups of attached databases, record counts, selection by
// name and dropped files.
#include "TempDir.h"

#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"
#include "schema/DLSQLiteMetadata.h"
#include "schema/DLSQLiteParser.h"
#include "widgets/DBTree.h"
#include "workbench/Caches.h"

#include <gtest/gtest.h>
#include <QApplication>
#include <QDropEvent>
#include <QElapsedTimer>
#include <QMimeData>
#include <QUrl>

using namespace brindle;
using namespace Qt::StringLiterals;

namespace {

class WidgetsEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
        static int argc = 1;
        static char name[] = "brindle_widgets_tests";
        static char* argv[] = {name, nullptr};
        app = std::make_unique<QApplication>(argc, argv);
        ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB));
        InstallSQLParserServices();
    }
    void TearDown() override { app.reset(); }
    std::unique_ptr<QApplication> app;
};
[[maybe_unused]] ::testing::Environment* const kEnvironment =
    ::testing::AddGlobalTestEnvironment(new WidgetsEnvironment);

QStringList Texts(const QTreeWidgetItem* Node) {
    QStringList result;
    for (int i = 0; i < Node->childCount(); ++i) result << Node->child(i)->text(0);
    return result;
}

QTreeWidgetItem* Child(QTreeWidgetItem* Node, const QString& Text) {
    for (int i = 0; i < Node->childCount(); ++i)
        if (Node->child(i)->text(0) == Text) return Node->child(i);
    return nullptr;
}

// Whether a node survived is told by a mark of the test's own: a new node
// may well take the address of one just deleted.
void Mark(QTreeWidgetItem* Node) {
    Node->setData(0, Qt::UserRole + 100, true);
}
bool Marked(const QTreeWidgetItem* Node) {
    return Node && Node->data(0, Qt::UserRole + 100).toBool();
}

// The list outlives the tree, which is wired to it as the main window does.
class DBTreeTest : public ::testing::Test {
protected:
    DBTreeTest() : tree(std::make_unique<TDLDBTree>(list)) {
        list.OnAdded = [this](TDLSQLiteDatabase& d) { tree->AddDatabase(d); };
        list.OnDeleting = [this](TDLSQLiteDatabase& d) { tree->DeleteDatabase(d); };
        list.OnRefreshMetadata = [this](const QString& alias) { tree->RefreshDatabase(alias); };
    }

    // A new file with the schema, read into metadata, then into the list.
    TDLSQLiteDatabase& Open(const QString& Alias, const QString& SQL, bool Connected = true) {
        auto db = std::make_unique<TDLSQLiteDatabase>();
        db->FShowWaitCursor = false;
        db->SetFileName(dir.file(Alias + u".db"_s));
        db->CreateDatabase(0, 4096, u"UTF-8"_s, QString());
        db->SetAliasName(Alias);
        db->Execute(SQL);
        auto md = std::make_unique<TDLSQLiteMetadata>(db.get());
        md->Refresh();
        if (!Connected) db->SetConnected(false);
        TDLSQLiteDatabase& result = *db;
        list.AddDatabase(std::move(db), std::move(md));
        return result;
    }

    // Changes the file through a connection of its own, as another program
    // would, and refreshes.
    void Elsewhere(const QString& Alias, const QString& SQL) {
        {
            TDLSQLiteDatabase other;
            other.FShowWaitCursor = false;
            other.SetFileName(dir.file(Alias + u".db"_s));
            other.SetConnected(true);
            other.Execute(SQL);
        }
        list.RefreshMetadata(Alias);
    }

    QTreeWidgetItem* Node(const QString& Alias) const { return tree->FindNodeByAliasName(Alias); }

    test::TempDir dir;
    TMetaList list;
    std::unique_ptr<TDLDBTree> tree;
};

TEST_F(DBTreeTest, DatabaseNodesFollowTheListAndShowWhatIsNotConnected) {
    Open(u"one"_s, u"create table t(a)"_s);
    TDLSQLiteDatabase& off = Open(u"off"_s, u"create table t(a)"_s, false);
    Open(u"two"_s, u"create table t(a)"_s);
    EXPECT_EQ(Texts(tree->invisibleRootItem()), (QStringList{"one", "off", "two"}));

    QTreeWidgetItem* node = Node(u"off"_s);
    EXPECT_EQ(node->childCount(), 0);
    EXPECT_EQ(node->childIndicatorPolicy(), QTreeWidgetItem::ShowIndicator);
    EXPECT_TRUE(node->data(0, Qt::ForegroundRole).isValid());
    EXPECT_FALSE(Node(u"one"_s)->data(0, Qt::ForegroundRole).isValid());
    EXPECT_NE(node->icon(0).cacheKey(), Node(u"one"_s)->icon(0).cacheKey());
    try {
        tree->RefreshDatabase(u"off"_s);
        FAIL() << "refreshed a database that is not connected";
    } catch (const ECustomException& e) {
        EXPECT_EQ(e.message(), u"Could not connect to database off"_s);
    }
    off.SetConnected(true);
    list.RefreshMetadata(u"off"_s);
    EXPECT_EQ(Texts(node), QStringList{"t"});
    EXPECT_FALSE(node->data(0, Qt::ForegroundRole).isValid());

    // A tree made after the list was filled still shows the list's order.
    TDLDBTree late(list);
    for (int i = list.GetMetadataCount() - 1; i >= 0; --i) late.AddDatabase(list.GetDatabase(i));
    EXPECT_EQ(Texts(late.invisibleRootItem()), (QStringList{"one", "off", "two"}));

    list.DeleteDatabase(u"off"_s);
    EXPECT_EQ(Texts(tree->invisibleRootItem()), (QStringList{"one", "two"}));
}

TEST_F(DBTreeTest, TablesThenViewsWithTheirLeavesAndKinds) {
    Open(u"x"_s,
         u"create table b(x); create table a(y text primary key, z); create index a_z on a(z);"
         "create trigger a_t after insert on a begin select 1; end; create view v as select * from a;"
         "create trigger v_t instead of insert on v begin select 1; end;"
         "create virtual table docs using fts4(body)"_s);
    QTreeWidgetItem* db = Node(u"x"_s);
    EXPECT_EQ(Texts(db), (QStringList{"a", "b", "docs", "v"}));
    QTreeWidgetItem* a = Child(db, u"a"_s);
    QTreeWidgetItem* v = Child(db, u"v"_s);
    EXPECT_EQ(Texts(a), (QStringList{"sqlite_autoindex_a_1", "a_z", "a_t"}));
    EXPECT_EQ(Texts(v), QStringList{"v_t"});
    EXPECT_NE(a->icon(0).cacheKey(), v->icon(0).cacheKey());
    EXPECT_NE(a->icon(0).cacheKey(), Child(db, u"docs"_s)->icon(0).cacheKey());
    EXPECT_NE(a->child(1)->icon(0).cacheKey(), a->child(2)->icon(0).cacheKey());

    // Leaves stand for their owner.
    TDLSQLiteMetadata* md = list.FindMetadataByAliasName(u"x"_s);
    EXPECT_EQ(tree->NodeObject(a->child(2)), md->FindTable(u"main.a"_s));
    EXPECT_EQ(tree->NodeObject(v->child(0)), md->FindView(u"v"_s));
    EXPECT_EQ(tree->NodeMetadata(v->child(0)), md);

    // Shadow tables of the full-text table only on demand.
    tree->SetShowShadowTables(true);
    tree->RefreshDatabase(u"x"_s);
    EXPECT_EQ(Texts(db), (QStringList{"a", "b", "docs", "docs_content", "docs_docsize", "docs_segdir",
                                      "docs_segments", "docs_stat", "v"}));
    EXPECT_NE(Child(db, u"docs_stat"_s)->icon(0).cacheKey(), Child(db, u"a"_s)->icon(0).cacheKey());
    tree->SetShowShadowTables(false);
    tree->RefreshDatabase(u"x"_s);
    EXPECT_EQ(Texts(db), (QStringList{"a", "b", "docs", "v"}));
}

TEST_F(DBTreeTest, RefreshKeepsTheNodesOfObjectsStillThere) {
    Open(u"x"_s,
         u"create table a(x); create table b(x); create index b_x on b(x); create table c(x);"
         "create view v as select * from b"_s);
    QTreeWidgetItem* db = Node(u"x"_s);
    QTreeWidgetItem* b = Child(db, u"b"_s);
    QTreeWidgetItem* v = Child(db, u"v"_s);
    b->setExpanded(true);
    tree->setCurrentItem(b);
    Mark(b);
    Mark(v);

    Elsewhere(u"x"_s,
              u"drop table a; create table aa(x); alter table c rename to e; create view w as select 1;"
              "create trigger b_t after delete on b begin select 1; end"_s);
    EXPECT_EQ(Texts(db), (QStringList{"aa", "b", "e", "v", "w"}));
    EXPECT_EQ(Child(db, u"b"_s), b);
    EXPECT_EQ(Child(db, u"v"_s), v);
    EXPECT_TRUE(Marked(b) && Marked(v));
    EXPECT_TRUE(b->isExpanded());
    EXPECT_EQ(tree->currentItem(), b);
    EXPECT_EQ(Texts(b), (QStringList{"b_x", "b_t"}));

    // A rename in case only makes another object, so another node.
    Mark(Child(db, u"e"_s));
    Elsewhere(u"x"_s, u"alter table e rename to e_; alter table e_ rename to E"_s);
    EXPECT_EQ(Texts(db), (QStringList{"aa", "b", "E", "v", "w"}));
    EXPECT_FALSE(Marked(Child(db, u"E"_s)));
    EXPECT_TRUE(Marked(Child(db, u"b"_s)));

    tree->SetNeedFullRefresh(true);
    list.RefreshMetadata(u"x"_s);
    EXPECT_EQ(Texts(db), (QStringList{"aa", "b", "E", "v", "w"}));
    EXPECT_FALSE(Marked(Child(db, u"b"_s)));
}

// A view over a dropped table cannot be read; every other object still shows,
// the broken one too (so that it can be dropped), and the database's node
// tells what failed until a refresh reads everything again.
TEST_F(DBTreeTest, AnObjectThatCannotBeReadHidesNothingAndTheNodeTellsWhy) {
    TDLSQLiteDatabase& x =
        Open(u"x"_s,
             u"create table good(a); create table gone(b); create view bad as select b from gone;"
             "create view fine as select a from good"_s);
    QTreeWidgetItem* db = Node(u"x"_s);
    const qint64 healthy = db->icon(0).cacheKey();
    EXPECT_FALSE(db->toolTip(0).contains(u"error"_s, Qt::CaseInsensitive));

    ASSERT_NO_THROW(Elsewhere(u"x"_s, u"drop table gone"_s));
    EXPECT_EQ(Texts(db), (QStringList{"good", "bad", "fine"}));
    EXPECT_TRUE(db->toolTip(0).startsWith(x.FileName())) << db->toolTip(0).toStdString();
    EXPECT_TRUE(db->toolTip(0).contains(u"Error refreshing schema for view \"main.bad\""_s))
        << db->toolTip(0).toStdString();
    EXPECT_TRUE(db->toolTip(0).contains(u"no such table"_s)) << db->toolTip(0).toStdString();
    EXPECT_NE(db->icon(0).cacheKey(), healthy);
    EXPECT_EQ(tree->NodeObject(Child(db, u"bad"_s)),
              list.FindMetadataByAliasName(u"x"_s)->FindView(u"bad"_s));

    // A database opened in this state shows the same.
    TDLDBTree late(list);
    late.AddDatabase(x);
    EXPECT_EQ(Texts(late.FindNodeByAliasName(u"x"_s)), (QStringList{"good", "bad", "fine"}));
    EXPECT_TRUE(late.FindNodeByAliasName(u"x"_s)->toolTip(0).contains(u"no such table"_s));

    ASSERT_NO_THROW(Elsewhere(u"x"_s, u"drop view bad"_s));
    EXPECT_EQ(Texts(db), (QStringList{"good", "fine"}));
    EXPECT_EQ(db->toolTip(0), x.FileName());
    EXPECT_EQ(db->icon(0).cacheKey(), healthy);
}

TEST_F(DBTreeTest, TempAndAttachedDatabasesAreGroupsThatComeAndGo) {
    Open(u"side"_s, u"create table s(x); create view sv as select * from s"_s);
    TDLSQLiteDatabase& db = Open(u"x"_s, u"create table t(x)"_s);
    QTreeWidgetItem* node = Node(u"x"_s);
    Mark(Child(node, u"t"_s));

    db.Attach(dir.file(u"side.db"_s), u"aux"_s);
    db.Execute(u"create temp table tt(x)"_s);
    list.RefreshMetadata(u"x"_s);
    EXPECT_EQ(Texts(node), (QStringList{"t", "temp", "aux"}));
    QTreeWidgetItem* aux = Child(node, u"aux"_s);
    EXPECT_EQ(Texts(aux), (QStringList{"s", "sv"}));
    EXPECT_EQ(Texts(Child(node, u"temp"_s)), QStringList{"tt"});
    EXPECT_EQ(tree->NodeObject(aux), nullptr);
    EXPECT_EQ(tree->NodeObject(aux->child(0))->GetName(), u"aux.s"_s);

    db.Execute(u"drop table temp.tt; detach database aux"_s);
    list.RefreshMetadata(u"x"_s);
    EXPECT_EQ(Texts(node), QStringList{"t"});
    EXPECT_TRUE(Marked(Child(node, u"t"_s)));
}

TEST_F(DBTreeTest, RecordCountsLandInTheTexts) {
    TDLSQLiteDatabase& db = Open(u"x"_s,
                                 u"create table t(x); insert into t values (1), (2), (3);"
                                 "create table e(x); create view v as select * from t;"
                                 "create table \"a (b)\"(x); insert into \"a (b)\" values (1)"_s);
    QTreeWidgetItem* node = Node(u"x"_s);
    TDLSQLiteMetadata& md = *list.FindMetadataByAliasName(u"x"_s);
    // A handler the metadata had before the tree hooks it keeps running.
    int earlier = 0;
    md.FOnRecordCount = [&earlier](TMetadataBaseItem&) { ++earlier; };
    tree->AddDatabase(db);

    tree->UpdateRecordCounts();  // not shown: nothing asked
    EXPECT_EQ(earlier, 0);
    tree->SetShowRecordCounts(true);
    Mark(Child(node, u"t"_s));
    list.RefreshMetadata(u"x"_s);  // the default counter answers at once
    EXPECT_EQ(Texts(node), (QStringList{"a (b) (1)", "e (0)", "t (3)", "v (3)"}));
    EXPECT_TRUE(Marked(Child(node, u"t (3)"_s)));
    // A name that looks like a count: its node is made again at every
    // refresh, and still shows the right text.
    Mark(node->child(0));
    list.RefreshMetadata(u"x"_s);
    EXPECT_EQ(Texts(node), (QStringList{"a (b) (1)", "e (0)", "t (3)", "v (3)"}));
    EXPECT_FALSE(Marked(node->child(0)));
    EXPECT_TRUE(Marked(node->child(2)));

    // Counts that come later: one fails, one's object and node are gone.
    std::vector<std::pair<QString, TRecordCountDone>> pending;
    md.SetRecordCounter(
        [&pending](const QString& n, const TRecordCountDone& d) { pending.emplace_back(n, d); });
    tree->UpdateRecordCounts();
    ASSERT_EQ(pending.size(), 4u);
    db.Execute(u"drop view v"_s);
    list.RefreshMetadata(u"x"_s);
    for (auto& [name, done] : pending) done(name == u"main.t"_s ? std::nullopt : std::optional<qint64>(7));
    EXPECT_EQ(Texts(node), (QStringList{"a (b) (7)", "e (7)", "t"}));

    tree->SetShowRecordCounts(false);
    EXPECT_EQ(Texts(node), (QStringList{"a (b)", "e", "t"}));
    const int before = earlier;
    tree.reset();
    md.SetRecordCounter({});
    md.UpdateRecordCounts();
    EXPECT_EQ(earlier, before + 3);
}

TEST_F(DBTreeTest, RecordCountsFromTheBackgroundQueue) {
    TDLSQLiteDatabase& db = Open(u"x"_s, u"create table t(x); insert into t values (1), (2)"_s);
    TDLSQLiteMetadata& md = *list.FindMetadataByAliasName(u"x"_s);
    md.SetRecordCounter(QueryQueueRecordCounter(db));
    tree->SetShowRecordCounts(true);
    tree->UpdateRecordCounts();
    QElapsedTimer timer;
    timer.start();
    while (md.RecordCountUpdates() > 0 && timer.elapsed() < 20000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    EXPECT_EQ(Texts(Node(u"x"_s)), QStringList{"t (2)"});
    db.SetConnected(false);  // the pool ends before the file goes
}

TEST_F(DBTreeTest, SelectionByNameInAnySpelling) {
    Open(u"side"_s, u"create table orders(x)"_s);
    TDLSQLiteDatabase& db = Open(u"x"_s, u"create table Orders(x)"_s);
    db.Attach(dir.file(u"side.db"_s), u"aux"_s);
    list.RefreshMetadata(u"x"_s);
    QTreeWidgetItem* node = Node(u"x"_s);
    QTreeWidgetItem* auxOrders = Child(node, u"aux"_s)->child(0);

    for (const char* name : {"main.orders", "ORDERS", "[main].[Orders]", "\"orders\"", "main.\"ORDERS\""}) {
        tree->setCurrentItem(nullptr);
        EXPECT_TRUE(tree->SelectObject(u"x"_s, QLatin1String(name))) << name;
        EXPECT_EQ(tree->currentItem(), Child(node, u"Orders"_s)) << name;
    }
    EXPECT_TRUE(tree->SelectObject(u"x"_s, u"AUX.orders"_s));
    EXPECT_EQ(tree->currentItem(), auxOrders);
    EXPECT_EQ(tree->FocusedObject()->GetName(), u"aux.orders"_s);

    EXPECT_FALSE(tree->SelectObject(u"x"_s, u"nothing"_s));
    EXPECT_FALSE(tree->SelectObject(u"nobody"_s, QString()));
    EXPECT_EQ(tree->currentItem(), auxOrders);
    EXPECT_TRUE(tree->SelectObject(u"x"_s, QString()));
    EXPECT_EQ(tree->currentItem(), node);
}

TEST_F(DBTreeTest, DroppedLocalFilesAreHandedOn) {
    QList<QStringList> dropped;
    QObject::connect(tree.get(), &TDLDBTree::FilesDropped,
                     [&dropped](const QStringList& f) { dropped << f; });
    QMimeData files;
    files.setUrls({QUrl::fromLocalFile(u"/tmp/b.db"_s), QUrl(u"https://example.org/x"_s),
                   QUrl::fromLocalFile(u"/tmp/a.db"_s)});
    QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, &files, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(tree->viewport(), &enter);
    EXPECT_TRUE(enter.isAccepted());
    QDropEvent drop(QPointF(5, 5), Qt::CopyAction, &files, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(tree->viewport(), &drop);
    EXPECT_EQ(dropped, QList<QStringList>{(QStringList{"/tmp/b.db", "/tmp/a.db"})});
}

}  // namespace
