// Every question the parser answers, asked of one text: for the tests and
// the fuzzer that feed it hostile input. Nothing may crash, hang or assert.
#pragma once

#include "schema/DLSQLiteParser.h"

namespace brindle::test {

inline void AskEveryQuestion(TSQLParser& p) {
    QStringList list;
    QString a, b;
    p.SQLCommand();
    p.GetTableName();
    p.GetAllTableNames(list);
    p.GetFullTableName(a, b);
    p.GetTableCount();
    p.IsSimpleSelect();
    p.StripOrderBy();
    p.GetSelectClause();
    p.PostProcess();
    p.FixFilterExpression({QStringLiteral("a")});
    p.GetParams(list);
    p.GetSavepointName();
    p.GetLoadExtensionParams(a, b);
    p.GetDatabaseName();
    p.GetFileName();
    p.IsWithoutRowid();
    p.IsStrict();
    p.GetTriggerDatabaseName();
    p.GetVirtualTableModule();
    p.GetIndexWhereClause();
    p.GetIndexColumns();
    p.GetIndexCollateOption(QStringLiteral("a"));
    p.GetIndexFieldSortOrder(QStringLiteral("a"));
    p.ReplaceTableNameInTrigger(QStringLiteral("x"));
    p.ReplaceTriggerName(QStringLiteral("x"));
    p.GetPrimaryKeyOptions();
    p.GetUniqueConstraints();
    p.GetCheckConstraints();
    p.GetForeignKeys();
    p.GetSQLFieldInfo(QStringLiteral("a"));
    p.GetSQLFieldInfos();
    p.GetUnsupportedClauses();
    p.GetViewRec();
    BuildTriggerSQL(p.GetTriggerRec(), false);
    p.GetVirtualTableRec();
    std::vector<TTableInfoRec> tables;
    std::vector<TFieldInfoRec> fields;
    p.GetTableInfo(tables);
    p.GetFieldInfo(fields, tables);
}

}  // namespace brindle::test
