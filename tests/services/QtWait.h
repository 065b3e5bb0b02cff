// Waiting in tests for something that Qt's event loop brings about.
#pragma once

#include <QCoreApplication>
#include <QElapsedTimer>
#include <functional>

namespace tw::test {

// Processes events until `done` or the time is up; the final answer of `done`.
inline bool waitUntil(const std::function<bool()>& done, int milliseconds = 5000) {
  QElapsedTimer timer;
  timer.start();
  while (!done() && timer.elapsed() < milliseconds) QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
  return done();
}

}  // namespace tw::test
