#include "front/FrontSimulator.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <deque>
#include <future>
#include <utility>

#include "VLClientApi/ErrorTable.h"
#include "VLNet/Buffer.h"
#include "package/FieldCatalogue.h"
#include "package/VelmarPackage.h"
#include "package/VelmarPackageIterator.h"
#include "package/WireFormat.h"
#include "sim/MulticastSender.h"
#include "utility/ByteOrder.h"
#include "utility/Platform.h"

namespace velmar {
namespace sim {

namespace tid = mdapi::tid;
namespace wire = mdapi::wire;

namespace {

/// Ids of one package: the field area less one field header, in whole ids.
constexpr int kMaxIdsPerPackage = (wire::kFieldAreaSize - wire::kFieldHeaderSize) /
                                  static_cast<int>(mdapi::kWireInstrumentIdSize);
static_assert(kMaxIdsPerPackage == 254, "one package holds 254 ids");

/// The simulator whose thread is the calling one, if any.
thread_local const FrontSimulator* t_loopOwner = nullptr;

std::string textOf(const char* p, size_t size) {
  return std::string(p, strnlen(p, size));
}

void copyText(char* dest, size_t size, const std::string& text) {
  std::memset(dest, 0, size);
  std::memcpy(dest, text.data(), std::min(text.size(), size - 1));
}

std::string todayYmd() {
  struct tm t;
  platform::localTime(std::time(nullptr), &t);
  char buf[48];
  std::snprintf(buf, sizeof buf, "%04d%02d%02d", t.tm_year + 1900, t.tm_mon + 1, t.tm_mday);
  return buf;
}

std::string nowHms() {
  struct tm t;
  platform::localTime(std::time(nullptr), &t);
  char buf[48];
  std::snprintf(buf, sizeof buf, "%02d:%02d:%02d", t.tm_hour, t.tm_min, t.tm_sec);
  return buf;
}

bool isYmd(const std::string& day) {
  return day.size() == 8 &&
         std::all_of(day.begin(), day.end(), [](char ch) { return ch >= '0' && ch <= '9'; });
}

bool isTransient(int error) {
  return error == platform::kErrWouldBlock || error == platform::kErrInterrupted ||
         error == platform::kErrInProgress;
}

void setPollFd(platform::PollFd* entry, int fd, short events) {
#if defined(_WIN32)
  entry->fd = static_cast<SOCKET>(static_cast<intptr_t>(fd));
#else
  entry->fd = fd;
#endif
  entry->events = events;
  entry->revents = 0;
}

}  // namespace

// ---------------------------------------------------------------------------
// FrontRequest

std::vector<std::string> FrontRequest::ids() const {
  std::vector<std::string> out;
  const size_t n = value.size() / mdapi::kWireInstrumentIdSize;
  for (size_t i = 0; i < n; ++i) {
    out.push_back(
        textOf(value.data() + i * mdapi::kWireInstrumentIdSize, mdapi::kWireInstrumentIdSize));
  }
  return out;
}

std::string FrontRequest::text() const {
  char chainText[8];
  std::snprintf(chainText, sizeof chainText, "0x%02x", chain);
  std::string s = "[" + std::to_string(connection) + "] tid=" + std::to_string(tid) +
                  " field=" + std::to_string(fieldId) + " requestId=" + std::to_string(requestId) +
                  " chain=" + chainText + " length=" + std::to_string(value.size());
  switch (fieldId) {
    case tid::kReqUserLogin: {
      CVelmarReqUserLogin r;
      std::memset(&r, 0, sizeof r);
      std::memcpy(&r, value.data(), std::min(value.size(), sizeof r));
      s += " login user=" + textOf(r.UserID, sizeof r.UserID) +
           " tradingDay=" + textOf(r.TradingDay, sizeof r.TradingDay);
      break;
    }
    case tid::kReqUserLogout:
      s += " logout user=" + textOf(value.data(), std::min<size_t>(value.size(), 16));
      break;
    case tid::kSubAllMarketData:
    case tid::kUnSubAllMarketData:
    case tid::kSubAllTickByTick:
    case tid::kUnSubAllTickByTick:
    case tid::kSubAllOrderBook:
    case tid::kUnSubAllOrderBook:
      if (value.size() >= sizeof(CVelmarSubAllRecord)) {
        char buf[64];
        std::snprintf(buf, sizeof buf, " tickType=%d exchange=%d",
                      utility::loadLE<int32_t>(value.data()),
                      utility::loadLE<int32_t>(value.data() + 4));
        s += buf;
      }
      break;
    case tid::kSubMarketData:
    case tid::kUnSubMarketData:
    case tid::kSubTickByTick:
    case tid::kUnSubTickByTick:
    case tid::kSubOrderBook:
    case tid::kUnSubOrderBook: {
      s += " ids=";
      std::vector<std::string> list = ids();
      for (size_t i = 0; i < list.size(); ++i) s += (i ? "," : "") + list[i];
      break;
    }
    default:
      break;
  }
  return s;
}

// ---------------------------------------------------------------------------
// Connections and their output

struct FrontSimulator::Chunk {
  std::string bytes;
  /// Wait before its first byte, counted from when it heads the queue;
  /// negative: held until releaseHeld.
  int pauseMs;
};

struct FrontSimulator::Connection {
  Connection(int socket, int number) : fd(socket), id(number) {}

  int fd;
  int id;
  net::Buffer input;
  bool loggedIn = false;
  bool closed = false;
  std::deque<Chunk> output;
  size_t headSent = 0;  ///< bytes of the head chunk already written
  bool headTimed = false;
  Clock::time_point headReadyAt;
  bool wantWrite = false;  ///< the last write stopped short: wait for room
  Clock::time_point nextKeepAlive;
  std::string joined;  ///< packages held back by joinNextPackages
};

// ---------------------------------------------------------------------------
// Life cycle

FrontSimulator::FrontSimulator(FrontSimulatorOptions options)
    : options_(std::move(options)),
      package_(new CVelmarPackage(wire::kRequestCapacity)),
      keepAliveMs_(options_.keepAliveIntervalMs),
      idsPerPiece_(options_.idsPerPiece) {
  CVelmarPackage keepAlive(wire::kKeepAliveCapacity);
  keepAlive.prepare();
  keepAlive.setKeepAlive();
  keepAlive.finish();
  keepAlive_.assign(keepAlive.data(), static_cast<size_t>(keepAlive.length()));
}

FrontSimulator::~FrontSimulator() {
  stop();
}

bool FrontSimulator::start(std::string* error) {
  std::string ignored;
  if (!error) error = &ignored;
  if (thread_.joinable() || running()) {
    *error = "already started";
    return false;
  }
  if (options_.tradingDay.empty()) options_.tradingDay = todayYmd();
  if (!isYmd(options_.tradingDay)) {
    *error = "trading day must be YYYYMMDD: " + options_.tradingDay;
    return false;
  }
  market_ = options_.marketData;
  if (!market_.instruments || !market_.record) {
    FrontMarketData fixed = FrontMarketData::staticMarket(std::stoi(options_.tradingDay));
    if (!market_.instruments) market_.instruments = fixed.instruments;
    if (!market_.record) market_.record = fixed.record;
  }
  uint32_t ip = 0;
  if (!parseIPv4(options_.listenAddress, &ip) || (ip >> 24) != 127) {
    *error = "refusing to listen on " + options_.listenAddress + ": loopback (127.x.x.x) only";
    return false;
  }
  listenIp_ = ip;
  port_ = options_.port;

  platform::startupSockets();
  // The wake-up pair: a datagram to wakeReceive_ ends the poll at once.
  wakeReceive_ = platform::createSocket(AF_INET, SOCK_DGRAM, 0);
  wakeSend_ = platform::createSocket(AF_INET, SOCK_DGRAM, 0);
  struct sockaddr_in wakeAddr;
  std::memset(&wakeAddr, 0, sizeof wakeAddr);
  wakeAddr.sin_family = AF_INET;
  wakeAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (wakeReceive_ < 0 || wakeSend_ < 0 || platform::bindSocket(wakeReceive_, wakeAddr) != 0 ||
      platform::localAddress(wakeReceive_, &wakeAddr) != 0 ||
      platform::connectSocket(wakeSend_, wakeAddr) != 0 ||
      platform::setNonBlocking(wakeReceive_) != 0 || platform::setNonBlocking(wakeSend_) != 0) {
    *error = "wake-up sockets: " + platform::errorText(platform::lastSocketError());
    if (wakeReceive_ >= 0) platform::closeSocket(wakeReceive_);
    if (wakeSend_ >= 0) platform::closeSocket(wakeSend_);
    wakeReceive_ = wakeSend_ = -1;
    return false;
  }
  if (!openListener(error)) {
    platform::closeSocket(wakeReceive_);
    platform::closeSocket(wakeSend_);
    wakeReceive_ = wakeSend_ = -1;
    return false;
  }
  {
    std::lock_guard<std::mutex> lock(commandMutex_);
    running_ = true;
    stopping_ = false;
  }
  thread_ = std::thread([this] { loop(); });
  return true;
}

void FrontSimulator::stop() {
  {
    std::lock_guard<std::mutex> lock(commandMutex_);
    if (!thread_.joinable()) return;
    stopping_ = true;
  }
  wake();
  thread_.join();
  std::lock_guard<std::mutex> lock(commandMutex_);
  platform::closeSocket(wakeReceive_);
  platform::closeSocket(wakeSend_);
  wakeReceive_ = wakeSend_ = -1;
}

bool FrontSimulator::running() const {
  std::lock_guard<std::mutex> lock(commandMutex_);
  return running_;
}

uint16_t FrontSimulator::port() const {
  return port_;
}

std::string FrontSimulator::address() const {
  char buf[64];
  std::snprintf(buf, sizeof buf, "tcp://%u.%u.%u.%u:%u", listenIp_ >> 24, (listenIp_ >> 16) & 255,
                (listenIp_ >> 8) & 255, listenIp_ & 255, port_);
  return buf;
}

void FrontSimulator::wake() {
  std::lock_guard<std::mutex> lock(commandMutex_);
  if (wakeSend_ >= 0) platform::sendSocket(wakeSend_, "w", 1);
}

void FrontSimulator::runInLoop(const std::function<void()>& f) {
  if (t_loopOwner == this) {
    f();
    return;
  }
  std::promise<void> done;
  std::future<void> finished = done.get_future();
  {
    std::lock_guard<std::mutex> lock(commandMutex_);
    if (!running_) {
      // No thread to run it: the state is the caller's alone.
      f();
      return;
    }
    commands_.push_back([&f, &done] {
      f();
      done.set_value();
    });
    if (wakeSend_ >= 0) platform::sendSocket(wakeSend_, "w", 1);
  }
  finished.wait();
}

// ---------------------------------------------------------------------------
// The thread

void FrontSimulator::loop() {
  t_loopOwner = this;
  std::vector<platform::PollFd> fds;
  std::vector<Connection*> polled;
  auto sweep = [this] {
    connections_.erase(
        std::remove_if(connections_.begin(), connections_.end(),
                       [](const std::unique_ptr<Connection>& c) { return c->closed; }),
        connections_.end());
  };
  for (;;) {
    std::vector<std::function<void()>> commands;
    {
      std::lock_guard<std::mutex> lock(commandMutex_);
      if (stopping_) break;
      commands.swap(commands_);
    }
    for (auto& f : commands) f();
    sweep();

    fds.clear();
    polled.clear();
    fds.emplace_back();
    setPollFd(&fds.back(), wakeReceive_, POLLIN);
    const size_t listenIndex = fds.size();
    if (listenFd_ >= 0) {
      fds.emplace_back();
      setPollFd(&fds.back(), listenFd_, POLLIN);
    }
    const size_t firstConnection = fds.size();
    for (auto& c : connections_) {
      fds.emplace_back();
      setPollFd(&fds.back(), c->fd, static_cast<short>(POLLIN | (c->wantWrite ? POLLOUT : 0)));
      polled.push_back(c.get());
    }

    int n = platform::pollSockets(fds.data(), fds.size(), pollTimeoutMs(Clock::now()));
    if (n < 0) {
      if (platform::lastSocketError() != platform::kErrInterrupted) platform::sleepMs(1);
      continue;
    }
    if (fds[0].revents != 0) {
      char drain[64];
      while (platform::recvSocket(wakeReceive_, drain, sizeof drain) > 0) {
      }
    }
    if (listenIndex < firstConnection && fds[listenIndex].revents != 0) acceptAll();
    for (size_t i = 0; i < polled.size(); ++i) {
      Connection& c = *polled[i];
      short revents = fds[firstConnection + i].revents;
      if (revents & POLLOUT) c.wantWrite = false;
      if (!c.closed && (revents & (POLLIN | POLLERR | POLLHUP | POLLNVAL))) readFrom(c);
    }
    const Clock::time_point now = Clock::now();
    if (keepAliveMs_ > 0 && !silent_) {
      for (auto& c : connections_) {
        if (!c->closed && now >= c->nextKeepAlive) {
          queueChunk(*c, keepAlive_, 0);
          c->nextKeepAlive = now + std::chrono::milliseconds(keepAliveMs_);
        }
      }
    }
    for (auto& c : connections_) {
      if (!c->closed && !c->wantWrite) writeTo(*c, now);
    }
    sweep();
  }

  for (auto& c : connections_) closeConnection(*c);
  connections_.clear();
  closeListener();
  // Commands that came in while stopping run here, under the lock, so that
  // no caller runs one of its own at the same time.
  std::lock_guard<std::mutex> lock(commandMutex_);
  running_ = false;
  for (auto& f : commands_) f();
  commands_.clear();
  t_loopOwner = nullptr;
}

int FrontSimulator::pollTimeoutMs(Clock::time_point now) const {
  Clock::time_point next = now + std::chrono::milliseconds(1000);
  for (const auto& c : connections_) {
    if (c->headTimed) next = std::min(next, c->headReadyAt);
    if (keepAliveMs_ > 0 && !silent_) next = std::min(next, c->nextKeepAlive);
  }
  auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(next - now).count();
  // Rounded up, so that a deadline is not polled for again just before it.
  if (next > now + std::chrono::milliseconds(ms)) ++ms;
  return static_cast<int>(std::max<int64_t>(0, ms));
}

bool FrontSimulator::openListener(std::string* error) {
  int fd = platform::createSocket(AF_INET, SOCK_STREAM, 0);
  if (fd < 0) {
    *error = "socket: " + platform::errorText(platform::lastSocketError());
    return false;
  }
#if !defined(_WIN32)
  // Listening again on the port after stopListening, while connections of
  // before wait out their close. (On Windows the option would let another
  // socket take the port over, and rebinding needs no help there.)
  int on = 1;
  platform::setSocketOption(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
#endif
  struct sockaddr_in addr;
  std::memset(&addr, 0, sizeof addr);
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(listenIp_);
  addr.sin_port = htons(port_);
  const char* step = nullptr;
  if (platform::bindSocket(fd, addr) != 0) {
    step = "bind";
  } else if (platform::listenSocket(fd, 64) != 0) {
    step = "listen";
  } else if (platform::localAddress(fd, &addr) != 0) {
    step = "getsockname";
  } else if (platform::setNonBlocking(fd) != 0) {
    step = "non-blocking mode";
  }
  if (step) {
    *error = std::string(step) + ": " + platform::errorText(platform::lastSocketError());
    platform::closeSocket(fd);
    return false;
  }
  if (port_ == 0) port_ = ntohs(addr.sin_port);
  listenFd_ = fd;
  std::lock_guard<std::mutex> lock(stateMutex_);
  listening_ = true;
  stateChanged_.notify_all();
  return true;
}

void FrontSimulator::closeListener() {
  if (listenFd_ < 0) return;
  platform::closeSocket(listenFd_);
  listenFd_ = -1;
  std::lock_guard<std::mutex> lock(stateMutex_);
  listening_ = false;
  stateChanged_.notify_all();
}

void FrontSimulator::acceptAll() {
  for (;;) {
    struct sockaddr_in peer;
    int fd = platform::acceptSocket(listenFd_, &peer);
    if (fd < 0) return;
    platform::setNonBlocking(fd);
    int on = 1;
    // Every write is meant to leave at once: split packages must arrive
    // apart, pieces as they are written.
    platform::setSocketOption(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    std::unique_ptr<Connection> c(new Connection(fd, nextConnectionId_++));
    c->nextKeepAlive = Clock::now() + std::chrono::milliseconds(keepAliveMs_);
    connections_.push_back(std::move(c));
    std::lock_guard<std::mutex> lock(stateMutex_);
    ++accepted_;
    ++open_;
    stateChanged_.notify_all();
  }
}

void FrontSimulator::closeConnection(Connection& c) {
  if (c.closed) return;
  platform::closeSocket(c.fd);
  c.fd = -1;
  c.closed = true;
  c.output.clear();
  c.joined.clear();
  if (joining_ == &c) joining_ = nullptr;
  std::lock_guard<std::mutex> lock(stateMutex_);
  --open_;
  stateChanged_.notify_all();
}

void FrontSimulator::readFrom(Connection& c) {
  int savedError = 0;
  int n = c.input.readFd(c.fd, &savedError);
  if (n == 0 || (n < 0 && !isTransient(savedError))) {
    closeConnection(c);
    return;
  }
  // The library's own reading loop: frame, take the package, move the rest to
  // the front. A framing error has emptied the buffer inside Check.
  while (!c.closed && c.input.readableBytes() > 0) {
    if (!CVelmarPackageIterator::Check(&c.input)) {
      // Short of a whole package the buffer stays as it is; only a framing
      // error empties it.
      if (c.input.readableBytes() == 0) {
        std::lock_guard<std::mutex> lock(stateMutex_);
        ++framingErrors_;
        stateChanged_.notify_all();
      }
      break;
    }
    bool keepAlive = false;
    bool request = false;
    FrontRequest r;
    {
      CVelmarPackageIterator it(&c.input);
      if (it.isKeepAlive()) {
        keepAlive = true;
      } else if (it.ftdcLength() >= wire::kFtdcHeaderSize) {
        request = true;
        r.connection = c.id;
        r.tid = it.tid();
        r.requestId = it.requestId();
        r.chain = it.chain();
        r.fieldCount = it.fieldCount();
        if (!it.isEnd()) {
          r.fieldId = it.fieldId();
          r.value.assign(it.fieldValue(), it.fieldLength());
        } else {
          r.fieldId = r.tid;
        }
      }
      // Anything else (no FTDC part and another tag) carries nothing.
    }
    if (c.input.readableBytes() > 0) c.input.moveReadableToFront();
    if (keepAlive) {
      std::lock_guard<std::mutex> lock(stateMutex_);
      ++keepAlives_;
      stateChanged_.notify_all();
    } else if (request) {
      handleRequest(c, r);
    }
  }
}

// ---------------------------------------------------------------------------
// Answers

void FrontSimulator::handleRequest(Connection& c, const FrontRequest& r) {
  {
    std::lock_guard<std::mutex> lock(stateMutex_);
    requests_.push_back(r);
    stateChanged_.notify_all();
  }
  if (options_.onRequest) options_.onRequest(r);
  if (silent_ || c.closed) return;

  const uint32_t id = r.fieldId;
  const uint32_t rid = r.requestId;
  if (id == tid::kReqUserLogin) {
    if (c.loggedIn) {
      sendError(c, tid::kRspUserLogin, mdapi::kDuplicatedLogin, rid);
      return;
    }
    CVelmarReqUserLogin req;
    std::memset(&req, 0, sizeof req);
    std::memcpy(&req, r.value.data(), std::min(r.value.size(), sizeof req));
    const std::string user = textOf(req.UserID, sizeof req.UserID);
    const std::string password = textOf(req.Password, sizeof req.Password);
    int32_t refusal = 0;
    if (user.empty()) {
      refusal = mdapi::kCantFindUser;
    } else if (!options_.users.empty()) {
      auto found = options_.users.find(user);
      if (found == options_.users.end()) {
        refusal = mdapi::kCantFindUser;
      } else if (found->second != password) {
        refusal = mdapi::kWrongPassword;
      }
    } else if (!options_.anyUserPassword.empty() && password != options_.anyUserPassword) {
      refusal = mdapi::kWrongPassword;
    }
    if (refusal != 0) {
      sendError(c, tid::kRspUserLogin, refusal, rid);
      return;
    }
    c.loggedIn = true;
    CVelmarRspUserLogin rsp;
    std::memset(&rsp, 0, sizeof rsp);
    copyText(rsp.TradingDay, sizeof rsp.TradingDay, options_.tradingDay);
    copyText(rsp.UserID, sizeof rsp.UserID, user);
    rsp.MaxUserOrderLocalID = options_.maxUserOrderLocalId;
    copyText(rsp.LoginTime, sizeof rsp.LoginTime, nowHms());
    queuePackage(c, buildPackage(tid::kRspUserLogin, &rsp, sizeof rsp, wire::kChainRequest, rid));
    return;
  }
  if (!c.loggedIn) {
    sendError(c, static_cast<int32_t>(id), mdapi::kNotLoggedIn, rid);
    return;
  }

  CVelmarSubAllRecord all;
  std::memset(&all, 0, sizeof all);
  std::memcpy(&all, r.value.data(), std::min(r.value.size(), sizeof all));
  auto echoAll = [&](uint32_t answer) {
    queuePackage(c, buildPackage(answer, &all, sizeof all, wire::kChainRequest, rid));
  };
  switch (id) {
    case tid::kReqUserLogout: {
      CVelmarRspUserLogout rsp;
      std::memset(&rsp, 0, sizeof rsp);
      std::memcpy(&rsp, r.value.data(), std::min(r.value.size(), sizeof rsp));
      c.loggedIn = false;
      queuePackage(c,
                   buildPackage(tid::kRspUserLogout, &rsp, sizeof rsp, wire::kChainRequest, rid));
      break;
    }
    case tid::kSubAllMarketData: {
      echoAll(tid::kRspSubAllMarketData);
      std::vector<CVelmarMarketData> batch;
      for (uint32_t exchange : {1u, 2u}) {
        if ((static_cast<uint32_t>(all.Exchange) & exchange) == 0) continue;
        std::vector<std::string> ids;
        try {
          ids = market_.instruments(exchange);
        } catch (...) {
          // A failing source has nothing to offer; the answer stands.
        }
        for (const std::string& instrument : ids) {
          try {
            std::optional<CVelmarMarketData> record = market_.record(instrument, exchange);
            if (record) batch.push_back(*record);
          } catch (...) {
          }
        }
      }
      sendBatch(c, batch, rid);
      break;
    }
    case tid::kUnSubAllMarketData:
      echoAll(tid::kRspUnSubAllMarketData);
      break;
    case tid::kSubMarketData: {
      answerIds(c, tid::kRspSubMarketData, r);
      std::vector<CVelmarMarketData> batch;
      for (const std::string& instrument : r.ids()) {
        for (uint32_t exchange : {1u, 2u}) {
          try {
            std::optional<CVelmarMarketData> record = market_.record(instrument, exchange);
            if (record) batch.push_back(*record);
          } catch (...) {
          }
        }
      }
      sendBatch(c, batch, rid);
      break;
    }
    case tid::kUnSubMarketData:
      answerIds(c, tid::kRspUnSubMarketData, r);
      break;
    case tid::kSubAllTickByTick:
      echoAll(tid::kRspSubAllTickByTick);
      break;
    case tid::kUnSubAllTickByTick:
      echoAll(tid::kRspUnSubAllTickByTick);
      break;
    case tid::kSubTickByTick:
      answerIds(c, tid::kRspSubTickByTick, r);
      break;
    case tid::kUnSubTickByTick:
      answerIds(c, tid::kRspUnSubTickByTick, r);
      break;
    case tid::kSubOrderBook:
      answerIds(c, tid::kRspSubOrderBook, r);
      break;
    case tid::kUnSubOrderBook:
      answerIds(c, tid::kRspUnSubOrderBook, r);
      break;
    case tid::kSubAllOrderBook:
    case tid::kUnSubAllOrderBook:
      // These have no answer: the client acts on its own request.
      break;
    default:
      sendError(c, static_cast<int32_t>(id), mdapi::kInvalidTid, rid);
      break;
  }
}

void FrontSimulator::answerIds(Connection& c, uint32_t fieldId, const FrontRequest& r) {
  const size_t idSize = mdapi::kWireInstrumentIdSize;
  const size_t count = r.value.size() / idSize;
  size_t perPiece = kMaxIdsPerPackage;
  if (idsPerPiece_ > 0 && idsPerPiece_ < kMaxIdsPerPackage) perPiece = idsPerPiece_;
  if (count == 0) {
    queuePackage(c, buildPackage(fieldId, "", 0, wire::kChainRequest, r.requestId));
    return;
  }
  for (size_t first = 0; first < count; first += perPiece) {
    const size_t n = std::min(perPiece, count - first);
    const uint8_t chain = first + n == count ? wire::kChainRequest : 0;
    queuePackage(
        c, buildPackage(fieldId, r.value.data() + first * idSize, n * idSize, chain, r.requestId));
  }
}

void FrontSimulator::sendBatch(Connection& c, const std::vector<CVelmarMarketData>& records,
                               uint32_t requestId) {
  // One record per package: the mark is a package's, and only the last
  // record of the batch may carry it.
  for (size_t i = 0; i < records.size(); ++i) {
    const uint8_t chain = i + 1 == records.size() ? wire::kChainRequest : 0;
    queuePackage(
        c, buildPackage(tid::kRtnMarketData, &records[i], sizeof records[i], chain, requestId));
  }
}

void FrontSimulator::sendError(Connection& c, int32_t answerTid, int32_t errorId,
                               uint32_t requestId) {
  CVelmarRspInfo info;
  std::memset(&info, 0, sizeof info);
  info.Tid = answerTid;
  info.ErrorID = errorId;
  copyText(info.ErrorMsg, sizeof info.ErrorMsg, mdapi::errorText(static_cast<int16_t>(errorId)));
  queuePackage(c, buildPackage(tid::kRspInfo, &info, sizeof info, wire::kChainRequest, requestId));
}

std::string FrontSimulator::buildPackage(uint32_t fieldId, const void* value, size_t length,
                                         uint8_t chain, uint32_t requestId) {
  if (length > static_cast<size_t>(wire::kFieldAreaSize - wire::kFieldHeaderSize)) return {};
  CVelmarPackage& p = *package_;
  p.clear();
  if (!p.prepare() ||
      !p.setHeader(wire::kFtdTypeFtdc, wire::kExtTagNone, 0, fieldId, chain, wire::kFtdcMarkRequest,
                   requestId) ||
      !p.addField(fieldId, value, static_cast<uint16_t>(length)) || !p.finish()) {
    return {};
  }
  return std::string(p.data(), static_cast<size_t>(p.length()));
}

void FrontSimulator::queuePackage(Connection& c, std::string bytes) {
  if (bytes.empty() || c.closed) return;
  if (joinCount_ > 0) {
    if (joining_ && joining_ != &c) flushJoined(*joining_);
    joining_ = &c;
    c.joined += bytes;
    if (--joinCount_ == 0) flushJoined(c);
    return;
  }
  if (splitCount_ > 0) {
    --splitCount_;
    size_t at = splitAt_;
    if (at == 0 || at >= bytes.size()) at = std::max<size_t>(1, bytes.size() / 2);
    queueChunk(c, bytes.substr(0, at), 0);
    queueChunk(c, bytes.substr(at), splitPauseMs_);
    return;
  }
  queueChunk(c, std::move(bytes), 0);
}

void FrontSimulator::flushJoined(Connection& c) {
  if (joining_ == &c) joining_ = nullptr;
  if (c.joined.empty()) return;
  std::string bytes;
  bytes.swap(c.joined);
  queueChunk(c, std::move(bytes), 0);
}

void FrontSimulator::queueChunk(Connection& c, std::string bytes, int pauseMs) {
  if (c.closed || bytes.empty()) return;
  c.output.push_back(Chunk{std::move(bytes), pauseMs});
  // Written at once where possible, so that answers leave in the order and
  // the writes they were made in.
  if (!c.wantWrite && c.output.size() == 1) writeTo(c, Clock::now());
}

void FrontSimulator::writeTo(Connection& c, Clock::time_point now) {
  while (!c.closed && !c.output.empty()) {
    Chunk& head = c.output.front();
    if (head.pauseMs < 0) return;  // held until releaseHeld
    if (head.pauseMs > 0 && c.headSent == 0) {
      if (!c.headTimed) {
        c.headTimed = true;
        c.headReadyAt = std::max(now, Clock::now()) + std::chrono::milliseconds(head.pauseMs);
      }
      if (Clock::now() < c.headReadyAt) return;
    }
    int n =
        platform::sendSocket(c.fd, head.bytes.data() + c.headSent, head.bytes.size() - c.headSent);
    if (n < 0) {
      if (isTransient(platform::lastSocketError())) {
        c.wantWrite = true;
      } else {
        closeConnection(c);
      }
      return;
    }
    c.headSent += static_cast<size_t>(n);
    if (c.headSent < head.bytes.size()) {
      // The socket's buffer is full: the rest goes when there is room.
      c.wantWrite = true;
      return;
    }
    c.output.pop_front();
    c.headSent = 0;
    c.headTimed = false;
  }
}

// ---------------------------------------------------------------------------
// Settings and hooks

void FrontSimulator::setKeepAliveInterval(int ms) {
  runInLoop([this, ms] {
    keepAliveMs_ = std::max(0, ms);
    for (auto& c : connections_) c->nextKeepAlive = Clock::now() + std::chrono::milliseconds(ms);
  });
}

void FrontSimulator::setIdsPerPiece(int ids) {
  runInLoop([this, ids] { idsPerPiece_ = ids; });
}

void FrontSimulator::splitNextPackages(int count, int pauseMs, size_t splitAt) {
  runInLoop([=] {
    splitCount_ = std::max(0, count);
    splitPauseMs_ = pauseMs;
    splitAt_ = splitAt;
  });
}

void FrontSimulator::releaseHeld() {
  runInLoop([this] {
    for (auto& c : connections_) {
      for (Chunk& chunk : c->output) {
        if (chunk.pauseMs < 0) chunk.pauseMs = 0;
      }
      if (!c->closed && !c->wantWrite) writeTo(*c, Clock::now());
    }
  });
}

void FrontSimulator::joinNextPackages(int count) {
  runInLoop([this, count] {
    if (joining_) flushJoined(*joining_);
    joinCount_ = std::max(0, count);
  });
}

void FrontSimulator::sendRaw(const std::string& bytes) {
  runInLoop([this, &bytes] {
    for (auto& c : connections_) queueChunk(*c, bytes, 0);
  });
}

void FrontSimulator::sendPackage(uint32_t fieldId, const void* value, size_t length, uint8_t chain,
                                 uint32_t requestId, bool toAll) {
  runInLoop([=] {
    std::string bytes = buildPackage(fieldId, value, length, chain, requestId);
    for (auto& c : connections_) {
      if (toAll || c->loggedIn) queuePackage(*c, bytes);
    }
  });
}

void FrontSimulator::setSilent(bool silent) {
  runInLoop([this, silent] {
    silent_ = silent;
    if (!silent) {
      for (auto& c : connections_) {
        c->nextKeepAlive = Clock::now() + std::chrono::milliseconds(keepAliveMs_);
      }
    }
  });
}

void FrontSimulator::closeConnections() {
  runInLoop([this] {
    for (auto& c : connections_) closeConnection(*c);
  });
}

void FrontSimulator::stopListening() {
  runInLoop([this] { closeListener(); });
}

bool FrontSimulator::resumeListening() {
  bool ok = false;
  runInLoop([this, &ok] {
    if (listenFd_ >= 0) {
      ok = true;
      return;
    }
    std::string error;
    ok = listenIp_ != 0 && openListener(&error);
  });
  return ok;
}

bool FrontSimulator::listening() const {
  std::lock_guard<std::mutex> lock(stateMutex_);
  return listening_;
}

// ---------------------------------------------------------------------------
// Observation

std::vector<FrontRequest> FrontSimulator::requests() const {
  std::lock_guard<std::mutex> lock(stateMutex_);
  return requests_;
}

size_t FrontSimulator::requestCount() const {
  std::lock_guard<std::mutex> lock(stateMutex_);
  return requests_.size();
}

FrontRequest FrontSimulator::request(size_t index) const {
  std::lock_guard<std::mutex> lock(stateMutex_);
  return index < requests_.size() ? requests_[index] : FrontRequest();
}

bool FrontSimulator::waitForRequests(size_t count, int timeoutMs) const {
  std::unique_lock<std::mutex> lock(stateMutex_);
  return stateChanged_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                [&] { return requests_.size() >= count; });
}

bool FrontSimulator::waitForRequestWithId(uint32_t fieldId, int timeoutMs) const {
  std::unique_lock<std::mutex> lock(stateMutex_);
  return stateChanged_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
    return std::any_of(requests_.begin(), requests_.end(),
                       [fieldId](const FrontRequest& r) { return r.fieldId == fieldId; });
  });
}

void FrontSimulator::clearRequests() {
  std::lock_guard<std::mutex> lock(stateMutex_);
  requests_.clear();
}

size_t FrontSimulator::keepAlivesReceived() const {
  std::lock_guard<std::mutex> lock(stateMutex_);
  return keepAlives_;
}

bool FrontSimulator::waitForKeepAlives(size_t count, int timeoutMs) const {
  std::unique_lock<std::mutex> lock(stateMutex_);
  return stateChanged_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                [&] { return keepAlives_ >= count; });
}

size_t FrontSimulator::framingErrors() const {
  std::lock_guard<std::mutex> lock(stateMutex_);
  return framingErrors_;
}

bool FrontSimulator::waitForFramingErrors(size_t count, int timeoutMs) const {
  std::unique_lock<std::mutex> lock(stateMutex_);
  return stateChanged_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                [&] { return framingErrors_ >= count; });
}

int FrontSimulator::acceptedConnections() const {
  std::lock_guard<std::mutex> lock(stateMutex_);
  return accepted_;
}

int FrontSimulator::openConnections() const {
  std::lock_guard<std::mutex> lock(stateMutex_);
  return open_;
}

bool FrontSimulator::waitForAccepted(int count, int timeoutMs) const {
  std::unique_lock<std::mutex> lock(stateMutex_);
  return stateChanged_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                [&] { return accepted_ >= count; });
}

bool FrontSimulator::waitForOpenConnections(int count, int timeoutMs) const {
  std::unique_lock<std::mutex> lock(stateMutex_);
  return stateChanged_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                [&] { return open_ == count; });
}

}  // namespace sim
}  // namespace velmar
