// The catalogue's shape: rows per location, the groups they use, and well-formed texts and patterns.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "scan/DevCaches.h"

namespace tw {
namespace {

using DevCaches::CacheSpec;

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

}  // namespace
}  // namespace tw
