// The tolerant SQL labeller. It builds no tree and rejects nothing: every
// token gets a role (a TSQLTokenType) from the statement kind, the clause it
// stands in and the one or two tokens before it. Questions about SQL text are
// answered by walking the labels, and verbatim pieces (check expressions,
// trigger bodies, view selects) are cut from the source by token position.
#pragma once

#include "engine/DLParams.h"
#include "engine/DLQueryInfo.h"
#include "engine/SQLScanner.h"

#include <QString>
#include <QStringList>
#include <array>
#include <cstdint>
#include <initializer_list>
#include <utility>
#include <vector>

namespace brindle {

// A set of token types.
class TSQLTokenTypes {
public:
    constexpr TSQLTokenTypes() = default;
    constexpr TSQLTokenTypes(std::initializer_list<TSQLTokenType> Types) {
        for (TSQLTokenType t : Types) FBits[t / 64] |= std::uint64_t(1) << (t % 64);
    }
    constexpr bool Contains(TSQLTokenType Type) const { return (FBits[Type / 64] >> (Type % 64)) & 1; }

private:
    std::array<std::uint64_t, (SQL_TOKEN_TYPE_COUNT + 63) / 64> FBits{};
};

// The words that decide a statement's kind: the first of them in a text wins.
inline constexpr TSQLTokenTypes SQLCommands{
    stAlterTable,  stAnalyze,     stAttach,        stBegin,      stCommit,
    stCreateIndex, stCreateTable, stCreateTrigger, stCreateView, stCreateVirtualTable,
    stDelete,      stDetach,      stDropIndex,     stDropTable,  stDropTrigger,
    stDropView,    stEnd,         stExplain,       stInsert,     stPragma,
    stReindex,     stRelease,     stReplace,       stRollback,   stSavepoint,
    stSelect,      stUpdate,      stVacuum};

// The words that open a clause, when they stand outside parentheses. CREATE
// VIEW and CREATE TRIGGER open none.
inline constexpr TSQLTokenTypes SQLSections{stCreateIndex, stCreateTable,   stCreateVirtualTable,
                                            stFrom,        stGroupBy,       stInsert,
                                            stJoin,        stLoadExtension, stOn,
                                            stOrderBy,     stSelect,        stUpdate,
                                            stValues,      stWhere};

// "stTableName" for stTableName: for tests and diagnostics.
QString SQLTokenTypeName(TSQLTokenType Type);

// What the readers below take from stored text. Names are unquoted; conflict
// words, collations, actions and deferral phrases are kept as written.
struct TPrimaryKeyFieldRec {
    QString FieldName;
    QString SortOrder;  // "ASC", "DESC" or empty
    bool Autoincrement = false;
    QString Collate;
};

struct TPrimaryKeyRec {
    std::vector<TPrimaryKeyFieldRec> Fields;
    QString ConflictClause;
};

struct TUniqueConstraintRec {
    QString ConstraintName;
    QStringList Fields;
    QString ConflictClause;
};

struct TCheckConstraintRec {
    QString ConstraintName;
    QString Expression;  // verbatim, without the parentheses
};

struct TForeignKeyRec {
    QString ConstraintName;
    QString ParentTableName;
    QStringList ChildKey;
    QStringList ParentKey;
    QString OnDeleteAction;
    QString OnUpdateAction;
    QString MatchName;
    QString Deferrable;  // "DEFERRABLE" or "NOT DEFERRABLE"
    QString Initially;   // "INITIALLY DEFERRED" or "INITIALLY IMMEDIATE"
};

// Check and Default stay empty: defaults come from the catalogue.
struct TSQLFieldRec {
    bool NotNull = false;
    QString NotNullConflictClause;
    QString Check;
    QString Default;
    QString Collate;
    // GENERATED ALWAYS AS (...) or AS (...): the expression verbatim and
    // trimmed, without its parentheses; empty for any other column.
    QString GeneratedExpression;
    bool GeneratedStored = false;  // STORED; VIRTUAL or no word otherwise
};

// Name and temporariness are not filled: they come from the catalogue.
struct TViewDataRec {
    QString ViewName;
    bool IsTemporary = false;
    QString AsClause;
    QStringList ColumnNames;  // the list behind the view's name, unquoted
};

struct TTriggerRec {
    QString TriggerName;   // unquoted
    QString WhenClause;    // BEFORE, AFTER or INSTEAD OF, as written
    QString DatabaseEvent; // DELETE, INSERT, UPDATE or UPDATE OF, as written
    QStringList Fields;    // the columns of UPDATE OF, unquoted
    QString DatabaseName;  // as written
    QString TableName;     // as written
    QString ActionFor;     // FOR EACH ROW, as written
    QString ActionWhen;    // the word WHEN, as written
    QString WhenExpression;
    QString TriggerAction;  // from BEGIN to the end, verbatim
};

struct TVirtualTableRec {
    QString DatabaseName;
    QString TableName;  // unquoted
    QString ModuleName;
    QString ModuleArguments;  // between the parentheses, verbatim and untrimmed
};

// One column of CREATE INDEX as written, with its COLLATE and ASC/DESC words
// taken apart.
struct TIndexColumnRec {
    QString Expression;  // the name or expression, without COLLATE and ASC/DESC
    QString Collate;
    QString SortOrder;
};

// A clause of a CREATE text that the definitions cannot hold; FieldName is
// empty for a clause of the whole table or view.
struct TUnsupportedClause {
    QString FieldName;
    QString Clause;
};

struct TTableItems;

class TSQLParser : public TTokenizer {
public:
    TSQLParser();
    ~TSQLParser() override;

    // The statement kind: the first word of SQLCommands in the text.
    TSQLTokenType SQLCommand();
    TSQLToken* SQLTokens(int Index) { return static_cast<TSQLToken*>(GetTokens(Index)); }

    // Tables of a query: the first of its FROM clause, every one, the number
    // in the FROM clause, and the first with its database as written.
    QString GetTableName();
    void GetAllTableNames(QStringList& List);
    int GetTableCount();
    void GetFullTableName(QString& DatabaseName, QString& TableName);

    // CREATE INDEX: a column's COLLATE and ASC/DESC words as written, and the
    // partial index's condition.
    QString GetIndexCollateOption(const QString& FieldName);
    QString GetIndexFieldSortOrder(const QString& FieldName);
    QString GetIndexWhereClause();
    // Every column of the list in its place, names and expressions alike.
    std::vector<TIndexColumnRec> GetIndexColumns();

    // ATTACH and DETACH: the schema name as written; ATTACH: the file name.
    QString GetDatabaseName();
    QString GetFileName();
    // SAVEPOINT, RELEASE, ROLLBACK TO: the name through QuoteObjectIfNeeded.
    QString GetSavepointName();
    // A load_extension(file [, entry]) call: both dequoted; false when none.
    bool GetLoadExtensionParams(QString& FileName, QString& EntryPoint);
    // CREATE VIRTUAL TABLE: the module, unquoted.
    QString GetVirtualTableModule();
    // CREATE TRIGGER: the database of the table behind ON, unquoted.
    QString GetTriggerDatabaseName();
    bool IsWithoutRowid();
    // CREATE TABLE: STRICT among the table options.
    bool IsStrict();

    // CREATE TABLE: the key (PRIMARY KEY only), the constraints and one
    // column's facts; a column constraint comes back like a table one.
    TPrimaryKeyRec GetPrimaryKeyOptions();
    std::vector<TUniqueConstraintRec> GetUniqueConstraints();
    std::vector<TCheckConstraintRec> GetCheckConstraints();
    std::vector<TForeignKeyRec> GetForeignKeys();
    TSQLFieldRec GetSQLFieldInfo(const QString& FieldName);
    // The same for every column, in the text's order, from one walk: asking
    // column by column walks the whole text each time.
    std::vector<std::pair<QString, TSQLFieldRec>> GetSQLFieldInfos();
    // CREATE TABLE: what the definitions would drop (table options other
    // than WITHOUT ROWID and STRICT, ordered or collated UNIQUE columns).
    std::vector<TUnsupportedClause> GetUnsupportedClauses();
    TViewDataRec GetViewRec();
    TTriggerRec GetTriggerRec();
    TVirtualTableRec GetVirtualTableRec();
    // SELECT: the tables of FROM and JOIN, and the columns of the select list.
    void GetTableInfo(std::vector<TTableInfoRec>& TableInfoRecs);
    void GetFieldInfo(std::vector<TFieldInfoRec>& FieldInfoRecs, const std::vector<TTableInfoRec>& TableInfoRecs);

    // The text with its first table or trigger name replaced, all else as it was.
    QString ReplaceTableNameInTrigger(const QString& NewTableName);
    QString ReplaceTriggerName(const QString& NewTriggerName);

    // Queries.
    QString StripOrderBy();
    bool HasOrderBy();
    bool HasSubquery();
    // Only plain names in the select list and FROM clause: the query can be
    // edited in place.
    bool IsSimpleSelect();
    QString GetSelectClause();
    // db.table.* becomes table.*, which the engine takes.
    QString PostProcess();
    // A filter in the engine's terms (TRUE, FALSE, = NULL); empty when it
    // names an excluded field.
    QString FixFilterExpression(const QStringList& ExcludedFieldNames);
    void GetParams(QStringList& Params);
    bool Contains(const TSQLTokenTypes& TokenTypes);

    // Walking the labels. Indexes are token indexes; -1 means none.
    int IndexOf(TSQLTokenType Role, int From = 0);
    int IndexOf(const TSQLTokenTypes& Roles, int From = 0);
    int LastIndexOf(TSQLTokenType Role);
    int IndexOfInSection(TSQLTokenType Role, TSQLTokenType Section, int From = 0);
    // The body of a CREATE TABLE cut into its columns and constraints, for
    // the table readers: made on their first question and kept with the
    // tokens, since a table's text is asked about its key, constraints and
    // columns in turn, and cutting it anew each time costs more than the
    // answers.
    const TTableItems& TableItems();
    // The ")" that closes the "(" at OpenIndex.
    int ClosingParen(int OpenIndex);
    // Verbatim source text, comments included: from the start of token First
    // through the end of token Last; strictly between two tokens (After may be
    // the token count: up to the end); behind a token; from a token on; and
    // in front of a token.
    QString SourceText(int First, int Last);
    QString TextBetween(int Before, int After);
    QString TextBehind(int Index);
    QString TextFrom(int Index);
    QString TextBefore(int Index);

protected:
    void InternalGetTokens() override;
    std::unique_ptr<TToken> CreateToken() override;
    void UnInitialize() override;

private:
    void InternalFixTokens();
    // Replaces the token's characters in a copy of the text.
    QString ReplaceToken(int Index, const QString& Value);
    TSQLTokenType Role(int Index) { return SQLTokens(Index)->FSQLToken; }
    void DropTableItems();

    TSQLTokenType FSQLCommand = stUnknown;
    std::unique_ptr<TTableItems> FTableItems;
};

// A parser holding the text, labelled on the first question. Each thread
// keeps its own cache of the last 64 texts, so the reference stays valid until
// 64 further different texts have been parsed on the calling thread, and
// worker threads never share a parser. Pointers to its tokens last only until
// the next call: a call may release the tokens of older parsers.
TSQLParser& GetParser(const QString& SQL);

// The parser's questions on a text, through GetParser. GetSQLCommand,
// GetSavepointName, GetDatabaseNameFromSQL, GetFileNameFromSQL,
// GetLoadExtensionParams, IsWithoutRowid, GetTableNameFromSQL,
// GetTableCountFromSQL, IsSimpleSelect, HasOrderBy and FixFilterExpression
// are the engine's (engine/SQLText.h), answered by the parser once it is
// installed; ParseSQL is the engine's splitter.
void GetAllTableNamesFromSQL(const QString& SQL, QStringList& List);
void GetFullTableNameFromSQL(const QString& SQL, QString& DatabaseName, QString& TableName);
QString GetIndexCollateOption(const QString& SQL, const QString& FieldName);
QString GetIndexFieldSortOrder(const QString& SQL, const QString& FieldName);
QString GetIndexWhereClause(const QString& SQL);
// The collation and order of the index column at Place (from 0), from what
// the engine keeps (pragma index_xinfo: the collation in use, and whether
// descending), which no text can misread, spelt as IndexSQL writes them
// where it says the same. A collation that is the column's own
// (OwnCollation, BINARY when empty) is left to the column unless written.
void IndexColumnOptions(const QString& IndexSQL, int Place, const QString& EngineCollation,
                        bool EngineDescending, const QString& OwnCollation, QString& Collate,
                        QString& SortOrder);
QString ReplaceTableNameInTrigger(const QString& SQL, const QString& NewTableName);
QString ReplaceTriggerName(const QString& SQL, const QString& NewTriggerName);
QString StripOrderBy(const QString& SQL);
QString PostProcessSQL(const QString& SQL);
void GetParamsFromSQL(const QString& SQL, QStringList& Params);
bool SQLContains(const QString& SQL, const TSQLTokenTypes& TokenTypes);
TPrimaryKeyRec GetPrimaryKeyOptions(const QString& SQL);
std::vector<TUniqueConstraintRec> GetUniqueConstraints(const QString& SQL);
std::vector<TCheckConstraintRec> GetCheckConstraints(const QString& SQL);
std::vector<TForeignKeyRec> GetForeignKeys(const QString& SQL);
TSQLFieldRec GetSQLFieldInfo(const QString& SQL, const QString& FieldName);
std::vector<TUnsupportedClause> GetUnsupportedClauses(const QString& SQL);
bool IsStrictTable(const QString& SQL);
TViewDataRec GetViewRec(const QString& SQL);
TTriggerRec GetTriggerRec(const QString& SQL);
TVirtualTableRec GetVirtualTableRec(const QString& SQL);
void GetTableInfoFromSQL(const QString& SQL, std::vector<TTableInfoRec>& TableInfoRecs);
void GetFieldInfoFromSQL(const QString& SQL, std::vector<TFieldInfoRec>& FieldInfoRecs,
                         const std::vector<TTableInfoRec>& TableInfoRecs);

// The CREATE TRIGGER text of a record, CRLF between its lines: the head in a
// fixed layout, the body from BEGIN as it was. A temporary trigger qualifies
// its table, any other its own name.
QString BuildTriggerSQL(const TTriggerRec& TriggerRec, bool IsTemporary);

// Makes the engine's SQL text services answer through this parser. Called once
// at program start, on the main thread, before any database opens.
void InstallSQLParserServices();

}  // namespace brindle
