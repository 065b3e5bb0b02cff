#include "platform/UserDefaults.h"

#include <dirent.h>
#include <fcntl.h>
#include <plist/plist.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <set>
#include <string_view>
#include <vector>

#include "platform/Error.h"
#include "platform/FileIdentity.h"
#include "platform/Host.h"
#include "platform/PropertyList.h"

namespace tw {
namespace {

// A settings file is a few kilobytes; anything far larger is not ours and is not read into memory.
constexpr off_t kLargestStore = 4 * 1024 * 1024;

struct PlistDeleter {
  void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd = -1) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }

 private:
  int fd_;
};

std::string errnoText(int code) { return std::strerror(code); }

[[noreturn]] void throwFileError(const std::string& what, const std::filesystem::path& path, int code) {
  throw FileSystemError(what + " " + path.string() + ": " + errnoText(code), code, path);
}

// Which file, in which state, a problem was seen on, so that a bad file that cannot be moved is
// reported once and not on every read; a rewrite of the same file is reported again.
struct FileVersion {
  FileIdentity file;
  int64_t size = 0;
  int64_t modifiedSeconds = 0;
  int64_t modifiedNanoseconds = 0;
  friend auto operator<=>(const FileVersion&, const FileVersion&) = default;
};

std::mutex& reportedMutex() {
  static std::mutex mutex;
  return mutex;
}

std::set<std::pair<std::string, FileVersion>>& reportedFiles() {
  static std::set<std::pair<std::string, FileVersion>> files;
  return files;
}

FileVersion identityOf(const struct stat& status) {
  return {FileIdentity::of(status), static_cast<int64_t>(status.st_size), static_cast<int64_t>(status.st_mtim.tv_sec),
          static_cast<int64_t>(status.st_mtim.tv_nsec)};
}

// The store as found on disk.
struct Loaded {
  enum class State { missing, good, bad } state = State::missing;
  PlistPtr dictionary;      // set when good
  std::string reason;       // why the file is bad
  FileVersion identity{};   // of the file that was read
};

Loaded load(const std::filesystem::path& path) {
  Loaded result;
  FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!fd) {
    int code = errno;
    if (code == ENOENT || code == ENOTDIR) return result;  // nothing stored yet
    result.state = Loaded::State::bad;
    struct stat status {};
    if (::lstat(path.c_str(), &status) == 0) result.identity = identityOf(status);
    result.reason = "it cannot be opened: " + errnoText(code);
    return result;
  }
  struct stat status {};
  result.state = Loaded::State::bad;
  if (::fstat(fd.get(), &status) != 0) {
    result.reason = "it cannot be examined: " + errnoText(errno);
    return result;
  }
  result.identity = identityOf(status);
  if (!S_ISREG(status.st_mode)) {
    result.reason = "it is not a regular file";
    return result;
  }
  if (status.st_size > kLargestStore) {
    result.reason = "it is " + std::to_string(status.st_size) + " bytes long, far too large for settings";
    return result;
  }
  std::string bytes;
  bytes.resize(static_cast<size_t>(status.st_size));
  size_t filled = 0;
  while (true) {
    if (filled == bytes.size()) bytes.resize(bytes.size() + 4096);
    ssize_t count = ::read(fd.get(), bytes.data() + filled, bytes.size() - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      result.reason = "it cannot be read: " + errnoText(errno);
      return result;
    }
    if (count == 0) break;
    filled += static_cast<size_t>(count);
    if (filled > static_cast<size_t>(kLargestStore)) {
      result.reason = "it is far too large for settings";
      return result;
    }
  }
  bytes.resize(filled);
  if (bytes.empty()) {
    result.reason = "it is empty";
    return result;
  }
  PlistPtr owned;
  try {
    owned.reset(PropertyList::parse(bytes, path).release());
  } catch (const PropertyListError& error) {
    result.reason = error.detail();
    return result;
  }
  if (plist_get_node_type(static_cast<plist_t>(owned.get())) != PLIST_DICT) {
    result.reason = "its root is not a dictionary";
    return result;
  }
  result.state = Loaded::State::good;
  result.dictionary = std::move(owned);
  return result;
}

std::string utcTimeStamp() {
  std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &parts);
  return text;
}

// The nearest free "<name>.corrupt-<stamp>[-n]" beside the store.
std::filesystem::path asidePath(const std::filesystem::path& store) {
  std::string base = store.filename().string() + ".corrupt-" + utcTimeStamp();
  auto candidate = store.parent_path() / base;
  struct stat status {};
  for (int n = 2; ::lstat(candidate.c_str(), &status) == 0; ++n) {
    candidate = store.parent_path() / (base + "-" + std::to_string(n));
  }
  return candidate;
}

void syncDirectory(const std::filesystem::path& directory) {
  FileDescriptor fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd) ::fsync(fd.get());
}

// libplist keeps whether an integer above 2^63 - 1 was written unsigned, but only shows it
// when it writes the number out: "-1" and "18446744073709551615" have the same bits.
bool storedAsUnsigned(plist_t node) {
  char* xml = nullptr;
  uint32_t length = 0;
  plist_to_xml(node, &xml, &length);
  if (!xml) return false;
  std::string_view text(xml, length);
  size_t number = text.find("<integer>");
  bool isUnsigned = number != std::string_view::npos && number + 9 < text.size() && text[number + 9] != '-';
  std::free(xml);
  return isUnsigned;
}

std::optional<UserDefaults::Value> valueOf(plist_t node) {
  if (!node) return std::nullopt;
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      uint8_t value = 0;
      plist_get_bool_val(node, &value);
      return UserDefaults::Value(value != 0);
    }
    case PLIST_UINT: {
      // Property lists keep signed integers; the unsigned accessor hands back their bits.
      uint64_t value = 0;
      plist_get_uint_val(node, &value);
      if (value > static_cast<uint64_t>(INT64_MAX) && storedAsUnsigned(node)) return UserDefaults::Value(value);
      return UserDefaults::Value(static_cast<int64_t>(value));
    }
    case PLIST_REAL: {
      double value = 0;
      plist_get_real_val(node, &value);
      return UserDefaults::Value(value);
    }
    case PLIST_STRING: {
      uint64_t length = 0;
      const char* value = plist_get_string_ptr(node, &length);
      return UserDefaults::Value(value ? std::string(value, length) : std::string());
    }
    case PLIST_DATA: {
      char* value = nullptr;
      uint64_t length = 0;
      plist_get_data_val(node, &value, &length);
      UserDefaults::Data bytes(reinterpret_cast<uint8_t*>(value), reinterpret_cast<uint8_t*>(value) + length);
      std::free(value);
      return UserDefaults::Value(std::move(bytes));
    }
    default:
      return UserDefaults::Value(UserDefaults::OtherValue{});
  }
}

class ExclusiveLock {
 public:
  explicit ExclusiveLock(const std::filesystem::path& lockPath)
      : fd_(::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600)) {
    if (!fd_) throwFileError("Cannot open the settings lock file", lockPath, errno);
    while (::flock(fd_.get(), LOCK_EX) != 0) {
      if (errno != EINTR) throwFileError("Cannot lock the settings lock file", lockPath, errno);
    }
  }
  // Closing the descriptor releases the lock.

 private:
  FileDescriptor fd_;
};

}  // namespace

std::optional<UserDefaults::Value> UserDefaults::Editor::object(const std::string& key) const {
  return valueOf(plist_dict_get_item(static_cast<plist_t>(dictionary_), key.c_str()));
}

void UserDefaults::Editor::setBool(const std::string& key, bool value) {
  plist_dict_set_item(static_cast<plist_t>(dictionary_), key.c_str(), plist_new_bool(value ? 1 : 0));
}

void UserDefaults::Editor::setInteger(const std::string& key, int64_t value) {
  plist_dict_set_item(static_cast<plist_t>(dictionary_), key.c_str(), plist_new_uint(static_cast<uint64_t>(value)));
}

void UserDefaults::Editor::setString(const std::string& key, const std::string& value) {
  plist_dict_set_item(static_cast<plist_t>(dictionary_), key.c_str(), plist_new_string(value.c_str()));
}

void UserDefaults::Editor::setData(const std::string& key, const Data& value) {
  plist_dict_set_item(static_cast<plist_t>(dictionary_), key.c_str(),
                      plist_new_data(reinterpret_cast<const char*>(value.data()), value.size()));
}

void UserDefaults::Editor::removeObject(const std::string& key) {
  plist_dict_remove_item(static_cast<plist_t>(dictionary_), key.c_str());
}

UserDefaults::UserDefaults(std::filesystem::path storePath, ProblemHandler problemHandler)
    : storePath_(std::move(storePath)), problemHandler_(std::move(problemHandler)) {}

std::filesystem::path UserDefaults::standardStorePath(const Host& host) {
  return host.configDirectory / "tidewell" / (std::string(TIDEWELL_BUNDLE_IDENTIFIER) + ".plist");
}

std::filesystem::path UserDefaults::lockPath() const {
  auto path = storePath_;
  path += ".lock";
  return path;
}

namespace {

// Moves a bad store aside. Runs with the exclusive lock held and only on what it has just read
// under that lock, so it never moves a good file that another writer has put in place meanwhile.
// Returns false when the file is still in place.
bool setAside(const std::filesystem::path& store, const Loaded& bad, const UserDefaults::ProblemHandler& handler) {
  auto aside = asidePath(store);
  if (::rename(store.c_str(), aside.c_str()) == 0) {
    syncDirectory(store.parent_path());
    if (handler) {
      handler({UserDefaults::Problem::Kind::setAside, "The settings file " + store.string() + " is unusable (" +
                                                          bad.reason + "); it was moved to " + aside.string() +
                                                          " and the default settings apply"});
    }
    return true;
  }
  int code = errno;
  if (code == ENOENT) return true;  // nothing left to protect
  {
    std::lock_guard lock(reportedMutex());
    if (!reportedFiles().insert({store.string(), bad.identity}).second) return false;
  }
  if (handler) {
    handler({UserDefaults::Problem::Kind::unreadable, "The settings file " + store.string() + " is unusable (" +
                                                          bad.reason + ") and cannot be moved aside (" +
                                                          errnoText(code) + "); the default settings apply"});
  }
  return false;
}

// Removes the temporary files that writers of this store left behind when they were killed
// between creating and renaming them. Every writer holds a lock on its temporary file for as
// long as it lives, so one that can be locked belongs to nobody; and since this runs under
// the store's own lock, no writer of this store is between the two steps anyway. Only names
// of this store's pattern are touched, never another store's or anything but regular files.
void removeAbandonedTemporaries(const std::filesystem::path& directory, const std::string& prefix) {
  FileDescriptor directoryFd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directoryFd) return;
  int listingFd = ::fcntl(directoryFd.get(), F_DUPFD_CLOEXEC, 0);
  if (listingFd < 0) return;
  DIR* listing = ::fdopendir(listingFd);
  if (!listing) {
    ::close(listingFd);
    return;
  }
  std::vector<std::string> candidates;
  constexpr size_t kUniqueSuffix = 6;  // the XXXXXX of mkostemp
  while (dirent* entry = ::readdir(listing)) {
    std::string_view name = entry->d_name;
    if (name.size() == prefix.size() + kUniqueSuffix && name.compare(0, prefix.size(), prefix) == 0) {
      candidates.emplace_back(name);
    }
  }
  ::closedir(listing);
  for (const auto& name : candidates) {
    FileDescriptor file(::openat(directoryFd.get(), name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat opened {};
    if (!file || ::fstat(file.get(), &opened) != 0 || !S_ISREG(opened.st_mode)) continue;
    if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) continue;  // a live writer's
    struct stat named {};
    if (::fstatat(directoryFd.get(), name.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0 || named.st_dev != opened.st_dev ||
        named.st_ino != opened.st_ino) {
      continue;  // replaced meanwhile: not the file that was checked
    }
    ::unlinkat(directoryFd.get(), name.c_str(), 0);
  }
}

}  // namespace

std::optional<UserDefaults::Value> UserDefaults::object(const std::string& key) const {
  Loaded loaded = load(storePath_);
  if (loaded.state == Loaded::State::bad) {
    {
      std::lock_guard lock(reportedMutex());
      if (reportedFiles().count({storePath_.string(), loaded.identity})) return std::nullopt;
    }
    try {
      ExclusiveLock lock(lockPath());
      Loaded again = load(storePath_);
      if (again.state == Loaded::State::bad) setAside(storePath_, again, problemHandler_);
      loaded = std::move(again);
    } catch (const Error& error) {
      // The folder is not writable, so the file cannot be moved either; say so once.
      std::lock_guard lock(reportedMutex());
      if (reportedFiles().insert({storePath_.string(), loaded.identity}).second && problemHandler_) {
        problemHandler_({Problem::Kind::unreadable, "The settings file " + storePath_.string() + " is unusable (" +
                                                        loaded.reason + ") and cannot be moved aside (" + error.what() +
                                                        "); the default settings apply"});
      }
    }
  }
  if (loaded.state != Loaded::State::good) return std::nullopt;
  return valueOf(plist_dict_get_item(static_cast<plist_t>(loaded.dictionary.get()), key.c_str()));
}

std::vector<std::string> UserDefaults::keys() const {
  std::vector<std::string> result;
  Loaded loaded = load(storePath_);
  if (loaded.state != Loaded::State::good) return result;
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(static_cast<plist_t>(loaded.dictionary.get()), &iterator);
  while (true) {
    char* key = nullptr;
    plist_t item = nullptr;
    plist_dict_next_item(static_cast<plist_t>(loaded.dictionary.get()), iterator, &key, &item);
    if (!key) break;
    result.emplace_back(key);
    std::free(key);
  }
  std::free(iterator);
  std::sort(result.begin(), result.end());
  return result;
}

void UserDefaults::update(const std::function<void(Editor&)>& change) {
  auto directory = storePath_.parent_path();
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  if (error) throwFileError("Cannot create the settings folder", directory, error.value());

  ExclusiveLock lock(lockPath());
  Loaded loaded = load(storePath_);
  if (loaded.state == Loaded::State::bad && !setAside(storePath_, loaded, problemHandler_)) {
    throw Error("The settings file " + storePath_.string() + " is unusable (" + loaded.reason +
                ") and cannot be moved aside, so it is not replaced");
  }
  PlistPtr dictionary = loaded.state == Loaded::State::good ? std::move(loaded.dictionary) : PlistPtr(plist_new_dict());

  Editor editor(dictionary.get());
  change(editor);

  char* xml = nullptr;
  uint32_t length = 0;
  plist_to_xml(static_cast<plist_t>(dictionary.get()), &xml, &length);
  if (!xml) throw Error("Cannot encode the settings as a property list");
  std::unique_ptr<char, decltype(&std::free)> ownedXml(xml, &std::free);

  // A store that is a symbolic link (settings kept in a dotfiles repository) stays one: the
  // new contents replace the file it points to.
  auto target = storePath_;
  struct stat linkStatus {};
  if (::lstat(storePath_.c_str(), &linkStatus) == 0 && S_ISLNK(linkStatus.st_mode)) {
    std::error_code resolveError;
    auto resolved = std::filesystem::weakly_canonical(storePath_, resolveError);
    if (!resolveError) target = resolved;
  }
  auto targetDirectory = target.parent_path();
  const std::string temporaryPrefix = "." + target.filename().string() + ".tmp-";
  removeAbandonedTemporaries(targetDirectory, temporaryPrefix);
  std::string temporary = (targetDirectory / (temporaryPrefix + "XXXXXX")).string();
  FileDescriptor fd(::mkostemp(temporary.data(), O_CLOEXEC));
  if (!fd) throwFileError("Cannot create a temporary settings file in", targetDirectory, errno);
  // Held until the descriptor closes: it tells any later writer that this file is in use.
  ::flock(fd.get(), LOCK_EX | LOCK_NB);
  auto fail = [&](const std::string& what, int code) {
    ::unlink(temporary.c_str());
    throwFileError(what, temporary, code);
  };
  struct stat previous {};
  if (::stat(target.c_str(), &previous) == 0 && S_ISREG(previous.st_mode)) {
    ::fchmod(fd.get(), previous.st_mode & 0777);  // keep the permissions the user chose
  }
  for (uint32_t written = 0; written < length;) {
    ssize_t count = ::write(fd.get(), xml + written, length - written);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail("Cannot write", errno);
    written += static_cast<uint32_t>(count);
  }
  if (::fsync(fd.get()) != 0) fail("Cannot sync", errno);
  if (::rename(temporary.c_str(), target.c_str()) != 0) fail("Cannot replace the settings file with", errno);
  syncDirectory(targetDirectory);
}

void UserDefaults::setBool(const std::string& key, bool value) {
  update([&](Editor& editor) { editor.setBool(key, value); });
}

void UserDefaults::setInteger(const std::string& key, int64_t value) {
  update([&](Editor& editor) { editor.setInteger(key, value); });
}

void UserDefaults::setString(const std::string& key, const std::string& value) {
  update([&](Editor& editor) { editor.setString(key, value); });
}

void UserDefaults::setData(const std::string& key, const Data& value) {
  update([&](Editor& editor) { editor.setData(key, value); });
}

void UserDefaults::setURL(const std::string& key, const std::optional<std::filesystem::path>& fileURL) {
  update([&](Editor& editor) {
    if (fileURL && !fileURL->empty()) {
      // A file URL names an absolute location and its path carries no trailing separator.
      std::error_code error;
      auto absolute = std::filesystem::absolute(*fileURL, error);
      std::string path = (error ? *fileURL : absolute).string();
      while (path.size() > 1 && path.back() == '/') path.pop_back();
      editor.setString(key, path);
    } else {
      editor.removeObject(key);
    }
  });
}

void UserDefaults::removeObject(const std::string& key) {
  update([&](Editor& editor) { editor.removeObject(key); });
}

}  // namespace tw
