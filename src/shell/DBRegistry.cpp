#include "DBRegistry.h"

#include "ProgramSettings.h"

#include "engine/DLSQLiteDatabase.h"
#include "engine/SQLText.h"
#include "schema/DLSQLiteMetadata.h"
#include "workbench/Caches.h"

#include <QFileInfo>
#include <QSettings>
#include <algorithm>
#include <exception>

namespace brindle {

namespace {

const QString kMemory = QStringLiteral(":memory:");

bool IsMemoryName(const QString& FileName) {
    return FileName.compare(kMemory, Qt::CaseInsensitive) == 0;
}

// Paths are kept absolute so that one file is found under one name, however
// it was given.
QString NormalFileName(const QString& FileName) {
    if (FileName.isEmpty() || IsMemoryName(FileName)) return FileName;
    return QFileInfo(FileName).absoluteFilePath();
}

QString AliasBase(const QString& FileName) {
    return QFileInfo(FileName).completeBaseName();
}

// Runs Step; a failure is kept to be raised once every step has run.
template <typename F>
void Bracket(std::exception_ptr& First, F&& Step) {
    try {
        Step();
    } catch (...) {
        if (!First) First = std::current_exception();
    }
}

// The files of a connection: its own and those of its attachments.
QStringList FilesOf(TDLSQLiteDatabase& Database) {
    QStringList files{Database.FileName()};
    if (!Database.Connected()) return files;
    for (const QString& name : Database.DatabaseNames()) {
        const QString file = Database.GetAttachedFileName(name);
        if (!file.isEmpty()) files << file;
    }
    return files;
}

}  // namespace

TDatabaseRegistry::TDatabaseRegistry(TMetaList& MetaList, TDBCache& DBCache, TColumnsCache& ColumnsCache,
                                     IRegistryHost& Host)
    : FMetaList(MetaList), FDBCache(DBCache), FColumnsCache(ColumnsCache), FHost(Host) {}

QString TDatabaseRegistry::PickAlias(const QString& FileName) const {
    const QString base = AliasBase(FileName);
    QString alias = base;
    for (int i = 1; FMetaList.FindMetadataByAliasName(alias); ++i)
        alias = QStringLiteral("%1(%2)").arg(base).arg(i);
    return alias;
}

QString TDatabaseRegistry::PickInternalAlias(const QString& FileName, TDLSQLiteDatabase& Database) const {
    const QString base = AliasBase(FileName);
    const QStringList names = Database.DatabaseNames();
    QString alias = base;
    for (int i = 1; names.contains(alias, Qt::CaseInsensitive); ++i)
        alias = QStringLiteral("%1(%2)").arg(base).arg(i);
    return alias;
}

void TDatabaseRegistry::RemoveRecent(const QString& FileName) {
    FRecentDatabases.removeAll(FileName);
}

TDLSQLiteDatabase* TDatabaseRegistry::Register(std::unique_ptr<TDLSQLiteDatabase> Database) {
    auto metadata = std::make_unique<TDLSQLiteMetadata>();
    metadata->FIncludeSystemTables = false;
    // A database that cannot be bound shows as a node that is not connected.
    try {
        metadata->SetDatabase(Database.get());
        metadata->SetRecordCounter(QueryQueueRecordCounter(*Database));
    } catch (const std::exception&) {
    }
    TDLSQLiteDatabase* result = Database.get();
    const QString file = Database->FileName();
    FMetaList.AddDatabase(std::move(Database), std::move(metadata));
    // The recent list holds only what is not open.
    RemoveRecent(file);
    return result;
}

TDLSQLiteDatabase* TDatabaseRegistry::OpenDatabase(const QString& FileName, const QString& AliasName,
                                                   const QString& EncryptionKey, const QString& Encoding) {
    const QString file = NormalFileName(FileName);
    const QString alias = AliasName.isEmpty() ? PickAlias(file) : AliasName;
    // A file is never open twice: the one open already is shown instead.
    if (TDLSQLiteDatabase* open = FMetaList.FindDatabaseByFileName(file)) {
        FHost.SelectDatabase(open->AliasName());
        return open;
    }
    if (FMetaList.FindDatabaseByAliasName(alias)) {
        FHost.ShowError(QStringLiteral("Alias %1 is already in use.").arg(alias));
        return nullptr;
    }

    auto database = std::make_unique<TDLSQLiteDatabase>();
    database->SetUnicode(FUnicodeEncoding);
    database->SetEncryptionKey(EncryptionKey);
    database->SetFileName(file);
    database->SetAliasName(alias);
    FHost.WireDatabase(*database, false);
    TDLSQLiteDatabase* result = Register(std::move(database));

    FHost.UpdateControls();
    // A database node in focus connects at once; others wait until chosen.
    if (FHost.DatabaseNodeIsCurrent())
        if (TDLSQLiteDatabase* current = FHost.CurrentDatabase()) current->SetConnected(true);

    // The encoding of an empty file can still be chosen.
    if (result->Connected() && !IsMemoryName(file) && QFileInfo(file).size() == 0) {
        QString encoding = Encoding;
        if (encoding.isEmpty()) {
            encoding = FLastEncoding;
            if (!FHost.SelectEncoding(QStringLiteral("Select encoding for ") + QFileInfo(file).fileName(),
                                      encoding))
                return result;
            FLastEncoding = encoding;
        }
        result->DatabaseParams().SetEncoding(encoding);
    }
    return result;
}

TDLSQLiteDatabase* TDatabaseRegistry::CreateDatabase(const QString& FileName, const QString& AliasName,
                                                     const QString& Encoding, const QString& EncryptionKey,
                                                     const QString& PageSize, const QString& AutoVacuum) {
    const QString file = NormalFileName(FileName);
    if (QFileInfo::exists(file)) throw ECustomException(QStringLiteral("File %1 already exists.").arg(file));
    if (FMetaList.FindDatabaseByAliasName(AliasName))
        throw ECustomException(QStringLiteral("Alias %1 already exists.").arg(AliasName));

    auto database = std::make_unique<TDLSQLiteDatabase>();
    database->SetUnicode(FUnicodeEncoding);
    database->SetFileName(file);
    database->SetAliasName(AliasName);
    FHost.WireDatabase(*database, true);
    bool ok = false;
    int pageSize = PageSize.trimmed().toInt(&ok);
    if (!ok) pageSize = 1024;
    int autoVacuum = AutoVacuum.trimmed().toInt(&ok);
    if (!ok) autoVacuum = 0;
    database->CreateDatabase(autoVacuum, pageSize, Encoding, EncryptionKey);
    if (QFileInfo::exists(file)) FLastDatabaseDirectory = QFileInfo(file).absolutePath();

    TDLSQLiteDatabase* result = Register(std::move(database));
    FHost.AsyncUpdateControls();
    return result;
}

bool TDatabaseRegistry::CheckActiveTransaction(TDLSQLiteDatabase* Database) {
    if (!Database || !Database->Connected() || !Database->GetInTransaction()) return true;
    const int answer = FHost.AskTransaction(
        QStringLiteral("There is an active transaction on the database ") + Database->AliasName() +
        QStringLiteral(".\r\n") + QStringLiteral("Would you like to Commit or Rollback?"));
    switch (answer) {
        case taCommit:
            Database->Commit();
            return true;
        case taRollback:
            Database->Rollback();
            return true;
        default:
            return false;
    }
}

bool TDatabaseRegistry::CloseDatabase(TDLSQLiteDatabase* Database) {
    if (!Database) return true;
    bool closed = false;
    if (CheckActiveTransaction(Database)) {
        const QString file = Database->FileName();
        const QString alias = Database->AliasName();
        // The literal is not the engine's name of a memory database, and so
        // a memory database does reach the list; that is wanted.
        if (file != QLatin1String(":memory;")) {
            RemoveRecent(file);
            FRecentDatabases.prepend(file);
        }
        FDBCache.ClearAlias(alias);
        FMetaList.DeleteDatabase(alias);
        FColumnsCache.ClearAlias(alias);
        closed = true;
    }
    if (!FHost.CurrentDatabase())
        FHost.ForceRefreshAll();
    else
        FHost.AsyncUpdateControls();
    return closed;
}

void TDatabaseRegistry::CloseAllDatabases() {
    // A refusal keeps the database, and the loop asks about it again.
    for (;;) {
        TDLSQLiteDatabase* database = FHost.CurrentDatabase();
        if (!database && FMetaList.GetMetadataCount() > 0) database = &FMetaList.GetDatabase(0);
        if (!database) return;
        CloseDatabase(database);
    }
}

void TDatabaseRegistry::RenameAlias(const QString& OldAliasName, const QString& NewAliasName) {
    if (FMetaList.FindMetadataByAliasName(NewAliasName)) {
        FHost.ShowError(QStringLiteral("Alias %1 is already in use.").arg(NewAliasName));
        return;
    }
    TDLSQLiteDatabase* database = FMetaList.FindDatabaseByAliasName(OldAliasName);
    if (!database) return;
    database->SetAliasName(NewAliasName);
    FHost.AliasRenamed(OldAliasName, NewAliasName);
    FDBCache.RenameAlias(OldAliasName, NewAliasName);
    FColumnsCache.RenameAlias(OldAliasName, NewAliasName);
    FHost.RefreshAll();
}

void TDatabaseRegistry::EditRegistration(const QString& OldAliasName, const QString& NewFileName,
                                         const QString& NewAliasName) {
    if (NewAliasName.trimmed().isEmpty() || !QFileInfo::exists(NewFileName)) return;
    TDLSQLiteDatabase* database = FMetaList.FindDatabaseByAliasName(OldAliasName);
    if (!database) return;
    if (database->FileName() != NormalFileName(NewFileName)) {
        FMetaList.DeleteDatabase(OldAliasName);
        OpenDatabase(NewFileName, NewAliasName);
        FDBCache.ClearAlias(OldAliasName);
        FColumnsCache.ClearAlias(OldAliasName);
    } else if (OldAliasName != NewAliasName) {
        RenameAlias(OldAliasName, NewAliasName);
    }
}

void TDatabaseRegistry::RefreshDatabase(TDLSQLiteDatabase& Database) {
    const QString alias = Database.AliasName();
    const bool expanded = FHost.GetExpanded(alias);
    struct TRestore {
        IRegistryHost& Host;
        const QString& Alias;
        bool Expanded;
        ~TRestore() { Host.SetExpanded(Alias, Expanded); }
    } restore{FHost, alias, expanded};
    // A second try outside the guard: a refresh may fail once on a schema
    // that changed under it, and the second failure is the one to report.
    try {
        FMetaList.RefreshMetadata(alias);
    } catch (const std::exception&) {
        FMetaList.RefreshMetadata(alias);
    }
}

void TDatabaseRegistry::RefreshWhere(bool (*Test)(TDLSQLiteDatabase*, TDLSQLiteDatabase*),
                                     const QString& AliasName, const QString& ObjectName) {
    TWaitCursorGuard cursor(true);
    QString alias = AliasName, object = ObjectName;
    if (alias.isEmpty() && object.isEmpty()) {
        TDLSQLiteDatabase* current = FHost.CurrentDatabase();
        alias = current ? current->AliasName() : QString();
        object = FHost.CurrentObjectName();
    }
    TDLSQLiteDatabase* current = FMetaList.FindDatabaseByAliasName(alias);
    if (!current) current = FHost.CurrentDatabase();

    std::exception_ptr first;
    FHost.BeginUpdate();
    for (int i = 0; i < FMetaList.GetMetadataCount(); ++i) {
        TDLSQLiteDatabase& database = FMetaList.GetDatabase(i);
        if (Test(&database, current)) Bracket(first, [&] { RefreshDatabase(database); });
    }
    FHost.EndUpdate();
    Bracket(first, [&] { FHost.SelectObject(alias, object); });
    Bracket(first, [&] { FHost.RefreshAll(); });
    if (first) std::rethrow_exception(first);
}

void TDatabaseRegistry::RefreshCurrentDatabase(const QString& AliasName, const QString& ObjectName) {
    RefreshWhere(&TDatabaseRegistry::Related, AliasName, ObjectName);
}

void TDatabaseRegistry::RefreshAllDatabases(const QString& AliasName, const QString& ObjectName) {
    RefreshWhere([](TDLSQLiteDatabase*, TDLSQLiteDatabase*) { return true; }, AliasName, ObjectName);
}

void TDatabaseRegistry::SaveDatabases(QSettings& IniFile) const {
    IniFile.remove(QStringLiteral("DB"));
    IniFile.setValue(QStringLiteral("Persistent/DBCount"), FMetaList.GetMetadataCount());
    IniFile.beginGroup(QStringLiteral("DB"));
    for (int n = 0; n < FMetaList.GetMetadataCount(); ++n) {
        TDLSQLiteDatabase& database = FMetaList.GetDatabase(n);
        const QString prefix = QStringLiteral("DB_%1_").arg(n);
        IniFile.setValue(prefix + QStringLiteral("FileName"), database.FileName());
        IniFile.setValue(prefix + QStringLiteral("AliasName"), database.AliasName());
        QString encoding;
        QStringList attached;
        if (database.Connected()) {
            try {
                encoding = database.DatabaseParams().Encoding();
                for (int m = 0; m < database.AttachedDatabaseCount(); ++m)
                    attached << database.AttachedDatabases(m);
            } catch (const std::exception&) {
            }
        }
        IniFile.setValue(prefix + QStringLiteral("Encoding"), encoding);
        IniFile.setValue(prefix + QStringLiteral("DBCount"), static_cast<int>(attached.size()));
        for (int m = 0; m < attached.size(); ++m) {
            const QString sub = QStringLiteral("DB_%1_%2_").arg(n).arg(m);
            IniFile.setValue(sub + QStringLiteral("DatabaseName"), attached[m]);
            IniFile.setValue(sub + QStringLiteral("FileName"), database.GetAttachedFileName(attached[m]));
        }
        IniFile.setValue(prefix + QStringLiteral("ExtensionCount"), database.ExtensionCount());
        for (int m = 0; m < database.ExtensionCount(); ++m) {
            const QString sub = QStringLiteral("Extension_%1_%2_").arg(n).arg(m);
            IniFile.setValue(sub + QStringLiteral("FileName"), database.Extensions(m).FileName);
            IniFile.setValue(sub + QStringLiteral("EntryPoint"), database.Extensions(m).EntryPoint);
        }
        IniFile.setValue(prefix + QStringLiteral("Expanded"),
                         FHost.GetExpanded(database.AliasName()) ? 1 : 0);
    }
    IniFile.endGroup();
}

void TDatabaseRegistry::LoadDatabases(QSettings& IniFile) {
    const int count = ReadInt(IniFile, QStringLiteral("Persistent/DBCount"), 0);
    for (int n = 0; n < count; ++n) {
        try {
            const QString prefix = QStringLiteral("DB/DB_%1_").arg(n);
            const QString file = IniFile.value(prefix + QStringLiteral("FileName")).toString();
            const QString alias = IniFile.value(prefix + QStringLiteral("AliasName")).toString();
            const QString encoding = IniFile.value(prefix + QStringLiteral("Encoding")).toString();
            // A file that has gone is passed over: reopening it would make a
            // new, empty database in its place.
            if (file.isEmpty() || (!IsMemoryName(file) && !QFileInfo::exists(file))) continue;
            // Nothing at start-up may bring up a box, as an alias in use would.
            if (!alias.isEmpty() && FMetaList.FindDatabaseByAliasName(alias) &&
                !FMetaList.FindDatabaseByFileName(NormalFileName(file)))
                continue;
            TDLSQLiteDatabase* database = OpenDatabase(file, alias, QString(), encoding);
            if (!database) continue;

            const int attachments = ReadInt(IniFile, prefix + QStringLiteral("DBCount"), 0);
            for (int m = 0; m < attachments; ++m) {
                try {
                    const QString sub = QStringLiteral("DB/DB_%1_%2_").arg(n).arg(m);
                    const QString name = IniFile.value(sub + QStringLiteral("DatabaseName")).toString();
                    const QString attached = IniFile.value(sub + QStringLiteral("FileName")).toString();
                    if (name.isEmpty() || attached.isEmpty()) continue;
                    if (!IsMemoryName(attached) && !QFileInfo::exists(attached)) continue;
                    database->SetConnected(true);
                    database->Attach(attached, name);
                } catch (const std::exception&) {
                }
            }
            const int extensions = ReadInt(IniFile, prefix + QStringLiteral("ExtensionCount"), 0);
            for (int m = 0; m < extensions; ++m) {
                try {
                    const QString sub = QStringLiteral("DB/Extension_%1_%2_").arg(n).arg(m);
                    const QString library = IniFile.value(sub + QStringLiteral("FileName")).toString();
                    const QString entry = IniFile.value(sub + QStringLiteral("EntryPoint")).toString();
                    if (library.isEmpty()) continue;
                    database->SetConnected(true);
                    database->LoadExtension(library, entry);
                } catch (const std::exception&) {
                }
            }
            if (attachments > 0) {
                try {
                    RefreshDatabase(*database);
                } catch (const std::exception&) {
                }
            }
            FHost.SetExpanded(database->AliasName(),
                              ReadInt(IniFile, prefix + QStringLiteral("Expanded"), 1) != 0);
        } catch (const std::exception&) {
        }
    }
}

void TDatabaseRegistry::CleanupRecentDatabases() {
    while (FRecentDatabases.size() > MaxRecentDatabases) FRecentDatabases.removeAt(MaxRecentDatabases);
}

bool TDatabaseRegistry::IsValidDatabase(const QString& FileName) {
    try {
        TDLSQLiteDatabase test;
        test.SetFileName(FileName);
        test.SetAliasName(QStringLiteral("test"));
        test.SetConnected(true);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

bool TDatabaseRegistry::Related(TDLSQLiteDatabase* DB1, TDLSQLiteDatabase* DB2) {
    if (DB1 == DB2) return true;
    if (!DB1 || !DB2) return false;
    // Bare names only, deliberately coarse: refreshing too much is harmless.
    const QStringList files1 = FilesOf(*DB1), files2 = FilesOf(*DB2);
    for (const QString& f1 : files1) {
        const QString bare = QFileInfo(f1).fileName();
        if (bare.isEmpty() || IsMemoryName(bare)) continue;
        for (const QString& f2 : files2)
            if (bare.compare(QFileInfo(f2).fileName(), Qt::CaseInsensitive) == 0) return true;
    }
    return false;
}

QString TDatabaseRegistry::GetDefaultDBFilter(const QStringList& AssociatedExtensions) {
    QStringList patterns{QStringLiteral("*.db"), QStringLiteral("*.db3"), QStringLiteral("*.sqlite")};
    for (const QString& ext : AssociatedExtensions)
        if (!patterns.contains(ext, Qt::CaseInsensitive)) patterns << ext;
    std::sort(patterns.begin(), patterns.end(),
              [](const QString& a, const QString& b) { return a.compare(b, Qt::CaseInsensitive) < 0; });
    return QStringLiteral("Database Files (%1)|%2|Any File (*.*)|*.*")
        .arg(patterns.join(QStringLiteral(", ")), patterns.join(u';'));
}

bool TDatabaseRegistry::ChangesDatabaseProperties(const QString& SQL) {
    switch (GetSQLCommand(SQL)) {
        case stAlterTable:
        case stAnalyze:
        case stAttach:
        case stCommit:
        case stCreateIndex:
        case stCreateTable:
        case stCreateTrigger:
        case stCreateView:
        case stCreateVirtualTable:
        case stDelete:
        case stDetach:
        case stDropIndex:
        case stDropTable:
        case stDropTrigger:
        case stDropView:
        case stInsert:
        case stReindex:
        case stRelease:
        case stRollback:
        case stUpdate:
        case stVacuum:
            return true;
        case stPragma:
            return SQL.contains(u'=');
        default:
            return false;
    }
}

}  // namespace brindle
