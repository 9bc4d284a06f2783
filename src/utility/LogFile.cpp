#include "utility/LogFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "utility/Platform.h"

namespace velmar {
namespace utility {

namespace {

// The optional lock of a thread-safe LogFile.
class OptionalLock {
 public:
  explicit OptionalLock(MutexLock* mutex) : mutex_(mutex) {
    if (mutex_) mutex_->lock();
  }
  ~OptionalLock() {
    if (mutex_) mutex_->unlock();
  }
  OptionalLock(const OptionalLock&) = delete;
  OptionalLock& operator=(const OptionalLock&) = delete;

 private:
  MutexLock* mutex_;
};

}  // namespace

time_t LogFileHooks::systemNow() {
  return ::time(nullptr);
}

std::string LogFileHooks::systemHostName() {
  return platform::hostName();
}

std::string LogFile::logFileName(const std::string& basename, time_t now,
                                 const std::string& hostName) {
  std::string filename;
  filename.reserve(basename.size() + hostName.size() + 64);
  filename = basename;

  char timebuf[32];
  struct tm tm;
  platform::localTime(now, &tm);
  std::strftime(timebuf, sizeof timebuf, ".%Y%m%d-%H%M%S.", &tm);
  filename += timebuf;

  // An empty host name leaves two dots side by side before the process id.
  filename += hostName;

  char pidbuf[32];
  std::snprintf(pidbuf, sizeof pidbuf, ".%lld", static_cast<long long>(platform::processId()));
  filename += pidbuf;
  filename += ".log";
  return filename;
}

LogFile::LogFile(const std::string& basename, int64_t rollSize, bool threadSafe, int flushInterval,
                 int checkEveryN, const Hooks& hooks)
    : basename_(basename),
      rollSize_(rollSize),
      flushInterval_(flushInterval),
      checkEveryN_(checkEveryN),
      count_(0),
      mutex_(threadSafe ? new MutexLock : nullptr),
      startOfPeriod_(0),
      lastRoll_(0),
      lastFlush_(0),
      hooks_(hooks),
      openFailureReported_(false) {
  rollFile();
  // Only a clock that stands before 1970 leaves the first roll undone; the
  // file object must exist all the same.
  if (!file_) file_.reset(new AppendFile(logFileName(basename_, hooks_.now(), ""), hooks_.open));
}

LogFile::~LogFile() = default;

void LogFile::append(const char* logline, int len) {
  OptionalLock lock(mutex_.get());
  appendUnlocked(logline, len);
}

void LogFile::flush() {
  OptionalLock lock(mutex_.get());
  flushUnlocked();
}

void LogFile::appendUnlocked(const char* logline, int len) {
  file_->append(logline, static_cast<size_t>(len));

  if (file_->writtenBytes() > rollSize_) {
    rollFile();
    return;
  }
  if (++count_ < checkEveryN_) return;

  count_ = 0;
  int64_t now = hooks_.now();
  // The day of a file is the UTC day.
  int64_t thisPeriod = now / kRollPerSeconds * kRollPerSeconds;
  if (thisPeriod != startOfPeriod_) {
    rollFile();
  } else if (now - lastFlush_ > flushInterval_) {
    lastFlush_ = now;
    file_->flush();
  }
}

void LogFile::flushUnlocked() {
  // A file that could not be opened (its folder missing, say) is tried again
  // here, at most once a second: the writer flushes after every pass, so the
  // log resumes soon after the folder appears.
  if (!file_->isOpen()) rollFile();
  file_->flush();
}

bool LogFile::rollFile() {
  int64_t now = hooks_.now();
  if (now <= lastRoll_) return false;

  std::string filename = logFileName(basename_, static_cast<time_t>(now), hooks_.hostName());
  lastRoll_ = now;
  lastFlush_ = now;
  startOfPeriod_ = now / kRollPerSeconds * kRollPerSeconds;

  std::unique_ptr<AppendFile> next(new AppendFile(filename, hooks_.open));
  if (next->isOpen()) {
    openFailureReported_ = false;
    file_ = std::move(next);  // the old file is closed after the new one is open
    return true;
  }
  // A file that can't be opened must not harm the program that logs. The
  // failure is reported once until a file opens again, so that the retries
  // don't flood the standard error. A file that is still open goes on taking
  // the lines; otherwise they are dropped until a later roll or flush opens
  // one.
  int error = errno;
  if (!openFailureReported_) {
    openFailureReported_ = true;
    std::fprintf(stderr, "LogFile::rollFile() cannot open %s: %s\n", filename.c_str(),
                 std::strerror(error));
  }
  if (!file_) file_ = std::move(next);
  return false;
}

}  // namespace utility
}  // namespace velmar
