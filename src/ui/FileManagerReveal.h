// "Show in Files": asks the desktop's file manager to show and select items, over the session
// bus (org.freedesktop.FileManager1.ShowItems); without one, opens the first item's folder.
#pragma once

#include <QUrl>
#include <filesystem>
#include <vector>

namespace tw {

void revealInFileManager(const std::vector<std::filesystem::path>& paths);

// Opens a web page or a folder in the desktop's default application.
void openInDesktop(const QUrl& url);

}  // namespace tw
