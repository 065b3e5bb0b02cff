#include "ui/InstallSheet.h"

#include <QClipboard>
#include <QDialogButtonBox>
#include <QFontDatabase>
#include <QFrame>
#include <QGuiApplication>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace tw {

QString InstallSheet::command(const std::filesystem::path& bundle) {
  return QStringLiteral("sudo ln -sf ") + QString::fromStdString(bundle.string()) +
         QStringLiteral("/Contents/Resources/tidewell.sh /usr/local/bin/tidewell");
}

InstallSheet::InstallSheet(QWidget* window, const std::filesystem::path& bundle)
    : QDialog(window), command_(command(bundle)) {
  setWindowTitle(QStringLiteral("Install Command-Line Tool"));
  setWindowModality(Qt::WindowModal);

  auto* heading = new QLabel(QStringLiteral("Install the command-line tool"), this);
  QFont headingFont = heading->font();
  headingFont.setBold(true);
  heading->setFont(headingFont);
  auto* explanation =
      new QLabel(QStringLiteral("Run this command in a terminal once to use <b>tidewell</b> from anywhere:"), this);
  explanation->setWordWrap(true);

  commandField_ = new QLabel(QStringLiteral("$ ") + command_, this);
  commandField_->setTextFormat(Qt::PlainText);
  commandField_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
  commandField_->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  commandField_->setFrameShape(QFrame::StyledPanel);
  commandField_->setBackgroundRole(QPalette::Base);
  commandField_->setAutoFillBackground(true);
  commandField_->setMargin(8);
  commandField_->setWordWrap(true);
  commandField_->setAccessibleName(QStringLiteral("Install command"));

  auto* buttons = new QDialogButtonBox(this);
  QPushButton* copy = buttons->addButton(QStringLiteral("&Copy Command"), QDialogButtonBox::ActionRole);
  copy->setAccessibleName(QStringLiteral("Copy command"));
  connect(copy, &QPushButton::clicked, this, &InstallSheet::copyCommand);
  QPushButton* done = buttons->addButton(QStringLiteral("&Done"), QDialogButtonBox::AcceptRole);
  done->setDefault(true);
  connect(done, &QPushButton::clicked, this, &QDialog::accept);

  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(20, 18, 20, 14);
  layout->setSpacing(10);
  layout->addWidget(heading);
  layout->addWidget(explanation);
  layout->addWidget(commandField_);
  layout->addWidget(buttons);
  commandField_->setMinimumWidth(520);
  // As tall as the wrapped text needs, no taller.
  layout->setSizeConstraint(QLayout::SetFixedSize);
}

QString InstallSheet::shownText() const { return commandField_->text(); }

void InstallSheet::copyCommand() { QGuiApplication::clipboard()->setText(command_); }

}  // namespace tw
