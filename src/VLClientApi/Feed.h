// Feed: the multicast receiver and everything it runs. One thread, the
// receiver ("udpExanicThread"), calls every operation here once Init has
// started it; tests call them from their own single thread.
//
// What the receiver does with a datagram: onFeedDatagram checks the gate
// (connected_ and loggedIn_), hands Shenzhen orders, trades and snapshots to
// the books (OrderBooks::handOverToBooks, which never takes mutex_), and runs
// the message's handler: a tick handler here or a snapshot handler of
// SnapshotHandlers. A slow callback stalls the receive path; the socket's
// buffer (feed.socket_buffer, 15 MiB unless set) absorbs the difference.
//
// Gaps: every tick message (Shenzhen orders and trades share their channel's
// line, Shanghai trades have channels of their own) moves its channel's
// lineSeq_, subscribed or not, before the subscription filter and without a
// lock. A forward jump counts a gap and the numbers skipped, and calls
// OnFeedGap under the feed's callback lock before the message goes on. The
// line is forgotten while the gate is closed: what arrived then was refused
// here, not lost by the feed, so the first number after it starts the line
// again. channelSeq_ is another thing: the sequence check of subscribed
// instruments, unchanged by gap tracking.
//
// Locks: each tick handler holds the feed's callback lock
// (SessionCore::callbackMutex) from its first step to its last, callback
// included: the subscription filter, the per-channel sequence check, the fill
// of the scratch record and OnRtnTickByTick. That lock is mutex_ while
// callbacks are serialized (the default); otherwise the filter alone takes
// mutex_ inside it (SharedStateLock). channelSeq_, lineSeq_, the scratch
// record, the receive buffer and the socket belong to the receiver thread and
// need no lock. forgetSequences() is the one operation for other threads: it
// leaves a request that the receiver carries out before its next datagram.
//
// Counters: the receiver's group of SessionCounters, written here and by the
// snapshot handlers with SessionCounters::add, never with a lock.
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
#include "VLClientApi/SessionCounters.h"
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

  /// All outlive the feed: they are its neighbours in MdApiImpl. `statusSpi`
  /// is the session's status callback object, read (acquire) at each gap.
  Feed(SessionCore& core, Subscriptions& subscriptions, OrderBooks& books,
       SessionCounters& counters, const std::atomic<VelmarMdStatusSpi*>& statusSpi);
  Feed(const Feed&) = delete;
  Feed& operator=(const Feed&) = delete;

  /// Init, before the receiver starts: the group and port to join, and the
  /// registered interface addresses (the first is used; none means any).
  void setGroup(const std::string& host, const std::string& port,
                const std::vector<std::string>& interfaces);
  /// Init, before the receiver starts: SO_RCVBUF of the socket, and the CPU
  /// the receiver pins itself to (SessionOptions::kNoCpu for none).
  void setSocketOptions(int socketBuffer, int receiverCpu) {
    socketBuffer_ = socketBuffer;
    receiverCpu_ = receiverCpu;
  }

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
  uint64_t shortDatagrams() const {
    return counters_.receiver.shortDatagrams.load(std::memory_order_relaxed);
  }
  uint64_t droppedUnknownChannel() const {
    return counters_.receiver.droppedUnknownChannel.load(std::memory_order_relaxed);
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
  SessionCounters& counters_;
  const std::atomic<VelmarMdStatusSpi*>& statusSpi_;
  SnapshotHandlers snapshots_;

  std::string mcastHost_, mcastPort_;
  std::vector<std::string> mcastInterfaces_;
  /// True if the tick's channel may have sequence state: known already, or
  /// room for one more. Counts the drop otherwise.
  bool channelAdmitted(uint32_t channel);
  /// Gap tracking of one tick message of exchange 1 or 2, before the
  /// subscription filter.
  void followLine(uint32_t exchange, uint32_t channel, int64_t seq);
  /// Counts a jump from `last` to `seq` and tells the status callbacks.
  void reportGap(uint32_t channel, int64_t last, int64_t seq);
  /// The tick filter of one exchange, mutex_ taken for it unless the feed's
  /// callback lock is mutex_ already.
  bool tickSubscribed(const std::atomic<bool>& allTicks, const char* securityId);

  /// The feed's socket.
  int udpSocket_ = -1;
  ReceiveBuffer receiveBuffer_;
  std::atomic<bool> forgetSequences_{false};
  int socketBuffer_ = 15728640;
  int receiverCpu_ = -1;

  /// Last accepted sequence number per channel. It outlives disconnection
  /// and a new login of the same trading day; a new day forgets it.
  std::unordered_map<uint32_t, int64_t> channelSeq_;
  /// Last number seen per exchange (high half of the key) and channel, every
  /// tick message of it counted, so that a Shanghai and a Shenzhen channel of
  /// the same number are two lines; bound by
  /// kMaxChannels on its own (a channel past it is not followed, and its
  /// ticks go on as before). Forgotten with channelSeq_, and while the gate is
  /// closed (gateWasClosed_).
  std::unordered_map<uint64_t, int64_t> lineSeq_;
  /// The line of the previous tick message: a feed sends a channel's
  /// messages in runs, and this spares the lookup within one. Null after
  /// lineSeq_ is cleared (node addresses hold until then).
  uint64_t lastLineKey_ = 0;
  int64_t* lastLine_ = nullptr;
  bool gateWasClosed_ = false;
  /// Overwritten by every tick; the application sees it during its callback only.
  std::unique_ptr<CVelmarTickByTick> feedTickRecord_;
};

}  // namespace mdapi
}  // namespace velmar
