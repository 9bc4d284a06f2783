// A feed source that plays datagrams recorded earlier (a recording, a
// converted real day), paced by their own times and the speed. The records
// the front hands out follow the datagrams that have gone out.
#pragma once

#include "sim/MarketRecords.h"
#include "simulator/FeedSource.h"

namespace velmar {
namespace sim {

class RecordedSource : public FeedSource {
 public:
  /// speed 1 plays as recorded, 2 twice as fast, 0 at once.
  explicit RecordedSource(double speed) : speed_(speed) {}

  bool next(Datagram* d, int64_t* dueUs) override;
  void sent(const Datagram& d) override;
  std::vector<CVelmarMarketData> records() const override { return records_.records(); }

 protected:
  /// The next recorded datagram; false at the end or on an error.
  virtual bool fetch(Datagram* d) = 0;
  /// Makes the instruments of a datagram known before it is sent, so that
  /// a client can subscribe to any of them from the start.
  void learn(const Datagram& d);
  size_t instrumentCount() const { return records_.size(); }

 private:
  double speed_;
  FeedRecords records_;
};

}  // namespace sim
}  // namespace velmar
