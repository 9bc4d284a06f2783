// The receiver of a whole session on loopback, with callbacks not serialized
// and the receiver pinned: the pin as the system reports it, gaps of a
// simulator that withholds datagrams on purpose, counters that add up, and a
// slow book callback that no longer costs the feed a datagram. One process,
// one initialised API object, shared by the tests below in their order.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "VLClientApi/FeedMessages.h"
#include "VelmarMdApi.h"
#include "front/FrontSimulator.h"
#include "sim/MarketEngine.h"
#include "sim/MulticastSender.h"
#include "support/SessionSpi.h"
#include "utility/ByteOrder.h"
#include "utility/Platform.h"

#if defined(__linux__)
#include <sched.h>
#endif

using velmar::mdapi::VelmarMdApi;
using velmar::mdapi::VelmarMdStatusSpi;

namespace {

const char kGroup[] = "239.255.42.9";

class FeedSpi : public velmar::testing::SessionSpi, public VelmarMdStatusSpi {
 public:
  void OnRtnTickByTick(CVelmarTickByTick*) override {
    receiverTid = velmar::platform::currentThreadId();
    ticks.fetch_add(1);
  }
  void OnRtnMarketData(CVelmarMarketData*) override { marketData.fetch_add(1); }
  void OnRtnOrderBook(CVelmarOrderBook*) override {
    if (slowBooks) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    books.fetch_add(1);
  }
  void OnFeedGap(int channelNo, int64_t expectedSeq, int64_t receivedSeq) override {
    std::lock_guard<std::mutex> lock(gapMutex);
    gaps.push_back({channelNo, expectedSeq, receivedSeq});
  }

  std::atomic<uint64_t> receiverTid{0};
  std::atomic<uint64_t> ticks{0}, marketData{0}, books{0};
  std::atomic<bool> slowBooks{false};
  struct Gap {
    int channel;
    int64_t expected, received;
  };
  std::mutex gapMutex;
  std::vector<Gap> gaps;
};

CVelmarStatistics statistics(VelmarMdApi* api) {
  CVelmarStatistics s;
  std::memset(&s, 0, sizeof s);
  s.Size = sizeof s;
  EXPECT_EQ(api->GetStatistics(&s), 0);
  return s;
}

/// The session all tests share: front simulator, API logged in, all ticks of
/// both exchanges, books of the three Shenzhen stocks.
struct Session {
  velmar::sim::FrontSimulator front{[] {
    velmar::sim::FrontSimulatorOptions o;
    o.users["alice"] = "secret";
    return o;
  }()};
  uint16_t feedPort = static_cast<uint16_t>(30000 + velmar::platform::processId() % 20000);
  FeedSpi spi;
  VelmarMdApi* api = nullptr;
  int cpu = velmar::platform::cpuCount() - 1;

  void start() {
    std::string error;
    ASSERT_TRUE(front.start(&error)) << error;
    api = VelmarMdApi::CreateMdUserApi("");
    ASSERT_NE(api, nullptr);
    // A CPU the machine does not have is refused, and changes nothing.
    EXPECT_EQ(api->SetOption("feed.receiver_cpu", "4096"), -301);
    ASSERT_EQ(api->SetOption("feed.receiver_cpu", std::to_string(cpu).c_str()), 0);
    ASSERT_EQ(api->SetOption("callbacks.serialize", "false"), 0);
    api->RegisterSpi(&spi);
    api->RegisterStatusSpi(&spi);
    spi.onConnected = [this] {
      CVelmarReqUserLogin req{};
      std::strcpy(req.UserID, "alice");
      std::strcpy(req.Password, "secret");
      api->ReqUserLogin(&req, 1);
    };
    api->RegisterFront(front.address().c_str());
    api->RegisterMulticast(
        ("udp://" + std::string(kGroup) + ":" + std::to_string(feedPort)).c_str());
    api->RegisterMulticastInterface("127.0.0.1");
    ASSERT_EQ(api->Init(), 0);
    ASSERT_GE(spi.waitFor("login ok alice id 1 last"), 0) << spi.dump();
    char a[16] = "000001", b[16] = "002415", c[16] = "300446";
    char* ids[] = {a, b, c};
    ASSERT_EQ(api->SubOrderBook(ids, 3, 2), 0);
    ASSERT_EQ(api->SubAllTickByTick(1, 3), 0);
    ASSERT_EQ(api->SubAllTickByTick(2, 4), 0);
    ASSERT_GE(spi.waitFor("sub books 000001 002415 300446 last"), 0) << spi.dump();
    ASSERT_GE(spi.waitFor("sub all ticks 2 last"), 0) << spi.dump();
    velmar::platform::sleepMs(200);  // the receiver has long joined the group
  }
};

Session& session() {
  static Session* s = [] {
    Session* created = new Session;  // lives with the process, as its threads do
    created->start();
    return created;
  }();
  return *s;
}

/// Waits until the receiver has taken `count` datagrams in all.
bool waitForDatagrams(VelmarMdApi* api, uint64_t count, int timeoutMs) {
  for (int waited = 0; waited < timeoutMs; waited += 10) {
    if (statistics(api).DatagramsReceived >= count) return true;
    velmar::platform::sleepMs(10);
  }
  return false;
}

bool isTick(const velmar::sim::Datagram& d) {
  namespace feed = velmar::mdapi::feed;
  const uint32_t type = velmar::utility::loadLE<uint32_t>(d.bytes.data());
  return type == feed::kSzseOrder || type == feed::kSzseTrade || type == feed::kSseTrade;
}

}  // namespace

TEST(FeedSession, TheSimulatorsWithheldDatagramsArriveAsGaps) {
  Session& s = session();
  ASSERT_FALSE(HasFatalFailure());
  const CVelmarStatistics before = statistics(s.api);
  // The front's callbacks so far: connected; the login and three
  // subscription answers.
  EXPECT_EQ(before.CallbacksSession, 1u);
  EXPECT_EQ(before.CallbacksResponse, 4u);
  EXPECT_EQ(before.CallbacksError, 0u);

  // The simulator program, feed only, withholding every 97th datagram.
  const std::string command = std::string(VLMD_SIM_PROGRAM) + " --feed-only --group " + kGroup +
                              ":" + std::to_string(s.feedPort) +
                              " --rate 4000 --count 6000 --drop-every 97 2>&1";
  FILE* pipe = ::popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::string output;
  char line[512];
  while (std::fgets(line, sizeof line, pipe)) output += line;
  ASSERT_EQ(::pclose(pipe), 0) << output;
  // The summary: "vlmd-sim: N datagrams sent in S s, F failed, W withheld (--drop-every)".
  const size_t summary = output.rfind("vlmd-sim: ", output.find("datagrams sent in"));
  ASSERT_NE(summary, std::string::npos) << output;
  long long sent = 0, failed = 0, withheld = 0;
  double secondsTaken = 0;
  ASSERT_EQ(std::sscanf(output.c_str() + summary,
                        "vlmd-sim: %lld datagrams sent in %lf s, %lld failed, %lld withheld", &sent,
                        &secondsTaken, &failed, &withheld),
            4)
      << output;
  EXPECT_EQ(sent, 6000);
  EXPECT_EQ(withheld, (6000 + withheld) / 97);

  ASSERT_TRUE(waitForDatagrams(s.api, before.DatagramsReceived + 6000, 10000));
  velmar::platform::sleepMs(100);
  const CVelmarStatistics after = statistics(s.api);
  // Sent = received: nothing lost on loopback, nothing refused at the gate.
  EXPECT_EQ(after.DatagramsReceived - before.DatagramsReceived, 6000u);
  EXPECT_EQ(after.KernelDrops, 0u);
  EXPECT_EQ(after.DroppedByGate, 0u);
  EXPECT_EQ(after.ReceiveErrors, 0u);

  // Every gap the callbacks reported is counted, and together they cover the
  // withheld tick messages: at most one per withheld datagram (snapshots
  // carry no number, and a channel's very last message can't show).
  std::lock_guard<std::mutex> lock(s.spi.gapMutex);
  uint64_t missing = 0;
  for (const auto& g : s.spi.gaps) {
    EXPECT_GT(g.received, g.expected);
    missing += static_cast<uint64_t>(g.received - g.expected);
  }
  EXPECT_EQ(after.SequenceGaps, s.spi.gaps.size());
  EXPECT_EQ(after.MessagesMissing, missing);
  EXPECT_GT(after.SequenceGaps, static_cast<uint64_t>(withheld) / 2);
  EXPECT_LE(after.MessagesMissing, static_cast<uint64_t>(withheld));
}

TEST(FeedSession, TheReceiverRunsOnTheChosenCpu) {
#if defined(__linux__)
  Session& s = session();
  ASSERT_FALSE(HasFatalFailure());
  const uint64_t tid = s.spi.receiverTid.load();
  ASSERT_NE(tid, 0u) << "no tick arrived, so the receiver's thread is not known";
  cpu_set_t set;
  CPU_ZERO(&set);
  ASSERT_EQ(::sched_getaffinity(static_cast<pid_t>(tid), sizeof set, &set), 0);
  EXPECT_EQ(CPU_COUNT(&set), 1);
  EXPECT_TRUE(CPU_ISSET(s.cpu, &set));
  // The main thread is left as it was.
  CPU_ZERO(&set);
  ASSERT_EQ(::sched_getaffinity(0, sizeof set, &set), 0);
  EXPECT_EQ(CPU_COUNT(&set), velmar::platform::cpuCount());
#else
  GTEST_SKIP() << "the affinity of another thread is read through /proc-like means on Linux only";
#endif
}

TEST(FeedSession, ASlowBookCallbackCostsTheFeedNothingWhenNotSerialized) {
  // The book thread calls OnRtnOrderBook with a copy under a lock of its
  // own, and ticks of all instruments pass the filter without the session
  // lock, so the receiver never waits for a slow book callback (snapshots
  // take the session lock only for their update). With callbacks serialized
  // the same run loses datagrams at the socket.
#if defined(_WIN32)
  // Under wine the socket's receive buffer and the 1 ms sleeps are the
  // emulator's, so a rate of 10,000 datagrams/s measures wine, not the
  // library (it lost a fifth of them there).
  GTEST_SKIP() << "a loss test at a fixed rate is not meaningful under the emulator";
#endif
  Session& s = session();
  ASSERT_FALSE(HasFatalFailure());
  s.spi.slowBooks = true;
  const CVelmarStatistics before = statistics(s.api);
  const uint64_t ticksBefore = s.spi.ticks.load();

  velmar::sim::MulticastSender sender;
  std::string error;
  ASSERT_TRUE(sender.open(kGroup, s.feedPort, "127.0.0.1", &error)) << error;
  velmar::sim::MarketConfig config;
  config.seed = 11;
  // Channels of their own: the earlier test's simulator numbered the default
  // ones far beyond where this market starts.
  for (auto& instrument : config.instruments) instrument.channel += 500;
  velmar::sim::MarketEngine engine(config);
  // 10,000 datagrams a second for 10 seconds, paced against the clock.
  const int kRate = 10000, kTotal = 10 * kRate;
  const auto start = std::chrono::steady_clock::now();
  int sent = 0;
  uint64_t ticks = 0;
  while (sent < kTotal) {
    for (const velmar::sim::Datagram& d : engine.step()) {
      if (sent == kTotal) break;
      ASSERT_TRUE(sender.send(d.bytes.data(), d.bytes.size()));
      ticks += isTick(d) ? 1 : 0;
      ++sent;
      const auto due = start + std::chrono::microseconds(int64_t{sent} * 1000000 / kRate);
      if (due > std::chrono::steady_clock::now() + std::chrono::milliseconds(1))
        std::this_thread::sleep_until(due);
    }
  }
  EXPECT_TRUE(waitForDatagrams(s.api, before.DatagramsReceived + kTotal, 20000));
  for (int i = 0; i < 200 && s.spi.ticks.load() - ticksBefore < ticks; ++i)
    velmar::platform::sleepMs(10);
  const CVelmarStatistics after = statistics(s.api);
  EXPECT_EQ(after.KernelDrops, before.KernelDrops);
  EXPECT_EQ(after.DatagramsReceived - before.DatagramsReceived, static_cast<uint64_t>(kTotal));
  EXPECT_EQ(s.spi.ticks.load() - ticksBefore, ticks);
  EXPECT_EQ(after.CallbacksTickByTick - before.CallbacksTickByTick, ticks);
  EXPECT_GT(s.spi.books.load(), 0u);
  s.spi.slowBooks = false;
}
