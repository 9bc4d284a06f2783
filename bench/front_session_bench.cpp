// Round trips of the front session over loopback against the front
// simulator: a login request to OnRspUserLogin (with a logout in between, so
// that every login is answered), and a subscription request to its answer
// callback. Median and 99th percentile in microseconds, as counters.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <vector>

#include "VLClientApi/MdApiImpl.h"
#include "VLNet/InetAddress.h"
#include "front/FrontSimulator.h"
#include "support/TestAccess.h"
#include "utility/Logging.h"

namespace {

using Clock = std::chrono::steady_clock;
using velmar::mdapi::TestAccess;

class Spi : public velmar::mdapi::VelmarMdSpi {
 public:
  void OnFrontConnected() override { connected = true; }
  void OnRspUserLogin(CVelmarRspUserLogin*, CVelmarRspInfo*, int, bool) override { ++answers; }
  void OnRspUserLogout(CVelmarRspUserLogout*, CVelmarRspInfo*, int, bool) override { ++answers; }
  void OnRspSubTickByTick(char**, int, int, bool) override { ++answers; }
  std::atomic<bool> connected{false};
  std::atomic<int> answers{0};
};

void discard(const char*, int) {}

// The session's front side as Init builds it, without the feed threads.
struct Session {
  Session() {
    velmar::utility::Logger::setOutput(discard);
    velmar::sim::FrontSimulatorOptions options;
    options.users["alice"] = "secret";
    sim.reset(new velmar::sim::FrontSimulator(options));
    sim->start();
    api.RegisterSpi(&spi);
    front().startLoop();
    front().createClient(velmar::net::InetAddress("127.0.0.1", sim->port()), nullptr);
    front().connect();
    while (!spi.connected) std::this_thread::yield();
  }
  ~Session() {
    TestAccess::stopClient(front());
    sim->stop();
    TestAccess::closeFront(front());
  }
  velmar::mdapi::FrontSession& front() { return TestAccess::front(api); }
  // One request and the wait for its answer callback, in microseconds.
  template <typename Request>
  double roundTrip(Request request) {
    const int before = spi.answers.load();
    const Clock::time_point start = Clock::now();
    request();
    while (spi.answers.load() == before) {
    }
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
  }

  Spi spi;
  velmar::mdapi::MdApiImpl api;
  std::unique_ptr<velmar::sim::FrontSimulator> sim;
};

void report(benchmark::State& state, std::vector<double>& samples) {
  std::sort(samples.begin(), samples.end());
  if (samples.empty()) return;
  state.counters["median_us"] = samples[samples.size() / 2];
  state.counters["p99_us"] = samples[samples.size() * 99 / 100];
}

void BM_LoginToOnRspUserLogin(benchmark::State& state) {
  Session s;
  CVelmarReqUserLogin login{};
  std::strcpy(login.UserID, "alice");
  std::strcpy(login.Password, "secret");
  CVelmarReqUserLogout logout{};
  std::strcpy(logout.UserID, "alice");
  std::vector<double> samples;
  for (auto _ : state) {
    samples.push_back(s.roundTrip([&] { s.api.ReqUserLogin(&login, 1); }));
    state.PauseTiming();
    s.roundTrip([&] { s.api.ReqUserLogout(&logout, 2); });
    state.ResumeTiming();
  }
  report(state, samples);
}

void BM_SubscriptionToAnswer(benchmark::State& state) {
  Session s;
  CVelmarReqUserLogin login{};
  std::strcpy(login.UserID, "alice");
  std::strcpy(login.Password, "secret");
  s.roundTrip([&] { s.api.ReqUserLogin(&login, 1); });
  char id[16] = "300446";
  char* ids[] = {id};
  std::vector<double> samples;
  for (auto _ : state) samples.push_back(s.roundTrip([&] { s.api.SubTickByTick(ids, 1, 3); }));
  report(state, samples);
}

}  // namespace

BENCHMARK(BM_LoginToOnRspUserLogin)->Iterations(2000)->UseRealTime();
BENCHMARK(BM_SubscriptionToAnswer)->Iterations(2000)->UseRealTime();
