// What the window tests share: a machine of their own, and alerts and a completion sound that
// answer instead of waiting for a person.
#pragma once

#include <QString>
#include <deque>

#include "support/StandInEnvironment.h"
#include "support/TempDir.h"
#include "ui/Alerts.h"
#include "ui/CompletionSound.h"

namespace tw::test {

struct ShownAlert {
  Alerts::Style style;
  QString message, informativeText, firstButton, secondButton;
};

class ScriptedAlerts : public Alerts {
 public:
  Response run(QWidget*, Style style, const QString& message, const QString& informativeText,
               const QString& firstButton, const QString& secondButton) override {
    shown.push_back({style, message, informativeText, firstButton, secondButton});
    if (answers.empty()) return Response::first;
    const Response answer = answers.front();
    answers.pop_front();
    return answer;
  }
  std::optional<std::filesystem::path> chooseFolder(QWidget*, const std::filesystem::path&, const QString&,
                                                    const QString&) override {
    ++panels;
    return std::nullopt;  // the panel is cancelled
  }

  std::deque<Response> answers;
  std::vector<ShownAlert> shown;
  int panels = 0;
};

struct CountingSound : CompletionSound {
  void play() override { ++plays; }
  int plays = 0;
};

// A temporary machine: "/" and the home below a test folder, installed for the test's lifetime.
class TestMachine {
 public:
  TestMachine() : scope_(hostWithRoot(folder_.path())) {
    std::filesystem::create_directories(home());
    std::filesystem::create_directories(folder_ / "tmp");
  }
  std::filesystem::path home() const { return folder_ / "home"; }
  std::filesystem::path developerFolder() const { return home() / "Library/Developer"; }

 private:
  TempDir folder_;
  ScopedHost scope_;
};

}  // namespace tw::test
