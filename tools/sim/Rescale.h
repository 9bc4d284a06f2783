// A count in some unit as the raw value of a feed field. A field holds the
// real value times its divisor (VLClientApi/FeedMessages.h); a count with
// `perWhole` of it to the whole (100 fen to the yuan, 1 share to the share,
// 10000 to the yuan for a vendor's prices) is that count times divisor over
// perWhole. Both are powers of ten, so one divides the other and the
// arithmetic stays in integers; a coarser field cuts the rest off.
#pragma once

#include <cstdint>

namespace velmar {
namespace sim {

inline int64_t rescale(int64_t count, int64_t perWhole, double divisor) {
  const auto d = static_cast<int64_t>(divisor);
  return d >= perWhole ? count * (d / perWhole) : count / (perWhole / d);
}

}  // namespace sim
}  // namespace velmar
