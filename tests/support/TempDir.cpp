#include "TempDir.h"

#include <QFile>
#include <gtest/gtest.h>

namespace brindle::test {

TempDir::TempDir() { EXPECT_TRUE(FDir.isValid()); }

QString TempDir::write(const QString& name, const QByteArray& bytes) const {
    const QString p = file(name);
    QFile f(p);
    EXPECT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(bytes);
    return p;
}

QByteArray readFile(const QString& path) {
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) return {};
    return f.readAll();
}

}  // namespace brindle::test
