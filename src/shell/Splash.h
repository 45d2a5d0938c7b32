// The window shown while the program starts: product and version, on the
// monitor where the main window was last closed.
#pragma once

#include <memory>

class QSettings;
class QSplashScreen;

namespace brindle {

// "Layout"/"Monitor"; 0 when it does not read as a number or names a
// monitor that is not there.
int SplashMonitor(QSettings& Store, int MonitorCount);
// Shows the splash at once; the caller hides it when the main window is up.
std::unique_ptr<QSplashScreen> ShowSplash(QSettings& Store);

}  // namespace brindle
