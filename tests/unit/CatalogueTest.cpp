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

const CacheSpec& rowLabelled(const std::vector<CacheSpec>& specs, const std::string& label) {
  for (const CacheSpec& spec : specs) {
    if (spec.label == label) return spec;
  }
  throw std::runtime_error("no row labelled " + label);
}

TEST(Catalogue, HasSeventyEightRowsSplitOverTheSevenLocations) {
  EXPECT_EQ(DevCaches::specs(CatalogueList::packageManagers).size(), 3u);
  EXPECT_EQ(DevCaches::specs(CatalogueList::devTools).size(), 39u);
  EXPECT_EQ(DevCaches::specs(CatalogueList::ides).size(), 2u);
  EXPECT_EQ(DevCaches::specs(CatalogueList::aiTools).size(), 6u);
  EXPECT_EQ(DevCaches::specs(CatalogueList::browsers).size(), 10u);
  EXPECT_EQ(DevCaches::specs(CatalogueList::apps).size(), 6u);
  EXPECT_EQ(DevCaches::specs(CatalogueList::cloudClients).size(), 12u);
}

TEST(Catalogue, EveryRowIsWellFormed) {
  std::set<std::string> labels;
  for (CatalogueList list :
       {CatalogueList::packageManagers, CatalogueList::devTools, CatalogueList::ides, CatalogueList::aiTools,
        CatalogueList::browsers, CatalogueList::apps, CatalogueList::cloudClients}) {
    for (const CacheSpec& spec : DevCaches::specs(list)) {
      SCOPED_TRACE(spec.label);
      EXPECT_FALSE(spec.label.empty());
      EXPECT_FALSE(spec.tooltip.empty());
      EXPECT_NE(spec.tooltip.front(), ' ');
      EXPECT_NE(spec.tooltip.back(), ' ');
      ASSERT_FALSE(spec.paths.empty());
      for (const std::string& pattern : spec.paths) {
        EXPECT_TRUE(pattern.starts_with("~/") || pattern.starts_with("/")) << pattern;
        EXPECT_FALSE(pattern.ends_with("/")) << pattern;
      }
      EXPECT_TRUE(labels.insert(spec.label).second) << "duplicate label";
    }
  }
  EXPECT_EQ(labels.size(), 78u);
}

TEST(Catalogue, GroupsAreTheOnesEachLocationUses) {
  auto groupsOf = [](CatalogueList list) {
    std::set<std::string> groups;
    for (const CacheSpec& spec : DevCaches::specs(list)) groups.insert(spec.group);
    return groups;
  };
  const std::set<std::string> none{""};
  EXPECT_EQ(groupsOf(CatalogueList::packageManagers), none);
  EXPECT_EQ(groupsOf(CatalogueList::browsers), none);
  EXPECT_EQ(groupsOf(CatalogueList::apps), none);
  EXPECT_EQ(groupsOf(CatalogueList::cloudClients), none);
  EXPECT_EQ(groupsOf(CatalogueList::ides), std::set<std::string>{"IDEs & Editors"});
  EXPECT_EQ(groupsOf(CatalogueList::aiTools), std::set<std::string>{"AI & LLM"});
  EXPECT_EQ(groupsOf(CatalogueList::devTools),
            (std::set<std::string>{"Rust", "Zig", "JavaScript / Web", "Java / Android", "Flutter / Dart", "Build Tools",
                                   "VMs & Containers", "Python", "Ruby", "Go", "PHP / .NET", "Apple"}));
}

TEST(Catalogue, KeepsRowOrderOfEachLocation) {
  const auto& tools = DevCaches::devTools();
  EXPECT_EQ(tools.front().label, "Cargo registry & git");
  EXPECT_EQ(tools[12].label, "React Native / Metro");
  EXPECT_EQ(tools.back().label, "CoreSimulator logs");
  EXPECT_EQ(DevCaches::browsers().back().label, "Chromium");
  EXPECT_EQ(DevCaches::cloudClients().back().label, "Proton Drive caches");
}

TEST(Catalogue, TextsWithDashesWarningSignsAndQuotesAreExact) {
  const CacheSpec& rustup = rowLabelled(DevCaches::devTools(), "rustup toolchains");
  EXPECT_EQ(rustup.tooltip,
            "Installed Rust toolchains. Deleting removes toolchains – reinstall with \"rustup toolchain install\".");

  const CacheSpec& docker = rowLabelled(DevCaches::devTools(), "Docker Desktop VM data");
  EXPECT_EQ(docker.group, "VMs & Containers");
  EXPECT_EQ(docker.tooltip, "⚠️ Docker Desktop VM disk. Deleting removes ALL containers, images & volumes!");
  EXPECT_EQ(docker.tooltip.substr(0, 7), "\xE2\x9A\xA0\xEF\xB8\x8F ");  // U+26A0 U+FE0F and a blank

  const CacheSpec& drive = DevCaches::cloudClients().front();
  EXPECT_EQ(drive.label, "Google Drive – file cache");
  EXPECT_EQ(drive.label.substr(12, 5), " \xE2\x80\x93 ");  // an en dash between blanks
  EXPECT_EQ(drive.tooltip,
            "⚠️ Local cache of streamed Google Drive files. Quit \"Google Drive\" before cleaning: changes made "
            "offline and not yet uploaded live here. Otherwise files are re-downloaded on demand.");
  EXPECT_EQ(drive.paths, std::vector<std::string>{"~/Library/Application Support/Google/DriveFS/*/content_cache"});

  const CacheSpec& ollama = rowLabelled(DevCaches::aiTools(), "Ollama models");
  EXPECT_EQ(ollama.tooltip,
            "⚠️ Downloaded Ollama models. Deleting removes them – pull again with \"ollama pull\".");

  const CacheSpec& carthage = rowLabelled(DevCaches::packageManagers(), "Carthage");
  EXPECT_EQ(carthage.tooltip,
            "Carthage cache of downloaded & built dependencies. Rebuilt on next \"carthage bootstrap/update\".");
  EXPECT_EQ(carthage.paths,
            (std::vector<std::string>{"~/Library/Caches/org.carthage.CarthageKit", "~/Library/Caches/carthage"}));
}

TEST(Catalogue, PatternsWithWildcardsAndBlanksAreExact) {
  const CacheSpec& dropbox = rowLabelled(DevCaches::cloudClients(), "Dropbox cache");
  EXPECT_EQ(dropbox.paths,
            (std::vector<std::string>{"~/.dropbox/cache", "~/Dropbox/.dropbox.cache", "~/Dropbox */.dropbox.cache",
                                      "~/Library/CloudStorage/Dropbox/.dropbox.cache",
                                      "~/Library/CloudStorage/Dropbox-*/.dropbox.cache"}));
  EXPECT_EQ(dropbox.tooltip,
            "Dropbox's cache of recently changed & deleted files. Dropbox purges it by itself after three days; "
            "deleting it now is safe, but files removed within the last 3 days can no longer be restored from the "
            "local cache.");

  const CacheSpec& telegram = rowLabelled(DevCaches::apps(), "Telegram");
  EXPECT_EQ(telegram.paths.front(),
            "~/Library/Group Containers/*.ru.keepcoder.Telegram/appstore/account-*/postbox/media");

  const CacheSpec& metro = rowLabelled(DevCaches::devTools(), "React Native / Metro");
  EXPECT_EQ(metro.paths, (std::vector<std::string>{"~/Library/Caches/com.facebook.ReactNativeBuild", "/tmp/metro-*",
                                                   "/tmp/haste-map-*"}));

  const CacheSpec& bazel = rowLabelled(DevCaches::devTools(), "Bazel");
  EXPECT_EQ(bazel.paths, (std::vector<std::string>{"/private/var/tmp/_bazel_*", "~/.cache/bazel"}));

  const CacheSpec& claude = rowLabelled(DevCaches::aiTools(), "Claude Code");
  EXPECT_EQ(claude.paths, (std::vector<std::string>{"~/Library/Caches/claude-cli-nodejs", "/private/tmp/claude-*"}));
}

}  // namespace
}  // namespace tw
