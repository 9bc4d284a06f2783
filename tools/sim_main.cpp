// vlmd-sim: the whole market side of a VLMdApi session on loopback, in one
// program: a front server that answers logins and subscriptions, and the
// multicast feed of a synthetic Shanghai/Shenzhen market (or of a recording).
// The market-data records the front sends are taken from the same market as
// the feed, so a client's subscription starts from the market's current state
// and the feed's snapshots carry on from there.
//
// Threads: the feed thread owns the market (the engine is not thread-safe)
// and, after each step's datagrams have gone out, copies the records into a
// shared view; the front's thread reads that copy under its mutex when it
// answers a subscription. The main thread only starts, waits and stops.
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "front/FrontSimulator.h"
#include "sim/MarketEngine.h"
#include "sim/MarketRecords.h"
#include "sim/MulticastSender.h"
#include "sim/Replay.h"

using velmar::sim::Datagram;
using velmar::sim::Exchange;
using velmar::sim::FeedRecords;
using velmar::sim::FrontMarketData;
using velmar::sim::FrontRequest;
using velmar::sim::FrontSimulator;
using velmar::sim::FrontSimulatorOptions;
using velmar::sim::MarketConfig;
using velmar::sim::MarketEngine;
using velmar::sim::MulticastSender;
using velmar::sim::ReplayReader;

namespace {

const char kUsage[] =
    "Usage: vlmd-sim [options]\n"
    "The market side of a VLMdApi session on loopback: a front server and the\n"
    "multicast feed of one synthetic Shanghai/Shenzhen market (or of a recording).\n"
    "The front's market-data records come from the same market as the feed.\n"
    "\n"
    "  --listen A:P         front address, A in 127.0.0.0/8 (default 127.0.0.1:0;\n"
    "                       port 0 lets the system choose)\n"
    "  --group G:P          multicast group and port, G in 239.255.0.0/16\n"
    "                       (default 239.255.0.1:30001); sent on 127.0.0.1, TTL 0\n"
    "  --rate N             feed datagrams per second (default 200; 0 as fast as\n"
    "                       possible)\n"
    "  --duration S         stop after S seconds (default: until interrupted)\n"
    "  --sessions N         stop once N client connections have come and gone\n"
    "  --seed N             seed of the synthetic market (default 1)\n"
    "  --snapshot-ms N      simulated milliseconds between snapshot rounds\n"
    "                       (default 3000)\n"
    "  --trading-day D      trading day YYYYMMDD of the market and of the login\n"
    "                       answer (default: today)\n"
    "  --replay FILE        publish a recording (vlmd-feed-sim --record) instead of\n"
    "                       the synthetic market; the front's records then follow\n"
    "                       the recording's snapshots\n"
    "  --speed X            pace of --replay: 1 as recorded (default), 0 at once\n"
    "  --true-book ID       a Shenzhen stock whose true ten-level book is written to\n"
    "  --true-book-file P   this file every 100 ms (replaced whole each time), for\n"
    "                       vlmd-console --true-book-file\n"
    "  --user NAME:PASSWORD an accepted user; repeatable. Without any, every\n"
    "                       non-empty user id is accepted with any password\n"
    "  --verbose            print every request the front receives\n"
    "  --help               this text\n"
    "\n"
    "On start it prints two lines that scripts can read:\n"
    "  front tcp://127.0.0.1:PORT\n"
    "  feed udp://GROUP:PORT\n"
    "The synthetic market: Shenzhen stocks 000001, 002415, 300446 and index 399001;\n"
    "Shanghai stocks 600000, 600519 and index 000001.\n";

// Set by the signal handler and by the main thread; read by the feed thread.
std::atomic<bool> g_stop{false};

void onSignal(int) {
  g_stop = true;
}

struct Options {
  std::string listenHost = "127.0.0.1";
  uint16_t listenPort = 0;
  std::string group = "239.255.0.1";
  uint16_t groupPort = 30001;
  double rate = 200;
  double duration = 0;    // 0: no limit
  uint64_t sessions = 0;  // 0: no limit
  uint64_t seed = 1;
  int64_t snapshotMs = 3000;
  int32_t tradingDay = 0;  // 0: today
  std::string replayPath;
  double speed = 1;
  std::string trueBookId;
  std::string trueBookPath;
  std::map<std::string, std::string> users;
  bool verbose = false;
};

bool parseNumber(const char* text, double* out) {
  char* end = nullptr;
  double v = std::strtod(text, &end);
  if (end == text || *end != '\0' || !(v >= 0)) return false;
  *out = v;
  return true;
}

bool parseInteger(const char* text, uint64_t max, uint64_t* out) {
  char* end = nullptr;
  if (*text < '0' || *text > '9') return false;
  unsigned long long v = std::strtoull(text, &end, 10);
  if (*end != '\0' || v > max) return false;
  *out = v;
  return true;
}

/// "a.b.c.d:port" with a loopback address.
bool parseListen(const std::string& text, std::string* host, uint16_t* port, std::string* why) {
  size_t colon = text.rfind(':');
  uint64_t p = 0;
  uint32_t address = 0;
  if (colon == std::string::npos || !parseInteger(text.c_str() + colon + 1, 65535, &p) ||
      !velmar::sim::parseIPv4(text.substr(0, colon), &address)) {
    *why = "--listen wants ADDRESS:PORT, got " + text;
    return false;
  }
  if ((address >> 24) != 127) {
    *why = "refusing to listen on " + text.substr(0, colon) + ": loopback (127.x.x.x) only";
    return false;
  }
  *host = text.substr(0, colon);
  *port = static_cast<uint16_t>(p);
  return true;
}

int32_t today() {
  std::time_t now = std::time(nullptr);
  std::tm local{};
#if defined(_WIN32)
  localtime_s(&local, &now);
#else
  localtime_r(&now, &local);
#endif
  return (local.tm_year + 1900) * 10000 + (local.tm_mon + 1) * 100 + local.tm_mday;
}

int usageError(const std::string& text) {
  std::fprintf(stderr, "vlmd-sim: %s (see --help)\n", text.c_str());
  return 2;
}

// 0 to go on; otherwise the exit status (-1 for a clean exit after --help).
int parseOptions(int argc, char** argv, Options* o) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::fputs(kUsage, stdout);
      return -1;
    }
    if (arg == "--verbose") {
      o->verbose = true;
      continue;
    }
    if (i + 1 >= argc) return usageError(arg + " needs a value");
    const char* value = argv[++i];
    bool good = true;
    uint64_t n = 0;
    std::string why;
    if (arg == "--listen") {
      if (!parseListen(value, &o->listenHost, &o->listenPort, &why)) return usageError(why);
    } else if (arg == "--group") {
      good = velmar::sim::parseEndpoint(value, &o->group, &o->groupPort);
    } else if (arg == "--rate") {
      good = parseNumber(value, &o->rate);
    } else if (arg == "--duration") {
      good = parseNumber(value, &o->duration);
    } else if (arg == "--sessions") {
      good = parseInteger(value, 1000000, &o->sessions);
    } else if (arg == "--seed") {
      good = parseInteger(value, UINT64_MAX, &o->seed);
    } else if (arg == "--snapshot-ms") {
      good = parseInteger(value, 86400000, &n);
      o->snapshotMs = static_cast<int64_t>(n);
    } else if (arg == "--trading-day") {
      good = parseInteger(value, 99991231, &n) && n >= 19700101 && n % 100 >= 1 && n % 100 <= 31 &&
             n / 100 % 100 >= 1 && n / 100 % 100 <= 12;
      o->tradingDay = static_cast<int32_t>(n);
    } else if (arg == "--replay") {
      o->replayPath = value;
    } else if (arg == "--speed") {
      good = parseNumber(value, &o->speed);
    } else if (arg == "--true-book") {
      o->trueBookId = value;
    } else if (arg == "--true-book-file") {
      o->trueBookPath = value;
    } else if (arg == "--user") {
      const char* colon = std::strchr(value, ':');
      good = colon != nullptr && colon != value;
      if (good) o->users[std::string(value, colon)] = colon + 1;
    } else {
      return usageError("unknown option " + arg);
    }
    if (!good) return usageError("bad value '" + std::string(value) + "' for " + arg);
  }
  if (o->trueBookId.empty() != o->trueBookPath.empty()) {
    return usageError("--true-book and --true-book-file go together");
  }
  if (!o->trueBookId.empty() && !o->replayPath.empty()) {
    return usageError("--true-book needs the synthetic market, not --replay");
  }
  std::string why = velmar::sim::checkGroup(o->group);
  if (!why.empty()) return usageError(why);
  if (o->tradingDay == 0) o->tradingDay = today();
  return 0;
}

/// The records the front hands out, as the feed thread last left them.
class SharedRecords {
 public:
  void set(std::vector<CVelmarMarketData> records) {
    std::lock_guard<std::mutex> lock(mutex_);
    records_ = std::move(records);
  }

  /// The front's source; called on the front's thread.
  FrontMarketData provider() {
    FrontMarketData m;
    m.instruments = [this](uint32_t exchange) {
      std::lock_guard<std::mutex> lock(mutex_);
      std::vector<std::string> ids;
      for (const CVelmarMarketData& r : records_) {
        if (r.ExchangeID == exchange) ids.push_back(r.SecurityID);
      }
      return ids;
    };
    m.record = [this](const std::string& id,
                      uint32_t exchange) -> std::optional<CVelmarMarketData> {
      std::lock_guard<std::mutex> lock(mutex_);
      for (const CVelmarMarketData& r : records_) {
        if (r.ExchangeID == exchange && id == r.SecurityID) return r;
      }
      return std::nullopt;
    };
    return m;
  }

 private:
  std::mutex mutex_;
  std::vector<CVelmarMarketData> records_;
};

// Where the datagrams come from. `dueUs` is when a datagram is due, in
// microseconds after the start; -1 means at once.
class Source {
 public:
  virtual ~Source() = default;
  virtual bool next(Datagram* d, int64_t* dueUs) = 0;
  /// Called after a datagram has gone out.
  virtual void sent(const Datagram& d) { (void)d; }
  /// True when everything the source's state reflects has been sent, so that
  /// records taken now are not ahead of the feed.
  virtual bool caughtUp() const { return true; }
  virtual std::vector<CVelmarMarketData> records() const = 0;
  /// The true book text of a stock, if the source knows it.
  virtual std::optional<std::string> trueBook(const std::string& id) const {
    (void)id;
    return std::nullopt;
  }
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
  bool caughtUp() const override { return pending_.empty(); }
  std::vector<CVelmarMarketData> records() const override {
    return velmar::sim::engineRecords(engine_);
  }
  std::optional<std::string> trueBook(const std::string& id) const override {
    return velmar::sim::trueBookText(engine_.book(Exchange::kShenzhen, id));
  }
  /// Throws std::out_of_range unless the id is a Shenzhen stock.
  void checkStock(const std::string& id) const { engine_.book(Exchange::kShenzhen, id); }

 private:
  static MarketConfig config(const Options& o) {
    MarketConfig c;
    c.seed = o.seed;
    c.snapshotIntervalMs = o.snapshotMs;
    c.tradingDay = o.tradingDay;
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

class ReplaySource : public Source {
 public:
  ReplaySource(const std::string& path, double speed) : reader_(path), speed_(speed) {
    // A first pass learns the recording's instruments, so that a client can
    // subscribe to any of them from the start.
    ReplayReader scan(path);
    Datagram d;
    while (scan.next(&d)) records_.learn(d.bytes.data(), d.bytes.size());
    if (!scan.error().empty()) throw std::runtime_error(path + ": " + scan.error());
  }

  bool next(Datagram* d, int64_t* dueUs) override {
    if (!reader_.next(d)) return false;
    *dueUs = speed_ > 0 ? static_cast<int64_t>(static_cast<double>(d->timeUs) / speed_) : -1;
    return true;
  }
  void sent(const Datagram& d) override { records_.apply(d.bytes.data(), d.bytes.size()); }
  std::vector<CVelmarMarketData> records() const override { return records_.records(); }
  std::string error() const override { return reader_.error(); }
  size_t instrumentCount() const { return records_.size(); }

 private:
  ReplayReader reader_;
  double speed_;
  FeedRecords records_;
};

struct FeedStats {
  std::atomic<int64_t> sent{0};
  std::atomic<int64_t> failures{0};
  std::atomic<bool> failed{false};  // the source stopped on an error
  std::atomic<bool> ended{false};   // the source has nothing more
};

// How often the shared records and the true book file are brought up to date.
constexpr int64_t kRecordsEveryUs = 20000;
constexpr int64_t kTrueBookEveryUs = 100000;

void runFeed(const Options& o, Source& source, MulticastSender& sender, SharedRecords& shared,
             FeedStats& stats) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  auto elapsedUs = [&] {
    return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count();
  };
  int64_t recordsAtUs = 0, trueBookAtUs = -kTrueBookEveryUs, failures = 0;
  bool trueBookWarned = false;
  Datagram d;
  int64_t dueUs = 0;
  while (!g_stop) {
    if (!source.next(&d, &dueUs)) {
      if (!source.error().empty()) {
        std::fprintf(stderr, "vlmd-sim: %s: %s\n", o.replayPath.c_str(), source.error().c_str());
        stats.failed = true;
      }
      break;
    }
    // Sleep in slices so that a stop ends the wait soon.
    for (int64_t now = elapsedUs(); dueUs > now + 500 && !g_stop; now = elapsedUs()) {
      std::this_thread::sleep_for(std::chrono::microseconds(std::min<int64_t>(dueUs - now, 50000)));
    }
    if (g_stop) break;
    if (sender.send(d.bytes.data(), d.bytes.size())) {
      ++stats.sent;
      source.sent(d);
    } else if (++failures <= 5) {
      std::fprintf(stderr, "vlmd-sim: send failed (error %d)\n", sender.lastError());
    }
    stats.failures = failures;
    if (!source.caughtUp()) continue;
    const int64_t now = elapsedUs();
    if (now - recordsAtUs >= kRecordsEveryUs) {
      shared.set(source.records());
      recordsAtUs = now;
    }
    if (!o.trueBookPath.empty() && now - trueBookAtUs >= kTrueBookEveryUs) {
      std::string error;
      std::optional<std::string> text = source.trueBook(o.trueBookId);
      if (text && !velmar::sim::replaceFile(o.trueBookPath, *text, &error) && !trueBookWarned) {
        // A reader that holds the file open can make one replacement fail;
        // the next one tries again, so say it once.
        std::fprintf(stderr, "vlmd-sim: %s\n", error.c_str());
        trueBookWarned = true;
      }
      trueBookAtUs = now;
    }
  }
  shared.set(source.records());
  stats.ended = true;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  if (int status = parseOptions(argc, argv, &o)) return status < 0 ? 0 : status;

  std::unique_ptr<Source> source;
  std::string what = "the synthetic market, seed " + std::to_string(o.seed);
  try {
    if (!o.replayPath.empty()) {
      auto* replay = new ReplaySource(o.replayPath, o.speed);
      source.reset(replay);
      what = o.replayPath + " (" + std::to_string(replay->instrumentCount()) + " instruments)";
    } else {
      auto* market = new MarketSource(o);
      source.reset(market);
      if (!o.trueBookId.empty()) market->checkStock(o.trueBookId);
    }
  } catch (const std::out_of_range&) {
    std::fprintf(stderr, "vlmd-sim: --true-book %s is no Shenzhen stock of the market\n",
                 o.trueBookId.c_str());
    return 2;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "vlmd-sim: %s\n", e.what());
    return 1;
  }

  MulticastSender sender;
  std::string error;
  if (!sender.open(o.group, o.groupPort, "127.0.0.1", &error)) {
    std::fprintf(stderr, "vlmd-sim: %s\n", error.c_str());
    return 1;
  }

  SharedRecords shared;
  shared.set(source->records());
  FrontSimulatorOptions frontOptions;
  frontOptions.listenAddress = o.listenHost;
  frontOptions.port = o.listenPort;
  frontOptions.users = o.users;
  frontOptions.anyUserPassword.clear();
  frontOptions.tradingDay = std::to_string(o.tradingDay);
  frontOptions.marketData = shared.provider();
  if (o.verbose) {
    frontOptions.onRequest = [](const FrontRequest& r) {
      std::string line = "request " + r.text() + "\n";
      std::fputs(line.c_str(), stdout);
      std::fflush(stdout);
    };
  }
  FrontSimulator front(frontOptions);
  if (!front.start(&error)) {
    std::fprintf(stderr, "vlmd-sim: %s\n", error.c_str());
    return 1;
  }

  std::signal(SIGINT, onSignal);
  std::signal(SIGTERM, onSignal);
  std::printf("front %s\n", front.address().c_str());
  std::printf("feed udp://%s:%u\n", o.group.c_str(), static_cast<unsigned>(o.groupPort));
  std::printf("vlmd-sim: publishing %s on 127.0.0.1 (TTL 0), trading day %d\n", what.c_str(),
              static_cast<int>(o.tradingDay));
  std::fflush(stdout);

  FeedStats stats;
  std::thread feed([&] { runFeed(o, *source, sender, shared, stats); });
  const auto begin = std::chrono::steady_clock::now();
  const auto deadline = begin + std::chrono::microseconds(static_cast<int64_t>(o.duration * 1e6));
  // A finished recording leaves the front up until the end: clients keep
  // their records.
  const int sessions = static_cast<int>(o.sessions);
  while (!g_stop && (o.duration == 0 || std::chrono::steady_clock::now() < deadline)) {
    if (sessions > 0 && front.acceptedConnections() >= sessions && front.openConnections() == 0) {
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  g_stop = true;
  feed.join();
  front.stop();
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  std::printf(
      "vlmd-sim: %lld datagrams sent in %.1f s, %lld failed; front: %zu requests, "
      "%d connections\n",
      static_cast<long long>(stats.sent.load()), seconds,
      static_cast<long long>(stats.failures.load()), front.requestCount(),
      front.acceptedConnections());
  return stats.failed ? 1 : 0;
}
