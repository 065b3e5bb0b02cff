// A small parser for the command line of the text-mode tool: the driver registers plain
// options and options that take one value, hands over the whole argument list and gets back
// the options that were given, in command-line order. It checks only the shape of the
// command line; which values an option accepts is the caller's business.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/Error.h"

namespace tw {

// A plain option ("info", "--help"): `enabled` is false when registered, true in a parse result.
struct Option {
  std::string name;
  std::string description;
  bool enabled = false;

  bool isSet() const { return enabled; }
};

// An option that takes the following token as its value ("clean derived-data").
struct OptionWithValue {
  std::string name;
  std::string description;
  // Only used to render the usage text.
  std::optional<std::vector<std::string>> possibleValues;
  // Absent when registered; the token that followed the option in a parse result.
  std::optional<std::string> value;

  bool isSet() const { return value.has_value(); }
};

// Either kind of option, as registered or as parsed.
class CommandLineOption {
 public:
  CommandLineOption(Option option) : option_(std::move(option)) {}
  CommandLineOption(OptionWithValue option) : option_(std::move(option)) {}

  const std::string& name() const;
  const std::string& description() const;
  bool isSet() const;

  // The option as its own kind; null when it is of the other kind.
  const Option* plain() const { return std::get_if<Option>(&option_); }
  const OptionWithValue* withValue() const { return std::get_if<OptionWithValue>(&option_); }

 private:
  std::variant<Option, OptionWithValue> option_;
};

class ArgumentsParser {
 public:
  class Error : public tw::Error {
   public:
    enum class Kind {
      wrongArgument,          // a token that selects no registered option; argument() is the token
      noValue,                // an option with value was the last token; argument() is its name
      insufficientArguments,  // nothing but the program path
    };
    Error(Kind kind, std::string argument);
    Kind kind() const { return kind_; }
    const std::string& argument() const { return argument_; }

   private:
    Kind kind_;
    std::string argument_;
  };

  // Without a tool name the name of the running program is shown in the usage line.
  explicit ArgumentsParser(std::optional<std::string> toolName, std::string description);

  const std::string& toolName() const { return toolName_; }
  const std::string& description() const { return description_; }
  const std::vector<CommandLineOption>& options() const { return options_; }

  void addOption(std::string name, std::string description);
  void addOptionWithValue(std::string name, std::string description,
                          std::optional<std::vector<std::string>> possibleValues);

  // `arguments` as the process received them, program path first. Returns copies of the
  // options given, in the order they appear; the registered options never change, so one
  // parser may parse any number of times. Throws ArgumentsParser::Error.
  std::vector<CommandLineOption> parse(const std::vector<std::string>& arguments) const;

  std::string usageText() const;
  // Writes usageText() to standard output.
  void printUsage() const;
  void printUsage(std::ostream& out) const;

 private:
  std::string toolName_;
  std::string description_;
  std::vector<CommandLineOption> options_;
};

}  // namespace tw
