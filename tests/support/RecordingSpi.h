// A VelmarMdSpi that keeps copies of what it receives.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "VelmarMdApi.h"

namespace velmar {
namespace testing {

class RecordingSpi : public mdapi::VelmarMdSpi {
 public:
  void OnRtnTickByTick(CVelmarTickByTick* data) override { ticks.push_back(*data); }
  void OnRtnMarketData(CVelmarMarketData* data) override { marketData.push_back(*data); }
  void OnRspError(CVelmarRspInfo* info, int requestId, bool isLast) override {
    errors.push_back(*info);
    errorRequestIds.push_back(requestId);
    errorLast.push_back(isLast);
  }

  std::vector<CVelmarTickByTick> ticks;
  std::vector<CVelmarMarketData> marketData;
  std::vector<CVelmarRspInfo> errors;
  std::vector<int> errorRequestIds;
  std::vector<bool> errorLast;
};

}  // namespace testing
}  // namespace velmar
