// The binary interface of the two public classes, the error table, and the
// operations that work before Init.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "VLClientApi/ErrorTable.h"
#include "VLClientApi/MdApiImpl.h"
#include "VelmarMdApi.h"

using velmar::mdapi::MdApiImpl;
using velmar::mdapi::VelmarMdApi;
using velmar::mdapi::VelmarMdSpi;

namespace {

// Under the Itanium C++ ABI (g++ on Linux and mingw-w64) a pointer to a
// virtual member function holds 1 + the byte offset of its vtable slot. The
// slot order is the library's binary interface, so it is checked here.
template <typename F>
long slotOf(F f) {
  uintptr_t raw;
  static_assert(sizeof(F) >= sizeof raw, "member pointer layout");
  std::memcpy(&raw, &f, sizeof raw);
  EXPECT_EQ(raw % sizeof(void*), 1u) << "not a virtual function";
  return static_cast<long>((raw - 1) / sizeof(void*));
}

// Each slot must be its place in the list, counted from `first`.
template <typename... F>
void expectSlotsFrom(long first, F... f) {
  const long slots[] = {slotOf(f)...};
  for (long i = 0; i < static_cast<long>(sizeof...(F)); ++i) EXPECT_EQ(slots[i], first + i);
}
template <typename... F>
void expectSlotsInOrder(F... f) {
  expectSlotsFrom(0, f...);
}

}  // namespace

// The virtual destructor of the callbacks takes the slots behind the last one.
// The operations added in 1.1 follow UnSubOrderBook.
TEST(BinaryInterface, OperationsAndCallbacksStandInTableOrder) {
  using A = VelmarMdApi;
  using S = VelmarMdSpi;
  expectSlotsInOrder(
      &A::Release, &A::Init, &A::Join, &A::GetTradingDay, &A::RegisterFront, &A::RegisterMulticast,
      &A::RegisterLocalTcpAddress, &A::RegisterMulticastInterface, &A::SetUserString,
      &A::RegisterSpi, &A::SetHeartbeatTimeout, &A::ReqUserLogin, &A::ReqUserLogout,
      &A::SubAllMarketData, &A::UnSubAllMarketData, &A::SubAllTickByTick, &A::UnSubAllTickByTick,
      &A::SubMarketData, &A::UnSubMarketData, &A::SubTickByTick, &A::UnSubTickByTick,
      &A::SubAllOrderBook, &A::UnSubAllOrderBook, &A::SubOrderBook, &A::UnSubOrderBook,
      &A::SetOption, &A::GetStatistics, &A::RegisterStatusSpi);
  expectSlotsInOrder(&S::OnFrontConnected, &S::OnFrontDisconnected, &S::OnHeartBeatWarning,
                     &S::OnRspError, &S::OnRspUserLogin, &S::OnRspUserLogout,
                     &S::OnRspSubAllMarketData, &S::OnRspUnSubAllMarketData,
                     &S::OnRspSubAllTickByTick, &S::OnRspUnSubAllTickByTick, &S::OnRspSubMarketData,
                     &S::OnRspUnSubMarketData, &S::OnRspSubTickByTick, &S::OnRspUnSubTickByTick,
                     &S::OnRtnMarketData, &S::OnRtnTickByTick, &S::OnRtnOrderBook,
                     &S::OnRspSubOrderBook, &S::OnRspUnSubOrderBook);
  // The status callbacks stand behind the two slots of the virtual
  // destructor, which comes first so that later callbacks append.
  using T = velmar::mdapi::VelmarMdStatusSpi;
  expectSlotsFrom(2, &T::OnFeedGap, &T::OnStatistics, &T::OnOrderBookStatus);
}

// The version text comes from project() through a generated header; the build
// hands the same version to this test.
TEST(ApiFrame, VersionAndTradingDayWorkBeforeInit) {
  EXPECT_EQ(std::string(VelmarMdApi::GetVersion()),
            std::string("VELMAR_API_V") + VLMD_PROJECT_VERSION);

  VelmarMdApi* api = VelmarMdApi::CreateMdUserApi("ignored");
  ASSERT_NE(api, nullptr);
  const char* day = api->GetTradingDay();
  EXPECT_EQ(std::strspn(day, "0123456789"), 8u);
  EXPECT_EQ(std::strlen(day), 8u);
  MdApiImpl other;  // every object gets the text kept from the first call
  EXPECT_EQ(other.GetTradingDay(), day);

  delete static_cast<MdApiImpl*>(api);  // never started, so nothing else uses it
}

TEST(ErrorTable, TextsOfEveryRunAndTheGapsBetween) {
  using velmar::mdapi::errorText;
  // The first and last of each run.
  EXPECT_EQ(errorText(0), "No error");
  EXPECT_EQ(errorText(-8), "authorize failed");
  EXPECT_EQ(errorText(-100), "Not logged in");
  EXPECT_EQ(errorText(-139), "User existed");
  EXPECT_EQ(errorText(-200), "Unavailable exchange");
  EXPECT_EQ(errorText(-207), "Can't find invester account");
  EXPECT_EQ(errorText(-300), "Unknown option");
  EXPECT_EQ(errorText(-303), "Invalid statistics record");
  EXPECT_EQ(errorText(-999), "Internal error");
  EXPECT_EQ(errorText(-1001), "Init database failed");
  EXPECT_EQ(errorText(-1009), "Check config failed");
  for (int id : {1, -9, -99, -140, -199, -208, -299, -304, -998, -1000, -1010, -32768})
    EXPECT_EQ(errorText(static_cast<int16_t>(id)), "Unknow error") << id;
}

TEST(ErrorTable, NamedIdsMatchTheirTexts) {
  namespace m = velmar::mdapi;
  EXPECT_EQ(m::errorText(m::kNotLoggedIn), "Not logged in");
  EXPECT_EQ(m::errorText(m::kCantFindUser), "Can't find user");
  EXPECT_EQ(m::errorText(m::kWrongPassword), "Wrong password");
  EXPECT_EQ(m::errorText(m::kInvalidTid), "Invalid TID");
  EXPECT_EQ(m::errorText(m::kDuplicatedLogin), "Duplicated login");
}

// "scheme://host:port", and the forms around it. An address whose only ':' is
// the scheme's passes with port text "//host" (number 0): Init goes on and
// the connection attempts fail, as for any front that does not answer.
TEST(ApiFrame, AddressParse) {
  struct Case {
    const char* text;
    bool ok;
    const char* host;
    const char* port;
  } cases[] = {
      {"tcp://127.0.0.1:6001", true, "127.0.0.1", "6001"},
      {"udp://239.255.1.1:5000", true, "239.255.1.1", "5000"},
      {"tcp://host", true, "host", "//host"},
      {"udp://239.255.1.1", true, "239.255.1.1", "//239.255.1.1"},
      {"tcp://", false, "", ""},
      {"tcp://:6001", false, "", ""},
      {"tcp://host:", false, "", ""},
      {"tcp:host:1", false, "", ""},
      {"http://host:1", false, "", ""},
      {"", false, "", ""},
  };
  for (const Case& c : cases) {
    std::string host, port;
    EXPECT_EQ(MdApiImpl::parseAddress({c.text}, &host, &port), c.ok) << c.text;
    if (!c.ok) continue;
    EXPECT_EQ(host, c.host) << c.text;
    EXPECT_EQ(port, c.port) << c.text;
  }
  std::string host, port;
  EXPECT_FALSE(MdApiImpl::parseAddress({}, &host, &port));
}
