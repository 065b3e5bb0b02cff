// Where the resolution of a path to be measured or deleted starts. The folders a scan starts
// from (the home folder, the developer folder, custom folders, the system roots of the project
// walk) are taken as given, links in their own paths followed; everything below them is
// resolved without following any link and without entering another mount, so a folder swapped
// for a link between the scan and the deletion leads nowhere.
#pragma once

#include <filesystem>
#include <string>

namespace tw {

// Adds a folder the scans start from (the scan driver's custom folders). Kept for the process.
void trustFolder(const std::filesystem::path& folder);

// The deepest trusted folder that holds `item` (never `item` itself); the folder holding
// `item` when no trusted folder does.
std::filesystem::path trustedAnchorFor(const std::filesystem::path& item);

struct OpenedFolder {
  int fd = -1;
  int error = 0;          // errno when fd is -1: ELOOP for a link, EXDEV for another mount
  std::string component;  // the name that stopped the resolution, when one did
};

// Opens `folder` from its trusted anchor (the anchor of `forItem`, the item that is to be
// measured or removed): the anchor as given, then no link and no mount point below it.
OpenedFolder openFolderFromAnchor(const std::filesystem::path& folder, const std::filesystem::path& forItem);

}  // namespace tw
