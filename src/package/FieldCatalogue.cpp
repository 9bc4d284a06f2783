#include "package/FieldCatalogue.h"

#include <cstring>

namespace velmar {
namespace mdapi {

namespace {

// The text of a char array up to its NUL, bounded by the array.
template <size_t N>
void appendText(std::string* out, const char (&text)[N]) {
  const void* nul = std::memchr(text, 0, N);
  size_t len = nul ? static_cast<size_t>(static_cast<const char*>(nul) - text) : N;
  out->append(text, len);
}

}  // namespace

size_t answerRecordSize(uint32_t fieldId) {
  switch (fieldId) {
    case tid::kRspUserLogin:
      return sizeof(CVelmarRspUserLogin);
    case tid::kRspUserLogout:
      return sizeof(CVelmarRspUserLogout);
    case tid::kRspSubAllMarketData:
    case tid::kRspUnSubAllMarketData:
    case tid::kRspSubAllTickByTick:
    case tid::kRspUnSubAllTickByTick:
      return sizeof(CVelmarSubAllRecord);
    case tid::kRspInfo:
      return sizeof(CVelmarRspInfo);
    case tid::kRtnMarketData:
      return sizeof(CVelmarMarketData);
    case tid::kRtnTickByTick:
      return sizeof(CVelmarTickByTick);
    default:
      return 0;
  }
}

std::string toString(const CVelmarReqUserLogin& r) {
  // Printed in this order, which is not the layout order.
  std::string s = "CVelmarReqUserLogin={";
  s += "MacAddress=";
  appendText(&s, r.MacAddress);
  s += " UserProductInfo=";
  appendText(&s, r.UserProductInfo);
  s += " UserID=";
  appendText(&s, r.UserID);
  s += " TradingDay=";
  appendText(&s, r.TradingDay);
  s += " Password=";
  appendText(&s, r.Password);
  s += " IPAddress=";
  appendText(&s, r.IPAddress);
  s += "}";
  return s;
}

std::string toString(const CVelmarReqUserLogout& r) {
  std::string s = "CVelmarReqUserLogout={UserID=";
  appendText(&s, r.UserID);
  s += "}";
  return s;
}

std::string toString(const CVelmarRspUserLogin& r) {
  std::string s = "CVelmarRspUserLogin={TradingDay=";
  appendText(&s, r.TradingDay);
  s += " MaxUserOrderLocalID=";
  s += std::to_string(r.MaxUserOrderLocalID);
  s += " UserID=";
  appendText(&s, r.UserID);
  s += " LoginTime=";
  appendText(&s, r.LoginTime);
  s += "}";
  return s;
}

std::string toString(const CVelmarRspUserLogout& r) {
  std::string s = "CVelmarRspUserLogout={UserID=";
  appendText(&s, r.UserID);
  s += "}";
  return s;
}

std::string toString(const CVelmarRspInfo& r) {
  std::string s = "CVelmarRspInfo={Tid=";
  s += std::to_string(r.Tid);
  s += " ErrorMsg=";
  appendText(&s, r.ErrorMsg);
  s += " ErrorID=";
  s += std::to_string(r.ErrorID);
  s += "}";
  return s;
}

bool checkRecord(const CVelmarReqUserLogin& r, std::string* message) {
  if (r.UserID[0] == 0) {
    *message = "[CVelmarReqUserLogin], UserID is empty";
    return false;
  }
  if (r.Password[0] == 0) {
    *message = "[CVelmarReqUserLogin], Password is empty";
    return false;
  }
  return true;
}

bool checkRecord(const CVelmarReqUserLogout& r, std::string* message) {
  if (r.UserID[0] == 0) {
    *message = "[CVelmarReqUserLogout], UserID is empty";
    return false;
  }
  return true;
}

}  // namespace mdapi
}  // namespace velmar
