// Packages built by the writer from arbitrary fields read back the same
// through the framing check and the iterator; a field the writer refuses
// changes nothing.
//
// Input: repeated [length u16][id u8][value bytes], then the package is
// checked. The length is taken modulo 4200, so that fields near and over the
// limit of the field area come up often.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "VLNet/Buffer.h"
#include "package/VelmarPackage.h"
#include "package/VelmarPackageIterator.h"
#include "package/WireFormat.h"

namespace {

void require(bool ok) {
  if (!ok) __builtin_trap();
}

struct Field {
  uint32_t id;
  const uint8_t* value;
  uint16_t length;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static CVelmarPackage package(velmar::mdapi::wire::kRequestCapacity);
  static std::vector<uint8_t> filler(8192, 0xA5);
  if (size < 1) return 0;
  uint32_t requestId = data[0];
  ++data;
  --size;

  package.clear();
  require(package.prepare());
  require(package.setHeader(1, 0, 0, 7, 0x53, 0x48, requestId));
  std::vector<Field> accepted;
  int used = 0;
  while (size >= 3) {
    uint16_t length = static_cast<uint16_t>((data[0] | data[1] << 8) % 4200);
    uint32_t id = data[2];
    data += 3;
    size -= 3;
    // Value bytes from the input while they last, then filler.
    const uint8_t* value = length <= size ? data : filler.data();
    bool fits = used + 8 + length <= velmar::mdapi::wire::kFieldAreaSize;
    bool added = package.addField(id, value, length);
    require(added == fits);
    if (added) {
      accepted.push_back({id, value, length});
      used += 8 + length;
    }
    if (length <= size) {
      data += length;
      size -= length;
    }
  }
  require(package.finish());
  require(package.length() == 26 + used);

  velmar::net::Buffer buffer(16);
  buffer.append(package.data(), static_cast<size_t>(package.length()));
  require(CVelmarPackageIterator::Check(&buffer));
  CVelmarPackageIterator it(&buffer);
  require(buffer.readableBytes() == 0);
  require(it.requestId() == requestId && it.chain() == 0x53 && it.tid() == 7);
  require(it.fieldCount() == accepted.size());
  for (const Field& f : accepted) {
    require(!it.isEnd());
    require(it.fieldId() == f.id && it.fieldLength() == f.length);
    require(f.length == 0 || std::memcmp(it.fieldValue(), f.value, f.length) == 0);
    it.next();
  }
  require(it.isEnd());
  return 0;
}
