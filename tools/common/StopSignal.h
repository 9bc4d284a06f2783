// How the tools stop on Ctrl-C and on a termination request: the signal only
// sets a flag, which the program's threads poll.
#pragma once

#include <atomic>
#include <csignal>

namespace velmar {
namespace tools {

/// Set by SIGINT and SIGTERM once stopOnSignals() has run; a program may
/// set it itself. Any thread may read it.
inline std::atomic<bool>& stopRequested() {
  static std::atomic<bool> stop{false};
  return stop;
}

inline void stopOnSignals() {
  stopRequested();  // made before a signal can come
  auto handler = [](int) { stopRequested() = true; };
  std::signal(SIGINT, handler);
  std::signal(SIGTERM, handler);
}

}  // namespace tools
}  // namespace velmar
