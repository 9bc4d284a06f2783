#include "utility/Logging.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "utility/CurrentThread.h"
#include "utility/Platform.h"

namespace velmar {
namespace utility {

namespace {

const char* const kLevelText[Logger::NUM_LOG_LEVELS] = {
    "TRACE  ", "DEBUG  ", "INFO   ", "WARN   ", "ERR    ", "THROW  ", "FATAL  ",
};

void defaultOutputImpl(const char* msg, int len) {
  fwrite(msg, 1, static_cast<size_t>(len), stdout);
}

void defaultFlushImpl() { fflush(stdout); }

std::atomic<Logger::OutputFunc> g_output{defaultOutputImpl};
std::atomic<Logger::FlushFunc> g_flush{defaultFlushImpl};

}  // namespace

Logger::LogLevel Logger::levelFromEnvironment() {
  if (::getenv("VELMAR_LOG_TRACE")) return TRACE;
  if (::getenv("VELMAR_LOG_DEBUG")) return DEBUG;
  return INFO;
}

// Set by static initialisation, before any other code of the library runs.
std::atomic<int> Logger::g_logLevel{Logger::levelFromEnvironment()};

void appendQualifiedName(LogStream& stream, const char* pretty) {
  const char* paren = std::strchr(pretty, '(');
  if (!paren) {
    stream << pretty;
    return;
  }
  const char* start = paren;
  int depth = 0;
  while (start > pretty) {
    char c = start[-1];
    if (c == '>') {
      ++depth;
    } else if (c == '<') {
      --depth;
    } else if (c == ' ' && depth == 0) {
      break;
    }
    --start;
  }
  stream.append(start, static_cast<int>(paren - start));
}

void Logger::formatTime() {
  int64_t micros = time_.microSecondsSinceEpoch();
  int64_t seconds = micros / Timestamp::kMicroSecondsPerSecond;
  int microseconds = static_cast<int>(micros % Timestamp::kMicroSecondsPerSecond);
  if (seconds != CurrentThread::t_lastSecond) {
    CurrentThread::t_lastSecond = seconds;
    struct tm tm_time;
    platform::localTime(static_cast<time_t>(seconds), &tm_time);
    char text[64];
    snprintf(text, sizeof text, "%4d%02d%02d %02d:%02d:%02d", tm_time.tm_year + 1900,
             tm_time.tm_mon + 1, tm_time.tm_mday, tm_time.tm_hour, tm_time.tm_min, tm_time.tm_sec);
    std::memcpy(CurrentThread::t_time, text, 17);
  }
  stream_.append(CurrentThread::t_time, 17);
  // ".uuuuuuZ " by hand: this runs for every line.
  char us[9] = {'.', '0', '0', '0', '0', '0', '0', 'Z', ' '};
  for (int i = 6, v = microseconds; i >= 1; --i, v /= 10) us[i] = static_cast<char>('0' + v % 10);
  stream_.append(us, 9);
  stream_ << static_cast<long long>(micros) << ' ';
  stream_.append(kLevelText[level_], 7);
  stream_.append(CurrentThread::tidString(), CurrentThread::tidStringLength());
  stream_ << ' ';
}

Logger::Logger(SourceFile file, int line)
    : time_(Timestamp::now()), level_(INFO), line_(line), basename_(file) {
  formatTime();
}

Logger::Logger(SourceFile file, int line, LogLevel level)
    : time_(Timestamp::now()), level_(level), line_(line), basename_(file) {
  formatTime();
}

Logger::Logger(SourceFile file, int line, LogLevel level, const char* func)
    : time_(Timestamp::now()), level_(level), line_(line), basename_(file) {
  formatTime();
  appendQualifiedName(stream_, func);
  stream_ << ' ';
  if (level == THROW) {
    finish();
    const LogStream::Buffer& buf = stream_.buffer();
    g_output.load(std::memory_order_acquire)(buf.data(), buf.length());
    g_flush.load(std::memory_order_acquire)();
    LogStream name;
    appendQualifiedName(name, func);
    fprintf(stderr, "exception:%s\n", name.buffer().data());
    throw std::runtime_error(name.buffer().toString());
  }
}

Logger::Logger(SourceFile file, int line, bool toAbort)
    : time_(Timestamp::now()), level_(toAbort ? FATAL : ERR), line_(line), basename_(file) {
  int savedErrno = errno;
  formatTime();
  if (savedErrno != 0) {
    stream_ << platform::errorText(savedErrno) << " (errno=" << savedErrno << ") ";
  }
}

void Logger::finish() {
  stream_ << " - ";
  stream_.append(basename_.data_, basename_.size_);
  stream_ << ':' << line_ << '\n';
}

Logger::~Logger() noexcept(false) {
  finish();
  const LogStream::Buffer& buf = stream_.buffer();
  g_output.load(std::memory_order_acquire)(buf.data(), buf.length());
  if (level_ == FATAL) {
    g_flush.load(std::memory_order_acquire)();
    fprintf(stderr, "fatal:%s\n", buf.data());
    platform::sleepMs(2000);
    ::abort();
  }
}

void Logger::setLogLevel(LogLevel level) { g_logLevel.store(level, std::memory_order_relaxed); }
void Logger::setOutput(OutputFunc out) { g_output.store(out, std::memory_order_release); }
Logger::OutputFunc Logger::output() { return g_output.load(std::memory_order_acquire); }
void Logger::setFlush(FlushFunc flush) { g_flush.store(flush, std::memory_order_release); }
Logger::OutputFunc Logger::defaultOutput() { return defaultOutputImpl; }

}  // namespace utility
}  // namespace velmar
