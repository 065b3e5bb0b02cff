// E-mails to the product's support address, composed in the user's own mail program: a plain
// feedback message and an issue report with a block of system facts and the two log files
// attached. On Linux the mail program is reached through xdg-email (the handler registered for
// mailto links); without one the user is told the address instead.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/Host.h"

namespace tw {

class Logger;

// The informational alert of the interface (message, informative text, one button); tests answer it.
class FeedbackAlerts {
 public:
  virtual ~FeedbackAlerts() = default;
  virtual void showInformational(const std::string& message, const std::string& informativeText,
                                 const std::string& button) = 0;
};

class FeedbackMailer {
 public:
  struct ToolResult {
    int status = -1;  // -1: the tool could not run
    std::string output;
  };
  // Runs a tool at an absolute system path of the host.
  using ToolRunner = std::function<ToolResult(const std::string& absolutePath, const std::vector<std::string>&)>;
  // Runs the hand-over to the mail program, which may not return before the program is closed.
  using Launcher = std::function<void(std::function<void()>)>;

  static constexpr const char* kFeedbackSubject = "Tidewell Feedback";
  static constexpr const char* kIssueReportSubject = "Tidewell Issue Report";
  static constexpr const char* kIssueReportBody =
      "Write your report here\n\n=================================================\n\n";

  // With no runner the host's tools run through Shell::run; with no launcher the hand-over runs
  // on a thread of its own.
  FeedbackMailer(Host host, FeedbackAlerts& alerts, ToolRunner runTool = {}, Launcher launch = {});

  // The support address, decoded from its stored base64 form; absent when that fails.
  static std::optional<std::string> supportAddress();
  static std::optional<std::string> decodeBase64(const std::string& text);

  void composeMessage(const std::string& subject, const std::string& body,
                      const std::vector<std::filesystem::path>& attachments);
  // "Tidewell Feedback", no body, no attachments.
  void sendFeedback();
  // "Tidewell Issue Report" with the system report and the main logger's current and previous log.
  void reportAnIssue();
  // The same with the log files of `logger`.
  void reportAnIssue(const Logger& logger);

  std::string systemReport() const;

  // "<PRETTY_NAME>" (with VERSION when the pretty name lacks it) from the host's os-release.
  std::string operatingSystem() const;
  // The firmware's product name, trimmed; "-" when unreadable.
  std::string machineModel() const;

 private:
  bool canSendMail();

  Host host_;
  FeedbackAlerts& alerts_;
  ToolRunner runTool_;
  Launcher launch_;
};

}  // namespace tw
