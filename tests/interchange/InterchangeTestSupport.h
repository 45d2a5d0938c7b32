// What the text import and export tests share: a database file of their
// own, bytes as a stream, and rows read back as text.
#pragma once

#include "TempDir.h"

#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"

#include <gtest/gtest.h>
#include <QBuffer>
#include <memory>

namespace brindle::test {

// A new UTF-8 database in a folder of its own, the engine loaded once.
class DatabaseTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!SQLite3Driver->sqlite3drv_loaded()) {
            ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB));
        }
        db.FShowWaitCursor = false;
        db.SetFileName(dir.file(QStringLiteral("t.db")));
        db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
        db.SetConnected(true);
    }

    // The first column of every row, as text.
    QStringList Values(const QString& SQL) {
        QStringList list;
        db.GetValues(SQL, list);
        return list;
    }

    TempDir dir;
    TDLSQLiteDatabase db;
};

// Bytes to read as a stream; the buffer owns its copy.
inline std::unique_ptr<QBuffer> Stream(const QByteArray& Bytes) {
    auto buffer = std::make_unique<QBuffer>();
    buffer->setData(Bytes);
    buffer->open(QIODevice::ReadOnly);
    return buffer;
}

}  // namespace brindle::test
