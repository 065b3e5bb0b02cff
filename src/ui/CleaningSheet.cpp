#include "ui/CleaningSheet.h"

#include <QApplication>
#include <QDialogButtonBox>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>
#include <cmath>

#include "app/Preferences.h"
#include "platform/Text.h"
#include "ui/Alerts.h"
#include "ui/CompletionSound.h"
#include "ui/GuiTaskQueue.h"

namespace tw {
namespace {

QString capitalized(const QString& text) { return QString::fromStdString(capitalizedWords(text.toStdString())); }

}  // namespace

CleaningSheet::CleaningSheet(QWidget* window, Alerts& alerts, CompletionSound& sound, bool dryRun,
                             std::chrono::milliseconds closeDelay)
    : QDialog(window), alerts_(alerts), sound_(sound), closeDelay_(closeDelay) {
  setWindowTitle(QStringLiteral("Cleaning"));
  setWindowModality(Qt::WindowModal);
  setAccessibleName(QStringLiteral("Cleaning progress"));

  heading_ = new QLabel(this);
  QFont headingFont = heading_->font();
  headingFont.setBold(true);
  headingFont.setPointSizeF(headingFont.pointSizeF() * 1.15);
  heading_->setFont(headingFont);
  // The dry-run mark is decided once, when the sheet is made, like the flow that opens it.
  heading_->setText((dryRun ? QStringLiteral("(Dry run) ") : QString()) +
                    QStringLiteral("Cleaning Xcode cache files..."));
  heading_->setAccessibleName(heading_->text());

  current_ = new QLabel(this);
  current_->setTextFormat(Qt::PlainText);
  current_->setMinimumWidth(420);
  current_->setAccessibleName(QStringLiteral("Current item"));
  // A long item description must not widen the sheet.
  current_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);

  progress_ = new QProgressBar(this);
  progress_->setRange(0, 100);
  progress_->setTextVisible(false);
  progress_->setAccessibleName(QStringLiteral("Cleaning progress"));

  auto* buttons = new QDialogButtonBox(this);
  stopButton_ = buttons->addButton(QStringLiteral("&Stop"), QDialogButtonBox::RejectRole);
  stopButton_->setAccessibleName(QStringLiteral("Stop cleaning"));
  connect(stopButton_, &QPushButton::clicked, this, &CleaningSheet::stop);

  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(20, 18, 20, 14);
  layout->setSpacing(10);
  layout->addWidget(heading_);
  layout->addWidget(current_);
  layout->addWidget(progress_);
  layout->addWidget(buttons);
  // The sheet has one size: it is not resizable.
  layout->setSizeConstraint(QLayout::SetFixedSize);
  render();
}

void CleaningSheet::setState(CleaningState state) {
  if (state.kind == CleaningState::Kind::undefined) return;
  state_ = std::move(state);
  render();
}

void CleaningSheet::render() {
  if (state_.kind == CleaningState::Kind::undefined) return;
  current_->setText(state_.text());
  progress_->setValue(static_cast<int>(std::lround(state_.progress)));
}

QString CleaningSheet::headingText() const { return heading_->text(); }
QString CleaningSheet::currentText() const { return current_->text(); }
int CleaningSheet::progressValue() const { return progress_->value(); }

void CleaningSheet::deleteStarted() { setState(CleaningState::idle(QStringLiteral("Initialization..."), 0)); }

void CleaningSheet::deletingItem(const QString& locationLabel, const QString& itemDescription, size_t index,
                                 size_t count) {
  const double progress = count == 0 ? 0 : static_cast<double>(index) / static_cast<double>(count) * 100.0;
  setState(CleaningState::working(capitalized(locationLabel), itemDescription, progress));
}

void CleaningSheet::deleteFailed(const QString& error, const QString& locationLabel, const QString& path) {
  alerts_.run(isVisible() ? this : parentWidget(), Alerts::Style::critical, QStringLiteral("Failed to delete item"),
              QStringLiteral("Following file couldn't be removed:\n") + capitalized(locationLabel) +
                  QStringLiteral(": ") + (path.isEmpty() ? QStringLiteral("-") : path) + QStringLiteral("\n\n\n") +
                  error,
              QStringLiteral("OK"));
}

void CleaningSheet::deleteFinished() {
  engineFinished_ = true;
  if (closed_) {
    finishIfDone();
    return;
  }
  setState(CleaningState::idle(QStringLiteral("Finished!"), 100));
  QTimer::singleShot(closeDelay_, this, [this] {
    closeSheet();
    finishIfDone();
  });
}

void CleaningSheet::stop() {
  stop_.request_stop();
  closeSheet();
  finishIfDone();
}

void CleaningSheet::closeSheet() {
  if (closed_) return;
  closed_ = true;
  hide();
}

void CleaningSheet::finishIfDone() {
  if (!closed_ || !engineFinished_ || rescanSent_) return;
  rescanSent_ = true;
  sound_.play();
  emit rescanRequested();
  deleteLater();
}

void CleaningRelay::post(std::function<void(CleaningSheet&)> task) {
  // The sheet may be gone by the time the task runs.
  GuiTaskQueue::shared().post([sheet = sheet_, task = std::move(task)] {
    if (sheet) task(*sheet);
  });
}

void CleaningRelay::deleteStarted(DevFiles&) {
  post([](CleaningSheet& sheet) { sheet.deleteStarted(); });
}

void CleaningRelay::deletingItem(DevFiles&, const std::string& locationLabel, const std::string& itemDescription,
                                 const std::optional<std::filesystem::path>&, size_t index, size_t count) {
  post([label = QString::fromStdString(locationLabel), item = QString::fromStdString(itemDescription), index,
        count](CleaningSheet& sheet) { sheet.deletingItem(label, item, index, count); });
}

void CleaningRelay::deleteFailed(DevFiles&, const std::exception& error, const std::string& locationLabel,
                                 const std::string&, const std::optional<std::filesystem::path>& url) {
  post([message = QString::fromUtf8(error.what()), label = QString::fromStdString(locationLabel),
        path = url ? QString::fromStdString(url->string()) : QString()](CleaningSheet& sheet) {
    sheet.deleteFailed(message, label, path);
  });
}

void CleaningRelay::deleteFinished(DevFiles&) {
  post([](CleaningSheet& sheet) { sheet.deleteFinished(); });
}

}  // namespace tw
