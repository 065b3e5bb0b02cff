// Listing folders, the one way every part of the program does it: an open folder's items with
// their types and without a stat per item (the hot walks: measurement, the project walk), or
// the sorted names in a folder at a path (the scanners), both through the platform's
// FolderReader.
#pragma once

#include <dirent.h>  // the DT_ item types

#include <filesystem>
#include <string>
#include <vector>

#include "platform/Expected.h"
#include "platform/FolderReader.h"

namespace tw {

// Calls entry(const char* name, unsigned char type) for every item of the open folder `fd`
// other than "." and ".."; `type` is DT_DIR, DT_REG, DT_LNK, ... or DT_UNKNOWN when the file
// system does not say. The folder descriptor stays the caller's. Returns 0, or the errno that
// ended the listing.
template <typename Entry>
int listFolder(int fd, Entry&& entry) {
  FolderReader reader(fd);
  while (reader.next()) {
    for (const FolderRecord& record : reader.records()) entry(record.name, record.type);
  }
  return reader.error();
}

enum class HiddenItems { included, skipped };

// The names of the items in the folder at `folder` (a link to a folder is followed), sorted by
// their bytes so that a listing comes out the same on every run; "." and ".." never, names
// starting with a dot only when included. The errno when the folder cannot be opened or read.
Expected<std::vector<std::string>, int> folderItemNames(const std::filesystem::path& folder, HiddenItems hidden);

}  // namespace tw
