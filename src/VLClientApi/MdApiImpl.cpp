#include "VLClientApi/MdApiImpl.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>

#include "VLClientApi/LevelBookBuilder.h"
#include "VLMdApiVersion.h"
#include "VLNet/EventLoopThread.h"
#include "VLNet/TcpClient.h"
#include "VLNet/TcpConnection.h"
#include "package/VelmarPackage.h"
#include "package/WireFormat.h"
#include "utility/Platform.h"

namespace velmar {
namespace mdapi {

namespace {
// The version is the project's, from the generated header, so that the text
// and the library's file names and package version never disagree.
const char kVersion[] = "VELMAR_API_V" VLMDAPI_VERSION_TEXT;
// The first GetTradingDay of the process fixes the day for all later calls.
char g_tradingDay[48] = {0};
}  // namespace

VelmarMdApi* VelmarMdApi::CreateMdUserApi(const char* /*reserved*/) {
  return new (std::nothrow) MdApiImpl();
}

const char* VelmarMdApi::GetVersion() { return kVersion; }

MdApiImpl::MdApiImpl()
    : requestPackage_(new CVelmarPackage(wire::kRequestCapacity)),
      heartbeatPackage_(new CVelmarPackage(wire::kKeepAliveCapacity)),
      books_(*this, std::unique_ptr<BookBuilder>(new LevelBookBuilder())),
      feed_(*this, subscriptions_, books_) {
  std::memset(&rspInfo_, 0, sizeof rspInfo_);
  // The keep-alive is built once and sent unchanged: 00 02 00 00 04 00.
  heartbeatPackage_->prepare();
  heartbeatPackage_->setKeepAlive();
  heartbeatPackage_->finish();
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

namespace {
// Registration stores the text unchanged; only Init looks at it. A null
// pointer is kept as an empty text.
std::string textOf(const char* text) { return text ? std::string(text) : std::string(); }
}  // namespace

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
void MdApiImpl::SetHeartbeatTimeout(unsigned int seconds) { heartbeatTimeout_.store(seconds); }

}  // namespace mdapi
}  // namespace velmar
