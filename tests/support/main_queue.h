// A stand-in for the GUI thread: callbacks posted through its executor wait until the test runs
// them on its own thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

#include "scan/directory_scanner.h"

namespace tw::test {

class MainQueue {
 public:
  Executor executor() const {
    return [inner = inner_](std::function<void()> work) {
      std::lock_guard lock(inner->mutex);
      inner->queue.push_back(std::move(work));
      inner->posted.notify_all();
    };
  }
  // Runs posted callbacks until `done` answers true; false when `seconds` pass first.
  bool runUntil(const std::function<bool()>& done, double seconds = 60) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
      std::unique_lock lock(inner_->mutex);
      if (!inner_->posted.wait_until(lock, end, [&] { return !inner_->queue.empty(); }))
        return false;
      std::function<void()> work = std::move(inner_->queue.front());
      inner_->queue.pop_front();
      lock.unlock();
      work();
    }
    return true;
  }
  void drain(double seconds = 0.2) {
    runUntil([] { return false; }, seconds);
  }

 private:
  struct Inner {
    std::mutex mutex;
    std::condition_variable posted;
    std::deque<std::function<void()>> queue;
  };
  std::shared_ptr<Inner> inner_ = std::make_shared<Inner>();
};

}  // namespace tw::test
