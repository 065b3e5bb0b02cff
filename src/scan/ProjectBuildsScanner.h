// Finds the build products and dependency folders inside the user's projects: walks the home
// folder (and /opt and /usr/local), recognises projects by their marker files ("Cargo.toml",
// "package.json", ...) and collects the folders their tools recreate ("target",
// "node_modules", ...), plus project-local "DerivedData" folders.
#pragma once

#include <array>
#include <filesystem>
#include <map>
#include <string_view>
#include <vector>

#include "model/CleanupEntry.h"

namespace tw {

class ProjectBuildsScanner {
 public:
  enum class Kind {
    rustTarget,
    swiftPMBuild,
    zigCache,
    nodeModules,
    webBundlerCache,
    gradleBuild,
    flutterBuild,
    cocoapods,
    cordovaPlatforms,
    rubyVendorBundle,
    pythonVenv,
    cmakeBuild,
    derivedData,
  };
  static constexpr size_t kKindCount = 13;
  static const std::array<Kind, kKindCount>& allKinds();

  struct Rule {
    Kind kind;
    std::vector<std::string_view> markers;
    std::vector<std::string_view> requiredMarkers;
    std::vector<std::string_view> cacheDirs;
  };
  // The rules in table order; the order decides which rule gets a folder two rules name.
  static const std::vector<Rule>& rules();

  static std::string_view label(Kind kind);
  static std::string_view tooltip(Kind kind);

  // Walks, measures and returns the kind entries in Kind order (kinds with kept folders only).
  static std::vector<CleanupEntryPtr> scan(const std::vector<std::filesystem::path>& coveredFolders);

  // The walk alone: found folders per kind, in the order a sequential depth-first walk finds
  // them, each folder once, covered folders left out.
  using FoundFolders = std::map<Kind, std::vector<std::filesystem::path>>;
  static FoundFolders findFolders(const std::vector<std::filesystem::path>& coveredFolders);
  // Same from explicit roots (the first root is the home folder).
  static FoundFolders findFolders(const std::vector<std::filesystem::path>& roots,
                                  const std::vector<std::filesystem::path>& coveredFolders,
                                  const std::vector<std::filesystem::path>& excludedPaths);

  // Measures the found folders and builds the kind entries.
  static std::vector<CleanupEntryPtr> makeEntries(const FoundFolders& foundFolders);
};

}  // namespace tw
