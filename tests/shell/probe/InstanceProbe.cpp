// A stand-in for the program in the single-instance tests. Environment:
// BRINDLE_INSTANCE_NAME names the meeting place, BRINDLE_INSTANCE_SETTINGS is
// the settings file to read the option from. The arguments are the ones to
// hand over.
//
// A second instance exits with 0 once the first has read its arguments. A
// first instance prints "first" (or "alone" with the option off), then one
// JSON array per received argument list, and runs until its stdin closes.
#include "shell/SingleInstance.h"

#include <unistd.h>
#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSettings>
#include <QSocketNotifier>
#include <cstdio>

namespace {

void PrintLine(const QByteArray& Line) {
    std::fwrite(Line.constData(), 1, static_cast<size_t>(Line.size()), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QString name = qEnvironmentVariable("BRINDLE_INSTANCE_NAME");
    QSettings settings(qEnvironmentVariable("BRINDLE_INSTANCE_SETTINGS"), QSettings::IniFormat);
    try {
        if (brindle::InitSingleInstance(settings, app.arguments().mid(1), name)) return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 2;
    }

    if (brindle::TSingleInstance* instance = brindle::SingleInstance()) {
        brindle::TOneInstance& one = instance->OneInstance();
        // The window would take the lists when idle; the probe prints them at once.
        auto queue = one.FOnInstanceStarted;
        one.FOnInstanceStarted = [queue](const QStringList& Params) {
            queue(Params);
            while (!brindle::InstParams().isEmpty())
                PrintLine(QJsonDocument(QJsonArray::fromStringList(brindle::InstParams().takeFirst()))
                              .toJson(QJsonDocument::Compact));
        };
        PrintLine("first");
    } else {
        PrintLine("alone");
    }

    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &app, [&input] {
        char buffer[256];
        if (read(STDIN_FILENO, buffer, sizeof buffer) <= 0) {
            input.setEnabled(false);
            QCoreApplication::quit();
        }
    });
    return app.exec();
}
