#include "cli/CmdLine.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <optional>
#include <sstream>

#include "app/Logger.h"
#include "app/Preferences.h"
#include "cli/ArgumentsParser.h"
#include "clean/DeletionEngine.h"
#include "fs/Files.h"
#include "platform/ByteCountFormatter.h"
#include "platform/Host.h"
#include "platform/PropertyList.h"
#include "platform/Text.h"

namespace tw {
namespace {

constexpr const char* kToolName = "tidewell";
constexpr const char* kToolDescription = "Reclaims storage that Xcode stores in caches and old files";
constexpr const char* kInfoOption = "info";
constexpr const char* kCleanOption = "clean";
constexpr const char* kHelpOption = "--help";
constexpr const char* kFromCommandLineVariable = "TIDEWELL_FROM_COMMAND_LINE";

// The values "clean" accepts, in the order the usage text lists them.
std::vector<std::string> cleanValues() {
  std::vector<std::string> values{"all"};
  for (auto location : DevFiles::allLocations()) values.emplace_back(DevFiles::commandLineName(location));
  return values;
}

std::string cleanDescription() {
  std::string names;
  for (const auto& value : cleanValues()) {
    if (!names.empty()) names += ", ";
    names += value;
  }
  return "Perform cleaning of given items. Available options: " + names +
         ". If you want to clean all, pass \"all\" or nothing";
}

// Only "all" is ever compared after lower-casing, and no character but 'A' and 'L' lower-cases
// to 'a' or 'l', so ASCII lower-casing decides exactly as a full Unicode mapping would.
std::string asciiLowercased(std::string_view text) {
  std::string result(text);
  for (char& c : result) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return result;
}

// --- Bundle information ----------------------------------------------------------------------

// The bundle's Contents/Info.plist (XML or binary); absent when it is missing or unusable.
std::optional<PropertyList> readInfoDictionary(const std::filesystem::path& bundle) {
  if (bundle.empty()) return std::nullopt;
  try {
    return PropertyList::readDictionary(bundle / "Contents" / "Info.plist", PropertyList::Kind::metadata);
  } catch (const PropertyListError& error) {
    log::error(std::string("CmdLineTool: ") + error.what());
    return std::nullopt;
  }
}

}  // namespace

CmdLine::Error::Error(Kind kind, std::string option)
    : tw::Error(kind == Kind::wrongOption ? "Wrong value for \"clean\": " + option : "Conflicting options"),
      kind_(kind),
      option_(std::move(option)) {}

const std::shared_ptr<CmdLine>& CmdLine::shared() {
  static const auto instance = std::make_shared<CmdLine>(std::cout);
  return instance;
}

CmdLine::CmdLine(std::ostream& out) : out_(out) {}

void CmdLine::line(std::string_view text) { out_ << text << '\n'; }

void CmdLine::exitProcess(int status) { throw Exit{status}; }

void CmdLine::fatal(std::string_view message) {
  line(message);
  out_.flush();
  std::fflush(stdout);
  std::abort();
}

int CmdLine::start(const std::vector<std::string>& arguments) {
  int status = 0;
  try {
    runCommand(arguments);
  } catch (const Exit& exit) {
    status = exit.status;
  }
  out_.flush();
  std::fflush(stdout);
  return status;
}

void CmdLine::runCommand(const std::vector<std::string>& arguments) {
  printBanner();

  ArgumentsParser parser(kToolName, kToolDescription);
  parser.addOption(kInfoOption, "Show all items available to clean.");
  parser.addOptionWithValue(kCleanOption, cleanDescription(), cleanValues());
  parser.addOption(kHelpOption, "Prints this message");

  try {
    auto options = parser.parse(arguments);
    if (options.size() >= 2) throw Error(Error::Kind::conflictingOptions, {});
    if (options.empty()) throw ArgumentsParser::Error(ArgumentsParser::Error::Kind::insufficientArguments, {});

    const CommandLineOption& option = options.front();
    if (option.name() == kInfoOption) {
      run(Mode::info, {DevFiles::allLocations().begin(), DevFiles::allLocations().end()});
    } else if (option.name() == kCleanOption) {
      auto locations = parseLocations(option.withValue()->value.value_or(""));
      run(Mode::clean, locations);
    } else {
      parser.printUsage(out_);
      exitProcess(0);
    }
  } catch (const ArgumentsParser::Error& error) {
    switch (error.kind()) {
      case ArgumentsParser::Error::Kind::wrongArgument:
        fail("Unrecognized argument: " + error.argument());
      case ArgumentsParser::Error::Kind::noValue:
        fail("Expected value for option: " + error.argument());
      case ArgumentsParser::Error::Kind::insufficientArguments:
        break;
    }
    parser.printUsage(out_);
    exitProcess(0);
  } catch (const Error& error) {
    if (error.kind() == Error::Kind::wrongOption) fail(error.what());
    parser.printUsage(out_);
    exitProcess(0);
  } catch (const std::exception&) {
    parser.printUsage(out_);
    exitProcess(0);
  }
}

void CmdLine::printBanner() {
  const auto& bundle = Host::current().bundle;
  auto info = readInfoDictionary(bundle);
  if (!info) fatal("CmdLineTool: No Info.plist in main app bundle!?");
  auto version = PropertyList::string(PropertyList::item(info->root(), "CFBundleShortVersionString"));
  if (!version) fatal("CmdLineTool: Can't get app version from main bundle!");
  auto build = PropertyList::string(PropertyList::item(info->root(), "CFBundleVersion"));
  if (!build) fatal("CmdLineTool: Can't get app build number from main bundle!");

  line("Tidewell " + *version + " (" + *build + ")");
  line();

  // Started without the launcher script: from an old link or straight from the bundle.
  if (std::getenv(kFromCommandLineVariable)) {
    out_.flush();
    return;
  }
  line("WARNING: It seems you haven't updated your command line tool!");
  line("You might have problems running this tool from headless environments like SSH, or CI servers...");
  line();
  line(
      "To update command line tool for the future, link command line tool script to one of your directories in "
      "PATH, for example /usr/local/bin.");
  line();
  line("$ sudo ln -sf " + bundle.string() + "/Contents/Resources/tidewell.sh /usr/local/bin/tidewell");
  line();
  out_.flush();
}

std::vector<DevFiles::Location> CmdLine::parseLocations(std::string_view value) {
  const auto& all = DevFiles::allLocations();
  if (asciiLowercased(trimmedWhiteSpaceAndNewlines(value)) == "all") return {all.begin(), all.end()};

  std::vector<DevFiles::Location> locations;
  size_t begin = 0;
  while (begin <= value.size()) {
    size_t comma = value.find(',', begin);
    if (comma == std::string_view::npos) comma = value.size();
    std::string_view piece = value.substr(begin, comma - begin);
    begin = comma + 1;
    if (piece.empty()) continue;

    std::string name = trimmedWhiteSpaceAndNewlines(piece);
    if (name == "all") {
      locations.insert(locations.end(), all.begin(), all.end());
      continue;
    }
    auto match = std::find_if(all.begin(), all.end(),
                              [&](DevFiles::Location location) { return DevFiles::commandLineName(location) == name; });
    if (match == all.end()) throw Error(Error::Kind::wrongOption, std::string(name));
    locations.push_back(*match);
  }
  return locations;
}

void CmdLine::run(Mode mode, const std::vector<DevFiles::Location>& locations) {
  auto developerFolder = Files::developerFolderGrant(Preferences::shared(), nullptr);
  if (!developerFolder) {
    fail(
        "Tidewell needs permission to your ~/Library/Developer folder to scan Xcode cache files.\n"
        "To use command line tool, open UI version of Xcode and grant access to this folder on first run.");
  }
  auto derivedDataFolder = Files::customDerivedDataFolderGrant(Preferences::shared(), nullptr);
  auto archivesFolder = Files::customArchivesFolderGrant(Preferences::shared(), nullptr);
  auto created = DevFiles::create(*developerFolder, derivedDataFolder, archivesFolder);
  if (!created) {
    fail("Cannot locate Xcode cache files.\nCheck if you have Xcode installed and some projects built.");
  }
  std::shared_ptr<DevFiles> devFiles = *created;
  devFiles->setDeleteDelegate(shared_from_this());

  line("Scanning...");
  line();
  out_.flush();

  devFiles->reset();
  devFiles->scan(locations);

  std::string total = formatByteCount(devFiles->totalSize());
  switch (mode) {
    case Mode::clean:
      clean(*devFiles, locations);
      break;
    case Mode::info: {
      std::vector<CleanupEntryPtr> entries;
      for (const auto& [location, entry] : devFiles->locations()) entries.push_back(entry);
      printInfo(entries);
      line("Total size available to clean: " + total);
      break;
    }
    default:
      fail("Can't start with mode different than \"info\" or \"clean\"");
  }
  out_.flush();
}

void CmdLine::printInfo(const std::vector<CleanupEntryPtr>& entries) {
  // Plain code-point order of the normalised labels, not a localized one: Z before A.
  std::vector<std::pair<std::string, CleanupEntryPtr>> sorted;
  sorted.reserve(entries.size());
  for (const auto& entry : entries) sorted.emplace_back(canonicalNormalized(entry->label()), entry);
  std::stable_sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) { return a.first > b.first; });

  for (const auto& [label, entry] : sorted) {
    printEntry(*entry, 0);
    line();
  }
}

void CmdLine::printEntry(const CleanupEntry& entry, size_t depth) {
  std::string text(depth, '\t');
  text += "[" + formatByteCount(entry.size().bytesOrZero()) + "] " + entry.label() + " ";
  if (!entry.extraInfo().empty()) text += "(" + entry.extraInfo() + ")";
  line(text);
  for (const auto& child : entry.items()) printEntry(*child, depth + 1);
}

void CmdLine::clean(DevFiles& devFiles, const std::vector<DevFiles::Location>& locations) {
  for (const auto& [location, entry] : devFiles.locations()) entry->deselect();
  for (auto location : locations) {
    auto found = devFiles.locations().find(location);
    if (found != devFiles.locations().end()) found->second->select();
  }

  // Measured before deleting: this is what the selection held, and what is reported and added up.
  int64_t selectedSize = devFiles.selectedSize();
  // Checked before anything is deleted, so that the run never stops over the counter afterwards.
  int64_t newTotal = 0;
  if (__builtin_add_overflow(Preferences::shared().totalBytesCleaned(), selectedSize, &newTotal)) {
    line("Note: the lifetime total of bytes cleaned cannot grow any further; it stays at " +
         formatByteCount(INT64_MAX) + ".");
    out_.flush();
  }
  deleteSelected(devFiles, false);

  line();
  line("Total bytes cleaned: " + formatByteCount(selectedSize));
  out_.flush();
  auto update = Preferences::shared().addToTotalBytesCleaned(selectedSize);
  if (update.saveFailure) {
    line("Warning: the lifetime total of bytes cleaned could not be saved: " + *update.saveFailure);
    out_.flush();
  }
}

void CmdLine::fail(const std::string& message) {
  line("Error: " + message);
  line();
  if (const auto& logFile = Logger::main().logFilePath()) {
    line("You can check full log here: " + logFile->string());
    line();
  }
  exitProcess(1);
}

void CmdLine::deleteStarted(DevFiles&) {
  line("Removing files:");
  out_.flush();
}

void CmdLine::deletingItem(DevFiles&, const std::string& locationLabel, const std::string& itemDescription,
                           const std::optional<std::filesystem::path>& url, size_t index, size_t count) {
  std::string text = locationLabel + ": ";
  if (!itemDescription.empty()) {
    text += itemDescription + " - ";
  } else if (url) {
    text += url->string() + " - ";
  }
  text += std::to_string(index) + "/" + std::to_string(count);
  line(text);
  out_.flush();
}

void CmdLine::deleteFailed(DevFiles&, const std::exception& error, const std::string& locationLabel, const std::string&,
                           const std::optional<std::filesystem::path>& url) {
  line("Warning: Following file couldn't be removed: " + capitalizedWords(locationLabel) + ": " +
       (url ? url->string() : std::string("-")) + " " + error.what());
  out_.flush();
}

void CmdLine::deleteFinished(DevFiles&) {}

}  // namespace tw
