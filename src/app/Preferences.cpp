#include "app/Preferences.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string_view>

#include "app/Logger.h"
#include "platform/ByteSum.h"
#include "platform/Error.h"
#include "platform/Host.h"
#include "platform/UserDefaults.h"

namespace tw {
namespace {

using Value = UserDefaults::Value;

std::string lowercased(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return result;
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
  return text;
}

std::optional<int64_t> parseInteger(std::string_view text) {
  std::string digits(trimmed(text));
  if (digits.empty()) return std::nullopt;
  errno = 0;
  char* end = nullptr;
  long long value = std::strtoll(digits.c_str(), &end, 10);
  if (errno != 0 || *end != '\0') return std::nullopt;
  return static_cast<int64_t>(value);
}

// A real number that stands for a whole count; out of range or not finite reads as none.
std::optional<int64_t> wholePart(double value) {
  if (!std::isfinite(value) || value < -9.2e18 || value > 9.2e18) return std::nullopt;
  return static_cast<int64_t>(value);
}

// A stored boolean, or a value that other writers of the same settings (the `defaults` tool,
// a hand-edited file) use for one: a number, "YES"/"NO", "true"/"false", "1"/"0".
std::optional<bool> booleanOf(const std::optional<Value>& value) {
  if (!value) return std::nullopt;
  if (auto flag = std::get_if<bool>(&*value)) return *flag;
  if (auto integer = std::get_if<int64_t>(&*value)) return *integer != 0;
  if (std::holds_alternative<uint64_t>(*value)) return true;  // an unsigned number beyond int64_t
  if (auto real = std::get_if<double>(&*value)) return *real != 0;
  if (auto text = std::get_if<std::string>(&*value)) {
    auto word = lowercased(trimmed(*text));
    if (word == "yes" || word == "true" || word == "y" || word == "t") return true;
    if (word == "no" || word == "false" || word == "n" || word == "f") return false;
    if (auto number = parseInteger(word)) return *number != 0;
  }
  return std::nullopt;
}

// Integers and reals count as numbers; a boolean is not a count.
std::optional<int64_t> integerOf(const std::optional<Value>& value, bool acceptText) {
  if (!value) return std::nullopt;
  if (auto integer = std::get_if<int64_t>(&*value)) return *integer;
  if (auto real = std::get_if<double>(&*value)) return wholePart(*real);
  if (auto text = std::get_if<std::string>(&*value); text && acceptText) return parseInteger(*text);
  return std::nullopt;
}

// The stored lifetime total. An unsigned count beyond the signed range (written by another
// tool) reads as the largest signed one rather than wrapping round to a negative number.
int64_t totalOf(const std::optional<Value>& value) {
  if (auto large = value ? std::get_if<uint64_t>(&*value) : nullptr) {
    log::warning("Preferences: The stored TWTotalBytesCleaned " + std::to_string(*large) +
                 " is beyond a signed 64-bit count; it reads as " + std::to_string(INT64_MAX));
    return INT64_MAX;
  }
  return integerOf(value, false).value_or(0);
}

std::optional<std::filesystem::path> folderOf(const std::optional<Value>& value) {
  if (!value) return std::nullopt;
  auto text = std::get_if<std::string>(&*value);
  if (!text || text->empty()) return std::nullopt;
  return std::filesystem::path(*text);
}

void logProblem(const UserDefaults::Problem& problem) { log::warning("Preferences: " + problem.message); }

}  // namespace

Preferences& Preferences::shared() {
  // Never destroyed: observers and late writers may reach it while the process exits.
  static Preferences* instance = new Preferences();
  return *instance;
}

Preferences::Preferences() = default;

Preferences::Preferences(std::filesystem::path storePath) : storePath_(std::move(storePath)) {}

Preferences::~Preferences() = default;

std::filesystem::path Preferences::storePath() const {
  return storePath_ ? *storePath_ : UserDefaults::standardStorePath(Host::current());
}

UserDefaults Preferences::defaults() const { return UserDefaults(storePath(), &logProblem); }

namespace {

// Stores through `write` and reports a failure instead of throwing: a setting that cannot be
// saved must not take the interface down with it.
void saving(const char* key, const std::function<void()>& write) {
  try {
    write();
  } catch (const std::exception& error) {
    log::error(std::string("Preferences: Cannot save ") + key + ": " + error.what());
  }
}

}  // namespace

bool Preferences::notificationsEnabled() const {
  return booleanOf(defaults().object(Keys::notificationsEnabled)).value_or(true);
}

void Preferences::setNotificationsEnabled(bool enabled) {
  saving(Keys::notificationsEnabled, [&] { defaults().setBool(Keys::notificationsEnabled, enabled); });
  notifyObservers(Keys::notificationsEnabled);
}

Preferences::Period Preferences::notificationsPeriod() const {
  auto raw = integerOf(defaults().object(Keys::notificationsPeriod), true);
  if (!raw || *raw < 0 || *raw > 3) return Period::everyMonth;
  return static_cast<Period>(*raw);
}

void Preferences::setNotificationsPeriod(Period period) {
  saving(Keys::notificationsPeriod,
         [&] { defaults().setInteger(Keys::notificationsPeriod, static_cast<int64_t>(period)); });
  notifyObservers(Keys::notificationsPeriod);
}

bool Preferences::dryRunEnabled() const { return booleanOf(defaults().object(Keys::dryRunEnabled)).value_or(false); }

void Preferences::setDryRunEnabled(bool enabled) {
  saving(Keys::dryRunEnabled, [&] { defaults().setBool(Keys::dryRunEnabled, enabled); });
  notifyObservers(Keys::dryRunEnabled);
}

std::optional<bool> Preferences::automaticUpdateChecks() const {
  return booleanOf(defaults().object(Keys::automaticUpdateChecks));
}

void Preferences::setAutomaticUpdateChecks(bool enabled) {
  saving(Keys::automaticUpdateChecks, [&] { defaults().setBool(Keys::automaticUpdateChecks, enabled); });
  notifyObservers(Keys::automaticUpdateChecks);
}

int64_t Preferences::launchCount() const { return std::max<int64_t>(0, totalOf(defaults().object(Keys::launchCount))); }

void Preferences::setLaunchCount(int64_t count) {
  saving(Keys::launchCount, [&] { defaults().setInteger(Keys::launchCount, count); });
  notifyObservers(Keys::launchCount);
}

int64_t Preferences::totalBytesCleaned() const { return totalOf(defaults().object(Keys::totalBytesCleaned)); }

void Preferences::setTotalBytesCleaned(int64_t bytes) {
  saving(Keys::totalBytesCleaned, [&] { defaults().setInteger(Keys::totalBytesCleaned, bytes); });
  notifyObservers(Keys::totalBytesCleaned);
}

Preferences::TotalUpdate Preferences::addToTotalBytesCleaned(int64_t bytes) {
  TotalUpdate update;
  std::optional<int64_t> total;
  try {
    defaults().update([&](UserDefaults::Editor& editor) {
      const int64_t stored = totalOf(editor.object(Keys::totalBytesCleaned));
      int64_t sum = 0;
      update.saturated = __builtin_add_overflow(stored, bytes, &sum);
      if (update.saturated) sum = bytes < 0 ? INT64_MIN : INT64_MAX;
      editor.setInteger(Keys::totalBytesCleaned, sum);
      total = sum;
    });
  } catch (const std::exception& error) {
    update.saveFailure = error.what();
    log::error(std::string("Preferences: Cannot save ") + Keys::totalBytesCleaned + ": " + error.what());
  }
  if (update.saturated && !update.saveFailure) {
    log::warning("Preferences: The lifetime total of bytes cleaned cannot grow by " + std::to_string(bytes) +
                 " past a signed 64-bit count; it stays at " + std::to_string(*total));
  }
  notifyObservers(Keys::totalBytesCleaned);
  update.total = total ? *total : totalBytesCleaned();
  return update;
}

std::optional<std::filesystem::path> Preferences::customArchivesFolder() const {
  return folderOf(defaults().object(Keys::customArchivesFolder));
}

void Preferences::setCustomArchivesFolder(std::optional<std::filesystem::path> folder) {
  saving(Keys::customArchivesFolder, [&] { defaults().setURL(Keys::customArchivesFolder, folder); });
  notifyObservers(Keys::customArchivesFolder);
}

std::optional<std::filesystem::path> Preferences::customDerivedDataFolder() const {
  return folderOf(defaults().object(Keys::customDerivedDataFolder));
}

void Preferences::setCustomDerivedDataFolder(std::optional<std::filesystem::path> folder) {
  saving(Keys::customDerivedDataFolder, [&] { defaults().setURL(Keys::customDerivedDataFolder, folder); });
  notifyObservers(Keys::customDerivedDataFolder);
}

std::filesystem::path Preferences::appFolder() const {
  if (auto folder = folderOf(defaults().object(Keys::appFolder))) return *folder;
  return Host::current().bundle;
}

void Preferences::setAppFolder(std::optional<std::filesystem::path> folder) {
  saving(Keys::appFolder, [&] { defaults().setURL(Keys::appFolder, folder); });
  notifyObservers(Keys::appFolder);
}

std::optional<std::vector<uint8_t>> Preferences::data(const std::string& key) const {
  auto value = defaults().object(key);
  if (!value) return std::nullopt;
  if (auto bytes = std::get_if<UserDefaults::Data>(&*value)) return *bytes;
  return std::nullopt;
}

void Preferences::setData(const std::string& key, const std::vector<uint8_t>& data) {
  saving(key.c_str(), [&] { defaults().setData(key, data); });
  notifyObservers(key);
}

void Preferences::removeObject(const std::string& key) {
  saving(key.c_str(), [&] { defaults().removeObject(key); });
  notifyObservers(key);
}

void Preferences::addObserver(const std::shared_ptr<PreferencesObserver>& observer) {
  Weak<PreferencesObserver> box(observer);
  std::lock_guard lock(observersMutex_);
  if (std::find(observers_.begin(), observers_.end(), box) == observers_.end()) observers_.push_back(std::move(box));
}

void Preferences::removeObserver(const std::shared_ptr<PreferencesObserver>& observer) {
  Weak<PreferencesObserver> box(observer);
  std::lock_guard lock(observersMutex_);
  std::erase(observers_, box);
}

void Preferences::notifyObservers(const std::string& key) {
  // Observers run without the lock held, so one may add or remove observers while notified.
  for (const auto& box : observers()) {
    if (auto observer = box.lock()) observer->preferenceDidChange(key);
  }
}

std::vector<Weak<PreferencesObserver>> Preferences::observers() const {
  std::lock_guard lock(observersMutex_);
  return observers_;
}

std::optional<std::vector<uint8_t>> Preferences::folderBookmark(const std::filesystem::path& folder) const {
  return data(bookmarkKey(folder));
}

void Preferences::setFolderBookmark(const std::filesystem::path& folder, const std::vector<uint8_t>& bookmark) {
  setData(bookmarkKey(folder), bookmark);
}

void Preferences::removeFolderBookmark(const std::filesystem::path& folder) { removeObject(bookmarkKey(folder)); }

std::string Preferences::bookmarkKey(const std::filesystem::path& folder) {
  // A folder's path has no trailing separator ("/Users/me/Developer/" names the same folder as
  // "/Users/me/Developer"); the root keeps its only one.
  std::string path = folder.string();
  while (path.size() > 1 && path.back() == '/') path.pop_back();

  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (EVP_Digest(path.data(), path.size(), digest, &length, EVP_sha256(), nullptr) != 1 || length != 32) {
    throw Error("Preferences: Cannot compute the SHA-256 digest of " + path);
  }
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string key = Keys::folderBookmarkPrefix;
  for (unsigned int i = 0; i < length; ++i) {
    key += kHex[digest[i] >> 4];
    key += kHex[digest[i] & 0x0F];
  }
  return key;
}

}  // namespace tw
