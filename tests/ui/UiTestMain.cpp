// The window tests run offscreen inside one QApplication; settings written through QSettings
// go to Qt's test locations, never to the user's.
#include <gtest/gtest.h>

#include <QApplication>
#include <QStandardPaths>

#include "ui/EntryIcons.h"

int main(int argc, char** argv) {
  qputenv("QT_QPA_PLATFORM",
          qgetenv("QT_QPA_PLATFORM").isEmpty() ? QByteArray("offscreen") : qgetenv("QT_QPA_PLATFORM"));
  QStandardPaths::setTestModeEnabled(true);
  QApplication application(argc, argv);
  QApplication::setOrganizationName(QStringLiteral("TidewellTests"));
  tw::EntryIcons::loadResources();
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
