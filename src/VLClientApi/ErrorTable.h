// Error ids shared by the library and the front. 0 is success; the others are
// negative. Used as return codes and in CVelmarRspInfo.
#pragma once

#include <cstdint>
#include <string>

namespace velmar {
namespace mdapi {

enum ErrorId : int {
  kNoError = 0,
  kNotLoggedIn = -100,
  kCantFindUser = -101,
  kWrongPassword = -102,
  kInvalidTid = -104,
  kInvalidExchange = -106,
  kInvalidTickType = -107,
  kInvalidVolume = -112,
  kInvalidFrontAddr = -115,
  kFrontNotConnected = -116,
  kRequestError = -117,
  kDuplicatedLogin = -119,
  kFieldCheckError = -120,
  // The library's own, for its options and statistics: no front sends them.
  kUnknownOption = -300,
  kInvalidOptionValue = -301,
  kOptionOnlyBeforeInit = -302,
  kInvalidStatisticsRecord = -303,
  kInternalError = -999,
};

/// Text of an error id; "Unknow error" for an id the table doesn't hold.
std::string errorText(int16_t id);

}  // namespace mdapi
}  // namespace velmar
