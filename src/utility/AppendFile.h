// AppendFile: one log file, opened for appending and written through the C
// runtime's buffered stream. Only the log writer uses it, so it has no lock.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace velmar {
namespace utility {

class AppendFile {
 public:
  /// Opens the file at `path`; returns the stream or null. The default is
  /// fopen(path, "a"); tests put in other streams (a read-only one, a missing
  /// folder).
  using OpenFunc = FILE* (*)(const char* path);
  static FILE* openForAppend(const char* path);

  /// The size starts at 0 even if the file already held something: it counts
  /// what this object has written.
  explicit AppendFile(const std::string& path, OpenFunc open = &openForAppend);
  ~AppendFile();
  AppendFile(const AppendFile&) = delete;
  AppendFile& operator=(const AppendFile&) = delete;

  /// Writes the whole piece, retrying the remainder of a short write. A write
  /// that fails is reported on the standard error and the rest of the piece is
  /// lost; the size grows by the full length in every case, so the roll by
  /// size goes on working.
  void append(const char* logline, size_t len);
  void flush();
  int64_t writtenBytes() const { return writtenBytes_; }

  /// False if the file could not be opened. Such an object takes appends and
  /// flushes and drops them: a log file must never harm the program that logs.
  bool isOpen() const { return fp_ != nullptr; }

 private:
  FILE* fp_;
  int64_t writtenBytes_;
};

}  // namespace utility
}  // namespace velmar
