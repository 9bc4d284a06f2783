#include "sim/Replay.h"

#include <cctype>
#include <cstdlib>
#include <limits>

namespace velmar {
namespace sim {

namespace {

const char kHeader[] = "# vlmd feed recording 1";

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

ReplayWriter::ReplayWriter(std::ostream& out) : out_(&out) {
  header();
}

ReplayWriter::ReplayWriter(const std::string& path)
    : file_(new std::ofstream(path, std::ios::out | std::ios::trunc | std::ios::binary)),
      out_(file_.get()) {
  if (*file_) header();
}

void ReplayWriter::header() {
  *out_ << kHeader << "\n# <microseconds since start> <datagram bytes in hex>\n";
}

void ReplayWriter::comment(const std::string& text) {
  std::string t = text;
  for (char& c : t) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  *out_ << "# " << t << '\n';
}

void ReplayWriter::write(int64_t timeUs, const uint8_t* data, size_t length) {
  static const char kDigits[] = "0123456789abcdef";
  std::string line = std::to_string(timeUs);
  line.reserve(line.size() + 2 + 2 * length);
  line += ' ';
  for (size_t i = 0; i < length; ++i) {
    line += kDigits[data[i] >> 4];
    line += kDigits[data[i] & 0xF];
  }
  line += '\n';
  out_->write(line.data(), static_cast<std::streamsize>(line.size()));
}

void ReplayWriter::flush() {
  out_->flush();
}

ReplayReader::ReplayReader(std::istream& in) : in_(&in) {}

ReplayReader::ReplayReader(const std::string& path)
    : file_(new std::ifstream(path, std::ios::in | std::ios::binary)), in_(file_.get()) {
  if (!*file_) error_ = "cannot open " + path;
}

bool ReplayReader::fail(const std::string& what) {
  error_ = "line " + std::to_string(lineNo_) + ": " + what;
  return false;
}

bool ReplayReader::next(Datagram* d) {
  if (!error_.empty()) return false;
  while (std::getline(*in_, line_)) {
    ++lineNo_;
    if (!line_.empty() && line_.back() == '\r') line_.pop_back();  // written on Windows
    if (line_.empty() || line_[0] == '#') continue;

    size_t blank = line_.find(' ');
    if (blank == 0 || blank == std::string::npos) return fail("expected '<time> <hex>'");
    int64_t us = 0;
    for (size_t i = 0; i < blank; ++i) {
      if (!std::isdigit(static_cast<unsigned char>(line_[i])) ||
          us > (std::numeric_limits<int64_t>::max() - 9) / 10) {
        return fail("bad time '" + line_.substr(0, blank) + "'");
      }
      us = us * 10 + (line_[i] - '0');
    }
    if (us < lastUs_) return fail("time goes back");
    size_t digits = line_.size() - blank - 1;
    if (digits == 0 || digits % 2 != 0) return fail("odd or empty hex");
    d->bytes.resize(digits / 2);
    for (size_t i = 0; i < digits / 2; ++i) {
      int hi = hexValue(line_[blank + 1 + 2 * i]);
      int lo = hexValue(line_[blank + 2 + 2 * i]);
      if (hi < 0 || lo < 0) return fail("bad hex digit");
      d->bytes[i] = static_cast<uint8_t>(hi << 4 | lo);
    }
    d->timeUs = lastUs_ = us;
    return true;
  }
  if (in_->bad()) return fail("read error");
  return false;
}

}  // namespace sim
}  // namespace velmar
