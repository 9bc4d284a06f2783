// One Shenzhen ten-level snapshot with full queues (50 entries a side), from
// the receiver's entry point to an application callback that does nothing.
// Every iteration raises volume and time, so every message is applied: the
// figure is the accepted path, lock, look-up, conversions and callback.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>

#include "VLClientApi/MdApiImpl.h"
#include "support/TestAccess.h"
#include "support/SnapshotDatagrams.h"
#include "utility/ByteOrder.h"

namespace {

using velmar::mdapi::MdApiImpl;
using velmar::mdapi::TestAccess;
using velmar::mdapi::VelmarMdSpi;
using velmar::test_support::FeedDatagram;

struct CountingSpi : VelmarMdSpi {
  long calls = 0;
  void OnRtnMarketData(CVelmarMarketData* data) override {
    benchmark::DoNotOptimize(data);
    ++calls;
  }
};

FeedDatagram fullSzseSnapshot() {
  FeedDatagram d = FeedDatagram::shenzhen(300111);
  d.i64(0, 20240612093000000ll)
      .u16(8, 2011)
      .securityId(13, "000001")
      .text(25, "T0", 8)
      .i64(37, 123456)
      .u64(45, 100)
      .u64(53, 987654321000ull)
      .u32(61, 12340000)
      .u32(65, 12000000)
      .u32(69, 12500000)
      .u32(73, 11900000)
      .u32(77, 12210000)
      .u32(81, 13200000)
      .u32(85, 10800000)
      .u64(89, 123456700)
      .u64(97, 223456700)
      .u32(105, 12100000)
      .u32(109, 12600000)
      .u32(113, 0);
  for (uint32_t i = 0; i < 10; ++i) {
    d.u32(121 + 4 * i, 12330000 - 10000 * i);
    d.u64(161 + 8 * i, 10000 + 100 * i);
    d.u32(241 + 4 * i, 12340000 + 10000 * i);
    d.u64(281 + 8 * i, 20000 + 100 * i);
  }
  d.u32(361, 75).u32(365, 80).u8(369, 50).u8(370, 50);
  for (uint32_t k = 0; k < 100; ++k) d.u32(380 + 4 * k, 100 * (k + 1));
  return d;
}

void BM_SzseSnapshotAccepted(benchmark::State& state) {
  MdApiImpl api;
  CountingSpi spi;
  api.RegisterSpi(&spi);
  velmar::mdapi::SessionCore& core = TestAccess::core(api);
  core.connected_ = true;
  core.loggedIn_ = true;
  core.snapshotsComplete_ = true;
  std::unique_ptr<CVelmarMarketData> record(new CVelmarMarketData());
  record->ExchangeID = 2;
  std::memcpy(record->SecurityID, "000001", 6);
  TestAccess::subscriptions(api).keepMarketData(record);
  velmar::mdapi::Feed& feed = TestAccess::feed(api);

  FeedDatagram d = fullSzseSnapshot();
  char* time = d.data() + d.datagramOffset(0);
  char* volume = d.data() + d.datagramOffset(45);
  int64_t t = 20240612093000000ll;
  uint64_t v = 100;
  for (auto _ : state) {
    t += 1;
    v += 100;
    velmar::utility::storeLE<int64_t>(time, t);
    velmar::utility::storeLE<uint64_t>(volume, v);
    feed.onFeedDatagram(d.data());
  }
  if (spi.calls != static_cast<long>(state.iterations()))
    state.SkipWithError("a message was not applied");
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SzseSnapshotAccepted);

}  // namespace
