// What the screen shows of the viewed instrument: plain copies of the
// numbers the callbacks saw, so that drawing never touches the library's
// live records.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace velmar {
namespace console {

struct Level {
  double price = 0;
  int64_t qty = 0;
  int orders = 0;  // orders the library knows on the level
};

/// The rebuilt order book of the viewed instrument.
struct BookView {
  bool seen = false;
  int64_t updateTime = 0;
  double lastPrice = 0;
  int64_t volume = 0;
  int64_t trades = 0;
  std::array<Level, 10> bids{}, asks{};
};

/// The market-data record of the viewed instrument.
struct RecordView {
  bool seen = false;
  int64_t updateTime = 0;
  double lastPrice = 0;
  int64_t volume = 0;
  std::string phase;
};

}  // namespace console
}  // namespace velmar
