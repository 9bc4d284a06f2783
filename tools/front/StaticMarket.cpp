// The simulator's built-in market: seven instruments in the state before the
// open, with the previous closes of the synthetic feed's instruments, so that
// the front's records and the feed's updates tell one story.
#include <cstring>
#include <memory>

#include "front/FrontSimulator.h"

namespace velmar {
namespace sim {

namespace {

struct StaticInstrument {
  uint32_t exchange;  // 1 Shanghai, 2 Shenzhen
  const char* id;
  bool index;
  int64_t preClose;  // fen for stocks, points x100 for indices
  int limitPercent;  // 0 for indices
};

const StaticInstrument kInstruments[] = {
    {2, "000001", false, 1150, 10}, {2, "002415", false, 3380, 10},
    {2, "300446", false, 1520, 20}, {2, "399001", true, 1100000, 0},
    {1, "600000", false, 720, 10},  {1, "600519", false, 175000, 10},
    {1, "000001", true, 310000, 0},
};

/// Limit prices in fen, rounded half up as the exchanges do.
int64_t limitFen(int64_t preClose, int percent) {
  return (preClose * (100 + percent) + 50) / 100;
}

CVelmarMarketData makeRecord(const StaticInstrument& s, int32_t tradingDay) {
  CVelmarMarketData r;
  std::memset(&r, 0, sizeof r);
  r.ExchangeID = s.exchange;
  r.SecurityType = s.index ? 2 : 1;
  std::strncpy(r.SecurityID, s.id, sizeof r.SecurityID - 1);
  const double preClose = static_cast<double>(s.preClose) / 100.0;
  r.PreClosePrice = preClose;
  r.LastPrice = preClose;
  // 09:15:00.000 in each exchange's stamp form.
  const int64_t timeOfDay = 91500000;
  r.UpdateTime =
      s.exchange == 2 ? static_cast<int64_t>(tradingDay) * 1000000000 + timeOfDay : timeOfDay;
  std::strncpy(r.TradingPhaseCode, s.exchange == 2 ? "O0" : "C111", sizeof r.TradingPhaseCode);
  if (s.index) return r;

  r.UpperLimitPrice = static_cast<double>(limitFen(s.preClose, s.limitPercent)) / 100.0;
  r.LowerLimitPrice = static_cast<double>(limitFen(s.preClose, -s.limitPercent)) / 100.0;
  // Pre-open orders one tick apart on either side of the previous close, the
  // deeper levels holding more.
  int64_t bidTotal = 0;
  int64_t askTotal = 0;
  for (int i = 0; i < 10; ++i) {
    r.BidPrice[i] = static_cast<double>(s.preClose - i) / 100.0;
    r.AskPrice[i] = static_cast<double>(s.preClose + 1 + i) / 100.0;
    r.BidVolume[i] = 100 * (5 + 3 * i);
    r.AskVolume[i] = 100 * (4 + 3 * i);
    bidTotal += r.BidVolume[i];
    askTotal += r.AskVolume[i];
  }
  r.TotalBidVolume = bidTotal;
  r.TotalAskVolume = askTotal;
  return r;
}

}  // namespace

FrontMarketData FrontMarketData::staticMarket(int32_t tradingDay) {
  auto records = std::make_shared<std::vector<CVelmarMarketData>>();
  for (const StaticInstrument& s : kInstruments) records->push_back(makeRecord(s, tradingDay));
  FrontMarketData m;
  m.instruments = [records](uint32_t exchange) {
    std::vector<std::string> ids;
    for (const CVelmarMarketData& r : *records) {
      if (r.ExchangeID == exchange) ids.push_back(r.SecurityID);
    }
    return ids;
  };
  m.record = [records](const std::string& id,
                       uint32_t exchange) -> std::optional<CVelmarMarketData> {
    for (const CVelmarMarketData& r : *records) {
      if (r.ExchangeID == exchange && id == r.SecurityID) return r;
    }
    return std::nullopt;
  };
  return m;
}

}  // namespace sim
}  // namespace velmar
