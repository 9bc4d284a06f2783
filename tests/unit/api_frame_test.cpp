// The binary interface of the two public classes, the error table, and the
// operations that work before Init.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
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

}  // namespace

TEST(BinaryInterface, ApiOperationsStandInTableOrder) {
  const long slots[] = {
      slotOf(&VelmarMdApi::Release),          slotOf(&VelmarMdApi::Init),
      slotOf(&VelmarMdApi::Join),             slotOf(&VelmarMdApi::GetTradingDay),
      slotOf(&VelmarMdApi::RegisterFront),    slotOf(&VelmarMdApi::RegisterMulticast),
      slotOf(&VelmarMdApi::RegisterLocalTcpAddress),
      slotOf(&VelmarMdApi::RegisterMulticastInterface),
      slotOf(&VelmarMdApi::SetUserString),    slotOf(&VelmarMdApi::RegisterSpi),
      slotOf(&VelmarMdApi::SetHeartbeatTimeout), slotOf(&VelmarMdApi::ReqUserLogin),
      slotOf(&VelmarMdApi::ReqUserLogout),    slotOf(&VelmarMdApi::SubAllMarketData),
      slotOf(&VelmarMdApi::UnSubAllMarketData), slotOf(&VelmarMdApi::SubAllTickByTick),
      slotOf(&VelmarMdApi::UnSubAllTickByTick), slotOf(&VelmarMdApi::SubMarketData),
      slotOf(&VelmarMdApi::UnSubMarketData),  slotOf(&VelmarMdApi::SubTickByTick),
      slotOf(&VelmarMdApi::UnSubTickByTick),  slotOf(&VelmarMdApi::SubAllOrderBook),
      slotOf(&VelmarMdApi::UnSubAllOrderBook), slotOf(&VelmarMdApi::SubOrderBook),
      slotOf(&VelmarMdApi::UnSubOrderBook),
  };
  for (long i = 0; i < 25; ++i) EXPECT_EQ(slots[i], i) << "operation " << i;
}

TEST(BinaryInterface, SpiCallbacksStandInTableOrderWithTheDestructorLast) {
  const long slots[] = {
      slotOf(&VelmarMdSpi::OnFrontConnected),       slotOf(&VelmarMdSpi::OnFrontDisconnected),
      slotOf(&VelmarMdSpi::OnHeartBeatWarning),     slotOf(&VelmarMdSpi::OnRspError),
      slotOf(&VelmarMdSpi::OnRspUserLogin),         slotOf(&VelmarMdSpi::OnRspUserLogout),
      slotOf(&VelmarMdSpi::OnRspSubAllMarketData),  slotOf(&VelmarMdSpi::OnRspUnSubAllMarketData),
      slotOf(&VelmarMdSpi::OnRspSubAllTickByTick),  slotOf(&VelmarMdSpi::OnRspUnSubAllTickByTick),
      slotOf(&VelmarMdSpi::OnRspSubMarketData),     slotOf(&VelmarMdSpi::OnRspUnSubMarketData),
      slotOf(&VelmarMdSpi::OnRspSubTickByTick),     slotOf(&VelmarMdSpi::OnRspUnSubTickByTick),
      slotOf(&VelmarMdSpi::OnRtnMarketData),        slotOf(&VelmarMdSpi::OnRtnTickByTick),
      slotOf(&VelmarMdSpi::OnRtnOrderBook),         slotOf(&VelmarMdSpi::OnRspSubOrderBook),
      slotOf(&VelmarMdSpi::OnRspUnSubOrderBook),
  };
  for (long i = 0; i < 19; ++i) EXPECT_EQ(slots[i], i) << "callback " << i;
  // The virtual destructor takes the slots behind the last callback.
}

// The text comes from the version in project(), through a generated header;
// the build hands the same version to this test. The library's file names
// and its CMake and pkg-config packages carry that version too.
TEST(ApiFrame, VersionTextIsTheProjectVersion) {
  EXPECT_EQ(std::string(VelmarMdApi::GetVersion()),
            std::string("VELMAR_API_V") + VLMD_PROJECT_VERSION);
  // Three decimal numbers and nothing behind them.
  unsigned major = 0, minor = 0, patch = 0;
  char tail = 0;
  EXPECT_EQ(std::sscanf(VelmarMdApi::GetVersion(), "VELMAR_API_V%u.%u.%u%c", &major, &minor,
                        &patch, &tail),
            3);
}

TEST(ApiFrame, VersionTradingDayAndRegistrationWorkBeforeInit) {
  EXPECT_NE(VelmarMdApi::GetVersion(), nullptr);
  VelmarMdApi* api = VelmarMdApi::CreateMdUserApi("ignored");
  ASSERT_NE(api, nullptr);
  const char* day = api->GetTradingDay();
  ASSERT_EQ(std::strlen(day), 8u);
  for (int i = 0; i < 8; ++i) EXPECT_TRUE(day[i] >= '0' && day[i] <= '9');
  // Every object of the process gets the text kept from the first call.
  MdApiImpl other;
  EXPECT_EQ(other.GetTradingDay(), day);

  auto* impl = static_cast<MdApiImpl*>(api);
  api->RegisterFront("tcp://127.0.0.1:7001");
  api->RegisterFront("");
  api->RegisterFront("not an address at all");
  api->RegisterMulticast("udp://239.255.1.1:9000");
  api->RegisterMulticastInterface("127.0.0.1");
  api->SetHeartbeatTimeout(7);
  ASSERT_EQ(impl->frontAddresses_.size(), 3u);
  EXPECT_EQ(impl->frontAddresses_[1], "");
  EXPECT_EQ(impl->frontAddresses_[2], "not an address at all");
  EXPECT_EQ(impl->mcastAddresses_.front(), "udp://239.255.1.1:9000");
  EXPECT_EQ(impl->heartbeatTimeout_, 7u);
  EXPECT_EQ(impl->heartbeatInterval_, 1u);
  delete impl;  // never started, so nothing else uses it
}

TEST(ErrorTable, TextsOfEveryRunAndTheGapsBetween) {
  using velmar::mdapi::errorText;
  EXPECT_EQ(errorText(0), "No error");
  EXPECT_EQ(errorText(-1), "Netwrok error");
  EXPECT_EQ(errorText(-8), "authorize failed");
  EXPECT_EQ(errorText(-100), "Not logged in");
  EXPECT_EQ(errorText(-115), "Invalid front addr");
  EXPECT_EQ(errorText(-117), "Request error");
  EXPECT_EQ(errorText(-123), "Order price exceed Upper and Lower Limit Price");
  EXPECT_EQ(errorText(-139), "User existed");
  EXPECT_EQ(errorText(-200), "Unavailable exchange");
  EXPECT_EQ(errorText(-207), "Can't find invester account");
  EXPECT_EQ(errorText(-999), "Internal error");
  EXPECT_EQ(errorText(-1001), "Init database failed");
  EXPECT_EQ(errorText(-1009), "Check config failed");
  for (int id : {1, -9, -99, -140, -199, -208, -998, -1000, -1010, 32767, -32768})
    EXPECT_EQ(errorText(static_cast<int16_t>(id)), "Unknow error") << id;
}
