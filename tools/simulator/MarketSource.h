// The synthetic market as a feed source, paced by the rate: the n-th datagram
// is due n / rate seconds after the start. The engine is not thread-safe; the
// source owns it, so only the feed's thread touches it once the feed runs.
#pragma once

#include <cstddef>
#include <vector>

#include "sim/MarketEngine.h"
#include "simulator/FeedSource.h"
#include "simulator/SimOptions.h"

namespace velmar {
namespace sim {

class MarketSource : public FeedSource {
 public:
  explicit MarketSource(const SimOptions& o);

  bool next(Datagram* d, int64_t* dueUs) override;
  bool caughtUp() const override { return pending_.empty(); }
  std::vector<CVelmarMarketData> records() const override;
  std::optional<std::string> trueBook(const std::string& id) const override;
  std::string description() const override;

  /// Throws std::out_of_range unless the id is a Shenzhen stock.
  void checkStock(const std::string& id) const;

 private:
  MarketEngine engine_;
  double rate_;
  uint64_t seed_;
  std::vector<Datagram> pending_;  // the rest of the engine's latest step
  size_t at_ = 0;
  int64_t sent_ = 0;
};

}  // namespace sim
}  // namespace velmar
