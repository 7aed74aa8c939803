#pragma once
// Worker threads for one call. This is the only place the library makes threads: every worker
// (deflate, write-behind, extraction) runs tasks from a WorkQueue, and the queue joins its workers
// before it is destroyed, so no thread outlives the call that made it.
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace opc::detail {

// Workers to start: ZVADDON_THREADS when set (1 to 256), else the number of cores; 0 where that is
// 1, so that the call runs every task itself.
[[nodiscard]] unsigned workerThreads();

// Runs tasks on up to `workers` threads, in the order submitted; at most `capacity` wait to start,
// and submit() blocks for room. A task is given the number of the worker that runs it, below
// slots(), so that it can reuse that worker's buffers. The first task to throw fails the queue: tasks not started are
// dropped, later submits run nothing, and its exception is rethrown in the calling thread by the
// next submit(), wait() or finish() -- the one way a worker's failure reaches the caller. With no
// workers (0 asked, or none could be made) submit() runs the task itself. Destruction drops the
// tasks not started and joins the workers; it never throws.
class WorkQueue {
 public:
  WorkQueue(unsigned workers, std::size_t capacity);
  ~WorkQueue();
  WorkQueue(const WorkQueue&) = delete;
  WorkQueue& operator=(const WorkQueue&) = delete;

  // Queues `task` and returns its number: 0, 1, 2, ... in order of submission. An `urgent` task
  // (one the caller will wait for next) starts before every task waiting and never waits for room.
  std::uint64_t submit(std::function<void(unsigned worker)> task, bool urgent = false);
  // Waits until task `number` has run (what it wrote is then visible to the caller).
  void wait(std::uint64_t number);
  // True when wait(number) would not block.
  [[nodiscard]] bool ready(std::uint64_t number);
  // Waits until every task submitted has run.
  void finish();
  // How many workers tasks may name (1 when tasks run in submit).
  [[nodiscard]] unsigned slots() const { return threads_.empty() ? 1u : static_cast<unsigned>(threads_.size()); }

 private:
  void work(unsigned worker);
  void rethrowLocked();
  [[nodiscard]] bool readyLocked(std::uint64_t number) const;

  std::size_t capacity_;
  std::mutex mutex_;
  std::condition_variable wake_;     // workers: a task came, or stop
  std::condition_variable changed_;  // the caller: a task ended, or room was made
  std::deque<std::pair<std::uint64_t, std::function<void(unsigned)>>> waiting_;  // number, task
  std::uint64_t submitted_ = 0;
  std::deque<bool> finished_;        // from firstUnfinished_ on: which tasks have run
  std::uint64_t firstUnfinished_ = 0;
  std::exception_ptr failure_;
  bool stopping_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace opc::detail
