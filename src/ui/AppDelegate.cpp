#include "ui/AppDelegate.h"

#include <QAction>
#include <QApplication>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QUrl>

#include "app/Logger.h"
#include "app/Preferences.h"
#include "ui/ApplicationServices.h"
#include "ui/FileManagerReveal.h"
#include "ui/InstallSheet.h"
#include "ui/Links.h"
#include "ui/MainWindow.h"

namespace tw {

AppDelegate::AppDelegate(MainWindow& window)
    : QObject(&window), window_(window), services_(std::make_unique<ui::ApplicationServices>(&window)) {
  buildApplicationMenu();
  services_->connectMenu(updateAction_, preferencesAction_, sendFeedbackAction_, reportIssueAction_);
  preferencesAction_->setEnabled(true);
  sendFeedbackAction_->setEnabled(true);
  reportIssueAction_->setEnabled(true);
}

AppDelegate::~AppDelegate() = default;

void AppDelegate::buildApplicationMenu() {
  QMenuBar* bar = window_.menuBar();
  applicationMenu_ = new QMenu(QStringLiteral("&Tidewell"), bar);
  // First in the bar, before the window's own menus.
  bar->insertMenu(bar->actions().isEmpty() ? nullptr : bar->actions().constFirst(), applicationMenu_);

  QAction* about = applicationMenu_->addAction(QStringLiteral("&About Tidewell"), this, [this] {
    QMessageBox::about(&window_, QStringLiteral("About Tidewell"),
                       QStringLiteral("<b>Tidewell</b> %1<br>Finds and deletes the regenerable files of Xcode, "
                                      "its simulators and your development tools.")
                           .arg(QStringLiteral(TIDEWELL_VERSION)));
  });
  about->setMenuRole(QAction::AboutRole);

  // Index 1 and its separator at index 2: the update check plugs in here.
  updateAction_ = applicationMenu_->addAction(QStringLiteral("Check for &Updates…"));
  updateAction_->setEnabled(false);
  applicationMenu_->addSeparator();

  preferencesAction_ = applicationMenu_->addAction(QStringLiteral("&Preferences…"));
  preferencesAction_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
  preferencesAction_->setMenuRole(QAction::PreferencesRole);
  preferencesAction_->setEnabled(false);
  installAction_ = applicationMenu_->addAction(QStringLiteral("&Install Command-Line Tool…"), this,
                                               &AppDelegate::installCommandLineTool);
  applicationMenu_->addSeparator();

  showLogFilesAction_ =
      applicationMenu_->addAction(QStringLiteral("Show &Log Files"), this, &AppDelegate::showLogFiles);
  onlineHelpAction_ = applicationMenu_->addAction(QStringLiteral("Online &Help"), this, &AppDelegate::showOnlineHelp);
  onlineHelpAction_->setShortcut(QKeySequence::HelpContents);
  sendFeedbackAction_ = applicationMenu_->addAction(QStringLiteral("Send &Feedback"));
  sendFeedbackAction_->setEnabled(false);
  reportIssueAction_ = applicationMenu_->addAction(QStringLiteral("&Report an Issue"));
  reportIssueAction_->setEnabled(false);
  applicationMenu_->addSeparator();

  quitAction_ = applicationMenu_->addAction(QStringLiteral("&Quit Tidewell"), &window_, &QWidget::close);
  quitAction_->setShortcut(QKeySequence::Quit);
  quitAction_->setMenuRole(QAction::QuitRole);
}

void AppDelegate::applicationDidFinishLaunching() {
  // The window's own first step comes first (it is queued, so the scan starts once the event
  // loop runs). The update item is in the menu (index 1, separator at 2) since construction;
  // then the reminders are brought in line with the settings and the next reminder is logged.
  window_.scheduleDeveloperFolderCheck();
  services_->finishLaunching();
}

void AppDelegate::showLogFiles() {
  const auto& path = Logger::main().logFilePath();
  if (!path) return;
  openInDesktop(QUrl::fromLocalFile(QString::fromStdString(path->parent_path().string())));
}

void AppDelegate::showOnlineHelp() { openInDesktop(QUrl(QString::fromLatin1(links::onlineHelp))); }

void AppDelegate::installCommandLineTool() {
  auto* sheet = new InstallSheet(&window_, Preferences::shared().appFolder());
  sheet->setObjectName(QStringLiteral("InstallSheet"));
  sheet->setAttribute(Qt::WA_DeleteOnClose);
  sheet->open();
}

}  // namespace tw
