#include "cli/ArgumentsParser.h"

#include <algorithm>
#include <iostream>

#include "platform/Host.h"

namespace tw {
namespace {

std::string describe(ArgumentsParser::Error::Kind kind, const std::string& argument) {
  switch (kind) {
    case ArgumentsParser::Error::Kind::wrongArgument:
      return "Unrecognized argument: " + argument;
    case ArgumentsParser::Error::Kind::noValue:
      return "Expected value for option: " + argument;
    case ArgumentsParser::Error::Kind::insufficientArguments:
      return "Insufficient arguments";
  }
  return "Invalid arguments";
}

}  // namespace

const std::string& CommandLineOption::name() const {
  return std::visit([](const auto& option) -> const std::string& { return option.name; }, option_);
}

const std::string& CommandLineOption::description() const {
  return std::visit([](const auto& option) -> const std::string& { return option.description; }, option_);
}

bool CommandLineOption::isSet() const {
  return std::visit([](const auto& option) { return option.isSet(); }, option_);
}

ArgumentsParser::Error::Error(Kind kind, std::string argument)
    : tw::Error(describe(kind, argument)), kind_(kind), argument_(std::move(argument)) {}

ArgumentsParser::ArgumentsParser(std::optional<std::string> toolName, std::string description)
    : toolName_(toolName ? std::move(*toolName) : executablePath().filename().string()),
      description_(std::move(description)) {}

void ArgumentsParser::addOption(std::string name, std::string description) {
  options_.emplace_back(Option{std::move(name), std::move(description), false});
}

void ArgumentsParser::addOptionWithValue(std::string name, std::string description,
                                         std::optional<std::vector<std::string>> possibleValues) {
  options_.emplace_back(OptionWithValue{std::move(name), std::move(description), std::move(possibleValues), {}});
}

std::vector<CommandLineOption> ArgumentsParser::parse(const std::vector<std::string>& arguments) const {
  if (options_.empty()) return {};
  if (arguments.size() == 1) throw Error(Error::Kind::insufficientArguments, {});

  std::vector<CommandLineOption> given;
  auto alreadyGiven = [&given](const std::string& name) {
    return std::any_of(given.begin(), given.end(), [&](const CommandLineOption& o) { return o.name() == name; });
  };

  size_t index = 1;
  while (index < arguments.size()) {
    const std::string& token = arguments[index];
    // Whole-token, case-sensitive match; an option already given does not match again, so a
    // repeated option fails with its own token.
    auto registered = std::find_if(options_.begin(), options_.end(), [&](const CommandLineOption& option) {
      return option.name() == token && !alreadyGiven(option.name());
    });
    if (registered == options_.end()) throw Error(Error::Kind::wrongArgument, token);

    if (const Option* plain = registered->plain()) {
      Option copy = *plain;
      copy.enabled = true;
      given.emplace_back(std::move(copy));
      index += 1;
      continue;
    }
    const OptionWithValue& withValue = *registered->withValue();
    index += 1;
    if (index == arguments.size()) throw Error(Error::Kind::noValue, withValue.name);
    OptionWithValue copy = withValue;
    // Taken verbatim: validating values is the caller's business, and a value may look like an option.
    copy.value = arguments[index];
    given.emplace_back(std::move(copy));
    index += 1;
  }
  return given;
}

std::string ArgumentsParser::usageText() const {
  std::string text;
  text += "OVERVIEW: " + description_ + "\n\n";
  text += "USAGE: " + toolName_ + " <command> [options]\n\n";
  text += "OPTIONS:\n\n";
  for (const auto& option : options_) {
    text += " " + option.name();
    if (const OptionWithValue* withValue = option.withValue()) {
      text += " ";
      if (withValue->possibleValues) {
        text += "<";
        for (size_t i = 0; i < withValue->possibleValues->size(); ++i) {
          if (i > 0) text += ",";
          text += (*withValue->possibleValues)[i];
        }
        text += ">";
      } else {
        text += "<value>";
      }
    }
    text += "\n\t" + option.description() + "\n";
  }
  return text;
}

void ArgumentsParser::printUsage() const { printUsage(std::cout); }

void ArgumentsParser::printUsage(std::ostream& out) const {
  out << usageText();
  out.flush();
}

}  // namespace tw
