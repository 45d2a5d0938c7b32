// Where windows were, kept across runs. A registered window class has its
// placement stored when the window is hidden for the last time and applied
// when it is shown, in section "Placement", value class name + ".Placement":
// the 44-byte placement record (length, flags, show state, minimised and
// maximised positions, normal rectangle; little-endian 32-bit integers) as
// 88 hexadecimal digits.
#pragma once

#include <QPoint>
#include <QRect>
#include <QString>
#include <optional>

class QSettings;
class QWidget;

namespace brindle {

enum TShowCommand { swHide = 0, swNormal = 1, swMinimized = 2, swMaximized = 3 };

struct TWindowPlacement {
    int Flags = 0;
    int ShowCmd = swNormal;
    QPoint MinPosition{-1, -1};
    QPoint MaxPosition{-1, -1};
    // Left, top, and the right and bottom edges just outside, as the
    // record keeps them.
    int Left = 0, Top = 0, Right = 0, Bottom = 0;

    QRect NormalRect() const { return QRect(QPoint(Left, Top), QPoint(Right - 1, Bottom - 1)); }
    void SetNormalRect(const QRect& R);
};

QString EncodePlacement(const TWindowPlacement& Placement);
// Nothing for a value that is not 88 hexadecimal digits.
std::optional<TWindowPlacement> DecodePlacement(const QString& Value);
// What to apply of a stored placement: nothing when the centre of its
// normal rectangle lies outside the desktop; a minimised window comes back
// normal.
std::optional<TWindowPlacement> UsablePlacement(const TWindowPlacement& Placement,
                                                const QRect& VirtualDesktop);

// Window classes by their object name ("TfrmSCMain"); only these are kept.
void RegisterFormPlacement(const QString& ClassName);
bool FormPlacementRegistered(const QString& ClassName);

// Watches every top-level window of the application: a registered one gets
// its stored placement when shown and stores it when hidden. Store must
// outlive the application's windows.
void InstallPlacementPersistence(QSettings& Store);
// The same two steps for one window, by hand.
void ReadPlacement(QSettings& Store, QWidget& Window);
void WritePlacement(QSettings& Store, const QWidget& Window);

}  // namespace brindle
