// Requests to the front: the checks of every operation, their return codes,
// and the one send path that all requests share.
#include <cstring>
#include <vector>

#include "VLClientApi/ErrorTable.h"
#include "VLClientApi/MdApiImpl.h"
#include "package/FieldCatalogue.h"
#include "utility/Logging.h"

namespace velmar {
namespace mdapi {

namespace {
// Request tids; the same number goes into the field id.
enum Tid : int {
  kTidLogin = 0,
  kTidLogout = 1,
  kTidSubAllMarketData = 3,
  kTidUnSubAllMarketData = 4,
  kTidSubMarketData = 5,
  kTidUnSubMarketData = 6,
  kTidSubAllTickByTick = 7,
  kTidUnSubAllTickByTick = 8,
  kTidSubTickByTick = 9,
  kTidUnSubTickByTick = 10,
  kTidSubOrderBook = 17,
  kTidUnSubOrderBook = 18,
  kTidSubAllOrderBook = 19,
  kTidUnSubAllOrderBook = 20,
};

constexpr int kInstrumentIdSize = 16;
}  // namespace

void MdApiImpl::fillRspInfo(int errorId, int requestId) {
  std::memset(&rspInfo_, 0, sizeof rspInfo_);
  rspInfo_.ErrorID = errorId;
  std::string text = errorText(static_cast<int16_t>(errorId));
  std::strncpy(rspInfo_.ErrorMsg, text.c_str(), sizeof rspInfo_.ErrorMsg - 1);
  spi_->OnRspError(&rspInfo_, requestId, true);
}

bool MdApiImpl::sendPackage(const char* /*data*/, int /*length*/) {
  LOG_INFO << "Failed to send request, due to not connected to front server!";
  return false;
}

int MdApiImpl::sendTransaction(const void* /*data*/, int /*requestId*/, int /*tid*/,
                               uint16_t /*length*/) {
  rspInfo_.ErrorID = kRequestError;
  std::strncpy(rspInfo_.ErrorMsg, "Fail to process transaction!", sizeof rspInfo_.ErrorMsg - 1);
  spi_->OnRspError(&rspInfo_, -1, true);
  return 0;
}

int MdApiImpl::ReqUserLogin(CVelmarReqUserLogin* request, int requestId) {
  if (!connected_.load()) {
    LOG_DEBUG << "session not connected ";
    fillRspInfo(kFrontNotConnected, requestId);
    return kFrontNotConnected;
  }
  if (loggedIn_.load()) {
    fillRspInfo(kDuplicatedLogin, requestId);
    return kDuplicatedLogin;
  }
  std::string message;
  if (!checkRecord(*request, &message)) {
    LOG_DEBUG << message;
    fillRspInfo(kFieldCheckError, requestId);
    return kFieldCheckError;
  }
  return sendTransaction(request, requestId, kTidLogin, sizeof(CVelmarReqUserLogin));
}

int MdApiImpl::ReqUserLogout(CVelmarReqUserLogout* request, int requestId) {
  if (!connected_.load()) {
    LOG_DEBUG << "session not connected ";
    fillRspInfo(kFrontNotConnected, requestId);
    return kFrontNotConnected;
  }
  if (!loggedIn_.load()) {
    fillRspInfo(kNotLoggedIn, requestId);
    return kNotLoggedIn;
  }
  std::string message;
  if (!checkRecord(*request, &message)) {
    LOG_DEBUG << message;
    fillRspInfo(kFieldCheckError, requestId);
    return kFieldCheckError;
  }
  return sendTransaction(request, requestId, kTidLogout, sizeof(CVelmarReqUserLogout));
}

int MdApiImpl::SubAllMarketData(int, int, int) { return kFrontNotConnected; }
int MdApiImpl::UnSubAllMarketData(int, int, int) { return kFrontNotConnected; }
int MdApiImpl::SubAllTickByTick(int, int) { return kFrontNotConnected; }
int MdApiImpl::UnSubAllTickByTick(int, int) { return kFrontNotConnected; }
int MdApiImpl::SubMarketData(char**, int, int requestId) {
  fillRspInfo(kFrontNotConnected, requestId);
  return kFrontNotConnected;
}
int MdApiImpl::UnSubMarketData(char**, int, int requestId) {
  fillRspInfo(kFrontNotConnected, requestId);
  return kFrontNotConnected;
}
int MdApiImpl::SubTickByTick(char**, int, int requestId) {
  fillRspInfo(kFrontNotConnected, requestId);
  return kFrontNotConnected;
}
int MdApiImpl::UnSubTickByTick(char**, int, int requestId) {
  fillRspInfo(kFrontNotConnected, requestId);
  return kFrontNotConnected;
}
int MdApiImpl::SubAllOrderBook(int, int) { return kFrontNotConnected; }
int MdApiImpl::UnSubAllOrderBook(int, int) { return kFrontNotConnected; }
int MdApiImpl::SubOrderBook(char**, int, int) { return kFrontNotConnected; }
int MdApiImpl::UnSubOrderBook(char**, int, int) { return kFrontNotConnected; }

}  // namespace mdapi
}  // namespace velmar
