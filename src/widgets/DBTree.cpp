#include "DBTree.h"

#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"
#include "schema/DLSQLiteMetadata.h"
#include "workbench/Caches.h"

#include <QDragEnterEvent>
#include <QDragMoveEvent>
#include <QDropEvent>
#include <QMimeData>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QStyle>
#include <QUrl>
#include <functional>
#include <memory>
#include <utility>

namespace brindle {

namespace {

// What a node keeps instead of item pointers. The name is the object's
// qualified name for tables and views, the schema for a group, and the
// leaf's own name for an index or trigger.
constexpr int kKindRole = Qt::UserRole;
constexpr int kAliasRole = Qt::UserRole + 1;
constexpr int kNameRole = Qt::UserRole + 2;

const QString kMain = QStringLiteral("main");
const QString kTemp = QStringLiteral("temp");

TDLDBTree::TNodeKind KindOf(const QTreeWidgetItem* Node) {
    return Node ? static_cast<TDLDBTree::TNodeKind>(Node->data(0, kKindRole).toInt()) : TDLDBTree::nkNone;
}

QString NameOf(const QTreeWidgetItem* Node) {
    return Node->data(0, kNameRole).toString();
}

bool IsObjectKind(TDLDBTree::TNodeKind Kind) {
    return Kind == TDLDBTree::nkTable || Kind == TDLDBTree::nkView;
}

TDLDBTree::TNodeKind ObjectKind(const TMetadataBaseItem& Object) {
    return dynamic_cast<const TBaseViewInfo*>(&Object) ? TDLDBTree::nkView : TDLDBTree::nkTable;
}

QString BareName(const QString& QualifiedName) {
    QString schema, name;
    SplitObjectName(QualifiedName, schema, name);
    return name;
}

QString SchemaKey(const QString& QualifiedName) {
    QString schema, name;
    SplitObjectName(QualifiedName, schema, name);
    return FoldName(schema);
}

// A node with its identity, inserted at Position under Parent (Qt owns it).
QTreeWidgetItem& InsertNode(QTreeWidgetItem& Parent, int Position, TDLDBTree::TNodeKind Kind,
                            const QString& Alias, const QString& Name, const QString& Text) {
    auto node = std::make_unique<QTreeWidgetItem>(QStringList{Text});
    node->setData(0, kKindRole, static_cast<int>(Kind));
    node->setData(0, kAliasRole, Alias);
    node->setData(0, kNameRole, Name);
    QTreeWidgetItem& result = *node;
    Parent.insertChild(Position, node.release());
    return result;
}

// The database's place in the list; -1 when it is not there.
int ListIndex(const TMetaList& List, const TDLSQLiteDatabase* Database) {
    for (int i = 0; i < List.GetMetadataCount(); ++i)
        if (&List.GetDatabase(i) == Database) return i;
    return -1;
}

// A node's destructor takes it out of its parent or the tree.
void DeleteNode(QTreeWidgetItem* Node) {
    std::unique_ptr<QTreeWidgetItem> owned(Node);
}

void DeleteChildren(QTreeWidgetItem& Node) {
    while (Node.childCount() > 0) DeleteNode(Node.child(Node.childCount() - 1));
}

class TUpdateBracket {
public:
    explicit TUpdateBracket(TDLDBTree& Tree) : FTree(Tree) { FTree.BeginUpdate(); }
    ~TUpdateBracket() { FTree.EndUpdate(); }
    TUpdateBracket(const TUpdateBracket&) = delete;
    TUpdateBracket& operator=(const TUpdateBracket&) = delete;

private:
    TDLDBTree& FTree;
};

QIcon Painted(const std::function<void(QPainter&)>& Paint) {
    QPixmap pixmap(16, 16);
    pixmap.fill(Qt::transparent);
    {
        QPainter painter(&pixmap);
        Paint(painter);
    }
    return QIcon(pixmap);
}

// A sheet with a coloured header row: the look of everything that has rows.
QIcon GridIcon(const QColor& Header, const QColor& Lines, Qt::PenStyle Outline) {
    return Painted([&](QPainter& p) {
        p.fillRect(QRect(1, 2, 14, 12), Qt::white);
        p.fillRect(QRect(1, 2, 14, 4), Header);
        p.setPen(QPen(Lines, 1));
        p.drawLine(1, 10, 14, 10);
        p.drawLine(6, 6, 6, 13);
        p.drawLine(10, 6, 10, 13);
        p.setPen(QPen(Lines, 1, Outline));
        p.drawRect(QRect(1, 2, 13, 11));
    });
}

QIcon DatabaseIcon(const QColor& Body, const QColor& Rim) {
    return Painted([&](QPainter& p) {
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(QPen(Rim, 1));
        p.setBrush(Body);
        QPainterPath body;
        body.moveTo(2.5, 4);
        body.lineTo(2.5, 12);
        body.arcTo(QRectF(2.5, 10, 11, 4), 180, 180);
        body.lineTo(13.5, 4);
        p.drawPath(body);
        p.setBrush(Body.lighter(130));
        p.drawEllipse(QRectF(2.5, 2, 11, 4));
    });
}

}  // namespace

// The metadata's record count handler while the tree shows its database;
// recognisable by its type, so the tree can take it off again.
struct TDLDBTree::TRecordCountHook {
    TDLDBTree* Tree;
    TDLSQLiteMetadata* Metadata;
    std::function<void(TMetadataBaseItem&)> Previous;

    void operator()(TMetadataBaseItem& Item) const {
        if (Previous) Previous(Item);
        Tree->RecordCountArrived(*Metadata, Item);
    }
};

// ---------------------------------------------------------------------------

TDLDBTree::TDLDBTree(TMetaList& MetaList, QWidget* Parent) : QTreeWidget(Parent), FMetaList(MetaList) {
    setColumnCount(1);
    setHeaderHidden(true);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setAcceptDrops(true);
    viewport()->setAcceptDrops(true);

    FIcons.Database = DatabaseIcon(QColor(0x4a, 0x86, 0xc8), QColor(0x24, 0x4f, 0x80));
    FIcons.Disconnected = DatabaseIcon(QColor(0xc8, 0xc8, 0xc8), QColor(0x80, 0x80, 0x80));
    // Connected, but some object could not be read: a red mark on the database.
    const QIcon database = FIcons.Database;
    FIcons.DatabaseErrors = Painted([&database](QPainter& p) {
        database.paint(&p, QRect(0, 0, 16, 16));
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(Qt::NoPen);
        p.setBrush(QColor(0xd0, 0x20, 0x20));
        p.drawEllipse(QRectF(8, 8, 8, 8));
        p.setPen(QPen(Qt::white, 1.5));
        p.drawLine(QPointF(12, 9.5), QPointF(12, 12.5));
        p.drawPoint(QPointF(12, 14.5));
    });
    FIcons.Group = style()->standardIcon(QStyle::SP_DirIcon);
    FIcons.Table = GridIcon(QColor(0x4a, 0x86, 0xc8), QColor(0x50, 0x50, 0x50), Qt::SolidLine);
    FIcons.View = GridIcon(QColor(0x4c, 0xa8, 0x5a), QColor(0x50, 0x50, 0x50), Qt::SolidLine);
    FIcons.VirtualTable = GridIcon(QColor(0x9a, 0x62, 0xc8), QColor(0x50, 0x50, 0x50), Qt::DotLine);
    FIcons.ShadowTable = GridIcon(QColor(0xb0, 0xb0, 0xb0), QColor(0xa0, 0xa0, 0xa0), Qt::SolidLine);
    FIcons.Index = Painted([](QPainter& p) {
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(QPen(QColor(0xc0, 0x80, 0x10), 2));
        p.drawEllipse(QRectF(2, 5, 6, 6));
        p.drawLine(QPointF(8, 8), QPointF(14, 8));
        p.drawLine(QPointF(12, 8), QPointF(12, 11));
        p.drawLine(QPointF(14, 8), QPointF(14, 11));
    });
    FIcons.Trigger = Painted([](QPainter& p) {
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(QPen(QColor(0xa0, 0x60, 0x00), 1));
        p.setBrush(QColor(0xf0, 0xc0, 0x20));
        const QPointF bolt[] = {{9, 1}, {3, 9}, {7, 9}, {5, 15}, {13, 6}, {9, 6}, {11, 1}};
        p.drawPolygon(bolt, 7);
    });
}

TDLDBTree::~TDLDBTree() {
    for (int i = 0; i < FMetaList.GetMetadataCount(); ++i) Unhook(FMetaList.GetMetadata(i));
}

// ---------------------------------------------------------------------------
// Databases

void TDLDBTree::AddDatabase(TDLSQLiteDatabase& Database) {
    const QString alias = Database.AliasName();
    const int index = ListIndex(FMetaList, &Database);
    if (index >= 0) Hook(FMetaList.GetMetadata(index));
    if (FindNodeByAliasName(alias)) {
        if (Database.Connected()) RefreshDatabase(alias);
        return;
    }

    // Before the first node of a database that comes later in the list; a
    // database the list does not hold goes last.
    int position = index < 0 ? topLevelItemCount() : 0;
    while (position < topLevelItemCount() &&
           ListIndex(FMetaList, FMetaList.FindDatabaseByAliasName(NodeAlias(topLevelItem(position)))) <=
               index)
        ++position;
    auto node = std::make_unique<QTreeWidgetItem>(QStringList{alias});
    node->setData(0, kKindRole, static_cast<int>(nkDatabase));
    node->setData(0, kAliasRole, alias);
    node->setToolTip(0, Database.FileName());
    QTreeWidgetItem& added = *node;
    insertTopLevelItem(position, node.release());

    if (Database.Connected())
        RefreshDatabase(alias);
    else
        SetConnectedLook(added, false);
}

void TDLDBTree::DeleteDatabase(TDLSQLiteDatabase& Database) {
    const int index = ListIndex(FMetaList, &Database);
    if (index >= 0) Unhook(FMetaList.GetMetadata(index));
    DeleteNode(FindNodeByAliasName(Database.AliasName()));
}

void TDLDBTree::RenameDatabase(const QString& OldAliasName, const QString& NewAliasName) {
    QTreeWidgetItem* node = FindNodeByAliasName(OldAliasName);
    if (!node) return;
    node->setText(0, NewAliasName);
    std::vector<QTreeWidgetItem*> pending{node};
    while (!pending.empty()) {
        QTreeWidgetItem* n = pending.back();
        pending.pop_back();
        n->setData(0, kAliasRole, NewAliasName);
        for (int i = 0; i < n->childCount(); ++i) pending.push_back(n->child(i));
    }
}

void TDLDBTree::RefreshDatabase(const QString& AliasName) {
    QTreeWidgetItem* node = FindNodeByAliasName(AliasName);
    if (!node) return;
    TUpdateBracket bracket(*this);

    if (FNeedFullRefresh) {
        DeleteChildren(*node);
        FNeedFullRefresh = false;
    }
    TDLSQLiteMetadata* metadata = FMetaList.FindMetadataByAliasName(AliasName);
    TDLSQLiteDatabase* database = metadata ? metadata->SQLiteDatabase() : nullptr;
    if (!database || !database->Connected()) {
        // What the children said is no longer known.
        DeleteChildren(*node);
        SetConnectedLook(*node, false);
        throw ECustomException(QStringLiteral("Could not connect to database ") + AliasName);
    }

    QStringList shown;
    RefreshLevel(*node, *metadata, kMain, shown);
    SetConnectedLook(*node, true);
    // What the last refresh could not read is told on the node until a
    // refresh reads everything again; the objects are shown all the same.
    const QString& errors = metadata->RefreshErrors();
    node->setToolTip(
        0, errors.isEmpty() ? database->FileName() : database->FileName() + QStringLiteral("\n\n") + errors);
    if (!errors.isEmpty()) node->setIcon(0, FIcons.DatabaseErrors);
    // After the walk: a counter that answers at once changes node texts, and
    // its handlers may change the lists, so each name is looked up again.
    if (FShowRecordCounts)
        for (const QString& name : shown)
            if (TMetadataBaseItem* object = metadata->FindObject(name)) metadata->UpdateRecordCount(*object);
}

void TDLDBTree::RefreshLevel(QTreeWidgetItem& Parent, TDLSQLiteMetadata& Metadata, const QString& Schema,
                             QStringList& Shown) {
    for (int i = Parent.childCount() - 1; i >= 0; --i) {
        QTreeWidgetItem* child = Parent.child(i);
        const TNodeKind kind = KindOf(child);
        if (kind == nkGroup) continue;  // RefreshGroups sees to them
        TMetadataBaseItem* object = IsObjectKind(kind) ? NodeObject(child) : nullptr;
        if (!object || !IsShown(*object) || WasRenamed(*object, *child)) DeleteNode(child);
    }

    const QString alias = NodeAlias(&Parent);
    int position = 0;
    for (TMetadataBaseItem* object : ShownObjects(Metadata, Schema)) {
        const QString name = object->GetName();
        const TNodeKind kind = ObjectKind(*object);
        QTreeWidgetItem* node = position < Parent.childCount() ? Parent.child(position) : nullptr;
        if (!node || KindOf(node) != kind || NameOf(node) != name)
            node = &InsertNode(Parent, position, kind, alias, name, ObjectText(*object));
        SetObjectIcon(*node, *object);
        RefreshLeaves(*node, *object);
        Shown << name;
        ++position;
    }
    // Nodes the walk passed by: only an order the metadata changed leaves any.
    while (position < Parent.childCount() && KindOf(Parent.child(position)) != nkGroup)
        DeleteNode(Parent.child(position));
    if (FoldName(Schema) == kMain) RefreshGroups(Parent, Metadata, position, Shown);
}

void TDLDBTree::RefreshGroups(QTreeWidgetItem& DatabaseNode, TDLSQLiteMetadata& Metadata, int Position,
                              QStringList& Shown) {
    // The connection's order; temp only while it holds something to show,
    // an attached database from its attachment on.
    QStringList schemas;
    for (const QString& schema : Metadata.SQLiteDatabase()->DatabaseNames()) {
        const QString key = FoldName(schema);
        if (key == kMain) continue;
        if (key == kTemp && ShownObjects(Metadata, schema).empty()) continue;
        schemas << schema;
    }
    QStringList keys;
    for (const QString& schema : schemas) keys << FoldName(schema);

    for (int i = DatabaseNode.childCount() - 1; i >= Position; --i) {
        QTreeWidgetItem* child = DatabaseNode.child(i);
        if (KindOf(child) != nkGroup || !keys.contains(FoldName(NameOf(child)))) DeleteNode(child);
    }
    const QString alias = NodeAlias(&DatabaseNode);
    for (const QString& schema : schemas) {
        QTreeWidgetItem* group =
            Position < DatabaseNode.childCount() ? DatabaseNode.child(Position) : nullptr;
        if (!group || KindOf(group) != nkGroup || FoldName(NameOf(group)) != FoldName(schema)) {
            group = &InsertNode(DatabaseNode, Position, nkGroup, alias, schema, schema);
            group->setIcon(0, FIcons.Group);
        }
        // The spelling of the latest attachment.
        group->setText(0, schema);
        group->setData(0, kNameRole, schema);
        RefreshLevel(*group, Metadata, schema, Shown);
        ++Position;
    }
    while (Position < DatabaseNode.childCount()) DeleteNode(DatabaseNode.child(Position));
}

void TDLDBTree::RefreshLeaves(QTreeWidgetItem& Node, TMetadataBaseItem& Object) {
    std::vector<std::pair<TNodeKind, QString>> leaves;
    if (const auto* table = dynamic_cast<const TBaseTableInfo*>(&Object)) {
        for (int i = 0; i < table->IndexCount(); ++i)
            if (!table->Indexes(i).FIndexName.isEmpty())
                leaves.emplace_back(nkIndex, table->Indexes(i).FIndexName);
        for (int i = 0; i < table->TriggerCount(); ++i)
            leaves.emplace_back(nkTrigger, table->Triggers(i).FTriggerName);
    } else if (const auto* view = dynamic_cast<const TBaseViewInfo*>(&Object)) {
        for (int i = 0; i < view->TriggerCount(); ++i)
            leaves.emplace_back(nkTrigger, view->Triggers(i).FTriggerName);
    }

    // Leaves hold nothing of their own; the same list stays as it is, so
    // that a selected leaf stays selected.
    bool same = Node.childCount() == static_cast<int>(leaves.size());
    for (int i = 0; same && i < Node.childCount(); ++i)
        same = KindOf(Node.child(i)) == leaves[static_cast<size_t>(i)].first &&
               NameOf(Node.child(i)) == leaves[static_cast<size_t>(i)].second;
    if (same) return;
    DeleteChildren(Node);
    const QString alias = NodeAlias(&Node);
    for (const auto& [kind, name] : leaves) {
        QTreeWidgetItem& leaf = InsertNode(Node, Node.childCount(), kind, alias, name, name);
        leaf.setIcon(0, kind == nkIndex ? FIcons.Index : FIcons.Trigger);
    }
}

std::vector<TMetadataBaseItem*> TDLDBTree::ShownObjects(TDLSQLiteMetadata& Metadata,
                                                        const QString& Schema) const {
    const QString key = FoldName(Schema);
    std::vector<TMetadataBaseItem*> result;
    for (int i = 0; i < Metadata.TableCount(); ++i) {
        TBaseTableInfo& table = Metadata.Tables(i);
        if (SchemaKey(table.GetName()) == key && IsShown(table)) result.push_back(&table);
    }
    for (int i = 0; i < Metadata.ViewCount(); ++i) {
        TBaseViewInfo& view = Metadata.Views(i);
        if (SchemaKey(view.GetName()) == key) result.push_back(&view);
    }
    return result;
}

bool TDLDBTree::IsShown(const TMetadataBaseItem& Object) const {
    const auto* table = dynamic_cast<const TSQLiteTableInfo*>(&Object);
    return !table || !table->FIsShadow || FShowShadowTables;
}

bool TDLDBTree::WasRenamed(const TMetadataBaseItem& Object, const QTreeWidgetItem& Node) const {
    QString text = Node.text(0);
    if (FShowRecordCounts) {
        const qsizetype count = text.lastIndexOf(QLatin1String(" ("));
        if (count >= 0) text.truncate(count);
    }
    // A name with " (" of its own cannot be told from a count: such a node
    // is made again.
    return text != BareName(Object.GetName()) || text.contains(QLatin1String(" ("));
}

QString TDLDBTree::ObjectText(const TMetadataBaseItem& Object) const {
    QString text = BareName(Object.GetName());
    if (FShowRecordCounts && Object.FRecordCount)
        text += QStringLiteral(" (") + QString::number(*Object.FRecordCount) + u')';
    return text;
}

void TDLDBTree::SetObjectIcon(QTreeWidgetItem& Node, const TMetadataBaseItem& Object) const {
    switch (GetNodeType(&Object)) {
        case ntView:
            Node.setIcon(0, FIcons.View);
            break;
        case ntVirtualTable:
            Node.setIcon(0, FIcons.VirtualTable);
            break;
        case ntShadowTable:
            Node.setIcon(0, FIcons.ShadowTable);
            break;
        default:
            Node.setIcon(0, FIcons.Table);
            break;
    }
}

void TDLDBTree::SetConnectedLook(QTreeWidgetItem& Node, bool Connected) const {
    Node.setIcon(0, Connected ? FIcons.Database : FIcons.Disconnected);
    if (Connected)
        Node.setData(0, Qt::ForegroundRole, QVariant());
    else
        Node.setForeground(0, palette().brush(QPalette::Disabled, QPalette::Text));
    // Expandable even without children: expanding is how a user asks to
    // connect.
    Node.setChildIndicatorPolicy(QTreeWidgetItem::ShowIndicator);
}

// ---------------------------------------------------------------------------
// Finding and selecting

QTreeWidgetItem* TDLDBTree::FindNodeByAliasName(const QString& AliasName) const {
    for (int i = 0; i < topLevelItemCount(); ++i)
        if (NodeAlias(topLevelItem(i)) == AliasName) return topLevelItem(i);
    return nullptr;
}

QTreeWidgetItem* TDLDBTree::FindObjectNode(QTreeWidgetItem* DatabaseNode,
                                           const QString& QualifiedName) const {
    if (!DatabaseNode) return nullptr;
    for (int i = 0; i < DatabaseNode->childCount(); ++i) {
        QTreeWidgetItem* child = DatabaseNode->child(i);
        if (KindOf(child) == nkGroup) {
            for (int j = 0; j < child->childCount(); ++j)
                if (NameOf(child->child(j)) == QualifiedName && IsObjectKind(KindOf(child->child(j))))
                    return child->child(j);
        } else if (NameOf(child) == QualifiedName && IsObjectKind(KindOf(child))) {
            return child;
        }
    }
    return nullptr;
}

template <typename TVisit>
void TDLDBTree::ForEachObjectNode(TVisit&& Visit) const {
    for (int i = 0; i < topLevelItemCount(); ++i) {
        QTreeWidgetItem* database = topLevelItem(i);
        for (int j = 0; j < database->childCount(); ++j) {
            QTreeWidgetItem* child = database->child(j);
            if (IsObjectKind(KindOf(child))) Visit(*child);
            if (KindOf(child) == nkGroup)
                for (int k = 0; k < child->childCount(); ++k) Visit(*child->child(k));
        }
    }
}

bool TDLDBTree::SelectDatabase(const QString& AliasName) {
    QTreeWidgetItem* node = FindNodeByAliasName(AliasName);
    if (!node) return false;
    setCurrentItem(node);
    return true;
}

bool TDLDBTree::SelectObject(const QString& AliasName, const QString& ObjectName) {
    QTreeWidgetItem* database = FindNodeByAliasName(AliasName);
    if (!database) return false;
    if (ObjectName.isEmpty()) return SelectDatabase(AliasName);
    // The metadata resolves a bare name as the engine does and knows every
    // spelling of it; the node holds the name as the metadata writes it.
    const TDLSQLiteMetadata* metadata = FMetaList.FindMetadataByAliasName(AliasName);
    const TMetadataBaseItem* object = metadata ? metadata->FindObject(ObjectName) : nullptr;
    QTreeWidgetItem* node = object ? FindObjectNode(database, object->GetName()) : nullptr;
    if (!node) return false;
    setCurrentItem(node);
    scrollToItem(node);
    return true;
}

bool TDLDBTree::GetExpanded(const QString& AliasName) const {
    const QTreeWidgetItem* node = FindNodeByAliasName(AliasName);
    return node && node->isExpanded();
}

void TDLDBTree::SetExpanded(const QString& AliasName, bool Value) {
    if (QTreeWidgetItem* node = FindNodeByAliasName(AliasName)) node->setExpanded(Value);
}

QString TDLDBTree::NodeAlias(QTreeWidgetItem* Node) const {
    return Node ? Node->data(0, kAliasRole).toString() : QString();
}

TDLDBTree::TNodeKind TDLDBTree::NodeKind(QTreeWidgetItem* Node) const {
    return KindOf(Node);
}

TDLSQLiteMetadata* TDLDBTree::NodeMetadata(QTreeWidgetItem* Node) const {
    return Node ? FMetaList.FindMetadataByAliasName(NodeAlias(Node)) : nullptr;
}

TMetadataBaseItem* TDLDBTree::NodeObject(QTreeWidgetItem* Node) const {
    TNodeKind kind = KindOf(Node);
    if (kind == nkIndex || kind == nkTrigger) {
        Node = Node->parent();
        kind = KindOf(Node);
    }
    if (!IsObjectKind(kind)) return nullptr;
    const TDLSQLiteMetadata* metadata = NodeMetadata(Node);
    if (!metadata) return nullptr;
    const QString name = NameOf(Node);
    TMetadataBaseItem* object = kind == nkTable ? static_cast<TMetadataBaseItem*>(metadata->FindTable(name))
                                                : static_cast<TMetadataBaseItem*>(metadata->FindView(name));
    // Lookups ignore case; an object renamed in case is another object.
    return object && object->GetName() == name ? object : nullptr;
}

// ---------------------------------------------------------------------------
// Record counts

void TDLDBTree::UpdateRecordCounts() {
    if (!FShowRecordCounts) return;
    for (int i = 0; i < FMetaList.GetMetadataCount(); ++i) {
        TDLSQLiteMetadata& metadata = FMetaList.GetMetadata(i);
        const TDLSQLiteDatabase* database = metadata.SQLiteDatabase();
        if (database && database->Connected()) metadata.UpdateRecordCounts();
    }
}

void TDLDBTree::RecordCountArrived(TDLSQLiteMetadata& Metadata, TMetadataBaseItem& Object) {
    if (!FShowRecordCounts) return;
    const TDLSQLiteDatabase* database = Metadata.SQLiteDatabase();
    if (!database) return;
    QTreeWidgetItem* node = FindObjectNode(FindNodeByAliasName(database->AliasName()), Object.GetName());
    if (node && KindOf(node) == ObjectKind(Object)) node->setText(0, ObjectText(Object));
}

void TDLDBTree::SetShowRecordCounts(bool Value) {
    if (FShowRecordCounts == Value) return;
    FShowRecordCounts = Value;
    ForEachObjectNode([this](QTreeWidgetItem& Node) {
        TMetadataBaseItem* object = NodeObject(&Node);
        Node.setText(0, object ? ObjectText(*object) : BareName(NameOf(&Node)));
    });
}

void TDLDBTree::SetShowShadowTables(bool Value) {
    if (FShowShadowTables == Value) return;
    FShowShadowTables = Value;
    FNeedFullRefresh = true;
}

void TDLDBTree::Hook(TDLSQLiteMetadata& Metadata) {
    const auto* hook = Metadata.FOnRecordCount.target<TRecordCountHook>();
    if (hook && hook->Tree == this) return;
    Metadata.FOnRecordCount = TRecordCountHook{this, &Metadata, std::move(Metadata.FOnRecordCount)};
}

void TDLDBTree::Unhook(TDLSQLiteMetadata& Metadata) {
    const auto* hook = Metadata.FOnRecordCount.target<TRecordCountHook>();
    if (!hook || hook->Tree != this) return;
    auto previous = hook->Previous;  // the assignment frees the hook
    Metadata.FOnRecordCount = std::move(previous);
}

// ---------------------------------------------------------------------------
// Update bracket and drops

void TDLDBTree::BeginUpdate() {
    if (FUpdateCount++ == 0) setUpdatesEnabled(false);
}

void TDLDBTree::EndUpdate() {
    if (FUpdateCount > 0 && --FUpdateCount == 0) setUpdatesEnabled(true);
}

QStringList TDLDBTree::DroppedFiles(const QMimeData* Data) {
    QStringList files;
    if (!Data || !Data->hasUrls()) return files;
    for (const QUrl& url : Data->urls())
        if (url.isLocalFile()) files << url.toLocalFile();
    return files;
}

void TDLDBTree::dragEnterEvent(QDragEnterEvent* Event) {
    if (DroppedFiles(Event->mimeData()).isEmpty())
        QTreeWidget::dragEnterEvent(Event);
    else
        Event->acceptProposedAction();
}

void TDLDBTree::dragMoveEvent(QDragMoveEvent* Event) {
    if (DroppedFiles(Event->mimeData()).isEmpty())
        QTreeWidget::dragMoveEvent(Event);
    else
        Event->acceptProposedAction();
}

void TDLDBTree::dropEvent(QDropEvent* Event) {
    const QStringList files = DroppedFiles(Event->mimeData());
    if (files.isEmpty()) {
        QTreeWidget::dropEvent(Event);
        return;
    }
    Event->acceptProposedAction();
    emit FilesDropped(files);
}

}  // namespace brindle
