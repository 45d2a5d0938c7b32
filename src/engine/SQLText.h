// What the database object needs to know about SQL text: splitting a script
// into statements, the kind of a statement, and a few names read from it.
//
// Splitting is lexical and answered here by the scanner (SQLScanner.h). The
// other questions need the parser, which lives in the schema layer above this
// one and installs its answers with SetSQLTextServices; asking one of them
// before that is a programming error, raised as an assertion failure.
#pragma once

#include <QString>
#include <QStringList>
#include <vector>
#include <functional>

namespace brindle {

// Every keyword type, token role and statement kind of the SQL parser, in one
// enumeration: stUnknown, then the rest in alphabetical order. The engine asks
// for statement kinds only; the parser in the schema layer uses them all. The
// list is a macro so that the parser can name the values without a second copy.
// clang-format off
#define BRINDLE_SQL_TOKEN_TYPES(X) \
    X(Unknown) X(Abort) X(Action) X(Add) X(AddColumn) X(After) X(All) X(AllFields) X(Alter) X(AlterTable) \
    X(Analyze) X(And) X(As) X(Ascending) X(Attach) X(Autoincrement) X(Avg) X(Before) X(Begin) X(Between) \
    X(By) X(Cascade) X(Case) X(Cast) X(Check) X(CheckExpr) X(ChildFieldName) X(CloseParen) X(Collate) \
    X(CollateOption) X(Column) X(Comma) X(Commit) X(Conflict) X(Constraint) X(ConstraintName) X(Count) \
    X(Create) X(CreateIndex) X(CreateTable) X(CreateTrigger) X(CreateView) X(CreateVirtualTable) X(Cross) \
    X(CurrentDate) X(CurrentTime) X(CurrentTimestamp) X(Database) X(DatabaseName) X(Default) \
    X(DefaultValue) X(DefaultValues) X(Deferrable) X(Deferred) X(Delete) X(Descending) X(Detach) \
    X(Distinct) X(Dot) X(Drop) X(DropIndex) X(DropTable) X(DropTrigger) X(DropView) X(Each) X(Else) X(End) \
    X(EntryPoint) X(Escape) X(Except) X(Exclusive) X(Exists) X(Explain) X(Expression) X(Fail) \
    X(FieldAlias) X(FieldName) X(FieldPrecision) X(FieldSize) X(FieldType) X(FileName) X(For) \
    X(ForEachRow) X(ForEachStatement) X(Foreign) X(ForeignKey) X(ForUpdate) X(From) X(Full) X(Glob) \
    X(Group) X(GroupBy) X(Having) X(If) X(IfExists) X(IfNotExists) X(Ignore) X(Immediate) X(In) X(Index) \
    X(Indexed) X(IndexedBy) X(IndexName) X(Initially) X(InitiallyDeferred) X(InitiallyImmediate) X(Inner) \
    X(Insert) X(Instead) X(InsteadOf) X(Intersect) X(Into) X(Is) X(IsNotNull) X(IsNull) X(Join) X(Key) \
    X(Left) X(Like) X(Limit) X(Literal) X(LoadExtension) X(Match) X(MatchName) X(Max) X(Min) \
    X(ModuleArgument) X(ModuleName) X(Natural) X(No) X(NoAction) X(Not) X(NotDeferrable) X(NotIndexed) \
    X(NotNull) X(Null) X(Number) X(Of) X(Offset) X(On) X(OnConflict) X(OnConflictClause) X(OnDelete) \
    X(OnDeleteAction) X(OnUpdate) X(OnUpdateAction) X(OpenParen) X(Operator) X(Or) X(Order) X(OrderBy) \
    X(Outer) X(Param) X(ParentFieldName) X(ParentTableName) X(Plan) X(Pragma) X(PragmaName) X(Predicate) \
    X(Primary) X(PrimaryKey) X(PrimaryKeyFieldName) X(Query) X(QueryPlan) X(Raise) X(References) X(Regexp) \
    X(Reindex) X(Release) X(Rename) X(RenameTo) X(Replace) X(Restrict) X(Right) X(Rollback) X(Row) \
    X(Savepoint) X(SavepointName) X(Select) X(Semicolon) X(Set) X(SetDefault) X(SetNull) X(Sum) X(Table) \
    X(TableAlias) X(TableName) X(Temp) X(Temporary) X(Then) X(To) X(Total) X(Transaction) X(Trigger) \
    X(TriggerName) X(Union) X(Unique) X(UniqueFieldName) X(Update) X(UpdateOf) X(Using) X(Vacuum) X(Value) \
    X(Values) X(View) X(ViewName) X(Virtual) X(When) X(Where) X(WithoutRowid)
// clang-format on

enum TSQLTokenType {
#define BRINDLE_SQL_TOKEN_TYPE_VALUE(name) st##name,
    BRINDLE_SQL_TOKEN_TYPES(BRINDLE_SQL_TOKEN_TYPE_VALUE)
#undef BRINDLE_SQL_TOKEN_TYPE_VALUE
};

constexpr int SQL_TOKEN_TYPE_COUNT = stWithoutRowid + 1;
static_assert(SQL_TOKEN_TYPE_COUNT == 210);

struct TTableInfoRec;
struct TFieldInfoRec;

// The parser's answers.
struct TSQLTextServices {
    std::function<TSQLTokenType(const QString& SQL)> GetSQLCommand;
    std::function<QString(const QString& SQL)> GetSavepointName;
    std::function<QString(const QString& SQL)> GetDatabaseNameFromSQL;
    std::function<QString(const QString& SQL)> GetFileNameFromSQL;
    std::function<bool(const QString& SQL, QString& FileName, QString& EntryPoint)> GetLoadExtensionParams;
    std::function<QString(const QString& SQL)> GetVirtualTableModule;
    std::function<bool(const QString& SQL)> IsWithoutRowid;
    std::function<QString(const QString& SQL)> GetTriggerDatabaseName;
    std::function<QString(const QString& SQL)> GetTableNameFromSQL;
    std::function<int(const QString& SQL)> GetTableCountFromSQL;
    std::function<bool(const QString& SQL)> IsSimpleSelect;
    std::function<bool(const QString& SQL)> HasOrderBy;
    std::function<QString(const QString& SQL, const QStringList& ExcludedFieldNames)> FixFilterExpression;
    std::function<void(const QString& SQL, std::vector<TTableInfoRec>& Tables, std::vector<TFieldInfoRec>& Fields)>
        GetQueryInfo;
    std::function<QString(const QString& SQL)> GetSelectClause;
    std::function<bool(const QString& SQL)> HasSubquery;
    std::function<bool(const QString& SQL)> HasSetOperationOrGrouping;
};

// Installed once at start, on the main thread, before any database opens.
void SetSQLTextServices(const TSQLTextServices& services);

// Appends the statements of a script to List; empty pieces are not added.
void ParseSQL(const QString& Value, QStringList& List, bool StripSemicolon);
TSQLTokenType GetSQLCommand(const QString& SQL);
// SAVEPOINT, RELEASE, ROLLBACK TO: the savepoint's name, empty when none.
QString GetSavepointName(const QString& SQL);
// ATTACH and DETACH: the schema name, as written.
QString GetDatabaseNameFromSQL(const QString& SQL);
// ATTACH: the file name without its quotes.
QString GetFileNameFromSQL(const QString& SQL);
// A load_extension(file [, entry]) call in a SELECT.
bool GetLoadExtensionParams(const QString& SQL, QString& FileName, QString& EntryPoint);
// CREATE VIRTUAL TABLE: the module name; empty for any other statement.
QString GetVirtualTableModule(const QString& SQL);
bool IsWithoutRowid(const QString& SQL);
// CREATE TRIGGER: the database part of the trigger's table, empty when none.
QString GetTriggerDatabaseName(const QString& SQL);
// A query's first table in FROM, and the number of tables there.
QString GetTableNameFromSQL(const QString& SQL);
int GetTableCountFromSQL(const QString& SQL);
// A query of plain names that can be edited in place.
bool IsSimpleSelect(const QString& SQL);
bool HasOrderBy(const QString& SQL);
// A filter in the engine's terms; empty when it names an excluded field.
QString FixFilterExpression(const QString& SQL, const QStringList& ExcludedFieldNames);
// The tables of a query's FROM clause and the columns of its select list.
void GetQueryInfo(const QString& SQL, std::vector<TTableInfoRec>& Tables, std::vector<TFieldInfoRec>& Fields);
// The text up to the end of the select list.
QString GetSelectClause(const QString& SQL);
// Two SELECTs or more in the text.
bool HasSubquery(const QString& SQL);
// UNION, INTERSECT, EXCEPT or GROUP BY anywhere.
bool HasSetOperationOrGrouping(const QString& SQL);

}  // namespace brindle
