// The front loop's work: the connection going up and down, the keep-alive
// sender and the receive time-out, and onMessage, which cuts the byte stream
// into packages and dispatches each field by its id. Above them the start and
// the end of the loop and the client, for Init, Join and Release.
#include "VLClientApi/FrontSession.h"

#include <cstring>
#include <memory>
#include <vector>

#include "VLClientApi/InstrumentIds.h"
#include "VLClientApi/OrderBooks.h"
#include "VLClientApi/SecurityIdKey.h"
#include "VLClientApi/SharedStateLock.h"
#include "VLNet/Buffer.h"
#include "VLNet/EventLoop.h"
#include "VLNet/EventLoopThread.h"
#include "VLNet/InetAddress.h"
#include "VLNet/TcpClient.h"
#include "VLNet/TcpConnection.h"
#include "package/FieldCatalogue.h"
#include "package/VelmarPackage.h"
#include "package/VelmarPackageIterator.h"
#include "package/WireFormat.h"
#include "utility/Logging.h"
#include "utility/PrintableBytes.h"

namespace velmar {
namespace mdapi {

namespace {

constexpr char kOnMessage[] = "velmar::mdapi::MdApiImpl::onMessage";

/// The input buffer back to empty, its indexes at the start of the block.
void resetBuffer(net::Buffer* buffer) { buffer->retrieveAll(); }

}  // namespace

FrontSession::FrontSession(SessionCore& core, OrderBooks& books, SessionCounters& counters)
    : core_(core),
      books_(books),
      counters_(counters),
      heartbeatPackage_(new CVelmarPackage(wire::kKeepAliveCapacity)),
      frontTickRecord_(new CVelmarTickByTick()),
      frontMarketRecord_(new CVelmarMarketData()) {
  heartbeatPackage_->prepare();
  heartbeatPackage_->setKeepAlive();
  heartbeatPackage_->finish();
}

FrontSession::~FrontSession() = default;

void FrontSession::startLoop() {
  loopThread_.reset(new net::EventLoopThread(net::EventLoopThread::ThreadInitCallback(),
                                             "MdApiThread"));
  loop_ = loopThread_->startLoop();
}

void FrontSession::createClient(const net::InetAddress& server, const net::InetAddress* local) {
  if (local) {
    client_.reset(new net::TcpClient(loop_, server, *local, "SzseMdClient"));
  } else {
    client_.reset(new net::TcpClient(loop_, server, "MdClient"));
  }
  client_->setConnectFailCallback([this](int delayMs) { onConnectFailed(delayMs); });
  client_->setConnectionCallback([this](const net::TcpConnectionPtr& c) { onConnection(c); });
  client_->setMessageCallback([this](const net::TcpConnectionPtr& c, net::Buffer* b,
                                     Timestamp t) { onMessage(c, b, t); });
  client_->enableRetry();
}

void FrontSession::connect() { client_->connect(); }

void FrontSession::join() {
  if (loopThread_ && !joined_.exchange(true)) loopThread_->join();
}

void FrontSession::release() {
  if (client_) client_->stop();
  if (loopThread_) loopThread_->quit();
}

net::TcpConnectionPtr FrontSession::connection() const {
  utility::MutexLockGuard lock(connMutex_);
  return conn_;
}

bool FrontSession::sendPackage(const char* data, int length) {
  if (core_.connected_.load()) {
    net::TcpConnectionPtr conn = connection();
    if (conn) {
      conn->send(data, length);
      return true;
    }
  }
  LOG_INFO << "Failed to send request, due to not connected to front server!";
  return false;
}

void FrontSession::clearSession() {
  core_.connected_.store(false);
  core_.loggedIn_.store(false);
  core_.snapshotsComplete_.store(false);
  core_.allTickExchange1_.store(false);
  core_.allTickExchange2_.store(false);
  subscriptions_.clear();
  core_.allOrderBook_.store(false);
  books_.clearOrderBooks();
}

void FrontSession::onConnection(const net::TcpConnectionPtr& conn) {
  {
    utility::MutexLockGuard lock(connMutex_);
    conn_ = conn;
  }
  core_.connected_.store(false);
  utility::MutexLockGuard lock(core_.callbackMutex(SessionCore::Caller::kFront));
  if (conn->connected()) {
    core_.connected_.store(true);
    count(counters_.front.callbacksSession);
    core_.spi_->OnFrontConnected();
    resetBuffer(conn->inputBuffer());
    loop_->cancel(timeoutTimerId_);
    timeoutTimerId_ =
        loop_->runEvery(static_cast<double>(heartbeatTimeout_.load()), [this] { onHeartbeatTimeout(); });
    LOG_INFO << "on session connected. (" << conn->name() << ")";
  } else if (conn->disconnected()) {
    {
      SharedStateLock shared(core_);
      clearSession();
    }
    count(counters_.front.callbacksSession);
    core_.spi_->OnFrontDisconnected(0);
    loop_->cancel(heartbeatTimerId_);
    loop_->cancel(timeoutTimerId_);
    resetBuffer(conn->inputBuffer());
    LOG_INFO << "on session disconnected. (" << conn->name() << ")";
  }
}

void FrontSession::onConnectFailed(int /*delayMs*/) {
  utility::MutexLockGuard lock(core_.callbackMutex(SessionCore::Caller::kFront));
  {
    SharedStateLock shared(core_);
    clearSession();
  }
  count(counters_.front.callbacksSession);
  core_.spi_->OnFrontDisconnected(4097);
}

void FrontSession::onHeartbeatTimer() {
  sendPackage(heartbeatPackage_->data(), heartbeatPackage_->length());
}

// Closes the write side only: the connection goes down when the front closes
// its side or the socket's keep-alive gives up. Until then the warning repeats
// every period, and further shutdowns do nothing.
void FrontSession::onHeartbeatTimeout() {
  count(counters_.front.callbacksSession);
  core_.spi_->OnHeartBeatWarning(static_cast<int>(heartbeatTimeout_.load()));
  net::TcpConnectionPtr conn = connection();
  if (conn) conn->shutdown();
}

void FrontSession::onMessage(const net::TcpConnectionPtr& /*conn*/, net::Buffer* buffer,
                             Timestamp /*receiveTime*/) {
  // Whatever arrived, keep-alives included, re-arms the receive time-out.
  loop_->cancel(timeoutTimerId_);
  timeoutTimerId_ =
      loop_->runEvery(static_cast<double>(heartbeatTimeout_.load()), [this] { onHeartbeatTimeout(); });
  if (buffer == nullptr || buffer->readableBytes() == 0) return;

  // Check drops the buffered bytes on a framing error, or says no while a
  // package is incomplete: its bytes wait for the next read.
  while (CVelmarPackageIterator::Check(buffer)) {
    // The iterator consumes the package from the buffer and reads it in
    // place, so nothing writes to the buffer until it is done.
    CVelmarPackageIterator it(buffer);
    if (!(it.ftdType() == 0 && it.extTag() == 4)) {
      for (; !it.isEnd(); it.next()) dispatchField(it, buffer);
    }
    if (buffer->readableBytes() == 0) break;
    buffer->moveReadableToFront();
  }
}

// The exchanges number each trading day's messages from the start again, so
// the sequence state that a re-login of the same day keeps would refuse a new
// day's ticks until they passed the old day's numbers.
void FrontSession::noteTradingDay(const char* tradingDay, size_t width) {
  std::string day = securityIdKey(tradingDay, width);
  if (!lastTradingDay_.empty() && day != lastTradingDay_) {
    LOG_INFO << "TradingDay " << utility::PrintableBytes{day.data(), day.size()}
             << " follows " << utility::PrintableBytes{lastTradingDay_.data(), lastTradingDay_.size()}
             << ": sequence numbers of every channel forgotten";
    if (newTradingDay_) newTradingDay_();
  }
  lastTradingDay_ = std::move(day);
}

void FrontSession::dispatchField(const CVelmarPackageIterator& it, net::Buffer* buffer) {
  const uint32_t fieldId = it.fieldId();
  const int requestId = static_cast<int>(it.requestId());
  const bool last = it.chain() != 0;

  switch (fieldId) {
    case tid::kRspUserLogin: {
      std::unique_ptr<CVelmarRspUserLogin> login(new CVelmarRspUserLogin());
      it.getFieldValue(login.get(), sizeof *login);
      // A second login answer replaces the sender rather than adding one.
      loop_->cancel(heartbeatTimerId_);
      heartbeatTimerId_ = loop_->runEvery(static_cast<double>(heartbeatInterval_),
                                          [this] { onHeartbeatTimer(); });
      noteTradingDay(login->TradingDay, sizeof login->TradingDay);
      utility::MutexLockGuard lock(core_.callbackMutex(SessionCore::Caller::kFront));
      core_.loggedIn_.store(true);
      LOG_DEBUG_AS(kOnMessage) << "[Msg Detail] " << toString(*login);
      count(counters_.front.callbacksResponse);
      core_.spi_->OnRspUserLogin(login.get(), nullptr, requestId, last);
      break;
    }
    case tid::kRspUserLogout: {
      std::unique_ptr<CVelmarRspUserLogout> logout(new CVelmarRspUserLogout());
      it.getFieldValue(logout.get(), sizeof *logout);
      loop_->cancel(heartbeatTimerId_);
      utility::MutexLockGuard lock(core_.callbackMutex(SessionCore::Caller::kFront));
      {
        SharedStateLock shared(core_);
        core_.loggedIn_.store(false);
        core_.snapshotsComplete_.store(false);
        core_.allTickExchange1_.store(false);
        core_.allTickExchange2_.store(false);
        core_.allOrderBook_.store(false);
        subscriptions_.clear();
        books_.clearOrderBooks();
      }
      LOG_DEBUG_AS(kOnMessage) << "[Msg Detail] " << toString(*logout);
      count(counters_.front.callbacksResponse);
      core_.spi_->OnRspUserLogout(logout.get(), nullptr, requestId, last);
      LOG_INFO << "onLogout userID: "
               << utility::PrintableBytes::id(logout->UserID, sizeof logout->UserID);
      logout.reset();
      // Whatever follows the logout answer in this read goes.
      resetBuffer(buffer);
      break;
    }
    case tid::kRspSubAllMarketData:
    case tid::kRspUnSubAllMarketData: {
      CVelmarSubAllRecord record{0, 0};
      it.getFieldValue(&record, sizeof record);
      count(counters_.front.callbacksResponse);
      if (fieldId == tid::kRspSubAllMarketData)
        core_.spi_->OnRspSubAllMarketData(record.TickType, record.Exchange, requestId, last);
      else
        core_.spi_->OnRspUnSubAllMarketData(record.TickType, record.Exchange, requestId, last);
      break;
    }
    case tid::kRspSubAllTickByTick:
    case tid::kRspUnSubAllTickByTick: {
      CVelmarSubAllRecord record{0, 0};
      it.getFieldValue(&record, sizeof record);
      const bool granted = fieldId == tid::kRspSubAllTickByTick;
      if (last) {
        if (record.Exchange & 1) core_.allTickExchange1_.store(granted);
        if (record.Exchange & 2) core_.allTickExchange2_.store(granted);
      }
      count(counters_.front.callbacksResponse);
      if (granted)
        core_.spi_->OnRspSubAllTickByTick(record.Exchange, requestId, last);
      else
        core_.spi_->OnRspUnSubAllTickByTick(record.Exchange, requestId, last);
      break;
    }
    case tid::kRspSubMarketData:
    case tid::kRspUnSubMarketData:
    case tid::kRspSubTickByTick:
    case tid::kRspUnSubTickByTick:
    case tid::kRspSubOrderBook:
    case tid::kRspUnSubOrderBook: {
      utility::MutexLockGuard lock(core_.callbackMutex(SessionCore::Caller::kFront));
      InstrumentIds ids(it.fieldValue(), it.fieldLength());
      if (ids.count() == 0) break;
      if (last) {
        SharedStateLock shared(core_);
        for (int i = 0; i < ids.count(); ++i) {
          const char* id = ids.id(i);
          switch (fieldId) {
            case tid::kRspUnSubMarketData:
              subscriptions_.dropMarketData(securityIdKey(id, kWireInstrumentIdSize));
              break;
            case tid::kRspSubTickByTick:
              subscriptions_.addTicks(securityIdKey(id, kWireInstrumentIdSize));
              break;
            case tid::kRspUnSubTickByTick:
              subscriptions_.removeTicks(securityIdKey(id, kWireInstrumentIdSize));
              break;
            case tid::kRspSubOrderBook:
              books_.addOrderBook(id);  // writes its own INFO line
              break;
            case tid::kRspUnSubOrderBook:
              books_.removeOrderBook(id);
              break;
            default:
              break;
          }
        }
      }
      count(counters_.front.callbacksResponse);
      switch (fieldId) {
        case tid::kRspSubMarketData:
          core_.spi_->OnRspSubMarketData(ids.array(), ids.count(), requestId, last);
          break;
        case tid::kRspUnSubMarketData:
          core_.spi_->OnRspUnSubMarketData(ids.array(), ids.count(), requestId, last);
          break;
        case tid::kRspSubTickByTick:
          core_.spi_->OnRspSubTickByTick(ids.array(), ids.count(), requestId, last);
          break;
        case tid::kRspUnSubTickByTick:
          core_.spi_->OnRspUnSubTickByTick(ids.array(), ids.count(), requestId, last);
          break;
        case tid::kRspSubOrderBook:
          core_.spi_->OnRspSubOrderBook(ids.array(), ids.count(), requestId, last);
          break;
        default:
          core_.spi_->OnRspUnSubOrderBook(ids.array(), ids.count(), requestId, last);
          break;
      }
      break;
    }
    case tid::kRspInfo: {
      utility::MutexLockGuard lock(core_.callbackMutex(SessionCore::Caller::kFront));
      std::unique_ptr<CVelmarRspInfo> info(new CVelmarRspInfo());
      it.getFieldValue(info.get(), sizeof *info);
      if (info->Tid == static_cast<int32_t>(tid::kRspUserLogin)) {
        core_.loggedIn_.store(false);
        count(counters_.front.callbacksResponse);
        core_.spi_->OnRspUserLogin(nullptr, info.get(), requestId, last);
      } else if (info->Tid == static_cast<int32_t>(tid::kRspUserLogout)) {
        count(counters_.front.callbacksResponse);
        core_.spi_->OnRspUserLogout(nullptr, info.get(), requestId, last);
      } else {
        count(counters_.front.callbacksError);
        core_.spi_->OnRspError(info.get(), requestId, last);
      }
      LOG_DEBUG_AS(kOnMessage) << "[Msg Detail] " << toString(*info);
      break;
    }
    case tid::kRtnMarketData: {
      utility::MutexLockGuard lock(core_.callbackMutex(SessionCore::Caller::kFront));
      std::unique_ptr<CVelmarMarketData> record(new CVelmarMarketData());
      it.getFieldValue(record.get(), sizeof *record);
      CVelmarMarketData* data = record.get();
      // Once mutex_ is let go the receiver updates the stored record in place.
      if (!core_.serializeCallbacks_) data = &(*frontMarketRecord_ = *record);
      {
        // The map owns the record; one held before under the key is freed.
        SharedStateLock shared(core_);
        subscriptions_.keepMarketData(record);
      }
      count(counters_.front.callbacksMarketData);
      core_.spi_->OnRtnMarketData(data);
      if (last) core_.snapshotsComplete_.store(true);
      break;  // a record of no known exchange is freed here
    }
    case tid::kRtnTickByTick: {
      it.getFieldValue(frontTickRecord_.get(), sizeof *frontTickRecord_);
      utility::MutexLockGuard lock(core_.callbackMutex(SessionCore::Caller::kFront));
      count(counters_.front.callbacksTickByTick);
      core_.spi_->OnRtnTickByTick(frontTickRecord_.get());
      break;
    }
    default:
      LOG_INFO << "Unkonwn Tid:" << fieldId;
      resetBuffer(buffer);  // everything buffered goes; this package is read to its end
      break;
  }
}

}  // namespace mdapi
}  // namespace velmar
