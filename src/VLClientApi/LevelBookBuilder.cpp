#include "VLClientApi/LevelBookBuilder.h"

#include "VLClientApi/OrderBookNode.h"
#include "VLClientApi/OrderBookRules.h"

namespace velmar {
namespace mdapi {

std::unique_ptr<CVelmarOrderBook> LevelBookBuilder::makeBook(const char* id16) {
  return makeOrderBook(id16);
}

bool LevelBookBuilder::apply(CVelmarOrderBook& book, const char* body, int32_t kind) {
  // A snapshot without a last price (an instrument that has not traded yet)
  // seeds nothing; every refusal is silent.
  if (kind == orderBookNode::kSnapshot && !snapshotHasLastPx(body)) return false;
  if (!bookAccepts(book, body, kind)) return false;
  switch (kind) {
    case orderBookNode::kTrade:
      applyTrade(book, body);
      break;
    case orderBookNode::kOrder:
      applyOrder(book, body);
      break;
    default:
      applySnapshot(book, body);
      break;
  }
  return true;
}

}  // namespace mdapi
}  // namespace velmar
