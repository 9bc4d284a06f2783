// Where vlmd-sim's datagrams come from: the synthetic market, a recording or
// a converted real day. All calls come from the feed's thread, except those
// made before it starts.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "VelmarMdStruct.h"
#include "sim/Datagram.h"

namespace velmar {
namespace sim {

class FeedSource {
 public:
  virtual ~FeedSource() = default;

  /// The next datagram and when it is due, in microseconds after the start
  /// (-1: at once). False when there is nothing more, or on an error().
  virtual bool next(Datagram* d, int64_t* dueUs) = 0;
  /// Called after a datagram has gone out (or was recorded, when nothing is
  /// sent).
  virtual void sent(const Datagram& d) { (void)d; }
  /// True when everything the source's state reflects has been sent, so that
  /// records taken now are not ahead of the feed.
  virtual bool caughtUp() const { return true; }
  /// The current market-data records, for the front.
  virtual std::vector<CVelmarMarketData> records() const = 0;
  /// The true book text of a Shenzhen stock, if the source knows it.
  virtual std::optional<std::string> trueBook(const std::string& id) const {
    (void)id;
    return std::nullopt;
  }
  /// Why next() stopped early; empty if it did not.
  virtual std::string error() const { return std::string(); }
  /// What is published, for the start line and the recording's comment.
  virtual std::string description() const = 0;
};

}  // namespace sim
}  // namespace velmar
