// The feed never creates a record: the front delivers one per subscribed
// instrument, and a message only changes what it carries, so whatever it does
// not carry stays as the front or the last message left it.
//
// Numbers with implied decimals are converted as the raw unsigned integer
// divided in double precision, truncated toward zero where the record's field
// is an integer. The divisors differ between messages even for the same kind
// of value; each one below is taken from its own message's layout.
#include "VLClientApi/SnapshotHandlers.h"

#include <algorithm>
#include <cstring>

#include "VLClientApi/FeedMessages.h"
#include "VLClientApi/SharedStateLock.h"
#include "VLClientApi/Subscriptions.h"
#include "utility/ByteOrder.h"
#include "utility/Logging.h"
#include "utility/PrintableBytes.h"

namespace velmar {
namespace mdapi {

using utility::loadLE;

namespace {

/// Size of the record's queue arrays; larger counts in a message are cut here.
constexpr size_t kQueueLimit = 50;

inline double scaled(uint64_t raw, double divisor) {
  return static_cast<double>(raw) / divisor;
}
inline int64_t scaledWhole(uint64_t raw, double divisor) {
  return static_cast<int64_t>(static_cast<double>(raw) / divisor);
}

/// A message is late if the record already holds more volume, or the same
/// volume at the same or a later time. Volume decides first: a message with
/// more volume is applied whatever its time says.
inline bool isStale(const CVelmarMarketData& record, int64_t volume, int64_t time) {
  return record.TotalVolume > volume || (record.TotalVolume == volume && record.UpdateTime >= time);
}

/// One array of a ten-level snapshot: where it starts and its divisor.
struct LevelArray {
  size_t offset;
  double divisor;
};

/// The ten price levels of both ten-level snapshots: u32 prices and u64
/// quantities, each array packed behind its start offset.
inline void writeLevels(CVelmarMarketData* r, const char* msg, LevelArray bidPx, LevelArray bidQty,
                        LevelArray offerPx, LevelArray offerQty) {
  for (size_t i = 0; i < 10; ++i) {
    r->BidPrice[i] = scaled(loadLE<uint32_t>(msg + bidPx.offset + 4 * i), bidPx.divisor);
    r->AskPrice[i] = scaled(loadLE<uint32_t>(msg + offerPx.offset + 4 * i), offerPx.divisor);
    r->BidVolume[i] = scaledWhole(loadLE<uint64_t>(msg + bidQty.offset + 8 * i), bidQty.divisor);
    r->AskVolume[i] =
        scaledWhole(loadLE<uint64_t>(msg + offerQty.offset + 8 * i), offerQty.divisor);
  }
}

inline uint8_t cappedQueueSize(unsigned count) {
  return static_cast<uint8_t>(std::min<unsigned>(count, kQueueLimit));
}

// Every fixed field of every snapshot message lies far inside the receive
// buffer; the queues are checked where they are read.
static_assert(feed::sse_snapshot::QueueQty + 4 * kQueueLimit <= feed::kReceiveSize,
              "Shanghai bid queue inside the receive buffer");
static_assert(feed::kBodyOffset + feed::szse_snapshot::QueueQty + 4 * 2 * kQueueLimit <=
                  feed::kReceiveSize,
              "Shenzhen queues inside the receive buffer");
static_assert(feed::sse_index::CloseIndex + 8 <= feed::kReceiveSize, "Shanghai index");
static_assert(feed::kBodyOffset + feed::szse_index::LowIndex + 8 <= feed::kReceiveSize,
              "Shenzhen index");
static_assert(feed::kBodyOffset + feed::szse_volume_stat::TotalValueTrade + 8 <= feed::kReceiveSize,
              "Shenzhen volume statistics");

}  // namespace

SnapshotHandlers::SnapshotHandlers(SessionCore& core, Subscriptions& subscriptions,
                                   SessionCounters& counters)
    : core_(core),
      subscriptions_(subscriptions),
      counters_(counters),
      scratch_(new CVelmarMarketData()) {}

SnapshotHandlers::~SnapshotHandlers() = default;

CVelmarMarketData* SnapshotHandlers::stale() {
  SessionCounters::add(counters_.receiver.droppedStale);
  return nullptr;
}

template <typename Apply>
void SnapshotHandlers::deliver(Apply apply) {
  utility::MutexLockGuard lock(core_.callbackMutex(SessionCore::Caller::kFeed));
  CVelmarMarketData* r;
  {
    SharedStateLock shared(core_);
    r = apply();
    if (r == nullptr) return;
    // Once mutex_ is let go the front may replace or free the stored record
    // (an unsubscription erases it), so the callback gets a copy.
    if (!core_.serializeCallbacks_) r = &(*scratch_ = *r);
  }
  SessionCounters::add(counters_.receiver.callbacksMarketData);
  core_.spi_->OnRtnMarketData(r);
}

void SnapshotHandlers::onSseSnapshot(const char* datagram) {
  // The only handler that looks at readiness before the lock: a cheap early
  // out while the front is still delivering its records.
  if (!core_.snapshotsComplete_.load(std::memory_order_acquire)) return;
  deliver([this, datagram] { return applySseSnapshot(datagram); });
}
void SnapshotHandlers::onSseIndex(const char* datagram) {
  deliver([this, datagram] { return applySseIndex(datagram); });
}
void SnapshotHandlers::onSzseSnapshot(const char* body) {
  deliver([this, body] { return applySzseSnapshot(body); });
}
void SnapshotHandlers::onSzseIndex(const char* body) {
  deliver([this, body] { return applySzseIndex(body); });
}
void SnapshotHandlers::onSzseVolumeStat(const char* body) {
  deliver([this, body] { return applySzseVolumeStat(body); });
}

CVelmarMarketData* SnapshotHandlers::applySseSnapshot(const char* datagram) {
  namespace m = feed::sse_snapshot;
  const char* securityId = datagram + m::SecurityID;
  CVelmarMarketData* r = subscriptions_.shanghaiRecord(securityIdKey(securityId));
  if (r == nullptr) return nullptr;

  const uint32_t time = loadLE<uint32_t>(datagram + m::DataTimeStamp);
  const int64_t volume =
      scaledWhole(loadLE<uint64_t>(datagram + m::TotalVolumeTrade), m::TotalVolumeTradeDiv);
  if (isStale(*r, volume, time)) return stale();

  r->ExchangeID = 1;
  r->SecurityType = 1;
  std::memcpy(r->SecurityID, securityId, 8);
  r->LastPrice = scaled(loadLE<uint32_t>(datagram + m::LastPx), m::LastPxDiv);
  r->PreClosePrice = scaled(loadLE<uint32_t>(datagram + m::PreClosePx), m::PreClosePxDiv);
  r->OpenPrice = scaled(loadLE<uint32_t>(datagram + m::OpenPx), m::OpenPxDiv);
  r->HighPrice = scaled(loadLE<uint32_t>(datagram + m::HighPx), m::HighPxDiv);
  r->LowPrice = scaled(loadLE<uint32_t>(datagram + m::LowPx), m::LowPxDiv);
  r->UpdateTime = time;
  r->TotalVolume = volume;
  r->TotalValue = scaled(loadLE<uint64_t>(datagram + m::TotalValueTrade), m::TotalValueTradeDiv);
  // The message has no average price; it is derived from the two totals just
  // stored. A zero volume gives infinity or NaN, and that is passed on as is.
  r->AvgPrice = r->TotalValue / static_cast<double>(r->TotalVolume);
  r->NumTrades = loadLE<uint32_t>(datagram + m::NumTrades);
  std::memcpy(r->TradingPhaseCode, datagram + m::TradingPhaseCode, 8);
  writeLevels(r, datagram, {m::BidPx, m::BidPxDiv}, {m::BidQty, m::BidQtyDiv},
              {m::OfferPx, m::OfferPxDiv}, {m::OfferQty, m::OfferQtyDiv});
  r->Reserved = 0;
  r->TotalBidVolume = scaledWhole(loadLE<uint64_t>(datagram + m::TotalBidQty), m::TotalBidQtyDiv);
  r->TotalAskVolume =
      scaledWhole(loadLE<uint64_t>(datagram + m::TotalOfferQty), m::TotalOfferQtyDiv);
  r->WeightedAvgBidPrice =
      scaled(loadLE<uint32_t>(datagram + m::WeightedAvgBidPx), m::WeightedAvgBidPxDiv);
  r->WeightedAvgAskPrice =
      scaled(loadLE<uint32_t>(datagram + m::WeightedAvgOfferPx), m::WeightedAvgOfferPxDiv);
  r->AltWeightedAvgBidPrice =
      scaled(loadLE<uint32_t>(datagram + m::AltWeightedAvgBidPx), m::AltWeightedAvgBidPxDiv);
  r->AltWeightedAvgAskPrice =
      scaled(loadLE<uint32_t>(datagram + m::AltWeightedAvgOfferPx), m::AltWeightedAvgOfferPxDiv);
  r->YieldToMaturity =
      scaled(loadLE<uint32_t>(datagram + m::YieldToMaturity), m::YieldToMaturityDiv);
  r->IOPV = scaled(loadLE<uint32_t>(datagram + m::IOPV), m::IOPVDiv);
  r->EtfBuyNumber = loadLE<uint32_t>(datagram + m::EtfBuyNumber);
  r->EtfSellNumber = loadLE<uint32_t>(datagram + m::EtfSellNumber);
  r->EtfBuyAmount = static_cast<double>(loadLE<uint64_t>(datagram + m::EtfBuyAmount));
  r->EtfSellAmount = static_cast<double>(loadLE<uint64_t>(datagram + m::EtfSellAmount));
  r->EtfBuyMoney = scaled(loadLE<uint32_t>(datagram + m::EtfBuyMoney), m::EtfBuyMoneyDiv);
  r->EtfSellMoney = scaled(loadLE<uint32_t>(datagram + m::EtfSellMoney), m::EtfSellMoneyDiv);
  r->WithdrawBuyNumber = loadLE<uint32_t>(datagram + m::WithdrawBuyNumber);
  r->WithdrawSellNumber = loadLE<uint32_t>(datagram + m::WithdrawSellNumber);
  r->WithdrawBuyAmount = static_cast<double>(loadLE<uint64_t>(datagram + m::WithdrawBuyAmount));
  r->WithdrawSellAmount = static_cast<double>(loadLE<uint64_t>(datagram + m::WithdrawSellAmount));
  r->WithdrawBuyMoney =
      scaled(loadLE<uint32_t>(datagram + m::WithdrawBuyMoney), m::WithdrawBuyMoneyDiv);
  r->WithdrawSellMoney =
      scaled(loadLE<uint32_t>(datagram + m::WithdrawSellMoney), m::WithdrawSellMoneyDiv);
  r->TotalBidNumber = loadLE<uint32_t>(datagram + m::TotalBidNumber);
  r->TotalOfferNumber = loadLE<uint32_t>(datagram + m::TotalOfferNumber);
  r->BidTradeMaxDuration = loadLE<uint32_t>(datagram + m::BidTradeMaxDuration);
  r->OfferTradeMaxDuration = loadLE<uint32_t>(datagram + m::OfferTradeMaxDuration);
  r->NumBidOrders = loadLE<uint32_t>(datagram + m::NumBidOrders);
  r->NumOfferOrders = loadLE<uint32_t>(datagram + m::NumOfferOrders);
  r->BestBidOrderCount = loadLE<uint32_t>(datagram + m::BestBidNumOrders);
  r->BestAskOrderCount = loadLE<uint32_t>(datagram + m::BestOfferNumOrders);

  // Queues: only the entries below the stored size are written; older ones
  // above it stay, and the size says how far the arrays are valid.
  const uint16_t bidCount = loadLE<uint16_t>(datagram + m::BestBidQueueCount);
  const uint16_t offerCount = loadLE<uint16_t>(datagram + m::BestOfferQueueCount);
  const uint8_t bidSize = cappedQueueSize(bidCount);
  const uint8_t askSize = cappedQueueSize(offerCount);
  r->BestBidQueueSize = bidSize;
  r->BestAskQueueSize = askSize;
  const char* queue = datagram + m::QueueQty;
  for (size_t i = 0; i < bidSize; ++i) r->BestBidQueue[i] = loadLE<uint32_t>(queue + 4 * i);
  // The offer queue stands behind the whole bid queue of the message, so its
  // position follows the message's own count, not the capped one. That count
  // is a u16: a sender that ignores the limit of 50 could place offer entries
  // up to 256 KiB behind the datagram's start, far outside the receive buffer.
  // Entries are read only while they lie inside the buffer; one that would lie
  // outside it is stored as 0 rather than left with an older value, so the
  // stored size still covers exactly what this message wrote.
  constexpr size_t kEntriesInBuffer = (feed::kReceiveSize - m::QueueQty) / 4;
  for (size_t i = 0; i < askSize; ++i) {
    const size_t entry = bidCount + i;
    r->BestAskQueue[i] = entry < kEntriesInBuffer ? loadLE<uint32_t>(queue + 4 * entry) : 0;
  }

  return r;
}

CVelmarMarketData* SnapshotHandlers::applySseIndex(const char* datagram) {
  namespace m = feed::sse_index;
  if (!core_.snapshotsComplete_.load(std::memory_order_relaxed)) return nullptr;
  const char* securityId = datagram + m::SecurityID;
  CVelmarMarketData* r = subscriptions_.shanghaiRecord(securityIdKey(securityId));
  if (r == nullptr) return nullptr;

  const uint32_t time = loadLE<uint32_t>(datagram + m::DataTimeStamp);
  const uint64_t rawVolume = loadLE<uint64_t>(datagram + m::TotalVolumeTraded);
  const int64_t volume = scaledWhole(rawVolume, m::TotalVolumeTradedDiv);
  if (isStale(*r, volume, time)) return stale();

  r->ExchangeID = 1;
  r->SecurityType = 2;
  std::memcpy(r->SecurityID, securityId, 8);
  r->UpdateTime = time;
  // The Shanghai index message sends 0 for a value it does not have yet (no
  // open before the opening, no close before the close); a 0 must not wipe
  // what the record already knows.
  if (rawVolume != 0) r->TotalVolume = volume;
  auto setPrice = [datagram](double& field, size_t offset, double divisor) {
    const uint64_t raw = loadLE<uint64_t>(datagram + offset);
    if (raw != 0) field = scaled(raw, divisor);
  };
  setPrice(r->TotalValue, m::Turnover, m::TurnoverDiv);
  setPrice(r->LastPrice, m::LastIndex, m::LastIndexDiv);
  setPrice(r->PreClosePrice, m::PreCloseIndex, m::PreCloseIndexDiv);
  setPrice(r->OpenPrice, m::OpenIndex, m::OpenIndexDiv);
  setPrice(r->HighPrice, m::HighIndex, m::HighIndexDiv);
  setPrice(r->LowPrice, m::LowIndex, m::LowIndexDiv);
  setPrice(r->ClosePrice, m::CloseIndex, m::CloseIndexDiv);

  return r;
}

CVelmarMarketData* SnapshotHandlers::applySzseSnapshot(const char* body) {
  namespace m = feed::szse_snapshot;
  if (!core_.snapshotsComplete_.load(std::memory_order_relaxed)) return nullptr;
  const std::string key = securityIdKey(body + m::SecurityID);
  CVelmarMarketData* r = subscriptions_.shenzhenRecord(key);
  if (r == nullptr) return nullptr;

  const int64_t time = loadLE<int64_t>(body + m::OrigTime);
  const uint64_t rawVolume = loadLE<uint64_t>(body + m::TotalVolumeTrade);
  const int64_t volume = scaledWhole(rawVolume, m::TotalVolumeTradeDiv);
  if (isStale(*r, volume, time)) {
    LOG_INFO << "SzseMd MD_LOST Applseqnum " << rawVolume << ",SecurityID "
             << utility::PrintableBytes{key.data(), key.size()}
             << ",time:" << time;
    return stale();
  }

  // ExchangeID is already 2 (the record came from the Shenzhen map), and the
  // message has no previous close: PreClosePrice stays as the front, the index
  // or the volume statistics left it.
  r->SecurityType = 1;
  r->LastPrice = scaled(loadLE<uint32_t>(body + m::LastPx), m::LastPxDiv);
  r->OpenPrice = scaled(loadLE<uint32_t>(body + m::OpenPx), m::OpenPxDiv);
  r->HighPrice = scaled(loadLE<uint32_t>(body + m::HighPx), m::HighPxDiv);
  r->LowPrice = scaled(loadLE<uint32_t>(body + m::LowPx), m::LowPxDiv);
  r->UpperLimitPrice = scaled(loadLE<uint32_t>(body + m::UpperLimitPx), m::UpperLimitPxDiv);
  r->LowerLimitPrice = scaled(loadLE<uint32_t>(body + m::LowerLimitPx), m::LowerLimitPxDiv);
  r->UpdateTime = time;
  r->TotalVolume = volume;
  r->TotalValue = scaled(loadLE<uint64_t>(body + m::TotalValueTrade), m::TotalValueTradeDiv);
  r->AvgPrice = scaled(loadLE<uint32_t>(body + m::AvgPx), m::AvgPxDiv);
  r->NumTrades = loadLE<int64_t>(body + m::NumTrades);
  std::memcpy(r->TradingPhaseCode, body + m::TradingPhaseCode, 8);
  writeLevels(r, body, {m::BidPx, m::BidPxDiv}, {m::BidQty, m::BidQtyDiv},
              {m::OfferPx, m::OfferPxDiv}, {m::OfferQty, m::OfferQtyDiv});
  r->Reserved = 0;
  r->TotalBidVolume = scaledWhole(loadLE<uint64_t>(body + m::TotalBidQty), m::TotalBidQtyDiv);
  r->TotalAskVolume = scaledWhole(loadLE<uint64_t>(body + m::TotalOfferQty), m::TotalOfferQtyDiv);
  r->WeightedAvgBidPrice =
      scaled(loadLE<uint32_t>(body + m::WeightedAvgBidPx), m::WeightedAvgBidPxDiv);
  r->WeightedAvgAskPrice =
      scaled(loadLE<uint32_t>(body + m::WeightedAvgOfferPx), m::WeightedAvgOfferPxDiv);
  r->IOPV = scaled(loadLE<uint32_t>(body + m::IOPV), m::IOPVDiv);
  r->BestBidOrderCount = loadLE<uint32_t>(body + m::BestBidNumOrders);
  r->BestAskOrderCount = loadLE<uint32_t>(body + m::BestOfferNumOrders);

  // Counts are u8 here. Unlike the Shanghai message, the offer queue is taken
  // from behind the stored (capped) bid count; with both capped at 50 every
  // read stays within 780 bytes of the body.
  const uint8_t bidSize = cappedQueueSize(static_cast<uint8_t>(body[m::BestBidQueueCount]));
  const uint8_t askSize = cappedQueueSize(static_cast<uint8_t>(body[m::BestOfferQueueCount]));
  r->BestBidQueueSize = bidSize;
  r->BestAskQueueSize = askSize;
  const char* queue = body + m::QueueQty;
  // A u32 divided by a whole divisor in double precision and truncated equals
  // the integer quotient: the double quotient is never within rounding
  // distance of the next whole number. The integer form is cheaper on this
  // hot path.
  constexpr uint32_t kQueueDiv = static_cast<uint32_t>(m::QueueQtyDiv);
  static_assert(kQueueDiv == m::QueueQtyDiv, "the queue divisor is a whole number");
  for (size_t i = 0; i < bidSize; ++i)
    r->BestBidQueue[i] = loadLE<uint32_t>(queue + 4 * i) / kQueueDiv;
  const char* offerQueue = queue + 4 * size_t{bidSize};
  for (size_t i = 0; i < askSize; ++i)
    r->BestAskQueue[i] = loadLE<uint32_t>(offerQueue + 4 * i) / kQueueDiv;

  return r;
}

CVelmarMarketData* SnapshotHandlers::applySzseIndex(const char* body) {
  namespace m = feed::szse_index;
  if (!core_.snapshotsComplete_.load(std::memory_order_relaxed)) return nullptr;
  CVelmarMarketData* r = subscriptions_.shenzhenRecord(securityIdKey(body + m::SecurityID));
  if (r == nullptr) return nullptr;

  const int64_t time = loadLE<int64_t>(body + m::OrigTime);
  const int64_t volume =
      scaledWhole(loadLE<uint64_t>(body + m::TotalVolumeTrade), m::TotalVolumeTradeDiv);
  if (isStale(*r, volume, time)) return stale();

  // Unlike the Shanghai index, every value is written, zeros included.
  r->ExchangeID = 2;
  r->SecurityType = 2;
  r->UpdateTime = time;
  r->TotalVolume = volume;
  r->TotalValue = scaled(loadLE<uint64_t>(body + m::TotalValueTrade), m::TotalValueTradeDiv);
  r->LastPrice = scaled(loadLE<uint64_t>(body + m::LastIndex), m::LastIndexDiv);
  r->PreClosePrice = scaled(loadLE<uint64_t>(body + m::PreCloseIndex), m::PreCloseIndexDiv);
  r->OpenPrice = scaled(loadLE<uint64_t>(body + m::OpenIndex), m::OpenIndexDiv);
  r->HighPrice = scaled(loadLE<uint64_t>(body + m::HighIndex), m::HighIndexDiv);
  r->LowPrice = scaled(loadLE<uint64_t>(body + m::LowIndex), m::LowIndexDiv);
  r->NumTrades = loadLE<int64_t>(body + m::NumTrades);
  std::memcpy(r->TradingPhaseCode, body + m::TradingPhaseCode, 8);

  return r;
}

CVelmarMarketData* SnapshotHandlers::applySzseVolumeStat(const char* body) {
  namespace m = feed::szse_volume_stat;
  if (!core_.snapshotsComplete_.load(std::memory_order_relaxed)) return nullptr;
  const char* securityId = body + m::SecurityID;
  CVelmarMarketData* r = subscriptions_.shenzhenRecord(securityIdKey(securityId));
  if (r == nullptr) return nullptr;

  const int64_t time = loadLE<int64_t>(body + m::OrigTime);
  const int64_t volume =
      scaledWhole(loadLE<uint64_t>(body + m::TotalVolumeTrade), m::TotalVolumeTradeDiv);
  if (isStale(*r, volume, time)) return stale();

  r->ExchangeID = 2;
  r->SecurityType = 1;
  std::memcpy(r->SecurityID, securityId, 8);
  r->UpdateTime = time;
  r->TotalVolume = volume;
  r->TotalValue = scaled(loadLE<uint64_t>(body + m::TotalValueTrade), m::TotalValueTradeDiv);
  r->PreClosePrice = scaled(loadLE<uint64_t>(body + m::PrevClosePx), m::PrevClosePxDiv);
  r->NumTrades = loadLE<int64_t>(body + m::NumTrades);
  std::memcpy(r->TradingPhaseCode, body + m::TradingPhaseCode, 8);

  return r;
}

}  // namespace mdapi
}  // namespace velmar
