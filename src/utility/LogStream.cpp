#include "utility/LogStream.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <type_traits>

namespace velmar {
namespace utility {

namespace {
const char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";
const char kDigitsHex[] = "0123456789ABCDEF";

size_t convertHex(char buf[], uintptr_t value) {
  uintptr_t i = value;
  char* p = buf;
  do {
    int lsd = static_cast<int>(i % 16);
    i /= 16;
    *p++ = kDigitsHex[lsd];
  } while (i != 0);
  *p = '\0';
  std::reverse(buf, p);
  return static_cast<size_t>(p - buf);
}
}  // namespace

/// Decimal digits of a magnitude.
template <typename Unsigned>
int digitCount(Unsigned u) {
  int n = 1;
  for (Unsigned bound = 10; u >= bound; bound *= 10) {
    ++n;
    if (n == std::numeric_limits<Unsigned>::digits10 + 1) break;  // bound would overflow
  }
  return n;
}

// Written in place from the end, two digits a step: every line carries a
// 16-digit time in microseconds, and halving the steps is most of the cost of
// a line's numbers.
template <typename T>
size_t convertInteger(char buf[], T value) {
  using Unsigned = typename std::make_unsigned<T>::type;
  // The magnitude in unsigned arithmetic, which also holds the most negative
  // value.
  Unsigned u = value < 0 ? static_cast<Unsigned>(Unsigned(0) - static_cast<Unsigned>(value))
                         : static_cast<Unsigned>(value);
  const size_t length = static_cast<size_t>(digitCount(u)) + (value < 0 ? 1 : 0);
  char* p = buf + length;
  *p = '\0';
  while (u >= 100) {
    const unsigned pair = static_cast<unsigned>(u % 100);
    u /= 100;
    p -= 2;
    p[0] = kDigitPairs[2 * pair];
    p[1] = kDigitPairs[2 * pair + 1];
  }
  if (u >= 10) {
    p -= 2;
    p[0] = kDigitPairs[2 * u];
    p[1] = kDigitPairs[2 * u + 1];
  } else {
    *--p = static_cast<char>('0' + static_cast<unsigned>(u));
  }
  if (value < 0) *--p = '-';
  return length;
}

template size_t convertInteger(char[], int);
template size_t convertInteger(char[], long);
template size_t convertInteger(char[], long long);
template size_t convertInteger(char[], unsigned int);
template size_t convertInteger(char[], unsigned long);
template size_t convertInteger(char[], unsigned long long);

template <typename T>
void LogStream::formatInteger(T v) {
  if (buffer_.avail() >= kMaxNumericSize) {
    size_t len = convertInteger(buffer_.current(), v);
    buffer_.add(len);
  }
}

LogStream& LogStream::operator<<(short v) { return *this << static_cast<int>(v); }
LogStream& LogStream::operator<<(unsigned short v) {
  return *this << static_cast<unsigned int>(v);
}
LogStream& LogStream::operator<<(int v) {
  formatInteger(v);
  return *this;
}
LogStream& LogStream::operator<<(unsigned int v) {
  formatInteger(v);
  return *this;
}
LogStream& LogStream::operator<<(long v) {
  formatInteger(v);
  return *this;
}
LogStream& LogStream::operator<<(unsigned long v) {
  formatInteger(v);
  return *this;
}
LogStream& LogStream::operator<<(long long v) {
  formatInteger(v);
  return *this;
}
LogStream& LogStream::operator<<(unsigned long long v) {
  formatInteger(v);
  return *this;
}

LogStream& LogStream::operator<<(const void* p) {
  if (buffer_.avail() >= kMaxNumericSize) {
    char* buf = buffer_.current();
    buf[0] = '0';
    buf[1] = 'x';
    size_t len = convertHex(buf + 2, reinterpret_cast<uintptr_t>(p));
    buffer_.add(len + 2);
  }
  return *this;
}

LogStream& LogStream::operator<<(double v) {
  if (buffer_.avail() >= kMaxNumericSize) {
    // "%f" of a huge value can be long; format aside and append as one piece.
    char buf[400];
    int len = snprintf(buf, sizeof buf, "%f", v);
    if (len > 0) buffer_.append(buf, std::min(static_cast<size_t>(len), sizeof buf - 1));
  }
  return *this;
}

}  // namespace utility
}  // namespace velmar
