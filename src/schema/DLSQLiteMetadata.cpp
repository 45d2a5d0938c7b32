#include "DLSQLiteMetadata.h"

#include "DLSQLiteParser.h"
#include "engine/DLQueryQueue.h"
#include "engine/DLQuoteTools.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"

#include <algorithm>
#include <array>
#include <map>
#include <unordered_map>

namespace brindle {

namespace {

QString Unquoted(const QString& Name) {
    return UnQuoteIdentifier(Name);
}

void SplitName(const QString& QualifiedName, QString& DatabaseName, QString& ObjectName) {
    SplitObjectName(QualifiedName, DatabaseName, ObjectName);
}

// The rows of one statement, read straight from the engine: the catalogue
// questions are many and small, and a result set of strings for each would
// cost more than the questions themselves. Failures take the database's
// road to an exception.
class TRows {
public:
    TRows(TDLSQLiteDatabase& Database, const QString& SQL) : FDatabase(Database), FSQL(SQL) {
        Database.InternalPrepare(SQL, FStmt);
    }
    ~TRows() {
        if (FStmt) SQLite3Driver->sqlite3_finalize(FStmt);
    }
    TRows(const TRows&) = delete;
    TRows& operator=(const TRows&) = delete;

    bool Next() {
        return FStmt && FDatabase.SQLiteCheck(SQLite3Driver->sqlite3_step(FStmt), FSQL) == SQLITE_ROW;
    }
    // Null reads as the empty string.
    QString Text(int Column) const {
        if (FDatabase.Unicode()) {
            const void* p = SQLite3Driver->sqlite3_column_text16(FStmt, Column);
            const int bytes = SQLite3Driver->sqlite3_column_bytes16(FStmt, Column);
            return p ? QString::fromUtf16(static_cast<const char16_t*>(p), bytes / 2) : QString();
        }
        const unsigned char* p = SQLite3Driver->sqlite3_column_text(FStmt, Column);
        return p ? QString::fromLocal8Bit(reinterpret_cast<const char*>(p)) : QString();
    }
    int Int(int Column) const { return SQLite3Driver->sqlite3_column_int(FStmt, Column); }
    bool IsNull(int Column) const { return SQLite3Driver->sqlite3_column_type(FStmt, Column) == SQLITE_NULL; }
    // The column's number by name, -1 when the result has none such (older
    // engines give fewer columns).
    int ColumnIndex(const char* Name) const {
        const int n = FStmt ? SQLite3Driver->sqlite3_column_count(FStmt) : 0;
        for (int i = 0; i < n; ++i)
            if (qstricmp(SQLite3Driver->sqlite3_column_name(FStmt, i), Name) == 0) return i;
        return -1;
    }

private:
    TDLSQLiteDatabase& FDatabase;
    QString FSQL;
    sqlite3_stmt* FStmt = nullptr;
};

bool LibraryAtLeast(int Major, int Minor) {
    const QStringList parts = SQLite3Driver->sqlite3drv_libversion().split(u'.');
    const int major = parts.value(0).toInt(), minor = parts.value(1).toInt();
    return major > Major || (major == Major && minor >= Minor);
}

bool SameText(const QString& A, const char* B) {
    return A.compare(QLatin1String(B), Qt::CaseInsensitive) == 0;
}

}  // namespace

// One reading of the master tables of every database of the connection.
struct TSQLiteCatalogueObject {
    QString Type, Name, TableName, SQL;
};

struct TSQLiteCatalogueSchema {
    QString Name;  // as the connection lists it
    QString FoldedName;
    std::vector<TSQLiteCatalogueObject> Objects;            // in the catalogue's order
    std::unordered_map<QString, int> ByName;                // folded name
    std::unordered_map<QString, std::vector<int>> ByTable;  // folded tbl_name: indexes and triggers

    const TSQLiteCatalogueObject* Find(const QString& Name, const char* Type) const {
        const auto it = ByName.find(FoldName(Name));
        if (it == ByName.end()) return nullptr;
        const TSQLiteCatalogueObject& o = Objects[static_cast<size_t>(it->second)];
        return !Type || o.Type == QLatin1String(Type) ? &o : nullptr;
    }
};

struct TSQLiteCatalogue {
    std::vector<TSQLiteCatalogueSchema> Schemas;
    bool HasTableXInfo = false;
    // The declared type's word, size and precision, by declared type.
    std::unordered_map<QString, std::array<QString, 3>> TypeParts;
    // The database of each temporary trigger's table, folded, by trigger.
    std::unordered_map<QString, QString> TemporaryTriggerDatabase;

    // By name; empty means main.
    const TSQLiteCatalogueSchema* Schema(const QString& DatabaseName) const {
        const QString key = DatabaseName.isEmpty() ? QStringLiteral("main") : FoldName(DatabaseName);
        for (const auto& s : Schemas)
            if (s.FoldedName == key) return &s;
        return nullptr;
    }
    // The engine's order for a name without database: temp, main, the rest.
    std::vector<const TSQLiteCatalogueSchema*> ResolutionOrder() const {
        std::vector<const TSQLiteCatalogueSchema*> order;
        for (const char* first : {"temp", "main"})
            if (const auto* s = Schema(QLatin1String(first))) order.push_back(s);
        for (const auto& s : Schemas)
            if (std::find(order.begin(), order.end(), &s) == order.end()) order.push_back(&s);
        return order;
    }
    // The object with the qualified name; an unqualified name resolves as
    // the engine does.
    const TSQLiteCatalogueObject* Find(const QString& QualifiedName, const char* Type,
                                       const TSQLiteCatalogueSchema** Owner = nullptr) const {
        QString db, name;
        SplitName(QualifiedName, db, name);
        std::vector<const TSQLiteCatalogueSchema*> schemas;
        if (db.isEmpty())
            schemas = ResolutionOrder();
        else if (const auto* s = Schema(db))
            schemas.push_back(s);
        for (const auto* s : schemas) {
            if (const TSQLiteCatalogueObject* o = s->Find(name, Type)) {
                if (Owner) *Owner = s;
                return o;
            }
        }
        return nullptr;
    }

    // Which database's table a temporary trigger hangs on: the one its text
    // names, or else the first that has a table or view of that name.
    QString TriggerDatabase(const TSQLiteCatalogueObject& Trigger) {
        const QString key = FoldName(Trigger.Name);
        const auto it = TemporaryTriggerDatabase.find(key);
        if (it != TemporaryTriggerDatabase.end()) return it->second;
        QString db = Unquoted(GetParser(Trigger.SQL).GetTriggerDatabaseName());
        if (db.isEmpty()) {
            db = QStringLiteral("main");
            for (const auto* s : ResolutionOrder()) {
                const TSQLiteCatalogueObject* o = s->Find(Trigger.TableName, nullptr);
                if (o && (o->Type == u"table" || o->Type == u"view")) {
                    db = s->Name;
                    break;
                }
            }
        }
        return TemporaryTriggerDatabase[key] = FoldName(db);
    }
};

// The parser's answers on a table's text; each part remembers the text it
// was taken from.
struct TSQLiteParsedTable {
    QString KindSQL;  // the kind of table
    QString FieldsSQL;
    std::unordered_map<QString, TSQLFieldRec> Fields;  // by folded name
    QString ConstraintsSQL[3];                         // unique, check, foreign keys
};

namespace {

TSQLiteCatalogue ReadCatalogue(TDLSQLiteDatabase& Database) {
    TSQLiteCatalogue catalogue;
    // Before 3.26 there is no table_xinfo, and an unknown pragma answers
    // with no rows rather than an error.
    catalogue.HasTableXInfo = LibraryAtLeast(3, 26);
    QStringList names;
    {
        TRows rows(Database, QStringLiteral("pragma database_list"));
        while (rows.Next()) names << rows.Text(1);
    }
    for (const QString& name : names) {
        TSQLiteCatalogueSchema schema;
        schema.Name = name;
        schema.FoldedName = FoldName(name);
        const QString master = FoldName(name) == u"temp" ? QStringLiteral("sqlite_temp_master")
                                                         : QuoteSQLName(name) + QStringLiteral(".sqlite_master");
        TRows rows(Database, QStringLiteral("select type, name, tbl_name, sql from ") + master);
        while (rows.Next()) {
            TSQLiteCatalogueObject o{rows.Text(0), rows.Text(1), rows.Text(2), rows.Text(3)};
            const int index = static_cast<int>(schema.Objects.size());
            schema.ByName.emplace(FoldName(o.Name), index);
            if (o.Type == u"index" || o.Type == u"trigger")
                schema.ByTable[FoldName(o.TableName)].push_back(index);
            schema.Objects.push_back(std::move(o));
        }
        catalogue.Schemas.push_back(std::move(schema));
    }
    return catalogue;
}

TDLSQLiteDatabase& Connection(TDLSQLiteMetadata& Metadata) {
    TDLSQLiteDatabase* db = Metadata.SQLiteDatabase();
    if (!db) throw ECustomException(QStringLiteral("Database not connected."));
    return *db;
}

QString PragmaFor(const QString& QualifiedName, const char* Pragma) {
    QString db, name;
    SplitName(QualifiedName, db, name);
    return PragmaSQL(db, Pragma, name);
}

}  // namespace

// ---------------------------------------------------------------------------
// Indexes

std::unique_ptr<TBaseIndexFieldInfo> TSQLiteIndexInfo::CreateIndexFieldInfo() {
    return std::make_unique<TSQLiteIndexFieldInfo>();
}

void TSQLiteIndexInfo::GetIndexFields(QStringList& Fields) {
    auto& table = static_cast<TSQLiteTableInfo&>(*FTable);
    if (FIndexName.isEmpty()) {
        // The rowid is the key: its columns are those table_info marks.
        std::vector<std::pair<int, QString>> key;
        for (int i = 0; i < table.FieldCount(); ++i)
            if (table.Field(i).FPrimaryKey > 0)
                key.emplace_back(table.Field(i).FPrimaryKey, table.Field(i).FFieldName);
        std::stable_sort(key.begin(), key.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        for (const auto& k : key) Fields << k.second;
        return;
    }
    FEngineColumns.clear();
    // Since 3.9 the engine tells each column's collation and order itself.
    const bool xinfo = LibraryAtLeast(3, 9);
    TRows rows(Connection(table.Metadata()),
               PragmaSQL(table.FDatabaseName, xinfo ? "index_xinfo" : "index_info", FIndexName));
    while (rows.Next()) {
        if (xinfo && rows.Int(5) == 0) continue;  // the rowid or key behind the indexed columns
        Fields << rows.Text(2);
        if (xinfo) FEngineColumns.push_back({rows.Text(4), rows.Int(3) != 0});
    }
}

TSQLiteIndexInfo::~TSQLiteIndexInfo() = default;

bool TSQLiteIndexInfo::IndexFieldsCurrent(const QStringList& Fields) {
    const QString& keySQL = (FOptions & ixPrimary) ? FTable->FSQL : QString();
    if (FReadOptions != FOptions || FReadSQL != FSQL || FReadKeySQL != keySQL ||
        IndexFieldCount() != Fields.size())
        return false;
    for (int i = 0; i < IndexFieldCount(); ++i)
        if (IndexFields(i).FFieldName != Fields[i]) return false;
    FOptions = FReadResultOptions;
    return true;
}

void TSQLiteIndexInfo::InitIndexFields() {
    auto& table = static_cast<TSQLiteTableInfo&>(*FTable);
    FReadOptions = -1;
    const int options = FOptions;
    struct TRemember {
        TSQLiteIndexInfo& Index;
        int Options;
        // Only columns read to the end are remembered as read.
        void operator()() {
            Index.FReadSQL = Index.FSQL;
            Index.FReadKeySQL = (Options & ixPrimary) ? Index.FTable->FSQL : QString();
            Index.FReadOptions = Options;
            Index.FReadResultOptions = Index.FOptions;
        }
    } remember{*this, options};
    TPrimaryKeyRec key;
    FConflictClause.clear();
    if (FOptions & ixPrimary) {
        key = GetPrimaryKeyOptions(table.FSQL);
        FConflictClause = key.ConflictClause;
    }
    FWhereClause.clear();
    if (FSQL.isEmpty() && !(FOptions & ixPrimary)) {
        remember();  // the engine's own index for a constraint
        return;
    }
    // The key's record is taken first: the parser of the index's text is
    // then asked all the rest.
    TSQLParser* parser = FSQL.isEmpty() ? nullptr : &GetParser(FSQL);
    if (parser) FWhereClause = parser->GetIndexWhereClause();
    std::vector<TIndexColumnRec> texts;
    for (int i = 0; i < IndexFieldCount(); ++i) {
        TSQLiteIndexFieldInfo& f = Field(i);
        const size_t place = static_cast<size_t>(i);
        if ((FOptions & ixPrimary) && place < key.Fields.size()) {
            f.FCollate = key.Fields[place].Collate;
            f.FAutoincrement = key.Fields[place].Autoincrement;
            // A key that is the rowid has no order of its own: a DESC in its
            // table constraint changes nothing (only on the column's line
            // does DESC make an INTEGER key no rowid, and then it has an
            // index).
            f.FSortOrder = FIndexName.isEmpty() ? QString() : key.Fields[place].SortOrder;
        } else if (parser && !f.FFieldName.isEmpty() && place < FEngineColumns.size()) {
            const TBaseFieldInfo* column = table.FindField(f.FFieldName);
            IndexColumnOptions(FSQL, i, FEngineColumns[place].Collation, FEngineColumns[place].Descending,
                               column ? static_cast<const TSQLiteFieldInfo*>(column)->FCollate : QString(),
                               f.FCollate, f.FSortOrder);
        } else if (parser && !f.FFieldName.isEmpty()) {
            f.FCollate = parser->GetIndexCollateOption(f.FFieldName);
            f.FSortOrder = parser->GetIndexFieldSortOrder(f.FFieldName);
        } else if (parser) {
            // An expression has no name to look for; its place in the list
            // finds it.
            FOptions |= ixExpression;
            if (texts.empty()) texts = parser->GetIndexColumns();
            if (place < texts.size()) {
                f.FExpression = texts[place].Expression;
                f.FCollate = texts[place].Collate;
                f.FSortOrder = texts[place].SortOrder;
            }
        }
    }
    remember();
}

// ---------------------------------------------------------------------------
// Tables

TSQLiteTableInfo::TSQLiteTableInfo(TDLSQLiteMetadata* Metadata, const QString& TableName)
    : TDLTableInfo(Metadata, TableName), FParsed(std::make_unique<TSQLiteParsedTable>()) {
    SplitName(TableName, FDatabaseName, FObjectName);
}

TSQLiteTableInfo::~TSQLiteTableInfo() = default;

TDLSQLiteMetadata& TSQLiteTableInfo::Metadata() const {
    return static_cast<TDLSQLiteMetadata&>(*FMetadata);
}

std::unique_ptr<TBaseFieldInfo> TSQLiteTableInfo::CreateFieldInfo() {
    return std::make_unique<TSQLiteFieldInfo>();
}

std::unique_ptr<TBaseIndexInfo> TSQLiteTableInfo::CreateIndexInfo() {
    return std::make_unique<TSQLiteIndexInfo>(this);
}

void TSQLiteTableInfo::RefreshSchema() {
    // A table refreshed by itself reads the catalogue for itself; within a
    // refresh of the whole this is the refresh's reading.
    TDLSQLiteMetadata::TCatalogueScope scope(Metadata());
    TDLTableInfo::RefreshSchema();
}

void TSQLiteTableInfo::RefreshDDL() {
    TDLTableInfo::RefreshDDL();
    FIsShadow = false;
    if (FParsed->KindSQL == FSQL && !FSQL.isEmpty()) return;
    FParsed->KindSQL.clear();
    // The kind of table decides what else there is to read, so it is known
    // before the columns.
    TSQLParser& parser = GetParser(FSQL);
    FIsWithoutRowID = parser.IsWithoutRowid();
    FIsVirtual = parser.SQLCommand() == stCreateVirtualTable;
    FModuleName.clear();
    FModuleArguments.clear();
    if (FIsVirtual) {
        const TVirtualTableRec rec = parser.GetVirtualTableRec();
        FModuleName = rec.ModuleName;
        FModuleArguments = rec.ModuleArguments;
    }
    FParsed->KindSQL = FSQL;
}

void TSQLiteTableInfo::GetFields() {
    std::vector<std::unique_ptr<TBaseFieldInfo>> old = std::move(FFields);
    FFields.clear();
    TDLSQLiteMetadata::TCatalogueScope scope(Metadata());
    TSQLiteCatalogue& catalogue = Metadata().Catalogue();
    TDLSQLiteDatabase& db = Connection(Metadata());
    const bool xinfo = catalogue.HasTableXInfo;
    // table_info leaves generated columns out, which would shift every
    // column behind them.
    TRows rows(db, PragmaSQL(FDatabaseName, xinfo ? "table_xinfo" : "table_info", FObjectName));
    if (FParsed->FieldsSQL != FSQL || FSQL.isEmpty()) {
        FParsed->FieldsSQL.clear();
        FParsed->Fields.clear();
        for (auto& [name, rec] : GetParser(FSQL).GetSQLFieldInfos())
            FParsed->Fields.emplace(FoldName(name), std::move(rec));
        FParsed->FieldsSQL = FSQL;
    }
    const std::unordered_map<QString, TSQLFieldRec>& parsed = FParsed->Fields;
    while (rows.Next()) {
        const int hidden = xinfo ? rows.Int(6) : 0;
        if (hidden == 1) continue;  // a virtual table's hidden column
        const QString name = rows.Text(1);
        std::unique_ptr<TBaseFieldInfo> base =
            TakeItem(old, FFields.size(), [&name](const TBaseFieldInfo& f) { return f.FFieldName == name; });
        if (!base) base = CreateFieldInfo();
        auto* field = static_cast<TSQLiteFieldInfo*>(base.get());
        field->FFieldName = name;
        field->FFullSQLType = rows.Text(2);
        auto parts = catalogue.TypeParts.find(field->FFullSQLType);
        if (parts == catalogue.TypeParts.end()) {
            std::array<QString, 3> p;
            db.SQLStrToDataType(field->FFullSQLType, p[0], p[1], p[2]);
            for (QString& part : p) part = part.trimmed();  // "NUMERIC(10, 2)" gives " 2"
            parts = catalogue.TypeParts.emplace(field->FFullSQLType, p).first;
        }
        field->FSQLType = parts->second[0];
        field->FSize = parts->second[1];
        field->FPrecision = parts->second[2];
        field->FDefaultValue = rows.Text(4);
        field->FPrimaryKey = rows.Int(5);
        field->FGenerated = hidden == 2 || hidden == 3;
        // Not null follows the text: the key of a table without rowid is
        // reported not null without the text saying so.
        const auto info = parsed.find(FoldName(field->FFieldName));
        const bool known = info != parsed.end();
        field->FNotNull = known && info->second.NotNull;
        field->FNotNullConflictClause = known ? info->second.NotNullConflictClause : QString();
        field->FCollate = known ? info->second.Collate : QString();
        FFields.push_back(std::move(base));
    }
}

void TSQLiteTableInfo::GetIndexes() {
    std::vector<std::unique_ptr<TBaseIndexInfo>> old = std::move(FIndexes);
    FIndexes.clear();
    if (FIsVirtual) return;  // a virtual table cannot be indexed
    QStringList key;
    bool integerKey = false;
    for (int i = 0; i < FieldCount(); ++i) {
        if (Field(i).FPrimaryKey == 0) continue;
        key << Field(i).FFieldName;
        integerKey = SameText(Field(i).FFullSQLType, "INTEGER");
    }
    integerKey = integerKey && key.size() == 1;

    struct TRec {
        QString Name;
        int Options;
    };
    std::vector<TRec> recs;
    QString keyIndex;
    bool keyIndexFound = false;
    {
        TRows rows(Connection(Metadata()), PragmaSQL(FDatabaseName, "index_list", FObjectName));
        const int nameColumn = rows.ColumnIndex("name"), uniqueColumn = rows.ColumnIndex("unique"),
                  originColumn = rows.ColumnIndex("origin");
        while (rows.Next()) {
            const QString name = rows.Text(nameColumn);
            // Engines before 3.8.9 do not tell which index stems from the
            // key; the first automatic one is the best guess there.
            const bool isKey = originColumn >= 0
                                   ? rows.Text(originColumn) == u"pk"
                                   : !integerKey && name.startsWith(QLatin1String("sqlite_autoindex_"));
            if (!key.isEmpty() && isKey && !keyIndexFound) {
                keyIndex = name;
                keyIndexFound = true;
                continue;
            }
            recs.push_back({name, rows.Int(uniqueColumn) ? int(ixUnique) : 0});
        }
    }
    std::stable_sort(recs.begin(), recs.end(), [](const TRec& a, const TRec& b) {
        return a.Name.compare(b.Name, Qt::CaseInsensitive) < 0;
    });
    if (!key.isEmpty()) recs.insert(recs.begin(), {keyIndex, ixPrimary | ixUnique});
    for (const TRec& rec : recs) {
        std::unique_ptr<TBaseIndexInfo> index = TakeItem(
            old, FIndexes.size(), [&rec](const TBaseIndexInfo& i) { return i.FIndexName == rec.Name; });
        if (!index) index = CreateIndexInfo();
        index->FIndexName = rec.Name;
        index->FOptions = rec.Options;
        index->RefreshSchema();
        FIndexes.push_back(std::move(index));
    }
}

void TSQLiteTableInfo::GetUniqueConstraints() {
    // The items stay as they are while the text does.
    if (FParsed->ConstraintsSQL[0] == FSQL && !FSQL.isEmpty()) return;
    FParsed->ConstraintsSQL[0].clear();
    FUniqueConstraints.clear();
    for (const TUniqueConstraintRec& rec : GetParser(FSQL).GetUniqueConstraints()) {
        auto info = std::make_unique<TBaseUniqueConstraintInfo>();
        info->FConstraintName = rec.ConstraintName;
        info->FFields = rec.Fields;
        info->FConflictClause = rec.ConflictClause;
        FUniqueConstraints.push_back(std::move(info));
    }
    FParsed->ConstraintsSQL[0] = FSQL;
}

void TSQLiteTableInfo::GetCheckConstraints() {
    // The items stay as they are while the text does.
    if (FParsed->ConstraintsSQL[1] == FSQL && !FSQL.isEmpty()) return;
    FParsed->ConstraintsSQL[1].clear();
    FCheckConstraints.clear();
    for (const TCheckConstraintRec& rec : GetParser(FSQL).GetCheckConstraints()) {
        auto info = std::make_unique<TBaseCheckConstraintInfo>();
        info->FConstraintName = rec.ConstraintName;
        info->FExpression = rec.Expression;
        FCheckConstraints.push_back(std::move(info));
    }
    FParsed->ConstraintsSQL[1] = FSQL;
}

void TSQLiteTableInfo::GetForeignKeys() {
    // The items stay as they are while the text does.
    if (FParsed->ConstraintsSQL[2] == FSQL && !FSQL.isEmpty()) return;
    FParsed->ConstraintsSQL[2].clear();
    FForeignKeys.clear();
    for (const TForeignKeyRec& rec : GetParser(FSQL).GetForeignKeys()) {
        auto info = std::make_unique<TBaseForeignKeyInfo>();
        info->FConstraintName = rec.ConstraintName;
        info->FChildKey = rec.ChildKey;
        info->FParentKey = rec.ParentKey;
        info->FParentTableName = rec.ParentTableName;
        info->FOnDeleteAction = rec.OnDeleteAction;
        info->FOnUpdateAction = rec.OnUpdateAction;
        info->FMatchName = rec.MatchName;
        info->FDeferrable = rec.Deferrable;
        info->FInitially = rec.Initially;
        info->FChildTableName = FTableName;
        FForeignKeys.push_back(std::move(info));
    }
    FParsed->ConstraintsSQL[2] = FSQL;
}

void TSQLiteTableInfo::GetReferences() {
    FReferences.clear();
    QString db, name;
    SplitName(FTableName, db, name);
    // Sorted, without duplicates.
    std::map<QString, QString> parents;
    for (const auto& key : FForeignKeys) {
        const QString parent = QuoteObjectIfNeeded(db, key->FParentTableName);
        parents.emplace(FoldName(parent), parent);
    }
    for (const auto& [folded, parent] : parents)
        if (TBaseTableInfo* t = FMetadata->FindTable(parent)) FReferences.push_back(t);
}

// ---------------------------------------------------------------------------
// Views

TSQLiteViewInfo::TSQLiteViewInfo(TDLSQLiteMetadata* Metadata, const QString& ViewName)
    : TDLViewInfo(Metadata, ViewName) {}

TDLSQLiteMetadata& TSQLiteViewInfo::Metadata() const {
    return static_cast<TDLSQLiteMetadata&>(*FMetadata);
}

void TSQLiteViewInfo::RefreshSchema() {
    TDLSQLiteMetadata::TCatalogueScope scope(Metadata());
    TDLViewInfo::RefreshSchema();
}

void TSQLiteViewInfo::GetFields() {
    std::vector<std::unique_ptr<TBaseFieldInfo>> old = std::move(FFields);
    FFields.clear();
    TRows rows(Connection(Metadata()), PragmaFor(FViewName, "table_info"));
    while (rows.Next()) {
        const QString name = rows.Text(1);
        std::unique_ptr<TBaseFieldInfo> field =
            TakeItem(old, FFields.size(), [&name](const TBaseFieldInfo& f) { return f.FFieldName == name; });
        if (!field) field = CreateFieldInfo();
        field->FFieldName = name;
        field->FFullSQLType = rows.Text(2);
        Connection(Metadata())
            .SQLStrToDataType(field->FFullSQLType, field->FSQLType, field->FSize, field->FPrecision);
        field->FSize = field->FSize.trimmed();
        field->FPrecision = field->FPrecision.trimmed();
        field->FNotNull = rows.Int(3) != 0;
        field->FDefaultValue = rows.Text(4);
        FFields.push_back(std::move(field));
    }
}

void TSQLiteViewInfo::GetReferences() {
    FReferences.clear();
    QString viewDb, viewName;
    SplitName(FViewName, viewDb, viewName);
    const bool temporary = IsTemporary();
    const QString select = GetViewRec(FSQL).AsClause;
    TSQLParser& parser = GetParser(select);
    QStringList names;
    for (int i = parser.IndexOf(stTableName); i >= 0; i = parser.IndexOf(stTableName, i + 1)) {
        const QString table = Unquoted(parser.SQLTokens(i)->FValue);
        QString db;
        if (i >= 2 && parser.SQLTokens(i - 1)->FSQLToken == stDot &&
            parser.SQLTokens(i - 2)->FSQLToken == stDatabaseName)
            db = Unquoted(parser.SQLTokens(i - 2)->FValue);
        // A view kept in a database sees only that database's objects; a
        // temporary one sees everything, the way the engine resolves names.
        if (db.isEmpty() && !temporary) db = viewDb;
        names << (db.isEmpty() ? QuoteIdentifierIfNeeded(table) : QuoteObjectIfNeeded(db, table));
    }
    for (const QString& n : names) {
        TMetadataBaseItem* item = FMetadata->FindTable(n);
        if (!item) item = FMetadata->FindView(n);
        if (item && item != this &&
            std::find(FReferences.begin(), FReferences.end(), item) == FReferences.end())
            FReferences.push_back(item);
    }
}

// ---------------------------------------------------------------------------
// The metadata

TDLSQLiteMetadata::TDLSQLiteMetadata(TDLSQLiteDatabase* Database) : TDLMetadata(Database) {}

TDLSQLiteMetadata::~TDLSQLiteMetadata() = default;

TDLSQLiteDatabase* TDLSQLiteMetadata::SQLiteDatabase() const {
    return static_cast<TDLSQLiteDatabase*>(Database());
}

void TDLSQLiteMetadata::SetDatabase(TDLSQLiteDatabase* Database) {
    TDLMetadata::SetDatabase(Database);
}

TSQLiteTableInfo* TDLSQLiteMetadata::FindSQLiteTable(const QString& Name) const {
    return static_cast<TSQLiteTableInfo*>(FindTable(Name));
}

TDLSQLiteMetadata::TCatalogueScope::TCatalogueScope(TDLSQLiteMetadata& Metadata) : FMetadata(Metadata) {
    if (FMetadata.FCatalogueDepth == 0)
        FMetadata.FCatalogue = std::make_unique<TSQLiteCatalogue>(ReadCatalogue(Connection(FMetadata)));
    ++FMetadata.FCatalogueDepth;
}

TDLSQLiteMetadata::TCatalogueScope::~TCatalogueScope() {
    // Outside a refresh the next question reads the catalogue afresh, so a
    // change of another connection is seen.
    if (--FMetadata.FCatalogueDepth == 0) FMetadata.FCatalogue.reset();
}

TSQLiteCatalogue& TDLSQLiteMetadata::Catalogue() {
    return *FCatalogue;
}

void TDLSQLiteMetadata::RefreshSchema() {
    TCatalogueScope scope(*this);
    TDLMetadata::RefreshSchema();
}

void TDLSQLiteMetadata::RefreshTables() {
    TCatalogueScope scope(*this);
    try {
        TDLMetadata::RefreshTables();
    } catch (const ECustomException&) {
        MarkShadowTables();
        throw;
    }
    MarkShadowTables();
}

void TDLSQLiteMetadata::RefreshViews() {
    TCatalogueScope scope(*this);
    TDLMetadata::RefreshViews();
}

void TDLSQLiteMetadata::MarkShadowTables() {
    for (int i = 0; i < TableCount(); ++i) {
        const TSQLiteTableInfo& t = SQLiteTables(i);
        if (!t.FIsVirtual) continue;
        // The tables each module makes to hold its data. A user's table
        // that merely looks like one (an "_stat" beside an fts3 table) is
        // not marked.
        std::vector<const char*> suffixes;
        if (SameText(t.FModuleName, "fts3") || SameText(t.FModuleName, "fts4"))
            suffixes = {"_content", "_segdir", "_segments"};
        if (SameText(t.FModuleName, "fts4")) suffixes.insert(suffixes.end(), {"_stat", "_docsize"});
        if (SameText(t.FModuleName, "fts5")) suffixes = {"_data", "_idx", "_content", "_docsize", "_config"};
        if (SameText(t.FModuleName, "rtree") || SameText(t.FModuleName, "rtree_i32"))
            suffixes = {"_node", "_rowid", "_parent"};
        QString db, name;
        SplitName(t.FTableName, db, name);
        for (const char* suffix : suffixes)
            if (TSQLiteTableInfo* shadow =
                    FindSQLiteTable(QuoteObjectIfNeeded(db, name + QLatin1String(suffix))))
                shadow->FIsShadow = true;
    }
}

void TDLSQLiteMetadata::GetTableNames(QStringList& List, bool IncludeSystemTables) {
    TCatalogueScope scope(*this);
    for (const TSQLiteCatalogueSchema& s : FCatalogue->Schemas) {
        std::vector<const TSQLiteCatalogueObject*> tables;
        for (const TSQLiteCatalogueObject& o : s.Objects)
            if (o.Type == u"table" && (IncludeSystemTables || !IsSystemTable(o.Name))) tables.push_back(&o);
        std::sort(tables.begin(), tables.end(), [](const auto* a, const auto* b) {
            const int c = a->Name.compare(b->Name, Qt::CaseInsensitive);
            return c != 0 ? c < 0 : a->Name < b->Name;
        });
        for (const auto* o : tables) List << QuoteObjectIfNeeded(s.Name, o->Name);
    }
}

void TDLSQLiteMetadata::GetViewNames(QStringList& List) {
    TCatalogueScope scope(*this);
    for (const TSQLiteCatalogueSchema& s : FCatalogue->Schemas) {
        std::vector<const TSQLiteCatalogueObject*> views;
        for (const TSQLiteCatalogueObject& o : s.Objects)
            if (o.Type == u"view") views.push_back(&o);
        std::sort(views.begin(), views.end(), [](const auto* a, const auto* b) {
            const int c = a->Name.compare(b->Name, Qt::CaseInsensitive);
            return c != 0 ? c < 0 : a->Name < b->Name;
        });
        for (const auto* o : views) List << QuoteObjectIfNeeded(s.Name, o->Name);
    }
}

QString TDLSQLiteMetadata::GetTableDDL(const QString& TableName) {
    TCatalogueScope scope(*this);
    const TSQLiteCatalogueObject* o = FCatalogue->Find(TableName, "table");
    return o ? o->SQL : QString();
}

QString TDLSQLiteMetadata::GetViewDDL(const QString& ViewName) {
    TCatalogueScope scope(*this);
    const TSQLiteCatalogueObject* o = FCatalogue->Find(ViewName, "view");
    return o ? o->SQL : QString();
}

QString TDLSQLiteMetadata::GetIndexDDL(const QString& TableName, const QString& IndexName) {
    TCatalogueScope scope(*this);
    QString db, name;
    SplitName(TableName, db, name);
    const TSQLiteCatalogueObject* o = FCatalogue->Find(QuoteObjectIfNeeded(db, IndexName), "index");
    return o ? o->SQL : QString();
}

QString TDLSQLiteMetadata::GetTriggerDDL(const QString& OwnerName, const QString& TriggerName,
                                         bool IsTemporary) {
    TCatalogueScope scope(*this);
    QString db, name;
    SplitName(OwnerName, db, name);
    const TSQLiteCatalogueObject* o = FCatalogue->Find(
        QuoteObjectIfNeeded(IsTemporary ? QStringLiteral("temp") : db, TriggerName), "trigger");
    return o ? o->SQL : QString();
}

void TDLSQLiteMetadata::GetTriggerNames(const QString& OwnerName, QStringList& List) {
    TCatalogueScope scope(*this);
    QString db, name;
    SplitName(OwnerName, db, name);
    // A temporary table's triggers are all temporary ones.
    if (FoldName(db) == u"temp") return;
    const TSQLiteCatalogueSchema* s = FCatalogue->Schema(db);
    if (!s) return;
    const auto it = s->ByTable.find(FoldName(name));
    if (it == s->ByTable.end()) return;
    for (int i : it->second)
        if (s->Objects[static_cast<size_t>(i)].Type == u"trigger")
            List << s->Objects[static_cast<size_t>(i)].Name;
}

void TDLSQLiteMetadata::GetTemporaryTriggerNames(const QString& OwnerName, QStringList& List) {
    TCatalogueScope scope(*this);
    QString db, name;
    SplitName(OwnerName, db, name);
    const TSQLiteCatalogueSchema* temp = FCatalogue->Schema(QStringLiteral("temp"));
    if (!temp) return;
    const auto it = temp->ByTable.find(FoldName(name));
    if (it == temp->ByTable.end()) return;
    const QString ownerDb = FoldName(db.isEmpty() ? QStringLiteral("main") : db);
    for (int i : it->second) {
        const TSQLiteCatalogueObject& o = temp->Objects[static_cast<size_t>(i)];
        // A temporary trigger may hang on a table of any database that has
        // a table of this name; only its own counts.
        if (o.Type == u"trigger" && FCatalogue->TriggerDatabase(o) == ownerDb) List << o.Name;
    }
}

std::unique_ptr<TBaseTableInfo> TDLSQLiteMetadata::CreateTableInfo(const QString& TableName) {
    return std::make_unique<TSQLiteTableInfo>(this, TableName);
}

std::unique_ptr<TBaseViewInfo> TDLSQLiteMetadata::CreateViewInfo(const QString& ViewName) {
    return std::make_unique<TSQLiteViewInfo>(this, ViewName);
}

TTreeNodeType GetNodeType(const TMetadataBaseItem* Item) {
    if (const auto* t = dynamic_cast<const TSQLiteTableInfo*>(Item)) {
        if (t->FIsVirtual) return ntVirtualTable;
        return t->FIsShadow ? ntShadowTable : ntTable;
    }
    if (dynamic_cast<const TBaseTableInfo*>(Item)) return ntTable;
    if (dynamic_cast<const TBaseViewInfo*>(Item)) return ntView;
    return ntUnknown;
}

TRecordCounter QueryQueueRecordCounter(TDLSQLiteDatabase& Database) {
    return [&Database](const QString& ObjectName, const TRecordCountDone& Done) {
        auto countHere = [&] {
            try {
                bool ok = false;
                const qint64 n =
                    Database.GetStringValue(QStringLiteral("select count(*) from ") + QuoteObject(ObjectName)).toLongLong(&ok);
                Done(ok ? std::optional<qint64>(n) : std::nullopt);
            } catch (const std::exception&) {
                Done(std::nullopt);
            }
        };
        QString db, name;
        ParseObject(ObjectName, db, name);
        if (!db.isEmpty() && db.compare(QLatin1String("main"), Qt::CaseInsensitive) != 0) {
            countHere();
            return;
        }
        auto task = std::make_unique<TQueryTask>(
            QStringLiteral("select count(*) from ") + QuoteIdentifier(name), [Done](TThreadTask& Task) {
                const QVariant result = static_cast<TQueryTask&>(Task).Result();
                bool ok = false;
                const qint64 n = result.toLongLong(&ok);
                Done(result.isValid() && ok ? std::optional<qint64>(n) : std::nullopt);
            });
        // Nothing took it: no background connections for this database.
        if (Database.RunAsyncTask(std::move(task))) countHere();
    };
}

}  // namespace brindle
