// LogStream: the line buffer of one log statement. It lives on the caller's
// stack, never allocates, and formats numbers by hand.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace velmar {
namespace utility {

constexpr size_t kSmallBuffer = 4000;
constexpr size_t kLargeBuffer = 4000 * 1000;

/// A byte buffer of fixed capacity. append copies a piece only if it fits with
/// one byte to spare, and otherwise drops the whole piece without a mark. The
/// spare byte holds a NUL, so the text is always NUL-terminated without
/// zero-filling the whole buffer for every log statement.
template <size_t SIZE>
class FixedBuffer {
 public:
  FixedBuffer() : cur_(data_) { data_[0] = '\0'; }
  FixedBuffer(const FixedBuffer&) = delete;
  FixedBuffer& operator=(const FixedBuffer&) = delete;

  void append(const char* buf, size_t len) {
    if (static_cast<size_t>(avail()) > len) {
      std::memcpy(cur_, buf, len);
      cur_ += len;
      *cur_ = '\0';
    }
  }
  const char* data() const { return data_; }
  int length() const { return static_cast<int>(cur_ - data_); }
  char* current() { return cur_; }
  int avail() const { return static_cast<int>(end() - cur_); }
  void add(size_t len) {
    cur_ += len;
    *cur_ = '\0';
  }
  void reset() {
    cur_ = data_;
    *cur_ = '\0';
  }
  void bzero() { std::memset(data_, 0, sizeof data_); }
  std::string toString() const { return std::string(data_, static_cast<size_t>(length())); }

 private:
  const char* end() const { return data_ + sizeof data_; }
  char data_[SIZE];
  char* cur_;
};

class LogStream {
 public:
  using Buffer = FixedBuffer<kSmallBuffer>;
  /// Numbers are written only if this many bytes are free.
  static constexpr int kMaxNumericSize = 32;

  LogStream() = default;

  LogStream& operator<<(bool v) {
    buffer_.append(v ? "1" : "0", 1);
    return *this;
  }
  LogStream& operator<<(short);
  LogStream& operator<<(unsigned short);
  LogStream& operator<<(int);
  LogStream& operator<<(unsigned int);
  LogStream& operator<<(long);
  LogStream& operator<<(unsigned long);
  LogStream& operator<<(long long);
  LogStream& operator<<(unsigned long long);
  LogStream& operator<<(const void*);
  /// "%f": six decimals, as prices appear in the log.
  LogStream& operator<<(double);
  LogStream& operator<<(char v) {
    buffer_.append(&v, 1);
    return *this;
  }
  LogStream& operator<<(const char* str) {
    if (str)
      buffer_.append(str, std::strlen(str));
    else
      buffer_.append("(null)", 6);
    return *this;
  }
  LogStream& operator<<(const unsigned char* str) {
    return operator<<(reinterpret_cast<const char*>(str));
  }
  LogStream& operator<<(std::string_view v) {
    buffer_.append(v.data(), v.size());
    return *this;
  }
  LogStream& operator<<(const std::string& v) {
    buffer_.append(v.data(), v.size());
    return *this;
  }

  void append(const char* data, int len) { buffer_.append(data, static_cast<size_t>(len)); }
  const Buffer& buffer() const { return buffer_; }
  void resetBuffer() { buffer_.reset(); }

 private:
  template <typename T>
  void formatInteger(T);

  Buffer buffer_;
};

/// Writes the decimal text of v into buf (which needs 21 bytes); returns its
/// length. Digits come from the table "9876543210123456789" indexed from its
/// middle, so the most negative value needs no special case.
template <typename T>
size_t convertInteger(char buf[], T value);

}  // namespace utility
}  // namespace velmar
