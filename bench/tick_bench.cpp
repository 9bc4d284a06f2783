// One accepted Shenzhen order through onFeedDatagram to a callback that does
// nothing, with the all-ticks flag and with the per-instrument filter.
#include <benchmark/benchmark.h>

#include "VLClientApi/MdApiImpl.h"
#include "support/Datagram.h"
#include "support/TestAccess.h"

namespace {

class NullSpi : public velmar::mdapi::VelmarMdSpi {
 public:
  void OnRtnTickByTick(CVelmarTickByTick* data) override { benchmark::DoNotOptimize(data); }
};

void runOrders(benchmark::State& state, bool allTicks) {
  NullSpi spi;
  using velmar::mdapi::TestAccess;
  velmar::mdapi::MdApiImpl api;
  api.RegisterSpi(&spi);
  velmar::mdapi::SessionCore& core = TestAccess::core(api);
  core.connected_ = true;
  core.loggedIn_ = true;
  core.allTickExchange2_ = allTicks;
  for (const char* id : {"000001", "000002", "000858", "300446", "002415", "300750"})
    TestAccess::subscriptions(api).addTicks(id);
  velmar::mdapi::Feed& feed = TestAccess::feed(api);
  velmar::testing::Datagram d =
      velmar::testing::szseOrder(2011, 1, "300446", 100500, 30000, '1', 20240102093015123LL);
  int64_t seq = 1;
  for (auto _ : state) {
    d.body(2, static_cast<uint64_t>(++seq), 8);  // every message is accepted
    feed.onFeedDatagram(d.data());
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_SzseOrderAllTicks(benchmark::State& state) { runOrders(state, true); }
void BM_SzseOrderSubscriptionFilter(benchmark::State& state) { runOrders(state, false); }

}  // namespace

BENCHMARK(BM_SzseOrderAllTicks);
BENCHMARK(BM_SzseOrderSubscriptionFilter);
