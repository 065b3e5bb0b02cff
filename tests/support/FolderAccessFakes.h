// Stand-ins for the window's part of a folder grant: the open panel and the alerts.
#pragma once

#include <deque>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/Logger.h"
#include "fs/Files.h"
#include "support/LogCapture.h"

namespace tw::test {

// Answers each open panel with the next scripted answer and records every panel and alert.
class FakeFolderAccessUI : public FolderAccessUI {
 public:
  struct Panel {
    std::filesystem::path folder;
    std::string message;
    bool operator==(const Panel&) const = default;
  };
  struct Alert {
    std::string message, informativeText, button;
    bool operator==(const Alert&) const = default;
  };
  // An answer may change the disk (the user makes the folder in the panel) and sets the
  // panel's response number when it cancels.
  using Answer = std::function<std::optional<std::filesystem::path>(long& response)>;

  std::optional<std::filesystem::path> runOpenPanel(const std::filesystem::path& folder, const std::string& message,
                                                    long& response) override {
    panels.push_back({folder, message});
    if (answers.empty()) throw std::logic_error("the open panel was shown once more than the test expected");
    Answer answer = std::move(answers.front());
    answers.pop_front();
    return answer(response);
  }
  void showInformationalAlert(const std::string& message, const std::string& informativeText,
                              const std::string& button) override {
    alerts.push_back({message, informativeText, button});
  }

  std::deque<Answer> answers;
  std::vector<Panel> panels;
  std::vector<Alert> alerts;
};
}  // namespace tw::test
