// Instrument ids as map keys: the text up to the first NUL.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>

namespace velmar {
namespace mdapi {

/// Instrument id text of a feed message: the bytes up to the first NUL, at
/// most `width` of them. Short ids fit the string's own buffer, so building a
/// key on the receiver's path allocates nothing.
inline std::string securityIdKey(const char* id, size_t width = 8) {
  const void* nul = std::memchr(id, 0, width);
  size_t len = nul ? static_cast<size_t>(static_cast<const char*>(nul) - id) : width;
  return std::string(id, len);
}

}  // namespace mdapi
}  // namespace velmar
