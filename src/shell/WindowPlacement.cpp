#include "WindowPlacement.h"

#include <QApplication>
#include <QEvent>
#include <QGuiApplication>
#include <QScreen>
#include <QSet>
#include <QSettings>
#include <QWidget>
#include <QtEndian>

namespace brindle {

namespace {

constexpr int kRecordSize = 44;

QSet<QString>& Registered() {
    static QSet<QString> forms;
    return forms;
}

QString PlacementKey(const QWidget& Window) {
    return QStringLiteral("Placement/") + Window.objectName() + QStringLiteral(".Placement");
}

QRect VirtualDesktop() {
    QRect desktop;
    for (const QScreen* screen : QGuiApplication::screens()) desktop |= screen->geometry();
    return desktop;
}

// Sees Show and Hide of every widget; acts on registered top-level windows.
class TPlacementKeeper : public QObject {
public:
    TPlacementKeeper(QSettings& Store, QObject* Parent) : QObject(Parent), FStore(Store) {}

protected:
    bool eventFilter(QObject* Watched, QEvent* Event) override {
        const QEvent::Type type = Event->type();
        if (type != QEvent::Show && type != QEvent::Hide) return false;
        auto* window = qobject_cast<QWidget*>(Watched);
        if (!window || !window->isWindow() || !FormPlacementRegistered(window->objectName())) return false;
        // Only the first showing takes the stored place: later ones return
        // the window to wherever the user left it in this run.
        if (type == QEvent::Show && !window->property("brindlePlaced").toBool()) {
            window->setProperty("brindlePlaced", true);
            ReadPlacement(FStore, *window);
        } else if (type == QEvent::Hide && !Event->spontaneous()) {
            WritePlacement(FStore, *window);
        }
        return false;
    }

private:
    QSettings& FStore;
};

}  // namespace

void TWindowPlacement::SetNormalRect(const QRect& R) {
    Left = R.left();
    Top = R.top();
    Right = R.left() + R.width();
    Bottom = R.top() + R.height();
}

QString EncodePlacement(const TWindowPlacement& P) {
    const qint32 values[11] = {
        kRecordSize,       P.Flags, P.ShowCmd, P.MinPosition.x(), P.MinPosition.y(), P.MaxPosition.x(),
        P.MaxPosition.y(), P.Left,  P.Top,     P.Right,           P.Bottom};
    QByteArray bytes(kRecordSize, '\0');
    for (int i = 0; i < 11; ++i) qToLittleEndian<qint32>(values[i], bytes.data() + 4 * i);
    return QString::fromLatin1(bytes.toHex().toUpper());
}

std::optional<TWindowPlacement> DecodePlacement(const QString& Value) {
    if (Value.size() != 2 * kRecordSize) return std::nullopt;
    for (QChar c : Value)
        if (!((c >= u'0' && c <= u'9') || (c.toLower() >= u'a' && c.toLower() <= u'f'))) return std::nullopt;
    const QByteArray bytes = QByteArray::fromHex(Value.toLatin1());
    if (bytes.size() != kRecordSize) return std::nullopt;
    qint32 v[11];
    for (int i = 0; i < 11; ++i) v[i] = qFromLittleEndian<qint32>(bytes.constData() + 4 * i);
    TWindowPlacement p;
    p.Flags = v[1];
    p.ShowCmd = v[2];
    p.MinPosition = QPoint(v[3], v[4]);
    p.MaxPosition = QPoint(v[5], v[6]);
    p.Left = v[7];
    p.Top = v[8];
    p.Right = v[9];
    p.Bottom = v[10];
    return p;
}

std::optional<TWindowPlacement> UsablePlacement(const TWindowPlacement& Placement, const QRect& Desktop) {
    // The centre from the sums of the edges, halved, as the record has them.
    const QPoint centre((Placement.Left + Placement.Right) / 2, (Placement.Top + Placement.Bottom) / 2);
    if (!Desktop.contains(centre)) return std::nullopt;
    TWindowPlacement p = Placement;
    if (p.ShowCmd == swMinimized) p.ShowCmd = swNormal;
    return p;
}

void RegisterFormPlacement(const QString& ClassName) {
    Registered().insert(ClassName);
}

bool FormPlacementRegistered(const QString& ClassName) {
    return Registered().contains(ClassName);
}

void InstallPlacementPersistence(QSettings& Store) {
    qApp->installEventFilter(new TPlacementKeeper(Store, qApp));
}

void ReadPlacement(QSettings& Store, QWidget& Window) {
    const std::optional<TWindowPlacement> stored =
        DecodePlacement(Store.value(PlacementKey(Window)).toString());
    if (!stored) return;
    const std::optional<TWindowPlacement> p = UsablePlacement(*stored, VirtualDesktop());
    if (!p) return;
    const QRect rect = p->NormalRect();
    if (p->ShowCmd == swMaximized) {
        // Maximised on the monitor the window was on.
        Window.setGeometry(rect);
        if (const QScreen* screen = QGuiApplication::screenAt(rect.center()))
            Window.move(screen->geometry().topLeft());
        Window.setWindowState(Window.windowState() | Qt::WindowMaximized);
    } else {
        Window.setGeometry(rect);
        Window.setWindowState(Window.windowState() & ~(Qt::WindowMaximized | Qt::WindowMinimized));
    }
}

void WritePlacement(QSettings& Store, const QWidget& Window) {
    TWindowPlacement p;
    const Qt::WindowStates state = Window.windowState();
    p.ShowCmd = (state & Qt::WindowMaximized)   ? swMaximized
                : (state & Qt::WindowMinimized) ? swMinimized
                                                : swNormal;
    // The normal rectangle, also of a maximised window, so it comes back to
    // that size when restored.
    const QRect normal = Window.normalGeometry().isValid() ? Window.normalGeometry() : Window.geometry();
    p.SetNormalRect(normal);
    Store.setValue(PlacementKey(Window), EncodePlacement(p));
}

}  // namespace brindle
