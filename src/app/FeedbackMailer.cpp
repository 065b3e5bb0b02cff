#include "app/FeedbackMailer.h"

#include <openssl/evp.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <thread>

#include "app/Logger.h"
#include "app/Preferences.h"
#include "fs/Shell.h"
#include "platform/Text.h"
#include "scan/XcodeScanSupport.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

// The address is kept out of plain sight of crawlers that read the binary.
constexpr const char* kEncodedSupportAddress = "c3VwcG9ydEB0aWRld2VsbC5kZXY=";

constexpr const char* kXdgEmail = "/usr/bin/xdg-email";
constexpr const char* kXdgMime = "/usr/bin/xdg-mime";

std::string readSmallFile(const fs::path& path) {
  std::ifstream stream(path, std::ios::binary);
  std::string text;
  if (!stream) return text;
  text.resize(4096);
  stream.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<size_t>(stream.gcount()));
  return text;
}

// One os-release value: KEY=value, KEY="value" or KEY='value', with shell escapes in double quotes.
std::optional<std::string> osReleaseValue(const std::string& contents, const std::string& key) {
  std::istringstream lines(contents);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.compare(0, key.size() + 1, key + "=") != 0) continue;
    std::string value = line.substr(key.size() + 1);
    if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front()) {
      const char quote = value.front();
      value = value.substr(1, value.size() - 2);
      if (quote == '"') {
        std::string unescaped;
        for (size_t i = 0; i < value.size(); ++i) {
          if (value[i] == '\\' && i + 1 < value.size()) ++i;
          unescaped += value[i];
        }
        value = unescaped;
      }
    }
    return value;
  }
  return std::nullopt;
}

std::string withoutControlCharacters(const std::string& text) {
  std::string result;
  for (unsigned char c : text) {
    if (c >= 0x20 && c != 0x7f) result += static_cast<char>(c);
  }
  return trimmedWhiteSpaceAndNewlines(result);
}

const char* yesNo(bool value) { return value ? "YES" : "NO"; }

}  // namespace

FeedbackMailer::FeedbackMailer(Host host, FeedbackAlerts& alerts, ToolRunner runTool, Launcher launch)
    : host_(std::move(host)), alerts_(alerts), runTool_(std::move(runTool)), launch_(std::move(launch)) {
  if (!runTool_) {
    runTool_ = [](const std::string& path, const std::vector<std::string>& arguments) {
      auto result = Shell::run(path, arguments);
      return ToolResult{result.status, std::move(result.output)};
    };
  }
  if (!launch_) launch_ = [](std::function<void()> task) { std::thread(std::move(task)).detach(); };
}

std::optional<std::string> FeedbackMailer::decodeBase64(const std::string& text) {
  if (text.empty() || text.size() % 4 != 0) return std::nullopt;
  std::string decoded(text.size() / 4 * 3, '\0');
  int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(decoded.data()),
                               reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
  if (length < 0) return std::nullopt;
  // EVP_DecodeBlock counts the padding as zero bytes.
  size_t padding = text.ends_with("==") ? 2 : text.ends_with("=") ? 1 : 0;
  decoded.resize(static_cast<size_t>(length) - padding);
  return decoded;
}

std::optional<std::string> FeedbackMailer::supportAddress() { return decodeBase64(kEncodedSupportAddress); }

bool FeedbackMailer::canSendMail() {
  auto handler = runTool_(kXdgMime, {"query", "default", "x-scheme-handler/mailto"});
  return handler.status == 0 && !trimmedWhiteSpaceAndNewlines(handler.output).empty();
}

void FeedbackMailer::composeMessage(const std::string& subject, const std::string& body,
                                    const std::vector<fs::path>& attachments) {
  std::error_code error;
  if (!fs::exists(host_.system(kXdgEmail), error)) {
    log::warning("FeedbackMailer: Can't create compose e-mail NSSharingService");
    return;
  }
  auto address = supportAddress();
  if (!address) {
    log::error("FeedbackMailer: Error while decoding support e-mail");
    return;
  }
  if (!canSendMail()) {
    alerts_.showInformational(
        "Can't send e-mail",
        "It seems your system doesn't have e-mail configured. You can send your feedback manually to " + *address,
        "OK");
    return;
  }

  std::vector<std::string> arguments{"--utf8", "--subject", subject};
  if (!body.empty()) {
    arguments.push_back("--body");
    arguments.push_back(body);
  }
  for (const auto& attachment : attachments) {
    arguments.push_back("--attach");
    arguments.push_back(attachment.string());
  }
  arguments.push_back(*address);
  launch_([runTool = runTool_, arguments] {
    auto result = runTool(kXdgEmail, arguments);
    if (result.status != 0) {
      log::error("FeedbackMailer: The mail program did not open (xdg-email status " + std::to_string(result.status) +
                 "): " + result.output);
    }
  });
}

void FeedbackMailer::sendFeedback() { composeMessage(kFeedbackSubject, "", {}); }

void FeedbackMailer::reportAnIssue() { reportAnIssue(Logger::main()); }

void FeedbackMailer::reportAnIssue(const Logger& logger) {
  std::vector<fs::path> attachments;
  if (logger.logFilePath()) attachments.push_back(*logger.logFilePath());
  if (logger.oldLogFilePath()) attachments.push_back(*logger.oldLogFilePath());
  composeMessage(kIssueReportSubject, std::string(kIssueReportBody) + systemReport(), attachments);
}

std::string FeedbackMailer::operatingSystem() const {
  std::string contents = readSmallFile(host_.system("/etc/os-release"));
  if (contents.empty()) contents = readSmallFile(host_.system("/usr/lib/os-release"));
  auto pretty = osReleaseValue(contents, "PRETTY_NAME");
  auto name = osReleaseValue(contents, "NAME");
  auto version = osReleaseValue(contents, "VERSION");
  std::string system = pretty ? *pretty : name ? *name : "Linux";
  if (version && system.find(*version) == std::string::npos) system += " " + *version;
  return system;
}

std::string FeedbackMailer::machineModel() const {
  std::string model = withoutControlCharacters(readSmallFile(host_.system("/sys/class/dmi/id/product_name")));
  return model.empty() ? "-" : model;
}

std::string FeedbackMailer::systemReport() const {
  std::string version = "-";
  std::string build = "-";
  if (!host_.bundle.empty()) {
    if (auto info = xcode::readMetadata(host_.bundle / "Contents" / "Info.plist")) {
      using xcode::PropertyList;
      version = PropertyList::string(PropertyList::item(info->root(), "CFBundleShortVersionString")).value_or("-");
      build = PropertyList::string(PropertyList::item(info->root(), "CFBundleVersion")).value_or("-");
    }
  }
  // Tested on the path itself, without any folder grant: the report tells what the system allows.
  const fs::path developer = host_.developerFolder();
  std::error_code error;
  const bool exists = fs::exists(developer, error);
  const bool readable = ::access(developer.c_str(), R_OK) == 0;
  const bool writable = ::access(developer.c_str(), W_OK) == 0;

  auto& preferences = Preferences::shared();
  auto derivedData = preferences.customDerivedDataFolder();
  auto archives = preferences.customArchivesFolder();

  return "Tidewell " + version + " (" + build + ")\nDoes '~/Library/Developer' folder exists: " + yesNo(exists) +
         "\nCan read '~/Library/Developer' folder: " + yesNo(readable) +
         "\nCan write '~/Library/Developer' folder: " + yesNo(writable) +
         "\n\nCustom derived data folder: " + (derivedData ? derivedData->string() : "-") +
         "\nCustom archives folder: " + (archives ? archives->string() : "-") + "\n\nSystem: " + operatingSystem() +
         "\nMac model: " + machineModel() + "\n";
}

}  // namespace tw
