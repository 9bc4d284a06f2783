// PrintableBytes: bytes from the network written into a log line so that the
// file stays text. Printable ASCII passes unchanged; any other byte is written
// as \xNN (two upper-case hex digits). Instrument and user ids of well-formed
// messages are printable, so their lines read exactly as before; garbage ids
// no longer put control characters or binary into the file.
//
// Used as `LOG_INFO << PrintableBytes::id(p, 8)`: no allocation, the bytes go
// straight into the line's buffer.
#pragma once

#include <cstddef>
#include <cstring>

#include "utility/LogStream.h"

namespace velmar {
namespace utility {

struct PrintableBytes {
  const char* data;
  size_t size;

  /// An id field of `width` bytes: the bytes up to its first NUL.
  static PrintableBytes id(const char* field, size_t width = 8) {
    const void* nul = std::memchr(field, 0, width);
    return {field, nul ? static_cast<size_t>(static_cast<const char*>(nul) - field) : width};
  }
};

inline LogStream& operator<<(LogStream& stream, PrintableBytes bytes) {
  static const char kHex[] = "0123456789ABCDEF";
  size_t runStart = 0;
  for (size_t i = 0; i < bytes.size; ++i) {
    const unsigned char c = static_cast<unsigned char>(bytes.data[i]);
    if (c >= 0x20 && c < 0x7f) continue;
    stream.append(bytes.data + runStart, static_cast<int>(i - runStart));
    const char escaped[4] = {'\\', 'x', kHex[c >> 4], kHex[c & 0xf]};
    stream.append(escaped, 4);
    runStart = i + 1;
  }
  stream.append(bytes.data + runStart, static_cast<int>(bytes.size - runStart));
  return stream;
}

}  // namespace utility
}  // namespace velmar
