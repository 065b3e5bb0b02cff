#include "ui/EntryIcons.h"

#include <QFileInfo>
#include <QHash>
#include <QString>
#include <array>
#include <string_view>

// Outside any namespace, as Q_INIT_RESOURCE requires.
static void initImageResources() { Q_INIT_RESOURCE(images); }

namespace tw {
namespace {

struct SystemImage {
  std::string_view name;
  const char* themeName;
  const char* fallback;  // shipped drawing under :/images/system/
};

// The scanners name platform images in two spellings ("NSFolder" and "NSImageNameFolder"); both
// map to the same picture until the model settles on one.
constexpr std::array<SystemImage, 10> kSystemImages{{
    {"NSFolder", "folder", "folder"},
    {"NSImageNameFolder", "folder", "folder"},
    {"NSComputer", "computer", "computer"},
    {"NSImageNameComputer", "computer", "computer"},
    {"NSNetwork", "network-workgroup", "network"},
    {"NSImageNameNetwork", "network-workgroup", "network"},
    {"NSTrashFull", "user-trash-full", "trash-full"},
    {"NSImageNameTrashFull", "user-trash-full", "trash-full"},
    {"NSMultipleDocuments", "folder-documents", "multiple-documents"},
    {"NSImageNameMultipleDocuments", "folder-documents", "multiple-documents"},
}};

const SystemImage* findSystemImage(const std::string& name) {
  for (const auto& image : kSystemImages) {
    if (image.name == name) return &image;
  }
  return nullptr;
}

QIcon shipped(const QString& name) { return QIcon(QStringLiteral(":/images/%1.svg").arg(name)); }

QIcon resolve(const CleanupEntry::Icon& icon) {
  const QString name = QString::fromStdString(icon.name);
  switch (icon.kind) {
    case CleanupEntry::Icon::Kind::path:
      // QIcon reads the file when it is first drawn; a file that is gone shows a folder.
      if (QFileInfo::exists(name)) return QIcon(name);
      return resolve(CleanupEntry::Icon::system("NSFolder"));
    case CleanupEntry::Icon::Kind::image: {
      if (QFileInfo::exists(QStringLiteral(":/images/%1.svg").arg(name))) return shipped(name);
      // A version newer than the drawings: the family's generic picture.
      const qsizetype slash = name.lastIndexOf('/');
      if (slash > 0 && QFileInfo::exists(QStringLiteral(":/images/%1/Generic.svg").arg(name.left(slash)))) {
        return shipped(name.left(slash) + QStringLiteral("/Generic"));
      }
      return shipped(QStringLiteral("system/folder"));
    }
    case CleanupEntry::Icon::Kind::system: {
      const SystemImage* image = findSystemImage(icon.name);
      if (!image) return shipped(QStringLiteral("system/folder"));
      const QIcon fallback = shipped(QStringLiteral("system/") + image->fallback);
      return QIcon::fromTheme(QString::fromLatin1(image->themeName), fallback);
    }
  }
  return {};
}

}  // namespace

void EntryIcons::loadResources() { initImageResources(); }

QIcon EntryIcons::icon(const std::optional<CleanupEntry::Icon>& icon) {
  if (!icon) return {};
  static const bool loaded = (loadResources(), true);
  (void)loaded;
  // Thousands of rows share a handful of pictures; each is resolved once (GUI thread only).
  static QHash<QString, QIcon> cache;
  const QString key =
      QString::number(static_cast<int>(icon->kind)) + QLatin1Char(':') + QString::fromStdString(icon->name);
  auto found = cache.constFind(key);
  if (found != cache.constEnd()) return *found;
  QIcon resolved = resolve(*icon);
  cache.insert(key, resolved);
  return resolved;
}

QString EntryIcons::themeName(const std::string& systemImageName) {
  const SystemImage* image = findSystemImage(systemImageName);
  return image ? QString::fromLatin1(image->themeName) : QString();
}

}  // namespace tw
