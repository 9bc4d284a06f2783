// vlmd-sim: the market side of a VLMdApi session on loopback, in one
// program: a front server that answers logins and subscriptions, and the
// multicast feed of a synthetic Shanghai/Shenzhen market (or of a recording,
// or of a real day from CSV files). The market-data records the front sends
// are taken from the same market as the feed, so a client's subscription
// starts from the market's current state and the feed's snapshots carry on
// from there. --front-only and --feed-only run one of the two alone.
//
// Threads: the feed thread (FeedRunner) owns the source and, after each
// step's datagrams have gone out, copies the records into SharedRecords; the
// front's thread reads that copy when it answers a subscription. The main
// thread only starts, waits and stops.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "common/StopSignal.h"
#include "front/FrontSimulator.h"
#include "sim/MulticastSender.h"
#include "sim/Replay.h"
#include "simulator/CsvSource.h"
#include "simulator/FeedRunner.h"
#include "simulator/MarketSource.h"
#include "simulator/ReplaySource.h"
#include "simulator/SharedRecords.h"
#include "simulator/SimOptions.h"

namespace velmar {
namespace sim {

namespace {

/// The source the options name; the exit status if it can't be made.
int makeSource(const SimOptions& o, std::unique_ptr<FeedSource>* source) {
  try {
    if (!o.replayPath.empty()) {
      source->reset(new ReplaySource(o.replayPath, o.speed, o.runsFront()));
    } else if (!o.csvPrefix.empty()) {
      source->reset(new CsvSource(o.csvPrefix, o.channel, o.speed));
    } else {
      auto* market = new MarketSource(o);
      source->reset(market);
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
  return 0;
}

FrontSimulatorOptions frontOptions(const SimOptions& o, SharedRecords* shared) {
  FrontSimulatorOptions f;
  f.listenAddress = o.listenHost;
  f.port = o.listenPort;
  f.users = o.users;
  f.anyUserPassword = o.password;
  f.keepAliveIntervalMs = o.keepAliveMs;
  f.idsPerPiece = o.idsPerPiece;
  f.tradingDay = std::to_string(o.tradingDay);
  // Without a feed, the front's own market of the trading day before the open.
  if (shared) f.marketData = shared->provider();
  if (o.verbose) {
    f.onRequest = [](const FrontRequest& r) {
      std::string line = "request " + r.text() + "\n";
      std::fputs(line.c_str(), stdout);
      std::fflush(stdout);
    };
  }
  return f;
}

void printSummary(const SimOptions& o, const FeedRunner* feed, const FrontSimulator* front,
                  double seconds) {
  std::string line = "vlmd-sim:";
  char text[160];
  if (feed) {
    std::snprintf(text, sizeof text, " %lld datagrams sent in %.1f s, %lld failed",
                  static_cast<long long>(feed->sent()), seconds,
                  static_cast<long long>(feed->failures()));
    line += text;
    if (o.dropEvery > 0) {
      std::snprintf(text, sizeof text, ", %lld withheld (--drop-every)",
                    static_cast<long long>(feed->dropped()));
      line += text;
    }
  } else {
    std::snprintf(text, sizeof text, " %.1f s", seconds);
    line += text;
  }
  if (front) {
    std::snprintf(text, sizeof text, "; front: %zu requests, %d connections", front->requestCount(),
                  front->acceptedConnections());
    line += text;
  }
  if (feed && o.feedOnly) {
    line += ";";
    for (const auto& [type, n] : feed->sentByType()) {
      line += " " + std::to_string(type) + ":" + std::to_string(n);
    }
  }
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

/// Runs the parts the command line asks for until they end; the exit status.
int run(int argc, char** argv) {
  SimOptions o;
  if (int status = parseSimOptions(argc, argv, &o); status >= 0) return status;

  std::unique_ptr<FeedSource> source;
  MulticastSender sender;
  std::unique_ptr<ReplayWriter> recorder;
  std::string error;
  if (o.runsFeed()) {
    if (int status = makeSource(o, &source)) return status;
    if (!o.noSend && !sender.open(o.group, o.groupPort, o.interfaceAddress, &error)) {
      std::fprintf(stderr, "vlmd-sim: %s\n", error.c_str());
      return 1;
    }
    if (!o.recordPath.empty()) {
      recorder.reset(new ReplayWriter(o.recordPath));
      if (!recorder->ok()) {
        std::fprintf(stderr, "vlmd-sim: cannot write %s\n", o.recordPath.c_str());
        return 1;
      }
      recorder->comment(source->description());
    }
  }

  SharedRecords shared;
  std::unique_ptr<FrontSimulator> front;
  if (o.runsFront()) {
    if (source) shared.set(source->records());
    front.reset(new FrontSimulator(frontOptions(o, source ? &shared : nullptr)));
    if (!front->start(&error)) {
      std::fprintf(stderr, "vlmd-sim: %s\n", error.c_str());
      return 1;
    }
  }

  tools::stopOnSignals();
  std::atomic<bool>& stop = tools::stopRequested();
  if (front) std::printf("front %s\n", front->address().c_str());
  if (source && !o.noSend) {
    std::printf("feed udp://%s:%u\n", o.group.c_str(), static_cast<unsigned>(o.groupPort));
  }
  if (source) {
    std::printf("vlmd-sim: %s %s on %s (TTL 0), trading day %d\n",
                o.noSend ? "not sending" : "publishing", source->description().c_str(),
                o.interfaceAddress.c_str(), static_cast<int>(o.tradingDay));
  } else {
    std::printf("vlmd-sim: front only, the market before the open of trading day %d\n",
                static_cast<int>(o.tradingDay));
  }
  std::fflush(stdout);

  std::unique_ptr<FeedRunner> feed;
  std::thread feedThread;
  if (source) {
    feed.reset(new FeedRunner(o, *source, o.noSend ? nullptr : &sender, recorder.get(),
                              front ? &shared : nullptr, stop));
    feedThread = std::thread([&] { feed->run(); });
  }
  const auto begin = std::chrono::steady_clock::now();
  const auto deadline = begin + std::chrono::microseconds(static_cast<int64_t>(o.duration * 1e6));
  // A feed that has ended leaves the front up until the end: clients keep
  // their records. Without a front, the end of the feed is the end.
  // A feed that sends nothing keeps to no clock: --duration bounds the
  // datagrams' own times there, and the loop ends when the feed does.
  const bool timed = o.duration > 0 && (front || !o.noSend);
  const int sessions = static_cast<int>(o.sessions);
  while (!stop && (!timed || std::chrono::steady_clock::now() < deadline)) {
    if (!front && feed->ended()) break;
    if (front && sessions > 0 && front->acceptedConnections() >= sessions &&
        front->openConnections() == 0) {
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  stop = true;
  if (feedThread.joinable()) feedThread.join();
  if (front) front->stop();
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  if (!o.quiet) printSummary(o, feed.get(), front.get(), seconds);
  return feed && (feed->failed() || feed->failures() > 0) ? 1 : 0;
}

}  // namespace

}  // namespace sim
}  // namespace velmar

int main(int argc, char** argv) {
  return velmar::sim::run(argc, argv);
}
