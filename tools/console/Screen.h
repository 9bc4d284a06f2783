// The live view: one frame of text with the counters, the viewed book as the
// library rebuilt it and, beside it, the simulator's true book. Drawn on the
// render thread from the copies ConsoleSpi keeps; it never calls the library.
#pragma once

#include <string>

#include "console/ConsoleOptions.h"
#include "console/ConsoleSpi.h"

namespace velmar {
namespace console {

/// The frame after `seconds`; every line ends by clearing the rest of it.
std::string frame(const ConsoleOptions& o, ConsoleSpi& spi, double seconds);

/// Lets a Windows console interpret the escape sequences; nothing elsewhere.
void enableTerminalEscapes();

}  // namespace console
}  // namespace velmar
