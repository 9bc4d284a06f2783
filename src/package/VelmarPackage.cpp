#include "package/VelmarPackage.h"

#include <cstring>

#include "package/WireFormat.h"
#include "utility/ByteOrder.h"

using velmar::utility::storeLE;
namespace wire = velmar::mdapi::wire;

// ---- CVelmarPackageBuffer ----

CVelmarPackageBuffer::CVelmarPackageBuffer(int capacity)
    : start_(nullptr), end_(nullptr), size_(capacity + 1), refCount_(1), ownsBlock_(true) {
  start_ = new char[static_cast<size_t>(size_)]();
  end_ = start_ + size_;
}

CVelmarPackageBuffer::~CVelmarPackageBuffer() {
  if (ownsBlock_) delete[] start_;
}

void CVelmarPackageBuffer::release() {
  if (--refCount_ <= 0) delete this;
}

void CVelmarPackageBuffer::reset() {
  reset(size_);
}

void CVelmarPackageBuffer::reset(int dirty) {
  if (dirty > size_) dirty = size_;
  if (dirty > 0) std::memset(start_, 0, static_cast<size_t>(dirty));
  refCount_ = 1;
  ownsBlock_ = true;
}

// ---- CVelmarFieldList ----

void CVelmarFieldList::place(char* start, int capacity) {
  start_ = start;
  cursor_ = start;
  capacity_ = capacity;
  count_ = 0;
  used_ = 0;
}

void CVelmarFieldList::reset() {
  place(nullptr, 0);
}

bool CVelmarFieldList::add(uint32_t fieldId, const void* data, uint16_t length) {
  // The field area's size is the protocol's limit; the area's own room only
  // matters for a package built smaller than a request package, and keeps
  // such a package from writing past its block.
  int needed = wire::kFieldHeaderSize + length;
  if (used_ + needed > wire::kFieldAreaSize || used_ + needed > capacity_) return false;
  storeLE<uint16_t>(cursor_ + wire::kFieldLengthOffset, length);
  storeLE<uint16_t>(cursor_ + 2, 0);
  storeLE<uint32_t>(cursor_ + wire::kFieldIdOffset, fieldId);
  if (length > 0) std::memcpy(cursor_ + wire::kFieldHeaderSize, data, length);
  cursor_ += needed;
  used_ += needed;
  ++count_;
  return true;
}

// ---- CVelmarFtdcPackage ----

CVelmarFtdcPackage::CVelmarFtdcPackage()
    : fields_(new CVelmarFieldList),
      header_(new uint8_t[wire::kFtdcHeaderSize]()),
      capacity_(0),
      start_(nullptr),
      cursor_(nullptr),
      headerSize_(wire::kFtdcHeaderSize),
      length_(0) {}

CVelmarFtdcPackage::~CVelmarFtdcPackage() {
  delete fields_;
  delete[] header_;
}

bool CVelmarFtdcPackage::place(char* start, int capacity) {
  reset();
  if (capacity < headerSize_) return false;
  start_ = start;
  cursor_ = start + headerSize_;
  capacity_ = capacity;
  fields_->place(cursor_, capacity - headerSize_);
  return true;
}

void CVelmarFtdcPackage::reset() {
  fields_->reset();
  std::memset(header_, 0, static_cast<size_t>(headerSize_));
  capacity_ = 0;
  start_ = nullptr;
  cursor_ = nullptr;
  length_ = 0;
}

void CVelmarFtdcPackage::setHeader(uint32_t tid, uint8_t chain, uint8_t ftdcMark,
                                   uint32_t requestId) {
  std::memset(header_, 0, static_cast<size_t>(headerSize_));
  header_[wire::kFtdcMarkOffset] = ftdcMark;
  header_[wire::kChainOffset] = chain;
  storeLE<uint32_t>(header_ + wire::kTidOffset, tid);
  storeLE<uint32_t>(header_ + wire::kRequestIdOffset, requestId);
}

int CVelmarFtdcPackage::extentIn(const char* block) const {
  if (!placed()) return 0;
  return static_cast<int>(start_ - block) + headerSize_ + fields_->used();
}

bool CVelmarFtdcPackage::addField(uint32_t fieldId, const void* data, uint16_t length) {
  if (!placed()) return false;
  return fields_->add(fieldId, data, length);
}

int CVelmarFtdcPackage::finish() {
  storeLE<uint16_t>(header_ + wire::kFieldCountOffset, fields_->count());
  storeLE<uint16_t>(header_ + wire::kContentLengthOffset, static_cast<uint16_t>(fields_->used()));
  std::memcpy(start_, header_, static_cast<size_t>(headerSize_));
  cursor_ = start_ + headerSize_ + fields_->used();
  length_ = headerSize_ + fields_->used();
  return length_;
}

// ---- CVelmarPackage ----

CVelmarPackage::CVelmarPackage(int capacity)
    : ftdHeader_{0, 0, 0, 0},
      extTag_(0),
      extTagLength_(0),
      ftdc_(nullptr),
      buffer_(new CVelmarPackageBuffer(capacity)),
      start_(buffer_->data()),
      cursor_(buffer_->data()),
      ftdHeaderSize_(wire::kFtdHeaderSize),
      length_(0),
      extHeaderSize_(wire::kExtHeaderSize),
      dirty_(0) {}

CVelmarPackage::~CVelmarPackage() {
  delete ftdc_;
  buffer_->release();
}

void CVelmarPackage::clear() {
  // Zeroing the whole 4 KiB block would be most of the cost of a request.
  buffer_->reset(dirty_);
  dirty_ = 0;
  if (ftdc_) ftdc_->reset();
  start_ = buffer_->data();
  cursor_ = start_;
}

bool CVelmarPackage::prepare() {
  length_ = 0;
  std::memset(ftdHeader_, 0, sizeof ftdHeader_);
  return buffer_->size() >= ftdHeaderSize_;
}

bool CVelmarPackage::setHeader(uint8_t ftdType, uint8_t extTag, uint8_t extTagLength, uint32_t tid,
                               uint8_t chain, uint8_t ftdcMark, uint32_t requestId) {
  ftdHeader_[wire::kFtdTypeOffset] = ftdType;
  extTag_ = extTag;
  extTagLength_ = extTagLength;
  if (ftdc_ == nullptr) ftdc_ = new CVelmarFtdcPackage;
  int offset = ftdHeaderSize_ + extHeaderSize_ + extTagLength;
  if (!ftdc_->place(start_ + offset, buffer_->size() - offset)) return false;
  ftdc_->setHeader(tid, chain, ftdcMark, requestId);
  return true;
}

bool CVelmarPackage::addField(uint32_t fieldId, const void* data, uint16_t length) {
  if (ftdc_ == nullptr || !ftdc_->addField(fieldId, data, length)) return false;
  int extent = ftdc_->extentIn(start_);
  if (extent > dirty_) dirty_ = extent;
  return true;
}

bool CVelmarPackage::finish() {
  int ftdcLength = 0;
  if (ftdc_ != nullptr && ftdc_->placed()) ftdcLength = ftdc_->finish();
  int total = ftdHeaderSize_ + extHeaderSize_ + extTagLength_ + ftdcLength;
  if (total > dirty_) dirty_ = total;
  if (total > buffer_->size()) return false;
  ftdHeader_[wire::kExtLengthOffset] = static_cast<uint8_t>(extHeaderSize_ + extTagLength_);
  storeLE<uint16_t>(ftdHeader_ + wire::kFtdcLengthOffset, static_cast<uint16_t>(ftdcLength));
  std::memcpy(start_, ftdHeader_, sizeof ftdHeader_);
  start_[ftdHeaderSize_ + wire::kExtTagOffset] = static_cast<char>(extTag_);
  start_[ftdHeaderSize_ + wire::kExtTagLengthOffset] = static_cast<char>(extTagLength_);
  length_ = total;
  cursor_ = start_ + total;
  return true;
}

void CVelmarPackage::setKeepAlive() {
  extTag_ = wire::kExtTagKeepAlive;
  extTagLength_ = 0;
}
