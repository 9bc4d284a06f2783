// Arbitrary bytes from the front, cut into arbitrary reads, through the same
// loop the front dispatch runs: frame, read every field into a buffer of the
// record's size, move the rest of the buffer to its start, again while bytes
// remain.
//
// Input: two bytes that steer the cuts, then the stream.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "VLNet/Buffer.h"
#include "package/FieldCatalogue.h"
#include "package/VelmarPackageIterator.h"

namespace {

using velmar::net::Buffer;
namespace tid = velmar::mdapi::tid;

void require(bool ok) {
  if (!ok) __builtin_trap();
}

void checkIndexes(const Buffer& b) {
  require(Buffer::kPrependSize <= b.readerIndex());
  require(b.readerIndex() <= b.writerIndex());
  require(b.writerIndex() <= b.size());
}

template <typename Record>
void readRecord(const CVelmarPackageIterator& it) {
  Record r;
  std::memset(&r, 0, sizeof r);
  size_t n = it.getFieldValue(&r, sizeof r);
  require(n <= sizeof r);
  volatile size_t sink = velmar::mdapi::toString(r).size();
  (void)sink;
}

void readField(Buffer* buffer, const CVelmarPackageIterator& it) {
  uint32_t id = it.fieldId();
  size_t length = it.fieldLength();
  require(it.fieldValue() != nullptr);
  switch (id) {
    case tid::kRspUserLogin:
      readRecord<CVelmarRspUserLogin>(it);
      return;
    case tid::kRspUserLogout:
      readRecord<CVelmarRspUserLogout>(it);
      buffer->retrieveAll();  // the dispatch drops what follows a logout
      return;
    case tid::kRspInfo:
      readRecord<CVelmarRspInfo>(it);
      return;
    case tid::kRspSubMarketData:
    case tid::kRspUnSubMarketData:
    case tid::kRspSubTickByTick:
    case tid::kRspUnSubTickByTick:
    case tid::kRspSubOrderBook:
    case tid::kRspUnSubOrderBook: {
      // A block of exactly the field's length, read as 16-byte ids; a tail
      // shorter than an id is ignored.
      std::unique_ptr<char[]> block(new char[length + 1]);
      require(it.getFieldValue(block.get(), length) == length);
      for (size_t at = 0; at + velmar::mdapi::kWireInstrumentIdSize <= length;
           at += velmar::mdapi::kWireInstrumentIdSize) {
        const char* idText = block.get() + at;
        const void* nul = std::memchr(idText, 0, velmar::mdapi::kWireInstrumentIdSize);
        size_t n = nul ? static_cast<size_t>(static_cast<const char*>(nul) - idText)
                       : velmar::mdapi::kWireInstrumentIdSize;
        volatile size_t sink = std::string(idText, n).size();
        (void)sink;
      }
      return;
    }
    default:
      break;
  }
  size_t recordSize = velmar::mdapi::answerRecordSize(id);
  if (recordSize > 0) {
    // Heap blocks of the exact record size, so that a copy past the record
    // is caught.
    std::unique_ptr<char[]> record(new char[recordSize]);
    require(it.getFieldValue(record.get(), recordSize) <= recordSize);
    return;
  }
  buffer->retrieveAll();  // an id that is no answer drops everything buffered
}

void dispatch(Buffer* buffer) {
  while (buffer->readableBytes() > 0) {
    if (!CVelmarPackageIterator::Check(buffer)) break;
    CVelmarPackageIterator it(buffer);
    checkIndexes(*buffer);
    require(it.remaining() >= 0);
    if (!it.isKeepAlive()) {
      for (; !it.isEnd(); it.next()) {
        readField(buffer, it);
        require(it.remaining() >= 0);
      }
    }
    if (buffer->readableBytes() > 0) buffer->moveReadableToFront();
    checkIndexes(*buffer);
  }
  checkIndexes(*buffer);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  // Cut lengths come from a small generator seeded by the first two bytes;
  // the second also picks the buffer's first size, small or a connection's.
  uint32_t state = (static_cast<uint32_t>(data[0]) << 8 | data[1]) | 1u;
  size_t maxCut = 1 + data[0] * 32u;
  Buffer buffer(data[1] & 0x80 ? Buffer::kInitialSize : 16);
  data += 2;
  size -= 2;
  while (size > 0) {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    size_t cut = 1 + state % maxCut;
    if (cut > size) cut = size;
    buffer.append(data, cut);
    data += cut;
    size -= cut;
    dispatch(&buffer);
  }
  return 0;
}
