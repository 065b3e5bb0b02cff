// The text-mode front end: prints the version banner, parses "info", "clean <locations>"
// and "--help", then lists every cleanable item with its size or deletes the named
// locations. Everything it prints, errors included, goes to standard output; it ends the
// process itself for help, usage and errors.
#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Error.h"
#include "scan/DevFiles.h"

namespace tw {

class CmdLine : public DevFilesDeleteDelegate, public std::enable_shared_from_this<CmdLine> {
 public:
  enum class Mode { clean, info };

  class Error : public tw::Error {
   public:
    enum class Kind {
      wrongOption,         // a piece of the "clean" value that names no location; option() is the trimmed piece
      conflictingOptions,  // more than one option given
    };
    Error(Kind kind, std::string option);
    Kind kind() const { return kind_; }
    const std::string& option() const { return option_; }

   private:
    Kind kind_;
    std::string option_;
  };

  // The instance start-up runs; it is also the delete delegate of the scan driver it creates.
  static const std::shared_ptr<CmdLine>& shared();

  // Prints to `out` (standard output for the shared instance). Held by a shared pointer: the
  // scan driver keeps its delete delegate weakly.
  explicit CmdLine(std::ostream& out);

  // Full argument list, program path first. Returns the process's exit status: 0 after
  // "info", "clean", help and usage, 1 after an error.
  int start(const std::vector<std::string>& arguments);

  void printBanner();
  // Every location for "all" (any case, surrounding white space); otherwise the comma-separated
  // names in the given order, empty pieces dropped. Throws Error::wrongOption.
  static std::vector<DevFiles::Location> parseLocations(std::string_view value);
  void run(Mode mode, const std::vector<DevFiles::Location>& locations);
  // The location entries, largest label first (code points after canonical normalisation).
  void printInfo(const std::vector<CleanupEntryPtr>& entries);
  void printEntry(const CleanupEntry& entry, size_t depth);
  void clean(DevFiles& devFiles, const std::vector<DevFiles::Location>& locations);
  // Prints the error (and where the log is) and ends the command with status 1.
  [[noreturn]] void fail(const std::string& message);

  void deleteStarted(DevFiles& devFiles) override;
  void deletingItem(DevFiles& devFiles, const std::string& locationLabel, const std::string& itemDescription,
                    const std::optional<std::filesystem::path>& url, size_t index, size_t count) override;
  void deleteFailed(DevFiles& devFiles, const std::exception& error, const std::string& locationLabel,
                    const std::string& itemDescription, const std::optional<std::filesystem::path>& url) override;
  void deleteFinished(DevFiles& devFiles) override;

 private:
  // What ends a command early; start() turns it into its return value.
  struct Exit {
    int status;
  };

  void runCommand(const std::vector<std::string>& arguments);
  void line(std::string_view text = {});
  [[noreturn]] void exitProcess(int status);
  // Bundle information is part of the build: without it the program is broken, not the input.
  [[noreturn]] void fatal(std::string_view message);

  std::ostream& out_;
};

}  // namespace tw
