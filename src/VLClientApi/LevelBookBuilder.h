// LevelBookBuilder: the ten-level book of OrderBookRules.h (levels of summed
// quantity, each with the text list of its orders), seeded by the first
// snapshot with a price and kept up by orders, trades and cancellations.
//
// Threads: as BookBuilder. It keeps no state of its own; all of it is in the
// book record.
#pragma once

#include "VLClientApi/BookBuilder.h"

namespace velmar {
namespace mdapi {

class LevelBookBuilder final : public BookBuilder {
 public:
  std::unique_ptr<CVelmarOrderBook> makeBook(const char* id16) override;
  bool apply(CVelmarOrderBook& book, const char* body, int32_t kind) override;
};

}  // namespace mdapi
}  // namespace velmar
