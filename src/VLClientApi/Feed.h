// Feed: the multicast receiver and everything it runs. One thread, the
// receiver ("udpExanicThread"), calls every operation here once Init has
// started it; tests call them from their own single thread.
//
// What the receiver does with a datagram: onFeedDatagram checks the gate
// (connected_ and loggedIn_), hands Shenzhen orders, trades and snapshots to
// the books (OrderBooks::handOverToBooks, which never takes mutex_), and runs
// the message's handler: a tick handler here or a snapshot handler of
// SnapshotHandlers. A slow callback stalls the receive path; the socket's
// 15 MiB buffer absorbs the difference.
//
// Locks: each tick handler holds mutex_ from its first step to its last,
// callback included: the subscription filter, the per-channel sequence check,
// the fill of the scratch record and OnRtnTickByTick. channelSeq_, the scratch
// record, the receive buffer and the socket belong to the receiver thread and
// need no lock. forgetSequences() is the one operation for other threads: it
// leaves a request that the receiver carries out before its next datagram.
//
// Bad input: a datagram shorter than its layout reads zeros behind its end
// (ReceiveBuffer) and is counted; a tick of a new channel once kMaxChannels
// channels are known is dropped whole (books included) and counted, so that
// garbage channel numbers can't grow the state without bound.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "VLClientApi/ReceiveBuffer.h"
#include "VLClientApi/SessionCore.h"
#include "VLClientApi/SnapshotHandlers.h"
#include "VelmarMdStruct.h"

namespace velmar {
namespace mdapi {

class OrderBooks;
class Subscriptions;
class TestAccess;

class Feed {
 public:
  /// Channels with sequence state; no real feed comes near. Past it, ticks
  /// of channels not yet known are dropped.
  static constexpr size_t kMaxChannels = 8192;

  /// All three outlive the feed: they are its neighbours in MdApiImpl.
  Feed(SessionCore& core, Subscriptions& subscriptions, OrderBooks& books);
  Feed(const Feed&) = delete;
  Feed& operator=(const Feed&) = delete;

  /// Init, before the receiver starts: the group and port to join, and the
  /// registered interface addresses (the first is used; none means any).
  void setGroup(const std::string& host, const std::string& port,
                const std::vector<std::string>& interfaces);

  /// Body of the receiver thread: joins the group and hands every datagram to
  /// onFeedDatagram, for as long as the process lives.
  void runUdpExanic();

  /// Entry of every datagram. The datagram lies in a buffer of at least
  /// feed::kReceiveSize bytes; handlers read only within it, whatever the
  /// datagram's real length.
  void onFeedDatagram(const char* datagram);

  /// The receive loop's step: a datagram of `length` bytes has been written
  /// into receiveBuffer(). Clears what the previous datagram left behind it,
  /// counts a short one, and hands it to onFeedDatagram.
  void onDatagramReceived(size_t length);
  ReceiveBuffer& receiveBuffer() { return receiveBuffer_; }

  /// Any thread: the sequence state of every channel is forgotten before the
  /// receiver handles its next datagram (a new trading day starts the
  /// exchange's numbers again).
  void forgetSequences() { forgetSequences_.store(true, std::memory_order_release); }

  /// Any thread, relaxed: datagrams shorter than their layout; ticks dropped
  /// because their channel would have passed kMaxChannels.
  uint64_t shortDatagrams() const { return shortDatagrams_.load(std::memory_order_relaxed); }
  uint64_t droppedUnknownChannel() const {
    return droppedUnknownChannel_.load(std::memory_order_relaxed);
  }

  // The tick handlers; `record` is the scratch record they fill.
  void onSzseOrder(CVelmarTickByTick* record, const char* body);
  void onSzseTrade(CVelmarTickByTick* record, const char* body);
  void onSseTrade(CVelmarTickByTick* record, const char* datagram);

 private:
  friend class TestAccess;

  SessionCore& core_;
  /// Read under mutex_ by the tick filter (see Subscriptions.h).
  Subscriptions& subscriptions_;
  OrderBooks& books_;
  SnapshotHandlers snapshots_;

  std::string mcastHost_, mcastPort_;
  std::vector<std::string> mcastInterfaces_;
  /// True if the tick's channel may have sequence state: known already, or
  /// room for one more. Counts the drop otherwise.
  bool channelAdmitted(uint32_t channel);

  /// The feed's socket.
  int udpSocket_ = -1;
  ReceiveBuffer receiveBuffer_;
  std::atomic<bool> forgetSequences_{false};
  std::atomic<uint64_t> shortDatagrams_{0};
  std::atomic<uint64_t> droppedUnknownChannel_{0};

  /// Last accepted sequence number per channel. It outlives disconnection
  /// and a new login of the same trading day; a new day forgets it.
  std::unordered_map<uint32_t, int64_t> channelSeq_;
  /// Overwritten by every tick; the application sees it during its callback only.
  std::unique_ptr<CVelmarTickByTick> feedTickRecord_;
};

}  // namespace mdapi
}  // namespace velmar
