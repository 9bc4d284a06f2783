// Feed datagrams for the snapshot tests and benchmarks, in a heap buffer of
// exactly the receive size (a sanitizer catches reads behind it), prefilled
// with a garbage byte. Fields go little-endian at literal offsets: Shanghai's
// from the datagram's start, Shenzhen's from the body behind the type.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <stdexcept>
#include <vector>

namespace velmar {
namespace test_support {

class FeedDatagram {
 public:
  static constexpr size_t kBufferSize = 5000;

  static FeedDatagram shanghai(uint32_t type, uint8_t fill = 0xA5) {
    return FeedDatagram(type, 0, fill);
  }
  static FeedDatagram shenzhen(uint32_t type, uint8_t fill = 0xA5) {
    return FeedDatagram(type, 4, fill);
  }

  FeedDatagram& u8(size_t offset, uint8_t v) { return put(offset, v, 1); }
  FeedDatagram& u16(size_t offset, uint16_t v) { return put(offset, v, 2); }
  FeedDatagram& u32(size_t offset, uint32_t v) { return put(offset, v, 4); }
  FeedDatagram& u64(size_t offset, uint64_t v) { return put(offset, v, 8); }
  FeedDatagram& i64(size_t offset, int64_t v) { return put(offset, static_cast<uint64_t>(v), 8); }
  /// Consecutive fields of one width, from `offset` on.
  FeedDatagram& u32s(size_t offset, std::initializer_list<uint32_t> vs) {
    for (uint32_t v : vs) put(offset, v, 4), offset += 4;
    return *this;
  }
  FeedDatagram& u64s(size_t offset, std::initializer_list<uint64_t> vs) {
    for (uint64_t v : vs) put(offset, v, 8), offset += 8;
    return *this;
  }
  /// `width` bytes: the text, then NULs up to the width.
  FeedDatagram& text(size_t offset, const char* s, size_t width) {
    const size_t len = std::strlen(s);
    if (len > width) throw std::out_of_range("text wider than its field");
    for (size_t i = 0; i < width; ++i) at(offset + i) = i < len ? s[i] : '\0';
    return *this;
  }
  /// The 8-byte instrument code; `tail` (if not 0) as its last byte, behind
  /// the NUL: not part of the key, but copied into records.
  FeedDatagram& securityId(size_t offset, const char* id, char tail = 0) {
    text(offset, id, 8);
    if (tail) at(offset + 7) = tail;
    return *this;
  }

  const char* data() const { return bytes_.data(); }
  char* data() { return bytes_.data(); }
  /// Offset of a field in the datagram, for direct patching in benchmarks.
  size_t datagramOffset(size_t offset) const { return base_ + offset; }

 private:
  FeedDatagram(uint32_t type, size_t base, uint8_t fill)
      : bytes_(kBufferSize, static_cast<char>(fill)), base_(0) {
    put(0, type, 4);
    base_ = base;
  }

  char& at(size_t offset) {
    if (base_ + offset >= bytes_.size()) throw std::out_of_range("outside the datagram buffer");
    return bytes_[base_ + offset];
  }
  FeedDatagram& put(size_t offset, uint64_t v, size_t width) {
    for (size_t i = 0; i < width; ++i) at(offset + i) = static_cast<char>((v >> (8 * i)) & 0xFF);
    return *this;
  }

  std::vector<char> bytes_;
  size_t base_;
};

}  // namespace test_support
}  // namespace velmar
