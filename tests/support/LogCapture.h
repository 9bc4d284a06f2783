// Captures log lines for the duration of a test. Install one on the stack; it
// restores the previous output and level when it goes.
#pragma once

#include <mutex>
#include <string>

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
