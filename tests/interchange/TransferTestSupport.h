// What the transfer and script tests share: databases in a folder of their
// own, the fixture database that holds everything a copy can get wrong, and
// the two reports (schema and data) that say whether two databases are the
// same.
#pragma once

#include "CatalogueReport.h"
#include "DataReport.h"
#include "QtPrinters.h"
#include "TempDir.h"

#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"
#include "schema/DLSQLiteMetadata.h"

#include <gtest/gtest.h>
#include <QFile>
#include <functional>
#include <memory>

namespace brindle::test {

class TransferTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!SQLite3Driver->sqlite3drv_loaded()) {
            ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB));
        }
    }

    // A database file of the folder, made when it does not exist.
    std::unique_ptr<TDLSQLiteDatabase> Open(const QString& Name) {
        auto db = std::make_unique<TDLSQLiteDatabase>();
        db->FShowWaitCursor = false;
        db->SetFileName(dir.file(Name));
        if (!QFile::exists(dir.file(Name))) {
            db->CreateDatabase(0, 0, QString(), QString());
            db->SetConnected(false);
        }
        db->SetConnected(true);
        return db;
    }

    // The fixture of tests/fixtures/transfer, built afresh.
    std::unique_ptr<TDLSQLiteDatabase> Fixture(const QString& Name = QStringLiteral("source.db")) {
        auto db = Open(Name);
        QFile file(QStringLiteral(BRINDLE_TEST_DATA "/transfer/everything.sql"));
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        db->Execute(QString::fromUtf8(file.readAll()));
        return db;
    }

    static std::unique_ptr<TDLSQLiteMetadata> Metadata(TDLSQLiteDatabase& Database) {
        auto md = std::make_unique<TDLSQLiteMetadata>(&Database);
        md->Refresh();
        EXPECT_EQ(md->RefreshErrors(), QString());
        return md;
    }

    // Both reports of A against B: empty when they hold the same.
    static QStringList Differences(TDLSQLiteDatabase& A, TDLSQLiteDatabase& B) {
        QStringList d = ReportDifferences(CatalogueReport(A), CatalogueReport(B));
        d += ReportDifferences(DataReport(A), DataReport(B));
        return d;
    }

    static QStringList Values(TDLSQLiteDatabase& Database, const QString& SQL) {
        QStringList list;
        Database.GetValues(SQL, list);
        return list;
    }

    static QString Failure(const std::function<void()>& Work) {
        try {
            Work();
        } catch (const ECustomException& e) {
            return e.message();
        }
        return QStringLiteral("no exception");
    }

    TempDir dir;
};

}  // namespace brindle::test
