// What the console prints when it stops: the counts of everything that
// arrived, the first errors, and a last line for scripts. Main thread, after
// the session has been released.
#pragma once

#include "console/ConsoleSpi.h"

namespace velmar {
namespace console {

void printSummary(ConsoleSpi& spi, double seconds);

}  // namespace console
}  // namespace velmar
