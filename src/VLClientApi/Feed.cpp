// The receiver thread's work: joining the group, the datagram loop, the
// dispatch by message type and the three tick-by-tick handlers.
#include "VLClientApi/Feed.h"

#include <cstdlib>
#include <cstring>

#include "VLClientApi/DatagramLength.h"
#include "VLClientApi/FeedMessages.h"
#include "VLClientApi/OrderBooks.h"
#include "VLClientApi/SecurityIdKey.h"
#include "VLClientApi/SharedStateLock.h"
#include "VLClientApi/Subscriptions.h"
#include "utility/ByteOrder.h"
#include "utility/CurrentThread.h"
#include "utility/Logging.h"
#include "utility/Platform.h"
#include "utility/PrintableBytes.h"

namespace velmar {
namespace mdapi {

using utility::loadLE;
using utility::PrintableBytes;

namespace {
// A socket that fails for good would log without pause; after this many
// errors in a row the loop rests a millisecond between attempts.
constexpr int kErrorsBeforePause = 100;

/// A number on a channel is accepted if it is the channel's first, or if it
/// lies above the last accepted one. Any jump forward is fine; repeats and
/// older numbers are refused. (prev < seq is prev + 1 <= seq without the
/// overflow at the top of the range.)
inline bool sequenceAdvances(int64_t prev, int64_t seq) { return prev == 0 || prev < seq; }

/// Clears a record for a new feed message: all bytes but ExchangeID.
inline void clearTickRecord(CVelmarTickByTick* record) {
  std::memset(reinterpret_cast<char*>(record) + 4, 0, sizeof(CVelmarTickByTick) - 4);
}

/// The fields every feed tick fills alike, on a record cleared for it.
inline void startTickRecord(CVelmarTickByTick* record, uint32_t exchange, const char* securityId,
                            int64_t seq, int64_t time, uint32_t tickType, uint32_t channel) {
  clearTickRecord(record);
  record->ExchangeID = exchange;
  std::memcpy(record->SecurityID, securityId, 8);
  record->SeqNo = seq;
  record->TickTime = time;
  record->TickType = tickType;
  record->ChannelNo = channel;
  record->ApplSeqNum = seq;
}

inline double scaled(uint64_t raw, double divisor) { return static_cast<double>(raw) / divisor; }
inline int64_t scaledWhole(uint64_t raw, double divisor) {
  return static_cast<int64_t>(static_cast<double>(raw) / divisor);
}

}  // namespace

Feed::Feed(SessionCore& core, Subscriptions& subscriptions, OrderBooks& books,
           SessionCounters& counters, const std::atomic<VelmarMdStatusSpi*>& statusSpi)
    : core_(core),
      subscriptions_(subscriptions),
      books_(books),
      counters_(counters),
      statusSpi_(statusSpi),
      snapshots_(core, subscriptions, counters),
      feedTickRecord_(new CVelmarTickByTick()) {}

void Feed::setGroup(const std::string& host, const std::string& port,
                    const std::vector<std::string>& interfaces) {
  mcastHost_ = host;
  mcastPort_ = port;
  mcastInterfaces_ = interfaces;
}

void Feed::runUdpExanic() {
  CurrentThread::t_threadName = "udpExanicThread";
  LOG_INFO << "runUdpExanic";
  // Not fatal: the receiver runs on wherever the system puts it.
  if (receiverCpu_ >= 0 && !platform::pinCurrentThread(receiverCpu_))
    LOG_ERROR << "runUdpExanic: feed.receiver_cpu " << receiverCpu_
              << " refused by the system; the receiver runs unpinned";

  struct ip_mreq membership;
  std::memset(&membership, 0, sizeof membership);
  membership.imr_multiaddr.s_addr = ::inet_addr(mcastHost_.c_str());
  membership.imr_interface.s_addr =
      mcastInterfaces_.empty() ? htonl(0) : ::inet_addr(mcastInterfaces_.front().c_str());

  platform::startupSockets();
  udpSocket_ = platform::createSocket(AF_INET, SOCK_DGRAM, 0);
  if (udpSocket_ < 0) {
    LOG_ERROR << "runUdpExanic::socket() errno " << platform::lastSocketError();
    return;
  }
  // An int, not a single byte: some systems refuse a one-byte value here.
  int reuse = 1;
  if (platform::setSocketOption(udpSocket_, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse) < 0) {
    LOG_ERROR << "runUdpExanic::setsockopt errno " << platform::lastSocketError();
    return;
  }
  struct sockaddr_in local;
  std::memset(&local, 0, sizeof local);
  local.sin_family = AF_INET;
  local.sin_addr.s_addr = htonl(INADDR_ANY);
  local.sin_port = htons(static_cast<uint16_t>(std::atoi(mcastPort_.c_str())));
  if (platform::bindSocket(udpSocket_, local) < 0) {
    LOG_ERROR << "runUdpExanic::bind errno " << platform::lastSocketError();
    return;
  }
  if (platform::setSocketOption(udpSocket_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership,
                                sizeof membership) < 0) {
    LOG_ERROR << "runUdpExanic::IP_ADD_MEMBERSHIP errno " << platform::lastSocketError();
    return;
  }
  int receiveBuffer = socketBuffer_;
  if (platform::setSocketOption(udpSocket_, SOL_SOCKET, SO_RCVBUF, &receiveBuffer,
                                sizeof receiveBuffer) < 0) {
    LOG_ERROR << "runUdpExanic::SO_RCVBUF errno " << platform::lastSocketError();
    return;
  }

  // One buffer, reused (see ReceiveBuffer). The book queue's nodes carry
  // copies of what they need, so nothing refers to it once the handlers have
  // returned.
  // Where the system has no drop count KernelDrops stays 0; nothing to log.
  const bool dropCount = platform::enableDropCount(udpSocket_);
  uint64_t kernelDrops = 0;
  int errorsInARow = 0;
  for (;;) {
    int n = dropCount ? platform::receiveDatagramWithDrops(udpSocket_, receiveBuffer_.data(),
                                                           ReceiveBuffer::kCapacity, &kernelDrops)
                      : platform::receiveDatagram(udpSocket_, receiveBuffer_.data(),
                                                  ReceiveBuffer::kCapacity);
    if (kernelDrops != counters_.receiver.kernelDrops.load(std::memory_order_relaxed))
      counters_.receiver.kernelDrops.store(kernelDrops, std::memory_order_relaxed);
    if (n < 0) {
      SessionCounters::add(counters_.receiver.receiveErrors);
      LOG_ERROR << "runUdpExanic::recvfrom errno " << platform::lastSocketError();
      if (++errorsInARow >= kErrorsBeforePause) platform::sleepMs(1);
      continue;
    }
    errorsInARow = 0;
    if (n == 0) continue;
    onDatagramReceived(static_cast<size_t>(n));
  }
}

void Feed::onDatagramReceived(size_t length) {
  receiveBuffer_.received(length);
  const char* datagram = receiveBuffer_.data();
  SessionCounters::add(counters_.receiver.datagrams);
  SessionCounters::add(counters_.receiver.bytes, length);
  if (length < feed::expectedLength(datagram))
    SessionCounters::add(counters_.receiver.shortDatagrams);
  onFeedDatagram(datagram);
}

bool Feed::channelAdmitted(uint32_t channel) {
  if (channelSeq_.size() < kMaxChannels || channelSeq_.count(channel) != 0) return true;
  SessionCounters::add(counters_.receiver.droppedUnknownChannel);
  return false;
}

void Feed::followLine(uint32_t exchange, uint32_t channel, int64_t seq) {
  const uint64_t key = uint64_t{exchange} << 32 | channel;
  if (lastLine_ == nullptr || key != lastLineKey_) {
    auto it = lineSeq_.find(key);
    if (it == lineSeq_.end()) {
      if (lineSeq_.size() >= kMaxChannels) return;
      it = lineSeq_.emplace(key, 0).first;
    }
    lastLineKey_ = key;
    lastLine_ = &it->second;
  }
  int64_t& last = *lastLine_;
  if (last == 0 || last >= seq) {
    // A channel's first number (0 counts as none yet, as in the sequence
    // check), a repeat or an older one: nothing went missing.
    if (last == 0) last = seq;
    return;
  }
  if (seq - 1 != last) reportGap(channel, last, seq);  // seq - 1: no overflow, seq > last
  last = seq;
}

void Feed::reportGap(uint32_t channel, int64_t last, int64_t seq) {
  SessionCounters::add(counters_.receiver.sequenceGaps);
  // Unsigned: the distance between two signed numbers can pass INT64_MAX.
  SessionCounters::add(counters_.receiver.messagesMissing,
                       static_cast<uint64_t>(seq) - static_cast<uint64_t>(last) - 1);
  VelmarMdStatusSpi* spi = statusSpi_.load(std::memory_order_acquire);
  if (spi == nullptr) return;
  utility::MutexLockGuard lock(core_.callbackMutex(SessionCore::Caller::kFeed));
  SessionCounters::add(counters_.receiver.callbacksStatus);
  spi->OnFeedGap(static_cast<int>(channel), last + 1, seq);
}

bool Feed::tickSubscribed(const std::atomic<bool>& allTicks, const char* securityId) {
  if (core_.serializeCallbacks_) return subscriptions_.tickSubscribed(allTicks, securityId);
  // The flag is an atomic: with it set, the receiver need not wait for
  // mutex_, which the other threads may hold for a while.
  if (allTicks.load(std::memory_order_relaxed)) return true;
  utility::MutexLockGuard lock(core_.mutex_);
  return subscriptions_.tickSubscribed(allTicks, securityId);
}

void Feed::onFeedDatagram(const char* datagram) {
  if (!core_.connected_.load(std::memory_order_acquire) ||
      !core_.loggedIn_.load(std::memory_order_acquire)) {
    SessionCounters::add(counters_.receiver.droppedByGate);
    gateWasClosed_ = true;
    return;
  }
  if (datagram == nullptr) {
    LOG_ERROR << "Recv empty msg";
    return;
  }
  // Set by the front thread before it opened the gate for the new day's
  // login, so seen here before that day's first datagram.
  if (forgetSequences_.load(std::memory_order_acquire)) {
    forgetSequences_.store(false, std::memory_order_relaxed);
    channelSeq_.clear();
    lineSeq_.clear();
    lastLine_ = nullptr;
  }
  if (gateWasClosed_) {
    gateWasClosed_ = false;
    lineSeq_.clear();
    lastLine_ = nullptr;
  }
  const uint32_t type = loadLE<uint32_t>(datagram);
  const char* body = datagram + feed::kBodyOffset;
  switch (type) {
    case feed::kSseIndex:
      snapshots_.onSseIndex(datagram);
      break;
    case feed::kSseTrade: {
      const uint32_t channel = loadLE<uint32_t>(datagram + feed::sse_trade::TradeChannel);
      if (!channelAdmitted(channel)) break;
      followLine(1, channel, loadLE<int32_t>(datagram + feed::sse_trade::TradeIndex));
      onSseTrade(feedTickRecord_.get(), datagram);
      break;
    }
    case feed::kSseSnapshot:
      snapshots_.onSseSnapshot(datagram);
      break;
    case feed::kSzseSnapshot:
      books_.handOverToBooks(body, orderBookNode::kSnapshot);
      snapshots_.onSzseSnapshot(body);
      break;
    case feed::kSzseTrade: {
      const uint32_t channel = loadLE<uint16_t>(body + feed::szse_trade::ChannelNo);
      if (!channelAdmitted(channel)) break;
      followLine(2, channel, loadLE<int64_t>(body + feed::szse_trade::ApplSeqNum));
      books_.handOverToBooks(body, orderBookNode::kTrade);
      onSzseTrade(feedTickRecord_.get(), body);
      break;
    }
    case feed::kSzseOrder: {
      const uint32_t channel = loadLE<uint16_t>(body + feed::szse_order::ChannelNo);
      if (!channelAdmitted(channel)) break;
      followLine(2, channel, loadLE<int64_t>(body + feed::szse_order::ApplSeqNum));
      books_.handOverToBooks(body, orderBookNode::kOrder);
      onSzseOrder(feedTickRecord_.get(), body);
      break;
    }
    case feed::kSzseIndex:
      snapshots_.onSzseIndex(body);
      break;
    case feed::kSzseVolumeStat:
      snapshots_.onSzseVolumeStat(body);
      break;
    default:
      break;  // not ours: ignored without a word
  }
}

void Feed::onSzseOrder(CVelmarTickByTick* record, const char* body) {
  namespace m = feed::szse_order;
  utility::MutexLockGuard lock(core_.callbackMutex(SessionCore::Caller::kFeed));
  const char* securityId = body + m::SecurityID;
  if (!tickSubscribed(core_.allTickExchange2_, securityId)) return;

  const uint32_t channel = loadLE<uint16_t>(body + m::ChannelNo);
  const int64_t seq = loadLE<int64_t>(body + m::ApplSeqNum);
  int64_t& prev = channelSeq_[channel];
  if (!sequenceAdvances(prev, seq)) {
    SessionCounters::add(counters_.receiver.droppedBySequence);
    LOG_INFO << "ORDER_LOST SecurityID: " << PrintableBytes::id(securityId) << " pre_seq " << prev
             << " , Applseqnum " << seq << " , ChannalNo: " << channel;
    return;
  }

  startTickRecord(record, 2, securityId, seq, loadLE<int64_t>(body + m::OrderTime), 1, channel);
  record->Price = scaled(loadLE<uint64_t>(body + m::Price), m::PriceDiv);
  record->Qty = scaledWhole(loadLE<uint64_t>(body + m::OrderQty), m::OrderQtyDiv);
  record->Side = body[m::Side];
  record->OrdType = body[m::OrdType];
  prev = seq;  // orders store their number before the callback
  SessionCounters::add(counters_.receiver.callbacksTickByTick);
  core_.spi_->OnRtnTickByTick(record);
}

void Feed::onSzseTrade(CVelmarTickByTick* record, const char* body) {
  namespace m = feed::szse_trade;
  utility::MutexLockGuard lock(core_.callbackMutex(SessionCore::Caller::kFeed));
  const char* securityId = body + m::SecurityID;
  if (!tickSubscribed(core_.allTickExchange2_, securityId)) return;

  const uint32_t channel = loadLE<uint16_t>(body + m::ChannelNo);
  const int64_t seq = loadLE<int64_t>(body + m::ApplSeqNum);
  int64_t& prev = channelSeq_[channel];
  if (!sequenceAdvances(prev, seq)) {
    SessionCounters::add(counters_.receiver.droppedBySequence);
    LOG_INFO << "TRADE_LOST SecurityID: " << PrintableBytes::id(securityId) << " pre_seq " << prev
             << ", Applseqnum " << seq << " , ChannalNo: " << channel;
    return;
  }

  startTickRecord(record, 2, securityId, seq, loadLE<int64_t>(body + m::TransactTime), 2, channel);
  record->Price = scaled(loadLE<uint64_t>(body + m::LastPx), m::LastPxDiv);
  record->Qty = scaledWhole(loadLE<uint64_t>(body + m::LastQty), m::LastQtyDiv);
  // The Shenzhen trade carries no money. The field holds the channel number,
  // as the front's own records do; nothing in the library reads it.
  record->TradeMoney = static_cast<double>(channel);
  record->BidApplSeqNum = loadLE<int64_t>(body + m::BidApplSeqNum);
  record->OfferApplSeqNum = loadLE<int64_t>(body + m::OfferApplSeqNum);
  record->TradeFlag = body[m::ExecType];
  SessionCounters::add(counters_.receiver.callbacksTickByTick);
  core_.spi_->OnRtnTickByTick(record);
  prev = seq;  // trades store their number after the callback
}

void Feed::onSseTrade(CVelmarTickByTick* record, const char* datagram) {
  namespace m = feed::sse_trade;
  utility::MutexLockGuard lock(core_.callbackMutex(SessionCore::Caller::kFeed));
  const char* securityId = datagram + m::SecurityID;
  if (!tickSubscribed(core_.allTickExchange1_, securityId)) return;

  const uint32_t channel = loadLE<uint32_t>(datagram + m::TradeChannel);
  const int64_t seq = loadLE<int32_t>(datagram + m::TradeIndex);  // signed, sign-extended
  int64_t& prev = channelSeq_[channel];
  if (!sequenceAdvances(prev, seq)) {  // Shanghai refusals are silent
    SessionCounters::add(counters_.receiver.droppedBySequence);
    return;
  }

  startTickRecord(record, 1, securityId, seq, loadLE<uint32_t>(datagram + m::TradeTime), 2, channel);
  record->Price = scaled(loadLE<uint32_t>(datagram + m::TradePrice), m::TradePriceDiv);
  record->Qty = scaledWhole(loadLE<uint64_t>(datagram + m::TradeQty), m::TradeQtyDiv);
  record->TradeMoney = scaled(loadLE<uint64_t>(datagram + m::TradeMoney), m::TradeMoneyDiv);
  record->BidApplSeqNum = static_cast<int64_t>(loadLE<uint64_t>(datagram + m::TradeBuyNo));
  record->OfferApplSeqNum = static_cast<int64_t>(loadLE<uint64_t>(datagram + m::TradeSellNo));
  record->TradeFlag = datagram[m::TradeBSFlag];
  SessionCounters::add(counters_.receiver.callbacksTickByTick);
  core_.spi_->OnRtnTickByTick(record);
  prev = seq;
}

}  // namespace mdapi
}  // namespace velmar
