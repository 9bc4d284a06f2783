// Threads: the front loop, inside one answer. The package's bytes are read in
// place and may be overwritten once the answer is dispatched, so the ids the
// callback gets are copies that live as long as its pointers must.
#pragma once

#include <cstddef>
#include <cstring>
#include <vector>

#include "package/FieldCatalogue.h"

namespace velmar {
namespace mdapi {

/// Copies of the ids of an instrument answer, with the array of pointers the
/// callbacks take. Trailing bytes that make no whole id are ignored.
class InstrumentIds {
 public:
  InstrumentIds(const char* value, size_t length)
      : count_(static_cast<int>(length / kWireInstrumentIdSize)),
        bytes_(static_cast<size_t>(count_) * kWireInstrumentIdSize),
        pointers_(static_cast<size_t>(count_)) {
    if (count_ > 0) std::memcpy(bytes_.data(), value, bytes_.size());
    for (int i = 0; i < count_; ++i) pointers_[i] = &bytes_[i * kWireInstrumentIdSize];
  }
  int count() const { return count_; }
  char** array() { return pointers_.data(); }
  const char* id(int i) const { return pointers_[i]; }

 private:
  int count_;
  std::vector<char> bytes_;
  std::vector<char*> pointers_;
};

}  // namespace mdapi
}  // namespace velmar
