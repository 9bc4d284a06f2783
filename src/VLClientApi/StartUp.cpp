// Init, Join and Release: the start and the end of the front side of a
// session. The receiver and book threads that Init starts run to the end of
// the process; after Release the feed gate stays closed.
#include <atomic>
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

const char kLogBaseName[] = "velmarApi";
constexpr int64_t kLogRollSize = 500000000;
constexpr int kLogFlushInterval = 3;

// The process's one log writer, built by the first Init in the folder that
// session chose. The receiver and book threads log until the very end of the
// process, also while static objects are being destroyed, so the writer is
// never destroyed: at exit it is stopped, which writes what was handed over,
// and later lines are dropped.
std::atomic<utility::AsyncLogging*> g_processLog{nullptr};

utility::AsyncLogging& processLog(const std::string& directory) {
  static utility::AsyncLogging* log = [&directory] {
    auto* created = new utility::AsyncLogging(directory + "/" + kLogBaseName, kLogRollSize,
                                              kLogFlushInterval);
    std::atexit([] { g_processLog.load()->stop(); });
    g_processLog.store(created);
    return created;
  }();
  return *log;
}

void writeToProcessLog(const char* line, int length) { g_processLog.load()->append(line, length); }

// FATAL and THROW wait this long for their line and those before it to reach
// the file; the writer alone would take up to its flush interval.
constexpr double kEndFlushSeconds = 2.0;
void flushProcessLog() { g_processLog.load()->flush(kEndFlushSeconds); }

void setUpLogging(const SessionOptions& options) {
  if (utility::Logger::output() != utility::Logger::defaultOutput()) return;
  utility::AsyncLogging& log = processLog(options.logDirectory);
  utility::Logger::setOutput(writeToProcessLog);
  utility::Logger::setFlush(flushProcessLog);
  // DEBUG, whatever the environment said: request and answer records appear
  // in the log in text form, and so do the book thread's lines. A level the
  // application chose through SetOption stands.
  utility::Logger::setLogLevel(options.logLevelSet ? options.logLevel : utility::Logger::DEBUG);
  log.start();
}

uint16_t portNumber(const std::string& text) {
  return static_cast<uint16_t>(std::atoi(text.c_str()));
}

}  // namespace

bool MdApiImpl::processLogStarted() { return g_processLog.load() != nullptr; }

bool MdApiImpl::flushLog(double seconds) {
  utility::AsyncLogging* log = g_processLog.load();
  return log != nullptr && log->flush(seconds);
}

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
  // "tcp://host": the only ':' is the scheme's. The host is all behind "//"
  // and the port text all behind that ':', whose number is 0; the connection
  // attempts then fail, which the application hears about as for any
  // unreachable front.
  *host = colon >= hostStart ? text.substr(hostStart, colon - hostStart) : text.substr(hostStart);
  *port = text.substr(colon + 1);
  return !host->empty() && !port->empty();
}

int MdApiImpl::Init() {
  if (started_.load()) return kInternalError;

  frontTickRecord_.reset(new CVelmarTickByTick());
  feedTickRecord_.reset(new CVelmarTickByTick());
  {
    utility::MutexLockGuard lock(mutex_);
    clearOrderBooks();
    marketDataExchange1_.clear();
    marketDataExchange2_.clear();
  }
  // Without the folder the log file can't open; not fatal.
  makeLogDirectory(options_.logDirectory);
  setUpLogging(options_);
  LOG_INFO << "server begin to init";

  if (!parseAddress(frontAddresses_, &frontHost_, &frontPort_)) {
    LOG_ERROR << "InValid front address";
    return kInvalidFrontAddr;
  }
  if (!parseAddress(mcastAddresses_, &mcastHost_, &mcastPort_)) {
    LOG_ERROR << "InValid mcast address";
    return kInvalidFrontAddr;
  }
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

  std::thread receiver([this] { runUdpExanic(); });  // "udpExanicThread"
  receiver.detach();
  client_->connect();
  started_.store(true);
  std::thread books([this] {  // "orderbookThread"
    CurrentThread::t_threadName = "orderbookThread";
    runOrderBook();
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
