#include "scan/ProjectBuildsScanner.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "fs/DirectoryListing.h"
#include "fs/DirectorySize.h"
#include "platform/Cancellation.h"
#include "platform/Host.h"
#include "platform/Text.h"
#include "platform/ThreadPool.h"
#include "scan/Scanners.h"

namespace tw {
namespace {

using Kind = ProjectBuildsScanner::Kind;

// Folders deeper than this below a root are never listed.
constexpr int kMaxDepth = 12;
// Found folders smaller than 1 MiB are not worth showing.
constexpr int64_t kMinimumSize = 1'048'576;
// Above this many directory descriptors held for pending subfolders, new subfolders are
// opened by path instead, so a very wide tree cannot exhaust the descriptor table.
constexpr int kMaxHeldDescriptors = 256;

constexpr std::string_view kCommonTooltip =
    "Build products & dependency caches recreated on the next build of the project.";

const std::unordered_set<std::string_view>& neverDescendNames() {
  static const std::unordered_set<std::string_view> names{"node_modules", "Pods", ".git", ".svn", ".hg"};
  return names;
}

const std::unordered_set<std::string_view>& homeTopLevelExclusions() {
  static const std::unordered_set<std::string_view> names{"Library", "Applications", "Music", "Movies", "Pictures"};
  return names;
}

// Folders the Finder shows as single files; their insides are not projects.
bool isPackageName(std::string_view name) {
  static const std::unordered_set<std::string_view> extensions{
      "app",         "appex",       "bundle",      "framework",  "plugin",         "kext",         "xpc",
      "qlgenerator", "mdimporter",  "prefPane",    "saver",      "xcarchive",      "xcodeproj",    "xcworkspace",
      "playground",  "rtfd",        "pkg",         "mpkg",       "photoslibrary",  "sparsebundle", "dSYM",
      "docc",        "doccarchive", "xcframework", "simruntime", "systemextension"};
  auto dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size()) return false;
  return extensions.count(name.substr(dot + 1)) > 0;
}

// Every marker name of every rule gets one bit, so a folder's markers are one mask.
struct MarkerIndex {
  std::unordered_map<std::string_view, uint32_t> bits;
  std::vector<uint32_t> markerMasks;    // per rule
  std::vector<uint32_t> requiredMasks;  // per rule

  MarkerIndex() {
    auto bitFor = [&](std::string_view name) {
      auto [it, inserted] = bits.try_emplace(name, 0);
      if (inserted) it->second = 1u << (bits.size() - 1);
      return it->second;
    };
    for (const auto& rule : ProjectBuildsScanner::rules()) {
      uint32_t markers = 0;
      uint32_t required = 0;
      for (auto name : rule.markers) markers |= bitFor(name);
      for (auto name : rule.requiredMarkers) required |= bitFor(name);
      markerMasks.push_back(markers);
      requiredMasks.push_back(required);
    }
  }

  static const MarkerIndex& shared() {
    static const MarkerIndex index;
    return index;
  }
};

std::string standardized(const std::filesystem::path& path) {
  std::string text = path.lexically_normal().string();
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  return text;
}

struct DirectoryDescriptor {
  int fd;
  explicit DirectoryDescriptor(int descriptor) : fd(descriptor) {}
  ~DirectoryDescriptor() { ::close(fd); }
};

// One folder of the walk. The tree of nodes keeps the order in which a sequential
// depth-first walk would meet every folder, while the folders are listed in parallel.
struct Node {
  std::string path;
  int depth = 0;
  bool isHome = false;
  std::shared_ptr<DirectoryDescriptor> parent;  // to open this folder relative to its parent
  std::string name;                             // this folder's name inside the parent
  std::vector<std::pair<Kind, std::string>> findings;
  std::vector<std::unique_ptr<Node>> children;  // in the order a sequential walk pushes them
};

class Walk {
 public:
  Walk(const std::vector<std::filesystem::path>& excludedPaths) {
    for (const auto& path : excludedPaths) excluded_.insert(standardized(path));
  }

  void run(Node& root) {
    ThreadPool::TaskGroup group(ThreadPool::shared());
    group_ = &group;
    schedule(root);
    group.wait();
    group_ = nullptr;
  }

 private:
  void schedule(Node& node) {
    // A stopped scan lists nothing more; the folders already queued drain at once.
    group_->run([this, &node] {
      if (!cancellationRequested()) examine(node);
    });
  }

  void examine(Node& node) {
    int fd = -1;
    if (node.parent) {
      fd = ::openat(node.parent->fd, node.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
      node.parent.reset();
      heldDescriptors_.fetch_sub(1, std::memory_order_relaxed);
    } else {
      // Roots (and folders met while many descriptors are held) are opened by path; a root
      // may itself be a link, as /opt sometimes is.
      fd = ::open(node.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | (node.depth > 0 ? O_NOFOLLOW : 0));
    }
    if (fd < 0) return;  // an unreadable folder is skipped silently
    auto directory = std::make_shared<DirectoryDescriptor>(fd);

    struct Listed {
      std::string name;
      unsigned char type;
    };
    std::vector<Listed> listed;
    const auto& index = MarkerIndex::shared();
    uint32_t present = 0;
    const int listError = listFolder(fd, [&](const char* name, unsigned char type) {
      std::string_view itemName(name);
      if (auto bit = index.bits.find(itemName); bit != index.bits.end()) present |= bit->second;
      listed.push_back({std::string(itemName), type});
    });
    if (listError != 0 && listed.empty()) return;

    // Markers: collect the cache folders of every matching rule, in rule order.
    std::vector<std::string_view> notToEnter;
    const auto& allRules = ProjectBuildsScanner::rules();
    for (size_t r = 0; r < allRules.size(); ++r) {
      const auto& rule = allRules[r];
      if ((present & index.markerMasks[r]) == 0 || (present & index.requiredMasks[r]) != index.requiredMasks[r]) {
        continue;
      }
      for (auto cacheDir : rule.cacheDirs) {
        struct stat info {};
        // Follows a final link: a "target" that links to a folder still counts.
        if (::fstatat(fd, std::string(cacheDir).c_str(), &info, 0) == 0 && S_ISDIR(info.st_mode)) {
          node.findings.emplace_back(rule.kind, node.path + "/" + std::string(cacheDir));
        }
        notToEnter.push_back(cacheDir.substr(0, cacheDir.find('/')));
      }
    }

    // Descent, in listing order.
    for (auto& item : listed) {
      unsigned char type = item.type;
      if (type == DT_UNKNOWN) {
        struct stat info {};
        if (::fstatat(fd, item.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) continue;
        type = S_ISDIR(info.st_mode) ? DT_DIR : DT_REG;
      }
      if (type != DT_DIR || isPackageName(item.name)) continue;
      std::string childPath = node.path == "/" ? "/" + item.name : node.path + "/" + item.name;
      if (item.name == "DerivedData") {
        node.findings.emplace_back(Kind::derivedData, std::move(childPath));
        continue;
      }
      if (std::find(notToEnter.begin(), notToEnter.end(), item.name) != notToEnter.end()) continue;
      if (neverDescendNames().count(item.name) || item.name.front() == '.') continue;
      if (node.isHome && node.depth == 0 && homeTopLevelExclusions().count(item.name)) continue;
      if (excluded_.count(childPath)) continue;
      if (node.depth + 1 > kMaxDepth) continue;  // listed never, so no need to keep it

      auto child = std::make_unique<Node>();
      child->path = std::move(childPath);
      child->depth = node.depth + 1;
      if (heldDescriptors_.load(std::memory_order_relaxed) < kMaxHeldDescriptors) {
        heldDescriptors_.fetch_add(1, std::memory_order_relaxed);
        child->parent = directory;
        child->name = std::move(item.name);
      }
      node.children.push_back(std::move(child));
    }
    directory.reset();
    for (auto& child : node.children) schedule(*child);
  }

  std::unordered_set<std::string> excluded_;
  ThreadPool::TaskGroup* group_ = nullptr;
  std::atomic<int> heldDescriptors_{0};
};

std::string abbreviatedWithTilde(const std::string& path, const std::string& home) {
  if (home.empty() || home == "/") return path;
  if (path == home) return "~";
  if (path.size() > home.size() && path.compare(0, home.size(), home) == 0 && path[home.size()] == '/') {
    return "~" + path.substr(home.size());
  }
  return path;
}

CleanupEntryPtr makeFoundFolderEntry(const std::filesystem::path& folder, const std::string& home) {
  auto parent = folder.parent_path();
  auto parentName = parent.filename().string();
  auto name = folder.filename().string();
  auto label = parentName.empty() ? name : parentName + "/" + name;
  auto entry = std::make_shared<CleanupEntry>(label, abbreviatedWithTilde(parent.string(), home),
                                              trimmedWhiteSpaceAndNewlines(folder.string()),
                                              CleanupEntry::Icon::system("NSFolder"),
                                              /*tooltip=*/true, /*selected=*/false);
  entry->addPath(folder);
  return entry;
}

}  // namespace

const std::array<Kind, ProjectBuildsScanner::kKindCount>& ProjectBuildsScanner::allKinds() {
  static const std::array<Kind, kKindCount> kinds{
      Kind::rustTarget,  Kind::swiftPMBuild, Kind::zigCache,   Kind::nodeModules,      Kind::webBundlerCache,
      Kind::gradleBuild, Kind::flutterBuild, Kind::cocoapods,  Kind::cordovaPlatforms, Kind::rubyVendorBundle,
      Kind::pythonVenv,  Kind::cmakeBuild,   Kind::derivedData};
  return kinds;
}

const std::vector<ProjectBuildsScanner::Rule>& ProjectBuildsScanner::rules() {
  static const std::vector<Rule> table{
      {Kind::rustTarget, {"Cargo.toml"}, {}, {"target"}},
      {Kind::swiftPMBuild, {"Package.swift"}, {}, {".build"}},
      {Kind::zigCache, {"build.zig"}, {}, {".zig-cache", "zig-cache", "zig-out"}},
      {Kind::nodeModules, {"package.json"}, {}, {"node_modules"}},
      {Kind::webBundlerCache,
       {"package.json"},
       {},
       {".next", ".nuxt", ".turbo", ".parcel-cache", ".angular", ".svelte-kit", ".astro", ".vite"}},
      {Kind::cmakeBuild,
       {"CMakeLists.txt"},
       {},
       {"build", "cmake-build-debug", "cmake-build-release", "cmake-build-relwithdebinfo"}},
      {Kind::gradleBuild,
       {"build.gradle", "build.gradle.kts", "settings.gradle", "settings.gradle.kts", "gradlew"},
       {},
       {"build", ".gradle"}},
      {Kind::flutterBuild, {"pubspec.yaml"}, {}, {"build", ".dart_tool"}},
      {Kind::cocoapods, {"Podfile"}, {}, {"Pods"}},
      {Kind::cordovaPlatforms, {"config.xml"}, {"www"}, {"platforms"}},
      {Kind::rubyVendorBundle, {"Gemfile"}, {}, {"vendor/bundle"}},
      {Kind::pythonVenv, {"pyproject.toml", "requirements.txt", "setup.py", "Pipfile"}, {}, {".venv", "venv"}},
  };
  return table;
}

std::string_view ProjectBuildsScanner::label(Kind kind) {
  switch (kind) {
    case Kind::rustTarget:
      return "Rust \u2013 target";
    case Kind::swiftPMBuild:
      return "Swift Package \u2013 .build";
    case Kind::zigCache:
      return "Zig \u2013 caches";
    case Kind::nodeModules:
      return "node_modules";
    case Kind::webBundlerCache:
      return "Web build caches (.next/.nuxt/.turbo\u2026)";
    case Kind::gradleBuild:
      return "Gradle \u2013 build";
    case Kind::flutterBuild:
      return "Flutter/Dart \u2013 build";
    case Kind::cocoapods:
      return "CocoaPods \u2013 Pods";
    case Kind::cordovaPlatforms:
      return "Cordova \u2013 platforms";
    case Kind::rubyVendorBundle:
      return "Ruby \u2013 vendor/bundle";
    case Kind::pythonVenv:
      return "Python \u2013 virtualenvs";
    case Kind::cmakeBuild:
      return "CMake \u2013 build";
    case Kind::derivedData:
      return "DerivedData (local)";
  }
  return "";
}

std::string_view ProjectBuildsScanner::tooltip(Kind kind) {
  switch (kind) {
    case Kind::rubyVendorBundle:
      return "Bundler gems installed inside projects. Recreated with \"bundle install\".";
    case Kind::pythonVenv:
      return "Project virtual environments (.venv/venv). Recreated with \"pip install\"/\"uv sync\", but you'll need "
             "to reinstall dependencies.";
    default:
      return kCommonTooltip;
  }
}

ProjectBuildsScanner::FoundFolders ProjectBuildsScanner::findFolders(
    const std::vector<std::filesystem::path>& roots, const std::vector<std::filesystem::path>& coveredFolders,
    const std::vector<std::filesystem::path>& excludedPaths) {
  std::vector<std::unique_ptr<Node>> rootNodes;
  for (size_t i = 0; i < roots.size(); ++i) {
    auto node = std::make_unique<Node>();
    node->path = standardized(roots[i]);
    node->isHome = i == 0;
    rootNodes.push_back(std::move(node));
  }
  Walk walk(excludedPaths);
  for (auto& node : rootNodes) walk.run(*node);

  // Replay the tree in the order of a sequential depth-first walk that pops the last pushed
  // folder first; the first time a folder is met decides where it is reported.
  std::unordered_set<std::string> reported;
  for (const auto& covered : coveredFolders) reported.insert(standardized(covered));
  FoundFolders found;
  std::vector<std::unique_ptr<Node>> stack = std::move(rootNodes);
  while (!stack.empty()) {
    auto node = std::move(stack.back());
    stack.pop_back();
    for (auto& [kind, path] : node->findings) {
      if (reported.insert(path).second) found[kind].emplace_back(path);
    }
    for (auto& child : node->children) stack.push_back(std::move(child));
  }
  return found;
}

ProjectBuildsScanner::FoundFolders ProjectBuildsScanner::findFolders(
    const std::vector<std::filesystem::path>& coveredFolders) {
  const auto& host = Host::current();
  std::vector<std::filesystem::path> roots{host.home};
  for (const char* extra : {"/opt", "/usr/local"}) {
    auto path = host.system(extra);
    struct stat info {};
    if (::lstat(path.c_str(), &info) == 0) roots.push_back(path);
  }
  std::vector<std::filesystem::path> excluded{host.system("/opt/homebrew"), host.system("/usr/local/Homebrew"),
                                              host.system("/usr/local/Cellar")};
  return findFolders(roots, coveredFolders, excluded);
}

std::vector<CleanupEntryPtr> ProjectBuildsScanner::makeEntries(const FoundFolders& foundFolders) {
  const std::string home = standardized(Host::current().home);
  std::vector<CleanupEntryPtr> result;
  for (Kind kind : allKinds()) {
    auto found = foundFolders.find(kind);
    if (found == foundFolders.end() || found->second.empty()) continue;
    std::vector<CleanupEntryPtr> entries;
    for (const auto& folder : found->second) entries.push_back(makeFoundFolderEntry(folder, home));
    ThreadPool::shared().concurrentPerform(entries.size(), [&](size_t i) {
      HardLinkTracker tracker;
      entries[i]->calculateSize(tracker);
    });
    std::vector<CleanupEntryPtr> kept;
    for (auto& entry : entries) {
      if (!entry->size().isUnknown() && entry->size().bytesOrZero() >= kMinimumSize) kept.push_back(entry);
    }
    if (kept.empty()) continue;
    std::stable_sort(kept.begin(), kept.end(),
                     [](const CleanupEntryPtr& a, const CleanupEntryPtr& b) { return a->size() > b->size(); });
    auto kindEntry = std::make_shared<CleanupEntry>(std::string(label(kind)), "", std::string(tooltip(kind)),
                                                    CleanupEntry::Icon::system("NSFolder"), /*tooltip=*/true,
                                                    /*selected=*/false);
    kindEntry->addItems(kept);
    result.push_back(kindEntry);
  }
  return result;
}

std::vector<CleanupEntryPtr> ProjectBuildsScanner::scan(const std::vector<std::filesystem::path>& coveredFolders) {
  return makeEntries(findFolders(coveredFolders));
}

std::vector<CleanupEntryPtr> scanProjectBuilds(const std::vector<std::filesystem::path>& coveredFolders) {
  return ProjectBuildsScanner::scan(coveredFolders);
}

}  // namespace tw
