// The per-user key-value store that the settings live in: one property list (XML or binary on
// read, XML on write) whose root is a dictionary, at <config>/tidewell/<bundle id>.plist.
//
// Several processes (the windowed application and any number of command-line runs) share the
// file, so every change is a read-modify-write under an exclusive advisory lock on a lock file
// beside the store, and the new contents replace the old file by an atomic rename after being
// synced to disk. Readers take no lock: they always see one complete version of the file.
//
// A file that cannot be read or parsed, or whose root is not a dictionary, reads as empty and is
// renamed aside ("<name>.corrupt-<UTC time stamp>") so that the user's data is never silently
// overwritten; the store tells its problem handler once per such file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace tw {

struct Host;

class UserDefaults {
 public:
  using Data = std::vector<uint8_t>;
  // Dates, arrays, dictionaries and other kinds the settings never use: kept in the file
  // untouched, but no setting reads them.
  struct OtherValue {
    friend bool operator==(const OtherValue&, const OtherValue&) = default;
  };
  // Property-list integers are read as signed 64-bit numbers; an unsigned one beyond that range
  // (which other tools may write) keeps its value as a uint64_t instead of turning negative.
  using Value = std::variant<bool, int64_t, double, std::string, Data, OtherValue, uint64_t>;

  // What went wrong with the store, for the owner to log: `message` is a whole sentence.
  struct Problem {
    // setAside: a bad file was renamed aside; unreadable: a bad file could not even be moved.
    enum class Kind { setAside, unreadable } kind;
    std::string message;
  };
  using ProblemHandler = std::function<void(const Problem&)>;

  // Changes to the dictionary, applied while the exclusive lock is held.
  class Editor {
   public:
    std::optional<Value> object(const std::string& key) const;
    void setBool(const std::string& key, bool value);
    void setInteger(const std::string& key, int64_t value);
    void setString(const std::string& key, const std::string& value);
    void setData(const std::string& key, const Data& value);
    void removeObject(const std::string& key);

   private:
    friend class UserDefaults;
    explicit Editor(void* dictionary) : dictionary_(dictionary) {}
    void* dictionary_;  // plist_t of the root dictionary
  };

  explicit UserDefaults(std::filesystem::path storePath, ProblemHandler problemHandler = {});

  // <configDirectory>/tidewell/<bundle identifier>.plist
  static std::filesystem::path standardStorePath(const Host& host);

  const std::filesystem::path& storePath() const { return storePath_; }
  std::filesystem::path lockPath() const;

  // Absent when nothing is stored under the key (or the store is missing or unusable).
  std::optional<Value> object(const std::string& key) const;
  // Every key now stored, sorted.
  std::vector<std::string> keys() const;

  // Each write is one locked read-modify-write. It throws tw::Error when the store cannot be
  // written; the file is then left as it was.
  void setBool(const std::string& key, bool value);
  void setInteger(const std::string& key, int64_t value);
  void setString(const std::string& key, const std::string& value);
  void setData(const std::string& key, const Data& value);
  // A file URL is kept as its absolute path string; an absent (or empty) URL removes the value.
  void setURL(const std::string& key, const std::optional<std::filesystem::path>& fileURL);
  void removeObject(const std::string& key);
  // Runs `change` on the freshest contents under the exclusive lock and saves the result, so
  // that changes made at the same moment by other processes or threads are never lost. Nothing
  // is written when `change` throws.
  void update(const std::function<void(Editor&)>& change);

 private:
  std::filesystem::path storePath_;
  ProblemHandler problemHandler_;
};

}  // namespace tw
