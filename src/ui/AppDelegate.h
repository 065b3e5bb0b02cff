// The application's menu and launch steps. The application menu, first in the menu bar and
// named after the product, holds: About, "Check for Updates…" (index 1) and a separator
// (index 2), Preferences…, the command-line tool's install sheet, show log files, online help,
// send feedback, report an issue, and Quit. Closing the main window quits.
//
// The update check, preferences window, feedback mailer and reminders are the application
// services', which the delegate owns and wires to these commands.
#pragma once

#include <QObject>
#include <memory>

class QAction;
class QMenu;

namespace tw {

class MainWindow;
namespace ui {
class ApplicationServices;
}

class AppDelegate : public QObject {
  Q_OBJECT

 public:
  explicit AppDelegate(MainWindow& window);
  ~AppDelegate() override;

  // Launch steps, once the window is shown: the update item, the reminders, the reminder log line.
  void applicationDidFinishLaunching();

  QMenu* applicationMenu() const { return applicationMenu_; }
  QAction* updateAction() const { return updateAction_; }
  QAction* preferencesAction() const { return preferencesAction_; }
  QAction* sendFeedbackAction() const { return sendFeedbackAction_; }
  QAction* reportIssueAction() const { return reportIssueAction_; }
  QAction* installCommandLineToolAction() const { return installAction_; }
  QAction* showLogFilesAction() const { return showLogFilesAction_; }
  QAction* onlineHelpAction() const { return onlineHelpAction_; }
  QAction* quitAction() const { return quitAction_; }

  void showLogFiles();
  void showOnlineHelp();
  void installCommandLineTool();

 private:
  void buildApplicationMenu();

  MainWindow& window_;
  // Destroyed with the delegate, before the process exits: it waits for the last reminder change.
  std::unique_ptr<ui::ApplicationServices> services_;
  QMenu* applicationMenu_ = nullptr;
  QAction* updateAction_ = nullptr;
  QAction* preferencesAction_ = nullptr;
  QAction* sendFeedbackAction_ = nullptr;
  QAction* reportIssueAction_ = nullptr;
  QAction* installAction_ = nullptr;
  QAction* showLogFilesAction_ = nullptr;
  QAction* onlineHelpAction_ = nullptr;
  QAction* quitAction_ = nullptr;
};

}  // namespace tw
