#include "utility/AsyncLogging.h"

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "utility/CurrentThread.h"
#include "utility/Logging.h"
#include "utility/Timestamp.h"

namespace velmar {
namespace utility {

namespace {

// The writer's file flushes on its own clock every 3 seconds as well, and
// looks at the clock once in 1024 appends (whole buffers, so rarely).
constexpr int kFileFlushInterval = 3;
constexpr int kFileCheckEveryN = 1024;
// More buffers than this waiting for one pass means the writer can't keep
// up; all but the two oldest are then dropped.
constexpr size_t kMaxBuffersToWrite = 25;
constexpr size_t kBuffersKept = 2;

}  // namespace

AsyncLogging::AsyncLogging(const std::string& basename, int64_t rollSize, int flushInterval)
    : AsyncLogging(basename, rollSize, flushInterval, Hooks()) {}

AsyncLogging::AsyncLogging(const std::string& basename, int64_t rollSize, int flushInterval,
                           const Hooks& hooks)
    : flushInterval_(flushInterval),
      running_(false),
      basename_(basename),
      rollSize_(rollSize),
      thread_([this] { threadFunc(); }, "Logging"),
      latch_(1),
      mutex_(),
      cond_(mutex_),
      passDone_(mutex_),
      currentBuffer_(new Buffer),
      nextBuffer_(new Buffer),
      buffers_(),
      stopped_(false),
      direct_(false),
      flushRequested_(false),
      passesStarted_(0),
      passesDone_(0),
      hooks_(hooks) {
  currentBuffer_->bzero();
  nextBuffer_->bzero();
  buffers_.reserve(16);
}

AsyncLogging::~AsyncLogging() {
  if (running_.load(std::memory_order_acquire)) stop();
}

void AsyncLogging::append(const char* logline, int len) {
  MutexLockGuard lock(mutex_);
  // Strictly more room than the line: a line that would fill the buffer to
  // the last byte goes to the next one.
  if (currentBuffer_->avail() > len) {
    currentBuffer_->append(logline, static_cast<size_t>(len));
    return;
  }
  appendToFullBuffer(logline, len);
}

// The caller holds mutex_ and the current buffer has no room for the line.
void AsyncLogging::appendToFullBuffer(const char* logline, int len) {
  if (direct_) {
    // No writer could be started; the current buffer is kept full so that
    // every line comes here (see start()).
    Logger::defaultOutput()(logline, len);
    return;
  }
  if (stopped_) {
    // Nobody will write this buffer any more: reuse it rather than pile up
    // new ones for threads that log after the writer has gone.
    currentBuffer_->reset();
    currentBuffer_->append(logline, static_cast<size_t>(len));
    return;
  }
  buffers_.push_back(std::move(currentBuffer_));
  if (nextBuffer_) {
    currentBuffer_ = std::move(nextBuffer_);
  } else {
    // The writer has fallen behind: the only allocation of the hand-over.
    currentBuffer_.reset(new Buffer);
  }
  currentBuffer_->append(logline, static_cast<size_t>(len));
  cond_.notify();
}

bool AsyncLogging::start() {
  if (running_.load(std::memory_order_acquire)) return true;
  {
    // One writer per object: after a stop or a failed start there is none.
    MutexLockGuard lock(mutex_);
    if (stopped_ || direct_) return false;
  }
  running_.store(true, std::memory_order_release);
  try {
    if (hooks_.startThread) {
      hooks_.startThread(thread_);
    } else {
      thread_.start();
    }
  } catch (const std::system_error& e) {
    // Without a writer the latch would never open. The process goes on
    // logging to the standard output, its output before the writer was
    // installed; what was handed over so far goes there too, in order.
    running_.store(false, std::memory_order_release);
    std::fprintf(stderr,
                 "AsyncLogging::start() failed to start the writer (%s); log lines go to the "
                 "standard output\n",
                 e.what());
    MutexLockGuard lock(mutex_);
    direct_ = true;
    for (const BufferPtr& buffer : buffers_)
      Logger::defaultOutput()(buffer->data(), buffer->length());
    buffers_.clear();
    Logger::defaultOutput()(currentBuffer_->data(), currentBuffer_->length());
    // Marked full: no line fits any more, so each one takes the slow path of
    // append and goes out at once. The fast path stays without a test.
    currentBuffer_->reset();
    currentBuffer_->add(static_cast<size_t>(currentBuffer_->avail() - 1));
    return false;
  }
  latch_.wait();
  return true;
}

void AsyncLogging::stop() {
  {
    // Cleared under the lock, which the writer holds when it decides to wait:
    // so a stop can't slip in between that decision and the wait, and the
    // writer's last pass begins at once instead of after the flush interval.
    MutexLockGuard lock(mutex_);
    running_.store(false, std::memory_order_release);
    cond_.notify();
  }
  if (thread_.started() && !thread_.joined()) thread_.join();
  MutexLockGuard lock(mutex_);
  stopped_ = true;
  passDone_.notifyAll();
}

bool AsyncLogging::flush(double seconds) {
  // The writer can't wait for its own pass.
  if (thread_.started() && thread_.tid() == CurrentThread::tid()) return false;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  MutexLockGuard lock(mutex_);
  if (!running_.load(std::memory_order_relaxed) || stopped_) return false;
  // A pass that starts after this point takes every line appended so far;
  // one already under way may have taken its buffers before them.
  const uint64_t target = passesStarted_ + 1;
  flushRequested_ = true;
  cond_.notify();
  while (passesDone_ < target && !stopped_) {
    const double left =
        std::chrono::duration<double>(deadline - std::chrono::steady_clock::now()).count();
    if (left <= 0.0) return false;
    passDone_.waitForSeconds(left);
  }
  return passesDone_ >= target;
}

void AsyncLogging::threadFunc() {
  latch_.countDown();
  LogFile output(basename_, rollSize_, false, kFileFlushInterval, kFileCheckEveryN, hooks_.file);
  BufferPtr newBuffer1(new Buffer);
  BufferPtr newBuffer2(new Buffer);
  newBuffer1->bzero();
  newBuffer2->bzero();
  BufferVector buffersToWrite;
  buffersToWrite.reserve(16);

  // The pass that finds running_ cleared is the last one. It is read under
  // the lock, after the wait: a stop that came before this pass took the
  // buffers finds everything handed over until then in this pass, even a
  // stop that came before the first pass.
  bool lastPass = false;
  while (!lastPass) {
    if (hooks_.beforePass) hooks_.beforePass(hooks_.beforePassArg);
    {
      MutexLockGuard lock(mutex_);
      // One wait at most: a wake-up for whatever reason, or none within the
      // interval, leads to the same pass, which writes the partly filled
      // current buffer too.
      if (buffers_.empty() && running_.load(std::memory_order_relaxed) && !flushRequested_) {
        cond_.waitForSeconds(flushInterval_);
      }
      lastPass = !running_.load(std::memory_order_relaxed);
      flushRequested_ = false;
      ++passesStarted_;
      buffers_.push_back(std::move(currentBuffer_));
      currentBuffer_ = std::move(newBuffer1);
      buffersToWrite.swap(buffers_);
      if (!nextBuffer_) nextBuffer_ = std::move(newBuffer2);
    }

    if (buffersToWrite.size() > kMaxBuffersToWrite) {
      char buf[256];
      std::snprintf(buf, sizeof buf, "Dropped log messages at %s, %zd larger buffers\n",
                    Timestamp::now().toFormattedString(true).c_str(),
                    static_cast<ptrdiff_t>(buffersToWrite.size() - kBuffersKept));
      std::fputs(buf, stderr);
      output.append(buf, static_cast<int>(std::strlen(buf)));
      buffersToWrite.erase(buffersToWrite.begin() + kBuffersKept, buffersToWrite.end());
    }

    for (const BufferPtr& buffer : buffersToWrite) output.append(buffer->data(), buffer->length());

    if (buffersToWrite.size() > kBuffersKept) buffersToWrite.resize(kBuffersKept);

    // Refill the spares from what was written. The first always finds a
    // buffer (the current one went into every pass); the second was given
    // away only if a producer had taken nextBuffer_, and then a full buffer
    // came back as well.
    if (!newBuffer1) {
      newBuffer1 = std::move(buffersToWrite.back());
      buffersToWrite.pop_back();
      newBuffer1->reset();
    }
    if (!newBuffer2) {
      newBuffer2 = std::move(buffersToWrite.back());
      buffersToWrite.pop_back();
      newBuffer2->reset();
    }

    buffersToWrite.clear();
    output.flush();
    MutexLockGuard lock(mutex_);
    ++passesDone_;
    passDone_.notifyAll();
  }
  output.flush();
}

}  // namespace utility
}  // namespace velmar
