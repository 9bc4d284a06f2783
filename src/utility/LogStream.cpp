#include "utility/LogStream.h"

#include <algorithm>
#include <cstdio>
#include <type_traits>

namespace velmar {
namespace utility {

namespace {
const char kDigits[] = "9876543210123456789";
const char* const kZero = kDigits + 9;
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

template <typename T>
size_t convertInteger(char buf[], T value) {
  T i = value;
  char* p = buf;
  do {
    int lsd = static_cast<int>(i % 10);
    i /= 10;
    *p++ = kZero[lsd];
  } while (i != 0);
  if (value < 0) *p++ = '-';
  *p = '\0';
  std::reverse(buf, p);
  return static_cast<size_t>(p - buf);
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
