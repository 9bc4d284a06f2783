// The simulator's true book of one stock, read from the file that
// vlmd-sim --true-book-file writes (format in sim/MarketRecords.h). Read on
// the render thread only.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "console/BookView.h"

namespace velmar {
namespace console {

struct TrueBook {
  bool ok = false;
  std::string id;
  int64_t time = 0;
  double last = 0;
  int64_t volume = 0;
  std::array<Level, 10> bids{}, asks{};
};

/// ok is false if the file is missing or malformed.
TrueBook readTrueBook(const std::string& path);

}  // namespace console
}  // namespace velmar
