// The readers of stored CREATE text into records, and the trigger text
// rebuilt from its record.
//
// A table's body is read as items: the runs of tokens between the commas at
// its first parenthesis level, each a column definition or a table
// constraint. Only the tokens at the item's own level count, so the names
// and words inside a check expression, a default or a type's size never
// look like constraints.

#include "DLSQLiteParser.h"

#include "DLObjectDefs.h"
#include "engine/Assert.h"
#include "engine/DLQuoteTools.h"

#include <algorithm>

namespace brindle {

// One column definition or table constraint: its tokens at its own level,
// first to last. Tokens inside its parentheses are left out, the
// parentheses themselves are kept, so that Open/Close pairs stay findable.
struct TTableItems {
    struct TItem {
        std::vector<int> Tokens;
        bool IsConstraint = false;
        int Kind = -1;  // index in Tokens of the constraint word behind CONSTRAINT name
    };
    std::vector<TItem> Items;
    int Close = -1;
};

namespace {

constexpr TSQLTokenTypes TableConstraintWords{stConstraint, stPrimaryKey, stUnique, stCheck, stForeignKey};
// Words that open a column constraint; they end the one before.
constexpr TSQLTokenTypes ColumnConstraintWords{stConstraint, stPrimaryKey, stNotNull, stNull,  stUnique,
                                               stCheck,      stDefault,    stCollate, stReferences};

using TItem = TTableItems::TItem;

class TTableReader {
public:
    explicit TTableReader(TSQLParser& Parser)
        : p(Parser), Items(Parser.TableItems().Items), Close(Parser.TableItems().Close) {}

    TSQLParser& p;
    const std::vector<TItem>& Items;
    int Close;  // the table's closing parenthesis; the token count when missing; -1 for no table

    TSQLTokenType RoleAt(int Index) const { return p.SQLTokens(Index)->FSQLToken; }
    const QString& ValueAt(int Index) const { return p.GetTokens(Index)->FValue; }
    bool IsOpen(int Index) const { return p.GetTokens(Index)->FTokenType == ttOpenParen; }

    // The value of the token behind Tokens[k] of an item, empty at the end.
    QString ValueBehind(const TItem& Item, size_t k) const {
        return k + 1 < Item.Tokens.size() ? ValueAt(Item.Tokens[k + 1]) : QString();
    }

    // The conflict word of an ON CONFLICT at Tokens[k], empty otherwise.
    QString ConflictAt(const TItem& Item, size_t k) const {
        return RoleAt(Item.Tokens[k]) == stOnConflict ? ValueBehind(Item, k) : QString();
    }

    // "CONSTRAINT name" just before Tokens[k].
    QString NameBefore(const TItem& Item, size_t k) const {
        if (k >= 2 && RoleAt(Item.Tokens[k - 2]) == stConstraint) return UnQuoteIdentifier(ValueAt(Item.Tokens[k - 1]));
        return QString();
    }

    QString FieldName(const TItem& Item) const { return UnQuoteIdentifier(ValueAt(Item.Tokens[0])); }

    // The comma-separated parts inside the parentheses opening at token Open:
    // for each, the indexes of its tokens at its own level. Parentheses at
    // that level are kept, what they enclose is not. Empty parts are dropped.
    std::vector<std::vector<int>> ListParts(int Open) const {
        std::vector<std::vector<int>> parts(1);
        const int close = ClosingOrEnd(Open);
        int depth = 0;
        for (int i = Open + 1; i < close; ++i) {
            const TTokenType kind = p.GetTokens(i)->FTokenType;
            if (kind == ttCloseParen) --depth;
            if (depth == 0) {
                if (kind == ttComma) {
                    parts.emplace_back();
                } else {
                    parts.back().push_back(i);
                }
            }
            if (kind == ttOpenParen) ++depth;
        }
        std::erase_if(parts, [](const std::vector<int>& part) { return part.empty(); });
        return parts;
    }

    int ClosingOrEnd(int Open) const {
        const int close = p.ClosingParen(Open);
        return close < 0 ? p.GetTokenCount() : close;
    }

    // The names of a column list, unquoted.
    QStringList ListNames(int Open) const {
        QStringList names;
        for (const auto& part : ListParts(Open))
            if (!part.empty()) names.append(UnQuoteIdentifier(ValueAt(part[0])));
        return names;
    }

    // The items of the table's body.
    static std::unique_ptr<TTableItems> Split(TSQLParser& Parser) {
        auto result = std::make_unique<TTableItems>();
        if (Parser.SQLCommand() != stCreateTable) return result;
        TTableReader r(Parser, *result);
        const int n = Parser.GetTokenCount();
        int open = -1;
        for (int i = 0; i < n && open < 0; ++i) {
            if (r.RoleAt(i) == stAs || r.RoleAt(i) == stSelect) return result;  // CREATE TABLE ... AS SELECT
            if (r.IsOpen(i)) open = i;
        }
        if (open < 0) return result;
        result->Close = r.ClosingOrEnd(open);
        for (std::vector<int>& part : r.ListParts(open)) result->Items.push_back({std::move(part)});
        for (TItem& item : result->Items) {
            size_t k = 0;
            if (r.RoleAt(item.Tokens[0]) == stConstraint) k = std::min<size_t>(2, item.Tokens.size() - 1);
            item.IsConstraint = TableConstraintWords.Contains(r.RoleAt(item.Tokens[0])) &&
                                TableConstraintWords.Contains(r.RoleAt(item.Tokens[k]));
            if (item.IsConstraint) item.Kind = static_cast<int>(k);
        }
        return result;
    }

private:
    // A reader over items still being made.
    TTableReader(TSQLParser& Parser, const TTableItems& Items) : p(Parser), Items(Items.Items), Close(-1) {}
};

// The parenthesis that follows Tokens[k] of an item, -1 when none.
int OpenBehind(const TTableReader& r, const TItem& item, size_t k) {
    return k + 1 < item.Tokens.size() && r.IsOpen(item.Tokens[k + 1]) ? item.Tokens[k + 1] : -1;
}

// Options of the key columns of PRIMARY KEY (...) or UNIQUE (...).
void ReadKeyColumns(const TTableReader& r, int open, TPrimaryKeyRec& rec) {
    for (const auto& part : r.ListParts(open)) {
        if (part.empty()) continue;
        TPrimaryKeyFieldRec field;
        field.FieldName = UnQuoteIdentifier(r.ValueAt(part[0]));
        for (size_t k = 1; k < part.size(); ++k) {
            const TSQLTokenType role = r.RoleAt(part[k]);
            if (role == stCollate && k + 1 < part.size()) field.Collate = r.ValueAt(part[k + 1]);
            if (role == stAscending) field.SortOrder = QStringLiteral("ASC");
            if (role == stDescending) field.SortOrder = QStringLiteral("DESC");
            if (role == stAutoincrement) field.Autoincrement = true;
        }
        rec.Fields.push_back(field);
    }
}

void ReadForeignKeyTail(const TTableReader& r, const TItem& item, size_t from, TForeignKeyRec& rec) {
    for (size_t k = from; k < item.Tokens.size(); ++k) {
        const TSQLTokenType role = r.RoleAt(item.Tokens[k]);
        if (k > from && ColumnConstraintWords.Contains(role)) break;  // the next column constraint
        switch (role) {
            case stReferences:
                rec.ParentTableName = UnQuoteIdentifier(r.ValueBehind(item, k));
                if (const int open = OpenBehind(r, item, k + 1); open >= 0) rec.ParentKey = r.ListNames(open);
                break;
            case stOnDelete:
                rec.OnDeleteAction = r.ValueBehind(item, k);
                break;
            case stOnUpdate:
                rec.OnUpdateAction = r.ValueBehind(item, k);
                break;
            case stMatch:
                rec.MatchName = r.ValueBehind(item, k);
                break;
            case stDeferrable:
            case stNotDeferrable:
                rec.Deferrable = r.ValueAt(item.Tokens[k]);
                break;
            case stInitiallyDeferred:
            case stInitiallyImmediate:
                rec.Initially = r.ValueAt(item.Tokens[k]);
                break;
            default:
                break;
        }
    }
}

}  // namespace

TSQLParser::TSQLParser() = default;

TSQLParser::~TSQLParser() = default;

const TTableItems& TSQLParser::TableItems() {
    CheckInitialized();
    if (!FTableItems) FTableItems = TTableReader::Split(*this);
    return *FTableItems;
}

void TSQLParser::DropTableItems() { FTableItems.reset(); }

TPrimaryKeyRec TSQLParser::GetPrimaryKeyOptions() {
    TPrimaryKeyRec rec;
    TTableReader r(*this);
    for (const TItem& item : r.Items) {
        const auto& t = item.Tokens;
        if (item.IsConstraint) {
            const size_t k = static_cast<size_t>(item.Kind);
            if (r.RoleAt(t[k]) != stPrimaryKey) continue;
            if (const int open = OpenBehind(r, item, k); open >= 0) ReadKeyColumns(r, open, rec);
            for (size_t j = k; j < t.size(); ++j) {
                if (!r.ConflictAt(item, j).isEmpty()) rec.ConflictClause = r.ConflictAt(item, j);
                if (r.RoleAt(t[j]) == stAutoincrement && rec.Fields.size() == 1) rec.Fields[0].Autoincrement = true;
            }
            return rec;
        }
        for (size_t k = 1; k < t.size(); ++k) {
            if (r.RoleAt(t[k]) != stPrimaryKey) continue;
            TPrimaryKeyFieldRec field;
            field.FieldName = r.FieldName(item);
            // Everything behind PRIMARY KEY up to the column's end belongs to
            // the key: sort order, conflict word, AUTOINCREMENT, a collation.
            bool own = true;  // still in the PRIMARY KEY clause itself
            for (size_t j = k + 1; j < t.size(); ++j) {
                const TSQLTokenType role = r.RoleAt(t[j]);
                if (ColumnConstraintWords.Contains(role)) own = false;
                if (role == stCollate) field.Collate = r.ValueBehind(item, j);
                if (!own) continue;
                if (role == stAscending) field.SortOrder = QStringLiteral("ASC");
                if (role == stDescending) field.SortOrder = QStringLiteral("DESC");
                if (role == stAutoincrement) field.Autoincrement = true;
                if (role == stOnConflict) rec.ConflictClause = r.ConflictAt(item, j);
            }
            rec.Fields.push_back(field);
            return rec;
        }
    }
    return rec;
}

std::vector<TUniqueConstraintRec> TSQLParser::GetUniqueConstraints() {
    std::vector<TUniqueConstraintRec> list;
    TTableReader r(*this);
    for (const TItem& item : r.Items) {
        const auto& t = item.Tokens;
        for (size_t k = 0; k < t.size(); ++k) {
            if (r.RoleAt(t[k]) != stUnique) continue;
            TUniqueConstraintRec rec;
            rec.ConstraintName = r.NameBefore(item, k);
            size_t next = k + 1;
            if (item.IsConstraint) {
                if (const int open = OpenBehind(r, item, k); open >= 0) {
                    rec.Fields = r.ListNames(open);
                    next += 2;  // the parentheses
                }
            } else {
                rec.Fields.append(r.FieldName(item));
            }
            if (next < t.size()) rec.ConflictClause = r.ConflictAt(item, next);
            list.push_back(rec);
            if (item.IsConstraint) break;
        }
    }
    return list;
}

std::vector<TCheckConstraintRec> TSQLParser::GetCheckConstraints() {
    std::vector<TCheckConstraintRec> list;
    TTableReader r(*this);
    for (const TItem& item : r.Items) {
        for (size_t k = 0; k < item.Tokens.size(); ++k) {
            if (r.RoleAt(item.Tokens[k]) != stCheck) continue;
            const int open = OpenBehind(r, item, k);
            if (open < 0) continue;
            TCheckConstraintRec rec;
            rec.ConstraintName = r.NameBefore(item, k);
            rec.Expression = TextBetween(open, r.ClosingOrEnd(open)).trimmed();
            list.push_back(rec);
        }
    }
    return list;
}

std::vector<TForeignKeyRec> TSQLParser::GetForeignKeys() {
    std::vector<TForeignKeyRec> list;
    TTableReader r(*this);
    for (const TItem& item : r.Items) {
        const auto& t = item.Tokens;
        if (item.IsConstraint) {
            const size_t k = static_cast<size_t>(item.Kind);
            if (r.RoleAt(t[k]) != stForeignKey) continue;
            TForeignKeyRec rec;
            rec.ConstraintName = r.NameBefore(item, k);
            if (const int open = OpenBehind(r, item, k); open >= 0) rec.ChildKey = r.ListNames(open);
            for (size_t j = k + 1; j < t.size(); ++j) {
                if (r.RoleAt(t[j]) == stReferences) {
                    ReadForeignKeyTail(r, item, j, rec);
                    break;
                }
            }
            list.push_back(rec);
            continue;
        }
        for (size_t k = 1; k < t.size(); ++k) {
            if (r.RoleAt(t[k]) != stReferences) continue;
            TForeignKeyRec rec;
            rec.ConstraintName = r.NameBefore(item, k);
            rec.ChildKey.append(r.FieldName(item));
            ReadForeignKeyTail(r, item, k, rec);
            list.push_back(rec);
        }
    }
    return list;
}

namespace {

TSQLFieldRec ReadColumn(const TTableReader& r, const TItem& item) {
    TSQLFieldRec rec;
    const auto& t = item.Tokens;
    for (size_t k = 1; k < t.size(); ++k) {
        const TSQLTokenType role = r.RoleAt(t[k]);
        if (role == stNotNull) {
            rec.NotNull = true;
            if (k + 1 < t.size()) rec.NotNullConflictClause = r.ConflictAt(item, k + 1);
        }
        if (role == stCollate) rec.Collate = r.ValueBehind(item, k);
        // GENERATED ALWAYS AS (...) or its short form AS (...); the
        // storage word stands behind the closing parenthesis.
        if (const int open = OpenBehind(r, item, k); role == stAs && open >= 0) {
            rec.GeneratedExpression = r.p.TextBetween(open, r.ClosingOrEnd(open)).trimmed();
            rec.GeneratedStored = k + 3 < t.size() && SameKeyword(r.ValueAt(t[k + 3]), "STORED");
        }
    }
    return rec;
}

// The options behind the table's body, each as its words in upper case
// ("WITHOUT ROWID", "STRICT").
QStringList TableOptions(const TTableReader& r) {
    QStringList options;
    if (r.Close < 0) return options;
    QStringList words;
    for (int i = r.Close + 1; i <= r.p.GetTokenCount(); ++i) {
        const TSQLTokenType role = i < r.p.GetTokenCount() ? r.RoleAt(i) : stSemicolon;
        if (role == stComma || role == stSemicolon) {
            if (!words.isEmpty()) options.append(words.join(u' '));
            words.clear();
            if (role == stSemicolon) break;
            continue;
        }
        words.append(role == stWithoutRowid ? QStringLiteral("WITHOUT ROWID") : r.ValueAt(i).toUpper());
    }
    return options;
}

}  // namespace

TSQLFieldRec TSQLParser::GetSQLFieldInfo(const QString& FieldName) {
    TTableReader r(*this);
    for (const TItem& item : r.Items)
        if (!item.IsConstraint && SameObject(r.FieldName(item), FieldName)) return ReadColumn(r, item);
    return TSQLFieldRec();
}

std::vector<std::pair<QString, TSQLFieldRec>> TSQLParser::GetSQLFieldInfos() {
    std::vector<std::pair<QString, TSQLFieldRec>> list;
    TTableReader r(*this);
    for (const TItem& item : r.Items)
        if (!item.IsConstraint) list.emplace_back(r.FieldName(item), ReadColumn(r, item));
    return list;
}

std::vector<TUnsupportedClause> TSQLParser::GetUnsupportedClauses() {
    std::vector<TUnsupportedClause> list;
    TTableReader r(*this);
    for (const TItem& item : r.Items) {
        const auto& t = item.Tokens;
        if (!item.IsConstraint) continue;
        const size_t k = static_cast<size_t>(item.Kind);
        if (r.RoleAt(t[k]) != stUnique) continue;
        const int open = OpenBehind(r, item, k);
        if (open < 0) continue;
        TPrimaryKeyRec columns;
        ReadKeyColumns(r, open, columns);
        for (const auto& c : columns.Fields)
            if (!c.Collate.isEmpty() || !c.SortOrder.isEmpty()) {
                list.push_back({QString(), QStringLiteral("COLLATE or sort order in UNIQUE")});
                break;
            }
    }
    QStringList unknown;
    for (const QString& option : TableOptions(r))
        if (option != u"WITHOUT ROWID" && option != u"STRICT") unknown.append(option);
    if (!unknown.isEmpty()) list.push_back({QString(), unknown.join(QStringLiteral(", "))});
    return list;
}

bool TSQLParser::IsStrict() {
    return SQLCommand() == stCreateTable && TableOptions(TTableReader(*this)).contains(QStringLiteral("STRICT"));
}

TViewDataRec TSQLParser::GetViewRec() {
    TViewDataRec rec;
    if (SQLCommand() != stCreateView) return rec;
    const int as = IndexOf(stAs);
    if (as < 0) return rec;
    rec.AsClause = TextBehind(as).trimmed();
    // Only a column list has parentheses between the name and AS.
    for (int i = 0; i < as; ++i)
        if (GetTokens(i)->FTokenType == ttOpenParen) {
            rec.ColumnNames = TTableReader(*this).ListNames(i);
            break;
        }
    return rec;
}

TTriggerRec TSQLParser::GetTriggerRec() {
    TTriggerRec rec;
    if (SQLCommand() != stCreateTrigger) return rec;
    const int n = GetTokenCount();
    int when = -1;
    int begin = n;
    for (int i = 0; i < n; ++i) {
        const TSQLTokenType role = SQLTokens(i)->FSQLToken;
        if (role == stBegin || role == stEnd) {
            begin = i;
            break;
        }
        const QString& value = GetTokens(i)->FValue;
        auto first = [&](QString& field, const QString& v) {
            if (field.isEmpty()) field = v;
        };
        const bool names = when < 0;
        switch (role) {
            case stTriggerName:
                if (names) first(rec.TriggerName, UnQuoteIdentifier(value));
                break;
            case stDatabaseName:
                if (names) first(rec.DatabaseName, value);
                break;
            case stTableName:
                if (names) first(rec.TableName, value);
                break;
            case stFieldName:
                if (names) rec.Fields.append(UnQuoteIdentifier(value));
                break;
            case stAfter:
            case stBefore:
            case stInsteadOf:
                first(rec.WhenClause, value);
                break;
            case stDelete:
            case stInsert:
            case stUpdate:
            case stUpdateOf:
                first(rec.DatabaseEvent, value);
                break;
            case stForEachRow:
            case stForEachStatement:
                first(rec.ActionFor, value);
                break;
            case stWhen:
                if (when < 0) {
                    when = i;
                    rec.ActionWhen = value;
                }
                break;
            default:
                break;
        }
    }
    if (when >= 0) rec.WhenExpression = TextBetween(when, begin).trimmed();
    if (begin < n) rec.TriggerAction = TextFrom(begin).trimmed();
    return rec;
}

TVirtualTableRec TSQLParser::GetVirtualTableRec() {
    TVirtualTableRec rec;
    if (SQLCommand() != stCreateVirtualTable) return rec;
    if (const int i = IndexOf(stTableName); i >= 0) rec.TableName = UnQuoteIdentifier(GetTokens(i)->FValue);
    if (const int i = IndexOf(stDatabaseName); i >= 0) rec.DatabaseName = GetTokens(i)->FValue;
    const int module = IndexOf(stModuleName);
    if (module < 0) return rec;
    rec.ModuleName = GetTokens(module)->FValue;
    if (module + 1 < GetTokenCount() && GetTokens(module + 1)->FTokenType == ttOpenParen) {
        const int close = ClosingParen(module + 1);
        rec.ModuleArguments = TextBetween(module + 1, close < 0 ? GetTokenCount() : close);
    }
    return rec;
}

void TSQLParser::GetTableInfo(std::vector<TTableInfoRec>& TableInfoRecs) {
    if (SQLCommand() != stSelect) return;
    QString database;
    bool blocked = false;  // behind ON, names belong to the join condition
    const int n = GetTokenCount();
    for (int i = 0; i < n; ++i) {
        const TSQLToken* t = SQLTokens(i);
        if (t->FSQLToken == stJoin || t->FSQLToken == stComma) blocked = false;
        if (t->FSection != stFrom && t->FSection != stJoin) continue;
        switch (t->FSQLToken) {
            case stOn:
                blocked = true;
                break;
            case stDatabaseName:
                if (!blocked) database = t->FValue;
                break;
            case stTableName:
                if (blocked) break;
                TableInfoRecs.emplace_back();
                TableInfoRecs.back().DatabaseName = UnQuoteIdentifier(database);
                TableInfoRecs.back().TableName = UnQuoteIdentifier(t->FValue);
                database.clear();
                break;
            case stTableAlias:
                if (blocked) break;
                BRINDLE_ASSERT(!TableInfoRecs.empty() && TableInfoRecs.back().TableAlias.isEmpty(),
                               "a table alias without a table, or a second one");
                TableInfoRecs.back().TableAlias = UnQuoteIdentifier(t->FValue);
                break;
            default:
                break;
        }
    }
}

void TSQLParser::GetFieldInfo(std::vector<TFieldInfoRec>& FieldInfoRecs,
                              const std::vector<TTableInfoRec>& TableInfoRecs) {
    if (SQLCommand() != stSelect) return;
    QString table, database;
    int depth = 0;
    bool seenSelect = false;
    const int n = GetTokenCount();
    for (int i = 0; i < n; ++i) {
        const TSQLToken* t = SQLTokens(i);
        if (t->FTokenType == ttOpenParen) ++depth;
        if (t->FTokenType == ttCloseParen) --depth;
        if (depth != 0) continue;
        if (t->FSQLToken == stFrom) break;
        if (t->FSQLToken == stSelect) {
            if (seenSelect) break;
            seenSelect = true;
        }
        switch (t->FSQLToken) {
            case stDatabaseName:
                database = t->FValue;
                break;
            case stTableName:
                table = t->FValue;
                break;
            case stFieldName:
            case stAllFields: {
                TFieldInfoRec field;
                field.FieldName = UnQuoteIdentifier(t->FValue);
                field.OriginalFieldName = field.FieldName;
                field.FinalName = field.FieldName;
                // One table owns every column; with several, the qualifier
                // decides: an alias first, then a name (with its database).
                field.TableIndex = TableInfoRecs.size() == 1 ? 0 : -1;
                if (!table.isEmpty() && TableInfoRecs.size() > 1) {
                    const QString name = UnQuoteIdentifier(table), db = UnQuoteIdentifier(database);
                    for (size_t k = 0; k < TableInfoRecs.size() && field.TableIndex < 0 && db.isEmpty(); ++k)
                        if (TableInfoRecs[k].TableAlias.compare(name, Qt::CaseInsensitive) == 0)
                            field.TableIndex = static_cast<int>(k);
                    for (size_t k = 0; k < TableInfoRecs.size() && field.TableIndex < 0; ++k)
                        if (TableInfoRecs[k].TableName.compare(name, Qt::CaseInsensitive) == 0 &&
                            (db.isEmpty() || TableInfoRecs[k].DatabaseName.compare(db, Qt::CaseInsensitive) == 0))
                            field.TableIndex = static_cast<int>(k);
                }
                FieldInfoRecs.push_back(field);
                break;
            }
            case stFieldAlias:
                BRINDLE_ASSERT(!FieldInfoRecs.empty() && FieldInfoRecs.back().FieldAlias.isEmpty(),
                               "a field alias without a field, or a second one");
                FieldInfoRecs.back().FieldAlias = UnQuoteIdentifier(t->FValue);
                FieldInfoRecs.back().FinalName = FieldInfoRecs.back().FieldAlias;
                break;
            case stComma:
                table.clear();
                database.clear();
                break;
            default:
                break;
        }
    }
}

QString BuildTriggerSQL(const TTriggerRec& TriggerRec, bool IsTemporary) {
    const QString crlf = QStringLiteral("\r\n");
    // Database and table are as written, quotes included.
    const QString database = TriggerRec.DatabaseName.isEmpty()
                                 ? QString()
                                 : QuoteName(UnQuoteIdentifier(TriggerRec.DatabaseName)) + u'.';
    const QString tableName = QuoteName(UnQuoteIdentifier(TriggerRec.TableName));
    QString name, table;
    if (IsTemporary) {
        name = QuoteName(TriggerRec.TriggerName);
        table = database + tableName;
    } else {
        name = database + QuoteName(TriggerRec.TriggerName);
        table = tableName;
    }
    QString sql = QStringLiteral("CREATE %1TRIGGER %2").arg(IsTemporary ? QStringLiteral("TEMPORARY ") : QString(), name);
    sql += crlf;
    if (!TriggerRec.WhenClause.isEmpty()) sql += TriggerRec.WhenClause + u' ';
    sql += TriggerRec.DatabaseEvent;
    if (TriggerRec.DatabaseEvent.simplified().compare(QLatin1String("UPDATE OF"), Qt::CaseInsensitive) == 0) {
        QStringList fields;
        for (const QString& f : TriggerRec.Fields) fields.append(QuoteName(f));
        sql += u' ' + fields.join(QStringLiteral(", "));
    }
    sql += crlf + QStringLiteral("ON ") + table;
    if (!TriggerRec.ActionFor.isEmpty()) sql += crlf + TriggerRec.ActionFor;
    if (!TriggerRec.ActionWhen.isEmpty()) sql += crlf + TriggerRec.ActionWhen + u' ' + TriggerRec.WhenExpression;
    sql += crlf + TriggerRec.TriggerAction;
    return sql;
}

TPrimaryKeyRec GetPrimaryKeyOptions(const QString& SQL) {
    return GetParser(SQL).GetPrimaryKeyOptions();
}

std::vector<TUniqueConstraintRec> GetUniqueConstraints(const QString& SQL) {
    return GetParser(SQL).GetUniqueConstraints();
}

std::vector<TCheckConstraintRec> GetCheckConstraints(const QString& SQL) {
    return GetParser(SQL).GetCheckConstraints();
}

std::vector<TForeignKeyRec> GetForeignKeys(const QString& SQL) {
    return GetParser(SQL).GetForeignKeys();
}

TSQLFieldRec GetSQLFieldInfo(const QString& SQL, const QString& FieldName) {
    return GetParser(SQL).GetSQLFieldInfo(FieldName);
}

std::vector<TUnsupportedClause> GetUnsupportedClauses(const QString& SQL) {
    return GetParser(SQL).GetUnsupportedClauses();
}

bool IsStrictTable(const QString& SQL) {
    return GetParser(SQL).IsStrict();
}

TViewDataRec GetViewRec(const QString& SQL) {
    return GetParser(SQL).GetViewRec();
}

TTriggerRec GetTriggerRec(const QString& SQL) {
    return GetParser(SQL).GetTriggerRec();
}

TVirtualTableRec GetVirtualTableRec(const QString& SQL) {
    return GetParser(SQL).GetVirtualTableRec();
}

void GetTableInfoFromSQL(const QString& SQL, std::vector<TTableInfoRec>& TableInfoRecs) {
    GetParser(SQL).GetTableInfo(TableInfoRecs);
}

void GetFieldInfoFromSQL(const QString& SQL, std::vector<TFieldInfoRec>& FieldInfoRecs,
                         const std::vector<TTableInfoRec>& TableInfoRecs) {
    GetParser(SQL).GetFieldInfo(FieldInfoRecs, TableInfoRecs);
}

}  // namespace brindle
