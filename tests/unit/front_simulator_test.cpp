// The front simulator, driven through a plain blocking socket: requests are
// written with the library's package writer, answers framed with its reader.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "VLNet/Buffer.h"
#include "front/FrontSimulator.h"
#include "package/VelmarPackage.h"
#include "package/VelmarPackageIterator.h"
#include "package/WireFormat.h"
#include "support/WireBytes.h"
#include "utility/Platform.h"

using velmar::net::Buffer;
using velmar::sim::FrontMarketData;
using velmar::sim::FrontRequest;
using velmar::sim::FrontSimulator;
using velmar::sim::FrontSimulatorOptions;
namespace platform = velmar::platform;
namespace wire = velmar::mdapi::wire;

namespace {

using Clock = std::chrono::steady_clock;

struct Answer {
  std::string raw;  ///< the package's bytes
  bool keepAlive = false;
  uint8_t ftdType = 0;
  uint8_t mark = 0;
  uint8_t chain = 0;
  uint32_t tid = 0;
  uint32_t requestId = 0;
  std::vector<std::pair<uint32_t, std::string>> fields;

  uint32_t fieldId() const { return fields.empty() ? 0xFFFFFFFF : fields[0].first; }
  std::string value() const { return fields.empty() ? std::string() : fields[0].second; }
  template <typename T>
  T record() const {
    T r;
    std::memset(&r, 0, sizeof r);
    std::string v = value();
    std::memcpy(&r, v.data(), std::min(v.size(), sizeof r));
    return r;
  }
};

std::string ids(std::initializer_list<const char*> list) {
  std::string out;
  for (const char* id : list) {
    char buf[16] = {0};
    std::strncpy(buf, id, 15);
    out.append(buf, 16);
  }
  return out;
}

std::string bytesOf(const velmar::test::Bytes& b) {
  return std::string(b.begin(), b.end());
}

/// A blocking client of the simulator.
class Client {
 public:
  explicit Client(uint16_t port) {
    fd_ = platform::createSocket(AF_INET, SOCK_STREAM, 0);
    struct sockaddr_in addr;
    std::memset(&addr, 0, sizeof addr);
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = htons(port);
    connected_ = fd_ >= 0 && platform::connectSocket(fd_, addr) == 0;
    // Requests written back to back leave at once, not after the peer's
    // delayed acknowledgement.
    int on = 1;
    if (connected_) platform::setSocketOption(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  }
  ~Client() { close(); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  bool connected() const { return connected_; }
  void close() {
    if (fd_ >= 0) platform::closeSocket(fd_);
    fd_ = -1;
  }

  bool sendBytes(const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
      int n = platform::sendSocket(fd_, bytes.data() + done, bytes.size() - done);
      if (n <= 0) return false;
      done += static_cast<size_t>(n);
    }
    return true;
  }

  bool request(uint32_t tid, const std::string& value, uint32_t requestId = 0) {
    CVelmarPackage p(wire::kRequestCapacity);
    p.clear();
    p.prepare();
    p.setHeader(wire::kFtdTypeFtdc, 0, 0, tid, wire::kChainRequest, wire::kFtdcMarkRequest,
                requestId);
    p.addField(tid, value.data(), static_cast<uint16_t>(value.size()));
    p.finish();
    return sendBytes(std::string(p.data(), static_cast<size_t>(p.length())));
  }
  template <typename T>
  bool request(uint32_t tid, const T& record, uint32_t requestId = 0) {
    return request(tid, std::string(reinterpret_cast<const char*>(&record), sizeof record),
                   requestId);
  }

  bool login(const char* user = "alice", const char* password = "secret", uint32_t rid = 1) {
    CVelmarReqUserLogin r;
    std::memset(&r, 0, sizeof r);
    std::strncpy(r.UserID, user, sizeof r.UserID - 1);
    std::strncpy(r.Password, password, sizeof r.Password - 1);
    std::memcpy(r.TradingDay, "20240102", 9);
    return request(0, r, rid);
  }

  /// The next whole package; nothing on time-out or close.
  std::optional<Answer> next(int timeoutMs = 5000) {
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
      if (input_.readableBytes() > 0 && CVelmarPackageIterator::Check(&input_)) {
        Answer a;
        const char* p = input_.peek();
        size_t frame = 4 + static_cast<uint8_t>(p[1]) +
                       (static_cast<uint8_t>(p[2]) | static_cast<uint8_t>(p[3]) << 8);
        a.raw.assign(p, frame);
        CVelmarPackageIterator it(&input_);
        a.keepAlive = it.isKeepAlive();
        a.ftdType = it.ftdType();
        const uint8_t* h = it.getFtdcHeader();
        a.mark = h[0];
        a.chain = it.chain();
        a.tid = it.tid();
        a.requestId = it.requestId();
        for (; !it.isEnd(); it.next()) {
          a.fields.emplace_back(it.fieldId(), std::string(it.fieldValue(), it.fieldLength()));
        }
        if (input_.readableBytes() > 0) input_.moveReadableToFront();
        return a;
      }
      if (readOnce(deadline) <= 0) return std::nullopt;
    }
  }

  /// The next package that is no keep-alive.
  std::optional<Answer> nextAnswer(int timeoutMs = 5000) {
    for (;;) {
      std::optional<Answer> a = next(timeoutMs);
      if (!a || !a->keepAlive) return a;
    }
  }

  /// The next answer, or an empty one and a failure.
  Answer take() {
    std::optional<Answer> a = nextAnswer();
    if (!a) {
      ADD_FAILURE() << "no answer";
      return Answer();
    }
    return *a;
  }

  /// Exactly n bytes as they come, framed or not.
  std::string raw(size_t n, int timeoutMs = 5000) {
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (input_.readableBytes() < n) {
      if (readOnce(deadline) <= 0) break;
    }
    size_t take = std::min(n, input_.readableBytes());
    std::string out(input_.peek(), take);
    input_.retrieve(take);
    return out;
  }

  /// One read into the buffer after waiting for data; its size, 0 for the
  /// peer's close, -1 for a time-out or an error.
  int readOnce(Clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    if (!waitReadable(static_cast<int>(std::max<int64_t>(0, left.count())))) return -1;
    int error = 0;
    int n = input_.readFd(fd_, &error);
    return n < 0 ? -1 : n;
  }

  bool waitReadable(int timeoutMs) {
    platform::PollFd pfd;
#if defined(_WIN32)
    pfd.fd = static_cast<SOCKET>(static_cast<intptr_t>(fd_));
#else
    pfd.fd = fd_;
#endif
    pfd.events = POLLIN;
    pfd.revents = 0;
    return platform::pollSockets(&pfd, 1, timeoutMs) == 1;
  }

  /// Nothing buffered and nothing arriving within ms.
  bool quietFor(int ms) {
    return input_.readableBytes() == 0 && !waitReadable(ms);
  }

  /// True once the simulator has closed the connection.
  bool closedByPeer(int timeoutMs = 5000) {
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
      if (!waitReadable(static_cast<int>(std::max<int64_t>(
              0, std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now())
                     .count())))) {
        return false;
      }
      char buf[256];
      int n = platform::recvSocket(fd_, buf, sizeof buf);
      if (n <= 0) return true;
    }
  }

  size_t buffered() const {
    return input_.readableBytes();
  }

 private:
  int fd_ = -1;
  bool connected_ = false;
  Buffer input_;
};

FrontSimulatorOptions quietOptions() {
  FrontSimulatorOptions o;
  o.keepAliveIntervalMs = 0;  // no keep-alives between the answers a test reads
  o.tradingDay = "20240102";
  return o;
}

class FrontSimulatorTest : public ::testing::Test {
 protected:
  void SetUp() override { startWith(quietOptions()); }

  void startWith(FrontSimulatorOptions options) {
    client_.reset();
    sim_.reset(new FrontSimulator(std::move(options)));
    std::string error;
    ASSERT_TRUE(sim_->start(&error)) << error;
    ASSERT_NE(sim_->port(), 0);
    client_.reset(new Client(sim_->port()));
    ASSERT_TRUE(client_->connected());
    ASSERT_TRUE(sim_->waitForAccepted(1));
  }

  /// Logs the client in and takes the answer.
  void loggedIn() {
    ASSERT_TRUE(client_->login());
    std::optional<Answer> a = client_->nextAnswer();
    ASSERT_TRUE(a);
    ASSERT_EQ(a->fieldId(), 22u);
  }

  std::unique_ptr<FrontSimulator> sim_;
  std::unique_ptr<Client> client_;
};

void expectError(const std::optional<Answer>& a, int32_t tid, int32_t errorId, uint32_t rid) {
  ASSERT_TRUE(a);
  ASSERT_EQ(a->fieldId(), 32u);
  EXPECT_EQ(a->tid, 32u);
  EXPECT_EQ(a->chain, 0x53);
  EXPECT_EQ(a->requestId, rid);
  ASSERT_EQ(a->value().size(), sizeof(CVelmarRspInfo));
  CVelmarRspInfo info = a->record<CVelmarRspInfo>();
  EXPECT_EQ(info.Tid, tid);
  EXPECT_EQ(info.ErrorID, errorId);
  EXPECT_GT(std::strlen(info.ErrorMsg), 0u);
}

}  // namespace

// --- Addresses and life cycle -----------------------------------------------

TEST(FrontSimulatorSetup, RefusesAddressesOffLoopbackAndBadTradingDays) {
  for (const char* address : {"0.0.0.0", "10.0.0.1", "192.168.1.1", "localhost", "127.0.0", ""}) {
    FrontSimulatorOptions o = quietOptions();
    o.listenAddress = address;
    FrontSimulator sim(o);
    std::string error;
    EXPECT_FALSE(sim.start(&error)) << address;
    EXPECT_NE(error.find("loopback"), std::string::npos) << error;
    EXPECT_FALSE(sim.running());
  }
  FrontSimulatorOptions o = quietOptions();
  o.tradingDay = "2024-1-2";
  FrontSimulator sim(o);
  EXPECT_FALSE(sim.start());
}

TEST(FrontSimulatorSetup, ListensOnAChosenPortAndStopsCleanly) {
  FrontSimulatorOptions o = quietOptions();
  o.listenAddress = "127.0.0.1";
  FrontSimulator sim(o);
  EXPECT_EQ(sim.port(), 0);
  ASSERT_TRUE(sim.start());
  EXPECT_FALSE(sim.start());  // once only
  EXPECT_TRUE(sim.running());
  EXPECT_TRUE(sim.listening());
  EXPECT_EQ(sim.address(), "tcp://127.0.0.1:" + std::to_string(sim.port()));

  Client c(sim.port());
  ASSERT_TRUE(c.connected());
  ASSERT_TRUE(sim.waitForOpenConnections(1));
  sim.stop();
  EXPECT_FALSE(sim.running());
  EXPECT_TRUE(c.closedByPeer());
  sim.stop();  // again: nothing happens
  // Hooks after the stop do no harm.
  sim.closeConnections();
  sim.sendRaw("x");
  EXPECT_EQ(sim.acceptedConnections(), 1);
}

// --- Login and logout -------------------------------------------------------

TEST_F(FrontSimulatorTest, LoginWithTheDefaultPasswordIsAnswered) {
  ASSERT_TRUE(client_->login("alice", "secret", 41));
  std::optional<Answer> a = client_->nextAnswer();
  ASSERT_TRUE(a);
  EXPECT_EQ(a->ftdType, 1);
  EXPECT_EQ(a->mark, 'H');
  EXPECT_EQ(a->chain, 'S');
  EXPECT_EQ(a->tid, 22u);
  EXPECT_EQ(a->requestId, 41u);
  ASSERT_EQ(a->fields.size(), 1u);
  ASSERT_EQ(a->value().size(), sizeof(CVelmarRspUserLogin));
  CVelmarRspUserLogin r = a->record<CVelmarRspUserLogin>();
  EXPECT_STREQ(r.TradingDay, "20240102");
  EXPECT_STREQ(r.UserID, "alice");
  EXPECT_EQ(r.MaxUserOrderLocalID, 1);
  EXPECT_EQ(std::strlen(r.LoginTime), 8u);  // HH:MM:SS
  // The padding of the record goes out as zeroes.
  EXPECT_EQ(a->value().substr(25, 3), std::string(3, '\0'));
}

TEST_F(FrontSimulatorTest, LoginsAreRefusedByUserAndPassword) {
  FrontSimulatorOptions o = quietOptions();
  o.users = {{"alice", "pw1"}, {"bob", "pw2"}};
  startWith(o);
  struct Case {
    const char* user;
    const char* password;
    int32_t error;
  };
  const Case cases[] = {
      {"carol", "pw1", -101}, {"alice", "pw2", -102}, {"bob", "", -102}, {"", "pw1", -101}};
  uint32_t rid = 10;
  for (const Case& c : cases) {
    ASSERT_TRUE(client_->login(c.user, c.password, rid));
    expectError(client_->nextAnswer(), 22, c.error, rid);
    ++rid;
  }
  ASSERT_TRUE(client_->login("bob", "pw2", rid));
  std::optional<Answer> a = client_->nextAnswer();
  ASSERT_TRUE(a);
  EXPECT_EQ(a->fieldId(), 22u);
  EXPECT_STREQ(a->record<CVelmarRspUserLogin>().UserID, "bob");
}

TEST_F(FrontSimulatorTest, AnyUserWithTheDefaultPasswordOnly) {
  ASSERT_TRUE(client_->login("zed", "wrong", 3));
  expectError(client_->nextAnswer(), 22, -102, 3);
  FrontSimulatorOptions o = quietOptions();
  o.anyUserPassword.clear();  // then any password will do
  startWith(o);
  ASSERT_TRUE(client_->login("zed", "whatever", 4));
  std::optional<Answer> a = client_->nextAnswer();
  ASSERT_TRUE(a);
  EXPECT_EQ(a->fieldId(), 22u);
}

TEST_F(FrontSimulatorTest, SecondLoginOnAConnectionIsADuplicate) {
  loggedIn();
  ASSERT_TRUE(client_->login("alice", "secret", 8));
  expectError(client_->nextAnswer(), 22, -119, 8);
}

TEST_F(FrontSimulatorTest, RequestsBeforeLoginAndAfterLogoutAreRefused) {
  const CVelmarSubAllRecord all = {1, 3};
  ASSERT_TRUE(client_->request(3, all, 5));
  expectError(client_->nextAnswer(), 3, -100, 5);
  ASSERT_TRUE(client_->request(17, ids({"000001"}), 6));
  expectError(client_->nextAnswer(), 17, -100, 6);
  ASSERT_TRUE(client_->request(19, all, 7));  // even those without an answer
  expectError(client_->nextAnswer(), 19, -100, 7);
  CVelmarReqUserLogout logout;
  std::memset(&logout, 0, sizeof logout);
  std::strcpy(logout.UserID, "alice");
  ASSERT_TRUE(client_->request(1, logout, 8));
  expectError(client_->nextAnswer(), 1, -100, 8);

  loggedIn();
  ASSERT_TRUE(client_->request(1, logout, 9));
  std::optional<Answer> a = client_->nextAnswer();
  ASSERT_TRUE(a);
  EXPECT_EQ(a->fieldId(), 23u);
  EXPECT_EQ(a->requestId, 9u);
  EXPECT_STREQ(a->record<CVelmarRspUserLogout>().UserID, "alice");
  ASSERT_TRUE(client_->request(7, all, 10));
  expectError(client_->nextAnswer(), 7, -100, 10);
  loggedIn();  // and a new login is accepted
}

TEST_F(FrontSimulatorTest, UnknownRequestIdsAreInvalid) {
  loggedIn();
  for (uint32_t id : {2u, 11u, 16u, 22u, 99u}) {
    ASSERT_TRUE(client_->request(id, std::string(8, '\0'), id));
    expectError(client_->nextAnswer(), static_cast<int32_t>(id), -104, id);
  }
}

TEST_F(FrontSimulatorTest, LoginStateBelongsToItsConnection) {
  loggedIn();
  Client other(sim_->port());
  ASSERT_TRUE(other.connected());
  ASSERT_TRUE(other.request(9, ids({"000001"}), 2));
  expectError(other.nextAnswer(), 9, -100, 2);
}

// --- Subscriptions ------------------------------------------------------------

TEST_F(FrontSimulatorTest, AllInstrumentRequestsEchoTheirRecord) {
  loggedIn();
  const std::pair<uint32_t, uint32_t> table[] = {{4, 25}, {7, 26}, {8, 27}};
  for (const auto& row : table) {
    const CVelmarSubAllRecord all = {static_cast<int32_t>(row.first), 2};
    ASSERT_TRUE(client_->request(row.first, all, 100 + row.first));
    std::optional<Answer> a = client_->nextAnswer();
    ASSERT_TRUE(a) << row.first;
    EXPECT_EQ(a->fieldId(), row.second);
    EXPECT_EQ(a->tid, row.second);
    EXPECT_EQ(a->chain, 'S');
    EXPECT_EQ(a->requestId, 100 + row.first);
    EXPECT_EQ(a->value(), std::string(reinterpret_cast<const char*>(&all), sizeof all));
  }
  // The order-book requests for all instruments have no answer: the next
  // thing that comes is the answer to the request after them.
  const CVelmarSubAllRecord books = {0, 2};
  ASSERT_TRUE(client_->request(19, books, 1));
  ASSERT_TRUE(client_->request(20, books, 2));
  ASSERT_TRUE(client_->request(7, books, 3));
  std::optional<Answer> a = client_->nextAnswer();
  ASSERT_TRUE(a);
  EXPECT_EQ(a->fieldId(), 26u);
  EXPECT_EQ(a->requestId, 3u);
}

TEST_F(FrontSimulatorTest, InstrumentAnswersEchoTheIdsWholeOrInPieces) {
  loggedIn();
  // 5 (SubMarketData) is left out here: its batch follows; see below.
  const std::pair<uint32_t, uint32_t> table[] = {{6, 29}, {9, 30}, {10, 31}, {17, 35}, {18, 36}};
  const std::string five = ids({"A1", "B2", "C3", "D4", "E5"});
  for (int perPiece : {0, 2, 5, 1}) {
    sim_->setIdsPerPiece(perPiece);
    const size_t pieces = perPiece == 0 ? 1 : (5 + perPiece - 1) / perPiece;
    for (const auto& row : table) {
      SCOPED_TRACE("tid " + std::to_string(row.first) + ", " + std::to_string(perPiece) +
                   " per piece");
      // A value that is no multiple of 16: the rest is left out.
      ASSERT_TRUE(client_->request(row.first, five + "xyz", row.first));
      std::string echoed;
      for (size_t i = 0; i < pieces; ++i) {
        std::optional<Answer> a = client_->nextAnswer();
        ASSERT_TRUE(a);
        EXPECT_EQ(a->fieldId(), row.second);
        EXPECT_EQ(a->tid, row.second);
        EXPECT_EQ(a->requestId, row.first);
        EXPECT_EQ(a->chain, i + 1 == pieces ? 'S' : 0) << "piece " << i;
        echoed += a->value();
      }
      EXPECT_EQ(echoed, five);
    }
  }
}

TEST_F(FrontSimulatorTest, InstrumentRequestWithoutIdsGetsOneEmptyField) {
  loggedIn();
  ASSERT_TRUE(client_->request(9, std::string(), 4));
  std::optional<Answer> a = client_->nextAnswer();
  ASSERT_TRUE(a);
  EXPECT_EQ(a->fieldId(), 30u);
  ASSERT_EQ(a->fields.size(), 1u);
  EXPECT_TRUE(a->value().empty());
  EXPECT_EQ(a->chain, 'S');
}

TEST_F(FrontSimulatorTest, MaximalRequestFitsOnePackage) {
  loggedIn();
  std::string many;
  for (int i = 0; i < 254; ++i) many += ids({std::to_string(100000 + i).c_str()});
  ASSERT_TRUE(client_->request(9, many, 1));
  std::optional<Answer> a = client_->nextAnswer();
  ASSERT_TRUE(a);
  EXPECT_EQ(a->value(), many);
  EXPECT_EQ(a->chain, 'S');
}

TEST_F(FrontSimulatorTest, SubAllMarketDataSendsTheBatchOfItsExchangesMarkedAtTheEnd) {
  loggedIn();
  struct Case {
    int32_t exchange;
    std::vector<std::pair<uint32_t, std::string>> expected;
  };
  const Case cases[] = {
      {1, {{1, "600000"}, {1, "600519"}, {1, "000001"}}},
      {2, {{2, "000001"}, {2, "002415"}, {2, "300446"}, {2, "399001"}}},
      {3,
       {{1, "600000"},
        {1, "600519"},
        {1, "000001"},
        {2, "000001"},
        {2, "002415"},
        {2, "300446"},
        {2, "399001"}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("exchange " + std::to_string(c.exchange));
    const CVelmarSubAllRecord all = {7, c.exchange};
    ASSERT_TRUE(client_->request(3, all, 77));
    std::optional<Answer> a = client_->nextAnswer();
    ASSERT_TRUE(a);
    EXPECT_EQ(a->fieldId(), 24u);
    EXPECT_EQ(a->chain, 'S');
    EXPECT_EQ(a->value(), std::string(reinterpret_cast<const char*>(&all), sizeof all));
    for (size_t i = 0; i < c.expected.size(); ++i) {
      std::optional<Answer> md = client_->nextAnswer();
      ASSERT_TRUE(md);
      ASSERT_EQ(md->fields.size(), 1u);
      EXPECT_EQ(md->fieldId(), 33u);
      EXPECT_EQ(md->tid, 33u);
      EXPECT_EQ(md->requestId, 77u);
      EXPECT_EQ(md->chain, i + 1 == c.expected.size() ? 'S' : 0) << i;
      ASSERT_EQ(md->value().size(), sizeof(CVelmarMarketData));
      CVelmarMarketData r = md->record<CVelmarMarketData>();
      EXPECT_EQ(r.ExchangeID, c.expected[i].first);
      EXPECT_EQ(std::string(r.SecurityID), c.expected[i].second);
    }
  }
  EXPECT_TRUE(client_->quietFor(5));
}

TEST_F(FrontSimulatorTest, StaticMarketRecordsArePlausible) {
  loggedIn();
  ASSERT_TRUE(client_->request(5, ids({"300446", "399001", "600519"}), 1));
  ASSERT_EQ(client_->take().fieldId(), 28u);
  CVelmarMarketData stock = client_->take().record<CVelmarMarketData>();
  EXPECT_EQ(stock.ExchangeID, 2u);
  EXPECT_EQ(stock.SecurityType, 1u);
  EXPECT_EQ(stock.PreClosePrice, 15.2);
  EXPECT_EQ(stock.LastPrice, 15.2);
  EXPECT_EQ(stock.UpperLimitPrice, 18.24);  // 20% for this board
  EXPECT_EQ(stock.LowerLimitPrice, 12.16);
  EXPECT_EQ(stock.UpdateTime, 20240102091500000LL);
  EXPECT_EQ(stock.TotalVolume, 0);
  EXPECT_EQ(stock.BidPrice[0], 15.2);
  EXPECT_EQ(stock.AskPrice[0], 15.21);
  EXPECT_LT(stock.BidPrice[9], stock.BidPrice[0]);
  EXPECT_GT(stock.BidVolume[0], 0);
  CVelmarMarketData index = client_->take().record<CVelmarMarketData>();
  EXPECT_EQ(std::string(index.SecurityID), "399001");
  EXPECT_EQ(index.SecurityType, 2u);
  EXPECT_EQ(index.LastPrice, 11000.0);
  EXPECT_EQ(index.BidPrice[0], 0.0);
  CVelmarMarketData sh = client_->take().record<CVelmarMarketData>();
  EXPECT_EQ(sh.ExchangeID, 1u);
  EXPECT_EQ(sh.UpdateTime, 91500000);
  EXPECT_EQ(sh.UpperLimitPrice, 1925.0);
  EXPECT_EQ(sh.LowerLimitPrice, 1575.0);
}

TEST_F(FrontSimulatorTest, SubMarketDataSendsTheKnownIdsOfBothExchanges) {
  loggedIn();
  sim_->setIdsPerPiece(1);
  ASSERT_TRUE(client_->request(5, ids({"000001", "NOPE", "600519"}), 12));
  for (int i = 0; i < 3; ++i) {
    std::optional<Answer> a = client_->nextAnswer();
    ASSERT_TRUE(a);
    EXPECT_EQ(a->fieldId(), 28u);
    EXPECT_EQ(a->chain, i == 2 ? 'S' : 0);
  }
  const std::pair<uint32_t, const char*> expected[] = {{1, "000001"}, {2, "000001"}, {1, "600519"}};
  for (size_t i = 0; i < 3; ++i) {
    std::optional<Answer> a = client_->nextAnswer();
    ASSERT_TRUE(a);
    EXPECT_EQ(a->fieldId(), 33u);
    EXPECT_EQ(a->requestId, 12u);
    EXPECT_EQ(a->chain, i == 2 ? 'S' : 0);
    CVelmarMarketData r = a->record<CVelmarMarketData>();
    EXPECT_EQ(r.ExchangeID, expected[i].first);
    EXPECT_STREQ(r.SecurityID, expected[i].second);
  }
  // Nothing known: the id answer, and no batch at all.
  ASSERT_TRUE(client_->request(5, ids({"NOPE"}), 13));
  ASSERT_TRUE(client_->request(10, ids({"X"}), 14));
  std::optional<Answer> a = client_->nextAnswer();
  ASSERT_TRUE(a);
  EXPECT_EQ(a->fieldId(), 28u);
  a = client_->nextAnswer();
  ASSERT_TRUE(a);
  EXPECT_EQ(a->fieldId(), 31u);
}

TEST_F(FrontSimulatorTest, RecordsComeFromThePluggedSource) {
  FrontSimulatorOptions o = quietOptions();
  int calls = 0;
  o.marketData.instruments = [](uint32_t exchange) {
    return exchange == 2 ? std::vector<std::string>{"AAA", "GONE"} : std::vector<std::string>{};
  };
  o.marketData.record = [&calls](const std::string& id,
                                 uint32_t exchange) -> std::optional<CVelmarMarketData> {
    ++calls;
    if (id != "AAA" || exchange != 2) return std::nullopt;
    CVelmarMarketData r;
    std::memset(&r, 0, sizeof r);
    r.ExchangeID = 2;
    std::strcpy(r.SecurityID, "AAA");
    r.LastPrice = 1.25;
    return r;
  };
  startWith(o);
  loggedIn();
  const CVelmarSubAllRecord all = {1, 3};
  ASSERT_TRUE(client_->request(3, all, 2));
  EXPECT_EQ(client_->take().fieldId(), 24u);
  std::optional<Answer> a = client_->nextAnswer();
  ASSERT_TRUE(a);
  EXPECT_EQ(a->chain, 'S');  // the only record found is the last
  CVelmarMarketData r = a->record<CVelmarMarketData>();
  EXPECT_STREQ(r.SecurityID, "AAA");
  EXPECT_EQ(r.LastPrice, 1.25);
  sim_->stop();  // the source ran on the simulator's thread
  EXPECT_EQ(calls, 2);
}

// --- Keep-alives ---------------------------------------------------------------

TEST_F(FrontSimulatorTest, KeepAlivesGoBothWays) {
  ASSERT_TRUE(client_->sendBytes(bytesOf(velmar::test::keepAlive())));
  ASSERT_TRUE(client_->sendBytes(bytesOf(velmar::test::keepAlive())));
  ASSERT_TRUE(sim_->waitForKeepAlives(2));
  EXPECT_EQ(sim_->requestCount(), 0u);  // keep-alives are no requests
  EXPECT_TRUE(client_->quietFor(5));    // and get no answer

  sim_->setKeepAliveInterval(2);  // before any login
  for (int i = 0; i < 3; ++i) {
    std::optional<Answer> a = client_->next();
    ASSERT_TRUE(a);
    EXPECT_TRUE(a->keepAlive);
    EXPECT_EQ(a->raw, bytesOf(velmar::test::keepAlive()));
  }
}

// --- Misbehaviour ------------------------------------------------------------

TEST_F(FrontSimulatorTest, SplitPackageArrivesInTwoWritesHeldUntilReleased) {
  loggedIn();
  sim_->splitNextPackages(1, -1, 10);
  ASSERT_TRUE(client_->request(9, ids({"000001"}), 3));
  // 4 + 2 + 20 + 8 + 16 bytes: the first 10 come, the rest is held.
  const std::string head = client_->raw(10);
  EXPECT_EQ(head.size(), 10u);
  EXPECT_TRUE(client_->quietFor(5));
  sim_->releaseHeld();
  const std::string rest = client_->raw(40);
  EXPECT_EQ(rest.size(), 40u);
  EXPECT_EQ(client_->buffered(), 0u);
  // Together they are the whole answer.
  Buffer b;
  b.append((head + rest).data(), 50);
  ASSERT_TRUE(CVelmarPackageIterator::Check(&b));
  CVelmarPackageIterator it(&b);
  EXPECT_EQ(it.fieldId(), 30u);
  EXPECT_EQ(it.requestId(), 3u);
  EXPECT_EQ(client_->buffered(), 0u);
}

TEST_F(FrontSimulatorTest, SplitPackagesWithAPauseKeepTheirOrder) {
  loggedIn();
  sim_->splitNextPackages(3, 2);
  ASSERT_TRUE(client_->request(5, ids({"600000", "600519"}), 4));
  const uint32_t expected[] = {28, 33, 33};
  for (uint32_t id : expected) {
    std::optional<Answer> a = client_->nextAnswer();
    ASSERT_TRUE(a);
    EXPECT_EQ(a->fieldId(), id);
  }
}

TEST_F(FrontSimulatorTest, KeepAlivesNeverCutASplitPackage) {
  loggedIn();
  sim_->splitNextPackages(1, -1, 20);
  ASSERT_TRUE(client_->request(9, ids({"000001"}), 3));
  const std::string head = client_->raw(20);
  EXPECT_EQ(head.size(), 20u);
  sim_->setKeepAliveInterval(1);
  EXPECT_TRUE(client_->quietFor(10));  // the keep-alives wait behind the held half
  sim_->releaseHeld();
  // The rest of the package first, then a keep-alive.
  const std::string rest = client_->raw(30);
  Buffer b;
  b.append((head + rest).data(), 50);
  ASSERT_TRUE(CVelmarPackageIterator::Check(&b));
  EXPECT_EQ(CVelmarPackageIterator(&b).fieldId(), 30u);
  std::optional<Answer> a = client_->next();
  ASSERT_TRUE(a);
  EXPECT_TRUE(a->keepAlive);
}

TEST_F(FrontSimulatorTest, JoinedPackagesLeaveInOneWrite) {
  loggedIn();
  sim_->joinNextPackages(2);
  ASSERT_TRUE(client_->request(9, ids({"000001"}), 1));
  ASSERT_TRUE(sim_->waitForRequests(2));
  EXPECT_TRUE(client_->quietFor(5));  // held until the second one is there
  ASSERT_TRUE(client_->request(10, ids({"600000"}), 2));
  // One read takes both (50 bytes each): they were written together.
  ASSERT_GT(client_->readOnce(Clock::now() + std::chrono::seconds(5)), 0);
  EXPECT_EQ(client_->buffered(), 100u);
  std::optional<Answer> a = client_->nextAnswer();
  ASSERT_TRUE(a);
  EXPECT_EQ(a->fieldId(), 30u);
  a = client_->nextAnswer();
  ASSERT_TRUE(a);
  EXPECT_EQ(a->fieldId(), 31u);
}

TEST_F(FrontSimulatorTest, RawBytesGoOutExactly) {
  using velmar::test::package;
  using velmar::test::WireField;
  const std::string cases[] = {
      bytesOf(package({{21, std::string(8, 'u')}})),               // unknown field id
      bytesOf(package({{37, std::string(4, 'v')}})),               // unknown field id
      bytesOf(package({{22, std::string(48, 'L')}}, 0x53, 0, 3)),  // ftdType 3
      std::string("\x01\x03\x00\x00\x00\x00\x00", 7),              // extLength 3
      std::string("\x01\x02\x10\x27\x00\x00", 6),                  // ftdcLength 10000
      std::string("garbage"),
  };
  for (const std::string& bytes : cases) {
    sim_->sendRaw(bytes);
    EXPECT_EQ(client_->raw(bytes.size()), bytes);
  }
  // Raw bytes reach clients that are not logged in; packages by default only
  // those that are.
  const CVelmarTickByTick tick = {};
  sim_->sendPackage(34, &tick, sizeof tick, 0, 5);
  EXPECT_TRUE(client_->quietFor(5));
  sim_->sendPackage(34, &tick, sizeof tick, 0, 5, true);
  std::optional<Answer> a = client_->nextAnswer();
  ASSERT_TRUE(a);
  EXPECT_EQ(a->fieldId(), 34u);
  EXPECT_EQ(a->chain, 0);
  EXPECT_EQ(a->requestId, 5u);
  EXPECT_EQ(a->value().size(), 112u);
}

TEST_F(FrontSimulatorTest, SilentFrontReceivesButNeitherAnswersNorKeepsAlive) {
  sim_->setKeepAliveInterval(1);
  ASSERT_TRUE(client_->next());  // keep-alives flow
  sim_->setSilent(true);
  // What was on its way before may still come; then nothing.
  while (!client_->quietFor(10)) client_->raw(client_->buffered() + 1, 10);
  ASSERT_TRUE(client_->login());
  ASSERT_TRUE(sim_->waitForRequests(1));
  EXPECT_TRUE(client_->quietFor(10));
  sim_->setSilent(false);
  std::optional<Answer> a = client_->next();
  ASSERT_TRUE(a);
  EXPECT_TRUE(a->keepAlive);
  // The request made while silent stays unanswered.
  ASSERT_TRUE(client_->login());
  a = client_->nextAnswer();
  ASSERT_TRUE(a);
  EXPECT_EQ(a->fieldId(), 22u);
}

TEST_F(FrontSimulatorTest, ClosingConnectionsAndListening) {
  loggedIn();
  sim_->closeConnections();
  EXPECT_TRUE(client_->closedByPeer());
  EXPECT_TRUE(sim_->waitForOpenConnections(0));

  sim_->stopListening();
  EXPECT_FALSE(sim_->listening());
  Client refused(sim_->port());
  EXPECT_FALSE(refused.connected());

  ASSERT_TRUE(sim_->resumeListening());
  EXPECT_TRUE(sim_->listening());
  Client again(sim_->port());
  ASSERT_TRUE(again.connected());
  ASSERT_TRUE(sim_->waitForAccepted(2));
  // A new connection starts logged out.
  ASSERT_TRUE(again.request(9, ids({"1"}), 1));
  expectError(again.nextAnswer(), 9, -100, 1);
  EXPECT_EQ(sim_->openConnections(), 1);
}

TEST_F(FrontSimulatorTest, GarbageFromAClientDropsItsBufferAndNothingElse) {
  // A framing error empties the buffer; the stream goes on with what follows.
  ASSERT_TRUE(client_->sendBytes(bytesOf(velmar::test::package({{0, "x"}}, 0x53, 0, 3))));
  ASSERT_TRUE(client_->sendBytes(std::string("\x01\x03\x00\x00\x00\x00", 6)));
  ASSERT_TRUE(client_->sendBytes(std::string("\x01\x02\x10\x27", 4)));
  // Unframed noise: whatever it leaves in the buffer, this connection goes.
  uint32_t x = 12345;
  std::string noise;
  for (int i = 0; i < 20000; ++i) {
    x = x * 1103515245 + 12345;
    noise += static_cast<char>(x >> 16);
  }
  ASSERT_TRUE(client_->sendBytes(noise));
  client_->close();
  ASSERT_TRUE(sim_->waitForOpenConnections(0));

  Client fresh(sim_->port());
  ASSERT_TRUE(fresh.connected());
  ASSERT_TRUE(fresh.login("bob", "secret", 2));
  std::optional<Answer> a = fresh.nextAnswer();
  ASSERT_TRUE(a);
  EXPECT_EQ(a->fieldId(), 22u);
}

TEST_F(FrontSimulatorTest, FramingErrorsDropTheBufferAndTheConnectionGoesOn) {
  const std::string errors[] = {
      std::string("\x03\x02\x00\x00\x00\x00", 6),  // ftdType 3
      std::string("\x01\x03\x00\x00\x00\x00", 6),  // extLength 3
      std::string("\x01\x02\x10\x27", 4),          // ftdcLength 10000
  };
  size_t count = 0;
  for (const std::string& bytes : errors) {
    // A login right behind the bad bytes goes with them when both are read
    // at once; one sent after the drop is read normally.
    ASSERT_TRUE(client_->sendBytes(bytes));
    ASSERT_TRUE(sim_->waitForFramingErrors(++count));
  }
  loggedIn();
  EXPECT_EQ(sim_->framingErrors(), 3u);
}

// --- Request log -------------------------------------------------------------

TEST_F(FrontSimulatorTest, EveryRequestIsRecordedInOrder) {
  std::vector<FrontRequest> seen;
  FrontSimulatorOptions o = quietOptions();
  o.onRequest = [&seen](const FrontRequest& r) { seen.push_back(r); };
  startWith(o);
  ASSERT_TRUE(client_->login("alice", "secret", 70));
  ASSERT_TRUE(client_->request(9, ids({"000001", "600000"}), 71));
  const CVelmarSubAllRecord all = {0, 2};
  ASSERT_TRUE(client_->request(19, all, 72));
  ASSERT_TRUE(sim_->waitForRequests(3));
  ASSERT_TRUE(sim_->waitForRequestWithId(19, 10));
  EXPECT_FALSE(sim_->waitForRequestWithId(20, 1));

  std::vector<FrontRequest> log = sim_->requests();
  ASSERT_EQ(log.size(), 3u);
  EXPECT_EQ(log[0].fieldId, 0u);
  EXPECT_EQ(log[0].value.size(), sizeof(CVelmarReqUserLogin));
  EXPECT_EQ(log[0].value.substr(9, 6), std::string("alice\0", 6));
  EXPECT_EQ(log[1].tid, 9u);
  EXPECT_EQ(log[1].fieldId, 9u);
  EXPECT_EQ(log[1].requestId, 71u);
  EXPECT_EQ(log[1].chain, 'S');
  EXPECT_EQ(log[1].fieldCount, 1);
  EXPECT_EQ(log[1].connection, 1);
  EXPECT_EQ(log[1].ids(), (std::vector<std::string>{"000001", "600000"}));
  EXPECT_EQ(log[2].value, std::string(reinterpret_cast<const char*>(&all), sizeof all));
  EXPECT_EQ(sim_->request(1).requestId, 71u);
  EXPECT_EQ(sim_->request(9).requestId, 0u);  // none such

  EXPECT_NE(log[0].text().find("user=alice"), std::string::npos) << log[0].text();
  EXPECT_NE(log[1].text().find("ids=000001,600000"), std::string::npos) << log[1].text();
  EXPECT_NE(log[2].text().find("exchange=2"), std::string::npos) << log[2].text();

  sim_->stop();  // the callback ran on the simulator's thread
  EXPECT_EQ(seen.size(), 3u);
  sim_->clearRequests();
  EXPECT_EQ(sim_->requestCount(), 0u);
}

TEST_F(FrontSimulatorTest, WaitingForRequestsTimesOut) {
  EXPECT_FALSE(sim_->waitForRequests(1, 5));
  EXPECT_FALSE(sim_->waitForKeepAlives(1, 1));
}
