#include "opc/detail/work_queue.h"

#include <algorithm>
#include <cstdlib>
#include <system_error>

namespace opc::detail {

unsigned workerThreads() {
  if (const char* text = std::getenv("ZVADDON_THREADS")) {
    const long n = std::strtol(text, nullptr, 10);
    if (n >= 1 && n <= 256) return n == 1 ? 0 : static_cast<unsigned>(n);
  }
  const unsigned cores = std::thread::hardware_concurrency();
  return cores > 1 ? cores : 0;
}

WorkQueue::WorkQueue(unsigned workers, std::size_t capacity) : capacity_(std::max<std::size_t>(1, capacity)) {
  for (unsigned i = 0; i < workers; ++i) {
    try {
      threads_.emplace_back([this, i] { work(i); });
    } catch (const std::system_error&) {
      break;  // fewer workers (or none: tasks then run in submit)
    }
  }
}

WorkQueue::~WorkQueue() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    waiting_.clear();
  }
  wake_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

void WorkQueue::rethrowLocked() {
  if (failure_) std::rethrow_exception(failure_);
}

std::uint64_t WorkQueue::submit(std::function<void(unsigned)> task, bool urgent) {
  std::unique_lock lock(mutex_);
  rethrowLocked();
  const std::uint64_t number = submitted_++;
  if (threads_.empty()) {
    finished_.push_back(false);
    lock.unlock();
    try {
      task(0);
    } catch (...) {
      lock.lock();
      failure_ = std::current_exception();
      throw;
    }
    lock.lock();
    finished_.front() = true;
    while (!finished_.empty() && finished_.front()) finished_.pop_front(), ++firstUnfinished_;
    return number;
  }
  changed_.wait(lock, [&] { return failure_ || urgent || waiting_.size() < capacity_; });
  rethrowLocked();
  finished_.push_back(false);
  if (urgent) {
    waiting_.emplace_front(number, std::move(task));
  } else {
    waiting_.emplace_back(number, std::move(task));
  }
  lock.unlock();
  wake_.notify_one();
  return number;
}

bool WorkQueue::readyLocked(std::uint64_t number) const {
  return failure_ || number < firstUnfinished_ || finished_[number - firstUnfinished_];
}

bool WorkQueue::ready(std::uint64_t number) {
  const std::lock_guard lock(mutex_);
  return readyLocked(number);
}

void WorkQueue::wait(std::uint64_t number) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return readyLocked(number); });
  rethrowLocked();
}

void WorkQueue::finish() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return failure_ || firstUnfinished_ == submitted_; });
  rethrowLocked();
}

void WorkQueue::work(unsigned worker) {
  std::unique_lock lock(mutex_);
  for (;;) {
    wake_.wait(lock, [&] { return stopping_ || !waiting_.empty(); });
    if (waiting_.empty()) return;
    auto [number, task] = std::move(waiting_.front());
    waiting_.pop_front();
    lock.unlock();
    std::exception_ptr error;
    try {
      task(worker);
    } catch (...) {
      error = std::current_exception();
    }
    task = nullptr;  // what the task holds goes before the caller hears it ran
    lock.lock();
    finished_[number - firstUnfinished_] = true;
    while (!finished_.empty() && finished_.front()) finished_.pop_front(), ++firstUnfinished_;
    if (error && !failure_) {
      failure_ = error;
      waiting_.clear();
    }
    changed_.notify_all();
  }
}

}  // namespace opc::detail
