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

/// Little-endian, `size` bytes.
inline void put(Bytes* b, uint32_t v, int size) {
  for (int i = 0; i < size; ++i) b->push_back(static_cast<uint8_t>(v >> (8 * i)));
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
    const int length = f.statedLength >= 0 ? f.statedLength : static_cast<int>(f.value.size());
    put(&content, static_cast<uint32_t>(length), 2);
    put(&content, 0, 2);
    put(&content, f.id, 4);
    content.insert(content.end(), f.value.begin(), f.value.end());
  }
  Bytes b = {0x48, chain};
  put(&b, static_cast<uint32_t>(fields.size()), 2);
  put(&b, static_cast<uint32_t>(content.size()), 2);
  put(&b, 0, 2);
  put(&b, tid, 4);
  put(&b, 0, 4);
  put(&b, requestId, 4);
  b.insert(b.end(), content.begin(), content.end());
  return b;
}

/// FTD header (4 bytes), extension header (2 bytes, tag 0) and the FTDC part.
/// ftdcLength is the part's size unless given.
inline Bytes package(const std::vector<WireField>& fields, uint8_t chain = 0x53,
                     uint32_t requestId = 0, uint8_t ftdType = 1, int ftdcLength = -1) {
  Bytes ftdc = ftdcPart(fields, chain, requestId, fields.empty() ? 0 : fields[0].id);
  Bytes b = {ftdType, 2};
  put(&b, static_cast<uint32_t>(ftdcLength >= 0 ? ftdcLength : static_cast<int>(ftdc.size())), 2);
  put(&b, 0, 2);
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
