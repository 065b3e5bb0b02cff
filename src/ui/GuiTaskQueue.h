// Hands work from worker threads to the GUI thread: the scan driver's executor and the
// cleaning sheet's relay post here. Tasks run on the GUI thread in the order they were posted
// and are destroyed there too, so nothing a worker built (a scanned location's entries) is
// freed on the worker after the window has used it. The hand-over itself is a plain mutex and
// queue; Qt is only asked to wake the GUI thread, and carries none of our data.
#pragma once

#include <QObject>
#include <deque>
#include <functional>
#include <mutex>

namespace tw {

class GuiTaskQueue : public QObject {
  Q_OBJECT

 public:
  // The application's queue (needs the QApplication to exist).
  static GuiTaskQueue& shared();

  // From any thread.
  void post(std::function<void()> task);

 private:
  GuiTaskQueue() = default;
  // Runs the tasks one by one. A task may open a modal dialog whose event loop drains the
  // queue again; taking one task at a time keeps the order in that case too.
  void drain();

  std::mutex mutex_;
  std::deque<std::function<void()>> tasks_;
  bool wakePending_ = false;
};

}  // namespace tw
