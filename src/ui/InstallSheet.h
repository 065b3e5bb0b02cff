// The sheet that shows how to put the command-line tool on the PATH: the link command with
// this bundle's launcher, selectable, and a button that copies it (without the "$ " prompt).
#pragma once

#include <QDialog>
#include <QString>
#include <filesystem>

class QLabel;

namespace tw {

class InstallSheet : public QDialog {
  Q_OBJECT

 public:
  InstallSheet(QWidget* window, const std::filesystem::path& bundle);

  // "sudo ln -sf <bundle>/Contents/Resources/tidewell.sh /usr/local/bin/tidewell", unquoted.
  static QString command(const std::filesystem::path& bundle);
  QString shownText() const;
  void copyCommand();

 private:
  QString command_;
  QLabel* commandField_ = nullptr;
};

}  // namespace tw
