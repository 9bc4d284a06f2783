// A real day from a vendor CSV export (sim/RealCsv.h) as a feed source. The
// whole day is converted before the first datagram goes out.
#pragma once

#include <cstddef>

#include "sim/RealCsv.h"
#include "simulator/RecordedSource.h"

namespace velmar {
namespace sim {

class CsvSource : public RecordedSource {
 public:
  /// Throws std::runtime_error, with the file and line, if the export does
  /// not convert.
  CsvSource(const std::string& prefix, uint32_t channel, double speed);

  std::string description() const override;

 protected:
  bool fetch(Datagram* d) override;

 private:
  std::string prefix_;
  CsvSession session_;
  size_t at_ = 0;
};

}  // namespace sim
}  // namespace velmar
