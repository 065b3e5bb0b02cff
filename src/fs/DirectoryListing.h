// Lists an open folder's items together with their types, without a stat per item, through
// the platform's FolderReader. The hot walks (measurement, the project walk) list every
// folder through it.
#pragma once

#include <dirent.h>  // the DT_ item types

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

}  // namespace tw
