// SQLite's pragmas described as data: a fixed table of options with their
// kind and allowed values, which the database properties page walks, and
// the reading and writing of each option against a connection.
//
// Not thread-safe: used with its database on the main thread only.
#pragma once

#include <QString>
#include <QStringList>
#include <memory>
#include <vector>

namespace brindle {

class TDLSQLiteDatabase;
class TSQLitePragmaOptions;

enum TPragmaType { ptBoolean, ptEnum, ptInteger, ptString, ptList };
enum TPragmaFlag { pfRead = 1, pfWrite = 2 };
using TPragmaFlags = int;  // TPragmaFlag bits

class TSQLitePragmaOption {
public:
    // Values are the allowed answers in the engine's numeric order; a
    // boolean without values gets "off" and "on".
    TSQLitePragmaOption(TSQLitePragmaOptions* Owner, const QString& Name, TPragmaType PragmaType,
                        const QStringList& Values, TPragmaFlags Flags);

    const QString& Name() const { return FName; }
    TPragmaFlags Flags() const { return FFlags; }
    TPragmaType PragmaType() const { return FPragmaType; }
    const QStringList& Values() const { return FValues; }

    // The option's value in Database ("" for the connection's default, else
    // a schema name). A numeric answer that indexes Values reads as that
    // value's text; lists come as quoted names joined by ", ". Engine
    // failures raise.
    QString GetValue(const QString& Database = QString()) const;
    // Runs `pragma name = "Value"`; read-only options are not refused here.
    void SetValue(const QString& Database, const QString& Value) const;

private:
    QString QualifiedName(const QString& Database) const;

    TSQLitePragmaOptions* FOwner;  // not owned
    QString FName;
    TPragmaType FPragmaType;
    QStringList FValues;
    TPragmaFlags FFlags;
};

// The table of options, in its fixed order; owns its options.
class TSQLitePragmaOptions {
public:
    explicit TSQLitePragmaOptions(TDLSQLiteDatabase* Database);
    TSQLitePragmaOptions(const TSQLitePragmaOptions&) = delete;
    TSQLitePragmaOptions& operator=(const TSQLitePragmaOptions&) = delete;

    TDLSQLiteDatabase* Database() const { return FDatabase; }
    int Count() const { return static_cast<int>(FItems.size()); }
    TSQLitePragmaOption* Items(int Index) const { return FItems[static_cast<size_t>(Index)].get(); }
    // Case-insensitive; null when there is no such option.
    TSQLitePragmaOption* ByName(const QString& Name) const;

private:
    TDLSQLiteDatabase* FDatabase;  // not owned
    std::vector<std::unique_ptr<TSQLitePragmaOption>> FItems;
};

}  // namespace brindle
