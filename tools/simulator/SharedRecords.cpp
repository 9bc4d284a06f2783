#include "simulator/SharedRecords.h"

namespace velmar {
namespace sim {

void SharedRecords::set(std::vector<CVelmarMarketData> records) {
  std::lock_guard<std::mutex> lock(mutex_);
  records_ = std::move(records);
}

FrontMarketData SharedRecords::provider() {
  FrontMarketData m;
  m.instruments = [this](uint32_t exchange) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> ids;
    for (const CVelmarMarketData& r : records_) {
      if (r.ExchangeID == exchange) ids.push_back(r.SecurityID);
    }
    return ids;
  };
  m.record = [this](const std::string& id, uint32_t exchange) -> std::optional<CVelmarMarketData> {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const CVelmarMarketData& r : records_) {
      if (r.ExchangeID == exchange && id == r.SecurityID) return r;
    }
    return std::nullopt;
  };
  return m;
}

}  // namespace sim
}  // namespace velmar
