#include "simulator/CsvSource.h"

#include <stdexcept>

namespace velmar {
namespace sim {

CsvSource::CsvSource(const std::string& prefix, uint32_t channel, double speed)
    : RecordedSource(speed), prefix_(prefix) {
  std::string error;
  if (!convertRealCsv(prefix, channel, &session_, &error)) throw std::runtime_error(error);
  for (const Datagram& d : session_.datagrams) learn(d);
}

bool CsvSource::fetch(Datagram* d) {
  if (at_ == session_.datagrams.size()) return false;
  *d = std::move(session_.datagrams[at_++]);
  return true;
}

std::string CsvSource::description() const {
  const CsvSession& s = session_;
  return s.securityId + (s.shenzhen ? ".SZ" : ".SH") + " from " + prefix_ + " (" +
         std::to_string(s.orders) + " orders, " + std::to_string(s.executions) + " executions, " +
         std::to_string(s.cancellations) + " cancellations, " + std::to_string(s.snapshots) +
         " snapshots)";
}

}  // namespace sim
}  // namespace velmar
