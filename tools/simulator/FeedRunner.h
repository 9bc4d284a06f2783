// The feed's loop: takes datagrams from the source, waits until each is due,
// sends it (and records it), and keeps the front's records and the true book
// file up to date as it goes.
//
// run() is the feed's thread; it alone touches the source, the sender and the
// recorder while it runs. The counters may be read from any thread;
// sentByType() only once run() has returned.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>

#include "sim/MulticastSender.h"
#include "sim/Replay.h"
#include "simulator/FeedSource.h"
#include "simulator/SharedRecords.h"
#include "simulator/SimOptions.h"

namespace velmar {
namespace sim {

class FeedRunner {
 public:
  /// `sender` is null when nothing is sent (--no-send), `recorder` without
  /// --record, `shared` when no front runs. `stop`, set by another thread,
  /// ends the loop soon.
  FeedRunner(const SimOptions& o, FeedSource& source, MulticastSender* sender,
             ReplayWriter* recorder, SharedRecords* shared, const std::atomic<bool>& stop);

  void run();

  /// The loop has ended: the source had no more, the count or the duration
  /// was reached, or it was stopped.
  bool ended() const { return ended_; }
  /// The source stopped on an error.
  bool failed() const { return failed_; }
  int64_t sent() const { return sent_; }
  int64_t failures() const { return failures_; }
  /// Datagrams withheld on purpose (--drop-every).
  int64_t dropped() const { return dropped_; }
  const std::map<uint32_t, int64_t>& sentByType() const { return sentByType_; }

 private:
  void publish(const Datagram& d, int64_t dueUs, int64_t nowUs);
  void refresh(int64_t nowUs);

  const SimOptions& o_;
  FeedSource& source_;
  MulticastSender* sender_;
  ReplayWriter* recorder_;
  SharedRecords* shared_;
  const std::atomic<bool>& stop_;

  std::atomic<bool> ended_{false};
  std::atomic<bool> failed_{false};
  std::atomic<int64_t> sent_{0};
  std::atomic<int64_t> failures_{0};
  std::atomic<int64_t> dropped_{0};
  int64_t offered_ = 0;  // feed's thread: datagrams sent or withheld
  std::map<uint32_t, int64_t> sentByType_;  // feed's thread until the end

  // Feed's thread.
  int64_t recordsAtUs_ = 0;
  int64_t trueBookAtUs_;
  bool trueBookWarned_ = false;
};

}  // namespace sim
}  // namespace velmar
