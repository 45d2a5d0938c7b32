// The object tree of the open databases: one node per database of a
// TMetaList, in the list's order, with the tables and views of its main
// database below it, a group node per temp or attached database after
// them, and the indexes and triggers of each table or view as leaves.
//
// Nodes hold names, never item pointers: the metadata frees its items on a
// refresh before the tree hears of it, so each node keeps its database's
// alias, its kind and the object's qualified name, and the item is looked
// up in the metadata whenever it is asked for.
//
// Ownership: the tree owns its nodes (Qt parent ownership); the list, its
// databases and metadata are not owned, and the list outlives the tree.
// While a database is shown, the tree hooks its metadata's FOnRecordCount
// (any handler set before still runs first) and lets go of it when the
// database is deleted from the tree or the tree is destroyed.
//
// Threading: main thread only.
#pragma once

#include <QIcon>
#include <QStringList>
#include <QTreeWidget>
#include <vector>

namespace brindle {

class TDLSQLiteDatabase;
class TDLSQLiteMetadata;
class TMetaList;
class TMetadataBaseItem;

class TDLDBTree : public QTreeWidget {
    Q_OBJECT

public:
    // What a node shows.
    enum TNodeKind { nkNone, nkDatabase, nkGroup, nkTable, nkView, nkIndex, nkTrigger };

    explicit TDLDBTree(TMetaList& MetaList, QWidget* Parent = nullptr);
    ~TDLDBTree() override;

    // Adds the database's node where the list has it (its text is the
    // alias) and hooks its record counts. A connected database gets its
    // children at once; any other shows as not connected, without children
    // but expandable. A database that has a node already is refreshed.
    void AddDatabase(TDLSQLiteDatabase& Database);
    // Removes the node and the hook; call it before the database is freed.
    void DeleteDatabase(TDLSQLiteDatabase& Database);
    // The database's alias changed: its node and every node below it follow.
    void RenameDatabase(const QString& OldAliasName, const QString& NewAliasName);
    // Brings the database's node in line with its metadata, keeping the
    // nodes (and their expansion and selection) of objects that are still
    // there. Nothing for an alias without a node. Raises "Could not connect
    // to database <alias>" when the metadata has no database or it is not
    // connected; the node then shows as not connected. When the metadata's
    // last refresh could not read some object, the node is marked and its
    // tool tip holds the message behind the file name.
    void RefreshDatabase(const QString& AliasName);

    // The database node of the alias (exact match); null when absent.
    QTreeWidgetItem* FindNodeByAliasName(const QString& AliasName) const;
    // Makes the node current; false when there is none.
    bool SelectDatabase(const QString& AliasName);
    // The table or view node of the name, qualified ("main.orders") or
    // bare, found as the engine resolves it and compared ignoring quotes and
    // case; an empty name selects the database node. False, with the
    // selection left alone, when no node shows it.
    bool SelectObject(const QString& AliasName, const QString& ObjectName);
    bool GetExpanded(const QString& AliasName) const;
    void SetExpanded(const QString& AliasName, bool Value);

    // The node's database alias; empty for null.
    QString NodeAlias(QTreeWidgetItem* Node) const;
    TNodeKind NodeKind(QTreeWidgetItem* Node) const;
    // The metadata of the node's database; null when there is none.
    TDLSQLiteMetadata* NodeMetadata(QTreeWidgetItem* Node) const;
    // The table or view the node shows, or for an index or trigger leaf
    // its owner, as the metadata holds it now; null for database and group
    // nodes and for an object the metadata no longer has.
    TMetadataBaseItem* NodeObject(QTreeWidgetItem* Node) const;
    TDLSQLiteMetadata* FocusedMetadata() const { return NodeMetadata(currentItem()); }
    TMetadataBaseItem* FocusedObject() const { return NodeObject(currentItem()); }

    // Asks every connected database's metadata for fresh counts of its
    // tables and views; only while counts are shown. Each count lands in
    // its node's text, "orders (42)", whenever it arrives.
    void UpdateRecordCounts();

    bool ShowRecordCounts() const { return FShowRecordCounts; }
    // Off puts the bare names back; on shows the counts already known.
    void SetShowRecordCounts(bool Value);
    bool ShowShadowTables() const { return FShowShadowTables; }
    // A change asks for a full refresh.
    void SetShowShadowTables(bool Value);
    bool NeedFullRefresh() const { return FNeedFullRefresh; }
    // The next RefreshDatabase builds the children anew; it clears the flag.
    void SetNeedFullRefresh(bool Value) { FNeedFullRefresh = Value; }

    // For a caller that refreshes several databases: no repaint until the
    // outermost EndUpdate. Nestable.
    void BeginUpdate();
    void EndUpdate();

signals:
    // Local files were dropped on the tree, their paths in order.
    void FilesDropped(const QStringList& FileNames);

protected:
    void dragEnterEvent(QDragEnterEvent* Event) override;
    void dragMoveEvent(QDragMoveEvent* Event) override;
    void dropEvent(QDropEvent* Event) override;

private:
    struct TIcons {
        QIcon Database, DatabaseErrors, Disconnected, Group, Table, View, VirtualTable, ShadowTable, Index,
            Trigger;
    };
    struct TRecordCountHook;

    // The schema's object nodes under Parent, then (for main) the groups;
    // the names of the objects shown go to Shown.
    void RefreshLevel(QTreeWidgetItem& Parent, TDLSQLiteMetadata& Metadata, const QString& Schema,
                      QStringList& Shown);
    // The group nodes from Position on.
    void RefreshGroups(QTreeWidgetItem& DatabaseNode, TDLSQLiteMetadata& Metadata, int Position,
                       QStringList& Shown);
    void RefreshLeaves(QTreeWidgetItem& Node, TMetadataBaseItem& Object);
    // The objects of one database the tree shows, tables first.
    std::vector<TMetadataBaseItem*> ShownObjects(TDLSQLiteMetadata& Metadata, const QString& Schema) const;
    bool IsShown(const TMetadataBaseItem& Object) const;
    bool WasRenamed(const TMetadataBaseItem& Object, const QTreeWidgetItem& Node) const;
    QString ObjectText(const TMetadataBaseItem& Object) const;
    void SetObjectIcon(QTreeWidgetItem& Node, const TMetadataBaseItem& Object) const;
    void SetConnectedLook(QTreeWidgetItem& Node, bool Connected) const;
    QTreeWidgetItem* FindObjectNode(QTreeWidgetItem* DatabaseNode, const QString& QualifiedName) const;
    void RecordCountArrived(TDLSQLiteMetadata& Metadata, TMetadataBaseItem& Object);
    void Hook(TDLSQLiteMetadata& Metadata);
    void Unhook(TDLSQLiteMetadata& Metadata);
    // Calls Visit for every table and view node.
    template <typename TVisit>
    void ForEachObjectNode(TVisit&& Visit) const;
    static QStringList DroppedFiles(const QMimeData* Data);

    TMetaList& FMetaList;
    TIcons FIcons;
    bool FShowRecordCounts = false;
    bool FShowShadowTables = false;
    bool FNeedFullRefresh = false;
    int FUpdateCount = 0;
};

}  // namespace brindle
