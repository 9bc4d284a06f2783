#include "simulator/MarketSource.h"

#include "sim/MarketRecords.h"

namespace velmar {
namespace sim {

namespace {

MarketConfig configOf(const SimOptions& o) {
  MarketConfig c;
  c.seed = o.seed;
  c.snapshotIntervalMs = o.snapshotMs;
  c.tradingDay = o.tradingDay;
  // About one datagram per event, so that simulated time keeps roughly to
  // the wall clock at the chosen rate.
  if (o.rate > 0) c.meanEventIntervalUs = static_cast<int64_t>(1e6 / o.rate) + 1;
  return c;
}

}  // namespace

MarketSource::MarketSource(const SimOptions& o)
    : engine_(configOf(o)), rate_(o.rate), seed_(o.seed) {}

bool MarketSource::next(Datagram* d, int64_t* dueUs) {
  while (pending_.empty()) {
    pending_ = engine_.step();
    at_ = 0;
  }
  *d = std::move(pending_[at_++]);
  if (at_ == pending_.size()) pending_.clear();
  *dueUs = rate_ > 0 ? static_cast<int64_t>(static_cast<double>(sent_) * 1e6 / rate_) : -1;
  ++sent_;
  return true;
}

std::vector<CVelmarMarketData> MarketSource::records() const {
  return engineRecords(engine_);
}

std::optional<std::string> MarketSource::trueBook(const std::string& id) const {
  return trueBookText(engine_.book(Exchange::kShenzhen, id));
}

std::string MarketSource::description() const {
  return "the synthetic market, seed " + std::to_string(seed_);
}

void MarketSource::checkStock(const std::string& id) const {
  engine_.book(Exchange::kShenzhen, id);
}

}  // namespace sim
}  // namespace velmar
