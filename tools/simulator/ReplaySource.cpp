#include "simulator/ReplaySource.h"

#include <stdexcept>

namespace velmar {
namespace sim {

ReplaySource::ReplaySource(const std::string& path, double speed, bool learnInstruments)
    : RecordedSource(speed), path_(path), learned_(learnInstruments), reader_(path) {
  if (!learnInstruments) return;
  ReplayReader scan(path);
  Datagram d;
  while (scan.next(&d)) learn(d);
  if (!scan.error().empty()) throw std::runtime_error(path + ": " + scan.error());
}

std::string ReplaySource::description() const {
  if (!learned_) return path_;
  return path_ + " (" + std::to_string(instrumentCount()) + " instruments)";
}

}  // namespace sim
}  // namespace velmar
