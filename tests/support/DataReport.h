// What a database holds, as sorted text lines: every row of every table (with
// its rowid, where it has one) and view, each value with its storage class and its exact bytes (integers in
// full, REALs by their bits, text and BLOBs in hex). Two databases with equal
// reports hold the same values. The tables a virtual table keeps for itself
// are left out: their bytes depend on how the rows went in, not on what the
// rows are.
#pragma once

#include <QStringList>

namespace brindle {
class TDLSQLiteDatabase;
}

namespace brindle::test {

QStringList DataReport(TDLSQLiteDatabase& Database);

}  // namespace brindle::test
