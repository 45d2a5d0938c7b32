#pragma once

#include <QProcess>
#include <csignal>
#include <sys/types.h>

namespace brindle::test {

// Sends Signal to a child only while it runs. A finished QProcess reports
// pid 0, and kill(0, ...) would reach the whole process group: the test
// runner and everything that started it.
inline bool SignalChild(const QProcess& Child, int Signal) {
    const qint64 pid = Child.processId();
    if (Child.state() != QProcess::Running || pid <= 0) return false;
    return ::kill(static_cast<pid_t>(pid), Signal) == 0;
}

}  // namespace brindle::test
