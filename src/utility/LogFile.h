// LogFile: the rolling log file. It starts a new file when the current one has
// taken more than the roll size or a new UTC day has begun, and flushes at an
// interval; both time checks run once in checkEveryN appends, so a busy writer
// doesn't ask the clock for every buffer. At most one new file is started per
// second.
//
// File name: <basename>.<YYYYmmdd-HHMMSS local time>.<host>.<process id>.log
#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>

#include "utility/AppendFile.h"
#include "utility/Mutex.h"

namespace velmar {
namespace utility {

/// What a log file depends on outside itself: the clock (seconds since the
/// epoch), the opening of a file, and the host name (empty when it can't be
/// had). Tests replace them. They are called on a roll or a time check, so in
/// the normal course they cost nothing per line.
struct LogFileHooks {
  static time_t systemNow();
  static std::string systemHostName();

  time_t (*now)() = &systemNow;
  AppendFile::OpenFunc open = &AppendFile::openForAppend;
  std::string (*hostName)() = &systemHostName;
};

class LogFile {
 public:
  using Hooks = LogFileHooks;

  /// Opens the first file at once. With `threadSafe` every operation takes a
  /// lock of its own; the log writer, the only user of its file, builds it
  /// without.
  LogFile(const std::string& basename, int64_t rollSize, bool threadSafe = true,
          int flushInterval = 3, int checkEveryN = 1024, const Hooks& hooks = Hooks());
  ~LogFile();
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  void append(const char* logline, int len);
  void flush();
  /// Starts a new file unless one was started in this second already (then
  /// the current file goes on growing until the next second). True if a new
  /// file is now in use.
  bool rollFile();

  static std::string logFileName(const std::string& basename, time_t now,
                                 const std::string& hostName);

 private:
  void appendUnlocked(const char* logline, int len);
  void flushUnlocked();

  static constexpr int64_t kRollPerSeconds = 60 * 60 * 24;

  const std::string basename_;
  const int64_t rollSize_;
  const int flushInterval_;
  const int checkEveryN_;
  int count_;
  std::unique_ptr<MutexLock> mutex_;
  int64_t startOfPeriod_;  // start of the file's UTC day, seconds
  int64_t lastRoll_;
  int64_t lastFlush_;
  std::unique_ptr<AppendFile> file_;
  const Hooks hooks_;
  bool openFailureReported_;
};

}  // namespace utility
}  // namespace velmar
