// The command line of vlmd-console: where the front and the feed are, the
// login, what to subscribe to and what to show. Read once on the main thread
// before the session starts; read-only afterwards, from every thread.
#pragma once

#include <string>
#include <vector>

namespace velmar {
namespace console {

struct ConsoleOptions {
  std::string front;
  std::string mcast = "udp://239.255.0.1:30001";
  std::string interfaceAddress = "127.0.0.1";
  std::string user = "demo";
  std::string password = "demo";
  std::vector<std::string> md, ticks, books;
  int mdAll = 0, ticksAll = 0;  // exchange masks, 0 for none
  bool booksAll = false;
  std::string view;
  std::string trueBookPath;
  double duration = 0;
  bool quiet = false;
};

/// Fills `o` from the command line. -1 to go on; otherwise the exit status
/// (0 after --help, 2 for a mistake, which it has said on stderr).
int parseConsoleOptions(int argc, char** argv, ConsoleOptions* o);

}  // namespace console
}  // namespace velmar
