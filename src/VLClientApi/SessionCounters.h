// SessionCounters: the counters behind GetStatistics, kept by the threads of
// one session as they work.
//
// Each group has one writing thread and a cache line of its own, so a count
// costs the writer a plain add on a line no other writer touches, and readers
// only ever share the line for a moment. Writers use add() (a relaxed load
// and store: exact with one writer, no locked instruction); the one group
// written by any thread uses fetch_add. fill() reads every counter with a
// relaxed load on any thread, without a lock: counters read together may be
// a few events apart, and each one on its own never goes back.
#pragma once

#include <atomic>
#include <cstdint>

#include "VelmarMdStruct.h"

namespace velmar {
namespace mdapi {

class SessionCounters {
 public:
  using Counter = std::atomic<uint64_t>;

  /// Multicast receiver thread only.
  struct alignas(64) Receiver {
    Counter datagrams{0};
    Counter bytes{0};
    Counter droppedByGate{0};
    Counter droppedBySequence{0};
    Counter droppedStale{0};
    Counter sequenceGaps{0};
    Counter messagesMissing{0};
    Counter receiveErrors{0};
    /// The kernel's own running count, stored as it is read (not added).
    Counter kernelDrops{0};
    Counter shortDatagrams{0};
    Counter droppedUnknownChannel{0};
    Counter bookNodesQueued{0};
    Counter bookNodesDropped{0};
    Counter bookQueueHighWater{0};
    Counter callbacksMarketData{0};
    Counter callbacksTickByTick{0};
    Counter callbacksStatus{0};
  };
  /// Book thread only.
  struct alignas(64) Books {
    Counter nodesHandled{0};
    Counter published{0};
    Counter callbacksOrderBook{0};
    Counter callbacksStatus{0};
  };
  /// Front loop thread only.
  struct alignas(64) Front {
    Counter callbacksSession{0};
    Counter callbacksResponse{0};
    Counter callbacksError{0};
    Counter callbacksMarketData{0};
    Counter callbacksTickByTick{0};
    Counter callbacksStatus{0};
  };
  /// Any thread: OnRspError for requests refused on the caller's thread.
  struct alignas(64) AnyThread {
    Counter callbacksError{0};
  };

  /// The writer's add: only for a counter that no other thread writes.
  static void add(Counter& counter, uint64_t n = 1) {
    counter.store(counter.load(std::memory_order_relaxed) + n, std::memory_order_relaxed);
  }
  /// Receiver thread: one node queued for the book thread, and the queue's
  /// high-water mark. The depth counts nodes queued and not yet handled.
  void noteBookNodeQueued();

  /// Any thread. Fills `out` whole (Size and Reserved included, SampleTime
  /// now); the caller copies out what its reader asked for.
  void fill(CVelmarStatistics* out) const;

  Receiver receiver;
  Books books;
  Front front;
  AnyThread anyThread;
};

}  // namespace mdapi
}  // namespace velmar
