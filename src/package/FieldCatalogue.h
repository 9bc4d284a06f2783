// The records that travel as field values on the front connection: their
// field ids, their text forms for the log, and the checks of the two
// requests that have one. The records themselves are the public structures of
// VelmarMdStruct.h; a field's value is the record's memory image and its
// fieldLength the record's size.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "VelmarMdStruct.h"

namespace velmar {
namespace mdapi {

/// Field ids. A request's field id is also the tid of its FTDC header; an
/// answer is dispatched on the field id alone.
namespace tid {
// To the front.
constexpr uint32_t kReqUserLogin = 0;        ///< CVelmarReqUserLogin
constexpr uint32_t kReqUserLogout = 1;       ///< CVelmarReqUserLogout
constexpr uint32_t kSubAllMarketData = 3;    ///< CVelmarSubAllRecord
constexpr uint32_t kUnSubAllMarketData = 4;  ///< CVelmarSubAllRecord
constexpr uint32_t kSubMarketData = 5;       ///< instrument ids
constexpr uint32_t kUnSubMarketData = 6;     ///< instrument ids
constexpr uint32_t kSubAllTickByTick = 7;    ///< CVelmarSubAllRecord
constexpr uint32_t kUnSubAllTickByTick = 8;  ///< CVelmarSubAllRecord
constexpr uint32_t kSubTickByTick = 9;       ///< instrument ids
constexpr uint32_t kUnSubTickByTick = 10;    ///< instrument ids
constexpr uint32_t kSubOrderBook = 17;       ///< instrument ids
constexpr uint32_t kUnSubOrderBook = 18;     ///< instrument ids
constexpr uint32_t kSubAllOrderBook = 19;    ///< CVelmarSubAllRecord
constexpr uint32_t kUnSubAllOrderBook = 20;  ///< CVelmarSubAllRecord
// From the front.
constexpr uint32_t kRspUserLogin = 22;         ///< CVelmarRspUserLogin
constexpr uint32_t kRspUserLogout = 23;        ///< CVelmarRspUserLogout
constexpr uint32_t kRspSubAllMarketData = 24;  ///< CVelmarSubAllRecord
constexpr uint32_t kRspUnSubAllMarketData = 25;
constexpr uint32_t kRspSubAllTickByTick = 26;  ///< CVelmarSubAllRecord
constexpr uint32_t kRspUnSubAllTickByTick = 27;
constexpr uint32_t kRspSubMarketData = 28;  ///< instrument ids
constexpr uint32_t kRspUnSubMarketData = 29;
constexpr uint32_t kRspSubTickByTick = 30;  ///< instrument ids
constexpr uint32_t kRspUnSubTickByTick = 31;
constexpr uint32_t kRspInfo = 32;            ///< CVelmarRspInfo
constexpr uint32_t kRtnMarketData = 33;      ///< CVelmarMarketData
constexpr uint32_t kRtnTickByTick = 34;      ///< CVelmarTickByTick
constexpr uint32_t kRspSubOrderBook = 35;    ///< instrument ids
constexpr uint32_t kRspUnSubOrderBook = 36;  ///< instrument ids
/// The answers the dispatch knows; any other id drops the buffered bytes.
constexpr uint32_t kFirstAnswer = kRspUserLogin;
constexpr uint32_t kLastAnswer = kRspUnSubOrderBook;
}  // namespace tid

/// One instrument id on the wire: NUL-padded text, side by side with the next.
constexpr size_t kWireInstrumentIdSize = 16;

/// Size of the record a received field is copied into: its record's size for
/// record answers, 0 for the instrument-id answers (whose length is the
/// field's own) and for ids that are no answer.
size_t answerRecordSize(uint32_t fieldId);

// Text forms, for the log. Texts print up to their NUL and never past their
// array: a text that fills its array has no terminator, and prints whole.
std::string toString(const CVelmarReqUserLogin& r);
std::string toString(const CVelmarReqUserLogout& r);
std::string toString(const CVelmarRspUserLogin& r);
std::string toString(const CVelmarRspUserLogout& r);
std::string toString(const CVelmarRspInfo& r);

// Checks of the requests. False, with the reason in *message, for a record
// that must not go out.
bool checkRecord(const CVelmarReqUserLogin& r, std::string* message);
bool checkRecord(const CVelmarReqUserLogout& r, std::string* message);

}  // namespace mdapi
}  // namespace velmar
