// The market-data records the front hands out, as the feed's thread last
// left them. The feed's thread sets them; the front's thread reads them when
// it answers a subscription. mutex_ guards records_.
#pragma once

#include <mutex>
#include <vector>

#include "VelmarMdStruct.h"
#include "front/FrontSimulator.h"

namespace velmar {
namespace sim {

class SharedRecords {
 public:
  /// Feed's thread (or the main thread before the feed starts).
  void set(std::vector<CVelmarMarketData> records);
  /// The front's source of records; its functions run on the front's thread.
  FrontMarketData provider();

 private:
  std::mutex mutex_;
  std::vector<CVelmarMarketData> records_;
};

}  // namespace sim
}  // namespace velmar
