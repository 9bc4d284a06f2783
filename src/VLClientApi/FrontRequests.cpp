// The DEBUG lines of the requests name the API operation they serve
// ("velmar::mdapi::MdApiImpl::ReqUserLogin"), as they always have: readers of
// the log look for the operation the application called.
#include "VLClientApi/FrontRequests.h"

#include <cstring>
#include <memory>

#include "VLClientApi/ErrorTable.h"
#include "VLClientApi/FrontSession.h"
#include "package/FieldCatalogue.h"
#include "package/VelmarPackage.h"
#include "package/WireFormat.h"
#include "utility/Logging.h"

namespace velmar {
namespace mdapi {

namespace {
const char kNullOrCount[] = "Instrument is null or count is incorrect";
const char kNullAndCount[] = "Instrument is null and count is incorrect";
const char kReqUserLogin[] = "velmar::mdapi::MdApiImpl::ReqUserLogin";
const char kReqUserLogout[] = "velmar::mdapi::MdApiImpl::ReqUserLogout";
}  // namespace

FrontRequests::FrontRequests(SessionCore& core, FrontSession& front, SessionCounters& counters)
    : core_(core), front_(front), counters_(counters), requestPackage_(new CVelmarPackage(wire::kRequestCapacity)) {
  std::memset(&rspInfo_, 0, sizeof rspInfo_);
}

FrontRequests::~FrontRequests() = default;

void FrontRequests::fillRspInfo(int errorId, int requestId) {
  std::memset(&rspInfo_, 0, sizeof rspInfo_);
  rspInfo_.ErrorID = errorId;
  std::string text = errorText(static_cast<int16_t>(errorId));
  std::strncpy(rspInfo_.ErrorMsg, text.c_str(), sizeof rspInfo_.ErrorMsg - 1);
  counters_.anyThread.callbacksError.fetch_add(1, std::memory_order_relaxed);
  core_.spi_->OnRspError(&rspInfo_, requestId, true);
}

int FrontRequests::sendTransaction(const void* data, int requestId, int tid, size_t length) {
  CVelmarPackage& package = *requestPackage_;
  package.clear();
  package.prepare();
  package.setHeader(wire::kFtdTypeFtdc, wire::kExtTagNone, 0, static_cast<uint32_t>(tid),
                    wire::kChainRequest, wire::kFtdcMarkRequest, static_cast<uint32_t>(requestId));
  // A field's length is 16 bits on the wire; a longer one can never fit.
  bool added = length <= 0xFFFF &&
               package.addField(static_cast<uint32_t>(tid), data, static_cast<uint16_t>(length));
  package.finish();
  if (added && package.length() > 0 && front_.sendPackage(package.data(), package.length())) {
    LOG_INFO << "Success to send transaction(transactionId: " << tid << ", RequestID: "
             << requestId << ")!\n";
    return 0;
  }
  std::memset(&rspInfo_, 0, sizeof rspInfo_);
  rspInfo_.ErrorID = kRequestError;
  std::strncpy(rspInfo_.ErrorMsg, "Fail to process transaction!", sizeof rspInfo_.ErrorMsg - 1);
  // The session lock keeps this report from overlapping the other callbacks.
  // A request made from inside a callback already holds it on this thread and
  // must not take it again: the lock is not recursive. Callbacks that are not
  // serialized may overlap anyway, and this one does not hold up the others.
  counters_.anyThread.callbacksError.fetch_add(1, std::memory_order_relaxed);
  if (!core_.serializeCallbacks_ || core_.mutex_.isLockedByThisThread()) {
    core_.spi_->OnRspError(&rspInfo_, -1, true);
  } else {
    utility::MutexLockGuard lock(core_.mutex_);
    core_.spi_->OnRspError(&rspInfo_, -1, true);
  }
  return 0;
}

int FrontRequests::ReqUserLogin(CVelmarReqUserLogin* request, int requestId) {
  if (request) {
    LOG_DEBUG_AS(kReqUserLogin) << "[ReqUserLogin] " << toString(*request);
  }
  if (!core_.connected_.load()) {
    LOG_DEBUG_AS(kReqUserLogin) << "session not connected ";
    fillRspInfo(kFrontNotConnected, requestId);
    return kFrontNotConnected;
  }
  if (core_.loggedIn_.load()) {
    fillRspInfo(kDuplicatedLogin, requestId);
    return kDuplicatedLogin;
  }
  std::string message = "[CVelmarReqUserLogin], null request";
  if (!request || !checkRecord(*request, &message)) {
    LOG_DEBUG_AS(kReqUserLogin) << message;
    fillRspInfo(kFieldCheckError, requestId);
    return kFieldCheckError;
  }
  return sendTransaction(request, requestId, tid::kReqUserLogin, sizeof(CVelmarReqUserLogin));
}

int FrontRequests::ReqUserLogout(CVelmarReqUserLogout* request, int requestId) {
  if (request) {
    LOG_DEBUG_AS(kReqUserLogout) << toString(*request);
  }
  if (!core_.connected_.load()) {
    LOG_DEBUG_AS(kReqUserLogout) << "session not connected ";
    fillRspInfo(kFrontNotConnected, requestId);
    return kFrontNotConnected;
  }
  if (!core_.loggedIn_.load()) {
    fillRspInfo(kNotLoggedIn, requestId);
    return kNotLoggedIn;
  }
  std::string message = "[CVelmarReqUserLogout], null request";
  if (!request || !checkRecord(*request, &message)) {
    LOG_DEBUG_AS(kReqUserLogout) << message;
    fillRspInfo(kFieldCheckError, requestId);
    return kFieldCheckError;
  }
  return sendTransaction(request, requestId, tid::kReqUserLogout, sizeof(CVelmarReqUserLogout));
}

// The requests for all instruments report their state errors by return code
// only. The DEBUG line names the API operation.
#define VELMAR_CHECK_SESSION(operation)                                                 \
  do {                                                                                  \
    if (!core_.connected_.load()) {                                                     \
      LOG_DEBUG_AS("velmar::mdapi::MdApiImpl::" operation) << "session not connected "; \
      return kFrontNotConnected;                                                        \
    }                                                                                   \
    if (!core_.loggedIn_.load()) return kNotLoggedIn;                                   \
  } while (0)

int FrontRequests::SubAllMarketData(int tickType, int exchange, int requestId) {
  VELMAR_CHECK_SESSION("SubAllMarketData");
  if ((exchange & 3) == 0) return kInvalidExchange;
  if ((tickType & 7) == 0) return kInvalidTickType;
  CVelmarSubAllRecord record{tickType, exchange};
  return sendTransaction(&record, requestId, tid::kSubAllMarketData, sizeof record);
}

int FrontRequests::UnSubAllMarketData(int tickType, int exchange, int requestId) {
  VELMAR_CHECK_SESSION("UnSubAllMarketData");
  if ((exchange & 3) == 0) return kInvalidExchange;
  if ((tickType & 7) == 0) return kInvalidTickType;
  CVelmarSubAllRecord record{tickType, exchange};
  return sendTransaction(&record, requestId, tid::kUnSubAllMarketData, sizeof record);
}

int FrontRequests::SubAllTickByTick(int exchange, int requestId) {
  VELMAR_CHECK_SESSION("SubAllTickByTick");
  if ((exchange & 3) == 0) return kInvalidExchange;
  CVelmarSubAllRecord record{0, exchange};
  return sendTransaction(&record, requestId, tid::kSubAllTickByTick, sizeof record);
}

int FrontRequests::UnSubAllTickByTick(int exchange, int requestId) {
  VELMAR_CHECK_SESSION("UnSubAllTickByTick");
  if ((exchange & 3) == 0) return kInvalidExchange;
  CVelmarSubAllRecord record{0, exchange};
  return sendTransaction(&record, requestId, tid::kUnSubAllTickByTick, sizeof record);
}

// Books exist for Shenzhen only: without bit 2 the request is refused. The
// flag changes at once, before anything is sent; the front has no answer.
int FrontRequests::SubAllOrderBook(int exchange, int requestId) {
  VELMAR_CHECK_SESSION("SubAllOrderBook");
  if ((exchange & 2) == 0) return kInvalidExchange;
  core_.allOrderBook_.store(true);
  CVelmarSubAllRecord record{0, exchange};
  sendTransaction(&record, requestId, tid::kSubAllOrderBook, sizeof record);
  return 0;
}

int FrontRequests::UnSubAllOrderBook(int exchange, int requestId) {
  VELMAR_CHECK_SESSION("UnSubAllOrderBook");
  if ((exchange & 2) == 0) return kInvalidExchange;
  core_.allOrderBook_.store(false);
  CVelmarSubAllRecord record{0, exchange};
  sendTransaction(&record, requestId, tid::kUnSubAllOrderBook, sizeof record);
  return 0;
}

#undef VELMAR_CHECK_SESSION

int FrontRequests::sendInstruments(char** instrumentIds, int count, int requestId, int tid,
                                   bool reportStateErrors, const char* nullMessage,
                                   const char* operation) {
  if (!core_.connected_.load()) {
    LOG_DEBUG_AS(operation) << "session not connected ";
    if (reportStateErrors) fillRspInfo(kFrontNotConnected, requestId);
    return kFrontNotConnected;
  }
  if (!core_.loggedIn_.load()) {
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

int FrontRequests::SubMarketData(char** ids, int count, int requestId) {
  return sendInstruments(ids, count, requestId, tid::kSubMarketData, true, kNullOrCount,
                         "velmar::mdapi::MdApiImpl::SubMarketData");
}
int FrontRequests::UnSubMarketData(char** ids, int count, int requestId) {
  return sendInstruments(ids, count, requestId, tid::kUnSubMarketData, true, kNullAndCount,
                         "velmar::mdapi::MdApiImpl::UnSubMarketData");
}
int FrontRequests::SubTickByTick(char** ids, int count, int requestId) {
  return sendInstruments(ids, count, requestId, tid::kSubTickByTick, true, kNullOrCount,
                         "velmar::mdapi::MdApiImpl::SubTickByTick");
}
int FrontRequests::UnSubTickByTick(char** ids, int count, int requestId) {
  return sendInstruments(ids, count, requestId, tid::kUnSubTickByTick, true, kNullOrCount,
                         "velmar::mdapi::MdApiImpl::UnSubTickByTick");
}
int FrontRequests::SubOrderBook(char** ids, int count, int requestId) {
  return sendInstruments(ids, count, requestId, tid::kSubOrderBook, false, kNullOrCount,
                         "velmar::mdapi::MdApiImpl::SubOrderBook");
}
int FrontRequests::UnSubOrderBook(char** ids, int count, int requestId) {
  return sendInstruments(ids, count, requestId, tid::kUnSubOrderBook, false, kNullOrCount,
                         "velmar::mdapi::MdApiImpl::UnSubOrderBook");
}

}  // namespace mdapi
}  // namespace velmar
