#include "CodeComplete.h"

#include "EditorText.h"
#include "engine/DLQuoteTools.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"
#include "engine/SQLScanner.h"

#include <algorithm>
#include <array>
#include <exception>
#include <initializer_list>

namespace brindle {

namespace {

// ---------------------------------------------------------------------------
// The rule table. A rule matches when the statement's first token is its
// command (any, when stUnknown), the last token stands in its section (any,
// when stUnknown), and the last tokens are its tail, in order. The first
// rule that matches gives the expected types. Rows that an earlier row with
// the same tail shadows are kept: the table reads as the rules were set out.

constexpr TSQLTokenType Any = stUnknown;
constexpr size_t MaxTail = 7;

struct TCandidateRule {
    TSQLTokenType Command;
    TSQLTokenType Section;
    std::array<TSQLTokenType, MaxTail> Tail;  // ends at the first stUnknown
    TTokenTypes Expected;
};

// Recurring sets of expected types.
constexpr TTokenTypes Conflicts{stAbort, stFail, stIgnore, stReplace, stRollback};
constexpr TTokenTypes FKActions{stCascade, stNoAction, stRestrict, stSetDefault, stSetNull};
constexpr TTokenTypes Initially{stInitiallyDeferred, stInitiallyImmediate};
constexpr TTokenTypes FKClauses{stDeferrable, stMatch, stNotDeferrable, stOnDelete, stOnUpdate};
constexpr TTokenTypes Deferral{stDeferrable, stNotDeferrable};
constexpr TTokenTypes ColumnConstraints{stCheck,   stCollate,    stConstraint, stDefault,
                                        stNotNull, stPrimaryKey, stReferences, stUnique};
constexpr TTokenTypes TableConstraints{stCheck, stConstraint, stForeignKey, stPrimaryKey, stUnique};
constexpr TTokenTypes TriggerEvents{stDelete, stInsert, stUpdate};
constexpr TTokenTypes SelectItems{
    stAllFields, stAll, stCount, stCurrentDate, stCurrentTime, stDistinct, stCurrentTimestamp, stFieldName};
constexpr TTokenTypes Sources{stDatabaseName, stTableName, stViewName};

// clang-format off
constexpr TCandidateRule CandidateRules[] = {
    // Any statement.
    {Any, Any, {stTableName, stDot}, {stAllFields, stFieldName}},
    {Any, Any, {stCollate}, {stCollateOption}},
    {Any, Any, {stCollate, stCollateOption}, {stAscending, stDescending}},
    {Any, Any, {stAlter}, {stTable}},
    {Any, Any, {stDrop}, {stIndex, stTable, stTrigger, stView}},

    {stAlterTable, Any, {stAlterTable}, {stDatabaseName, stTableName}},
    {stAlterTable, Any, {stTableName}, {stAddColumn, stRenameTo}},
    {stAlterTable, Any, {stDatabaseName, stDot}, {stTableName}},

    {stAnalyze, Any, {stAnalyze}, {stDatabaseName, stTableName}},
    {stAnalyze, Any, {stDatabaseName, stDot}, {stTableName}},

    {stAttach, Any, {stAttach, stFileName}, {stAs}},
    {stBegin, Any, {stBegin}, {stTransaction}},
    {stCommit, Any, {stCommit}, {stTransaction}},

    {stCreate, Any, {stCreate}, {stIndex, stTable, stTemp, stTemporary, stTrigger, stUnique, stView, stVirtual}},
    {stCreate, Any, {stCreate, stTemp}, {stIndex, stTable, stTrigger, stView}},
    {stCreate, Any, {stCreate, stTemporary}, {stIndex, stTable, stTrigger, stView}},
    {stCreate, Any, {stCreate, stUnique}, {stIndex}},
    {stCreate, Any, {stCreate, stVirtual}, {stTable}},

    {stCreateIndex, Any, {stCreateIndex}, {stDatabaseName, stIfNotExists}},
    {stCreateIndex, Any, {stIndexName}, {stOn}},
    {stCreateIndex, Any, {stOn}, {stTableName}},
    {stCreateIndex, Any, {stOpenParen}, {stFieldName}},
    {stCreateIndex, Any, {stComma}, {stFieldName}},
    {stCreateIndex, Any, {stFieldName}, {stAscending, stCollate, stDescending}},
    {stCreateIndex, Any, {stCollate}, {stCollateOption}},
    {stCreateIndex, Any, {stCollateOption}, {stAscending, stDescending}},

    {stCreateTable, Any, {stCreateTable}, {stDatabaseName, stIfNotExists}},
    {stCreateTable, Any, {stTableName, stOpenParen}, {stFieldName}},
    {stCreateTable, Any, {stFieldName, stComma}, {stFieldName}},
    {stCreateTable, Any, {stFieldType, stComma}, {stFieldName}},
    {stCreateTable, Any, {stCloseParen, stComma}, {stFieldName}},
    {stCreateTable, Any, {stFieldName}, {stFieldType}},
    {stCreateTable, Any, {stNot}, {stNull}},
    {stCreateTable, Any, {stNotNull}, Conflicts},
    {stCreateTable, Any, {stUnique}, Conflicts},
    {stCreateTable, Any, {stPrimary}, {stKey}},
    {stCreateTable, Any, {stPrimaryKey}, {stAscending, stDescending, stOnConflict}},
    {stCreateTable, Any, {stPrimaryKey, stAscending}, {stOnConflict}},
    {stCreateTable, Any, {stPrimaryKey, stDescending}, {stOnConflict}},
    {stCreateTable, Any, {stForeign}, {stKey}},
    {stCreateTable, Any, {stReferences}, {stTableName}},
    {stCreateTable, Any, {stReferences, stParentTableName, stOpenParen}, {stParentFieldName}},
    {stCreateTable, Any, {stParentFieldName, stComma}, {stParentFieldName}},
    {stCreateTable, Any, {stOnDelete}, FKActions},
    {stCreateTable, Any, {stOnUpdate}, FKActions},
    {stCreateTable, Any, {stDeferrable}, Initially},
    {stCreateTable, Any, {stNotDeferrable}, Initially},
    {stCreateTable, Any, {stReferences, stTableName}, FKClauses},
    {stCreateTable, Any, {stReferences, stTableName, stOpenParen, stFieldName, stCloseParen}, FKClauses},
    {stCreateTable, Any,
     {stReferences, stTableName, stOpenParen, stFieldName, stComma, stFieldName, stCloseParen}, FKClauses},
    {stCreateTable, Any, {stSetNull}, Deferral},
    {stCreateTable, Any, {stSetDefault}, Deferral},
    {stCreateTable, Any, {stCascade}, Deferral},
    {stCreateTable, Any, {stRestrict}, Deferral},
    {stCreateTable, Any, {stNoAction}, Deferral},
    {stCreateTable, Any, {stMatch, stMatchName}, Deferral},
    {stCreateTable, Any, {stFieldName},
     {stCheck, stCollate, stConstraint, stDefault, stFieldType, stNotNull, stPrimaryKey, stReferences, stUnique}},
    {stCreateTable, Any, {stFieldType}, ColumnConstraints},
    {stCreateTable, Any, {stFieldSize, stCloseParen}, ColumnConstraints},
    {stCreateTable, Any, {stFieldPrecision, stCloseParen}, ColumnConstraints},
    {stCreateTable, Any, {stFieldName, stComma}, TableConstraints},
    {stCreateTable, Any, {stFieldType, stComma}, TableConstraints},
    {stCreateTable, Any, {stFieldSize, stCloseParen, stComma}, TableConstraints},
    {stCreateTable, Any, {stFieldPrecision, stCloseParen, stComma}, TableConstraints},
    {stCreateTable, Any, {stUnique, stOpenParen}, {stUniqueFieldName}},
    {stCreateTable, Any, {stUniqueFieldName, stComma}, {stUniqueFieldName}},

    {stCreateTrigger, Any, {stCreateTrigger}, {stDatabaseName, stIfNotExists}},
    {stCreateTrigger, Any, {stTriggerName}, {stAfter, stBefore, stInsteadOf}},
    {stCreateTrigger, Any, {stBefore}, TriggerEvents},
    {stCreateTrigger, Any, {stAfter}, TriggerEvents},
    {stCreateTrigger, Any, {stInsteadOf}, TriggerEvents},
    {stCreateTrigger, Any, {stUpdate}, {stOf}},
    {stCreateTrigger, Any, {stUpdate, stOf}, {stFieldName}},
    {stCreateTrigger, Any, {stFieldName, stComma}, {stFieldName}},
    {stCreateTrigger, Any, {stFieldName}, {stOn}},
    {stCreateTrigger, Any, {stFieldName, stOn}, {stTableName}},
    {stCreateTrigger, Any, {stOn, stTableName}, {stBegin, stForEachRow, stWhen}},
    {stCreateTrigger, Any, {stForEachRow}, {stBegin, stWhen}},

    {stCreateView, Any, {stCreateView}, {stDatabaseName, stIfNotExists}},
    {stCreateView, Any, {stViewName}, {stAs}},

    {stCreateVirtualTable, Any, {stTableName}, {stUsing}},

    {stDelete, Any, {stDelete}, {stFrom}},
    {stDelete, Any, {stDelete, stFrom}, {stDatabaseName, stTableName}},
    {stDelete, Any, {stDatabaseName, stDot}, {stTableName}},
    {stDelete, Any, {stDelete, stFrom, stTableName}, {stIndexedBy, stNotIndexed, stWhere}},
    {stDelete, Any, {stDelete, stFrom, stDatabaseName, stDot, stTableName}, {stIndexedBy, stNotIndexed, stWhere}},
    {stDelete, Any, {stTableName}, {stWhere}},
    {stDelete, Any, {stIndexName}, {stWhere}},
    {stDelete, Any, {stNotIndexed}, {stWhere}},
    {stDelete, Any, {stNot}, {stIndexed}},
    {stDelete, Any, {stTableName, stIndexed}, {stBy}},

    {stDetach, Any, {stDatabase}, {stDatabaseName}},

    {stDropIndex, Any, {stDropIndex}, {stDatabaseName, stIfExists, stIndexName}},
    {stDropIndex, Any, {stIfExists}, {stDatabaseName, stIndexName}},
    {stDropIndex, Any, {stDatabaseName, stDot}, {stIndexName}},
    {stDropTable, Any, {stDropTable}, {stDatabaseName, stIfExists, stTableName}},
    {stDropTable, Any, {stIfExists}, {stDatabaseName, stTableName}},
    {stDropTable, Any, {stDatabaseName, stDot}, {stTableName}},
    {stDropTrigger, Any, {stDropTrigger}, {stDatabaseName, stIfExists, stTriggerName}},
    {stDropTrigger, Any, {stIfExists}, {stDatabaseName, stTriggerName}},
    {stDropTrigger, Any, {stDatabaseName, stDot}, {stTriggerName}},
    {stDropView, Any, {stDropView}, {stDatabaseName, stIfExists, stViewName}},
    {stDropView, Any, {stIfExists}, {stDatabaseName, stViewName}},
    {stDropView, Any, {stDatabaseName, stDot}, {stViewName}},

    {stEnd, Any, {stEnd}, {stTransaction}},
    {stExplain, Any, {stExplain}, {stQueryPlan}},

    {stInsert, Any, {stInsert}, {stInto, stOr}},
    {stInsert, Any, {stOr}, Conflicts},
    {stInsert, Any, {stRollback}, {stInto}},
    {stInsert, Any, {stAbort}, {stInto}},
    {stInsert, Any, {stReplace}, {stInto}},
    {stInsert, Any, {stFail}, {stInto}},
    {stInsert, Any, {stIgnore}, {stInto}},
    {stInsert, Any, {stInto}, {stDatabaseName, stTableName}},
    {stInsert, Any, {stInto, stDatabaseName, stDot}, {stTableName}},
    {stInsert, Any, {stTableName}, {stDefaultValues, stValues}},
    {stInsert, Any, {stFieldName, stCloseParen}, {stValues}},
    {stInsert, Any, {stTableName, stOpenParen}, {stFieldName}},
    {stInsert, Any, {stFieldName, stComma}, {stFieldName}},

    {stPragma, Any, {stPragma}, {stPragmaName}},

    {stReindex, Any, {stReindex}, {stCollateOption, stDatabaseName, stIndexName, stTableName}},
    {stReindex, Any, {stReindex, stDatabaseName, stDot}, {stIndexName, stTableName}},

    {stRelease, Any, {stRelease}, {stSavepoint, stSavepointName}},
    {stRelease, Any, {stRelease, stSavepoint}, {stSavepointName}},

    {stReplace, Any, {stReplace}, {stInto}},
    {stReplace, Any, {stInto}, {stDatabaseName, stTableName}},
    {stReplace, Any, {stDatabaseName, stDot}, {stTableName}},
    {stReplace, Any, {stInto, stDatabaseName, stDot}, {stTableName}},
    {stReplace, Any, {stTableName}, {stDefaultValues, stValues}},
    {stReplace, Any, {stFieldName, stCloseParen}, {stValues}},
    {stReplace, Any, {stTableName, stOpenParen}, {stFieldName}},
    {stReplace, Any, {stFieldName, stComma}, {stFieldName}},

    {stRollback, Any, {stRollback}, {stTo, stTransaction}},
    {stRollback, Any, {stTransaction}, {stTo}},
    {stRollback, Any, {stTo}, {stSavepointName}},

    {stSelect, Any, {stLoadExtension, stOpenParen, stFileName, stComma}, {stEntryPoint}},
    {stSelect, Any, {stSelect}, SelectItems},
    {stSelect, Any, {stComma}, SelectItems},
    {stSelect, Any, {stOrderBy}, {stFieldName}},
    {stSelect, Any, {stOrder}, {stBy}},
    {stSelect, Any, {stLimit, stNumber}, {stOffset}},
    {stSelect, Any, {stAllFields}, {stFrom}},
    {stSelect, stSelect, {stFieldName}, {stFrom, stGroupBy, stWhere}},
    {stSelect, stFrom, {stFrom}, Sources},
    {stSelect, stFrom, {stComma}, Sources},
    {stSelect, stFrom, {stDatabaseName, stDot}, {stTableName, stViewName}},
    {stSelect, stJoin, {stFrom}, Sources},
    {stSelect, stJoin, {stComma}, Sources},
    {stSelect, stJoin, {stDatabaseName, stDot}, {stTableName, stViewName}},
    {stSelect, Any, {stTableName, stDot}, {stAllFields, stFieldName}},

    {stUpdate, Any, {stUpdate}, {stDatabaseName, stOr, stTableName}},
    {stUpdate, Any, {stOr}, Conflicts},
    {stUpdate, Any, {stRollback}, {stDatabaseName, stTableName}},
    {stUpdate, Any, {stAbort}, {stDatabaseName, stTableName}},
    {stUpdate, Any, {stReplace}, {stDatabaseName, stTableName}},
    {stUpdate, Any, {stFail}, {stDatabaseName, stTableName}},
    {stUpdate, Any, {stIgnore}, {stDatabaseName, stTableName}},
    {stUpdate, Any, {stDatabaseName, stDot}, {stTableName}},
    {stUpdate, Any, {stTableName}, {stIndexedBy, stNotIndexed, stSet}},
    {stUpdate, Any, {stIndexName}, {stSet}},
    {stUpdate, Any, {stNotIndexed}, {stSet}},
    {stUpdate, Any, {stSet}, {stFieldName}},
    {stUpdate, Any, {stFieldName, stComma}, {stFieldName}},
};
// clang-format on

bool RuleMatches(const TCandidateRule& Rule, const TSQLTokenItems& Tokens) {
    if (Tokens.empty()) return false;
    if (Rule.Command != Any && Tokens.front().FSQLToken != Rule.Command) return false;
    if (Rule.Section != Any && Tokens.back().FSection != Rule.Section) return false;
    const size_t length =
        static_cast<size_t>(std::find(Rule.Tail.begin(), Rule.Tail.end(), stUnknown) - Rule.Tail.begin());
    if (length == 0 || Tokens.size() < length) return false;
    const size_t first = Tokens.size() - length;
    for (size_t i = 0; i < length; ++i)
        if (Tokens[first + i].FSQLToken != Rule.Tail[i]) return false;
    return true;
}

// ---------------------------------------------------------------------------
// Fixed words.

constexpr int DatabasePriority = 0;
constexpr int TablePriority = 1;
constexpr int ViewPriority = 2;
constexpr int FieldPriority = 3;
constexpr int SavepointPriority = 4;
constexpr int WordPriority = 5;

const QString KindDatabase = QStringLiteral("database");
const QString KindTable = QStringLiteral("table");
const QString KindView = QStringLiteral("view");
const QString KindField = QStringLiteral("field");
const QString KindSavepoint = QStringLiteral("savepoint");
const QString KindCollation = QStringLiteral("collation");
const QString KindCommand = QStringLiteral("command");
const QString KindKeyword = QStringLiteral("keyword");
const QString KindType = QStringLiteral("type");
const QString KindPragma = QStringLiteral("pragma");
const QString KindEntryPoint = QStringLiteral("entry point");

struct TCommandPhrase {
    TSQLTokenType Type;
    const char* Phrase;
};

constexpr TCommandPhrase CommandPhrases[] = {
    {stAlterTable, "ALTER TABLE"},
    {stAnalyze, "ANALYZE"},
    {stAttach, "ATTACH DATABASE"},
    {stBegin, "BEGIN"},
    {stCommit, "COMMIT"},
    {stCreateTable, "CREATE TABLE"},
    {stCreateTable, "CREATE TEMPORARY TABLE"},
    {stCreateView, "CREATE VIEW"},
    {stCreateView, "CREATE TEMPORARY VIEW"},
    {stCreateIndex, "CREATE INDEX"},
    {stCreateTrigger, "CREATE TRIGGER"},
    {stCreateTrigger, "CREATE TEMPORARY TRIGGER"},
    {stCreateVirtualTable, "CREATE VIRTUAL TABLE"},
    {stDelete, "DELETE"},
    {stDetach, "DETACH DATABASE"},
    {stDropTable, "DROP TABLE"},
    {stDropIndex, "DROP INDEX"},
    {stDropView, "DROP VIEW"},
    {stDropTrigger, "DROP TRIGGER"},
    {stRollback, "ROLLBACK"},
    {stReplace, "REPLACE"},
    {stReindex, "REINDEX"},
    {stExplain, "EXPLAIN"},
    {stEnd, "END"},
    {stSelect, "SELECT"},
    {stUpdate, "UPDATE"},
    {stInsert, "INSERT"},
    {stPragma, "PRAGMA"},
    {stVacuum, "VACUUM"},
    {stRelease, "RELEASE"},
    {stSavepoint, "SAVEPOINT"},
};

// The declared types offered behind a column name; a list of its own, not
// the type mapping table.
// clang-format off
constexpr const char* TypeNames[] = {
    "AUTOINC", "BIGINT", "BINARY", "BLOB", "BLOB_TEXT", "BOOL", "BOOLEAN", "CHAR", "CLOB", "CURRENCY", "DATE",
    "DATETEXT", "DATETIME", "DEC", "DECIMAL", "DOUBLE", "DOUBLE PRECISION", "FLOAT", "GRAPHIC", "GUID", "INT",
    "INT64", "INTEGER", "LARGEINT", "MEMO", "MONEY", "NCHAR", "NTEXT", "NUMBER", "NUMERIC", "NVARCHAR",
    "NVARCHAR2", "RAW", "REAL", "SMALLINT", "SMALLMONEY", "TEXT", "TIME", "TIMESTAMP", "TINYINT", "VARBINARY",
    "VARCHAR", "VARCHAR2", "WORD"};
static_assert(std::size(TypeNames) == 44);

constexpr const char* PragmaNames[] = {
    "auto_vacuum", "cache_size", "case_sensitive_like", "collation_list", "count_changes",
    "empty_result_callbacks", "encoding", "foreign_keys", "freelist_count", "full_column_names", "fullfsync",
    "journal_mode", "journal_size_limit", "legacy_file_format", "locking_mode", "max_page_count", "page_count",
    "page_size", "read_uncommitted", "recursive_triggers", "reverse_unordered_selects", "schema_version",
    "short_column_names", "synchronous", "temp_store", "temp_store_directory", "user_version"};
// clang-format on
static_assert(std::size(PragmaNames) == 27);

struct TKeywordPhrase {
    TSQLTokenType Type;
    QString Phrase;
};

// One phrase per keyword type: its first row in the scanner's table, in
// upper case. Command types have their phrases above; operators and "*"
// are no keywords.
const std::vector<TKeywordPhrase>& KeywordPhrases() {
    static const std::vector<TKeywordPhrase> phrases = [] {
        std::vector<TKeywordPhrase> result;
        std::array<bool, SQL_TOKEN_TYPE_COUNT> seen{};
        for (const TSQLKeyword& k : Keywords()) {
            if (seen[k.Type] || SQLCommands.Contains(k.Type) || k.Type == stOperator || k.Type == stAllFields)
                continue;
            seen[k.Type] = true;
            QString phrase;
            for (int w = 0; w < k.WordCount; ++w) {
                if (w > 0) phrase += u' ';
                phrase += QLatin1String(k.Words[w].data(), static_cast<qsizetype>(k.Words[w].size()));
            }
            result.push_back({k.Type, phrase.toUpper()});
        }
        return result;
    }();
    return phrases;
}

// The roles that stand for a column.
constexpr TSQLTokenType FieldRoles[] = {stFieldName, stParentFieldName, stUniqueFieldName,
                                        stPrimaryKeyFieldName, stChildFieldName};

bool Usable(const TDLSQLiteDatabase* Database) {
    return Database != nullptr && Database->Connected();
}

// Whether Name is one of the connection's databases, ignoring case.
bool HasDatabase(const QStringList& Databases, const QString& Name) {
    return std::any_of(Databases.begin(), Databases.end(),
                       [&](const QString& d) { return d.compare(Name, Qt::CaseInsensitive) == 0; });
}

// ---------------------------------------------------------------------------
// Schema names, one catalogue question per database.

bool IsSystemName(const QString& Name) {
    return Name.startsWith(QLatin1String("sqlite_"), Qt::CaseInsensitive);
}

// The tables a virtual table of Module keeps its data in, by suffix.
QStringList ShadowSuffixes(const QString& Module) {
    const QString m = Module.toLower();
    auto list = [](std::initializer_list<const char*> Suffixes) {
        QStringList result;
        for (const char* s : Suffixes) result.append(QLatin1String(s));
        return result;
    };
    if (m == QLatin1String("fts3")) return list({"_content", "_segdir", "_segments"});
    if (m == QLatin1String("fts4")) return list({"_content", "_segdir", "_segments", "_stat", "_docsize"});
    if (m == QLatin1String("fts5")) return list({"_data", "_idx", "_content", "_docsize", "_config"});
    if (m == QLatin1String("rtree") || m == QLatin1String("rtree_i32") || m == QLatin1String("geopoly"))
        return list({"_node", "_rowid", "_parent"});
    return {};
}

// For libraries without pragma table_list: the schema table, with shadow
// tables told by the modules of the virtual tables beside them.
void ReadNamesFromSchemaTable(TDLSQLiteDatabase& Database, const QString& DatabaseName,
                              TCompletionContext::TSchemaNames& Names) {
    const QString master = SameObject(DatabaseName, QStringLiteral("temp"))
                               ? QStringLiteral("sqlite_temp_master")
                               : QuoteSQLName(DatabaseName) + QStringLiteral(".sqlite_master");
    const IRecordSetPtr rows = Database.GetRecordSet(
        QStringLiteral("select type, name, sql from %1 where type in ('table', 'view')").arg(master));
    QStringList shadows;
    for (int r = 0; r < rows->GetRecordCount(); ++r) {
        const QString sql = rows->GetValue(r, 2);
        if (!sql.contains(QLatin1String("VIRTUAL"), Qt::CaseInsensitive)) continue;
        TSQLParser parser;
        parser.SetText(sql);
        if (parser.SQLCommand() != stCreateVirtualTable) continue;
        for (const QString& suffix : ShadowSuffixes(parser.GetVirtualTableModule()))
            shadows.append((rows->GetValue(r, 1) + suffix).toLower());
    }
    for (int r = 0; r < rows->GetRecordCount(); ++r) {
        const QString name = rows->GetValue(r, 1);
        if (rows->GetValue(r, 0) == QLatin1String("view"))
            Names.Views.append(name);
        else if (!IsSystemName(name) && !shadows.contains(name.toLower()))
            Names.Tables.append(name);
    }
}

const TCompletionContext::TSchemaNames& SchemaNames(TCompletionContext& Context,
                                                    const QString& DatabaseName) {
    const QString key = DatabaseName.toLower();
    if (auto it = Context.SchemaNames.find(key); it != Context.SchemaNames.end()) return it->second;
    TCompletionContext::TSchemaNames& names = Context.SchemaNames[key];
    TDLSQLiteDatabase& database = *Context.Database;
    try {
        // The engine knows every module's shadow tables; older libraries lack
        // the pragma, and a view it cannot resolve makes it fail.
        const IRecordSetPtr rows =
            database.GetRecordSet(QStringLiteral("pragma %1.table_list").arg(QuoteSQLName(DatabaseName)));
        const int nameColumn = static_cast<int>(rows->GetNames().indexOf(QStringLiteral("name")));
        const int typeColumn = static_cast<int>(rows->GetNames().indexOf(QStringLiteral("type")));
        if (nameColumn < 0 || typeColumn < 0) throw ECustomException(QStringLiteral("No table list"));
        for (int r = 0; r < rows->GetRecordCount(); ++r) {
            const QString name = rows->GetValue(r, nameColumn);
            const QString type = rows->GetValue(r, typeColumn);
            if (type == QLatin1String("view"))
                names.Views.append(name);
            else if ((type == QLatin1String("table") || type == QLatin1String("virtual")) &&
                     !IsSystemName(name))
                names.Tables.append(name);
        }
    } catch (const std::exception&) {
        names = {};
        ReadNamesFromSchemaTable(database, DatabaseName, names);
    }
    return names;
}

// The databases whose names to offer: the one named right before the caret,
// else temp (first for unqualified names) and main.
QStringList NameSources(const TCompletionContext& Context) {
    const QStringList databases = Context.Database->DatabaseNames();
    const TSQLTokenItems& tokens = Context.TokensBefore;
    const size_t n = tokens.size();
    QStringList result;
    if (n >= 2 && tokens[n - 2].FSQLToken == stDatabaseName && tokens[n - 1].FSQLToken == stDot) {
        for (const QString& d : databases)
            if (SameObject(d, tokens[n - 2].FValue)) result.append(d);
        return result;
    }
    // Temp exists once something asked for it; asking here would open it.
    if (HasDatabase(databases, QStringLiteral("temp"))) result.append(QStringLiteral("temp"));
    result.append(QStringLiteral("main"));
    return result;
}

void AddSchemaNames(TCompletionContext& Context, QStringList& List, bool Views) {
    if (!Usable(Context.Database)) return;
    for (const QString& database : NameSources(Context)) {
        const auto& names = SchemaNames(Context, database);
        for (const QString& name : Views ? names.Views : names.Tables) {
            List.append(Views ? ProposalItemText(ViewPriority, KindView, name, CompletionName(name))
                              : ProposalItemText(TablePriority, KindTable, name, CompletionName(name)));
        }
    }
}

// ---------------------------------------------------------------------------
// Columns.

TSQLTokenType StatementKind(const TSQLTokenItems& Tokens) {
    for (const TSQLTokenItem& t : Tokens)
        if (SQLCommands.Contains(t.FSQLToken)) return t.FSQLToken;
    return stUnknown;
}

// In CREATE TABLE columns stand only in a REFERENCES list: the innermost open
// parenthesis before the caret must belong to one.
bool InReferencesList(const TSQLTokenItems& Tokens) {
    int level = 0;
    for (auto t = Tokens.rbegin(); t != Tokens.rend(); ++t) {
        switch (t->FSQLToken) {
            case stCloseParen:
                --level;
                break;
            case stOpenParen:
                ++level;
                break;
            case stReferences:
            case stUnique:
            case stConstraint:
            case stCreateTable:
                if (level == 1) return t->FSQLToken == stReferences;
                break;
            default:
                break;
        }
    }
    return false;
}

// The database written in front of the name at Index ("db.name"), if any.
QString DatabasePart(const TSQLTokenItems& Tokens, size_t Index) {
    if (Index >= 2 && Tokens[Index - 1].FSQLToken == stDot && Tokens[Index - 2].FSQLToken == stDatabaseName)
        return Tokens[Index - 2].FValue;
    return QString();
}

// A name in front of "." may be an alias of FROM or JOIN, also one behind the
// caret. The statement is read again whole, with a stand-in word at the caret
// when none is begun, so that it parses on past the caret.
void ResolveAlias(const TCompletionContext& Context, QString& Table, QString& Database) {
    const QString text = Context.SQLBefore +
                         (Context.CurrentInput.isEmpty() ? QStringLiteral("x") : QString()) +
                         Context.SQLAfter;
    const TSQLTokenItems tokens = GetTokens(text);
    const QString alias = Table;
    for (size_t i = 0; i < tokens.size(); ++i) {
        const TSQLTokenItem& t = tokens[i];
        if (t.FSQLToken != stTableAlias || (t.FSection != stFrom && t.FSection != stJoin) ||
            !SameObject(t.FValue, alias))
            continue;
        size_t at = i;
        if (at > 0 && tokens[at - 1].FSQLToken == stAs) --at;
        if (at == 0 || tokens[at - 1].FSQLToken != stTableName) continue;
        Table = tokens[at - 1].FValue;
        Database = DatabasePart(tokens, at - 1);
    }
}

// ---------------------------------------------------------------------------
// Templates.

const QString TemplatesText = QStringLiteral(
    "# Header \"[name | description]\", then the body. \"|\" marks the caret.\n"
    "[sel | select all columns]\n"
    "SELECT * FROM |\n"
    "[selw | select with a condition]\n"
    "SELECT *\n"
    "FROM |\n"
    "WHERE \n"
    "[selc | count the rows]\n"
    "SELECT COUNT(*) FROM |\n"
    "[selj | select from a join]\n"
    "SELECT *\n"
    "FROM | a\n"
    "  JOIN  b ON b. = a.\n"
    "[ins | insert a row]\n"
    "INSERT INTO | ()\n"
    "VALUES ()\n"
    "[upd | update rows]\n"
    "UPDATE |\n"
    "SET \n"
    "WHERE \n"
    "[del | delete rows]\n"
    "DELETE FROM |\n"
    "WHERE \n"
    "[ct | create a table]\n"
    "CREATE TABLE | (\n"
    "  id INTEGER PRIMARY KEY,\n"
    "  \n"
    ")\n"
    "[ci | create an index]\n"
    "CREATE INDEX | ON  ()\n"
    "[cui | create a unique index]\n"
    "CREATE UNIQUE INDEX | ON  ()\n"
    "[cv | create a view]\n"
    "CREATE VIEW | AS\n"
    "SELECT \n"
    "[ctr | create a trigger]\n"
    "CREATE TRIGGER | AFTER INSERT ON \n"
    "BEGIN\n"
    "  \n"
    "END\n"
    "[atc | add a column]\n"
    "ALTER TABLE | ADD COLUMN \n"
    "[tr | a transaction]\n"
    "BEGIN TRANSACTION;\n"
    "|\n"
    "COMMIT;\n");

}  // namespace

// ---------------------------------------------------------------------------

namespace {

// Plain copies of the parser's first Count tokens.
TSQLTokenItems CopyTokens(TSQLParser& Parser, int Count) {
    TSQLTokenItems result;
    result.reserve(static_cast<size_t>(Count));
    for (int i = 0; i < Count; ++i) {
        const TSQLToken* t = Parser.SQLTokens(i);
        result.push_back({t->FSQLToken, t->FSection, t->FValue});
    }
    return result;
}

}  // namespace

TSQLTokenItems GetTokens(const QString& SQL) {
    TSQLParser parser;
    parser.SetText(SQL);
    return CopyTokens(parser, parser.GetTokenCount());
}

QString GetCurrentInput(const QString& SQLBefore) {
    const qsizetype lineStart = std::max(SQLBefore.lastIndexOf(u'\n'), SQLBefore.lastIndexOf(u'\r')) + 1;
    const QStringView line = QStringView(SQLBefore).mid(lineStart);
    // Quotes and comments of the caret line, from its start.
    qsizetype quoteStart = -1;
    QChar closing;
    for (qsizetype i = 0; i < line.size(); ++i) {
        const QChar c = line[i];
        const QChar next = i + 1 < line.size() ? line[i + 1] : QChar();
        if (quoteStart >= 0) {
            if (c != closing) continue;
            if (next == closing && closing != u']') {
                ++i;  // a doubled quote stands for itself
                continue;
            }
            quoteStart = -1;
        } else if (c == u'"' || c == u'\'' || c == u'`' || c == u'[') {
            quoteStart = i;
            closing = c == u'[' ? QChar(u']') : c;
        } else if (c == u'-' && next == u'-') {
            return QString();
        } else if (c == u'/' && next == u'*') {
            const qsizetype end = line.indexOf(u"*/", i + 2);
            if (end < 0) return QString();
            i = end + 1;
        }
    }
    if (quoteStart >= 0) return line.mid(quoteStart).toString();
    qsizetype start = line.size();
    while (start > 0) {
        const QChar c = line[start - 1];
        if (!(c.isLetterOrNumber() || c == u'_' || (c.unicode() >= 0x80 && !c.isSpace()))) break;
        --start;
    }
    return line.mid(start).toString();
}

TTokenTypes FindCandidates(const TSQLTokenItems& TokensBefore) {
    for (const TCandidateRule& rule : CandidateRules)
        if (RuleMatches(rule, TokensBefore)) return rule.Expected;
    return AllTokenTypes;
}

namespace {

// The tokens before the caret without the word being typed: every token
// that reaches into it goes, so a quoted name begun with a blank in it
// leaves nothing behind.
TSQLTokenItems TokensBeforeWord(const QString& SQLBefore, const QString& CurrentInput) {
    if (SQLBefore.isEmpty()) return {};
    TSQLParser parser;
    parser.SetText(SQLBefore);
    int n = parser.GetTokenCount();
    if (!CurrentInput.isEmpty() && n > 0) {
        if (SQLBefore.endsWith(CurrentInput)) {
            const int wordStart = static_cast<int>(SQLBefore.size() - CurrentInput.size());
            while (n > 0 && parser.GetTokens(n - 1)->EndIndex() > wordStart) --n;
        } else {
            --n;
        }
    }
    return CopyTokens(parser, n);
}

}  // namespace

TTokenTypes GetExpectedTokens(const QString& SQLBefore, const QString& CurrentInput) {
    QString before = SQLBefore;
    QString after;
    SeparateStatements(before, after);
    return FindCandidates(TokensBeforeWord(before, CurrentInput));
}

QString ProposalItemText(int Priority, const QString& Kind, const QString& Shown, const QString& Insert) {
    QString text;
    text.reserve(Kind.size() + Shown.size() + Insert.size() + 32);
    text += QChar(u'0' + std::clamp(Priority, 0, 5));
    text += Kind;
    text += QLatin1String("\\column{}\\style{+B}");
    text += Shown;
    text += QLatin1String("\\style{-B}");
    text += QChar(1);
    text += Insert;
    return text;
}

QString CompletionName(const QString& Name) {
    if (!IsValidIdentifier(Name)) return QuoteIdentifier(Name);
    // A keyword goes quoted unless the engine takes it for a name anywhere
    // (KEY, TOTAL, TEMP); phrases never stand for a name.
    for (const TSQLKeyword* k : KeywordCandidates(Name))
        if (k->WordCount == 1 && k->AsName != kaName) return QuoteIdentifier(Name);
    return Name;
}

void AddTableNames(TCompletionContext& Context, QStringList& List) {
    AddSchemaNames(Context, List, false);
}

void AddViewNames(TCompletionContext& Context, QStringList& List) {
    AddSchemaNames(Context, List, true);
}

void AddFieldNames(TCompletionContext& Context, QStringList& List) {
    const TSQLTokenItems& tokens = Context.TokensBefore;
    if (tokens.empty() || !Usable(Context.Database)) return;
    const TSQLTokenType kind = StatementKind(tokens);
    if (kind == stCreateTable && !InReferencesList(tokens)) return;
    size_t at = tokens.size();
    while (at > 0 && tokens[at - 1].FSQLToken != stTableName && tokens[at - 1].FSQLToken != stParentTableName)
        --at;
    if (at == 0) return;
    --at;
    QString table = tokens[at].FValue;
    QString database = DatabasePart(tokens, at);
    if (kind == stSelect && database.isEmpty()) ResolveAlias(Context, table, database);

    TDLSQLiteDatabase& db = *Context.Database;
    const QString object = QuoteObject(database, table);
    QStringList fields;
    if (db.TableExists(object))
        db.GetFieldNamesFromTable(object, fields);
    else if (db.ViewExists(object))
        db.GetFieldNamesFromSQL(QStringLiteral("select * from ") + object, fields);
    for (const QString& f : fields)
        List.append(ProposalItemText(FieldPriority, KindField, f, CompletionName(f)));
}

void AddItems(TCompletionContext& Context, const TTokenTypes& Types, QStringList& List) {
    for (const TCommandPhrase& c : CommandPhrases) {
        if (!Types.Contains(c.Type)) continue;
        const QString phrase = QLatin1String(c.Phrase);
        List.append(ProposalItemText(WordPriority, KindCommand, phrase, phrase));
    }
    for (const TKeywordPhrase& k : KeywordPhrases())
        if (Types.Contains(k.Type))
            List.append(ProposalItemText(WordPriority, KindKeyword, k.Phrase, k.Phrase));
    if (Types.Contains(stFieldType)) {
        for (const char* t : TypeNames) {
            const QString name = QLatin1String(t);
            List.append(ProposalItemText(WordPriority, KindType, name, name));
        }
    }
    if (Types.Contains(stPragmaName)) {
        for (const char* p : PragmaNames) {
            const QString name = QLatin1String(p);
            List.append(ProposalItemText(WordPriority, KindPragma, name, name));
        }
    }
    if (Types.Contains(stEntryPoint)) {
        const QString entry = QStringLiteral("'sqlite3_extension_init'");
        List.append(ProposalItemText(WordPriority, KindEntryPoint, entry, entry));
    }
    if (Types.Contains(stAllFields))
        List.append(ProposalItemText(WordPriority, KindField, QStringLiteral("*"), QStringLiteral("*")));

    // The live lists. A failing read costs only its own items, so that a
    // damaged schema or a busy file never stands in the way of typing.
    auto live = [&](auto&& Fill) {
        if (!Usable(Context.Database)) return;
        try {
            Fill();
        } catch (const std::exception&) {
        }
    };
    TDLSQLiteDatabase* database = Context.Database;
    if (Types.Contains(stDatabaseName)) {
        live([&] {
            for (const QString& d : database->DatabaseNames())
                List.append(ProposalItemText(DatabasePriority, KindDatabase, d, CompletionName(d)));
        });
    }
    if (Types.Contains(stSavepointName)) {
        live([&] {
            for (int i = 0; i < database->SavepointCount(); ++i) {
                const QString name = UnQuoteIdentifier(database->Savepoints(i));
                List.append(ProposalItemText(SavepointPriority, KindSavepoint, name, CompletionName(name)));
            }
        });
    }
    if (Types.Contains(stCollateOption)) {
        live([&] {
            QStringList collations;
            database->GetCollations(QString(), collations);
            for (const QString& c : collations)
                List.append(ProposalItemText(WordPriority, KindCollation, c, CompletionName(c)));
        });
    }
    if (Types.Contains(stTableName)) live([&] { AddTableNames(Context, List); });
    if (Types.Contains(stViewName)) live([&] { AddViewNames(Context, List); });
    bool fields = false;
    for (TSQLTokenType role : FieldRoles) fields = fields || Types.Contains(role);
    if (fields) live([&] { AddFieldNames(Context, List); });
}

namespace {

struct TSortedItem {
    QString Text;
    TCompletionItem Item;
};

// By the parts, not the whole text, so that a name sorts before its longer
// forms (INT before INT64, ADD before ADD COLUMN). Takes the texts out of List.
std::vector<TSortedItem> SortedItems(QStringList& List) {
    std::vector<TSortedItem> items;
    items.reserve(static_cast<size_t>(List.size()));
    for (QString& text : List) {
        TCompletionItem item = SplitProposalItem(text);
        items.push_back({std::move(text), std::move(item)});
    }
    List.clear();
    auto compare = [](const QString& a, const QString& b) {
        const int c = a.compare(b, Qt::CaseInsensitive);
        return c != 0 ? c : a.compare(b);
    };
    std::sort(items.begin(), items.end(), [&](const TSortedItem& a, const TSortedItem& b) {
        if (a.Item.Priority != b.Item.Priority) return a.Item.Priority < b.Item.Priority;
        if (const int c = compare(a.Item.Kind, b.Item.Kind); c != 0) return c < 0;
        if (const int c = compare(a.Item.Name, b.Item.Name); c != 0) return c < 0;
        return compare(a.Text, b.Text) < 0;
    });
    items.erase(std::unique(items.begin(), items.end(),
                            [](const TSortedItem& a, const TSortedItem& b) { return a.Text == b.Text; }),
                items.end());
    return items;
}

}  // namespace

void SortProposalList(QStringList& List) {
    for (TSortedItem& i : SortedItems(List)) List.append(std::move(i.Text));
}

TCompletionItem SplitProposalItem(const QString& ItemText) {
    TCompletionItem item;
    const qsizetype mark = ItemText.indexOf(QChar(1));
    const qsizetype displayEnd = mark < 0 ? ItemText.size() : mark;
    item.Display = ItemText.mid(1, displayEnd - 1);
    item.Insert = mark < 0 ? QString() : ItemText.mid(mark + 1);
    if (!ItemText.isEmpty() && ItemText.front().isDigit()) item.Priority = ItemText.front().digitValue();
    const QLatin1String column("\\column{}\\style{+B}");
    const QLatin1String boldEnd("\\style{-B}");
    const qsizetype columnAt = item.Display.indexOf(column);
    if (columnAt >= 0) {
        item.Kind = item.Display.left(columnAt);
        QString name = item.Display.mid(columnAt + column.size());
        if (name.endsWith(boldEnd)) name.chop(boldEnd.size());
        item.Name = name;
    } else {
        item.Name = item.Display;
    }
    return item;
}

std::vector<TCompletionItem> CompletionProposal(TDLSQLiteDatabase* Database, const QString& SQLBefore,
                                                const QString& SQLAfter, const QString& CurrentInput) {
    std::vector<TCompletionItem> result;
    QStringList list;
    try {
        TCompletionContext context;
        context.Database = Database;
        context.SQLBefore = SQLBefore;
        context.SQLAfter = SQLAfter;
        context.CurrentInput = CurrentInput == QLatin1String(";") ? QString() : CurrentInput;
        SeparateStatements(context.SQLBefore, context.SQLAfter);
        context.TokensBefore = TokensBeforeWord(context.SQLBefore, context.CurrentInput);
        AddItems(context, FindCandidates(context.TokensBefore), list);
    } catch (...) {
        // Completion never disturbs typing: what was gathered is offered.
    }
    try {
        std::vector<TSortedItem> items = SortedItems(list);
        result.reserve(items.size());
        for (TSortedItem& i : items) result.push_back(std::move(i.Item));
    } catch (...) {
    }
    return result;
}

// ---------------------------------------------------------------------------
// Templates

const QString& DefaultCodeTemplatesText() {
    return TemplatesText;
}

std::vector<TCodeTemplate> ParseCodeTemplates(const QString& Text) {
    std::vector<TCodeTemplate> result;
    QStringList body;
    bool open = false;  // a header with a name began the current body
    auto finish = [&] {
        while (!body.isEmpty() && body.last().trimmed().isEmpty()) body.removeLast();
        if (open) result.back().Body = body.join(QStringLiteral("\r\n"));
        body.clear();
    };
    for (QString line : Text.split(u'\n')) {
        if (line.endsWith(u'\r')) line.chop(1);
        if (line.startsWith(u'#')) continue;
        const QString trimmed = line.trimmed();
        if (trimmed.startsWith(u'[') && trimmed.endsWith(u']')) {
            finish();
            const QString inner = trimmed.mid(1, trimmed.size() - 2);
            const qsizetype bar = inner.indexOf(u'|');
            TCodeTemplate t;
            t.Name = (bar < 0 ? inner : inner.left(bar)).trimmed();
            t.Description = bar < 0 ? QString() : inner.mid(bar + 1).trimmed();
            open = !t.Name.isEmpty();
            if (open) result.push_back(t);
            continue;
        }
        if (open) body.append(line);
    }
    finish();
    return result;
}

const std::vector<TCodeTemplate>& DefaultCodeTemplates() {
    static const std::vector<TCodeTemplate> templates = ParseCodeTemplates(TemplatesText);
    return templates;
}

bool ExpandCodeTemplate(const std::vector<TCodeTemplate>& Templates, const QString& Name, QString& Text,
                        int& Caret) {
    const auto it = std::find_if(Templates.begin(), Templates.end(), [&](const TCodeTemplate& t) {
        return t.Name.compare(Name, Qt::CaseInsensitive) == 0;
    });
    if (it == Templates.end()) return false;
    QString text;
    int caret = -1;
    const QString& body = it->Body;
    for (qsizetype i = 0; i < body.size(); ++i) {
        if (body[i] != u'|') {
            text += body[i];
        } else if (i + 1 < body.size() && body[i + 1] == u'|') {
            text += u'|';
            ++i;
        } else if (caret < 0) {
            caret = static_cast<int>(text.size());
        }
    }
    Text = text;
    Caret = caret < 0 ? static_cast<int>(text.size()) : caret;
    return true;
}

bool ExpandCodeTemplate(const QString& Name, QString& Text, int& Caret) {
    return ExpandCodeTemplate(DefaultCodeTemplates(), Name, Text, Caret);
}

}  // namespace brindle
