// The window tests run offscreen inside one QApplication; settings written through QSettings
// go to Qt's test locations, never to the user's.
#include <gtest/gtest.h>

#include <QApplication>
#include <QStandardPaths>

#include "ui/EntryIcons.h"

int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QStandardPaths::setTestModeEnabled(true);
  QApplication application(argc, argv);
  QApplication::setOrganizationName(QStringLiteral("TidewellTests"));
  tw::EntryIcons::loadResources();
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}

#if defined(__SANITIZE_ADDRESS__)
// Qt, fontconfig and the bus library keep caches for the process's life on purpose; ours are still reported.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libfontconfig\nleak:libQt6Core\nleak:libQt6Gui\nleak:libQt6Widgets\nleak:libQt6DBus\nleak:libdbus-1\n"
         "leak:libglib-2.0\nleak:libcanberra\n";
}
#endif
