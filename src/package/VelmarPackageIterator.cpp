#include "package/VelmarPackageIterator.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "VLNet/Buffer.h"
#include "package/WireFormat.h"
#include "utility/ByteOrder.h"
#include "utility/Platform.h"

using velmar::utility::loadLE;
namespace wire = velmar::mdapi::wire;

namespace {
// Back to an empty buffer: both indexes to the prepend size. The bytes stay in
// the block, so an iterator that is reading them may go on.
void resetBuffer(velmar::net::Buffer* buffer) {
  buffer->retrieveAll();
}
}  // namespace

bool CVelmarPackageIteratorBase::Check(velmar::net::Buffer* buffer) {
  size_t readable = buffer->readableBytes();
  if (readable < static_cast<size_t>(wire::kFtdHeaderSize)) return false;
  const char* header = buffer->peek();
  uint8_t ftdType = static_cast<uint8_t>(header[wire::kFtdTypeOffset]);
  uint8_t extLength = static_cast<uint8_t>(header[wire::kExtLengthOffset]);
  uint16_t ftdcLength = loadLE<uint16_t>(header + wire::kFtdcLengthOffset);
  // Framing errors are not logged through the library's logger: the front
  // connection stays up, the buffered bytes go, and reading starts again with
  // whatever arrives next. There is no search for the next header.
  if (ftdType > wire::kFtdTypeFtdcAlt) {
    // The offending byte itself, as a character, and no line end.
    std::string text = "CVelmarPackageIterator Check ftdHeadr error, type ";
    text += static_cast<char>(ftdType);
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
    resetBuffer(buffer);
    return false;
  }
  if (extLength != wire::kReceivedExtLength || ftdcLength > wire::kMaxReceivedFtdcLength) {
    velmar::platform::printLastError("TCP socket window  full error");
    resetBuffer(buffer);
    return false;
  }
  return readable >= static_cast<size_t>(ftdcLength) + wire::kFtdHeaderSize + extLength;
}

CVelmarPackageIteratorBase::CVelmarPackageIteratorBase(velmar::net::Buffer* buffer)
    : buffer_(buffer),
      ftdHeader_{},
      extHeader_{},
      ftdcHeader_{},
      fieldHeader_{},
      end_(nullptr),
      cursor_(nullptr),
      value_(nullptr) {
  // Called here on the base: the derived iterator overrides nothing.
  CVelmarPackageIteratorBase::begin();
}

CVelmarPackageIteratorBase::~CVelmarPackageIteratorBase() = default;

void CVelmarPackageIteratorBase::begin() {
  // The steps call the base's operations directly: the iterator overrides
  // nothing, and the reading loop is the hot path of the front connection.
  value_ = nullptr;
  cursor_ = buffer_->peek();
  end_ = buffer_->begin() + buffer_->writerIndex();
  if (left() < wire::kFtdHeaderSize) return;
  CVelmarPackageIteratorBase::readFtdHeader();
  cursor_ += wire::kFtdHeaderSize;
  int extLen = extLength();
  int ftdcLen = ftdcLength();
  if (left() < extLen + ftdcLen) return;

  // Consume the package from the Buffer; its bytes stay where they are and
  // are read in place from here on.
  size_t frame = static_cast<size_t>(wire::kFtdHeaderSize + extLen + ftdcLen);
  if (frame < buffer_->readableBytes()) {
    buffer_->setReaderIndex(buffer_->readerIndex() + frame);
  } else {
    resetBuffer(buffer_);
  }
  end_ = cursor_ + extLen + ftdcLen;

  if (extLen != 0) {
    // An extension shorter than its header leaves nothing to read after it.
    if (left() < wire::kExtHeaderSize) {
      cursor_ = end_;
      return;
    }
    CVelmarPackageIteratorBase::readExtHeader();
    cursor_ += wire::kExtHeaderSize;
    if (extTagLength() != 0) {
      CVelmarPackageIteratorBase::readExtData();
      // Tag data that runs past the package takes the rest of it.
      cursor_ += extTagLength() < left() ? extTagLength() : left();
    }
  }
  if (ftdcLen != 0 && left() >= wire::kFtdcHeaderSize) {
    CVelmarPackageIteratorBase::readFtdcHeader();
    cursor_ += wire::kFtdcHeaderSize;
    CVelmarPackageIteratorBase::next();
  }
}

void CVelmarPackageIteratorBase::next() {
  value_ = nullptr;
  if (left() < wire::kFieldHeaderSize) return;
  CVelmarPackageIteratorBase::readFieldHeader();
  cursor_ += wire::kFieldHeaderSize;
  int length = fieldLength();
  // A field that claims more than the package holds ends the package.
  if (left() < length) return;
  value_ = cursor_;
  cursor_ += length;
}

void CVelmarPackageIteratorBase::readFtdHeader() {
  std::memcpy(ftdHeader_, cursor_, sizeof ftdHeader_);
}

void CVelmarPackageIteratorBase::readExtHeader() {
  std::memcpy(extHeader_, cursor_, sizeof extHeader_);
}

void CVelmarPackageIteratorBase::readFtdcHeader() {
  std::memcpy(ftdcHeader_, cursor_, sizeof ftdcHeader_);
}

void CVelmarPackageIteratorBase::readFieldHeader() {
  std::memcpy(fieldHeader_, cursor_, sizeof fieldHeader_);
}

void CVelmarPackageIteratorBase::readExtData() {
  // Tag data has no use in this library; it is only stepped over.
}

int CVelmarPackageIteratorBase::remaining() const {
  return left();
}

uint32_t CVelmarPackageIteratorBase::getFtdHeader() const {
  return loadLE<uint32_t>(ftdHeader_);
}

uint16_t CVelmarPackageIteratorBase::getExtHeader() const {
  return loadLE<uint16_t>(extHeader_);
}

size_t CVelmarPackageIteratorBase::getFieldValue(void* dest, size_t destSize) const {
  if (value_ == nullptr) return 0;
  size_t n = fieldLength();
  if (n > destSize) n = destSize;
  if (n > 0) std::memcpy(dest, value_, n);
  return n;
}

uint16_t CVelmarPackageIteratorBase::ftdcLength() const {
  return loadLE<uint16_t>(ftdHeader_ + wire::kFtdcLengthOffset);
}

uint8_t CVelmarPackageIteratorBase::chain() const {
  return ftdcHeader_[wire::kChainOffset];
}

uint16_t CVelmarPackageIteratorBase::fieldCount() const {
  return loadLE<uint16_t>(ftdcHeader_ + wire::kFieldCountOffset);
}

uint32_t CVelmarPackageIteratorBase::tid() const {
  return loadLE<uint32_t>(ftdcHeader_ + wire::kTidOffset);
}

uint32_t CVelmarPackageIteratorBase::requestId() const {
  return loadLE<uint32_t>(ftdcHeader_ + wire::kRequestIdOffset);
}

uint16_t CVelmarPackageIteratorBase::fieldLength() const {
  return loadLE<uint16_t>(fieldHeader_ + wire::kFieldLengthOffset);
}

uint32_t CVelmarPackageIteratorBase::fieldId() const {
  return loadLE<uint32_t>(fieldHeader_ + wire::kFieldIdOffset);
}

bool CVelmarPackageIteratorBase::isKeepAlive() const {
  return ftdType() == wire::kFtdTypeNone && extTag() == wire::kExtTagKeepAlive;
}
