// Recorded feed sessions as text, one datagram per line:
//
//   # vlmd feed recording 1
//   0 c90c0000...
//   1250 a0940400...
//
// A line holds the microseconds since the start of the session in decimal,
// one blank, and the datagram's bytes as hex digits, two per byte, without
// separators (either case is read). Lines that start with '#' and empty
// lines are comments. Times never go back. Text keeps recordings readable
// with grep and diff, and a player can pace them by the times.
#pragma once

#include <cstdint>
#include <fstream>
#include <istream>
#include <memory>
#include <ostream>
#include <string>

#include "sim/Datagram.h"

namespace velmar {
namespace sim {

class ReplayWriter {
 public:
  /// Writes to `out`, which must outlive the writer.
  explicit ReplayWriter(std::ostream& out);
  /// Creates (or truncates) the file; ok() tells whether that worked.
  explicit ReplayWriter(const std::string& path);

  bool ok() const { return out_ != nullptr && out_->good(); }
  /// A comment line; newlines in the text are replaced by blanks.
  void comment(const std::string& text);
  void write(int64_t timeUs, const uint8_t* data, size_t length);
  void write(const Datagram& d) { write(d.timeUs, d.bytes.data(), d.bytes.size()); }
  void flush();

 private:
  void header();

  std::unique_ptr<std::ofstream> file_;
  std::ostream* out_;
};

class ReplayReader {
 public:
  /// Reads from `in`, which must outlive the reader.
  explicit ReplayReader(std::istream& in);
  /// Opens the file; a failure shows in error().
  explicit ReplayReader(const std::string& path);

  /// The next datagram; false at the end or on an error. A malformed line,
  /// a time below the one before and a failed open are errors.
  bool next(Datagram* d);
  /// Empty unless next() stopped on an error: what went wrong, and where.
  const std::string& error() const { return error_; }

 private:
  bool fail(const std::string& what);

  std::unique_ptr<std::ifstream> file_;
  std::istream* in_;
  std::string line_;
  std::string error_;
  int64_t lineNo_ = 0;
  int64_t lastUs_ = 0;
};

}  // namespace sim
}  // namespace velmar
