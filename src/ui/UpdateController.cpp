#include "ui/UpdateController.h"

#include <QAction>
#include <QDesktopServices>
#include <QLabel>
#include <QMessageBox>
#include <QNetworkReply>
#include <QPushButton>
#include <QTimer>

#include "app/Logger.h"
#include "platform/Error.h"
#include "platform/Host.h"
#include "scan/XcodeScanSupport.h"

namespace tw::ui {
namespace {

// A feed larger than this is not an appcast; the download is cut off instead of filling memory.
constexpr qint64 kMaximumFeedSize = 4 * 1024 * 1024;

bool isLoopback(const QUrl& url) {
  const QString host = url.host();
  return host == QLatin1String("127.0.0.1") || host == QLatin1String("::1") || host == QLatin1String("localhost");
}

}  // namespace

UpdateController::Bundle UpdateController::readBundle() {
  Bundle bundle;
  const auto& host = Host::current();
  if (host.bundle.empty()) return bundle;
  auto info = xcode::readMetadata(host.bundle / "Contents" / "Info.plist");
  if (!info) return bundle;
  using xcode::PropertyList;
  auto text = [&](const char* key) {
    return QString::fromStdString(PropertyList::string(PropertyList::item(info->root(), key)).value_or(""));
  };
  bundle.feedUrl = QUrl(text("SUFeedURL"));
  bundle.version = text("CFBundleVersion");
  bundle.shortVersion = text("CFBundleShortVersionString");
  return bundle;
}

UpdateController::UpdateController(Bundle bundle, UpdateDialogs& dialogs, Preferences& preferences, QObject* parent)
    : QObject(parent), bundle_(std::move(bundle)), dialogs_(dialogs), preferences_(preferences) {
  network_.setRedirectPolicy(QNetworkRequest::NoLessSafeRedirectPolicy);
}

void UpdateController::connectAction(QAction* checkForUpdates) {
  if (!checkForUpdates) return;
  checkForUpdates->setEnabled(true);
  connect(checkForUpdates, &QAction::triggered, this, &UpdateController::checkForUpdates);
}

void UpdateController::applicationDidFinishLaunching() {
  const int64_t launches = preferences_.launchCount() + 1;
  preferences_.setLaunchCount(launches);
  auto agreed = preferences_.automaticUpdateChecks();
  if (!agreed && launches >= 2) {
    agreed = dialogs_.askForAutomaticChecks();
    preferences_.setAutomaticUpdateChecks(*agreed);
  }
  if (agreed.value_or(false)) check(Trigger::automatic);
}

void UpdateController::check(Trigger trigger) {
  if (running_) return;  // one check at a time; the running one answers
  const QUrl& url = bundle_.feedUrl;
  if (!url.isValid() || url.isEmpty()) {
    fail(trigger, tr("This copy of Tidewell has no update feed address."));
    return;
  }
  if (url.scheme() != QLatin1String("https") && !(url.scheme() == QLatin1String("http") && isLoopback(url))) {
    fail(trigger, tr("The update feed address is not secure: %1").arg(url.toString()));
    return;
  }
  QNetworkRequest request(url);
  request.setTransferTimeout(static_cast<int>(timeout_.count()));
  request.setHeader(QNetworkRequest::UserAgentHeader, QStringLiteral("Tidewell/%1").arg(bundle_.shortVersion));
  running_ = network_.get(request);
  QNetworkReply* reply = running_;
  connect(reply, &QNetworkReply::downloadProgress, reply, [reply](qint64 received, qint64) {
    if (received <= kMaximumFeedSize) return;
    reply->setProperty("tooLarge", true);
    reply->abort();
  });
  connect(reply, &QNetworkReply::finished, this, [this, reply, trigger] { finish(reply, trigger); });
}

void UpdateController::finish(QNetworkReply* reply, Trigger trigger) {
  reply->deleteLater();
  running_.clear();
  // Progress is reported only every so often: a feed that arrives whole between two reports is
  // measured here.
  if (reply->property("tooLarge").toBool() || reply->bytesAvailable() > kMaximumFeedSize) {
    fail(trigger, tr("The update feed is too large."));
    return;
  }
  if (reply->error() != QNetworkReply::NoError) {
    QString reason;
    if (reply->error() == QNetworkReply::OperationCanceledError || reply->error() == QNetworkReply::TimeoutError) {
      reason = tr("The update server did not answer within %1 seconds.").arg(timeout_.count() / 1000.0);
    } else {
      reason = reply->errorString();
    }
    fail(trigger, reason);
    return;
  }
  const QByteArray body = reply->readAll();
  std::optional<AppcastItem> newest;
  try {
    newest = newestItem(parseAppcast(std::string_view(body.constData(), static_cast<size_t>(body.size()))));
  } catch (const Error& error) {
    fail(trigger, QString::fromStdString(error.what()) + QLatin1Char('.'));
    return;
  }
  if (newest && compareVersions(newest->version, bundle_.version.toStdString()) > 0) {
    log::info("UpdateController: Version " + newest->shortVersion + " is available");
    dialogs_.showUpdateAvailable(*newest, bundle_.shortVersion);
    emit checkFinished(Outcome::updateAvailable);
    return;
  }
  if (trigger == Trigger::user) dialogs_.showUpToDate(bundle_.shortVersion);
  emit checkFinished(Outcome::upToDate);
}

void UpdateController::fail(Trigger trigger, const QString& reason) {
  log::warning("UpdateController: Cannot check for updates: " + reason.toStdString());
  // A quiet check at start-up must not greet the user with a network error.
  if (trigger == Trigger::user) dialogs_.showCheckFailed(reason);
  emit checkFinished(Outcome::failed);
}

void MessageBoxUpdateDialogs::showUpToDate(const QString& currentVersion) {
  QMessageBox box(QMessageBox::Information, QObject::tr("You're up to date!"), QObject::tr("You're up to date!"),
                  QMessageBox::Ok, parent_);
  box.setInformativeText(QObject::tr("Tidewell %1 is currently the newest version available.").arg(currentVersion));
  box.exec();
}

std::unique_ptr<QMessageBox> MessageBoxUpdateDialogs::updateAvailableBox(const AppcastItem& item,
                                                                         const QString& currentVersion,
                                                                         QWidget* parent) {
  auto box = std::make_unique<QMessageBox>(QMessageBox::Information, QObject::tr("Software Update"),
                                           QObject::tr("A new version of Tidewell is available!"),
                                           QMessageBox::NoButton, parent);
  QString text = QObject::tr("Tidewell %1 is now available. You have %2. Would you like to download it now?")
                     .arg(QString::fromStdString(item.shortVersion).toHtmlEscaped(), currentVersion.toHtmlEscaped());
  if (!item.releaseNotesLink.empty()) {
    const QUrl notes(QString::fromStdString(item.releaseNotesLink));
    text += QStringLiteral("<br><br><a href=\"%1\">%2</a>")
                .arg(notes.toString(QUrl::FullyEncoded).toHtmlEscaped(), QObject::tr("Release notes"));
  }
  box->setTextFormat(Qt::RichText);
  box->setInformativeText(text);
  // The release-notes link opens in the browser and can be reached with the keyboard.
  for (auto* label : box->findChildren<QLabel*>()) {
    if (!label->text().contains(QLatin1String("<a href"))) continue;
    label->setOpenExternalLinks(true);
    label->setTextInteractionFlags(Qt::TextBrowserInteraction);
  }
  QPushButton* download = box->addButton(QObject::tr("&Download"), QMessageBox::AcceptRole);
  download->setObjectName(QStringLiteral("download"));
  box->addButton(QObject::tr("Remind Me &Later"), QMessageBox::RejectRole);
  box->setDefaultButton(download);
  return box;
}

void MessageBoxUpdateDialogs::showUpdateAvailable(const AppcastItem& item, const QString& currentVersion) {
  auto box = updateAvailableBox(item, currentVersion, parent_);
  box->exec();
  QAbstractButton* clicked = box->clickedButton();
  if (clicked && clicked->objectName() == QLatin1String("download") && !item.downloadLink.empty()) {
    QDesktopServices::openUrl(QUrl(QString::fromStdString(item.downloadLink)));
  }
}

void MessageBoxUpdateDialogs::showCheckFailed(const QString& reason) {
  QMessageBox box(QMessageBox::Warning, QObject::tr("Update Error"), QObject::tr("Can't check for updates"),
                  QMessageBox::Ok, parent_);
  box.setInformativeText(reason);
  box.exec();
}

bool MessageBoxUpdateDialogs::askForAutomaticChecks() {
  QMessageBox box(QMessageBox::Question, QObject::tr("Check for updates automatically?"),
                  QObject::tr("Check for updates automatically?"), QMessageBox::NoButton, parent_);
  box.setInformativeText(
      QObject::tr("Should Tidewell look for a new version at each start? You can always check "
                  "from the Tidewell menu with \"Check for Updates…\"."));
  QPushButton* yes = box.addButton(QObject::tr("Check &Automatically"), QMessageBox::AcceptRole);
  box.addButton(QObject::tr("&Don't Check"), QMessageBox::RejectRole);
  box.setDefaultButton(yes);
  box.exec();
  return box.clickedButton() == yes;
}

}  // namespace tw::ui
