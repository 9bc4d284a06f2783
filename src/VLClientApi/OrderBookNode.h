#pragma once

#include <cstdint>

namespace velmar {
namespace mdapi {

/// Element of the queue from the receiver thread to the book thread: the body
/// of one Shenzhen message (the datagram's byte 4 on) and what it is.
struct orderBookNode {
  enum Kind : int32_t { kTrade = 0, kOrder = 1, kSnapshot = 2 };

  const char* data = nullptr;
  int32_t kind = 0;
};

}  // namespace mdapi
}  // namespace velmar
