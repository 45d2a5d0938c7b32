// What the engine itself reports of a database's schema, as sorted text
// lines: columns (generated ones with their kind), strict tables, indexes
// with their key columns, foreign keys, triggers with their heads and
// bodies, view columns, and the check and deferral texts read from the
// stored CREATE statements (no pragma gives those). Generated expressions
// show in no pragma: what they compute is for the caller to compare. Two
// databases with equal reports behave alike for every row they will ever
// hold.
#pragma once

#include <QStringList>

namespace brindle {
class TDLSQLiteDatabase;
}

namespace brindle::test {

QStringList CatalogueReport(TDLSQLiteDatabase& Database);

// The lines of A missing in B with "- ", then those of B missing in A with "+ ".
QStringList ReportDifferences(const QStringList& A, const QStringList& B);

}  // namespace brindle::test
