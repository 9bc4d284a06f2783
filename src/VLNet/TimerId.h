// Handle of a timer, for cancelling it. A value type that never owns the
// timer: the pair of address and sequence number names one timer even after
// its memory went to another. A default TimerId names no timer.
#pragma once

#include <cstdint>

namespace velmar {
namespace net {

class Timer;

class TimerId {
 public:
  TimerId() : timer_(nullptr), sequenceNumber_(0) {}
  TimerId(Timer* timer, int64_t sequence) : timer_(timer), sequenceNumber_(sequence) {}

  int64_t sequence() const { return sequenceNumber_; }

 private:
  friend class TimerQueue;
  Timer* timer_;
  int64_t sequenceNumber_;
};

}  // namespace net
}  // namespace velmar
