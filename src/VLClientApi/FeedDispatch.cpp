// The entry of every feed datagram and the three tick-by-tick handlers.
//
// Each tick handler holds mutex_ from its first step to its last, callback
// included: the subscription filter, the per-channel sequence check, the fill
// of the scratch record and OnRtnTickByTick.
#include <cstring>

#include "VLClientApi/FeedMessages.h"
#include "VLClientApi/MdApiImpl.h"
#include "utility/ByteOrder.h"
#include "utility/Logging.h"

namespace velmar {
namespace mdapi {

using utility::loadLE;

namespace {

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

void MdApiImpl::onFeedDatagram(const char* datagram) {
  if (!connected_.load(std::memory_order_acquire) || !loggedIn_.load(std::memory_order_acquire))
    return;
  if (datagram == nullptr) {
    LOG_ERROR << "Recv empty msg";
    return;
  }
  const uint32_t type = loadLE<uint32_t>(datagram);
  if (!feedTickRecord_) feedTickRecord_.reset(new CVelmarTickByTick());
  const char* body = datagram + feed::kBodyOffset;
  switch (type) {
    case feed::kSseIndex:
      onSseIndex(datagram);
      break;
    case feed::kSseTrade:
      onSseTrade(feedTickRecord_.get(), datagram);
      break;
    case feed::kSseSnapshot:
      onSseSnapshot(datagram);
      break;
    case feed::kSzseSnapshot:
      books_.handOverToBooks(body, orderBookNode::kSnapshot);
      onSzseSnapshot(body);
      break;
    case feed::kSzseTrade:
      books_.handOverToBooks(body, orderBookNode::kTrade);
      onSzseTrade(feedTickRecord_.get(), body);
      break;
    case feed::kSzseOrder:
      books_.handOverToBooks(body, orderBookNode::kOrder);
      onSzseOrder(feedTickRecord_.get(), body);
      break;
    case feed::kSzseIndex:
      onSzseIndex(body);
      break;
    case feed::kSzseVolumeStat:
      onSzseVolumeStat(body);
      break;
    default:
      break;  // not ours: ignored without a word
  }
}

// The subscription filter: the exchange's all-ticks flag, or the instrument
// in tickSubscriptions_. With the flag set the key text is not even built.
bool MdApiImpl::tickSubscribed(const std::atomic<bool>& allTicks, const char* securityId) const {
  return allTicks.load(std::memory_order_relaxed) ||
         tickSubscriptions_.find(securityIdKey(securityId)) != tickSubscriptions_.end();
}

void MdApiImpl::onSzseOrder(CVelmarTickByTick* record, const char* body) {
  namespace m = feed::szse_order;
  utility::MutexLockGuard lock(mutex_);
  const char* securityId = body + m::SecurityID;
  if (!tickSubscribed(allTickExchange2_, securityId)) return;

  const uint32_t channel = loadLE<uint16_t>(body + m::ChannelNo);
  const int64_t seq = loadLE<int64_t>(body + m::ApplSeqNum);
  int64_t& prev = channelSeq_[channel];
  if (!sequenceAdvances(prev, seq)) {
    LOG_INFO << "ORDER_LOST SecurityID: " << securityIdKey(securityId) << " pre_seq " << prev
             << " , Applseqnum " << seq << " , ChannalNo: " << channel;
    return;
  }

  startTickRecord(record, 2, securityId, seq, loadLE<int64_t>(body + m::OrderTime), 1, channel);
  record->Price = scaled(loadLE<uint64_t>(body + m::Price), 10000);
  record->Qty = scaledWhole(loadLE<uint64_t>(body + m::OrderQty), 100);
  record->Side = body[m::Side];
  record->OrdType = body[m::OrdType];
  prev = seq;  // orders store their number before the callback
  spi_->OnRtnTickByTick(record);
}

void MdApiImpl::onSzseTrade(CVelmarTickByTick* record, const char* body) {
  namespace m = feed::szse_trade;
  utility::MutexLockGuard lock(mutex_);
  const char* securityId = body + m::SecurityID;
  if (!tickSubscribed(allTickExchange2_, securityId)) return;

  const uint32_t channel = loadLE<uint16_t>(body + m::ChannelNo);
  const int64_t seq = loadLE<int64_t>(body + m::ApplSeqNum);
  int64_t& prev = channelSeq_[channel];
  if (!sequenceAdvances(prev, seq)) {
    LOG_INFO << "TRADE_LOST SecurityID: " << securityIdKey(securityId) << " pre_seq " << prev
             << ", Applseqnum " << seq << " , ChannalNo: " << channel;
    return;
  }

  startTickRecord(record, 2, securityId, seq, loadLE<int64_t>(body + m::TransactTime), 2, channel);
  record->Price = scaled(loadLE<uint64_t>(body + m::LastPx), 10000);
  record->Qty = scaledWhole(loadLE<uint64_t>(body + m::LastQty), 100);
  // The Shenzhen trade carries no money. The field holds the channel number,
  // as the front's own records do; nothing in the library reads it.
  record->TradeMoney = static_cast<double>(channel);
  record->BidApplSeqNum = loadLE<int64_t>(body + m::BidApplSeqNum);
  record->OfferApplSeqNum = loadLE<int64_t>(body + m::OfferApplSeqNum);
  record->TradeFlag = body[m::ExecType];
  spi_->OnRtnTickByTick(record);
  prev = seq;  // trades store their number after the callback
}

void MdApiImpl::onSseTrade(CVelmarTickByTick* record, const char* datagram) {
  namespace m = feed::sse_trade;
  utility::MutexLockGuard lock(mutex_);
  const char* securityId = datagram + m::SecurityID;
  if (!tickSubscribed(allTickExchange1_, securityId)) return;

  const uint32_t channel = loadLE<uint32_t>(datagram + m::TradeChannel);
  const int64_t seq = loadLE<int32_t>(datagram + m::TradeIndex);  // signed, sign-extended
  int64_t& prev = channelSeq_[channel];
  if (!sequenceAdvances(prev, seq)) return;  // Shanghai refusals are silent

  startTickRecord(record, 1, securityId, seq, loadLE<uint32_t>(datagram + m::TradeTime), 2, channel);
  record->Price = scaled(loadLE<uint32_t>(datagram + m::TradePrice), 1000);
  record->Qty = scaledWhole(loadLE<uint64_t>(datagram + m::TradeQty), 1000);
  record->TradeMoney = scaled(loadLE<uint64_t>(datagram + m::TradeMoney), 100000);
  record->BidApplSeqNum = static_cast<int64_t>(loadLE<uint64_t>(datagram + m::TradeBuyNo));
  record->OfferApplSeqNum = static_cast<int64_t>(loadLE<uint64_t>(datagram + m::TradeSellNo));
  record->TradeFlag = datagram[m::TradeBSFlag];
  spi_->OnRtnTickByTick(record);
  prev = seq;
}

}  // namespace mdapi
}  // namespace velmar
