// Pictures of the preferences window and the update announcement for docs/: `xvfb-run -a services-screenshots docs`.
#include <QApplication>
#include <QMessageBox>
#include <QTimer>
#include <cstdio>

#include "support/TempDir.h"
#include "ui/PreferencesWindow.h"
#include "ui/UpdateController.h"

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  if (argc != 2) return std::fputs("usage: services-screenshots <folder>\n", stderr), 64;
  const QString folder = QString::fromLocal8Bit(argv[1]);
  tw::test::TempDir settings;
  tw::Preferences preferences(settings / "settings.plist");
  tw::ui::PreferencesWindow window(preferences, {});
  window.show();
  auto box = tw::ui::MessageBoxUpdateDialogs::updateAvailableBox(
      {"Tidewell 1.1", "110", "1.1.0", "https://tidewell.dev/notes/1.1.html"}, "1.0.0", nullptr);
  box->show();
  QTimer::singleShot(500, &application, &QApplication::quit);  // time to lay out and paint
  application.exec();
  const bool saved = window.grab().save(folder + "/preferences-window.png");
  return saved && box->grab().save(folder + "/update-available.png") ? 0 : 1;
}
