#include "support/FixtureHome.h"

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "support/TempDir.h"

namespace tw::test {
namespace fs = std::filesystem;
namespace {

constexpr size_t KB = 1000;
constexpr const char* kEmptyPlist = "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict/></plist>";

plist_t dict(std::initializer_list<std::pair<const char*, plist_t>> items) {
  plist_t result = plist_new_dict();
  for (const auto& [key, value] : items) plist_dict_set_item(result, key, value);
  return result;
}

plist_t str(const std::string& value) { return plist_new_string(value.c_str()); }

// The device.plist of a simulator, a preview device or an XCTest clone.
plist_t devicePlist(const std::string& udid, const std::string& type, const std::string& name,
                    const std::string& runtime) {
  return dict({{"UDID", str(udid)},
               {"deviceType", str("com.apple.CoreSimulator.SimDeviceType." + type)},
               {"name", str(name)},
               {"runtime", str("com.apple.CoreSimulator.SimRuntime." + runtime)},
               {"state", plist_new_uint(1)}});
}

// About 50 MB in all; every item meant to be listed exceeds 1 MiB.
struct Writer {
  fs::path root;

  fs::path file(const fs::path& r, size_t bytes) const { return writeFileOfSize(root / r, bytes), root / r; }
  fs::path text(const fs::path& r, std::string_view contents) const { return writeFile(root / r, contents), root / r; }
  fs::path folder(const fs::path& r) const { return fs::create_directories(root / r), root / r; }
  fs::path files(const fs::path& folder, std::initializer_list<std::pair<const char*, size_t>> items) const {
    for (const auto& [name, kilobytes] : items) file(folder / name, kilobytes * KB);
    return root / folder;
  }
  void plist(const fs::path& r, plist_t plist, PlistFormat format) const { writePlist(root / r, plist, format); }
};

void writeDerivedData(const Writer& w, FixtureHome& home) {
  const fs::path base = "Library/Developer/Xcode/DerivedData";
  const std::tuple<std::string, std::string, long long> projects[] = {
      {"WeatherApp-dxkbzjmvkxoqcbfbujrwnxhcelpx", "/Users/sam/Projects/WeatherApp/WeatherApp.xcodeproj", 1709545260},
      {"Tidewell-gfqlwhbxkpcyaeiodzsrmnutvjoq", "/Users/sam/Projects/Tidewell/Tidewell.xcworkspace", 1711959600},
      {"Notes Ünïcode-aaaabbbbccccddddeeeeffffgggg", "/Users/sam/Projects/Notes Ünïcode/Notes.xcodeproj", 1680000000}};
  for (const auto& [projectFolder, workspace, lastAccess] : projects) {
    const fs::path folder = base / projectFolder;
    const std::string name = projectFolder.substr(0, projectFolder.rfind('-'));
    w.plist(folder / "info.plist",
            dict({{"LastAccessedDate", plistDate(lastAccess)}, {"WorkspacePath", str(workspace)}}), PlistFormat::xml);
    auto binary = w.file(folder / "Build/Products/Debug-iphonesimulator" / (name + ".app") / name, 900 * KB);
    w.file(folder / "Build/Intermediates.noindex" / (name + ".build/Debug-iphonesimulator/main.o"), 400 * KB);
    w.file(folder / "Index.noindex/DataStore/v5/records/A1/main.swift-3KQ8DLA9ZQ2KX", 250 * KB);
    w.text(folder / "Logs/Build/LogStoreManifest.plist", kEmptyPlist);
    // The build system links products into place: one file, two names, counted once.
    fs::create_hard_link(binary, w.folder(folder / "Build/Intermediates.noindex/PrecompiledLink") / name);
    home.derivedDataProjects.push_back(w.root / folder);
  }
  // A project folder whose info.plist was cut short while Xcode wrote it.
  const fs::path broken = base / "Broken-zzzzyyyyxxxxwwwwvvvvuuuutttt";
  w.text(broken / "info.plist",
         "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n<key>Work");
  home.derivedDataProjects.push_back(w.files(broken, {{"Build/Products/Debug/Broken", 1200}}));
  w.file(base / "ModuleCache.noindex/2N2Y7RB0F8Q3H/Foundation-1RDNS9YUB6LBD.pcm", 600 * KB);
}

void writeArchives(const Writer& w, FixtureHome& home) {
  const std::array<std::string, 7> archives[] = {
      {"2024-03-04", "4-3-24, 09.41", "WeatherApp", "com.example.weather", "2.1", "45", "1709545260"},
      {"2024-03-04", "4-3-24, 16.33", "WeatherApp", "com.example.weather", "2.1.1", "46", "1709570000"},
      {"2023-11-20", "20-11-23, 14.03", "Tidewell", "dev.tidewell.Tidewell", "1.0", "1", "1700489000"}};
  for (const auto& [day, time, name, identifier, version, build, created] : archives) {
    const fs::path folder = fs::path("Library/Developer/Xcode/Archives") / day / (name + " " + time + ".xcarchive");
    w.plist(folder / "Info.plist",
            dict({{"ApplicationProperties",
                   dict({{"ApplicationPath", str("Applications/" + name + ".app")},
                         {"CFBundleIdentifier", str(identifier)},
                         {"CFBundleShortVersionString", str(version)},
                         {"CFBundleVersion", str(build)},
                         {"SigningIdentity", str("Apple Development: Sam Example (ABCDE12345)")}})},
                  {"ArchiveVersion", plist_new_uint(2)},
                  {"CreationDate", plistDate(std::stoll(created))},
                  {"Name", str(name)},
                  {"SchemeName", str(name)}}),
            version == "2.1" ? PlistFormat::xml : PlistFormat::binary);
    w.file(folder / "Products/Applications" / (name + ".app") / name, 800 * KB);
    w.file(folder / "dSYMs" / (name + ".app.dSYM") / "Contents/Resources/DWARF" / name, 500 * KB);
    home.archives.push_back(w.root / folder);
  }
  // An archive without Info.plist (Xcode crashed while exporting), which no scan can describe.
  w.files("Library/Developer/Xcode/Archives/2022-01-15/Orphan 15-1-22, 10.00.xcarchive",
          {{"Products/Applications/Orphan.app/Orphan", 300}});
}

void writeDeviceSupport(const Writer& w, FixtureHome& home) {
  const std::array<std::string, 4> items[] = {{"iOS DeviceSupport", "17.4 (21E213) arm64e", "17.4", "21E213"},
                                              {"iOS DeviceSupport", "iPhone15,2 17.5.1 (21F90)", "17.5.1", "21F90"},
                                              {"iOS DeviceSupport", "16.7.2 (20H115)", "16.7.2", "20H115"},
                                              {"watchOS DeviceSupport", "Watch6,1 10.4 (21T216)", "10.4", "21T216"}};
  for (const auto& [platformFolder, name, version, build] : items) {
    const fs::path folder = fs::path("Library/Developer/Xcode") / platformFolder / name;
    w.plist(folder / "Info.plist",
            dict({{"DSC Extractor Version", str("1241.17")}, {"Version", str(version)}, {"Build", str(build)}}),
            PlistFormat::xml);
    w.file(folder / "Symbols/System/Library/Caches/com.apple.dyld/dyld_shared_cache_arm64e", 1300 * KB);
    w.file(folder / "Symbols/usr/lib/libobjc.A.dylib", 200 * KB);
    w.text(folder / ".finalized", "");
    home.deviceSupport.push_back(w.root / folder);
  }
}

void writeXcodeCaches(const Writer& w, FixtureHome& home) {
  const fs::path xcode = "Library/Developer/Xcode";
  // DocumentationCache/<format>/<Xcode version>.
  for (const char* cache : {"v244.5/15.3", "v246.1/15.4", "v246.1/16.0"})
    w.files(xcode / "DocumentationCache" / cache, {{"en/documentation.db", 700}, {"en/index/data.skidx", 500}});
  const fs::path userData = xcode / "UserData";
  const std::string preview = "5B1E3C2A-9F0D-4C8E-8E51-6B7A2D9C4F10";
  const fs::path previewFolder = userData / "Previews/Simulator Devices" / preview;
  w.plist(previewFolder / "device.plist", devicePlist(preview, "iPhone-15-Pro", "iPhone 15 Pro", "iOS-17-4"),
          PlistFormat::binary);
  w.file(previewFolder / "data/Library/Caches/cache.db", 1100 * KB);
  w.files(userData, {{"IB Support/Simulator Devices/device_set.plist", 2},
                     {"IDEEditorInteractivityHistory/WeatherApp.xcodeproj/history.db", 300}});
  for (const char* setting : {"KeyBindings/Sam.idekeybindings", "FontAndColorThemes/Midnight Tide.xccolortheme",
                              "CodeSnippets/guard-let.codesnippet"})
    home.keep.push_back(w.text(userData / setting, "<?xml version=\"1.0\"?><plist/>"));
  w.files(xcode / "iOS Device Logs",
          {{"iOS Device Logs 16.4.db", 400}, {"iOS Device Logs 17.4.db", 400}, {"iOS Device Logs 17.4.1.db", 400}});
  const fs::path docSet = "Library/Developer/Shared/Documentation/DocSets/com.apple.adc.documentation.iOS.docset";
  w.file(docSet / "Contents/Resources/docSet.dsidx", 600 * KB);
  w.text(docSet / "Contents/Info.plist", kEmptyPlist);
}

void writeSimulators(const Writer& w) {
  const fs::path simulator = "Library/Developer/CoreSimulator";
  const std::array<std::string, 4> devices[] = {
      {"0F5C8A1E-7B2D-4E6A-9C3F-1D2E3F4A5B6C", "iPhone-15", "iPhone 15", "iOS-17-4"},
      {"A3B9E7D1-2C4F-4A6B-8D0E-F1A2B3C4D5E6", "iPhone-8", "iPhone 8", "iOS-15-5"},
      {"C7D2F4A9-6E1B-4C3D-A5F7-9B8E0D1C2A3F", "Apple-Watch-Series-9-45mm", "Apple Watch Series 9 (45mm)",
       "watchOS-10-4"}};
  plist_t defaultDevices = plist_new_dict();
  for (const auto& [udid, type, name, runtime] : devices) {
    const fs::path folder = simulator / "Devices" / udid;
    plist_t device = devicePlist(udid, type, name, runtime);
    plist_dict_set_item(device, "isDeleted", plist_new_bool(0));
    w.plist(folder / "device.plist", device, PlistFormat::binary);
    w.files(folder / "data",
            {{"Containers/Data/Application/7E1F/Library/Caches/images.db", 900}, {"Library/Logs/system.log", 250}});
    plist_dict_set_item(defaultDevices, udid.c_str(), str("com.apple.CoreSimulator.SimRuntime." + runtime));
  }
  w.plist(simulator / "Devices/device_set.plist",
          dict({{"DefaultDevices", defaultDevices}, {"Version", plist_new_uint(2)}}), PlistFormat::binary);
  for (const char* hostAndRuntime : {"23E214/com.apple.CoreSimulator.SimRuntime.iOS-17-4.21E213",
                                     "22G120/com.apple.CoreSimulator.SimRuntime.iOS-16-4.20E247"})
    w.files(simulator / "Caches/dyld" / hostAndRuntime,
            {{"dyld_sim_shared_cache_arm64", 1200}, {"dyld_sim_shared_cache_arm64.map", 50}});
  // XCTest's clones of a simulator, left behind when a UI test run was killed.
  const std::string clone = "E9F8A7B6-C5D4-4E3F-A2B1-0C9D8E7F6A5B";
  const fs::path cloneFolder = fs::path("Library/Developer/XCTestDevices") / clone;
  w.plist(cloneFolder / "device.plist", devicePlist(clone, "iPhone-15", "Clone 1 of iPhone 15", "iOS-17-4"),
          PlistFormat::binary);
  w.file(cloneFolder / "data/Library/Caches/snapshot.db", 1100 * KB);
}

void writeCaches(const Writer& w) {
  w.files(
      {},
      {{"Library/Caches/org.swift.swiftpm/repositories/swift-argument-parser-8c1a/objects/pack.pack", 1300},
       {"Library/Caches/CocoaPods/Pods/Release/Alamofire/5.9.0-9e1c2/Source/Session.swift", 1200},
       {"Library/Caches/org.carthage.CarthageKit/dependencies/Quick/objects.pack", 1150},
       {"Library/Caches/Homebrew/downloads/3f2a--node-21.7.1.arm64_sonoma.bottle.tar.gz", 1500},
       {"Library/Caches/Google/Chrome/Default/Cache/Cache_Data/data_1", 1300},
       {"Library/Caches/com.tinyspeck.slackmacgap/Cache.db", 1100},
       {"Library/Application Support/Code/CachedData/1e790d77f81672c49be070e04474901747115651/chrome.jsc", 1200},
       {".npm/_cacache/content-v2/sha512/9f/86/d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08", 1400},
       {".cargo/registry/cache/index.crates.io-6f17d22bba15001f/serde-1.0.197.crate", 1250},
       {".gradle/caches/modules-2/files-2.1/com.google.guava/guava/33.0.0-jre/guava-33.0.0-jre.jar", 1300},
       {".cache/huggingface/hub/models--gpt2/blobs/248dfc3911869ec493c76e65bf2fcf7f615828b0254c12b473182f0f81d3a707",
        1600},
       {".cache/pip/http/small", 20}});  // a small cache that a scanner should leave out of its list
}

void writeProjects(const Writer& w, FixtureHome& home) {
  const fs::path rust = "Projects/rusty-tool", web = "Projects/web-shop";
  home.keep.push_back(
      w.text(rust / "Cargo.toml", "[package]\nname = \"rusty-tool\"\nversion = \"0.3.1\"\nedition = \"2021\"\n"));
  home.keep.push_back(w.text(rust / "src/main.rs", "fn main() {\n    println!(\"hello\");\n}\n"));
  w.files(rust / "target", {{"debug/rusty-tool", 900}, {"debug/deps/librusty_tool-4f2c.rlib", 500}});
  home.projectBuildFolders.push_back(
      w.text(rust / "target/CACHEDIR.TAG", "Signature: 8a477f597d28d172789f06886806bc55\n").parent_path());
  home.keep.push_back(w.text(web / "package.json", "{\n  \"name\": \"web-shop\",\n  \"version\": \"1.4.0\"\n}\n"));
  home.keep.push_back(w.text(web / "src/index.js", "console.log('shop');\n"));
  w.files(web / "node_modules", {{"left-pad/index.js", 700}, {"typescript/lib/typescript.js", 800}});
  w.text(web / "node_modules/left-pad/package.json", "{\"name\":\"left-pad\",\"bin\":\"cli.js\"}\n");
  w.text(web / "node_modules/left-pad/cli.js", "#!/usr/bin/env node\n");
  fs::create_symlink("../left-pad/cli.js", w.folder(web / "node_modules/.bin") / "left-pad");
  home.projectBuildFolders.push_back(w.root / web / "node_modules");
  // A link from inside a project to the user's documents: a walk must not follow it.
  home.keep.push_back(w.file("Documents/Thesis/chapter-1.pages", 300 * KB));
  fs::create_directory_symlink("../../Documents", w.root / web / "docs-shortcut");
  w.files({}, {{"Library/Logs/DiagnosticReports/WeatherApp-2024-03-04-094101.ips", 200},
               {"Library/Logs/CoreSimulator/CoreSimulator.log", 900},
               {".Trash/Old Installer.dmg", 1500}});
}

}  // namespace

void writePlist(const fs::path& path, plist_t plist, PlistFormat format) {
  const bool xml = format == PlistFormat::xml;
  char* data = nullptr;
  uint32_t length = 0;
  xml ? plist_to_xml(plist, &data, &length) : plist_to_bin(plist, &data, &length);
  plist_free(plist);
  if (!data) throw std::runtime_error("cannot serialise property list for " + path.string());
  const std::string contents(data, length);
  xml ? plist_to_xml_free(data) : plist_to_bin_free(data);
  writeFile(path, contents);
}

plist_t plistDate(long long secondsSince1970) {
  constexpr long long kPlistEpoch = 978307200;  // 2001-01-01T00:00:00Z in Unix time
  return plist_new_date(static_cast<int32_t>(secondsSince1970 - kPlistEpoch), 0);
}

FixtureHome FixtureHome::write(const fs::path& root, const FixtureHomeOptions& options) {
  FixtureHome home{.root = root, .developerFolder = root / "Library/Developer"};
  const Writer w{root};
  writeDerivedData(w, home);
  writeArchives(w, home);
  writeDeviceSupport(w, home);
  writeXcodeCaches(w, home);
  writeSimulators(w);
  if (options.caches) writeCaches(w);
  if (options.projects) writeProjects(w, home);
  return home;
}

}  // namespace tw::test
