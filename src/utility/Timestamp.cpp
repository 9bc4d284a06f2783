#include "utility/Timestamp.h"

#include <cstdio>

#include "utility/Platform.h"

namespace velmar {

Timestamp Timestamp::now() { return Timestamp(platform::nowTicks100ns() / 10); }

std::string Timestamp::toFormattedString(bool showMicroseconds) const {
  char buf[64] = {0};
  time_t seconds = static_cast<time_t>(microSecondsSinceEpoch_ / kMicroSecondsPerSecond);
  struct tm tm_time;
  platform::localTime(seconds, &tm_time);
  if (showMicroseconds) {
    int microseconds = static_cast<int>(microSecondsSinceEpoch_ % kMicroSecondsPerSecond);
    snprintf(buf, sizeof buf, "%4d%02d%02d %02d:%02d:%02d.%06d", tm_time.tm_year + 1900,
             tm_time.tm_mon + 1, tm_time.tm_mday, tm_time.tm_hour, tm_time.tm_min,
             tm_time.tm_sec, microseconds);
  } else {
    snprintf(buf, sizeof buf, "%4d%02d%02d %02d:%02d:%02d", tm_time.tm_year + 1900,
             tm_time.tm_mon + 1, tm_time.tm_mday, tm_time.tm_hour, tm_time.tm_min,
             tm_time.tm_sec);
  }
  return buf;
}

}  // namespace velmar
