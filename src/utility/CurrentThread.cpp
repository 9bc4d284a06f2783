#include "utility/CurrentThread.h"

#include <cstdio>

#include "utility/Platform.h"

namespace velmar {
namespace CurrentThread {

thread_local int64_t t_lastSecond = 0;
thread_local char t_time[32] = {0};
thread_local uint64_t t_cachedTid = 0;
thread_local int t_tidStringLength = 6;
thread_local const char* t_threadName = "unknown";
thread_local char t_tidString[32] = {0};

void cacheTid() {
  if (t_cachedTid == 0) {
    t_cachedTid = platform::currentThreadId();
    t_tidStringLength = snprintf(t_tidString, sizeof t_tidString, "%5llu",
                                 static_cast<unsigned long long>(t_cachedTid));
  }
}

}  // namespace CurrentThread
}  // namespace velmar
