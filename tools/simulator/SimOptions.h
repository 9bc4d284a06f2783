// The command line of vlmd-sim: which parts run (the front, the feed or
// both), and the settings of each. Read once on the main thread before
// anything starts; read-only afterwards.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace velmar {
namespace sim {

struct SimOptions {
  bool frontOnly = false;
  bool feedOnly = false;

  // The front.
  std::string listenHost = "127.0.0.1";
  uint16_t listenPort = 0;
  std::map<std::string, std::string> users;
  std::string password;  // of any user when no users are named; empty: any
  int keepAliveMs = 1000;
  int idsPerPiece = 0;
  uint64_t sessions = 0;  // 0: no limit
  bool verbose = false;

  // The feed.
  std::string group = "239.255.0.1";
  uint16_t groupPort = 30001;
  std::string interfaceAddress = "127.0.0.1";
  double rate = 200;
  int64_t count = 0;  // 0: no limit
  uint64_t seed = 1;
  int64_t snapshotMs = 3000;
  std::string recordPath;
  std::string replayPath;
  std::string csvPrefix;
  uint32_t channel = 2021;
  double speed = 1;
  bool noSend = false;
  std::string trueBookId;
  std::string trueBookPath;
  /// Withhold every Nth datagram (the Nth, 2Nth, ...) as a network that
  /// loses it would, so that receivers show their gaps; 0 withholds none.
  int64_t dropEvery = 0;

  // Both.
  double duration = 0;     // seconds; 0: no limit
  int32_t tradingDay = 0;  // YYYYMMDD; 0 until parsed, then today unless given
  bool quiet = false;

  bool runsFront() const { return !feedOnly; }
  bool runsFeed() const { return !frontOnly; }
  bool synthetic() const { return replayPath.empty() && csvPrefix.empty(); }
};

/// Fills `o` from the command line. -1 to go on; otherwise the exit status
/// (0 after --help, 2 for a mistake, which it has said on stderr).
int parseSimOptions(int argc, char** argv, SimOptions* o);

}  // namespace sim
}  // namespace velmar
