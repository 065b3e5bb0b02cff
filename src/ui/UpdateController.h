// The update check: fetches the appcast named by the bundle's SUFeedURL, compares the newest
// version for this platform with the running one and tells the user (up to date, or a newer
// version with its release notes and a download button). Failures end in a clear message; a
// stuck server ends in a time-out, never a hang. Automatic checks run only after the user
// agreed once, which is asked on the second start.
#pragma once

#include <QNetworkAccessManager>
#include <QObject>
#include <QPointer>
#include <QUrl>
#include <QWidget>
#include <chrono>
#include <memory>

#include "app/Appcast.h"
#include "app/Preferences.h"

class QAction;
class QMessageBox;
class QNetworkReply;

namespace tw::ui {

// What the controller shows; the window answers with message boxes, tests record.
class UpdateDialogs {
 public:
  virtual ~UpdateDialogs() = default;
  virtual void showUpToDate(const QString& currentVersion) = 0;
  virtual void showUpdateAvailable(const AppcastItem& item, const QString& currentVersion) = 0;
  virtual void showCheckFailed(const QString& reason) = 0;
  // True when the user wants automatic checks.
  virtual bool askForAutomaticChecks() = 0;
};

// Message boxes over `parent`.
class MessageBoxUpdateDialogs : public UpdateDialogs {
 public:
  explicit MessageBoxUpdateDialogs(QWidget* parent = nullptr) : parent_(parent) {}
  void showUpToDate(const QString& currentVersion) override;
  void showUpdateAvailable(const AppcastItem& item, const QString& currentVersion) override;
  void showCheckFailed(const QString& reason) override;
  bool askForAutomaticChecks() override;

  // The announcement of a newer version; its download button is named "download".
  static std::unique_ptr<QMessageBox> updateAvailableBox(const AppcastItem& item, const QString& currentVersion,
                                                         QWidget* parent);

 private:
  QPointer<QWidget> parent_;
};

class UpdateController : public QObject {
  Q_OBJECT

 public:
  enum class Outcome { upToDate, updateAvailable, failed };
  enum class Trigger { user, automatic };

  struct Bundle {
    QUrl feedUrl;          // SUFeedURL
    QString version;       // CFBundleVersion: compared with the feed's sparkle:version
    QString shortVersion;  // CFBundleShortVersionString: shown
  };
  // The running bundle's Info.plist; empty fields when it has none.
  static Bundle readBundle();

  UpdateController(Bundle bundle, UpdateDialogs& dialogs, Preferences& preferences, QObject* parent = nullptr);

  void setTimeout(std::chrono::milliseconds timeout) { timeout_ = timeout; }
  // The menu command: enables the action and checks when it is chosen.
  void connectAction(QAction* checkForUpdates);

  // Asked by the user: every outcome is shown.
  void checkForUpdates() { check(Trigger::user); }
  // Counts the start, asks for consent on the second one and checks quietly when agreed.
  void applicationDidFinishLaunching();

 signals:
  void checkFinished(tw::ui::UpdateController::Outcome outcome);

 private:
  void check(Trigger trigger);
  void finish(QNetworkReply* reply, Trigger trigger);
  void fail(Trigger trigger, const QString& reason);

  Bundle bundle_;
  UpdateDialogs& dialogs_;
  Preferences& preferences_;
  QNetworkAccessManager network_;
  std::chrono::milliseconds timeout_{std::chrono::seconds(20)};
  QPointer<QNetworkReply> running_;
};

}  // namespace tw::ui
