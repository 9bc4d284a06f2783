// SnapshotHandlers: the five snapshot messages of the feed, each updating the
// stored CVelmarMarketData of a subscribed instrument in place and handing it
// to OnRtnMarketData.
//
// Threads: the receiver thread calls them, through Feed::onFeedDatagram.
// Locks: each holds the feed's callback lock (SessionCore::callbackMutex) from
// the readiness test (for the Shanghai snapshot, from just after it) to its
// end, callback included. While callbacks are serialized that lock is mutex_,
// and the callback gets the stored record itself, as the front thread replaces
// and frees records only under mutex_. Otherwise mutex_ is held (inside the
// callback lock) while the record is read and updated, and the callback gets
// a copy in scratch_, which the receiver alone owns. The records themselves
// are in Subscriptions; stale refusals are counted in the receiver's counters.
#pragma once

#include <memory>

#include "VLClientApi/SessionCore.h"
#include "VLClientApi/SessionCounters.h"
#include "VelmarMdStruct.h"

namespace velmar {
namespace mdapi {

class Subscriptions;

class SnapshotHandlers {
 public:
  SnapshotHandlers(SessionCore& core, Subscriptions& subscriptions, SessionCounters& counters);
  ~SnapshotHandlers();
  SnapshotHandlers(const SnapshotHandlers&) = delete;
  SnapshotHandlers& operator=(const SnapshotHandlers&) = delete;

  void onSseSnapshot(const char* datagram);
  void onSseIndex(const char* datagram);
  void onSzseSnapshot(const char* body);
  void onSzseIndex(const char* body);
  void onSzseVolumeStat(const char* body);

 private:
  /// Each: the updated stored record, or null when the message changes
  /// nothing (not ready, not subscribed, stale). mutex_ held.
  CVelmarMarketData* applySseSnapshot(const char* datagram);
  CVelmarMarketData* applySseIndex(const char* datagram);
  CVelmarMarketData* applySzseSnapshot(const char* body);
  CVelmarMarketData* applySzseIndex(const char* body);
  CVelmarMarketData* applySzseVolumeStat(const char* body);
  /// Counts a stale refusal; null.
  CVelmarMarketData* stale();
  /// The locks around `apply` and OnRtnMarketData; see the head of the file.
  template <typename Apply>
  void deliver(Apply apply);

  SessionCore& core_;
  Subscriptions& subscriptions_;
  SessionCounters& counters_;
  std::unique_ptr<CVelmarMarketData> scratch_;
};

}  // namespace mdapi
}  // namespace velmar
