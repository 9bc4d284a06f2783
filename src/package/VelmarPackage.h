// Writing packages for the front. A CVelmarPackage owns one preallocated
// block (a CVelmarPackageBuffer) and is reused for every request:
//
//   clear, prepare, setHeader, addField, finish, then data() / length()
//
// Building a package allocates nothing after the first setHeader, which
// creates the FTDC part once.
#pragma once

#include <cstdint>

class CVelmarFieldList;

/// A reference-counted block of bytes that never grows.
class CVelmarPackageBuffer {
 public:
  /// A zeroed block of capacity + 1 bytes, count 1.
  explicit CVelmarPackageBuffer(int capacity);
  virtual ~CVelmarPackageBuffer();
  CVelmarPackageBuffer(const CVelmarPackageBuffer&) = delete;
  CVelmarPackageBuffer& operator=(const CVelmarPackageBuffer&) = delete;

  char* data() { return start_; }
  const char* data() const { return start_; }
  int size() const { return size_; }
  int refCount() const { return refCount_; }

  /// Drops one reference; deletes this buffer when none is left.
  void release();
  /// Zeroes the whole block and restores count 1 and ownership.
  void reset();
  /// The same when only the first `dirty` bytes can be non-zero: zeroes just
  /// those.
  void reset(int dirty);

 private:
  char* start_;
  char* end_;
  int32_t size_;
  int32_t refCount_;
  bool ownsBlock_;
};

/// The fields of one FTDC part: a write cursor over the field area.
class CVelmarFieldList {
 public:
  CVelmarFieldList() = default;

  /// Places the list over an area of the block.
  void place(char* start, int capacity);
  void reset();
  /// Appends header and value. False, changing nothing, if the field would
  /// take the used bytes past the field area (or past the area's room, which
  /// only a package made smaller than a request package can run short of).
  bool add(uint32_t fieldId, const void* data, uint16_t length);

  uint16_t count() const { return count_; }
  int used() const { return used_; }

 private:
  uint16_t count_ = 0;
  int32_t used_ = 0;
  int32_t capacity_ = 0;
  char* start_ = nullptr;
  char* cursor_ = nullptr;
};

/// The FTDC part of a package: its header, held apart until finish, and the
/// fields behind it.
class CVelmarFtdcPackage {
 public:
  CVelmarFtdcPackage();
  virtual ~CVelmarFtdcPackage();
  CVelmarFtdcPackage(const CVelmarFtdcPackage&) = delete;
  CVelmarFtdcPackage& operator=(const CVelmarFtdcPackage&) = delete;

  /// Takes the area [start, start + capacity) of the block. False if it cannot
  /// hold the FTDC header; the part is then not placed.
  bool place(char* start, int capacity);
  /// Unplaced and empty, as after construction.
  void reset();
  bool placed() const { return start_ != nullptr; }
  /// Offset, from the start of the block, of the end of the last field.
  int extentIn(const char* block) const;

  void setHeader(uint32_t tid, uint8_t chain, uint8_t ftdcMark, uint32_t requestId);
  bool addField(uint32_t fieldId, const void* data, uint16_t length);
  /// Stores contentLength and fieldCount, copies the header into the block and
  /// returns the length of the part, header included.
  int finish();
  int length() const { return length_; }

 private:
  CVelmarFieldList* fields_;
  uint8_t* header_;
  int capacity_;
  char* start_;
  char* cursor_;
  int headerSize_;
  int length_;
};

/// One package under construction.
class CVelmarPackage {
 public:
  /// A block of capacity + 1 bytes.
  explicit CVelmarPackage(int capacity);
  virtual ~CVelmarPackage();
  CVelmarPackage(const CVelmarPackage&) = delete;
  CVelmarPackage& operator=(const CVelmarPackage&) = delete;

  /// Zeroes the block, drops the FTDC part's fields, cursor to the start.
  void clear();
  /// Length 0 and a zero FTD header. False if the block cannot hold it.
  bool prepare();
  /// Starts the FTDC part behind 6 + extTagLength bytes. False if the block
  /// has no room for its header.
  bool setHeader(uint8_t ftdType, uint8_t extTag, uint8_t extTagLength, uint32_t tid, uint8_t chain,
                 uint8_t ftdcMark, uint32_t requestId);
  /// Appends one field. False, changing nothing, if it does not fit the field
  /// area or no FTDC part has been started.
  bool addField(uint32_t fieldId, const void* data, uint16_t length);
  /// Writes the headers and fixes the length. False if the package would not
  /// fit the block. A package is finished once: the next one starts with clear.
  bool finish();
  /// Marks the package as a keep-alive: extension tag 4, no tag data.
  void setKeepAlive();

  const char* data() const { return start_; }
  int length() const { return length_; }

 private:
  uint8_t ftdHeader_[4];
  uint8_t extTag_;
  uint8_t extTagLength_;
  CVelmarFtdcPackage* ftdc_;
  CVelmarPackageBuffer* buffer_;
  char* start_;
  char* cursor_;
  int ftdHeaderSize_;
  int length_;
  int extHeaderSize_;
  /// Bytes from the start of the block that may have been written since the
  /// last clear; clear zeroes only these, the rest of the block being zero
  /// still.
  int dirty_;
};
