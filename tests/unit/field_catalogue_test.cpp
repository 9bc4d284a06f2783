// Text forms and checks of the session records.
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

TEST(FieldCatalogue, ReqUserLoginText) {
  CVelmarReqUserLogin r;
  std::memset(&r, 0, sizeof r);
  set(r.TradingDay, "20240102");
  set(r.UserID, "trader01");
  set(r.Password, "pw");
  set(r.UserProductInfo, "app 1.0");
  set(r.IPAddress, "127.0.0.1");
  set(r.MacAddress, "00:11");
  EXPECT_EQ(toString(r),
            "CVelmarReqUserLogin={MacAddress=00:11 UserProductInfo=app 1.0 UserID=trader01 "
            "TradingDay=20240102 Password=pw IPAddress=127.0.0.1}");
  std::memset(&r, 0, sizeof r);
  EXPECT_EQ(toString(r),
            "CVelmarReqUserLogin={MacAddress= UserProductInfo= UserID= TradingDay= Password= "
            "IPAddress=}");
}

TEST(FieldCatalogue, FullLengthTextsStopAtTheirArrays) {
  CVelmarReqUserLogin r;
  fill(r.TradingDay, 'd');
  fill(r.UserID, 'u');
  fill(r.Password, 'p');
  fill(r.UserProductInfo, 'i');
  fill(r.IPAddress, 'a');
  fill(r.MacAddress, 'm');
  EXPECT_EQ(toString(r),
            "CVelmarReqUserLogin={MacAddress=" + std::string(30, 'm') +
                " UserProductInfo=" + std::string(41, 'i') + " UserID=" + std::string(16, 'u') +
                " TradingDay=" + std::string(9, 'd') + " Password=" + std::string(32, 'p') +
                " IPAddress=" + std::string(30, 'a') + "}");

  CVelmarReqUserLogout lo;
  fill(lo.UserID, 'u');
  EXPECT_EQ(toString(lo), "CVelmarReqUserLogout={UserID=" + std::string(16, 'u') + "}");
  CVelmarRspUserLogout rlo;
  fill(rlo.UserID, 'v');
  EXPECT_EQ(toString(rlo), "CVelmarRspUserLogout={UserID=" + std::string(16, 'v') + "}");

  CVelmarRspUserLogin rl;
  std::memset(&rl, 0x7F, sizeof rl);  // padding full of text bytes too
  fill(rl.TradingDay, 'd');
  fill(rl.UserID, 'u');
  fill(rl.LoginTime, 't');
  rl.MaxUserOrderLocalID = -2147483647 - 1;
  EXPECT_EQ(toString(rl), "CVelmarRspUserLogin={TradingDay=" + std::string(9, 'd') +
                              " MaxUserOrderLocalID=-2147483648 UserID=" + std::string(16, 'u') +
                              " LoginTime=" + std::string(16, 't') + "}");

  CVelmarRspInfo info;
  std::memset(&info, 0x7F, sizeof info);
  fill(info.ErrorMsg, 'e');
  info.Tid = 22;
  info.ErrorID = -120;
  EXPECT_EQ(toString(info),
            "CVelmarRspInfo={Tid=22 ErrorMsg=" + std::string(81, 'e') + " ErrorID=-120}");
}

TEST(FieldCatalogue, AnswerTexts) {
  CVelmarRspUserLogin rl;
  std::memset(&rl, 0, sizeof rl);
  set(rl.TradingDay, "20240102");
  set(rl.UserID, "trader01");
  set(rl.LoginTime, "09:15:00");
  rl.MaxUserOrderLocalID = 42;
  EXPECT_EQ(toString(rl),
            "CVelmarRspUserLogin={TradingDay=20240102 MaxUserOrderLocalID=42 UserID=trader01 "
            "LoginTime=09:15:00}");

  CVelmarRspInfo info;
  std::memset(&info, 0, sizeof info);
  std::string eighty(80, 'x');
  set(info.ErrorMsg, eighty.c_str());
  info.Tid = 7;
  info.ErrorID = 0;
  EXPECT_EQ(toString(info), "CVelmarRspInfo={Tid=7 ErrorMsg=" + eighty + " ErrorID=0}");
}

TEST(FieldCatalogue, LoginCheck) {
  struct Case {
    const char* userId;
    const char* password;
    bool ok;
    const char* message;
  } cases[] = {
      {"", "pw", false, "[CVelmarReqUserLogin], UserID is empty"},
      {"", "", false, "[CVelmarReqUserLogin], UserID is empty"},
      {"u", "", false, "[CVelmarReqUserLogin], Password is empty"},
      {"u", "pw", true, "unchanged"},
  };
  for (const Case& c : cases) {
    CVelmarReqUserLogin r;
    std::memset(&r, 0, sizeof r);  // empty day, product, addresses: not checked
    set(r.UserID, c.userId);
    set(r.Password, c.password);
    std::string message = "unchanged";
    EXPECT_EQ(checkRecord(r, &message), c.ok) << c.userId << "/" << c.password;
    EXPECT_EQ(message, c.message);
  }
  CVelmarReqUserLogin full;
  fill(full.TradingDay, 'd');
  fill(full.UserID, 'u');
  fill(full.Password, 'p');
  fill(full.UserProductInfo, 'i');
  fill(full.IPAddress, 'a');
  fill(full.MacAddress, 'm');
  std::string message;
  EXPECT_TRUE(checkRecord(full, &message));
}

TEST(FieldCatalogue, LogoutCheck) {
  CVelmarReqUserLogout r;
  std::memset(&r, 0, sizeof r);
  std::string message;
  EXPECT_FALSE(checkRecord(r, &message));
  EXPECT_EQ(message, "[CVelmarReqUserLogout], UserID is empty");
  fill(r.UserID, 'u');
  message = "unchanged";
  EXPECT_TRUE(checkRecord(r, &message));
  EXPECT_EQ(message, "unchanged");
}

TEST(FieldCatalogue, FieldIdsAndRecordSizes) {
  namespace tid = velmar::mdapi::tid;
  struct Case {
    uint32_t id;
    uint32_t expected;
    size_t recordSize;
  } cases[] = {
      {tid::kReqUserLogin, 0, 0},
      {tid::kReqUserLogout, 1, 0},
      {tid::kSubAllMarketData, 3, 0},
      {tid::kUnSubAllMarketData, 4, 0},
      {tid::kSubMarketData, 5, 0},
      {tid::kUnSubMarketData, 6, 0},
      {tid::kSubAllTickByTick, 7, 0},
      {tid::kUnSubAllTickByTick, 8, 0},
      {tid::kSubTickByTick, 9, 0},
      {tid::kUnSubTickByTick, 10, 0},
      {tid::kSubOrderBook, 17, 0},
      {tid::kUnSubOrderBook, 18, 0},
      {tid::kSubAllOrderBook, 19, 0},
      {tid::kUnSubAllOrderBook, 20, 0},
      {tid::kRspUserLogin, 22, 48},
      {tid::kRspUserLogout, 23, 16},
      {tid::kRspSubAllMarketData, 24, 8},
      {tid::kRspUnSubAllMarketData, 25, 8},
      {tid::kRspSubAllTickByTick, 26, 8},
      {tid::kRspUnSubAllTickByTick, 27, 8},
      {tid::kRspSubMarketData, 28, 0},
      {tid::kRspUnSubMarketData, 29, 0},
      {tid::kRspSubTickByTick, 30, 0},
      {tid::kRspUnSubTickByTick, 31, 0},
      {tid::kRspInfo, 32, 92},
      {tid::kRtnMarketData, 33, 1160},
      {tid::kRtnTickByTick, 34, 112},
      {tid::kRspSubOrderBook, 35, 0},
      {tid::kRspUnSubOrderBook, 36, 0},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.id, c.expected);
    EXPECT_EQ(velmar::mdapi::answerRecordSize(c.id), c.recordSize) << c.expected;
  }
  EXPECT_EQ(velmar::mdapi::answerRecordSize(21), 0u);
  EXPECT_EQ(velmar::mdapi::answerRecordSize(37), 0u);
}
