// The update rules of a Shenzhen order book: orders, trades and cancellations,
// snapshots. See OrderBookRules.h for the contract of each function.
//
// Prices. A book mixes prices from snapshots and from orders and trades, whose
// divisors differ (see the layouts in FeedMessages.h), and finds levels by
// exact double equality. That works because each price is exactly one division
// of an exactly representable integer by an exactly representable power of
// ten, correctly rounded, so the same decimal price gives the same double from
// either source. No other arithmetic may touch these conversions (the
// build also forbids contracting a multiply and an add into one instruction).
//
// Quantities are the raw value divided by the layout's divisor in double
// precision, truncated toward zero.
//
// Sums and differences of quantities wrap instead of overflowing: the feed
// decides their size, and a hostile value must not be undefined behaviour.
//
// The "[Test]" lines are DEBUG lines in the name of the book thread's loop, so
// they read the same wherever the rule lives. Each is built only when the
// level admits DEBUG; below it the macro costs one comparison.
#include "VLClientApi/OrderBookRules.h"

#include <charconv>
#include <cstring>
#include <string>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "VLClientApi/FeedMessages.h"
#include "utility/ByteOrder.h"
#include "utility/Logging.h"

namespace velmar {
namespace mdapi {

using utility::loadLE;

namespace {

constexpr char kLoopName[] = "velmar::mdapi::MdApiImpl::runOrderBook";
constexpr int kLevels = 10;

inline double scaled(uint64_t raw, double divisor) {
  return static_cast<double>(raw) / divisor;
}
inline int64_t scaledWhole(uint64_t raw, double divisor) {
  return static_cast<int64_t>(static_cast<double>(raw) / divisor);
}

inline int64_t wrapAdd(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}
inline int64_t wrapSub(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

/// The three arrays of one side; a level is one index into all three.
struct Side {
  double* price;
  int64_t* qty;
  std::string* orders;
};
inline Side bidSide(CVelmarOrderBook& b) {
  return Side{b.Bid, b.BidQty, b.BidOrders};
}
inline Side askSide(CVelmarOrderBook& b) {
  return Side{b.Ask, b.AskQty, b.AskOrders};
}

/// Writes the decimal text of n followed by a comma; returns the length.
/// `out` needs 21 bytes.
inline size_t formatEntry(char* out, int64_t n) {
  char* end = std::to_chars(out, out + 20, n).ptr;
  *end++ = ',';
  return static_cast<size_t>(end - out);
}

/// Opens a gap at level i: levels i..8 move down by one, level 9 falls off.
/// Lists are moved, not swapped: a short list's characters are copied once,
/// and a long one's storage changes hands. The list left at level i is
/// overwritten by the caller.
inline void openLevel(const Side& s, int i) {
  for (int j = kLevels - 1; j > i; --j) {
    s.price[j] = s.price[j - 1];
    s.qty[j] = s.qty[j - 1];
    s.orders[j] = std::move(s.orders[j - 1]);
  }
}

/// Deletes level i: levels i+1..9 move up by one, with their lists, and level
/// 9 is cleared to price 0, quantity 0 and the empty list. The list of level
/// i goes with the level, whatever other orders it named.
inline void deleteLevel(const Side& s, int i) {
  for (int j = i; j < kLevels - 1; ++j) {
    s.price[j] = s.price[j + 1];
    s.qty[j] = s.qty[j + 1];
    s.orders[j] = std::move(s.orders[j + 1]);
  }
  s.price[kLevels - 1] = 0;
  s.qty[kLevels - 1] = 0;
  s.orders[kLevels - 1].assign(1, ',');
}

inline void joinLevel(const Side& s, int i, int64_t q, const char* entry, size_t len) {
  s.qty[i] = wrapAdd(s.qty[i], q);
  s.orders[i].append(entry, len);
}

inline void insertLevel(const Side& s, int i, double p, int64_t q, const char* entry, size_t len) {
  openLevel(s, i);
  s.price[i] = p;
  s.qty[i] = q;
  std::string& list = s.orders[i];
  list.assign(1, ',');
  list.append(entry, len);
}

/// The search of findEntry for the start positions from `at` on, one candidate
/// comma at a time.
///
/// A match starts at a comma c and ends at the comma c+len-1, with digits and
/// no comma between. So when the candidate at c fails, no comma c' before the
/// last comma e in (c, c+len-1] can match either: e would stand inside its
/// digits. The search jumps straight to e, which for entries as long as the
/// needle's number is c+len-1 itself, and past c+len-1 when that window holds
/// no comma at all.
inline size_t findEntryFrom(const char* begin, size_t size, const char* needle, size_t len,
                            size_t at) {
  const size_t last = size - len;  // last place a match can start at
  while (at <= last && begin[at] != ',') ++at;
  const char lastDigit = needle[len - 2];
  while (at <= last) {
    const size_t close = at + (len - 1);
    if (begin[close] == ',' && begin[close - 1] == lastDigit &&
        std::memcmp(begin + at + 1, needle + 1, len - 3) == 0)
      return at;
    size_t next = close;
    while (next != at && begin[next] != ',') --next;
    if (next == at) {
      const void* comma = std::memchr(begin + close + 1, ',', size - close - 1);
      if (comma == nullptr) break;
      next = static_cast<size_t>(static_cast<const char*>(comma) - begin);
    }
    at = next;
  }
  return std::string::npos;
}

/// Finds the first needle ",N," in an order list: the same result as
/// std::string::find, fast enough for a cancellation to search ten lists.
/// Where the processor has SSE2 (every x86-64), sixteen start positions are
/// tested at once: a start needs a comma there and len-1 bytes further on,
/// and the needle's first, second-last and last digits at their places. The
/// few positions that pass are compared in full. The last block is moved back
/// to end at the last possible start, overlapping the one before; positions
/// tested twice failed the first time, so the first match stays the first.
/// Lists too short for one block go through findEntryFrom.
inline size_t findEntry(const std::string& list, const char* needle, size_t len) {
  const char* const begin = list.data();
  const size_t size = list.size();
  if (size < len) return std::string::npos;
#if defined(__SSE2__)
  const size_t last = size - len;  // last place a match can start at
  if (last >= 15) {
    const __m128i comma = _mm_set1_epi8(',');
    const __m128i firstDigit = _mm_set1_epi8(needle[1]);
    const __m128i digitBeforeLast = _mm_set1_epi8(needle[len - 3]);  // the comma if one digit
    const __m128i lastDigit = _mm_set1_epi8(needle[len - 2]);
    auto at = [begin](size_t pos) {
      return _mm_loadu_si128(reinterpret_cast<const __m128i*>(begin + pos));
    };
    // The widest load of a block starts at from+len-1 and ends at from+len+14,
    // which is inside the list for every from up to last-15.
    const size_t lastBlock = last - 15;
    for (size_t from = 0;; from += 16) {
      if (from > lastBlock) from = lastBlock;
      __m128i hits =
          _mm_and_si128(_mm_cmpeq_epi8(at(from), comma), _mm_cmpeq_epi8(at(from + len - 1), comma));
      hits = _mm_and_si128(hits, _mm_cmpeq_epi8(at(from + len - 2), lastDigit));
      hits = _mm_and_si128(hits, _mm_cmpeq_epi8(at(from + len - 3), digitBeforeLast));
      hits = _mm_and_si128(hits, _mm_cmpeq_epi8(at(from + 1), firstDigit));
      for (unsigned bits = static_cast<unsigned>(_mm_movemask_epi8(hits)); bits != 0;
           bits &= bits - 1) {
        const size_t pos = from + static_cast<size_t>(__builtin_ctz(bits));
        if (std::memcmp(begin + pos + 1, needle + 1, len - 2) == 0) return pos;
      }
      if (from == lastBlock) return std::string::npos;
    }
  }
#endif
  return findEntryFrom(begin, size, needle, len, 0);
}

void executeOnLevel(const Side& s, bool buy, int i, double p, int64_t q) {
  if (s.qty[i] == q) {
    deleteLevel(s, i);
    if (buy) {
      LOG_DEBUG_IN("MdApiImpl.cpp", kLoopName) << "[Test]Trade F book->Bid[i] delete:" << i << ",old price:" << p
                              << ",qty:" << q;
      LOG_DEBUG_IN("MdApiImpl.cpp", kLoopName) << "[Test]Trade F set book->Bid[j] 0:" << kLevels - 1;
    } else {
      LOG_DEBUG_IN("MdApiImpl.cpp", kLoopName) << "[Test]Trade F book->Ask[i] delete:" << i << ",old price:" << p
                              << ",qty:" << q;
      LOG_DEBUG_IN("MdApiImpl.cpp", kLoopName) << "[Test]Trade F set book->Ask[j] 0:" << kLevels - 1;
    }
  } else {
    // Only equality deletes: a larger q leaves a negative quantity standing
    // until a snapshot or a later message changes it.
    s.qty[i] = wrapSub(s.qty[i], q);
    if (buy) {
      LOG_DEBUG_IN("MdApiImpl.cpp", kLoopName) << "[Test]Trade F book->Bid[i] reduce:" << i << ",price:" << p
                              << ",qty:" << q << ",new qty:" << s.qty[i];
    } else {
      LOG_DEBUG_IN("MdApiImpl.cpp", kLoopName) << "[Test]Trade F book->Ask[i] reduce:" << i << ",price:" << p
                              << ",qty:" << q << ",new qty:" << s.qty[i];
    }
  }
}

void applyExecution(CVelmarOrderBook& book, double p, int64_t q) {
  // The totals move whether or not a level matches.
  book.LastPrice = p;
  book.TotalVolume = wrapAdd(book.TotalVolume, q);
  book.TotalValue += static_cast<double>(q) * p;
  book.NumTrades = wrapAdd(book.NumTrades, 1);

  // One scan over both sides, index by index, buy before sell. A bid above p
  // skips the ask of the same index: in a crossed book the execution may then
  // find no level at all.
  for (int i = 0; i < kLevels; ++i) {
    if (book.Bid[i] == p) {
      executeOnLevel(bidSide(book), true, i, p, q);
      return;
    }
    if (book.Bid[i] > p) continue;
    if (book.Ask[i] == p) {
      executeOnLevel(askSide(book), false, i, p, q);
      return;
    }
  }
}

void applyCancellation(CVelmarOrderBook& book, const char* body, int64_t q) {
  namespace m = feed::szse_trade;
  const int64_t bidNo = loadLE<int64_t>(body + m::BidApplSeqNum);
  const int64_t offerNo = loadLE<int64_t>(body + m::OfferApplSeqNum);
  Side side;
  int64_t number;
  if (bidNo > 0) {  // the buy side wins when both are set
    side = bidSide(book);
    number = bidNo;
  } else if (offerNo > 0) {
    side = askSide(book);
    number = offerNo;
  } else {
    return;
  }

  char needle[24];
  needle[0] = ',';
  const size_t len = 1 + formatEntry(needle + 1, number);

  // The price plays no part: the lists alone say where the order rests. Every
  // level is searched once, at its index as it stands when the loop gets
  // there, also after a delete has moved the levels behind it up.
  for (int i = 0; i < kLevels; ++i) {
    std::string& list = side.orders[i];
    const size_t k = findEntry(list, needle, len);
    if (k == std::string::npos) continue;
    if (side.qty[i] == q) {
      deleteLevel(side, i);
    } else {
      side.qty[i] = wrapSub(side.qty[i], q);
      // Drop ",N" and keep the comma behind it as the next entry's leading one.
      list.erase(k, len - 1);
    }
  }
}

}  // namespace

std::unique_ptr<CVelmarOrderBook> makeOrderBook(const char* id16) {
  // Value-initialisation zeroes every number before the strings are built.
  std::unique_ptr<CVelmarOrderBook> book(new CVelmarOrderBook());
  book->ExchangeID = 2;
  std::memcpy(book->SecurityID, id16, sizeof book->SecurityID);
  for (int i = 0; i < kLevels; ++i) {
    book->BidOrders[i].assign(1, ',');
    book->AskOrders[i].assign(1, ',');
  }
  return book;
}

bool snapshotHasLastPx(const char* body) {
  return loadLE<uint32_t>(body + feed::szse_snapshot::LastPx) != 0;
}

bool bookAccepts(const CVelmarOrderBook& book, const char* body, int32_t kind) {
  int64_t stamp;
  switch (kind) {
    case orderBookNode::kTrade:
      if (book.UpdateTime == 0) return false;  // Fresh: only a snapshot can seed it
      stamp = loadLE<int64_t>(body + feed::szse_trade::TransactTime);
      break;
    case orderBookNode::kOrder:
      if (book.UpdateTime == 0) return false;
      stamp = loadLE<int64_t>(body + feed::szse_order::OrderTime);
      break;
    case orderBookNode::kSnapshot:
      stamp = loadLE<int64_t>(body + feed::szse_snapshot::OrigTime);
      break;
    default:
      return false;
  }
  return book.UpdateTime < stamp;  // strict: an equal stamp has been seen already
}

void applyOrder(CVelmarOrderBook& book, const char* body) {
  namespace m = feed::szse_order;
  const uint64_t rawPrice = loadLE<uint64_t>(body + m::Price);
  const double p = scaled(rawPrice, m::PriceDiv);
  const int64_t q = scaledWhole(loadLE<uint64_t>(body + m::OrderQty), m::OrderQtyDiv);
  const char sideCode = body[m::Side];
  char entry[24];
  const size_t len = formatEntry(entry, loadLE<int64_t>(body + m::ApplSeqNum));

  LOG_DEBUG_IN("MdApiImpl.cpp", kLoopName) << "[Test]start to refresh orderbook by entrust!data->Side:" << sideCode
                          << ",data->Price:" << rawPrice;

  if (sideCode == '1') {
    // Buy: a bid below p is worse. An empty level (price 0) is below any
    // positive p, so buy orders refill a thinned side at its first empty level.
    const Side s = bidSide(book);
    for (int i = 0; i < kLevels; ++i) {
      if (s.price[i] == p) {
        joinLevel(s, i, q, entry, len);
        break;
      }
      if (p > s.price[i]) {
        insertLevel(s, i, p, q, entry, len);
        break;
      }
    }
  } else if (sideCode == '2') {
    // Sell: an ask above p is worse. An empty level's 0 is never above p, so
    // sell orders enter only in front of a populated level (or join an empty
    // level at price 0).
    const Side s = askSide(book);
    for (int i = 0; i < kLevels; ++i) {
      if (s.price[i] == p) {
        joinLevel(s, i, q, entry, len);
        break;
      }
      if (s.price[i] > p) {
        LOG_DEBUG_IN("MdApiImpl.cpp", kLoopName) << "[Test]book->Ask[i] higher:" << i << ",old price:" << s.price[i]
                                << ",insert new price:" << p;
        insertLevel(s, i, p, q, entry, len);
        break;
      }
    }
  } else {
    return;  // unknown side: no level, and the book's time stays
  }
  // Entered or not, an order of a known side moves the book's time.
  book.UpdateTime = loadLE<int64_t>(body + m::OrderTime);
}

void applyTrade(CVelmarOrderBook& book, const char* body) {
  namespace m = feed::szse_trade;
  const double p = scaled(loadLE<uint64_t>(body + m::LastPx), m::LastPxDiv);
  const int64_t q = scaledWhole(loadLE<uint64_t>(body + m::LastQty), m::LastQtyDiv);
  switch (body[m::ExecType]) {
    case 'F':
      applyExecution(book, p, q);
      break;
    case '4':
      applyCancellation(book, body, q);
      break;
    default:
      break;  // no change; the book is published all the same
  }
}

void applySnapshot(CVelmarOrderBook& book, const char* body) {
  namespace m = feed::szse_snapshot;
  LOG_DEBUG_IN("MdApiImpl.cpp", kLoopName) << "[Test]start to refresh orderbook  by md!";
  book.LastPrice = scaled(loadLE<uint32_t>(body + m::LastPx), m::LastPxDiv);
  book.TotalVolume =
      scaledWhole(loadLE<uint64_t>(body + m::TotalVolumeTrade), m::TotalVolumeTradeDiv);
  book.TotalValue = scaled(loadLE<uint64_t>(body + m::TotalValueTrade), m::TotalValueTradeDiv);
  book.NumTrades = loadLE<int64_t>(body + m::NumTrades);
  book.UpdateTime = loadLE<int64_t>(body + m::OrigTime);
  // Prices and quantities of all levels; the order lists stay at their
  // indexes whatever prices the levels now have.
  for (int i = 0; i < kLevels; ++i) {
    book.Bid[i] = scaled(loadLE<uint32_t>(body + m::BidPx + 4 * i), m::BidPxDiv);
    book.BidQty[i] = scaledWhole(loadLE<uint64_t>(body + m::BidQty + 8 * i), m::BidQtyDiv);
    book.Ask[i] = scaled(loadLE<uint32_t>(body + m::OfferPx + 4 * i), m::OfferPxDiv);
    book.AskQty[i] = scaledWhole(loadLE<uint64_t>(body + m::OfferQty + 8 * i), m::OfferQtyDiv);
  }
}

}  // namespace mdapi
}  // namespace velmar
