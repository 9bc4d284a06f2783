// A recording (the replay format of --record) as a feed source. It is read
// as it is sent, so that a long recording need not fit in memory.
#pragma once

#include "sim/Replay.h"
#include "simulator/RecordedSource.h"

namespace velmar {
namespace sim {

class ReplaySource : public RecordedSource {
 public:
  /// With `learnInstruments`, a first pass over the file makes every
  /// instrument known to the front at once; it throws std::runtime_error if
  /// the file does not read to its end.
  ReplaySource(const std::string& path, double speed, bool learnInstruments);

  std::string error() const override { return reader_.error(); }
  std::string description() const override;

 protected:
  bool fetch(Datagram* d) override { return reader_.next(d); }

 private:
  std::string path_;
  bool learned_;
  ReplayReader reader_;
};

}  // namespace sim
}  // namespace velmar
