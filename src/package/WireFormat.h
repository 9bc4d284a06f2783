// Byte format of the front connection. Every multi-byte value is
// little-endian and is written and read with storeLE / loadLE, never through a
// structure laid over the bytes.
//
// A package is an FTD header, an extension header (with extTagLength bytes of
// tag data behind it) and, when ftdcLength is not 0, an FTDC header followed by
// fields. A field is an 8-byte header and fieldLength bytes of value; values
// follow one another without alignment.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velmar {
namespace mdapi {
namespace wire {

// FTD header: ftdType u8, extLength u8, ftdcLength u16.
constexpr int kFtdHeaderSize = 4;
constexpr int kFtdTypeOffset = 0;
constexpr int kExtLengthOffset = 1;
constexpr int kFtdcLengthOffset = 2;

// Extension header: extTag u8, extTagLength u8.
constexpr int kExtHeaderSize = 2;
constexpr int kExtTagOffset = 0;
constexpr int kExtTagLengthOffset = 1;

// FTDC header: ftdcMark u8, chain u8, fieldCount u16, contentLength u16,
// reserved u16, tid u32, reserved u32, requestId u32.
constexpr int kFtdcHeaderSize = 20;
constexpr int kFtdcMarkOffset = 0;
constexpr int kChainOffset = 1;
constexpr int kFieldCountOffset = 2;
constexpr int kContentLengthOffset = 4;
constexpr int kTidOffset = 8;
constexpr int kRequestIdOffset = 16;

// Field header: fieldLength u16, reserved u16, fieldId u32.
constexpr int kFieldHeaderSize = 8;
constexpr int kFieldLengthOffset = 0;
constexpr int kFieldIdOffset = 4;

/// Room for the fields of one package, their headers included.
constexpr int kFieldAreaSize = 4076;
/// Largest FTDC part, header included, that the reader accepts.
constexpr int kMaxReceivedFtdcLength = 9999;
/// The only extLength the reader accepts: no tag data.
constexpr int kReceivedExtLength = 2;

// Values this library writes.
constexpr uint8_t kFtdTypeNone = 0;  ///< no FTDC part: the keep-alive
constexpr uint8_t kFtdTypeFtdc = 1;  ///< an FTDC part follows
/// The front may also send type 2. Nothing tells it apart from type 1 in what
/// this library reads, so it is read as type 1; 3 and up are framing errors.
constexpr uint8_t kFtdTypeFtdcAlt = 2;
constexpr uint8_t kExtTagNone = 0;
constexpr uint8_t kExtTagKeepAlive = 4;
constexpr uint8_t kFtdcMarkRequest = 0x48;  ///< 'H'
constexpr uint8_t kChainRequest = 0x53;     ///< 'S'; on receipt non-zero means "last"

/// A request package: the headers and the whole field area fit, with room to
/// spare for tag data.
constexpr int kRequestCapacity = 4227;
/// The keep-alive package: FTD and extension header only.
constexpr int kKeepAliveCapacity = 6;

static_assert(kRequestCapacity >=
                  kFtdHeaderSize + kExtHeaderSize + kFtdcHeaderSize + kFieldAreaSize,
              "a request package must hold a full field area");

}  // namespace wire
}  // namespace mdapi
}  // namespace velmar
