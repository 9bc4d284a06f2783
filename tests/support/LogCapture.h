// Captures log lines while on the stack; restores output and level when it goes.
#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "utility/Logging.h"

namespace velmar {
namespace testing {

class LogCapture {
 public:
  explicit LogCapture(utility::Logger::LogLevel level = utility::Logger::TRACE)
      : previousOutput_(utility::Logger::output()), previousLevel_(utility::Logger::logLevel()) {
    clear();
    utility::Logger::setOutput(&LogCapture::write);
    utility::Logger::setLogLevel(level);
  }
  ~LogCapture() {
    utility::Logger::setOutput(previousOutput_);
    utility::Logger::setLogLevel(previousLevel_);
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  static std::string text() {
    std::lock_guard<std::mutex> lock(mutex());
    return buffer();
  }
  static void clear() {
    std::lock_guard<std::mutex> lock(mutex());
    buffer().clear();
  }
  static bool contains(const std::string& piece) { return text().find(piece) != std::string::npos; }
  /// The message of each line that contains `from`, from there on, without
  /// the " - file:line" tail.
  static std::vector<std::string> messages(const std::string& from) {
    std::vector<std::string> out;
    const std::string all = text();
    for (size_t pos = 0, end; pos < all.size(); pos = end + 1) {
      end = std::min(all.find('\n', pos), all.size());
      const std::string line = all.substr(pos, end - pos);
      const size_t start = line.find(from);
      if (start == std::string::npos) continue;
      const size_t tail = line.rfind(" - ");
      out.push_back(
          line.substr(start, tail == std::string::npos ? std::string::npos : tail - start));
    }
    return out;
  }

 private:
  static void write(const char* msg, int len) {
    std::lock_guard<std::mutex> lock(mutex());
    buffer().append(msg, static_cast<size_t>(len));
  }
  static std::mutex& mutex() {
    static std::mutex m;
    return m;
  }
  static std::string& buffer() {
    static std::string b;
    return b;
  }

  utility::Logger::OutputFunc previousOutput_;
  utility::Logger::LogLevel previousLevel_;
};

}  // namespace testing
}  // namespace velmar
