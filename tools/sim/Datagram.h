// One datagram of the feed together with the moment it belongs to.
#pragma once

#include <cstdint>

#include "sim/FeedEncoder.h"

namespace velmar {
namespace sim {

struct Datagram {
  /// Microseconds since the start of the session: simulated time for the
  /// engine's output, recorded time for a replayed session.
  int64_t timeUs = 0;
  Bytes bytes;
};

}  // namespace sim
}  // namespace velmar
