// Requests to the front: the checks of every operation, their return codes,
// and the one send path that all requests share. Requests run on the caller's
// thread, an application thread or a callback's; requestPackage_ and rspInfo_
// are used without a lock, so an application must not issue two requests at
// the same time from different threads.
#include <cstring>
#include <memory>

#include "VLClientApi/ErrorTable.h"
#include "VLClientApi/MdApiImpl.h"
#include "VLNet/TcpConnection.h"
#include "package/FieldCatalogue.h"
#include "package/VelmarPackage.h"
#include "package/WireFormat.h"
#include "utility/Logging.h"

namespace velmar {
namespace mdapi {

namespace {
const char kNullOrCount[] = "Instrument is null or count is incorrect";
const char kNullAndCount[] = "Instrument is null and count is incorrect";
}  // namespace

void MdApiImpl::fillRspInfo(int errorId, int requestId) {
  std::memset(&rspInfo_, 0, sizeof rspInfo_);
  rspInfo_.ErrorID = errorId;
  std::string text = errorText(static_cast<int16_t>(errorId));
  std::strncpy(rspInfo_.ErrorMsg, text.c_str(), sizeof rspInfo_.ErrorMsg - 1);
  spi_->OnRspError(&rspInfo_, requestId, true);
}

net::TcpConnectionPtr MdApiImpl::connection() const {
  utility::MutexLockGuard lock(connMutex_);
  return conn_;
}

bool MdApiImpl::sendPackage(const char* data, int length) {
  if (connected_.load()) {
    net::TcpConnectionPtr conn = connection();
    if (conn) {
      conn->send(data, length);
      return true;
    }
  }
  LOG_INFO << "Failed to send request, due to not connected to front server!";
  return false;
}

int MdApiImpl::sendTransaction(const void* data, int requestId, int tid, size_t length) {
  CVelmarPackage& package = *requestPackage_;
  package.clear();
  package.prepare();
  package.setHeader(wire::kFtdTypeFtdc, wire::kExtTagNone, 0, static_cast<uint32_t>(tid),
                    wire::kChainRequest, wire::kFtdcMarkRequest, static_cast<uint32_t>(requestId));
  // A field's length is 16 bits on the wire; a longer one can never fit.
  bool added = length <= 0xFFFF &&
               package.addField(static_cast<uint32_t>(tid), data, static_cast<uint16_t>(length));
  package.finish();
  if (added && package.length() > 0 && sendPackage(package.data(), package.length())) {
    LOG_INFO << "Success to send transaction(transactionId: " << tid << ", RequestID: "
             << requestId << ")!\n";
    return 0;
  }
  std::memset(&rspInfo_, 0, sizeof rspInfo_);
  rspInfo_.ErrorID = kRequestError;
  std::strncpy(rspInfo_.ErrorMsg, "Fail to process transaction!", sizeof rspInfo_.ErrorMsg - 1);
  // The session lock keeps this report from overlapping the other callbacks.
  // A request made from inside a callback already holds it on this thread and
  // must not take it again: the lock is not recursive.
  if (mutex_.isLockedByThisThread()) {
    spi_->OnRspError(&rspInfo_, -1, true);
  } else {
    utility::MutexLockGuard lock(mutex_);
    spi_->OnRspError(&rspInfo_, -1, true);
  }
  return 0;
}

int MdApiImpl::ReqUserLogin(CVelmarReqUserLogin* request, int requestId) {
  if (request) {
    LOG_DEBUG << "[ReqUserLogin] " << toString(*request);
  }
  if (!connected_.load()) {
    LOG_DEBUG << "session not connected ";
    fillRspInfo(kFrontNotConnected, requestId);
    return kFrontNotConnected;
  }
  if (loggedIn_.load()) {
    fillRspInfo(kDuplicatedLogin, requestId);
    return kDuplicatedLogin;
  }
  std::string message = "[CVelmarReqUserLogin], null request";
  if (!request || !checkRecord(*request, &message)) {
    LOG_DEBUG << message;
    fillRspInfo(kFieldCheckError, requestId);
    return kFieldCheckError;
  }
  return sendTransaction(request, requestId, tid::kReqUserLogin, sizeof(CVelmarReqUserLogin));
}

int MdApiImpl::ReqUserLogout(CVelmarReqUserLogout* request, int requestId) {
  if (request) {
    LOG_DEBUG << toString(*request);
  }
  if (!connected_.load()) {
    LOG_DEBUG << "session not connected ";
    fillRspInfo(kFrontNotConnected, requestId);
    return kFrontNotConnected;
  }
  if (!loggedIn_.load()) {
    fillRspInfo(kNotLoggedIn, requestId);
    return kNotLoggedIn;
  }
  std::string message = "[CVelmarReqUserLogout], null request";
  if (!request || !checkRecord(*request, &message)) {
    LOG_DEBUG << message;
    fillRspInfo(kFieldCheckError, requestId);
    return kFieldCheckError;
  }
  return sendTransaction(request, requestId, tid::kReqUserLogout, sizeof(CVelmarReqUserLogout));
}

// The requests for all instruments report their state errors by return code
// only. The DEBUG lines name the operation, as their statements stand in it.
#define VELMAR_CHECK_SESSION()                 \
  do {                                         \
    if (!connected_.load()) {                  \
      LOG_DEBUG << "session not connected ";   \
      return kFrontNotConnected;               \
    }                                          \
    if (!loggedIn_.load()) return kNotLoggedIn; \
  } while (0)

int MdApiImpl::SubAllMarketData(int tickType, int exchange, int requestId) {
  VELMAR_CHECK_SESSION();
  if ((exchange & 3) == 0) return kInvalidExchange;
  if ((tickType & 7) == 0) return kInvalidTickType;
  CVelmarSubAllRecord record{tickType, exchange};
  return sendTransaction(&record, requestId, tid::kSubAllMarketData, sizeof record);
}

int MdApiImpl::UnSubAllMarketData(int tickType, int exchange, int requestId) {
  VELMAR_CHECK_SESSION();
  if ((exchange & 3) == 0) return kInvalidExchange;
  if ((tickType & 7) == 0) return kInvalidTickType;
  CVelmarSubAllRecord record{tickType, exchange};
  return sendTransaction(&record, requestId, tid::kUnSubAllMarketData, sizeof record);
}

int MdApiImpl::SubAllTickByTick(int exchange, int requestId) {
  VELMAR_CHECK_SESSION();
  if ((exchange & 3) == 0) return kInvalidExchange;
  CVelmarSubAllRecord record{0, exchange};
  return sendTransaction(&record, requestId, tid::kSubAllTickByTick, sizeof record);
}

int MdApiImpl::UnSubAllTickByTick(int exchange, int requestId) {
  VELMAR_CHECK_SESSION();
  if ((exchange & 3) == 0) return kInvalidExchange;
  CVelmarSubAllRecord record{0, exchange};
  return sendTransaction(&record, requestId, tid::kUnSubAllTickByTick, sizeof record);
}

// Books exist for Shenzhen only: without bit 2 the request is refused. The
// flag changes at once, before anything is sent; the front has no answer.
int MdApiImpl::SubAllOrderBook(int exchange, int requestId) {
  VELMAR_CHECK_SESSION();
  if ((exchange & 2) == 0) return kInvalidExchange;
  allOrderBook_.store(true);
  CVelmarSubAllRecord record{0, exchange};
  sendTransaction(&record, requestId, tid::kSubAllOrderBook, sizeof record);
  return 0;
}

int MdApiImpl::UnSubAllOrderBook(int exchange, int requestId) {
  VELMAR_CHECK_SESSION();
  if ((exchange & 2) == 0) return kInvalidExchange;
  allOrderBook_.store(false);
  CVelmarSubAllRecord record{0, exchange};
  sendTransaction(&record, requestId, tid::kUnSubAllOrderBook, sizeof record);
  return 0;
}

#undef VELMAR_CHECK_SESSION

int MdApiImpl::sendInstruments(char** instrumentIds, int count, int requestId, int tid,
                               bool reportStateErrors, const char* nullMessage,
                               const char* operation) {
  if (!connected_.load()) {
    LOG_DEBUG_AS(operation) << "session not connected ";
    if (reportStateErrors) fillRspInfo(kFrontNotConnected, requestId);
    return kFrontNotConnected;
  }
  if (!loggedIn_.load()) {
    if (reportStateErrors) fillRspInfo(kNotLoggedIn, requestId);
    return kNotLoggedIn;
  }
  // A negative count is treated like 0: there is nothing to send.
  if (instrumentIds == nullptr || count <= 0) {
    LOG_DEBUG_AS(operation) << nullMessage;
    return kInvalidVolume;
  }
  const size_t length = static_cast<size_t>(count) * kWireInstrumentIdSize;
  std::unique_ptr<char[]> block(new char[length]());
  for (int i = 0; i < count; ++i) {
    // A null entry goes out as an empty id rather than being read.
    if (instrumentIds[i])
      std::memcpy(block.get() + i * kWireInstrumentIdSize, instrumentIds[i], kWireInstrumentIdSize);
  }
  return sendTransaction(block.get(), requestId, tid, length);
}

int MdApiImpl::SubMarketData(char** ids, int count, int requestId) {
  return sendInstruments(ids, count, requestId, tid::kSubMarketData, true, kNullOrCount,
                         "velmar::mdapi::MdApiImpl::SubMarketData");
}
int MdApiImpl::UnSubMarketData(char** ids, int count, int requestId) {
  return sendInstruments(ids, count, requestId, tid::kUnSubMarketData, true, kNullAndCount,
                         "velmar::mdapi::MdApiImpl::UnSubMarketData");
}
int MdApiImpl::SubTickByTick(char** ids, int count, int requestId) {
  return sendInstruments(ids, count, requestId, tid::kSubTickByTick, true, kNullOrCount,
                         "velmar::mdapi::MdApiImpl::SubTickByTick");
}
int MdApiImpl::UnSubTickByTick(char** ids, int count, int requestId) {
  return sendInstruments(ids, count, requestId, tid::kUnSubTickByTick, true, kNullOrCount,
                         "velmar::mdapi::MdApiImpl::UnSubTickByTick");
}
int MdApiImpl::SubOrderBook(char** ids, int count, int requestId) {
  return sendInstruments(ids, count, requestId, tid::kSubOrderBook, false, kNullOrCount,
                         "velmar::mdapi::MdApiImpl::SubOrderBook");
}
int MdApiImpl::UnSubOrderBook(char** ids, int count, int requestId) {
  return sendInstruments(ids, count, requestId, tid::kUnSubOrderBook, false, kNullOrCount,
                         "velmar::mdapi::MdApiImpl::UnSubOrderBook");
}

}  // namespace mdapi
}  // namespace velmar
