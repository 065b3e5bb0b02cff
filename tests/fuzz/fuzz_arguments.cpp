// The command line as the text-mode driver reads it: arguments separated by NUL bytes, parsed
// with the driver's options, and the value of "clean" read as a list of locations.
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "cli/ArgumentsParser.h"
#include "cli/CmdLine.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tw::fuzz::quietLogger();
  std::vector<std::string> arguments{"tidewell"};
  std::string_view input = tw::fuzz::text(data, size);
  for (size_t start = 0; start <= input.size();) {
    size_t end = input.find('\0', start);
    if (end == std::string_view::npos) end = input.size();
    arguments.emplace_back(input.substr(start, end - start));
    start = end + 1;
  }
  tw::ArgumentsParser parser("tidewell", "Reclaims storage");
  parser.addOption("info", "Show all items available to clean.");
  parser.addOptionWithValue("clean", "Perform cleaning of given items.", std::vector<std::string>{"all", "archives"});
  parser.addOption("--help", "Prints this message");
  try {
    for (const auto& option : parser.parse(arguments)) {
      if (auto withValue = option.withValue(); withValue && withValue->value)
        tw::CmdLine::parseLocations(*withValue->value);
    }
    parser.usageText();
  } catch (const tw::ArgumentsParser::Error&) {
  } catch (const tw::CmdLine::Error&) {
  }
  // Every argument on its own as a "clean" value, as a user might type it.
  for (size_t i = 1; i < arguments.size(); ++i) {
    try {
      tw::CmdLine::parseLocations(arguments[i]);
    } catch (const tw::CmdLine::Error&) {
    }
  }
  return 0;
}
