#include "ui/Alerts.h"

#include <QFileDialog>
#include <QGridLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>

namespace tw {
namespace {

class DialogAlerts : public Alerts {
 public:
  Response run(QWidget* parent, Style style, const QString& message, const QString& informativeText,
               const QString& firstButton, const QString& secondButton) override {
    QMessageBox box(parent);
    box.setIcon(style == Style::critical ? QMessageBox::Warning : QMessageBox::Information);
    box.setText(message);
    box.setInformativeText(informativeText);
    // A sheet over the window when there is one, an application-modal box otherwise.
    box.setWindowModality(parent ? Qt::WindowModal : Qt::ApplicationModal);
    QPushButton* first = box.addButton(firstButton, QMessageBox::AcceptRole);
    box.setDefaultButton(first);
    if (!secondButton.isEmpty()) box.setEscapeButton(box.addButton(secondButton, QMessageBox::RejectRole));
    box.setAccessibleName(message);
    box.exec();
    return box.clickedButton() == first ? Response::first : Response::second;
  }

  std::optional<std::filesystem::path> chooseFolder(QWidget* parent, const std::filesystem::path& folder,
                                                    const QString& message, const QString& prompt) override {
    // Qt's own dialog: the platform's may not show a message line, and this one must.
    QFileDialog dialog(parent, message, QString::fromStdString(folder.string()));
    dialog.setOption(QFileDialog::DontUseNativeDialog);
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly);
    dialog.setLabelText(QFileDialog::Accept, prompt);
    dialog.setWindowModality(parent ? Qt::WindowModal : Qt::ApplicationModal);
    dialog.setAccessibleName(message);
    // The message above the file list, where the user reads it before choosing.
    if (auto* layout = dialog.layout()) {
      auto* label = new QLabel(message, &dialog);
      label->setWordWrap(true);
      if (auto* grid = qobject_cast<QGridLayout*>(layout)) {
        grid->addWidget(label, grid->rowCount(), 0, 1, grid->columnCount());
      }
    }
    dialog.selectFile(QString::fromStdString(folder.string()));
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return std::nullopt;
    return std::filesystem::path(dialog.selectedFiles().constFirst().toStdString());
  }
};

}  // namespace

std::unique_ptr<Alerts> makeDialogAlerts() { return std::make_unique<DialogAlerts>(); }

std::optional<std::filesystem::path> FolderAccessPanel::runOpenPanel(const std::filesystem::path& folder,
                                                                     const std::string& message, long& response) {
  auto picked = alerts_.chooseFolder(parent_, folder, QString::fromStdString(message), QStringLiteral("Open"));
  response = picked ? QDialog::Accepted : QDialog::Rejected;
  return picked;
}

void FolderAccessPanel::showInformationalAlert(const std::string& message, const std::string& informativeText,
                                               const std::string& button) {
  alerts_.showInformational(parent_, QString::fromStdString(message), QString::fromStdString(informativeText),
                            QString::fromStdString(button));
}

}  // namespace tw
