#include "SQLText.h"

#include "Assert.h"
#include "DLQueryInfo.h"
#include "SQLScanner.h"

namespace brindle {

namespace {

TSQLTextServices& services() {
    static TSQLTextServices s;
    return s;
}

// The installed answer to one question. Asking before the parser installed
// its services is a fault of the program, not of the text: there is no
// second reader to give a different answer.
template <typename TService>
const TService& Service(const TService& Member) {
    BRINDLE_ASSERT(Member, "SQL text services used before InstallSQLParserServices");
    return Member;
}

}  // namespace

void SetSQLTextServices(const TSQLTextServices& s) { services() = s; }

void ParseSQL(const QString& Value, QStringList& List, bool StripSemicolon) {
    SplitSQL(Value, List, StripSemicolon);
}

TSQLTokenType GetSQLCommand(const QString& SQL) {
    return Service(services().GetSQLCommand)(SQL);
}

QString GetSavepointName(const QString& SQL) {
    return Service(services().GetSavepointName)(SQL);
}

QString GetDatabaseNameFromSQL(const QString& SQL) {
    return Service(services().GetDatabaseNameFromSQL)(SQL);
}

QString GetFileNameFromSQL(const QString& SQL) {
    return Service(services().GetFileNameFromSQL)(SQL);
}

bool GetLoadExtensionParams(const QString& SQL, QString& FileName, QString& EntryPoint) {
    return Service(services().GetLoadExtensionParams)(SQL, FileName, EntryPoint);
}

QString GetVirtualTableModule(const QString& SQL) {
    return Service(services().GetVirtualTableModule)(SQL);
}

bool IsWithoutRowid(const QString& SQL) {
    return Service(services().IsWithoutRowid)(SQL);
}

QString GetTriggerDatabaseName(const QString& SQL) {
    return Service(services().GetTriggerDatabaseName)(SQL);
}

QString GetTableNameFromSQL(const QString& SQL) {
    return Service(services().GetTableNameFromSQL)(SQL);
}

int GetTableCountFromSQL(const QString& SQL) {
    return Service(services().GetTableCountFromSQL)(SQL);
}

bool IsSimpleSelect(const QString& SQL) {
    return Service(services().IsSimpleSelect)(SQL);
}

bool HasOrderBy(const QString& SQL) {
    return Service(services().HasOrderBy)(SQL);
}

void GetQueryInfo(const QString& SQL, std::vector<TTableInfoRec>& Tables, std::vector<TFieldInfoRec>& Fields) {
    Service(services().GetQueryInfo)(SQL, Tables, Fields);
}

QString GetSelectClause(const QString& SQL) {
    return Service(services().GetSelectClause)(SQL);
}

bool HasSubquery(const QString& SQL) {
    return Service(services().HasSubquery)(SQL);
}

bool HasSetOperationOrGrouping(const QString& SQL) {
    return Service(services().HasSetOperationOrGrouping)(SQL);
}

QString FixFilterExpression(const QString& SQL, const QStringList& ExcludedFieldNames) {
    return Service(services().FixFilterExpression)(SQL, ExcludedFieldNames);
}

}  // namespace brindle
