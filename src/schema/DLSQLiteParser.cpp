#include "DLSQLiteParser.h"

#include "engine/DLQuoteTools.h"
#include <QHash>

namespace brindle {

namespace {

constexpr int NoRole = -1;  // no token there, or no rule applies

TSQLTokenType StartRole(TTokenType Type) {
    switch (Type) {
        case ttUnknown:
            return stUnknown;
        case ttPredicate:
            return stPredicate;
        case ttNumber:
            return stNumber;
        case ttComma:
            return stComma;
        case ttDot:
            return stDot;
        case ttOpenParen:
            return stOpenParen;
        case ttCloseParen:
            return stCloseParen;
        case ttSemicolon:
            return stSemicolon;
        case ttParam:
            return stParam;
        case ttLiteral:
            return stLiteral;
    }
    return stUnknown;
}

// What a rule may look at: the statement kind, the clause, the roles of the
// two tokens before, and whether a dot follows.
struct TRuleContext {
    TSQLTokenType Command;
    TSQLTokenType Section;
    int Back2;
    int Back1;
    bool DotNext;
    int Level;  // parentheses around the token

    bool In(TSQLTokenType section) const { return Section == section; }
    bool Behind(TSQLTokenType one) const { return Back1 == one; }
    bool Behind(TSQLTokenType two, TSQLTokenType one) const { return Back2 == two && Back1 == one; }
};

// The columns of PRIMARY KEY (...), UNIQUE (...), FOREIGN KEY (...) and of
// REFERENCES parent (...).
int KeyColumnRole(const TRuleContext& c) {
    if (c.Behind(stParentTableName, stOpenParen) || c.Behind(stParentFieldName, stComma))
        return stParentFieldName;
    if (c.Behind(stPrimaryKey, stOpenParen) || c.Behind(stPrimaryKeyFieldName, stComma))
        return stPrimaryKeyFieldName;
    if (c.Behind(stUnique, stOpenParen) || c.Behind(stUniqueFieldName, stComma)) return stUniqueFieldName;
    if (c.Behind(stForeignKey, stOpenParen) || c.Behind(stChildFieldName, stComma)) return stChildFieldName;
    return NoRole;
}

// Rules for any statement.
int GeneralRole(const TRuleContext& c) {
    const bool dot = c.DotNext;
    if (c.Command == stSelect && c.In(stSelect) && c.Behind(stOperator)) return stExpression;
    if (c.Behind(stFieldName, stComma)) return dot ? stTableName : stFieldName;
    if (c.Behind(stTableName, stComma)) return dot ? stDatabaseName : stTableName;
    if (c.Behind(stValue, stComma)) return stValue;
    if (c.Behind(stCollate)) return stCollateOption;
    if (c.Behind(stFrom) || c.Behind(stOn)) return dot ? stDatabaseName : stTableName;
    if (c.Behind(stIndexed, stBy) || c.Behind(stIndexedBy)) return stIndexName;
    if (c.Behind(stTableName, stDot)) return stFieldName;
    return NoRole;
}

int SelectRole(const TRuleContext& c) {
    const bool dot = c.DotNext;
    const bool tables = c.In(stFrom) || c.In(stJoin);
    if (c.Behind(stLoadExtension, stOpenParen)) return stFileName;
    if (c.In(stLoadExtension) && c.Behind(stFileName, stComma)) return stEntryPoint;
    if (tables && dot) return stDatabaseName;
    if (tables && c.Behind(stDatabaseName, stDot)) return stTableName;
    if (c.Behind(stFieldName, stAs)) return stFieldAlias;
    if (c.Behind(stTableName, stAs)) return stTableAlias;
    if (tables) return c.Behind(stTableName) ? stTableAlias : stTableName;
    if (c.Behind(stFieldName)) return stFieldAlias;
    if (c.In(stSelect)) return dot ? stTableName : stFieldName;
    if ((c.In(stOrderBy) && c.Behind(stOrderBy)) || (c.In(stGroupBy) && c.Behind(stGroupBy)))
        return dot ? stTableName : stFieldName;
    return NoRole;
}

// Rules by statement kind. CREATE VIEW, DELETE and REPLACE open no clause of
// their own, so nothing labels a view's name (callers take it from the
// catalogue) and DELETE FROM names its table through the FROM rule only.
int CommandRole(const TRuleContext& c) {
    const bool dot = c.DotNext;
    switch (c.Command) {
        case stAlterTable:
            if (c.Behind(stAlterTable)) return dot ? stDatabaseName : stTableName;
            if (c.Behind(stRename, stTo) || c.Behind(stRenameTo)) return stTableName;
            if (c.Behind(stAdd, stColumn) || c.Behind(stAddColumn)) return stFieldName;
            break;
        case stAnalyze:
            if (c.Behind(stAnalyze)) return dot ? stTableName : stDatabaseName;
            break;
        case stAttach:
            if (c.Behind(stFileName, stAs)) return stDatabaseName;
            break;
        case stCreateTable: {
            if (c.Behind(stReferences)) return stParentTableName;
            if (c.Behind(stMatch)) return stMatchName;
            if (c.In(stCreateTable) && c.Behind(stFieldName)) return stFieldType;
            if (c.Behind(stDefault)) return stDefaultValue;
            if (c.Behind(stConstraintName, stPrimaryKey)) return stFieldName;
            if (c.In(stCreateTable) && c.Behind(stFieldType, stOpenParen)) return stFieldSize;
            if (c.Behind(stFieldSize, stComma)) return stFieldPrecision;
            if (const int key = KeyColumnRole(c); key != NoRole) return key;
            // The first word of a check expression is no column.
            if (c.In(stCreateTable) && c.Behind(stCheck, stOpenParen)) return stUnknown;
            if (c.Behind(stOpenParen) || c.Behind(stComma)) return stFieldName;
            break;
        }
        case stCreateIndex:
            if (c.In(stCreateIndex)) {
                if (c.Behind(stCreateIndex) || c.Behind(stCreateIndex, stIfNotExists))
                    return dot ? stDatabaseName : stIndexName;
                if (c.Behind(stDatabaseName, stDot)) return stIndexName;
            }
            if (c.Behind(stOpenParen) || c.Behind(stComma)) return stFieldName;
            break;
        case stCreateTrigger:
            if (c.In(stOn) && c.Behind(stDatabaseName, stDot)) return stTableName;
            if ((c.Behind(stCreateTrigger) || c.Behind(stIfNotExists)) && dot) return stDatabaseName;
            if (c.Behind(stDatabaseName, stDot)) return stTriggerName;
            if (c.Behind(stCreateTrigger) || c.Behind(stCreateTrigger, stIfNotExists)) return stTriggerName;
            if (c.Behind(stUpdateOf) || c.Behind(stFieldName)) return stFieldName;
            break;
        case stDetach:
            if (c.Behind(stDetach)) return stDatabaseName;
            break;
        case stInsert:
            if (c.In(stInsert)) {
                if (c.Behind(stInto)) return dot ? stDatabaseName : stTableName;
                if (c.Behind(stDatabaseName, stDot)) return stTableName;
                if (c.Behind(stOpenParen)) return stFieldName;
            }
            if (c.In(stValues) && c.Behind(stValues)) return stValue;
            break;
        case stReplace:
            if (c.In(stValues) && c.Behind(stValues)) return stValue;
            break;
        case stPragma:
            if (c.Behind(stPragma)) return stPragmaName;
            break;
        case stReindex:
            if (dot) return stDatabaseName;
            if (c.Behind(stDatabaseName, stDot) || c.Behind(stReindex)) return stTableName;
            break;
        case stRollback:
            if (c.Behind(stSavepoint) || c.Behind(stTo)) return stSavepointName;
            break;
        case stSavepoint:
            if (c.Behind(stSavepoint)) return stSavepointName;
            break;
        case stRelease:
            return stSavepointName;
        case stSelect:
            return SelectRole(c);
        case stUpdate:
            // The columns behind SET and its commas before the table rule, which
            // would otherwise take every word of the clause.
            if (c.Behind(stSet) || c.Behind(stComma)) return stFieldName;
            if (c.In(stUpdate)) {
                if (dot) return stDatabaseName;
                return stTableName;
            }
            break;
        case stDropTable:
        case stDropView:
        case stDropTrigger:
        case stDropIndex: {
            if (dot) return stDatabaseName;
            switch (c.Command) {
                case stDropTable:
                    return stTableName;
                case stDropView:
                    return stViewName;
                case stDropTrigger:
                    return stTriggerName;
                default:
                    return stIndexName;
            }
        }
        case stCreateVirtualTable:
            // IF NOT EXISTS is kept in the stored text, so the name may stand behind it.
            if (c.Behind(stCreateVirtualTable) || c.Behind(stCreateVirtualTable, stIfNotExists))
                return dot ? stDatabaseName : stTableName;
            if (c.Behind(stDatabaseName, stDot)) return stTableName;
            break;
        default:
            break;
    }
    return NoRole;
}

// The production rules for a word that nothing else labelled.
TSQLTokenType ProductionRole(const TRuleContext& c) {
    if (const int r = GeneralRole(c); r != NoRole) return static_cast<TSQLTokenType>(r);
    if (const int r = CommandRole(c); r != NoRole) return static_cast<TSQLTokenType>(r);
    return c.DotNext ? stTableName : stUnknown;
}

// The roles that name something.
constexpr TSQLTokenTypes NameRoles{
    stFieldName,      stTableName,       stDatabaseName,    stIndexName,           stTriggerName,
    stViewName,       stTableAlias,      stFieldAlias,      stSavepointName,       stPragmaName,
    stCollateOption,  stParentTableName, stParentFieldName, stPrimaryKeyFieldName, stUniqueFieldName,
    stChildFieldName, stConstraintName};

// Where a list of columns or tables begins an item.
bool AtItemStart(int Role) {
    return Role == stSelect || Role == stDistinct || Role == stAll || Role == stComma ||
           Role == stOpenParen || Role == stOrderBy || Role == stGroupBy || Role == stDot;
}

// A keyword that the engine also takes as a name, standing where the rules
// would name an unknown word: the name role, or NoRole where the keyword
// still fits the grammar there. The engine falls back to the name only when
// the keyword cannot go on with the statement, so a word that calls a
// function, continues an expression or a join, or follows a column inside an
// expression keeps its meaning.
int KeywordNameRole(const TRuleContext& c, const TSQLKeyword& k, bool parenNext) {
    const TSQLTokenType role = ProductionRole(c);
    if (!NameRoles.Contains(role)) return NoRole;
    const bool afterDot = c.Behind(stDot);
    switch (c.Command) {
        case stCreateTable:
            // Its columns are named by the rules of the body, before these.
            if (role == stFieldName) return NoRole;
            break;
        case stCreateTrigger:
            // In the head, columns stand only in the UPDATE OF list; in the
            // condition and body only behind a table and a dot. Anywhere
            // else a keyword behind a column is BEGIN, END or the like.
            if (role == stFieldName && !(c.Behind(stUpdateOf) || c.Behind(stFieldName, stComma) || afterDot))
                return NoRole;
            break;
        case stUpdate:
            // UPDATE [OR conflict] [db.]table: behind the conflict word.
            if ((role == stTableName || role == stDatabaseName) &&
                !(c.Behind(stUpdate) || c.Back2 == stOr || afterDot || c.DotNext))
                return NoRole;
            break;
        case stSelect:
            if (c.Behind(stOn)) return NoRole;  // a join's condition is an expression
            if ((c.In(stFrom) || c.In(stJoin)) && role == stTableName &&
                !(c.Behind(stFrom) || c.Behind(stJoin) || c.Behind(stComma) || afterDot))
                return NoRole;  // OFFSET, LIMIT's words, a join's words
            if (role == stFieldName && !AtItemStart(c.Back1)) return NoRole;  // inside an expression
            break;
        case stRelease:
        case stRollback:
            if (k.Type == stSavepoint) return NoRole;  // RELEASE SAVEPOINT name
            break;
        default:
            break;
    }
    const bool expression = c.Command == stSelect || c.Command == stCreateIndex;
    switch (role) {
        case stFieldName:
            if (parenNext) return NoRole;  // a function
            if (k.AsName == kaNotInExpression && expression && !afterDot) return NoRole;
            break;
        case stFieldAlias:
        case stTableAlias:
            if (c.Behind(stAs)) break;
            // Without AS: only behind a whole item of a select list or a
            // FROM clause, and not a word that would go on with it.
            if (k.AsName == kaNotAlias || parenNext) return NoRole;
            if (role == stFieldAlias && !(c.In(stSelect) && AtItemStart(c.Back2) && c.Back2 != stOpenParen))
                return NoRole;  // ORDER BY a DESC, CASE WHEN a THEN b END
            if (role == stTableAlias &&
                !(c.Back2 == stFrom || c.Back2 == stJoin || c.Back2 == stComma || c.Back2 == stDot))
                return NoRole;
            break;
        default:
            break;
    }
    return role;
}

// Words that stay themselves where a column name could stand.
constexpr TSQLTokenTypes TableConstraintWords{stCheck, stConstraint, stForeignKey, stPrimaryKey, stUnique};
// Roles that make a select list entry an expression rather than a column.
constexpr TSQLTokenTypes ExpressionOperators{stAnd,   stGlob,     stIn, stIs,    stLike,
                                             stMatch, stOperator, stOr, stRegexp};

const TSQLKeyword IfNotExists{{"IF", "NOT", "EXISTS"}, 3, stIfNotExists, kaReserved};

}  // namespace

QString SQLTokenTypeName(TSQLTokenType Type) {
    static const char* const Names[] = {
#define BRINDLE_SQL_TOKEN_TYPE_NAME(name) "st" #name,
        BRINDLE_SQL_TOKEN_TYPES(BRINDLE_SQL_TOKEN_TYPE_NAME)
#undef BRINDLE_SQL_TOKEN_TYPE_NAME
    };
    if (Type < 0 || Type >= SQL_TOKEN_TYPE_COUNT) return QString();
    return QString::fromLatin1(Names[Type]);
}

// ---------------------------------------------------------------------------
// Labelling

std::unique_ptr<TToken> TSQLParser::CreateToken() {
    return std::make_unique<TSQLToken>();
}

void TSQLParser::UnInitialize() {
    TTokenizer::UnInitialize();
    FSQLCommand = stUnknown;
    DropTableItems();
}

void TSQLParser::InternalGetTokens() {
    TTokenizer::InternalGetTokens();
    InternalFixTokens();
}

void TSQLParser::InternalFixTokens() {
    // Tokens are read from `in` and appended to `out`. A phrase keyword takes
    // its following words with it: they are dropped from `in`, and the merged
    // token moves to the slot of its last word, so that "the next token" is
    // always in[r + 1] and no merge shifts the rest of the list.
    std::vector<std::unique_ptr<TToken>> in = FTokens.Take();
    std::vector<std::unique_ptr<TToken>> out;
    out.reserve(in.size());
    const size_t n = in.size();
    auto sql = [](const std::unique_ptr<TToken>& p) -> TSQLToken& { return static_cast<TSQLToken&>(*p); };
    for (const auto& p : in) sql(p).FSQLToken = StartRole(p->FTokenType);

    auto back = [&](size_t k) -> int {
        return out.size() >= k ? sql(out[out.size() - k]).FSQLToken : NoRole;
    };
    auto isDot = [&](size_t i) { return i < n && in[i]->FTokenType == ttDot; };
    auto phraseAt = [&](size_t r, const TSQLKeyword& k) {
        for (int w = 1; w < k.WordCount; ++w) {
            const size_t i = r + static_cast<size_t>(w);
            if (i >= n) return false;
            const TSQLToken& x = sql(in[i]);
            if (x.FSQLToken != stUnknown || x.FIsIdent || !SameKeyword(x.FValue, k.Words[w])) return false;
        }
        return true;
    };
    auto merge = [&](size_t r, int words) {
        if (words <= 1) return r;
        TSQLToken& t = sql(in[r]);
        const size_t last = r + static_cast<size_t>(words) - 1;
        for (size_t i = r + 1; i <= last; ++i) {
            t.FValue += u' ';
            t.FValue += in[i]->FValue;
        }
        t.FSize = in[last]->EndIndex() - t.StartIndex();
        in[last] = std::move(in[r]);
        return last;
    };

    TSQLTokenType section = stUnknown;
    int level = 0;
    FSQLCommand = stUnknown;
    for (size_t r = 0; r < n; ++r) {
        TSQLToken& t = sql(in[r]);
        if (t.FSQLToken == stOpenParen)
            ++level;
        else if (t.FSQLToken == stCloseParen)
            --level;

        if (t.FSQLToken == stUnknown || t.FSQLToken == stLiteral) {
            TSQLTokenType role = t.FSQLToken;
            const int b1 = back(1);
            const int b2 = back(2);
            const TSQLTokenType cmd = FSQLCommand;
            const bool tableHead = cmd == stCreateTable && section == stCreateTable;

            // Head rules, quoted tokens included.
            bool found = true;
            if (SameKeyword(t.FValue, "IF") && phraseAt(r, IfNotExists)) {
                r = merge(r, IfNotExists.WordCount);
                role = stIfNotExists;
            } else if (b1 == stOnConflict) {
                role = stOnConflictClause;
            } else if (tableHead && (b1 == stCreateTable || b1 == stIfNotExists)) {
                role = stTableName;
            } else if (tableHead && b1 == stConstraint) {
                role = stConstraintName;
            } else {
                found = false;
            }

            // Keywords; the rules below may still make a column of one.
            const TSQLKeyword* keyword = nullptr;
            if (!found && !t.FIsIdent) {
                for (const TSQLKeyword* k : KeywordCandidates(t.FValue)) {
                    if (!phraseAt(r, *k)) continue;
                    r = merge(r, k->WordCount);
                    role = k->Type;
                    keyword = k;
                    break;
                }
            }
            const bool plain = role == stUnknown || role == stLiteral;

            // db.table.column
            const bool dotNext = isDot(r + 1);
            if (dotNext && isDot(r + 3)) {
                TSQLToken& table = sql(in[r + 2]);
                if (table.FSQLToken == stUnknown || table.FSQLToken == stLiteral) {
                    role = stDatabaseName;
                    table.FSQLToken = stTableName;
                }
            }

            // A single word before a dot can only be a name: temp.t, main.t.
            if (dotNext && !plain && !t.FValue.contains(u' ')) role = stUnknown;

            // Rules that overrule a keyword, applied in turn.
            const TRuleContext c{cmd, section, b2, b1, dotNext, level};
            if (cmd == stCreateVirtualTable && c.In(stCreateVirtualTable) && c.Behind(stUsing))
                role = stModuleName;
            if (cmd == stCreateTable) {
                if (c.Behind(stOnDelete)) role = stOnDeleteAction;
                if (c.Behind(stOnUpdate)) role = stOnUpdateAction;
                // Only for a word: what may follow PRIMARY KEY (ASC, ON
                // CONFLICT, AUTOINCREMENT ...) keeps its meaning.
                if (plain && c.Behind(stConstraintName, stPrimaryKey)) role = stFieldName;
            }
            // Inside the parentheses only: behind them, commas separate table
            // options (STRICT, WITHOUT ROWID).
            if (c.In(stCreateTable) && level > 0 && !c.Behind(stCheck, stOpenParen) &&
                !TableConstraintWords.Contains(role) && (c.Behind(stOpenParen) || c.Behind(stComma)))
                role = stFieldName;
            if (cmd == stCreateTable) {
                if (const int key = KeyColumnRole(c); key != NoRole) role = static_cast<TSQLTokenType>(key);
            }
            // ATTACH [DATABASE] file: the optional word is no file name.
            if (cmd == stAttach &&
                ((c.Behind(stAttach) && role != stDatabase) || c.Behind(stAttach, stDatabase)))
                role = stFileName;

            if (role == stUnknown) {
                role = ProductionRole(c);
            } else if (keyword && role == keyword->Type && keyword->WordCount == 1 &&
                       keyword->AsName != kaReserved) {
                const bool parenNext = r + 1 < n && in[r + 1]->FTokenType == ttOpenParen;
                if (const int name = KeywordNameRole(c, *keyword, parenNext); name != NoRole)
                    role = static_cast<TSQLTokenType>(name);
            } else if (role == stLiteral && cmd == stSelect) {
                // File and entry point of load_extension are string literals.
                if (c.Behind(stLoadExtension, stOpenParen))
                    role = stFileName;
                else if (c.In(stLoadExtension) && c.Behind(stFileName, stComma))
                    role = stEntryPoint;
            }
            t.FSQLToken = role;
        }

        if (level == 0 && SQLSections.Contains(t.FSQLToken)) section = t.FSQLToken;
        if (FSQLCommand == stUnknown && SQLCommands.Contains(t.FSQLToken)) FSQLCommand = t.FSQLToken;
        t.FSection = section;
        out.push_back(std::move(in[r]));
    }

    if (FSQLCommand == stSelect) {
        for (size_t i = 1; i < out.size(); ++i) {
            const TSQLToken& t = sql(out[i]);
            TSQLToken& before = sql(out[i - 1]);
            if (t.FSection == stSelect && ExpressionOperators.Contains(t.FSQLToken) &&
                before.FSQLToken == stFieldName)
                before.FSQLToken = stExpression;
        }
    }
    FTokens.Assign(std::move(out));
}

TSQLTokenType TSQLParser::SQLCommand() {
    CheckInitialized();
    return FSQLCommand;
}

// ---------------------------------------------------------------------------
// Walking the labels

int TSQLParser::IndexOf(TSQLTokenType Role, int From) {
    const int n = GetTokenCount();
    for (int i = std::max(From, 0); i < n; ++i)
        if (this->Role(i) == Role) return i;
    return -1;
}

int TSQLParser::IndexOf(const TSQLTokenTypes& Roles, int From) {
    const int n = GetTokenCount();
    for (int i = std::max(From, 0); i < n; ++i)
        if (Roles.Contains(Role(i))) return i;
    return -1;
}

int TSQLParser::LastIndexOf(TSQLTokenType Role) {
    for (int i = GetTokenCount() - 1; i >= 0; --i)
        if (this->Role(i) == Role) return i;
    return -1;
}

int TSQLParser::IndexOfInSection(TSQLTokenType Role, TSQLTokenType Section, int From) {
    const int n = GetTokenCount();
    for (int i = std::max(From, 0); i < n; ++i) {
        const TSQLToken* t = SQLTokens(i);
        if (t->FSQLToken == Role && t->FSection == Section) return i;
    }
    return -1;
}

int TSQLParser::ClosingParen(int OpenIndex) {
    const int n = GetTokenCount();
    int depth = 0;
    for (int i = std::max(OpenIndex, 0); i < n; ++i) {
        const TTokenType kind = GetTokens(i)->FTokenType;
        if (kind == ttOpenParen) {
            ++depth;
        } else if (kind == ttCloseParen && --depth == 0) {
            return i;
        }
        if (depth <= 0) return -1;
    }
    return -1;
}

QString TSQLParser::SourceText(int First, int Last) {
    const int start = GetTokens(First)->StartIndex();
    return FText.mid(start, GetTokens(Last)->EndIndex() - start);
}

QString TSQLParser::TextBetween(int Before, int After) {
    const int start = Before >= 0 ? GetTokens(Before)->EndIndex() : 0;
    const int end = After < GetTokenCount() ? GetTokens(After)->StartIndex() : static_cast<int>(FText.size());
    return end > start ? FText.mid(start, end - start) : QString();
}

QString TSQLParser::TextBehind(int Index) {
    return FText.mid(GetTokens(Index)->EndIndex());
}

QString TSQLParser::TextFrom(int Index) {
    return FText.mid(GetTokens(Index)->StartIndex());
}

QString TSQLParser::TextBefore(int Index) {
    return FText.left(GetTokens(Index)->StartIndex());
}

QString TSQLParser::ReplaceToken(int Index, const QString& Value) {
    const TToken* t = GetTokens(Index);
    QString text = FText;
    return text.replace(t->StartIndex(), t->FSize, Value);
}

// ---------------------------------------------------------------------------
// Questions

QString TSQLParser::GetTableName() {
    const int i = IndexOfInSection(stTableName, stFrom);
    return i < 0 ? QString() : GetTokens(i)->FValue;
}

void TSQLParser::GetAllTableNames(QStringList& List) {
    for (int i = IndexOf(stTableName); i >= 0; i = IndexOf(stTableName, i + 1))
        List.append(GetTokens(i)->FValue);
}

int TSQLParser::GetTableCount() {
    int count = 0;
    for (int i = IndexOfInSection(stTableName, stFrom); i >= 0;
         i = IndexOfInSection(stTableName, stFrom, i + 1))
        ++count;
    return count;
}

void TSQLParser::GetFullTableName(QString& DatabaseName, QString& TableName) {
    DatabaseName.clear();
    TableName.clear();
    const int i = IndexOfInSection(stTableName, stFrom);
    if (i < 0) return;
    TableName = GetTokens(i)->FValue;
    if (i >= 2 && Role(i - 1) == stDot && Role(i - 2) == stDatabaseName)
        DatabaseName = GetTokens(i - 2)->FValue;
}

namespace {

// The value of the first token with one of the roles behind the named column
// of an index, up to the column's end.
QString IndexColumnOption(TSQLParser& p, const QString& fieldName, const TSQLTokenTypes& roles) {
    if (p.SQLCommand() != stCreateIndex) return QString();
    const int n = p.GetTokenCount();
    for (int i = p.IndexOf(stFieldName); i >= 0; i = p.IndexOf(stFieldName, i + 1)) {
        if (!SameObject(p.GetTokens(i)->FValue, fieldName)) continue;
        int depth = 0;
        for (int j = i + 1; j < n; ++j) {
            const TSQLToken* t = p.SQLTokens(j);
            if (t->FTokenType == ttOpenParen) ++depth;
            if (t->FTokenType == ttCloseParen && --depth < 0) break;
            if (depth == 0 && t->FTokenType == ttComma) break;
            if (roles.Contains(t->FSQLToken)) return t->FValue;
        }
        break;
    }
    return QString();
}

}  // namespace

QString TSQLParser::GetIndexCollateOption(const QString& FieldName) {
    return IndexColumnOption(*this, FieldName, {stCollateOption});
}

QString TSQLParser::GetIndexFieldSortOrder(const QString& FieldName) {
    return IndexColumnOption(*this, FieldName, {stAscending, stDescending});
}

std::vector<TIndexColumnRec> TSQLParser::GetIndexColumns() {
    std::vector<TIndexColumnRec> result;
    if (SQLCommand() != stCreateIndex) return result;
    const int on = IndexOf(stOn);
    const int open = on < 0 ? -1 : IndexOf(stOpenParen, on);
    const int close = open < 0 ? -1 : ClosingParen(open);
    if (close < 0) return result;
    int start = open + 1, level = 0;
    for (int i = open + 1; i <= close; ++i) {
        const TTokenType kind = GetTokens(i)->FTokenType;
        if (kind == ttOpenParen) ++level;
        if (kind == ttCloseParen && i < close) --level;
        if ((kind != ttComma || level != 0) && i != close) continue;
        int last = i - 1;
        TIndexColumnRec column;
        if (last >= start && (Role(last) == stAscending || Role(last) == stDescending))
            column.SortOrder = GetTokens(last--)->FValue;
        if (last > start && Role(last) == stCollateOption && Role(last - 1) == stCollate) {
            column.Collate = GetTokens(last)->FValue;
            last -= 2;
        }
        if (last >= start) column.Expression = SourceText(start, last).trimmed();
        result.push_back(column);
        start = i + 1;
    }
    return result;
}

QString TSQLParser::GetIndexWhereClause() {
    if (SQLCommand() != stCreateIndex) return QString();
    const int where = LastIndexOf(stWhere);
    return where < 0 ? QString() : TextBehind(where).trimmed();
}

QString TSQLParser::GetDatabaseName() {
    const TSQLTokenType cmd = SQLCommand();
    if (cmd != stAttach && cmd != stDetach) return QString();
    const int i = IndexOf(stDatabaseName);
    return i < 0 ? QString() : GetTokens(i)->FValue;
}

QString TSQLParser::GetFileName() {
    if (SQLCommand() != stAttach) return QString();
    const int i = IndexOf(stFileName);
    if (i < 0) return QString();
    const QString value = GetTokens(i)->FValue;
    if (value.size() >= 2 && value.startsWith(u'\'') && value.endsWith(u'\''))
        return value.mid(1, value.size() - 2).replace(QStringLiteral("''"), QStringLiteral("'"));
    return value;
}

QString TSQLParser::GetSavepointName() {
    const int i = IndexOf(stSavepointName);
    return i < 0 ? QString() : QuoteObjectIfNeeded(GetTokens(i)->FValue);
}

bool TSQLParser::GetLoadExtensionParams(QString& FileName, QString& EntryPoint) {
    FileName.clear();
    EntryPoint.clear();
    const int call = IndexOf(stLoadExtension);
    if (call < 0) return false;
    const int file = IndexOf(stFileName, call + 1);
    if (file < 0) return false;
    FileName = UnQuoteIdentifier(GetTokens(file)->FValue);
    const int entry = IndexOf(stEntryPoint, file + 1);
    if (entry >= 0) EntryPoint = UnQuoteIdentifier(GetTokens(entry)->FValue);
    return true;
}

QString TSQLParser::GetVirtualTableModule() {
    if (SQLCommand() != stCreateVirtualTable) return QString();
    const int i = IndexOf(stModuleName);
    return i < 0 ? QString() : UnQuoteIdentifier(GetTokens(i)->FValue);
}

QString TSQLParser::GetTriggerDatabaseName() {
    if (SQLCommand() != stCreateTrigger) return QString();
    const int n = GetTokenCount();
    for (int i = 0; i < n && Role(i) != stBegin; ++i) {
        const TSQLToken* t = SQLTokens(i);
        if (t->FSQLToken == stDatabaseName && t->FSection == stOn) return UnQuoteIdentifier(t->FValue);
    }
    return QString();
}

bool TSQLParser::IsWithoutRowid() {
    return SQLCommand() == stCreateTable && IndexOf(stWithoutRowid) >= 0;
}

QString TSQLParser::ReplaceTableNameInTrigger(const QString& NewTableName) {
    const int i = IndexOf(stTableName);
    return i < 0 ? FText : ReplaceToken(i, NewTableName);
}

QString TSQLParser::ReplaceTriggerName(const QString& NewTriggerName) {
    const int i = IndexOf(stTriggerName);
    return i < 0 ? FText : ReplaceToken(i, NewTriggerName);
}

QString TSQLParser::StripOrderBy() {
    if (SQLCommand() != stSelect) return FText;
    const int n = GetTokenCount();
    int orderBy = -1;
    int orderBys = 0;
    int selects = 0;
    for (int i = 0; i < n; ++i) {
        if (Role(i) == stOrderBy) {
            orderBy = i;
            ++orderBys;
        } else if (Role(i) == stSelect) {
            ++selects;
        }
    }
    if (orderBys != 1 || selects != 1) return FText;
    static constexpr TSQLTokenTypes plainOrder{stAscending, stDescending, stComma,
                                               stDot,       stFieldName,  stTableName};
    int limit = -1;
    for (int i = orderBy + 1; i < n && limit < 0; ++i) {
        if (Role(i) == stLimit || Role(i) == stOffset)
            limit = i;
        else if (!plainOrder.Contains(Role(i)))
            return FText;
    }
    QString result = TextBefore(orderBy).trimmed();
    if (limit >= 0) result += QLatin1Char(' ') + TextFrom(limit).trimmed();
    return result;
}

bool TSQLParser::HasOrderBy() {
    return IndexOf(stOrderBy) >= 0;
}

bool TSQLParser::HasSubquery() {
    const int first = IndexOf(stSelect);
    return first >= 0 && IndexOf(stSelect, first + 1) >= 0;
}

bool TSQLParser::IsSimpleSelect() {
    if (SQLCommand() != stSelect || Role(0) != stSelect) return false;
    static constexpr TSQLTokenTypes plain{stAllFields,  stComma,     stAs,   stDatabaseName, stDot,
                                          stFieldAlias, stFieldName, stFrom, stTableAlias,   stTableName};
    const int n = GetTokenCount();
    for (int i = 0; i < n; ++i) {
        const TSQLToken* t = SQLTokens(i);
        if (t->FSQLToken == stUnion) return false;
        // A join's own clause counts too: its words make a query not simple.
        const bool listed = t->FSection == stSelect || t->FSection == stFrom || t->FSection == stJoin;
        if (listed && i > 0 && !plain.Contains(t->FSQLToken)) return false;
    }
    return true;
}

QString TSQLParser::GetSelectClause() {
    const int n = GetTokenCount();
    int k = 0;
    while (k < n && SQLTokens(k)->FSection == stSelect) ++k;
    return k == 0 ? QString() : FText.left(GetTokens(k - 1)->EndIndex());
}

QString TSQLParser::PostProcess() {
    if (SQLCommand() != stSelect) return FText;
    // A parser of its own: the cached one must keep its text.
    TSQLParser p;
    p.SetText(FText);
    for (;;) {
        const int n = p.GetTokenCount();
        int cut = -1;
        for (int i = 0; i + 4 < n && cut < 0; ++i) {
            if (p.Role(i) == stDatabaseName && p.Role(i + 1) == stDot &&
                (p.Role(i + 2) == stTableName || p.Role(i + 2) == stViewName) && p.Role(i + 3) == stDot &&
                p.Role(i + 4) == stAllFields)
                cut = i;
        }
        if (cut < 0) return p.Text();
        const int start = p.GetTokens(cut)->StartIndex();
        QString text = p.Text();
        text.remove(start, p.GetTokens(cut + 2)->StartIndex() - start);
        p.SetText(text);
    }
}

QString TSQLParser::FixFilterExpression(const QStringList& ExcludedFieldNames) {
    QString text = FText;
    // Backwards, so that the positions of the tokens still to come hold.
    for (int i = GetTokenCount() - 1; i >= 0; --i) {
        const TSQLToken* t = SQLTokens(i);
        if (t->FTokenType != ttLiteral && ContainsIdentifier(ExcludedFieldNames, t->FValue)) return QString();
        QString replacement;
        if (SameKeyword(t->FValue, "TRUE")) {
            replacement = QStringLiteral("(not 0)");
        } else if (SameKeyword(t->FValue, "FALSE")) {
            replacement = QStringLiteral("0");
        } else if (i + 1 < GetTokenCount() && Role(i + 1) == stNull) {
            if (t->FValue == QLatin1String("=")) replacement = QStringLiteral("IS");
            if (t->FValue == QLatin1String("<>")) replacement = QStringLiteral("IS NOT");
        }
        if (!replacement.isNull()) text.replace(t->StartIndex(), t->FSize, replacement);
    }
    return text;
}

void TSQLParser::GetParams(QStringList& Params) {
    for (int i = IndexOf(stParam); i >= 0; i = IndexOf(stParam, i + 1)) Params.append(GetTokens(i)->FValue);
}

bool TSQLParser::Contains(const TSQLTokenTypes& TokenTypes) {
    return IndexOf(TokenTypes) >= 0;
}

// ---------------------------------------------------------------------------
// The cache

TSQLParser& GetParser(const QString& SQL) {
    // Per thread: a parser handed out stays the caller's until 64 further
    // texts have passed, which no lock around the lookup could promise.
    struct TCache {
        std::vector<std::unique_ptr<TSQLParser>> Parsers;
        // Each parser's text hashed: a script's statements often share long
        // beginnings, and comparing 64 of them char by char costs more than
        // labelling a short one.
        std::vector<size_t> Hashes;
        size_t Next = 0;
        size_t Last = 0;  // the slot handed out last: callers ask one text several questions in a row
    };
    constexpr size_t Size = 64;
    // Tokens take many times the memory of their text. Beyond this much text
    // the older parsers give theirs up (they keep text and place, and
    // scan again when asked), so that a run of huge statements cannot pile up
    // 64 token lists.
    constexpr qsizetype ScannedTextBudget = 1 << 20;
    thread_local TCache cache;

    TSQLParser* parser = nullptr;
    if (cache.Last < cache.Parsers.size() && cache.Parsers[cache.Last]->Text() == SQL) {
        parser = cache.Parsers[cache.Last].get();
    } else {
        const size_t hash = qHash(SQL);
        for (size_t i = 0; i < cache.Parsers.size() && !parser; ++i) {
            if (cache.Hashes[i] == hash && cache.Parsers[i]->Text() == SQL) {
                parser = cache.Parsers[i].get();
                cache.Last = i;
            }
        }
        if (!parser) {
            if (cache.Parsers.size() < Size) {
                cache.Parsers.push_back(std::make_unique<TSQLParser>());
                cache.Hashes.push_back(0);
            }
            cache.Next = (cache.Next + 1) % cache.Parsers.size();
            cache.Last = cache.Next;
            parser = cache.Parsers[cache.Next].get();
            parser->SetText(SQL);
            cache.Hashes[cache.Next] = hash;
        }
    }

    qsizetype scanned = 0;
    for (const auto& p : cache.Parsers)
        if (p->Scanned()) scanned += p->Text().size();
    // Oldest first: the slot after Next is the next to be reused.
    for (size_t k = 1; k <= cache.Parsers.size() && scanned > ScannedTextBudget; ++k) {
        TSQLParser& p = *cache.Parsers[(cache.Next + k) % cache.Parsers.size()];
        if (&p == parser || !p.Scanned()) continue;
        scanned -= p.Text().size();
        p.Release();
    }
    return *parser;
}

void GetAllTableNamesFromSQL(const QString& SQL, QStringList& List) {
    GetParser(SQL).GetAllTableNames(List);
}

void GetFullTableNameFromSQL(const QString& SQL, QString& DatabaseName, QString& TableName) {
    GetParser(SQL).GetFullTableName(DatabaseName, TableName);
}

QString GetIndexCollateOption(const QString& SQL, const QString& FieldName) {
    return GetParser(SQL).GetIndexCollateOption(FieldName);
}

QString GetIndexFieldSortOrder(const QString& SQL, const QString& FieldName) {
    return GetParser(SQL).GetIndexFieldSortOrder(FieldName);
}

QString GetIndexWhereClause(const QString& SQL) {
    return GetParser(SQL).GetIndexWhereClause();
}

void IndexColumnOptions(const QString& IndexSQL, int Place, const QString& EngineCollation,
                        bool EngineDescending, const QString& OwnCollation, QString& Collate,
                        QString& SortOrder) {
    const std::vector<TIndexColumnRec> columns = GetParser(IndexSQL).GetIndexColumns();
    const TIndexColumnRec written = Place >= 0 && static_cast<size_t>(Place) < columns.size()
                                        ? columns[static_cast<size_t>(Place)]
                                        : TIndexColumnRec();
    const QString& writtenCollation = written.Collate;
    const QString& writtenOrder = written.SortOrder;
    const QString own = OwnCollation.isEmpty() ? QStringLiteral("BINARY") : OwnCollation;
    if (writtenCollation.compare(EngineCollation, Qt::CaseInsensitive) == 0)
        Collate = writtenCollation;
    else if (EngineCollation.isEmpty() || EngineCollation.compare(own, Qt::CaseInsensitive) == 0)
        Collate.clear();
    else
        Collate = EngineCollation;
    const bool writtenDescending = writtenOrder.startsWith(QLatin1String("DESC"), Qt::CaseInsensitive);
    if (EngineDescending)
        SortOrder = writtenDescending ? writtenOrder : QStringLiteral("DESC");
    else
        SortOrder = writtenDescending ? QString() : writtenOrder;
}

QString ReplaceTableNameInTrigger(const QString& SQL, const QString& NewTableName) {
    return GetParser(SQL).ReplaceTableNameInTrigger(NewTableName);
}

QString ReplaceTriggerName(const QString& SQL, const QString& NewTriggerName) {
    return GetParser(SQL).ReplaceTriggerName(NewTriggerName);
}

QString StripOrderBy(const QString& SQL) {
    return GetParser(SQL).StripOrderBy();
}

QString PostProcessSQL(const QString& SQL) {
    return GetParser(SQL).PostProcess();
}

void GetParamsFromSQL(const QString& SQL, QStringList& Params) {
    GetParser(SQL).GetParams(Params);
}

bool SQLContains(const QString& SQL, const TSQLTokenTypes& TokenTypes) {
    return GetParser(SQL).Contains(TokenTypes);
}

void InstallSQLParserServices() {
    TSQLTextServices s;
    s.GetSQLCommand = [](const QString& SQL) { return GetParser(SQL).SQLCommand(); };
    s.GetSavepointName = [](const QString& SQL) { return GetParser(SQL).GetSavepointName(); };
    s.GetDatabaseNameFromSQL = [](const QString& SQL) { return GetParser(SQL).GetDatabaseName(); };
    s.GetFileNameFromSQL = [](const QString& SQL) { return GetParser(SQL).GetFileName(); };
    s.GetLoadExtensionParams = [](const QString& SQL, QString& FileName, QString& EntryPoint) {
        return GetParser(SQL).GetLoadExtensionParams(FileName, EntryPoint);
    };
    s.GetVirtualTableModule = [](const QString& SQL) { return GetParser(SQL).GetVirtualTableModule(); };
    s.IsWithoutRowid = [](const QString& SQL) { return GetParser(SQL).IsWithoutRowid(); };
    s.GetTriggerDatabaseName = [](const QString& SQL) { return GetParser(SQL).GetTriggerDatabaseName(); };
    s.GetTableNameFromSQL = [](const QString& SQL) { return GetParser(SQL).GetTableName(); };
    s.GetTableCountFromSQL = [](const QString& SQL) { return GetParser(SQL).GetTableCount(); };
    s.IsSimpleSelect = [](const QString& SQL) { return GetParser(SQL).IsSimpleSelect(); };
    s.HasOrderBy = [](const QString& SQL) { return GetParser(SQL).HasOrderBy(); };
    s.FixFilterExpression = [](const QString& SQL, const QStringList& ExcludedFieldNames) {
        return GetParser(SQL).FixFilterExpression(ExcludedFieldNames);
    };
    s.GetQueryInfo = [](const QString& SQL, std::vector<TTableInfoRec>& Tables, std::vector<TFieldInfoRec>& Fields) {
        TSQLParser& p = GetParser(SQL);
        p.GetTableInfo(Tables);
        p.GetFieldInfo(Fields, Tables);
    };
    s.GetSelectClause = [](const QString& SQL) { return GetParser(SQL).GetSelectClause(); };
    s.HasSubquery = [](const QString& SQL) { return GetParser(SQL).HasSubquery(); };
    s.HasSetOperationOrGrouping = [](const QString& SQL) {
        return GetParser(SQL).Contains({stExcept, stGroupBy, stIntersect, stUnion});
    };
    SetSQLTextServices(s);
}

}  // namespace brindle
