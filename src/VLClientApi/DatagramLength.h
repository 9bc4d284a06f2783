// The length a feed datagram must have to hold everything its handler reads:
// the fixed part of its message type's layout, and for the ten-level
// snapshots the queue entries the message announces. A shorter datagram is
// still handled (the receive buffer reads as zeros behind it) but counted as
// short: either the feed cut it or it is not what its type says.
#pragma once

#include <cstddef>
#include <cstdint>

#include "VLClientApi/FeedMessages.h"
#include "utility/ByteOrder.h"

namespace velmar {
namespace mdapi {
namespace feed {

/// `datagram` lies in a buffer of kReceiveSize bytes (see ReceiveBuffer);
/// its type and queue counts are read from there. 4 for a type that is not
/// ours: only the type itself is read.
inline size_t expectedLength(const char* datagram) {
  using utility::loadLE;
  switch (loadLE<uint32_t>(datagram)) {
    case kSseIndex:
      return sse_index::CloseIndex + 8;
    case kSseTrade:
      return sse_trade::TradeBSFlag + 1;
    case kSseSnapshot:
      return sse_snapshot::QueueQty +
             4 * (size_t{loadLE<uint16_t>(datagram + sse_snapshot::BestBidQueueCount)} +
                  loadLE<uint16_t>(datagram + sse_snapshot::BestOfferQueueCount));
    case kSzseSnapshot: {
      const char* body = datagram + kBodyOffset;
      return kBodyOffset + szse_snapshot::QueueQty +
             4 * (size_t{static_cast<uint8_t>(body[szse_snapshot::BestBidQueueCount])} +
                  static_cast<uint8_t>(body[szse_snapshot::BestOfferQueueCount]));
    }
    case kSzseTrade:
      return kBodyOffset + szse_trade::Size;
    case kSzseOrder:
      return kBodyOffset + szse_order::Size;
    case kSzseIndex:
      return kBodyOffset + szse_index::LowIndex + 8;
    case kSzseVolumeStat:
      return kBodyOffset + szse_volume_stat::TotalValueTrade + 8;
    default:
      return 4;
  }
}

}  // namespace feed
}  // namespace mdapi
}  // namespace velmar
