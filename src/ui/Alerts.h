// Every modal question and message of the window goes through this one interface, so that the
// clean flow, the cleaning sheet and the folder-access panel can be driven by tests that answer
// them instead of waiting on a dialog nobody sees.
#pragma once

#include <QString>
#include <filesystem>
#include <memory>
#include <optional>

#include "fs/Files.h"

class QWidget;

namespace tw {

class Alerts {
 public:
  enum class Style { informational, critical };
  enum class Response { first, second };

  virtual ~Alerts() = default;
  // A message with one or two buttons, modal to `parent` (or to the application without one).
  virtual Response run(QWidget* parent, Style style, const QString& message, const QString& informativeText,
                       const QString& firstButton, const QString& secondButton = {}) = 0;
  // The directory chooser of the folder-access grant: starts in `folder`, shows `message`, its
  // accept button reads `prompt`. Nothing when cancelled.
  virtual std::optional<std::filesystem::path> chooseFolder(QWidget* parent, const std::filesystem::path& folder,
                                                            const QString& message, const QString& prompt) = 0;

  // The informational alert of the services (one button; the answer is ignored).
  void showInformational(QWidget* parent, const QString& message, const QString& informativeText,
                         const QString& button) {
    run(parent, Style::informational, message, informativeText, button);
  }
};

// Real dialogs: QMessageBox and QFileDialog.
std::unique_ptr<Alerts> makeDialogAlerts();

// The panel and alerts a folder-access grant needs, shown through `alerts` over `parent`.
class FolderAccessPanel : public FolderAccessUI {
 public:
  FolderAccessPanel(Alerts& alerts, QWidget* parent) : alerts_(alerts), parent_(parent) {}
  std::optional<std::filesystem::path> runOpenPanel(const std::filesystem::path& folder, const std::string& message,
                                                    long& response) override;
  void showInformationalAlert(const std::string& message, const std::string& informativeText,
                              const std::string& button) override;

 private:
  Alerts& alerts_;
  QWidget* parent_;
};

}  // namespace tw
