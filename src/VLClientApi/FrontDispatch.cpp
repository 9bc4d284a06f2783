// Everything that runs on the front loop thread: the connection going up and
// down, the keep-alive sender and the receive time-out, and onMessage, which
// cuts the byte stream into packages and dispatches each field by its id.
//
// Flags and maps change here under mutex_, and the callbacks marked so in the
// callback table run under it. The answers to the "all instruments" requests
// and the time-out warning run without it.
#include <cstring>
#include <memory>
#include <vector>

#include "VLClientApi/MdApiImpl.h"
#include "VLNet/Buffer.h"
#include "VLNet/EventLoop.h"
#include "VLNet/TcpConnection.h"
#include "package/FieldCatalogue.h"
#include "package/VelmarPackage.h"
#include "package/VelmarPackageIterator.h"
#include "utility/Logging.h"

namespace velmar {
namespace mdapi {

namespace {

constexpr char kOnMessage[] = "velmar::mdapi::MdApiImpl::onMessage";

/// The input buffer back to empty, its indexes at the start of the block.
void resetBuffer(net::Buffer* buffer) { buffer->retrieveAll(); }

/// Copies of the ids of an instrument answer, with the array of pointers the
/// callbacks take. Trailing bytes that make no whole id are ignored.
class InstrumentIds {
 public:
  InstrumentIds(const char* value, size_t length)
      : count_(static_cast<int>(length / kWireInstrumentIdSize)),
        bytes_(static_cast<size_t>(count_) * kWireInstrumentIdSize),
        pointers_(static_cast<size_t>(count_)) {
    if (count_ > 0) std::memcpy(bytes_.data(), value, bytes_.size());
    for (int i = 0; i < count_; ++i) pointers_[i] = &bytes_[i * kWireInstrumentIdSize];
  }
  int count() const { return count_; }
  char** array() { return pointers_.data(); }
  const char* id(int i) const { return pointers_[i]; }

 private:
  int count_;
  std::vector<char> bytes_;
  std::vector<char*> pointers_;
};

}  // namespace

void MdApiImpl::clearSession() {
  connected_.store(false);
  loggedIn_.store(false);
  snapshotsComplete_.store(false);
  allTickExchange1_.store(false);
  allTickExchange2_.store(false);
  subscriptions_.clear();
  allOrderBook_.store(false);
  books_.clearOrderBooks();
}

void MdApiImpl::onConnection(const net::TcpConnectionPtr& conn) {
  {
    utility::MutexLockGuard lock(connMutex_);
    conn_ = conn;
  }
  connected_.store(false);
  utility::MutexLockGuard lock(mutex_);
  if (conn->connected()) {
    connected_.store(true);
    spi_->OnFrontConnected();
    resetBuffer(conn->inputBuffer());
    loop_->cancel(timeoutTimerId_);
    timeoutTimerId_ =
        loop_->runEvery(static_cast<double>(heartbeatTimeout_.load()), [this] { onHeartbeatTimeout(); });
    LOG_INFO << "on session connected. (" << conn->name() << ")";
  } else if (conn->disconnected()) {
    clearSession();
    spi_->OnFrontDisconnected(0);
    loop_->cancel(heartbeatTimerId_);
    loop_->cancel(timeoutTimerId_);
    resetBuffer(conn->inputBuffer());
    LOG_INFO << "on session disconnected. (" << conn->name() << ")";
  }
}

void MdApiImpl::onConnectFailed(int /*delayMs*/) {
  utility::MutexLockGuard lock(mutex_);
  clearSession();
  spi_->OnFrontDisconnected(4097);
}

void MdApiImpl::onHeartbeatTimer() {
  sendPackage(heartbeatPackage_->data(), heartbeatPackage_->length());
}

// Closes the write side only: the connection goes down when the front closes
// its side or the socket's keep-alive gives up. Until then the warning repeats
// every period, and further shutdowns do nothing.
void MdApiImpl::onHeartbeatTimeout() {
  spi_->OnHeartBeatWarning(static_cast<int>(heartbeatTimeout_.load()));
  net::TcpConnectionPtr conn = connection();
  if (conn) conn->shutdown();
}

void MdApiImpl::onMessage(const net::TcpConnectionPtr& /*conn*/, net::Buffer* buffer,
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

void MdApiImpl::dispatchField(const CVelmarPackageIterator& it, net::Buffer* buffer) {
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
      utility::MutexLockGuard lock(mutex_);
      loggedIn_.store(true);
      LOG_DEBUG_AS(kOnMessage) << "[Msg Detail] " << toString(*login);
      spi_->OnRspUserLogin(login.get(), nullptr, requestId, last);
      break;
    }
    case tid::kRspUserLogout: {
      std::unique_ptr<CVelmarRspUserLogout> logout(new CVelmarRspUserLogout());
      it.getFieldValue(logout.get(), sizeof *logout);
      loop_->cancel(heartbeatTimerId_);
      utility::MutexLockGuard lock(mutex_);
      loggedIn_.store(false);
      snapshotsComplete_.store(false);
      allTickExchange1_.store(false);
      allTickExchange2_.store(false);
      allOrderBook_.store(false);
      subscriptions_.clear();
      books_.clearOrderBooks();
      LOG_DEBUG_AS(kOnMessage) << "[Msg Detail] " << toString(*logout);
      spi_->OnRspUserLogout(logout.get(), nullptr, requestId, last);
      LOG_INFO << "onLogout userID: " << securityIdKey(logout->UserID, sizeof logout->UserID);
      logout.reset();
      // Whatever follows the logout answer in this read goes.
      resetBuffer(buffer);
      break;
    }
    case tid::kRspSubAllMarketData:
    case tid::kRspUnSubAllMarketData: {
      CVelmarSubAllRecord record{0, 0};
      it.getFieldValue(&record, sizeof record);
      if (fieldId == tid::kRspSubAllMarketData)
        spi_->OnRspSubAllMarketData(record.TickType, record.Exchange, requestId, last);
      else
        spi_->OnRspUnSubAllMarketData(record.TickType, record.Exchange, requestId, last);
      break;
    }
    case tid::kRspSubAllTickByTick:
    case tid::kRspUnSubAllTickByTick: {
      CVelmarSubAllRecord record{0, 0};
      it.getFieldValue(&record, sizeof record);
      const bool granted = fieldId == tid::kRspSubAllTickByTick;
      if (last) {
        if (record.Exchange & 1) allTickExchange1_.store(granted);
        if (record.Exchange & 2) allTickExchange2_.store(granted);
      }
      if (granted)
        spi_->OnRspSubAllTickByTick(record.Exchange, requestId, last);
      else
        spi_->OnRspUnSubAllTickByTick(record.Exchange, requestId, last);
      break;
    }
    case tid::kRspSubMarketData:
    case tid::kRspUnSubMarketData:
    case tid::kRspSubTickByTick:
    case tid::kRspUnSubTickByTick:
    case tid::kRspSubOrderBook:
    case tid::kRspUnSubOrderBook: {
      utility::MutexLockGuard lock(mutex_);
      InstrumentIds ids(it.fieldValue(), it.fieldLength());
      if (ids.count() == 0) break;
      if (last) {
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
      switch (fieldId) {
        case tid::kRspSubMarketData:
          spi_->OnRspSubMarketData(ids.array(), ids.count(), requestId, last);
          break;
        case tid::kRspUnSubMarketData:
          spi_->OnRspUnSubMarketData(ids.array(), ids.count(), requestId, last);
          break;
        case tid::kRspSubTickByTick:
          spi_->OnRspSubTickByTick(ids.array(), ids.count(), requestId, last);
          break;
        case tid::kRspUnSubTickByTick:
          spi_->OnRspUnSubTickByTick(ids.array(), ids.count(), requestId, last);
          break;
        case tid::kRspSubOrderBook:
          spi_->OnRspSubOrderBook(ids.array(), ids.count(), requestId, last);
          break;
        default:
          spi_->OnRspUnSubOrderBook(ids.array(), ids.count(), requestId, last);
          break;
      }
      break;
    }
    case tid::kRspInfo: {
      utility::MutexLockGuard lock(mutex_);
      std::unique_ptr<CVelmarRspInfo> info(new CVelmarRspInfo());
      it.getFieldValue(info.get(), sizeof *info);
      if (info->Tid == static_cast<int32_t>(tid::kRspUserLogin)) {
        loggedIn_.store(false);
        spi_->OnRspUserLogin(nullptr, info.get(), requestId, last);
      } else if (info->Tid == static_cast<int32_t>(tid::kRspUserLogout)) {
        spi_->OnRspUserLogout(nullptr, info.get(), requestId, last);
      } else {
        spi_->OnRspError(info.get(), requestId, last);
      }
      LOG_DEBUG_AS(kOnMessage) << "[Msg Detail] " << toString(*info);
      break;
    }
    case tid::kRtnMarketData: {
      utility::MutexLockGuard lock(mutex_);
      std::unique_ptr<CVelmarMarketData> record(new CVelmarMarketData());
      it.getFieldValue(record.get(), sizeof *record);
      CVelmarMarketData* data = record.get();
      // The map owns the record; one held before under the key is freed.
      subscriptions_.keepMarketData(record);
      spi_->OnRtnMarketData(data);
      if (last) snapshotsComplete_.store(true);
      break;  // a record of no known exchange is freed here
    }
    case tid::kRtnTickByTick: {
      if (!frontTickRecord_) frontTickRecord_.reset(new CVelmarTickByTick());
      it.getFieldValue(frontTickRecord_.get(), sizeof *frontTickRecord_);
      utility::MutexLockGuard lock(mutex_);
      spi_->OnRtnTickByTick(frontTickRecord_.get());
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
