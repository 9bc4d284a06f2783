#include "simulator/RecordedSource.h"

namespace velmar {
namespace sim {

bool RecordedSource::next(Datagram* d, int64_t* dueUs) {
  if (!fetch(d)) return false;
  *dueUs = speed_ > 0 ? static_cast<int64_t>(static_cast<double>(d->timeUs) / speed_) : -1;
  return true;
}

void RecordedSource::sent(const Datagram& d) {
  records_.apply(d.bytes.data(), d.bytes.size());
}

void RecordedSource::learn(const Datagram& d) {
  records_.learn(d.bytes.data(), d.bytes.size());
}

}  // namespace sim
}  // namespace velmar
