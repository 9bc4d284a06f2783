// Init, Join and Release: the start and the end of the front side of a
// session. The receiver and book threads that Init starts run to the end of
// the process; after Release the feed gate stays closed.
#include <cstdlib>
#include <ctime>
#include <thread>

#include "VLClientApi/ErrorTable.h"
#include "VLClientApi/MdApiImpl.h"
#include "VLNet/EventLoop.h"
#include "VLNet/EventLoopThread.h"
#include "VLNet/InetAddress.h"
#include "VLNet/TcpClient.h"
#include "utility/AsyncLogging.h"
#include "utility/CurrentThread.h"
#include "utility/Logging.h"
#include "utility/Platform.h"

namespace velmar {
namespace mdapi {

namespace {

const char kLogDirectory[] = "./log/md";
const char kLogBaseName[] = "./log/md/velmarApi";
constexpr int64_t kLogRollSize = 500000000;
constexpr int kLogFlushInterval = 3;

// The process's one log writer, built by the first Init. The receiver and
// book threads log until the very end of the process, also while static
// objects are being destroyed, so the writer is never destroyed: at exit it
// is stopped, which writes what was handed over, and later lines are dropped.
utility::AsyncLogging& processLog() {
  static utility::AsyncLogging* log = [] {
    auto* created = new utility::AsyncLogging(kLogBaseName, kLogRollSize, kLogFlushInterval);
    std::atexit([] { processLog().stop(); });
    return created;
  }();
  return *log;
}

void writeToProcessLog(const char* line, int length) { processLog().append(line, length); }

void setUpLogging() {
  if (utility::Logger::output() != utility::Logger::defaultOutput()) return;
  utility::AsyncLogging& log = processLog();
  utility::Logger::setOutput(writeToProcessLog);
  // DEBUG, whatever the environment said: request and answer records appear
  // in the log in text form, and so do the book thread's lines.
  utility::Logger::setLogLevel(utility::Logger::DEBUG);
  log.start();
}

uint16_t portNumber(const std::string& text) {
  return static_cast<uint16_t>(std::atoi(text.c_str()));
}

}  // namespace

bool makeLogDirectory(const std::string& path) {
  std::string prefix;
  std::string segment;
  for (size_t i = 0; i < path.size(); ++i) {
    segment.push_back(path[i]);
    if (path[i] != '/' && i + 1 != path.size()) continue;
    prefix += segment;
    segment.clear();
    if (!platform::pathExists(prefix.c_str()) && !platform::makeDirectory(prefix.c_str()))
      return false;
  }
  return true;
}

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
  *host = colon > hostStart ? text.substr(hostStart, colon - hostStart) : std::string();
  *port = text.substr(colon + 1);
  return !host->empty() && !port->empty();
}

int MdApiImpl::Init() {
  if (started_.load()) return kInternalError;

  frontTickRecord_.reset(new CVelmarTickByTick());
  {
    utility::MutexLockGuard lock(mutex_);
    books_.clearOrderBooks();
    subscriptions_.clearMarketData();
  }
  makeLogDirectory(kLogDirectory);  // without it the log file can't open; not fatal
  setUpLogging();
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
  net::InetAddress serverAddr(frontHost_.c_str(), portNumber(frontPort_));

  loopThread_.reset(new net::EventLoopThread(net::EventLoopThread::ThreadInitCallback(),
                                             "MdApiThread"));
  loop_ = loopThread_->startLoop();

  if (!localTcpAddresses_.empty()) {
    std::string localHost, localPort;
    if (!parseAddress(localTcpAddresses_, &localHost, &localPort)) {
      LOG_ERROR << "InValid local tcp address";
      return kInvalidFrontAddr;
    }
    net::InetAddress localAddr(localHost.c_str(), portNumber(localPort));
    client_.reset(new net::TcpClient(loop_, serverAddr, localAddr, "SzseMdClient"));
  } else {
    client_.reset(new net::TcpClient(loop_, serverAddr, "MdClient"));
  }
  client_->setConnectFailCallback([this](int delayMs) { onConnectFailed(delayMs); });
  client_->setConnectionCallback([this](const net::TcpConnectionPtr& c) { onConnection(c); });
  client_->setMessageCallback([this](const net::TcpConnectionPtr& c, net::Buffer* b,
                                     Timestamp t) { onMessage(c, b, t); });
  client_->enableRetry();

  std::thread receiver([this] { feed_.runUdpExanic(); });  // "udpExanicThread"
  receiver.detach();
  client_->connect();
  started_.store(true);
  std::thread books([this] {  // "orderbookThread"
    CurrentThread::t_threadName = "orderbookThread";
    books_.runOrderBook();
  });
  books.detach();
  return kNoError;
}

int MdApiImpl::Join() {
  if (loopThread_ && !joined_.exchange(true)) loopThread_->join();
  return 0;
}

void MdApiImpl::Release() {
  loggedIn_.store(false);
  if (client_) client_->stop();
  if (loopThread_) loopThread_->quit();
}

}  // namespace mdapi
}  // namespace velmar
