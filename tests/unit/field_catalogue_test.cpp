// Text forms and checks of the session records, and the field ids.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "package/FieldCatalogue.h"

using velmar::mdapi::checkRecord;
using velmar::mdapi::toString;

namespace {

template <size_t N>
void fill(char (&field)[N], char c) {
  std::memset(field, c, N);  // no terminator: the whole array is text
}

template <size_t N>
void set(char (&field)[N], const char* text) {
  std::memset(field, 0, N);
  std::memcpy(field, text, std::min(std::strlen(text), N - 1));
}

}  // namespace

// The log shows these texts, in a field order that differs from the layout.
// A text stops at its NUL, or at the end of its array when it fills it (and
// then the next field or the padding stays out).
TEST(FieldCatalogue, TextForms) {
  CVelmarReqUserLogin r;
  fill(r.TradingDay, 'd');
  fill(r.UserID, 'u');
  set(r.Password, "pw");
  fill(r.UserProductInfo, 'i');
  set(r.IPAddress, "");
  fill(r.MacAddress, 'm');
  EXPECT_EQ(toString(r), "CVelmarReqUserLogin={MacAddress=" + std::string(30, 'm') +
                             " UserProductInfo=" + std::string(41, 'i') +
                             " UserID=" + std::string(16, 'u') +
                             " TradingDay=" + std::string(9, 'd') + " Password=pw IPAddress=}");

  CVelmarRspUserLogout lo;
  set(lo.UserID, "alice");
  EXPECT_EQ(toString(lo), "CVelmarRspUserLogout={UserID=alice}");

  CVelmarRspUserLogin rl;
  std::memset(&rl, 0x7F, sizeof rl);  // padding full of text bytes too
  fill(rl.TradingDay, 'd');
  fill(rl.UserID, 'u');
  set(rl.LoginTime, "09:15:00");
  rl.MaxUserOrderLocalID = -2147483647 - 1;
  EXPECT_EQ(toString(rl), "CVelmarRspUserLogin={TradingDay=" + std::string(9, 'd') +
                              " MaxUserOrderLocalID=-2147483648 UserID=" + std::string(16, 'u') +
                              " LoginTime=09:15:00}");
}

// Only the user id (and for a login the password) is checked; a record that
// passes leaves the message alone.
TEST(FieldCatalogue, Checks) {
  struct Case {
    const char* userId;
    const char* password;
    const char* message;
  } cases[] = {
      {"", "pw", "[CVelmarReqUserLogin], UserID is empty"},
      {"u", "", "[CVelmarReqUserLogin], Password is empty"},
      {"u", "pw", "unchanged"},
  };
  for (const Case& c : cases) {
    CVelmarReqUserLogin r{};  // empty day, product, addresses: not checked
    set(r.UserID, c.userId);
    set(r.Password, c.password);
    std::string message = "unchanged";
    EXPECT_EQ(checkRecord(r, &message), c.message == std::string("unchanged"));
    EXPECT_EQ(message, c.message) << c.userId << "/" << c.password;
  }
  CVelmarReqUserLogout logout{};
  std::string message;
  EXPECT_FALSE(checkRecord(logout, &message));
  EXPECT_EQ(message, "[CVelmarReqUserLogout], UserID is empty");
}

// The simulator shares these constants, so only literals here catch a wrong
// one. (The answer record sizes are exercised by every session test.)
namespace tid = velmar::mdapi::tid;
static_assert(tid::kReqUserLogin == 0 && tid::kReqUserLogout == 1 && tid::kSubAllMarketData == 3 &&
                  tid::kUnSubAllMarketData == 4 && tid::kSubMarketData == 5 &&
                  tid::kUnSubMarketData == 6 && tid::kSubAllTickByTick == 7 &&
                  tid::kUnSubAllTickByTick == 8 && tid::kSubTickByTick == 9 &&
                  tid::kUnSubTickByTick == 10 && tid::kSubOrderBook == 17 &&
                  tid::kUnSubOrderBook == 18 && tid::kSubAllOrderBook == 19 &&
                  tid::kUnSubAllOrderBook == 20,
              "request field ids");
static_assert(tid::kRspUserLogin == 22 && tid::kRspUserLogout == 23 &&
                  tid::kRspSubAllMarketData == 24 && tid::kRspUnSubAllMarketData == 25 &&
                  tid::kRspSubAllTickByTick == 26 && tid::kRspUnSubAllTickByTick == 27 &&
                  tid::kRspSubMarketData == 28 && tid::kRspUnSubMarketData == 29 &&
                  tid::kRspSubTickByTick == 30 && tid::kRspUnSubTickByTick == 31 &&
                  tid::kRspInfo == 32 && tid::kRtnMarketData == 33 && tid::kRtnTickByTick == 34 &&
                  tid::kRspSubOrderBook == 35 && tid::kRspUnSubOrderBook == 36,
              "answer field ids");
