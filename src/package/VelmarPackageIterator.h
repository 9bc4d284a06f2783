// Reading packages from the front, in place in the connection's input Buffer.
//
//   while (CVelmarPackageIterator::Check(buffer)) {
//     CVelmarPackageIterator it(buffer);       // consumes the package
//     for (; !it.isEnd(); it.next()) { ... it.fieldId(), it.getFieldValue(...) }
//     buffer->moveReadableToFront();
//   }
//
// The iterator keeps pointers into the Buffer's block after it has moved the
// Buffer's indexes past the package: nothing may write to the Buffer while an
// iterator is alive.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velmar {
namespace net {
class Buffer;
}
}  // namespace velmar

class CVelmarPackageIteratorBase {
 public:
  /// Parses the headers of the package at the Buffer's reader position and
  /// moves to its first field. The Buffer must have passed Check.
  explicit CVelmarPackageIteratorBase(velmar::net::Buffer* buffer);
  virtual ~CVelmarPackageIteratorBase();
  CVelmarPackageIteratorBase(const CVelmarPackageIteratorBase&) = delete;
  CVelmarPackageIteratorBase& operator=(const CVelmarPackageIteratorBase&) = delete;

  /// Whether the front of the Buffer holds one whole, valid package. A framing
  /// error drops everything buffered (both indexes back to 8) and says no;
  /// the stream is taken up again with the next bytes that arrive.
  static bool Check(velmar::net::Buffer* buffer);

  virtual void begin();
  /// Moves to the next field; isEnd() when there is none, or when the next
  /// field's stated length runs past the package.
  virtual void next();
  virtual bool isEnd() const { return value_ == nullptr; }
  // The read operations copy header bytes at the cursor and do not move it.
  virtual void readFtdHeader();
  virtual void readExtHeader();
  virtual void readFtdcHeader();
  virtual void readFieldHeader();
  virtual void readExtData();
  /// Bytes from the cursor to the end of the package.
  virtual int remaining() const;

  uint32_t getFtdHeader() const;
  uint16_t getExtHeader() const;
  const uint8_t* getFtdcHeader() const { return ftdcHeader_; }
  const uint8_t* getFieldHeader() const { return fieldHeader_; }
  /// Copies the current value into dest, at most destSize bytes of it, and
  /// returns the number copied; 0 if there is no current field. The length on
  /// the wire is the front's word: a value longer than the record it is read
  /// into is cut at the record's size rather than written past it, and a
  /// shorter one leaves the rest of dest as it was.
  size_t getFieldValue(void* dest, size_t destSize) const;

  // Decoded header values.
  uint8_t ftdType() const { return ftdHeader_[0]; }
  uint8_t extLength() const { return ftdHeader_[1]; }
  uint16_t ftdcLength() const;
  uint8_t extTag() const { return extHeader_[0]; }
  uint8_t extTagLength() const { return extHeader_[1]; }
  /// Non-zero marks the last package of an answer.
  uint8_t chain() const;
  uint16_t fieldCount() const;
  uint32_t tid() const;
  uint32_t requestId() const;
  /// The current field's header values and value (null when isEnd()).
  uint16_t fieldLength() const;
  uint32_t fieldId() const;
  const char* fieldValue() const { return value_; }
  /// A keep-alive: no FTDC part and extension tag 4. Other tags carry no
  /// meaning for this library and are read past.
  bool isKeepAlive() const;

 protected:
  velmar::net::Buffer* buffer_;
  uint8_t ftdHeader_[4];
  uint8_t extHeader_[2];
  uint8_t ftdcHeader_[20];
  uint8_t fieldHeader_[8];
  const char* end_;
  const char* cursor_;
  const char* value_;

 private:
  int left() const { return static_cast<int>(end_ - cursor_); }
};

class CVelmarPackageIterator final : public CVelmarPackageIteratorBase {
 public:
  explicit CVelmarPackageIterator(velmar::net::Buffer* buffer)
      : CVelmarPackageIteratorBase(buffer) {}
};
