// The program's log as every layer sees it: three levels, each line starting with its level
// mark. The application installs the sink (its main logger, with the log file); until then,
// and in programs without one, lines go to standard error.
#pragma once

#include <string_view>

namespace tw {

enum class LogLevel { info, warning, error };

namespace log {

void info(std::string_view message);
void warning(std::string_view message);
void error(std::string_view message);

// "❕", "⚠️" or "❌".
std::string_view mark(LogLevel level);

// Receives every line (without its mark); installed once at start-up.
using Sink = void (*)(LogLevel level, std::string_view message);
void setSink(Sink sink);

}  // namespace log
}  // namespace tw
