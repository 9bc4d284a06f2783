// SnapshotHandlers: the five snapshot messages of the feed, each updating the
// stored CVelmarMarketData of a subscribed instrument in place and handing it
// to OnRtnMarketData.
//
// Threads: the receiver thread calls them, through Feed::onFeedDatagram.
// Locks: each holds mutex_ from the readiness test (for the Shanghai snapshot,
// from just after it) to its end, callback included, because the front thread
// replaces and frees records under the same lock. They keep no state of their
// own: the records are in Subscriptions.
#pragma once

#include "VLClientApi/SessionCore.h"

namespace velmar {
namespace mdapi {

class Subscriptions;

class SnapshotHandlers {
 public:
  SnapshotHandlers(SessionCore& core, Subscriptions& subscriptions)
      : core_(core), subscriptions_(subscriptions) {}

  void onSseSnapshot(const char* datagram);
  void onSseIndex(const char* datagram);
  void onSzseSnapshot(const char* body);
  void onSzseIndex(const char* body);
  void onSzseVolumeStat(const char* body);

 private:
  SessionCore& core_;
  Subscriptions& subscriptions_;
};

}  // namespace mdapi
}  // namespace velmar
