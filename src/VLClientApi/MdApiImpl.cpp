#include "VLClientApi/MdApiImpl.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <thread>

#include "VLClientApi/ErrorTable.h"
#include "VLClientApi/LevelBookBuilder.h"
#include "VLClientApi/ProcessLog.h"
#include "VLMdApiVersion.h"
#include "VLNet/InetAddress.h"
#include "utility/CurrentThread.h"
#include "utility/Logging.h"
#include "utility/Platform.h"

namespace velmar {
namespace mdapi {

namespace {
// The version is the project's, from the generated header, so that the text
// and the library's file names and package version never disagree.
const char kVersion[] = "VELMAR_API_V" VLMDAPI_VERSION_TEXT;
// The first GetTradingDay of the process fixes the day for all later calls.
char g_tradingDay[48] = {0};

// Registration stores the text unchanged; only Init looks at it. A null
// pointer is kept as an empty text.
std::string textOf(const char* text) { return text ? std::string(text) : std::string(); }

uint16_t portNumber(const std::string& text) {
  return static_cast<uint16_t>(std::atoi(text.c_str()));
}
}  // namespace

VelmarMdApi* VelmarMdApi::CreateMdUserApi(const char* /*reserved*/) {
  return new (std::nothrow) MdApiImpl();
}

const char* VelmarMdApi::GetVersion() { return kVersion; }

MdApiImpl::MdApiImpl()
    // counters_ and statusSpi_ are built after the parts, which only keep
    // references to them.
    : books_(*this, counters_, std::unique_ptr<BookBuilder>(new LevelBookBuilder())),
      front_(*this, books_, counters_),
      feed_(*this, front_.subscriptions(), books_, counters_, statusSpi_),
      requests_(*this, front_, counters_) {
  front_.setNewTradingDayCallback([this] { feed_.forgetSequences(); });
}

MdApiImpl::~MdApiImpl() = default;

const char* MdApiImpl::GetTradingDay() {
  if (g_tradingDay[0] == '\0') {
    struct tm tm_time;
    platform::localTime(::time(nullptr), &tm_time);
    snprintf(g_tradingDay, sizeof g_tradingDay, "%d%02d%02d", tm_time.tm_year + 1900,
             tm_time.tm_mon + 1, tm_time.tm_mday);
  }
  return g_tradingDay;
}

void MdApiImpl::RegisterFront(const char* address) { frontAddresses_.push_back(textOf(address)); }
void MdApiImpl::RegisterMulticast(const char* address) {
  mcastAddresses_.push_back(textOf(address));
}
void MdApiImpl::RegisterLocalTcpAddress(const char* address) {
  localTcpAddresses_.push_back(textOf(address));
}
void MdApiImpl::RegisterMulticastInterface(const char* address) {
  mcastInterfaces_.push_back(textOf(address));
}
void MdApiImpl::SetUserString(const char* text) { userString_ = textOf(text); }
void MdApiImpl::RegisterSpi(VelmarMdSpi* spi) { spi_ = spi; }
void MdApiImpl::SetHeartbeatTimeout(unsigned int seconds) { front_.setHeartbeatTimeout(seconds); }

bool MdApiImpl::parseAddress(const std::vector<std::string>& list, std::string* host,
                             std::string* port) {
  if (list.empty()) return false;
  // Chosen once per Init; reconnects keep the address.
  std::srand(static_cast<unsigned>(std::time(nullptr)));
  const std::string& text = list[static_cast<size_t>(std::rand()) % list.size()];
  if (text.empty()) return false;
  if (text.compare(0, 3, "tcp") != 0 && text.compare(0, 3, "udp") != 0) return false;
  const size_t colon = text.rfind(':');
  const size_t slashes = text.find("//");
  if (colon == std::string::npos || slashes == std::string::npos) return false;
  const size_t hostStart = slashes + 2;
  // "tcp://host": the only ':' is the scheme's. The host is all behind "//"
  // and the port text all behind that ':', whose number is 0; the connection
  // attempts then fail, which the application hears about as for any
  // unreachable front.
  *host = colon >= hostStart ? text.substr(hostStart, colon - hostStart) : text.substr(hostStart);
  *port = text.substr(colon + 1);
  return !host->empty() && !port->empty();
}

// The receiver and book threads that Init starts run to the end of the
// process; after Release the feed gate stays closed.
int MdApiImpl::Init() {
  if (started_.load()) return kInternalError;

  {
    utility::MutexLockGuard lock(mutex_);
    books_.clearOrderBooks();
    front_.subscriptions().clearMarketData();
  }
  serializeCallbacks_ = options_.serializeCallbacks;
  books_.configure(options_);
  // Without the folder the log file can't open; not fatal.
  makeLogDirectory(options_.logDirectory);
  setUpProcessLog(options_.logDirectory, options_.logLevelSet);
  LOG_INFO << "server begin to init";

  if (!parseAddress(frontAddresses_, &frontHost_, &frontPort_)) {
    LOG_ERROR << "InValid front address";
    return kInvalidFrontAddr;
  }
  std::string mcastHost, mcastPort;
  if (!parseAddress(mcastAddresses_, &mcastHost, &mcastPort)) {
    LOG_ERROR << "InValid mcast address";
    return kInvalidFrontAddr;
  }
  feed_.setGroup(mcastHost, mcastPort, mcastInterfaces_);
  feed_.setSocketOptions(options_.socketBuffer, options_.receiverCpu);
  net::InetAddress serverAddr(frontHost_.c_str(), portNumber(frontPort_));

  front_.startLoop();
  startStatisticsTimer();
  if (!localTcpAddresses_.empty()) {
    std::string localHost, localPort;
    if (!parseAddress(localTcpAddresses_, &localHost, &localPort)) {
      LOG_ERROR << "InValid local tcp address";
      return kInvalidFrontAddr;
    }
    net::InetAddress localAddr(localHost.c_str(), portNumber(localPort));
    front_.createClient(serverAddr, &localAddr);
  } else {
    front_.createClient(serverAddr, nullptr);
  }

  std::thread receiver([this] { feed_.runUdpExanic(); });  // "udpExanicThread"
  receiver.detach();
  front_.connect();
  started_.store(true);
  std::thread books([this] {  // "orderbookThread"
    CurrentThread::t_threadName = "orderbookThread";
    books_.runOrderBook();
  });
  books.detach();
  return kNoError;
}

int MdApiImpl::Join() {
  front_.join();
  return 0;
}

void MdApiImpl::Release() {
  loggedIn_.store(false);
  front_.release();
}

// The requests are the front session's; the session object only passes them on.
int MdApiImpl::ReqUserLogin(CVelmarReqUserLogin* request, int requestId) {
  return requests_.ReqUserLogin(request, requestId);
}
int MdApiImpl::ReqUserLogout(CVelmarReqUserLogout* request, int requestId) {
  return requests_.ReqUserLogout(request, requestId);
}
int MdApiImpl::SubAllMarketData(int tickType, int exchange, int requestId) {
  return requests_.SubAllMarketData(tickType, exchange, requestId);
}
int MdApiImpl::UnSubAllMarketData(int tickType, int exchange, int requestId) {
  return requests_.UnSubAllMarketData(tickType, exchange, requestId);
}
int MdApiImpl::SubAllTickByTick(int exchange, int requestId) {
  return requests_.SubAllTickByTick(exchange, requestId);
}
int MdApiImpl::UnSubAllTickByTick(int exchange, int requestId) {
  return requests_.UnSubAllTickByTick(exchange, requestId);
}
int MdApiImpl::SubMarketData(char** ids, int count, int requestId) {
  return requests_.SubMarketData(ids, count, requestId);
}
int MdApiImpl::UnSubMarketData(char** ids, int count, int requestId) {
  return requests_.UnSubMarketData(ids, count, requestId);
}
int MdApiImpl::SubTickByTick(char** ids, int count, int requestId) {
  return requests_.SubTickByTick(ids, count, requestId);
}
int MdApiImpl::UnSubTickByTick(char** ids, int count, int requestId) {
  return requests_.UnSubTickByTick(ids, count, requestId);
}
int MdApiImpl::SubAllOrderBook(int exchange, int requestId) {
  return requests_.SubAllOrderBook(exchange, requestId);
}
int MdApiImpl::UnSubAllOrderBook(int exchange, int requestId) {
  return requests_.UnSubAllOrderBook(exchange, requestId);
}
int MdApiImpl::SubOrderBook(char** ids, int count, int requestId) {
  return requests_.SubOrderBook(ids, count, requestId);
}
int MdApiImpl::UnSubOrderBook(char** ids, int count, int requestId) {
  return requests_.UnSubOrderBook(ids, count, requestId);
}

}  // namespace mdapi
}  // namespace velmar
