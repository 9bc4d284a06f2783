#include "utility/AppendFile.h"

#include <cerrno>
#include <cstring>

namespace velmar {
namespace utility {

FILE* AppendFile::openForAppend(const char* path) {
  return std::fopen(path, "a");
}

AppendFile::AppendFile(const std::string& path, OpenFunc open)
    : fp_(open(path.c_str())), writtenBytes_(0) {}

AppendFile::~AppendFile() {
  if (fp_) std::fclose(fp_);
}

void AppendFile::append(const char* logline, size_t len) {
  writtenBytes_ += static_cast<int64_t>(len);
  if (!fp_) return;
  size_t written = std::fwrite(logline, 1, len, fp_);
  while (written < len) {
    size_t n = std::fwrite(logline + written, 1, len - written, fp_);
    if (n == 0) {
      // ferror only says that the stream failed; errno, taken at once, says
      // why. The remainder of the piece is given up either way: a stream that
      // takes nothing now would take nothing on a further try either.
      int error = errno;
      if (std::ferror(fp_)) {
        std::fprintf(stderr, "AppendFile::append() failed %s\n", std::strerror(error));
      }
      break;
    }
    written += n;
  }
}

void AppendFile::flush() {
  if (fp_) std::fflush(fp_);
}

}  // namespace utility
}  // namespace velmar
