// vlmd-feed-sim: publishes a synthetic Shanghai/Shenzhen market, or a
// recorded session, as the multicast feed that the library receives. Loopback
// only: see sim/MulticastSender.h.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include "sim/MarketEngine.h"
#include "sim/MulticastSender.h"
#include "sim/RealCsv.h"
#include "sim/Replay.h"

using velmar::sim::Datagram;
using velmar::sim::MarketConfig;
using velmar::sim::MarketEngine;
using velmar::sim::MulticastSender;
using velmar::sim::ReplayReader;
using velmar::sim::ReplayWriter;

namespace {

const char kUsage[] =
    "Usage: vlmd-feed-sim [options]\n"
    "Publishes a synthetic Shanghai/Shenzhen Level-2 market (or a recorded session) as\n"
    "the VLMdApi multicast feed. Loopback only: TTL 0 on interface 127.0.0.1.\n"
    "\n"
    "  --group G:P          multicast group and port, group in 239.255.0.0/16\n"
    "                       (default 239.255.0.1:30001)\n"
    "  --interface A        sending interface; only 127.0.0.1 is accepted (default)\n"
    "  --rate N             datagrams per second (default 200); 0 sends as fast as\n"
    "                       possible\n"
    "  --duration S         stop after S seconds (default: until interrupted)\n"
    "  --count N            stop after N datagrams\n"
    "  --seed N             seed of the synthetic market (default 1)\n"
    "  --snapshot-ms N      simulated milliseconds between snapshot rounds (default 3000)\n"
    "  --record FILE        also write every datagram sent to FILE (replay format)\n"
    "  --replay FILE        send a recorded session instead of the synthetic market\n"
    "  --from-csv PREFIX    send a real day from a vendor CSV export instead:\n"
    "                       PREFIX-orders.csv, PREFIX-trades.csv, PREFIX-snapshots.csv\n"
    "  --channel N          channel number for --from-csv (default 2021)\n"
    "  --speed X            pace of --replay and --from-csv: 1 as recorded (default),\n"
    "                       2 twice as fast, 0 as fast as possible\n"
    "  --no-send            open no socket; with --record this converts or records\n"
    "                       as fast as possible\n"
    "  --quiet              no progress lines\n"
    "  --help               this text\n"
    "\n"
    "The synthetic market: Shenzhen stocks 000001, 002415 (channel 2011), 300446\n"
    "(channel 2021) and index 399001; Shanghai stocks 600000 (channel 1), 600519\n"
    "(channel 2) and index 000001.\n";

volatile std::sig_atomic_t g_stop = 0;

void onSignal(int) {
  g_stop = 1;
}

struct Options {
  std::string group = "239.255.0.1";
  uint16_t port = 30001;
  std::string interfaceAddress = "127.0.0.1";
  double rate = 200;
  double duration = 0;  // 0: no limit
  int64_t count = 0;    // 0: no limit
  uint64_t seed = 1;
  int64_t snapshotMs = 3000;
  std::string recordPath;
  std::string replayPath;
  std::string csvPrefix;
  uint64_t channel = 2021;
  bool noSend = false;
  double speed = 1;
  bool quiet = false;
};

bool parseNumber(const char* text, double* out) {
  char* end = nullptr;
  double v = std::strtod(text, &end);
  if (end == text || *end != '\0' || v < 0) return false;
  *out = v;
  return true;
}

bool parseInteger(const char* text, uint64_t* out) {
  char* end = nullptr;
  if (*text < '0' || *text > '9') return false;
  unsigned long long v = std::strtoull(text, &end, 10);
  if (*end != '\0') return false;
  *out = v;
  return true;
}

// 0 on success, otherwise the exit status (1 for bad arguments, 0 after --help).
int parseOptions(int argc, char** argv, Options* o, bool* exitNow) {
  *exitNow = false;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::fputs(kUsage, stdout);
      *exitNow = true;
      return 0;
    }
    if (arg == "--quiet" || arg == "--no-send") {
      (arg == "--quiet" ? o->quiet : o->noSend) = true;
      continue;
    }
    if (i + 1 >= argc) {
      std::fprintf(stderr, "vlmd-feed-sim: %s needs a value (see --help)\n", arg.c_str());
      return 1;
    }
    const char* value = argv[++i];
    bool good = true;
    uint64_t n = 0;
    if (arg == "--group") {
      good = velmar::sim::parseEndpoint(value, &o->group, &o->port);
    } else if (arg == "--interface") {
      o->interfaceAddress = value;
    } else if (arg == "--rate") {
      good = parseNumber(value, &o->rate);
    } else if (arg == "--duration") {
      good = parseNumber(value, &o->duration);
    } else if (arg == "--count") {
      good = parseInteger(value, &n);
      o->count = static_cast<int64_t>(n);
    } else if (arg == "--seed") {
      good = parseInteger(value, &o->seed);
    } else if (arg == "--snapshot-ms") {
      good = parseInteger(value, &n);
      o->snapshotMs = static_cast<int64_t>(n);
    } else if (arg == "--record") {
      o->recordPath = value;
    } else if (arg == "--replay") {
      o->replayPath = value;
    } else if (arg == "--from-csv") {
      o->csvPrefix = value;
    } else if (arg == "--channel") {
      good = parseInteger(value, &o->channel) && o->channel <= 0xFFFFFFFFu;
    } else if (arg == "--speed") {
      good = parseNumber(value, &o->speed);
    } else {
      std::fprintf(stderr, "vlmd-feed-sim: unknown option %s (see --help)\n", arg.c_str());
      return 1;
    }
    if (!good) {
      std::fprintf(stderr, "vlmd-feed-sim: bad value '%s' for %s\n", value, arg.c_str());
      return 1;
    }
  }
  if (!o->replayPath.empty() && !o->csvPrefix.empty()) {
    std::fprintf(stderr, "vlmd-feed-sim: --replay and --from-csv exclude each other\n");
    return 1;
  }
  // Refuse unsafe addresses here already, before anything is opened.
  std::string why = velmar::sim::checkGroup(o->group);
  if (why.empty()) why = velmar::sim::checkInterface(o->interfaceAddress);
  if (!why.empty()) {
    std::fprintf(stderr, "vlmd-feed-sim: %s\n", why.c_str());
    return 1;
  }
  return 0;
}

// Where the datagrams come from: the synthetic market paced by the rate, or
// a recording paced by its own times and the speed. `dueUs` is when the
// datagram is due, in microseconds after the start; -1 means at once.
class Source {
 public:
  virtual ~Source() = default;
  virtual bool next(Datagram* d, int64_t* dueUs) = 0;
  virtual std::string error() const { return std::string(); }
};

class MarketSource : public Source {
 public:
  explicit MarketSource(const Options& o) : engine_(config(o)), rate_(o.rate) {}

  bool next(Datagram* d, int64_t* dueUs) override {
    while (pending_.empty()) {
      pending_ = engine_.step();
      at_ = 0;
    }
    *d = std::move(pending_[at_++]);
    if (at_ == pending_.size()) pending_.clear();
    *dueUs = rate_ > 0 ? static_cast<int64_t>(static_cast<double>(sent_) * 1e6 / rate_) : -1;
    ++sent_;
    return true;
  }

 private:
  static MarketConfig config(const Options& o) {
    MarketConfig c;
    c.seed = o.seed;
    c.snapshotIntervalMs = o.snapshotMs;
    // About one datagram per event, so that simulated time keeps roughly to
    // the wall clock at the chosen rate.
    if (o.rate > 0) c.meanEventIntervalUs = static_cast<int64_t>(1e6 / o.rate) + 1;
    return c;
  }

  MarketEngine engine_;
  double rate_;
  std::vector<Datagram> pending_;
  size_t at_ = 0;
  int64_t sent_ = 0;
};

// A converted real day, paced by its own times like a recording.
class CsvSource : public Source {
 public:
  explicit CsvSource(const Options& o) : speed_(o.speed) {
    std::string error;
    if (!velmar::sim::convertRealCsv(o.csvPrefix, static_cast<uint32_t>(o.channel), &session_,
                                     &error)) {
      throw std::runtime_error(error);
    }
  }

  bool next(Datagram* d, int64_t* dueUs) override {
    if (at_ == session_.datagrams.size()) return false;
    *d = std::move(session_.datagrams[at_++]);
    *dueUs = speed_ > 0 ? static_cast<int64_t>(static_cast<double>(d->timeUs) / speed_) : -1;
    return true;
  }

  const velmar::sim::CsvSession& session() const { return session_; }

 private:
  velmar::sim::CsvSession session_;
  size_t at_ = 0;
  double speed_;
};

class ReplaySource : public Source {
 public:
  ReplaySource(const std::string& path, double speed) : reader_(path), speed_(speed) {}

  bool next(Datagram* d, int64_t* dueUs) override {
    if (!reader_.next(d)) return false;
    *dueUs = speed_ > 0 ? static_cast<int64_t>(static_cast<double>(d->timeUs) / speed_) : -1;
    return true;
  }
  std::string error() const override { return reader_.error(); }

 private:
  ReplayReader reader_;
  double speed_;
};

}  // namespace

int main(int argc, char** argv) {
  Options o;
  bool exitNow = false;
  if (int status = parseOptions(argc, argv, &o, &exitNow)) return status;
  if (exitNow) return 0;

  MulticastSender sender;
  std::string error;
  if (!o.noSend && !sender.open(o.group, o.port, o.interfaceAddress, &error)) {
    std::fprintf(stderr, "vlmd-feed-sim: %s\n", error.c_str());
    return 1;
  }
  std::unique_ptr<Source> source;
  std::string what = "the synthetic market";
  try {
    if (!o.replayPath.empty()) {
      source.reset(new ReplaySource(o.replayPath, o.speed));
      what = o.replayPath;
    } else if (!o.csvPrefix.empty()) {
      auto* csv = new CsvSource(o);
      source.reset(csv);
      const velmar::sim::CsvSession& s = csv->session();
      what = s.securityId + (s.shenzhen ? ".SZ" : ".SH") + " from " + o.csvPrefix + " (" +
             std::to_string(s.orders) + " orders, " + std::to_string(s.executions) +
             " executions, " + std::to_string(s.cancellations) + " cancellations, " +
             std::to_string(s.snapshots) + " snapshots)";
    } else {
      source.reset(new MarketSource(o));
    }
  } catch (const std::exception& e) {
    std::fprintf(stderr, "vlmd-feed-sim: %s\n", e.what());
    return 1;
  }
  std::unique_ptr<ReplayWriter> recorder;
  if (!o.recordPath.empty()) {
    recorder.reset(new ReplayWriter(o.recordPath));
    if (!recorder->ok()) {
      std::fprintf(stderr, "vlmd-feed-sim: cannot write %s\n", o.recordPath.c_str());
      return 1;
    }
    bool synthetic = o.replayPath.empty() && o.csvPrefix.empty();
    recorder->comment(synthetic ? what + ", seed " + std::to_string(o.seed) : what);
  }

  std::signal(SIGINT, onSignal);
  std::signal(SIGTERM, onSignal);
  if (!o.quiet) {
    if (o.noSend) {
      std::printf("vlmd-feed-sim: %s, not sent\n", what.c_str());
    } else {
      std::printf("vlmd-feed-sim: sending %s to %s:%u on %s (TTL 0)\n", what.c_str(),
                  o.group.c_str(), static_cast<unsigned>(o.port), o.interfaceAddress.c_str());
    }
    std::fflush(stdout);
  }

  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  auto elapsedUs = [&] {
    return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count();
  };
  const int64_t durationUs = static_cast<int64_t>(o.duration * 1e6);
  std::map<uint32_t, int64_t> sentByType;
  int64_t sent = 0, failures = 0, nextReportUs = 5000000;
  Datagram d;
  int64_t dueUs = 0;
  int status = 0;
  while (!g_stop && (o.count == 0 || sent < o.count)) {
    if (!source->next(&d, &dueUs)) {
      if (!source->error().empty()) {
        std::fprintf(stderr, "vlmd-feed-sim: %s: %s\n", o.replayPath.c_str(),
                     source->error().c_str());
        status = 1;
      }
      break;
    }
    if (durationUs > 0 && dueUs > durationUs) break;
    // Sleep in slices so that an interrupt ends the wait soon.
    for (int64_t now = elapsedUs(); !o.noSend && dueUs > now + 500 && !g_stop; now = elapsedUs()) {
      std::this_thread::sleep_for(
          std::chrono::microseconds(std::min<int64_t>(dueUs - now, 100000)));
    }
    if (g_stop) break;
    if (durationUs > 0 && !o.noSend && elapsedUs() > durationUs) break;
    if (o.noSend || sender.send(d.bytes.data(), d.bytes.size())) {
      ++sent;
      ++sentByType[velmar::sim::messageType(d.bytes)];
      if (recorder) {
        // A datagram is recorded at the time it was due; without pacing, at
        // the time it went out, or at its own time when nothing is sent.
        int64_t at = dueUs >= 0 ? dueUs : o.noSend ? d.timeUs : elapsedUs();
        recorder->write(at, d.bytes.data(), d.bytes.size());
      }
    } else if (++failures <= 5) {
      std::fprintf(stderr, "vlmd-feed-sim: send failed (error %d)\n", sender.lastError());
    }
    if (!o.quiet && elapsedUs() >= nextReportUs) {
      std::printf("vlmd-feed-sim: %lld datagrams sent\n", static_cast<long long>(sent));
      std::fflush(stdout);
      nextReportUs += 5000000;
    }
  }
  if (recorder) recorder->flush();
  if (!o.quiet) {
    std::printf("vlmd-feed-sim: %lld datagrams sent in %.1f s, %lld failed;",
                static_cast<long long>(sent), static_cast<double>(elapsedUs()) / 1e6,
                static_cast<long long>(failures));
    for (const auto& [type, n] : sentByType) {
      std::printf(" %u:%lld", static_cast<unsigned>(type), static_cast<long long>(n));
    }
    std::printf("\n");
  }
  return status != 0 ? status : (failures > 0 ? 2 : 0);
}
