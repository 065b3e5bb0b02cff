#include "ui/GuiTaskQueue.h"

#include <QCoreApplication>
#include <QThread>
#include <utility>

namespace tw {

GuiTaskQueue& GuiTaskQueue::shared() {
  // Lives as long as the process, on the application's thread even when a worker asks first.
  static GuiTaskQueue* queue = [] {
    auto* made = new GuiTaskQueue;
    if (QCoreApplication::instance()) made->moveToThread(QCoreApplication::instance()->thread());
    return made;
  }();
  return *queue;
}

void GuiTaskQueue::post(std::function<void()> task) {
  bool wake = false;
  {
    std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
    wake = !wakePending_;
    wakePending_ = true;
  }
  if (wake) QMetaObject::invokeMethod(this, &GuiTaskQueue::drain, Qt::QueuedConnection);
}

void GuiTaskQueue::drain() {
  for (;;) {
    std::function<void()> task;
    {
      std::lock_guard lock(mutex_);
      if (tasks_.empty()) {
        wakePending_ = false;
        return;
      }
      task = std::move(tasks_.front());
      tasks_.pop_front();
    }
    task();
  }
}

}  // namespace tw
