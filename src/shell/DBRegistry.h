// The open databases as the user sees them: opening and creating files under
// aliases, closing them with a word about an open transaction, the list of
// recently closed files, and the set of databases that is remembered from
// one run to the next. The window supplies what needs a person or a widget
// through IRegistryHost; everything else is here, so that it runs headless.
//
// Ownership: the databases belong to the TMetaList; the registry holds
// references to the list and the two caches, which outlive it.
// Threading: main thread only.
#pragma once

#include <QString>
#include <QStringList>
#include <memory>

class QSettings;

namespace brindle {

class TColumnsCache;
class TDBCache;
class TDLSQLiteDatabase;
class TMetaList;

// Answers of the transaction prompt.
enum TTransactionAnswer { taCommit = 1, taRollback = 2, taCancel = 3 };

// What the registry asks of the main window. The defaults do nothing and
// answer "no", so a test overrides only what it looks at.
class IRegistryHost {
public:
    virtual ~IRegistryHost() = default;
    // Sets the window's handlers on a database it opened. A database made
    // by New Database gets fewer of them (Created).
    virtual void WireDatabase(TDLSQLiteDatabase& /*Database*/, bool /*Created*/) {}
    virtual void SelectDatabase(const QString& /*AliasName*/) {}
    virtual void SelectObject(const QString& /*AliasName*/, const QString& /*ObjectName*/) {}
    virtual void ShowError(const QString& /*Message*/) {}
    // The encoding of a new, empty file; false when the user cancels.
    virtual bool SelectEncoding(const QString& /*Caption*/, QString& /*Encoding*/) { return false; }
    // The text names the database; the answer is a TTransactionAnswer.
    virtual int AskTransaction(const QString& /*Text*/) { return taCancel; }
    virtual bool GetExpanded(const QString& /*AliasName*/) { return false; }
    virtual void SetExpanded(const QString& /*AliasName*/, bool /*Value*/) {}
    virtual void AliasRenamed(const QString& /*OldAliasName*/, const QString& /*NewAliasName*/) {}
    virtual void BeginUpdate() {}
    virtual void EndUpdate() {}
    virtual void UpdateControls() {}
    virtual void AsyncUpdateControls() {}
    virtual void ForceRefreshAll() {}
    virtual void RefreshAll() {}
    // The database that the focused node belongs to, or null.
    virtual TDLSQLiteDatabase* CurrentDatabase() { return nullptr; }
    // The focused node is a database node.
    virtual bool DatabaseNodeIsCurrent() { return false; }
    // The table or view selected now, qualified; empty for none.
    virtual QString CurrentObjectName() { return QString(); }
};

class TDatabaseRegistry {
public:
    static constexpr int MaxRecentDatabases = 10;

    TDatabaseRegistry(TMetaList& MetaList, TDBCache& DBCache, TColumnsCache& ColumnsCache,
                      IRegistryHost& Host);

    // Files recently closed, newest first. Only files not open now.
    QStringList FRecentDatabases;
    // The encoding last chosen for a new file.
    QString FLastEncoding = QStringLiteral("UTF-8");
    QString FLastDatabaseDirectory;
    // New connections use the UTF-16 interface.
    bool FUnicodeEncoding = true;

    // The bare file name without its extension, or with "(1)", "(2)"...
    // appended until no open database has it as alias.
    QString PickAlias(const QString& FileName) const;
    // The same for the schema name of an attachment to Database, compared
    // case-insensitively with the names it has now.
    QString PickInternalAlias(const QString& FileName, TDLSQLiteDatabase& Database) const;

    // Opens FileName under AliasName (empty: PickAlias). A file that is
    // open already is selected and returned whatever the alias; an alias in
    // use shows "Alias %s is already in use." and gives null. Raises what
    // the connection raises.
    TDLSQLiteDatabase* OpenDatabase(const QString& FileName, const QString& AliasName = QString(),
                                    const QString& EncryptionKey = QString(),
                                    const QString& Encoding = QString());
    // Makes a new file and opens it. Raises "File %s already exists." and
    // "Alias %s already exists.". Page size and auto-vacuum are texts as
    // typed (defaults 1024 and 0).
    TDLSQLiteDatabase* CreateDatabase(const QString& FileName, const QString& AliasName,
                                      const QString& Encoding, const QString& EncryptionKey,
                                      const QString& PageSize, const QString& AutoVacuum);
    // True when the caller may go on: no transaction, or it was committed
    // or rolled back as the user answered.
    bool CheckActiveTransaction(TDLSQLiteDatabase* Database);
    // Asks about an open transaction, puts the file at the head of the
    // recent list and frees the database. False when the user kept it.
    bool CloseDatabase(TDLSQLiteDatabase* Database);
    // Closes the current database until there is none; a refusal asks again.
    void CloseAllDatabases();
    // Shows "Alias %s is already in use." when New is taken.
    void RenameAlias(const QString& OldAliasName, const QString& NewAliasName);
    // The registration dialog's answer: another file reopens under the new
    // alias, else a new alias renames. Nothing for a file that does not
    // exist or a blank alias.
    void EditRegistration(const QString& OldAliasName, const QString& NewFileName,
                          const QString& NewAliasName);

    // Reads the schema again, keeping the node's expansion; a failure is
    // retried once, and raised.
    void RefreshDatabase(TDLSQLiteDatabase& Database);
    // Every open database that shares a file with the current one, then
    // the object selected again (empty names: the current ones).
    void RefreshCurrentDatabase(const QString& AliasName = QString(), const QString& ObjectName = QString());
    // The same for every open database.
    void RefreshAllDatabases(const QString& AliasName = QString(), const QString& ObjectName = QString());

    // The "Persistent"/"DBCount" value and the section "DB".
    void SaveDatabases(QSettings& IniFile) const;
    // Reopens what SaveDatabases stored; any failure passes over that one
    // database, attachment or extension without a word.
    void LoadDatabases(QSettings& IniFile);

    // Drops entries beyond the tenth.
    void CleanupRecentDatabases();

    // Opens the file on a throw-away connection: false for anything that
    // is not a database SQLite can read.
    static bool IsValidDatabase(const QString& FileName);
    // The same object, or a file in common (by bare name, ignoring case;
    // memory databases never count).
    static bool Related(TDLSQLiteDatabase* DB1, TDLSQLiteDatabase* DB2);
    // "Database Files (*.db, *.db3, *.sqlite)|*.db;*.db3;*.sqlite|Any File (*.*)|*.*"
    // with the given extensions ("*.ext") added.
    static QString GetDefaultDBFilter(const QStringList& AssociatedExtensions = {});
    // The statement may change what the database properties show.
    static bool ChangesDatabaseProperties(const QString& SQL);

private:
    void RemoveRecent(const QString& FileName);
    // Binds a metadata to the database and hands both to the list.
    TDLSQLiteDatabase* Register(std::unique_ptr<TDLSQLiteDatabase> Database);
    void RefreshWhere(bool (*Test)(TDLSQLiteDatabase*, TDLSQLiteDatabase*), const QString& AliasName,
                      const QString& ObjectName);

    TMetaList& FMetaList;
    TDBCache& FDBCache;
    TColumnsCache& FColumnsCache;
    IRegistryHost& FHost;
};

}  // namespace brindle
