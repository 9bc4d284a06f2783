// Cached identity of the running thread. The system is asked once per thread;
// afterwards tid() is a thread-local read, cheap enough for every log line
// and every lock of the session mutex.
#pragma once

#include <cstdint>

namespace velmar {
namespace CurrentThread {

extern thread_local int64_t t_lastSecond;
extern thread_local char t_time[32];
extern thread_local uint64_t t_cachedTid;
extern thread_local int t_tidStringLength;
extern thread_local const char* t_threadName;
extern thread_local char t_tidString[32];

void cacheTid();

inline uint64_t tid() {
  if (__builtin_expect(t_cachedTid == 0, 0)) cacheTid();
  return t_cachedTid;
}

/// The id as text, "%5llu": at least five characters, padded on the left.
inline const char* tidString() {
  tid();
  return t_tidString;
}
inline int tidStringLength() {
  tid();
  return t_tidStringLength;
}
inline const char* name() { return t_threadName; }

}  // namespace CurrentThread
}  // namespace velmar
