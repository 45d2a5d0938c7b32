#include "DLPragmaOptions.h"

#include "DLQuoteTools.h"
#include "DLSQLiteDatabase.h"

namespace brindle {

namespace {

struct TOptionRow {
    const char* Name;
    TPragmaType Type;
    std::initializer_list<const char*> Values;
    bool ReadOnly;
};

// The properties page lists the options in this order.
const TOptionRow kOptions[] = {
    {"application_id", ptInteger, {}, false},
    {"auto_vacuum", ptEnum, {"none", "full", "incremental"}, false},
    {"automatic_index", ptBoolean, {}, false},
    {"busy_timeout", ptInteger, {}, false},
    {"cache_size", ptInteger, {}, false},
    {"case_sensitive_like", ptBoolean, {}, false},
    {"checkpoint_fullfsync", ptBoolean, {}, false},
    {"collation_list", ptList, {}, true},
    {"compile_options", ptList, {}, true},
    {"encoding", ptEnum, {"UTF-8", "UTF-16", "UTF-16le", "UTF-16be"}, false},
    {"foreign_keys", ptBoolean, {}, false},
    {"freelist_count", ptInteger, {}, true},
    {"fullfsync", ptBoolean, {}, false},
    {"ignore_check_constraints", ptBoolean, {}, false},
    {"journal_mode", ptEnum, {"delete", "truncate", "persist", "memory", "wal", "off"}, false},
    {"journal_size_limit", ptInteger, {}, false},
    {"legacy_file_format", ptBoolean, {}, false},
    {"locking_mode", ptEnum, {"normal", "exclusive"}, false},
    {"max_page_count", ptInteger, {}, false},
    {"mmap_size", ptInteger, {}, false},
    {"page_count", ptInteger, {}, true},
    // 32758, not 32768: the list has always offered this value; kept as it is.
    {"page_size", ptInteger, {"512", "1024", "2048", "4096", "8192", "16384", "32758"}, false},
    {"parser_trace", ptBoolean, {}, false},
    {"read_uncommitted", ptBoolean, {}, false},
    {"recursive_triggers", ptBoolean, {}, false},
    {"reverse_unordered_selects", ptBoolean, {}, false},
    {"schema_version", ptInteger, {}, false},
    {"secure_delete", ptBoolean, {}, false},
    {"synchronous", ptEnum, {"off", "normal", "full"}, false},
    {"temp_store", ptEnum, {"default", "file", "memory"}, false},
    {"user_version", ptInteger, {}, false},
    {"vdbe_addoptrace", ptBoolean, {}, false},
    {"vdbe_listing", ptBoolean, {}, false},
    {"vdbe_trace", ptBoolean, {}, false},
    {"wal_autocheckpoint", ptInteger, {}, false},
    {"writable_schema", ptBoolean, {}, false},
};

}  // namespace

TSQLitePragmaOption::TSQLitePragmaOption(TSQLitePragmaOptions* Owner, const QString& Name,
                                         TPragmaType PragmaType, const QStringList& Values,
                                         TPragmaFlags Flags)
    : FOwner(Owner), FName(Name), FPragmaType(PragmaType), FValues(Values), FFlags(Flags) {
    if (FPragmaType == ptBoolean && FValues.isEmpty())
        FValues = {QStringLiteral("off"), QStringLiteral("on")};
}

QString TSQLitePragmaOption::QualifiedName(const QString& Database) const {
    return Database.isEmpty() ? FName : QuoteIdentifier(Database) + u'.' + FName;
}

QString TSQLitePragmaOption::GetValue(const QString& Database) const {
    TDLSQLiteDatabase& db = *FOwner->Database();
    const QString name = QualifiedName(Database);
    QString result;
    if (FPragmaType == ptList) {
        QStringList items;
        if (FName == QLatin1String("collation_list"))
            db.GetCollations(Database, items);
        else
            db.GetValues(QStringLiteral("pragma ") + name, items);
        for (QString& item : items) item = QuoteIdentifier(item);
        result = items.join(QStringLiteral(", "));
    } else if (FName == QLatin1String("case_sensitive_like")) {
        // The engine cannot report this pragma; a comparison shows it.
        result = db.GetStringValue(QStringLiteral("select 'a' not like 'A';"));
    } else {
        result = db.GetStringValue(QStringLiteral("pragma ") + name);
    }
    if (!FValues.isEmpty() && !FValues.contains(result, Qt::CaseInsensitive)) {
        // The engine answers some options by number: 1 for "full".
        bool ok = false;
        int index = result.toInt(&ok);
        if (!ok) index = -1;
        if (index >= 0 && index < FValues.size()) result = FValues[index];
    }
    return result;
}

void TSQLitePragmaOption::SetValue(const QString& Database, const QString& Value) const {
    TDLSQLiteDatabase& db = *FOwner->Database();
    // Background readers that have read a WAL file keep a lock on it that
    // refuses any other journal mode; they go, and come back with the next
    // background task. Tasks still waiting are dropped.
    if (FName == QLatin1String("journal_mode")) db.FinalizeQueryQueue();
    db.Execute(QStringLiteral("pragma %1 = \"%2\"").arg(QualifiedName(Database), Value));
}

TSQLitePragmaOptions::TSQLitePragmaOptions(TDLSQLiteDatabase* Database) : FDatabase(Database) {
    for (const TOptionRow& row : kOptions) {
        QStringList values;
        for (const char* v : row.Values) values.append(QString::fromLatin1(v));
        const TPragmaFlags flags = row.ReadOnly ? pfRead : (pfRead | pfWrite);
        FItems.push_back(std::make_unique<TSQLitePragmaOption>(this, QString::fromLatin1(row.Name), row.Type,
                                                               values, flags));
    }
}

TSQLitePragmaOption* TSQLitePragmaOptions::ByName(const QString& Name) const {
    for (const auto& item : FItems)
        if (item->Name().compare(Name, Qt::CaseInsensitive) == 0) return item.get();
    return nullptr;
}

}  // namespace brindle
