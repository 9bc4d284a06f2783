// Front packages written byte by byte, for tests. Offsets and sizes here are
// literals of the wire format, independent of the library's own constants,
// so that a wrong constant in the library shows up as a failing test.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace velmar {
namespace test {

using Bytes = std::vector<uint8_t>;

inline void put16(Bytes* b, uint32_t v) {
  b->push_back(static_cast<uint8_t>(v & 0xFF));
  b->push_back(static_cast<uint8_t>((v >> 8) & 0xFF));
}

inline void put32(Bytes* b, uint32_t v) {
  put16(b, v & 0xFFFF);
  put16(b, v >> 16);
}

struct WireField {
  uint32_t id;
  std::string value;
  int statedLength = -1;  ///< the fieldLength to write, if not the value's size
};

/// FTDC header (20 bytes) and fields.
inline Bytes ftdcPart(const std::vector<WireField>& fields, uint8_t chain, uint32_t requestId,
                      uint32_t tid) {
  Bytes content;
  for (const WireField& f : fields) {
    put16(&content, f.statedLength >= 0 ? static_cast<uint32_t>(f.statedLength)
                                        : static_cast<uint32_t>(f.value.size()));
    put16(&content, 0);
    put32(&content, f.id);
    content.insert(content.end(), f.value.begin(), f.value.end());
  }
  Bytes b;
  b.push_back(0x48);
  b.push_back(chain);
  put16(&b, static_cast<uint32_t>(fields.size()));
  put16(&b, static_cast<uint32_t>(content.size()));
  put16(&b, 0);
  put32(&b, tid);
  put32(&b, 0);
  put32(&b, requestId);
  b.insert(b.end(), content.begin(), content.end());
  return b;
}

/// FTD header (4 bytes), extension header (2 bytes, tag 0) and the FTDC part.
/// ftdcLength is the part's size unless given.
inline Bytes package(const std::vector<WireField>& fields, uint8_t chain = 0x53,
                     uint32_t requestId = 0, uint8_t ftdType = 1, int ftdcLength = -1) {
  Bytes ftdc = ftdcPart(fields, chain, requestId, fields.empty() ? 0 : fields[0].id);
  Bytes b;
  b.push_back(ftdType);
  b.push_back(2);
  put16(&b,
        ftdcLength >= 0 ? static_cast<uint32_t>(ftdcLength) : static_cast<uint32_t>(ftdc.size()));
  b.push_back(0);
  b.push_back(0);
  b.insert(b.end(), ftdc.begin(), ftdc.end());
  return b;
}

inline Bytes keepAlive() {
  return Bytes{0x00, 0x02, 0x00, 0x00, 0x04, 0x00};
}

inline Bytes concat(std::initializer_list<Bytes> parts) {
  Bytes b;
  for (const Bytes& p : parts) b.insert(b.end(), p.begin(), p.end());
  return b;
}

}  // namespace test
}  // namespace velmar
