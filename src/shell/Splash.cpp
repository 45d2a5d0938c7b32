#include "Splash.h"

#include "ProgramSettings.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPixmap>
#include <QScreen>
#include <QSettings>
#include <QSplashScreen>

namespace brindle {

int SplashMonitor(QSettings& Store, int MonitorCount) {
    const int monitor = ReadInt(Store, QStringLiteral("Layout/Monitor"), 0);
    return monitor >= 0 && monitor < MonitorCount ? monitor : 0;
}

std::unique_ptr<QSplashScreen> ShowSplash(QSettings& Store) {
    const QList<QScreen*> screens = QGuiApplication::screens();
    if (screens.isEmpty()) return nullptr;
    QScreen* screen = screens[SplashMonitor(Store, static_cast<int>(screens.size()))];
    QPixmap picture(420, 180);
    picture.fill(QColor(0x2b, 0x3a, 0x4a));
    {
        QPainter painter(&picture);
        painter.setPen(Qt::white);
        QFont title = painter.font();
        title.setPointSize(26);
        title.setBold(true);
        painter.setFont(title);
        painter.drawText(QRect(0, 30, 420, 60), Qt::AlignCenter, QStringLiteral("Brindle"));
        QFont small = painter.font();
        small.setPointSize(10);
        small.setBold(false);
        painter.setFont(small);
        painter.drawText(QRect(0, 100, 420, 30), Qt::AlignCenter,
                         QStringLiteral("SQLite database administration, version " BRINDLE_VERSION));
    }
    auto splash = std::make_unique<QSplashScreen>(screen, picture);
    splash->move(screen->geometry().center() - splash->rect().center());
    splash->show();
    return splash;
}

}  // namespace brindle
