// brindle-cli run as a child process, with what it printed.
#pragma once

#include <gtest/gtest.h>
#include <QProcess>
#include <QString>
#include <QStringList>

namespace brindle::test {

struct TCliRun {
    int code;
    QString out;
    QString err;
};

inline TCliRun RunCli(const QStringList& Args, int TimeoutMs) {
    QProcess p;
    p.start(QStringLiteral(BRINDLE_CLI), Args);
    EXPECT_TRUE(p.waitForFinished(TimeoutMs));
    return {p.exitCode(), QString::fromUtf8(p.readAllStandardOutput()),
            QString::fromUtf8(p.readAllStandardError())};
}

}  // namespace brindle::test
