#include "Assert.h"

#include <cstdio>

namespace brindle {

namespace {

QString FailureText(const char* message, const char* file, int line) {
    return QStringLiteral("Assertion failure: %1 (%2, line %3)")
        .arg(QString::fromUtf8(message), QString::fromUtf8(file))
        .arg(line);
}

}  // namespace

void ReportAssertionFailure(const char* message, const char* file, int line) {
    std::fprintf(stderr, "%s\n", FailureText(message, file, line).toLocal8Bit().constData());
    std::fflush(stderr);
}

void AssertionFailure(const char* message, const char* file, int line) {
    ReportAssertionFailure(message, file, line);
    throw EAssertionFailure(FailureText(message, file, line));
}

}  // namespace brindle
