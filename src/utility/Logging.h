// Log statements. One statement builds one line on the caller's stack and
// hands it to the process-wide output function (standard output until Init
// installs the background writer). A statement below the level costs one
// integer comparison and evaluates none of its operands.
//
// Line: "YYYYMMDD HH:MM:SS.uuuuuuZ <micros> LEVEL  <tid> [func ]message - file:line\n"
#pragma once

#include <atomic>

#include "utility/LogStream.h"
#include "utility/Timestamp.h"

namespace velmar {
namespace utility {

class Logger {
 public:
  enum LogLevel { TRACE, DEBUG, INFO, WARN, ERR, THROW, FATAL, NUM_LOG_LEVELS };

  /// Base name of a source file: the text behind the last path separator.
  class SourceFile {
   public:
    // Implicit on purpose, from __FILE__. Inline, so that the compiler folds
    // the search over the literal path.
    SourceFile(const char* path) : data_(path) {  // NOLINT
      const char* slash = __builtin_strrchr(path, '/');
      const char* backslash = __builtin_strrchr(path, '\\');
      const char* sep = slash > backslash ? slash : backslash;
      if (sep) data_ = sep + 1;
      size_ = static_cast<int>(__builtin_strlen(data_));
    }
    const char* data_;
    int size_;
  };

  Logger(SourceFile file, int line);
  Logger(SourceFile file, int line, LogLevel level);
  /// With a function name (TRACE, DEBUG, THROW): the qualified name and a blank
  /// come first in the message. THROW writes its line at once and throws
  /// std::runtime_error carrying the function name.
  Logger(SourceFile file, int line, LogLevel level, const char* func);
  /// The errno form: FATAL if toAbort, else ERR; appends the text of errno.
  Logger(SourceFile file, int line, bool toAbort);
  ~Logger() noexcept(false);

  LogStream& stream() { return stream_; }

  using OutputFunc = void (*)(const char* msg, int len);
  using FlushFunc = void (*)();

  static LogLevel logLevel() {
    return static_cast<LogLevel>(g_logLevel.load(std::memory_order_relaxed));
  }
  static void setLogLevel(LogLevel level);
  static void setOutput(OutputFunc out);
  static OutputFunc output();
  static void setFlush(FlushFunc flush);
  static OutputFunc defaultOutput();

  /// The level the environment asks for: TRACE if VELMAR_LOG_TRACE exists,
  /// else DEBUG if VELMAR_LOG_DEBUG exists, else INFO. Only presence counts.
  static LogLevel levelFromEnvironment();

  static std::atomic<int> g_logLevel;

 private:
  void formatTime();
  void finish();

  Timestamp time_;
  LogStream stream_;
  LogLevel level_;
  int line_;
  SourceFile basename_;
};

/// Appends the qualified function name found in a compiler's pretty function
/// text ("void velmar::net::EventLoop::loop()" gives "velmar::net::EventLoop::loop").
void appendQualifiedName(LogStream& stream, const char* prettyFunction);

}  // namespace utility
}  // namespace velmar

#if defined(__GNUC__)
#define VELMAR_FUNCTION __PRETTY_FUNCTION__
#else
#define VELMAR_FUNCTION __FUNCTION__
#endif

#define VELMAR_LOG_IF(cond) \
  if (!(cond)) {            \
  } else

#define LOG_TRACE                                                                        \
  VELMAR_LOG_IF(::velmar::utility::Logger::logLevel() <= ::velmar::utility::Logger::TRACE) \
  ::velmar::utility::Logger(__FILE__, __LINE__, ::velmar::utility::Logger::TRACE, VELMAR_FUNCTION) \
      .stream()
#define LOG_DEBUG                                                                        \
  VELMAR_LOG_IF(::velmar::utility::Logger::logLevel() <= ::velmar::utility::Logger::DEBUG) \
  ::velmar::utility::Logger(__FILE__, __LINE__, ::velmar::utility::Logger::DEBUG, VELMAR_FUNCTION) \
      .stream()
/// A DEBUG line that names an explicit function, for rules that live in
/// helpers but report as the loop that runs them.
#define LOG_DEBUG_AS(func)                                                               \
  VELMAR_LOG_IF(::velmar::utility::Logger::logLevel() <= ::velmar::utility::Logger::DEBUG) \
  ::velmar::utility::Logger(__FILE__, __LINE__, ::velmar::utility::Logger::DEBUG, func).stream()
/// The same, for lines that a helper writes on behalf of another source file:
/// the book rules report as the book thread's loop in MdApiImpl does.
#define LOG_DEBUG_IN(file, func)                                                         \
  VELMAR_LOG_IF(::velmar::utility::Logger::logLevel() <= ::velmar::utility::Logger::DEBUG) \
  ::velmar::utility::Logger(file, __LINE__, ::velmar::utility::Logger::DEBUG, func).stream()
#define LOG_INFO                                                                        \
  VELMAR_LOG_IF(::velmar::utility::Logger::logLevel() <= ::velmar::utility::Logger::INFO) \
  ::velmar::utility::Logger(__FILE__, __LINE__).stream()
#define LOG_WARN                                                                        \
  VELMAR_LOG_IF(::velmar::utility::Logger::logLevel() <= ::velmar::utility::Logger::WARN) \
  ::velmar::utility::Logger(__FILE__, __LINE__, ::velmar::utility::Logger::WARN).stream()
#define LOG_ERROR \
  ::velmar::utility::Logger(__FILE__, __LINE__, ::velmar::utility::Logger::ERR).stream()
#define LOG_FATAL \
  ::velmar::utility::Logger(__FILE__, __LINE__, ::velmar::utility::Logger::FATAL).stream()
#define LOG_SYSERR ::velmar::utility::Logger(__FILE__, __LINE__, false).stream()
#define LOG_SYSFATAL ::velmar::utility::Logger(__FILE__, __LINE__, true).stream()
