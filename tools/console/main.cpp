// vlmd-console: a console client of the VLMdApi library, built on its public
// interface only (VelmarMdApi.h and VelmarMdStruct.h, the shared library
// VLMdApi). It logs in, subscribes to what the options ask for, counts what
// arrives, and can show one rebuilt order book live, beside the simulator's
// true book of the same instrument.
//
// The library calls back on its own threads, mostly under its session lock,
// so the callbacks (ConsoleSpi) only count and copy a few numbers: a render
// thread draws the screen (Screen) from those copies, under a mutex of this
// program. The main thread starts, waits, stops and prints the summary.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

#include "VelmarMdApi.h"
#include "common/StopSignal.h"
#include "console/ConsoleOptions.h"
#include "console/ConsoleSpi.h"
#include "console/Screen.h"
#include "console/Summary.h"

using velmar::console::ConsoleOptions;
using velmar::console::ConsoleSpi;
using velmar::console::parseConsoleOptions;
using velmar::mdapi::VelmarMdApi;

int main(int argc, char** argv) {
  ConsoleOptions o;
  if (int status = parseConsoleOptions(argc, argv, &o); status >= 0) return status;

  VelmarMdApi* api = VelmarMdApi::CreateMdUserApi("");
  if (api == nullptr) {
    std::fprintf(stderr, "vlmd-console: no memory for the session\n");
    return 1;
  }
  // The library's feed and book threads run until the process ends and may
  // still call back after Release, so the callback object is never deleted.
  auto* spi = new ConsoleSpi(api, o);
  api->RegisterSpi(spi);
  api->RegisterFront(o.front.c_str());
  api->RegisterMulticast(o.mcast.c_str());
  if (!o.interfaceAddress.empty()) api->RegisterMulticastInterface(o.interfaceAddress.c_str());
  std::printf("vlmd-console: %s, front %s, feed %s on %s\n", VelmarMdApi::GetVersion(),
              o.front.c_str(), o.mcast.c_str(),
              o.interfaceAddress.empty() ? "any interface" : o.interfaceAddress.c_str());
  std::fflush(stdout);

  velmar::tools::stopOnSignals();
  const std::atomic<bool>& stop = velmar::tools::stopRequested();
  const int init = api->Init();
  if (init != 0) {
    std::fprintf(stderr, "vlmd-console: Init failed with %d (check --front and --mcast)\n", init);
    return 1;
  }

  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  auto elapsed = [&] { return std::chrono::duration<double>(Clock::now() - start).count(); };

  // The render thread draws at most 5 frames a second from the copies the
  // callbacks keep; it never calls the library.
  std::mutex renderMutex;
  std::condition_variable renderWake;
  bool renderStop = false;
  std::thread render;
  const bool live = !o.quiet && !o.view.empty();
  if (live) {
    velmar::console::enableTerminalEscapes();
    std::fputs("\x1b[2J", stdout);
    render = std::thread([&] {
      std::unique_lock<std::mutex> lock(renderMutex);
      while (!renderStop) {
        lock.unlock();
        std::string text = "\x1b[H" + velmar::console::frame(o, *spi, elapsed()) + "\x1b[J";
        std::fwrite(text.data(), 1, text.size(), stdout);
        std::fflush(stdout);
        lock.lock();
        renderWake.wait_for(lock, std::chrono::milliseconds(200), [&] { return renderStop; });
      }
    });
  }

  int64_t lastReportS = 0;
  while (!stop && (o.duration == 0 || elapsed() < o.duration)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    // Without a live view, a line every 5 seconds shows that things move.
    const int64_t s = static_cast<int64_t>(elapsed());
    if (!live && !o.quiet && s >= lastReportS + 5) {
      lastReportS = s;
      std::printf("%3llds: market data %lld, ticks %lld, books %lld, errors %lld\n",
                  static_cast<long long>(s), static_cast<long long>(spi->marketData.load()),
                  static_cast<long long>(spi->tickOrders + spi->tickTrades + spi->tickCancels),
                  static_cast<long long>(spi->books.load()),
                  static_cast<long long>(spi->errors.load()));
      std::fflush(stdout);
    }
  }
  if (live) {
    {
      std::lock_guard<std::mutex> lock(renderMutex);
      renderStop = true;
    }
    renderWake.notify_all();
    render.join();
  }
  const double seconds = elapsed();
  api->Release();
  api->Join();
  velmar::console::printSummary(*spi, seconds);
  return spi->logins > 0 ? 0 : 1;
}
