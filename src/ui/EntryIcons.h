// Turns an entry's icon into a picture: the application's own named images (embedded SVG),
// the platform's named images through the desktop's icon theme with a shipped fallback, and
// image files, read only when the row is first painted. Every name resolves to a real image.
#pragma once

#include <QIcon>
#include <optional>

#include "model/CleanupEntry.h"

namespace tw {

class EntryIcons {
 public:
  // The embedded images live in a static library, whose resources must be registered by hand.
  static void loadResources();
  // No icon for an entry without one.
  static QIcon icon(const std::optional<CleanupEntry::Icon>& icon);
  // The freedesktop theme name for a platform image name (both spellings of each), or empty.
  static QString themeName(const std::string& systemImageName);
};

}  // namespace tw
