// What the database object needs to know about SQL text: splitting a script
// into statements, the kind of a statement, and a few names read from it.
//
// The full parser lives in the schema layer, above this one; it installs its
// answers with SetSQLTextServices. Until it does (and in tools that link the
// engine alone), a small lexical reader of this file answers, good enough for
// well-formed statements.
#pragma once

#include <QString>
#include <QStringList>
#include <functional>

namespace brindle {

// Statement kinds, as the first keywords of a statement give them.
enum TSQLTokenType {
    stUnknown,
    stAlterTable,
    stAnalyze,
    stAttach,
    stBegin,
    stCommit,
    stCreateIndex,
    stCreateTable,
    stCreateTrigger,
    stCreateView,
    stCreateVirtualTable,
    stDelete,
    stDetach,
    stDropIndex,
    stDropTable,
    stDropTrigger,
    stDropView,
    stEnd,
    stExplain,
    stInsert,
    stPragma,
    stReindex,
    stRelease,
    stReplace,
    stRollback,
    stSavepoint,
    stSelect,
    stUpdate,
    stVacuum,
};

// The services; any member left empty falls back to the lexical reader.
struct TSQLTextServices {
    std::function<void(const QString& Value, QStringList& List, bool StripSemicolon)> ParseSQL;
    std::function<TSQLTokenType(const QString& SQL)> GetSQLCommand;
    std::function<QString(const QString& SQL)> GetSavepointName;
    std::function<QString(const QString& SQL)> GetDatabaseNameFromSQL;
    std::function<QString(const QString& SQL)> GetFileNameFromSQL;
    std::function<bool(const QString& SQL, QString& FileName, QString& EntryPoint)> GetLoadExtensionParams;
    std::function<QString(const QString& SQL)> GetVirtualTableModule;
    std::function<bool(const QString& SQL)> IsWithoutRowid;
    std::function<QString(const QString& SQL)> GetTriggerDatabaseName;
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

}  // namespace brindle
