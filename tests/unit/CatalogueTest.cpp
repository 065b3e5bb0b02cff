// The catalogue's data: how many rows each location has, the groups it uses, and a few rows
// whose texts are easy to get wrong (en dashes, warning signs, inner quotes, blanks in paths).
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "scan/DevCaches.h"

namespace tw {
namespace {

using DevCaches::CacheSpec;
using Paths = std::vector<std::string>;

const CacheSpec& rowLabelled(const std::vector<CacheSpec>& specs, const std::string& label) {
  for (const CacheSpec& spec : specs) {
    if (spec.label == label) return spec;
  }
  throw std::runtime_error("no row labelled " + label);
}

TEST(Catalogue, RowsPerLocationAreWellFormedAndUseTheirGroups) {
  const std::set<std::string> none{""};
  const struct {
    CatalogueList list;
    size_t rows;
    std::set<std::string> groups;
  } locations[] = {
      {CatalogueList::packageManagers, 3, none},
      {CatalogueList::devTools,
       39,
       {"Rust", "Zig", "JavaScript / Web", "Java / Android", "Flutter / Dart", "Build Tools", "VMs & Containers",
        "Python", "Ruby", "Go", "PHP / .NET", "Apple"}},
      {CatalogueList::ides, 2, {"IDEs & Editors"}},
      {CatalogueList::aiTools, 6, {"AI & LLM"}},
      {CatalogueList::browsers, 10, none},
      {CatalogueList::apps, 6, none},
      {CatalogueList::cloudClients, 12, none},
  };
  std::set<std::string> labels;
  for (const auto& location : locations) {
    const auto& specs = DevCaches::specs(location.list);
    EXPECT_EQ(specs.size(), location.rows);
    std::set<std::string> groups;
    for (const CacheSpec& spec : specs) {
      SCOPED_TRACE(spec.label);
      groups.insert(spec.group);
      EXPECT_TRUE(labels.insert(spec.label).second) << "duplicate label";
      EXPECT_FALSE(spec.tooltip.empty() || spec.tooltip.front() == ' ' || spec.tooltip.back() == ' ');
      ASSERT_FALSE(spec.paths.empty());
      for (const std::string& pattern : spec.paths) {
        EXPECT_TRUE((pattern.starts_with("~/") || pattern.starts_with("/")) && !pattern.ends_with("/")) << pattern;
      }
    }
    EXPECT_EQ(groups, location.groups);
  }
  EXPECT_EQ(DevCaches::devTools()[12].label, "React Native / Metro") << "rows keep their order";
}

TEST(Catalogue, SpotTextsAndPatternsAreExact) {
  EXPECT_EQ(rowLabelled(DevCaches::devTools(), "rustup toolchains").tooltip,
            "Installed Rust toolchains. Deleting removes toolchains – reinstall with \"rustup toolchain install\".");
  EXPECT_EQ(rowLabelled(DevCaches::devTools(), "Docker Desktop VM data").tooltip,
            "⚠️ Docker Desktop VM disk. Deleting removes ALL containers, images & volumes!");

  const CacheSpec& drive = DevCaches::cloudClients().front();
  EXPECT_EQ(drive.label, "Google Drive – file cache");
  EXPECT_EQ(drive.tooltip,
            "⚠️ Local cache of streamed Google Drive files. Quit \"Google Drive\" before cleaning: changes made "
            "offline and not yet uploaded live here. Otherwise files are re-downloaded on demand.");
  EXPECT_EQ(drive.paths, Paths{"~/Library/Application Support/Google/DriveFS/*/content_cache"});

  EXPECT_EQ(
      rowLabelled(DevCaches::cloudClients(), "Dropbox cache").paths,
      (Paths{"~/.dropbox/cache", "~/Dropbox/.dropbox.cache", "~/Dropbox */.dropbox.cache",
             "~/Library/CloudStorage/Dropbox/.dropbox.cache", "~/Library/CloudStorage/Dropbox-*/.dropbox.cache"}));
  EXPECT_EQ(rowLabelled(DevCaches::apps(), "Telegram").paths.front(),
            "~/Library/Group Containers/*.ru.keepcoder.Telegram/appstore/account-*/postbox/media");
  EXPECT_EQ(rowLabelled(DevCaches::devTools(), "React Native / Metro").paths,
            (Paths{"~/Library/Caches/com.facebook.ReactNativeBuild", "/tmp/metro-*", "/tmp/haste-map-*"}));
  EXPECT_EQ(rowLabelled(DevCaches::devTools(), "Bazel").paths, (Paths{"/private/var/tmp/_bazel_*", "~/.cache/bazel"}));
}

}  // namespace
}  // namespace tw
