// The whole library as an application uses it, against the front simulator
// and the synthetic feed on loopback, from Init to Join. One process, one
// initialised API object.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>

#include "VLClientApi/FeedMessages.h"
#include "VLClientApi/MdApiImpl.h"
#include "VLClientApi/OrderBookRules.h"
#include "VelmarMdApi.h"
#include "front/FrontSimulator.h"
#include "sim/MarketEngine.h"
#include "sim/MulticastSender.h"
#include "support/SessionSpi.h"
#include "support/TempDir.h"
#include "utility/ByteOrder.h"
#include "utility/Platform.h"

using velmar::mdapi::VelmarMdApi;
using velmar::testing::SessionSpi;

namespace {

const char kGroup[] = "239.255.42.7";

class BookSpi : public SessionSpi {
 public:
  void OnRtnOrderBook(CVelmarOrderBook* book) override {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      last_[book->SecurityID] = *book;
      ++published_[book->SecurityID];
    }
    SessionSpi::OnRtnOrderBook(book);
  }
  // How many books were published for the id, and the last one.
  std::pair<int, CVelmarOrderBook> seen(const std::string& id) {
    std::lock_guard<std::mutex> lock(mutex_);
    return {published_[id], last_[id]};
  }

 private:
  std::mutex mutex_;
  std::map<std::string, CVelmarOrderBook> last_;
  std::map<std::string, int> published_;
};

// What the rules give for the published messages, on the test's side.
struct ReferenceBook {
  std::unique_ptr<CVelmarOrderBook> book;
  int accepted = 0;
};

void applyToReference(std::map<std::string, ReferenceBook>& refs, const uint8_t* datagram) {
  using namespace velmar::mdapi;
  const uint32_t type = velmar::utility::loadLE<uint32_t>(datagram);
  int32_t kind;
  if (type == feed::kSzseSnapshot)
    kind = orderBookNode::kSnapshot;
  else if (type == feed::kSzseOrder)
    kind = orderBookNode::kOrder;
  else if (type == feed::kSzseTrade)
    kind = orderBookNode::kTrade;
  else
    return;
  const char* body = reinterpret_cast<const char*>(datagram) + 4;
  auto it = refs.find(securityIdKey(bookSecurityId(body, kind)));
  if (kind == orderBookNode::kSnapshot && !snapshotHasLastPx(body)) return;
  if (it == refs.end() || !bookAccepts(*it->second.book, body, kind)) return;
  if (kind == orderBookNode::kSnapshot)
    applySnapshot(*it->second.book, body);
  else if (kind == orderBookNode::kOrder)
    applyOrder(*it->second.book, body);
  else
    applyTrade(*it->second.book, body);
  ++it->second.accepted;
}

// The writer names its files velmarApi.<time>.<host>.<pid>.log under log/md.
std::string readLogFiles() {
  std::string all;
  for (int i = 0; i < 60 && all.find("InValid mcast address") == std::string::npos; ++i) {
    velmar::platform::sleepMs(100);
    all.clear();
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator("log/md", ec)) {
      all += velmar::testing::TempDir::readFile(entry.path().string());
    }
  }
  return all;
}

}  // namespace

TEST(EndToEnd, AWholeSessionFromInitToJoin) {
  velmar::sim::FrontSimulatorOptions options;
  options.users["alice"] = "secret";
  options.keepAliveIntervalMs = 500;
  velmar::sim::FrontSimulator front(options);
  std::string error;
  ASSERT_TRUE(front.start(&error)) << error;

  // A feed port apart from other runs on this machine.
  const uint16_t feedPort = static_cast<uint16_t>(30000 + velmar::platform::processId() % 20000);
  velmar::sim::MulticastSender sender;
  ASSERT_TRUE(sender.open(kGroup, feedPort, "127.0.0.1", &error)) << error;

  BookSpi spi;
  VelmarMdApi* api = VelmarMdApi::CreateMdUserApi("");
  ASSERT_NE(api, nullptr);
  api->RegisterSpi(&spi);
  spi.onConnected = [&] {
    CVelmarReqUserLogin req{};
    std::strcpy(req.UserID, "alice");
    std::strcpy(req.Password, "secret");
    api->ReqUserLogin(&req, 1);
  };

  // Address errors come back from Init, before anything starts.
  EXPECT_EQ(api->Init(), -115);
  api->RegisterFront(front.address().c_str());
  EXPECT_EQ(api->Init(), -115);
  api->RegisterMulticast(("udp://" + std::string(kGroup) + ":" + std::to_string(feedPort)).c_str());
  api->RegisterMulticastInterface("127.0.0.1");
  ASSERT_EQ(api->Init(), 0);
  EXPECT_EQ(api->Init(), -999);
  ASSERT_GE(spi.waitFor("login ok alice id 1 last"), 0) << spi.dump();

  char id000001[16] = "000001", id300446[16] = "300446";
  char* ids[] = {id000001, id300446};
  ASSERT_EQ(api->SubOrderBook(ids, 2, 2), 0);
  ASSERT_EQ(api->SubMarketData(ids, 2, 3), 0);
  ASSERT_EQ(api->SubAllTickByTick(2, 4), 0);
  ASSERT_GE(spi.waitFor("sub books 000001 300446 last"), 0) << spi.dump();
  ASSERT_GE(spi.waitFor("sub all ticks 2 last"), 0) << spi.dump();
  ASSERT_TRUE(spi.waitForCount("md ", 2)) << spi.dump();
  velmar::platform::sleepMs(200);  // the receiver has long joined the group

  std::map<std::string, ReferenceBook> refs;
  for (char* id : ids) refs[id].book = velmar::mdapi::makeOrderBook(id);
  velmar::sim::MarketConfig config;
  config.seed = 7;
  velmar::sim::MarketEngine engine(config);
  const size_t mdBefore = spi.count("md ");
  int sent = 0;
  while (sent < 3000) {
    for (const velmar::sim::Datagram& d : engine.step()) {
      ASSERT_TRUE(sender.send(d.bytes.data(), d.bytes.size()));
      applyToReference(refs, d.bytes.data());
      if (++sent % 64 == 0) velmar::platform::sleepMs(1);  // stay well inside the socket buffer
    }
  }

  for (auto& entry : refs) {
    const std::string& id = entry.first;
    const ReferenceBook& ref = entry.second;
    ASSERT_GT(ref.accepted, 0) << id;
    for (int i = 0; i < 500 && spi.seen(id).first < ref.accepted; ++i)
      velmar::platform::sleepMs(10);
    ASSERT_EQ(spi.seen(id).first, ref.accepted) << id;
    const CVelmarOrderBook got = spi.seen(id).second;
    const CVelmarOrderBook& want = *ref.book;
    SCOPED_TRACE(id);
    EXPECT_EQ(got.UpdateTime, want.UpdateTime);
    EXPECT_EQ(got.LastPrice, want.LastPrice);
    EXPECT_EQ(got.TotalVolume, want.TotalVolume);
    EXPECT_EQ(got.TotalValue, want.TotalValue);
    EXPECT_EQ(got.NumTrades, want.NumTrades);
    for (int i = 0; i < 10; ++i) {
      EXPECT_EQ(got.Bid[i], want.Bid[i]) << "bid " << i;
      EXPECT_EQ(got.Ask[i], want.Ask[i]) << "ask " << i;
      EXPECT_EQ(got.BidQty[i], want.BidQty[i]) << "bid " << i;
      EXPECT_EQ(got.AskQty[i], want.AskQty[i]) << "ask " << i;
      EXPECT_EQ(got.BidOrders[i], want.BidOrders[i]) << "bid " << i;
      EXPECT_EQ(got.AskOrders[i], want.AskOrders[i]) << "ask " << i;
    }
  }
  EXPECT_GT(spi.count("tick 000001"), 0u);
  EXPECT_GT(spi.count("md "), mdBefore);  // feed snapshots applied to the front's records

  // The front goes away: a fresh session, and the application logs in anew.
  const size_t before = spi.size();
  front.closeConnections();
  ASSERT_GE(spi.waitFor("disconnected 0", before), 0) << spi.dump();
  ASSERT_GE(spi.waitFor("login ok alice id 1 last", before, 8000), 0) << spi.dump();

  // Release ends the front side; the feed gate stays closed afterwards.
  api->Release();
  EXPECT_EQ(api->Join(), 0);
  EXPECT_EQ(api->Join(), 0);
  const size_t ticks = spi.count("tick ");
  for (int i = 0; i < 200; ++i)
    for (const velmar::sim::Datagram& d : engine.step())
      sender.send(d.bytes.data(), d.bytes.size());
  velmar::platform::sleepMs(200);
  EXPECT_EQ(spi.count("tick "), ticks);

  const std::string log = readLogFiles();
  EXPECT_NE(log.find("InValid front address"), std::string::npos);
  EXPECT_NE(log.find("InValid mcast address"), std::string::npos);
  EXPECT_NE(log.find("server begin to init"), std::string::npos);
  EXPECT_NE(log.find("szseOrderBookMap_ add subInstrumentID:300446"), std::string::npos);
  front.stop();
}
