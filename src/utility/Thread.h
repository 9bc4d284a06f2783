// A named thread. Every Thread object takes a number from a process-wide
// counter; one built without a name is called "Thread<number>". start() does
// not wait for the new thread: the id in tid() may still be 0 right after it
// returns, so users that need the thread up wait on a latch of their own.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace velmar {
namespace utility {

class Thread {
 public:
  using ThreadFunc = std::function<void()>;

  explicit Thread(ThreadFunc func, const std::string& name = std::string());
  /// Detaches the thread if it was started and not joined: it runs on.
  ~Thread();
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  /// Starts the thread. If the system cannot create it, the failure is written
  /// at ERR and the std::system_error is thrown on to the caller, with
  /// started() false again: a caller that would next wait for the thread to
  /// come up (a loop thread, the log writer) must not wait for ever.
  void start();
  /// Throws std::system_error for a thread that was never started, was
  /// joined already, or is the calling thread.
  void join();

  bool started() const { return started_; }
  bool joined() const { return joined_; }
  /// The system id of the running thread, 0 until the thread has stored it.
  uint64_t tid() const { return tid_->load(std::memory_order_acquire); }
  const std::string& name() const { return name_; }

  /// Number of Thread objects constructed in this process so far.
  static int numCreated() { return numCreated_.load(); }

 private:
  bool started_;
  bool joined_;
  std::shared_ptr<std::thread> thread_;
  std::shared_ptr<std::atomic<uint64_t>> tid_;
  ThreadFunc func_;
  std::string name_;

  static std::atomic<int> numCreated_;
};

}  // namespace utility
}  // namespace velmar
