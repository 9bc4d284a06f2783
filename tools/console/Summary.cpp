#include "console/Summary.h"

#include <cstdio>
#include <string>

namespace velmar {
namespace console {

void printSummary(ConsoleSpi& spi, double seconds) {
  const long long orders = spi.tickOrders, trades = spi.tickTrades, cancels = spi.tickCancels;
  std::printf("\nvlmd-console summary after %.1f s\n", seconds);
  std::printf(
      "  front          %lld connected, %lld disconnected, %lld failed connects, "
      "%lld heartbeat warnings\n",
      static_cast<long long>(spi.connects.load()), static_cast<long long>(spi.disconnects.load()),
      static_cast<long long>(spi.connectFailures.load()),
      static_cast<long long>(spi.heartbeatWarnings.load()));
  std::printf("  logins         %lld accepted; %lld subscription answers\n",
              static_cast<long long>(spi.logins.load()),
              static_cast<long long>(spi.answers.load()));
  std::printf("  market data    %lld (Shanghai %lld, Shenzhen %lld)\n",
              static_cast<long long>(spi.marketData.load()),
              static_cast<long long>(spi.marketDataSh.load()),
              static_cast<long long>(spi.marketDataSz.load()));
  std::printf("  tick by tick   %lld (orders %lld, trades %lld, cancellations %lld)\n",
              orders + trades + cancels, orders, trades, cancels);
  std::string byId;
  for (const auto& [id, n] : spi.booksById()) {
    byId += (byId.empty() ? ": " : ", ") + id + " " + std::to_string(n);
  }
  std::printf("  order books    %lld published%s\n", static_cast<long long>(spi.books.load()),
              byId.c_str());
  std::printf("  errors         %lld\n", static_cast<long long>(spi.errors.load()));
  for (const std::string& e : spi.errorTexts()) std::printf("                 %s\n", e.c_str());
  std::printf(
      "summary md=%lld ticks=%lld orders=%lld trades=%lld books=%lld errors=%lld "
      "logins=%lld\n",
      static_cast<long long>(spi.marketData.load()), orders + trades + cancels, orders,
      trades + cancels, static_cast<long long>(spi.books.load()),
      static_cast<long long>(spi.errors.load()), static_cast<long long>(spi.logins.load()));
  std::fflush(stdout);
}

}  // namespace console
}  // namespace velmar
