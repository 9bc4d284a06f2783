// Explicit little-endian, unaligned loads and stores for wire bytes. Wire data
// is never read by casting to a structure: offsets in the feed are odd, and a
// compiler may assume alignment for a structure pointer.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace velmar {
namespace utility {

template <typename T>
inline T loadLE(const void* p) {
  static_assert(std::is_integral<T>::value, "integers only");
  T v;
  std::memcpy(&v, p, sizeof v);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  using U = typename std::make_unsigned<T>::type;
  U u = static_cast<U>(v), r = 0;
  for (size_t i = 0; i < sizeof(T); ++i) r = static_cast<U>((r << 8) | ((u >> (8 * i)) & 0xFF));
  v = static_cast<T>(r);
#endif
  return v;
}

template <typename T>
inline T loadLE(const void* base, size_t offset) {
  return loadLE<T>(static_cast<const char*>(base) + offset);
}

template <typename T>
inline void storeLE(void* p, T v) {
  static_assert(std::is_integral<T>::value, "integers only");
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  using U = typename std::make_unsigned<T>::type;
  U u = static_cast<U>(v), r = 0;
  for (size_t i = 0; i < sizeof(T); ++i) r = static_cast<U>((r << 8) | ((u >> (8 * i)) & 0xFF));
  v = static_cast<T>(r);
#endif
  std::memcpy(p, &v, sizeof v);
}

}  // namespace utility
}  // namespace velmar
