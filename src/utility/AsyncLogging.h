// AsyncLogging: the background log writer. Any thread hands over finished
// lines with append(), which copies them into a large buffer under a short
// lock; one writer thread, "Logging", takes the filled buffers and writes them
// to a rolling LogFile outside the lock. Two buffers on each side circulate,
// so in the normal course nothing is allocated.
//
// The writer wakes when a buffer has filled, and at the latest every
// flushInterval seconds, so an idle process still has its lines in the file
// within that time. A writer that falls far behind (more than 25 buffers
// waiting) drops all but the two oldest and says so on the standard error and
// in the file.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "utility/Condition.h"
#include "utility/CountDownLatch.h"
#include "utility/LogFile.h"
#include "utility/LogStream.h"
#include "utility/Mutex.h"
#include "utility/Thread.h"

namespace velmar {
namespace utility {

class AsyncLogging {
 public:
  /// Seams for tests. Nothing here runs on the path of append().
  struct Hooks {
    /// Clock, file opening and host name of the writer's LogFile.
    LogFile::Hooks file;
    /// Called by the writer at the start of every pass, before it takes the
    /// lock; a test blocks in it to make the writer fall behind.
    void (*beforePass)(void* arg) = nullptr;
    void* beforePassArg = nullptr;
    /// Starts the writer thread in place of Thread::start; a test throws from
    /// it to see a writer that can't be started.
    void (*startThread)(Thread& thread) = nullptr;
  };

  /// Builds the hand-over; the writer is not started yet. The file name
  /// begins with `basename`, whose folder must exist: the writer creates none.
  AsyncLogging(const std::string& basename, int64_t rollSize, int flushInterval = 3);
  AsyncLogging(const std::string& basename, int64_t rollSize, int flushInterval,
               const Hooks& hooks);
  /// Stops the writer if it runs, so what stands in the current buffer
  /// reaches the file.
  ~AsyncLogging();
  AsyncLogging(const AsyncLogging&) = delete;
  AsyncLogging& operator=(const AsyncLogging&) = delete;

  /// Any thread. Never blocks for longer than a copy, never reports a
  /// failure. The target of the process's log output.
  void append(const char* logline, int len);

  /// Starts the writer and returns once it runs. If the thread can't be
  /// started the failure is reported on the standard error, nothing waits for
  /// a writer that will never come, and the result is false: from then on
  /// every line goes straight to the standard output, as before the writer
  /// was installed, so neither lines nor memory pile up. An object has one
  /// writer at most: after stop() or a failed start the result is false.
  bool start();
  /// Wakes the writer, lets it write what has been handed over, and joins it.
  /// Lines appended afterwards are not written; their buffer is reused, so
  /// threads that go on logging don't make memory grow.
  void stop();
  /// Any thread but the writer's: returns once every line appended before
  /// the call is in the file and the file is flushed, or after `seconds`.
  /// False if that did not happen in time, or if no writer runs. The FATAL
  /// and THROW paths call it, so the lines that explain an end are on disk.
  bool flush(double seconds);

  /// True between a successful start() and stop().
  bool running() const { return running_.load(std::memory_order_acquire); }

 private:
  using Buffer = FixedBuffer<kLargeBuffer>;
  using BufferPtr = std::unique_ptr<Buffer>;
  using BufferVector = std::vector<BufferPtr>;

  void threadFunc();
  void appendToFullBuffer(const char* logline, int len);

  const int flushInterval_;
  std::atomic<bool> running_;
  const std::string basename_;
  const int64_t rollSize_;
  Thread thread_;
  CountDownLatch latch_;
  MutexLock mutex_;
  Condition cond_;
  Condition passDone_;       // signalled after each pass that wrote the file
  BufferPtr currentBuffer_;  // guarded by mutex_
  BufferPtr nextBuffer_;     // guarded by mutex_; may be empty
  BufferVector buffers_;     // guarded by mutex_; full buffers for the writer
  bool stopped_;             // guarded by mutex_; the writer has been joined
  bool direct_;              // guarded by mutex_; no writer: lines go to stdout
  bool flushRequested_;      // guarded by mutex_; the next pass starts at once
  uint64_t passesStarted_;   // guarded by mutex_; passes that took buffers
  uint64_t passesDone_;      // guarded by mutex_; passes whose lines are flushed
  const Hooks hooks_;
};

}  // namespace utility
}  // namespace velmar
