// vlmd-front-sim: a front server on loopback for the VLMdApi library. It
// answers logins and subscriptions, sends the current market-data records of
// a fixed pre-open market, sends keep-alives, and prints every request it
// receives. See front/FrontSimulator.h for what it answers.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "front/FrontSimulator.h"
#include "utility/Platform.h"

using velmar::sim::FrontRequest;
using velmar::sim::FrontSimulator;
using velmar::sim::FrontSimulatorOptions;

namespace {

const char kUsage[] =
    "Usage: vlmd-front-sim [options]\n"
    "A front server for the VLMdApi market-data library, on loopback only.\n"
    "\n"
    "  --listen A:P         address and port to listen on; the address must be in\n"
    "                       127.0.0.0/8, port 0 lets the system choose\n"
    "                       (default 127.0.0.1:0; the chosen port is printed)\n"
    "  --user NAME:PASSWORD an accepted user; repeatable. Without any, every\n"
    "                       non-empty user id is accepted with the --password\n"
    "  --password PW        the password of any user when no --user is given\n"
    "                       (default \"secret\"; empty accepts any password)\n"
    "  --keepalive-ms N     keep-alive period towards each client (default 1000;\n"
    "                       0 sends none)\n"
    "  --piece N            instrument ids per package of a subscription answer\n"
    "                       (default 0: as many as a package holds, 254)\n"
    "  --trading-day D      trading day YYYYMMDD of the login answer and of the\n"
    "                       market records (default: today)\n"
    "  --duration S         stop after S seconds (default: until interrupted)\n"
    "  --quiet              do not print the requests\n"
    "  --help               this text\n"
    "\n"
    "The market: Shenzhen stocks 000001, 002415, 300446 and index 399001;\n"
    "Shanghai stocks 600000, 600519 and index 000001, before the open.\n";

volatile std::sig_atomic_t g_stop = 0;

void onSignal(int) {
  g_stop = 1;
}

bool parseInt(const char* text, long max, long* out) {
  char* end = nullptr;
  long v = std::strtol(text, &end, 10);
  if (end == text || *end != '\0' || v < 0 || v > max) return false;
  *out = v;
  return true;
}

/// "a.b.c.d:port", with a loopback address. An error text, or empty.
std::string parseListen(const std::string& text, std::string* host, uint16_t* port) {
  size_t colon = text.rfind(':');
  if (colon == std::string::npos) return "--listen wants ADDRESS:PORT, got " + text;
  *host = text.substr(0, colon);
  long p = 0;
  if (!parseInt(text.c_str() + colon + 1, 65535, &p)) return "bad port in " + text;
  *port = static_cast<uint16_t>(p);
  // Loopback only: three dots, four numbers, the first 127.
  unsigned a = 0, b = 0, c = 0, d = 0;
  char tail = 0;
  if (std::sscanf(host->c_str(), "%u.%u.%u.%u%c", &a, &b, &c, &d, &tail) != 4 || a > 255 ||
      b > 255 || c > 255 || d > 255 || a != 127) {
    return "refusing to listen on " + *host + ": loopback (127.x.x.x) only";
  }
  return std::string();
}

int usageError(const std::string& text) {
  std::fprintf(stderr, "vlmd-front-sim: %s\n(--help for the options)\n", text.c_str());
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  FrontSimulatorOptions options;
  bool quiet = false;
  long durationS = 0;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    auto value = [&](const char** out) {
      if (i + 1 >= argc) return false;
      *out = argv[++i];
      return true;
    };
    const char* v = nullptr;
    long n = 0;
    if (arg == "--help" || arg == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    } else if (arg == "--listen") {
      if (!value(&v)) return usageError("--listen needs a value");
      std::string error = parseListen(v, &options.listenAddress, &options.port);
      if (!error.empty()) return usageError(error);
    } else if (arg == "--user") {
      if (!value(&v)) return usageError("--user needs NAME:PASSWORD");
      const char* colon = std::strchr(v, ':');
      if (!colon || colon == v)
        return usageError(std::string("--user wants NAME:PASSWORD, got ") + v);
      options.users[std::string(v, colon)] = colon + 1;
    } else if (arg == "--password") {
      if (!value(&v)) return usageError("--password needs a value");
      options.anyUserPassword = v;
    } else if (arg == "--keepalive-ms") {
      if (!value(&v) || !parseInt(v, 3600000, &n)) return usageError("bad --keepalive-ms");
      options.keepAliveIntervalMs = static_cast<int>(n);
    } else if (arg == "--piece") {
      if (!value(&v) || !parseInt(v, 1000000, &n)) return usageError("bad --piece");
      options.idsPerPiece = static_cast<int>(n);
    } else if (arg == "--trading-day") {
      if (!value(&v)) return usageError("--trading-day needs YYYYMMDD");
      options.tradingDay = v;
    } else if (arg == "--duration") {
      if (!value(&v) || !parseInt(v, 100000000, &durationS)) return usageError("bad --duration");
    } else if (arg == "--quiet") {
      quiet = true;
    } else {
      return usageError("unknown option " + arg);
    }
  }
  if (!quiet) {
    options.onRequest = [](const FrontRequest& r) {
      std::string line = "request " + r.text() + "\n";
      std::fputs(line.c_str(), stdout);
      std::fflush(stdout);
    };
  }

  FrontSimulator front(options);
  std::string error;
  if (!front.start(&error)) {
    std::fprintf(stderr, "vlmd-front-sim: %s\n", error.c_str());
    return 1;
  }
  std::signal(SIGINT, onSignal);
  std::signal(SIGTERM, onSignal);
  std::printf("vlmd-front-sim listening on %s\n", front.address().c_str());
  std::fflush(stdout);

  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(durationS);
  while (!g_stop && (durationS == 0 || std::chrono::steady_clock::now() < deadline)) {
    velmar::platform::sleepMs(100);
  }
  front.stop();
  std::printf("vlmd-front-sim stopped: %zu requests, %d connections\n", front.requestCount(),
              front.acceptedConnections());
  return 0;
}
