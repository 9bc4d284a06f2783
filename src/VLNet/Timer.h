// One scheduled callback of a TimerQueue. Sequence numbers come from one
// counter shared by every queue of the process, so that a TimerId still names
// its timer after the memory was reused by a new one.
#pragma once

#include <atomic>
#include <cstdint>

#include "VLNet/Callbacks.h"
#include "utility/Timestamp.h"

namespace velmar {
namespace net {

class Timer {
 public:
  /// interval in seconds; 0.0 or less makes a one-shot timer.
  Timer(TimerCallback cb, Timestamp when, double interval)
      : callback_(std::move(cb)),
        expiration_(when),
        interval_(interval),
        repeat_(interval > 0.0),
        sequenceNumber_(s_numCreated_.fetch_add(1)) {}
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  /// An empty callback throws std::bad_function_call.
  void run() const { callback_(); }
  /// Next expiry from `now` for a repeating timer, the invalid time otherwise.
  void restart(Timestamp now) {
    expiration_ = repeat_ ? addTime(now, interval_) : Timestamp::invalid();
  }

  Timestamp expiration() const { return expiration_; }
  double interval() const { return interval_; }
  bool repeat() const { return repeat_; }
  int64_t sequence() const { return sequenceNumber_; }

  static int64_t numCreated() { return s_numCreated_.load(); }

 private:
  const TimerCallback callback_;
  Timestamp expiration_;
  const double interval_;
  const bool repeat_;
  const int64_t sequenceNumber_;

  static std::atomic<int64_t> s_numCreated_;
};

}  // namespace net
}  // namespace velmar
