#include "DLObjectNames.h"

#include "DLQuoteTools.h"
#include "DLSQLiteDatabase.h"

namespace brindle {

TObjectNames GetObjectNames(TDLSQLiteDatabase& Database, const QString& DatabaseName) {
    TObjectNames result;
    std::vector<TDLSQLiteDatabase::TNameEntry> visible, all;
    Database.GetTableNames(DatabaseName, visible, false, false, false);
    Database.GetTableNames(DatabaseName, all, false, true, false);
    QStringList visibleNames;
    for (const auto& e : visible) {
        (e.Flag ? result.VirtualTables : result.Tables).append(e.Name);
        visibleNames.append(e.Name);
    }
    for (const auto& e : all)
        if (!visibleNames.contains(e.Name)) result.ShadowTables.append(e.Name);

    std::vector<TDLSQLiteDatabase::TNameEntry> views;
    Database.GetViewNames(DatabaseName, views, false);
    for (const auto& e : views) result.Views.append(e.Name);

    const QStringList owners = result.Tables + result.VirtualTables + result.ShadowTables;
    for (const QString& t : owners) Database.GetIndexNames(QuoteObject(DatabaseName, UnQuoteIdentifier(t)), result.Indexes);
    for (const QString& t : owners + result.Views)
        Database.GetTriggerNames(QuoteObject(DatabaseName, UnQuoteIdentifier(t)), result.Triggers);
    return result;
}

}  // namespace brindle
