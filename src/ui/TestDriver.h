// Test-hook builds only: drives the real window from a script of steps named by the variable
// TIDEWELL_TEST_WINDOW_SCRIPT, one step per line, and prints what it reads on standard output.
// The end-to-end tests and the screenshots use it; a release build does not contain it.
//
// Steps: wait-scans N | print title|total|selected|saved|badge|warning|sheet|preferences |
// tick LABEL | dry-run on|off | preferences | reminders on|off | period TITLE | clean |
// answer BUTTON | wait-sheet | expand | palette light|dark | screenshot FILE |
// screenshot-sheet FILE | install-sheet | screenshot-install FILE | app-folder PATH |
// resize W H | select LABEL | stop | rescan | sleep MS | quit
#pragma once

#include <QObject>
#include <QStringList>
#include <functional>
#include <memory>

class QTimer;

namespace tw {

class AppDelegate;
class MainWindow;

class TestDriver : public QObject {
  Q_OBJECT

 public:
  static std::unique_ptr<TestDriver> fromEnvironment(MainWindow& window, AppDelegate& delegate);
  TestDriver(MainWindow& window, AppDelegate& delegate, QStringList steps);

 private:
  void poll();
  // True when the step is done; false to be asked again on the next poll.
  bool run(const QString& step);
  void say(const QString& line);

  MainWindow& window_;
  AppDelegate& delegate_;
  QStringList steps_;
  int next_ = 0;
  int scansCompleted_ = 0;
  qint64 stepStarted_ = 0;
  QTimer* timer_ = nullptr;
};

}  // namespace tw
