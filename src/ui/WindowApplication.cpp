#include "ui/WindowApplication.h"

#include <QApplication>
#include <QIcon>
#include <cstdio>
#include <cstdlib>

#include "app/Logger.h"
#include "ui/Alerts.h"
#include "ui/AppDelegate.h"
#include "ui/BackgroundWork.h"
#include "ui/CompletionSound.h"
#include "ui/EntryIcons.h"
#include "ui/MainWindow.h"
#if defined(TIDEWELL_TEST_HOOKS)
#include "ui/TestDriver.h"
#endif

#if defined(__SANITIZE_ADDRESS__)
// Qt, fontconfig and the bus library keep caches for the life of the process on purpose; the
// leak checker of sanitizer builds is told so, and still reports every leak of our own.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libfontconfig\nleak:libQt6Core\nleak:libQt6Gui\nleak:libQt6Widgets\nleak:libQt6DBus\nleak:libdbus-1\n"
         "leak:libglib-2.0\nleak:libcanberra\n";
}
#endif

namespace tw {
namespace {

bool hasDisplay() {
  for (const char* variable : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) {
    const char* value = std::getenv(variable);
    if (value && *value) return true;
  }
  return false;
}

}  // namespace

int runWindowApplication(int argc, char** argv) {
  // Without a display the toolkit would abort with its own message; say what to do instead.
  if (!hasDisplay()) {
    std::fputs(
        "Tidewell: no display to open the window on; run `tidewell --help` from a terminal, or start "
        "Contents/Resources/tidewell.sh inside the bundle.\n",
        stderr);
    return 1;
  }

  QApplication application(argc, argv);
  QApplication::setApplicationName(QStringLiteral("Tidewell"));
  QApplication::setOrganizationName(QStringLiteral("Tidewell"));
  QApplication::setApplicationVersion(QStringLiteral(TIDEWELL_VERSION));
  QApplication::setDesktopFileName(QStringLiteral(TIDEWELL_BUNDLE_IDENTIFIER));
  EntryIcons::loadResources();
  QApplication::setWindowIcon(QIcon(QStringLiteral(":/images/AppIcon.svg")));
  QApplication::setQuitOnLastWindowClosed(true);

  std::unique_ptr<Alerts> alerts = makeDialogAlerts();
  CanberraCompletionSound sound;
  int status = 0;
  {
    MainWindow window(*alerts, sound);
    window.setAttribute(Qt::WA_QuitOnClose);
    AppDelegate delegate(window);
#if defined(TIDEWELL_TEST_HOOKS)
    std::unique_ptr<TestDriver> driver = TestDriver::fromEnvironment(window, delegate);
#endif
    window.show();
    delegate.applicationDidFinishLaunching();
    status = QApplication::exec();
  }
  // Workers still running (a scan the closed window asked to stop) end before the process does.
  BackgroundWork::shared().stopAndJoinAll();
  return status;
}

}  // namespace tw
