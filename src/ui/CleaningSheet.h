// The sheet shown over the main window while the deletion engine works: a heading, the current
// step and item, a percent progress bar and a Stop button. The engine's notifications arrive on
// the deleting thread; CleaningRelay moves each one to the GUI thread, in order, before the
// sheet touches anything. When the engine has finished the sheet shows "Finished!", closes a
// moment later, plays the completion sound and asks the window to scan again. Stop closes the
// sheet at once and cancels the deletion between items; the rescan still waits for the
// engine's finish notification, so it never runs over entries that are being deleted.
#pragma once

#include <QDialog>
#include <QPointer>
#include <QString>
#include <chrono>
#include <functional>
#include <memory>
#include <stop_token>

#include "scan/DevFiles.h"

class QLabel;
class QProgressBar;
class QPushButton;

namespace tw {

class Alerts;
class CompletionSound;

// What the sheet shows.
struct CleaningState {
  enum class Kind { undefined, idle, working };
  Kind kind = Kind::undefined;
  QString title;
  QString details;
  double progress = 0;

  static CleaningState idle(QString title, double progress) { return {Kind::idle, std::move(title), {}, progress}; }
  static CleaningState working(QString title, QString details, double progress) {
    return {Kind::working, std::move(title), std::move(details), progress};
  }
  // The current-step line: the title, and for working also ": " and the details.
  QString text() const { return kind == Kind::working ? title + QStringLiteral(": ") + details : title; }
};

class CleaningSheet : public QDialog {
  Q_OBJECT

 public:
  static constexpr std::chrono::milliseconds kDefaultCloseDelay{500};

  CleaningSheet(QWidget* window, Alerts& alerts, CompletionSound& sound, bool dryRun,
                std::chrono::milliseconds closeDelay = kDefaultCloseDelay);

  const CleaningState& state() const { return state_; }
  void setState(CleaningState state);
  QString headingText() const;
  QString currentText() const;
  int progressValue() const;
  // The deletion's stop source, so that Stop can cancel it between items.
  void setStopSource(std::stop_source stop) { stop_ = std::move(stop); }

  // The engine's notifications, on the GUI thread.
  void deleteStarted();
  void deletingItem(const QString& locationLabel, const QString& itemDescription, size_t index, size_t count);
  void deleteFailed(const QString& error, const QString& locationLabel, const QString& path);
  void deleteFinished();

  // Stop: closes the sheet now and cancels the deletion between items.
  void stop();

 signals:
  // The sheet has closed after the engine finished: scan again.
  void rescanRequested();

 protected:
  void reject() override { stop(); }  // Escape and the window's close button mean Stop

 private:
  void render();
  void closeSheet();
  void finishIfDone();

  Alerts& alerts_;
  CompletionSound& sound_;
  std::chrono::milliseconds closeDelay_;
  CleaningState state_;
  std::stop_source stop_;
  bool engineFinished_ = false;
  bool closed_ = false;
  bool rescanSent_ = false;
  QLabel* heading_ = nullptr;
  QLabel* current_ = nullptr;
  QProgressBar* progress_ = nullptr;
  QPushButton* stopButton_ = nullptr;
};

// The engine's delete delegate: hands every notification to the sheet on the GUI thread.
class CleaningRelay : public DevFilesDeleteDelegate {
 public:
  explicit CleaningRelay(CleaningSheet* sheet) : sheet_(sheet) {}
  void deleteStarted(DevFiles& devFiles) override;
  void deletingItem(DevFiles& devFiles, const std::string& locationLabel, const std::string& itemDescription,
                    const std::optional<std::filesystem::path>& url, size_t index, size_t count) override;
  void deleteFailed(DevFiles& devFiles, const std::exception& error, const std::string& locationLabel,
                    const std::string& itemDescription, const std::optional<std::filesystem::path>& url) override;
  void deleteFinished(DevFiles& devFiles) override;

 private:
  void post(std::function<void(CleaningSheet&)> task);
  QPointer<CleaningSheet> sheet_;
};

}  // namespace tw
