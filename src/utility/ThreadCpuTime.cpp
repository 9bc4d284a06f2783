#include "utility/ThreadCpuTime.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <unistd.h>

#include <cstdio>
#include <cstring>
#endif

namespace velmar {
namespace platform {

#ifdef _WIN32

int64_t threadCpuTimeNs(uint64_t threadId) {
  HANDLE thread = ::OpenThread(THREAD_QUERY_LIMITED_INFORMATION, FALSE, static_cast<DWORD>(threadId));
  if (thread == nullptr) return -1;
  FILETIME created, exited, kernel, user;
  const bool ok = ::GetThreadTimes(thread, &created, &exited, &kernel, &user) != 0;
  ::CloseHandle(thread);
  if (!ok) return -1;
  auto ticks = [](const FILETIME& t) {
    return (static_cast<int64_t>(t.dwHighDateTime) << 32) | t.dwLowDateTime;
  };
  return (ticks(kernel) + ticks(user)) * 100;
}

#else

int64_t threadCpuTimeNs(uint64_t threadId) {
  char path[64];
  std::snprintf(path, sizeof path, "/proc/self/task/%llu/schedstat",
                static_cast<unsigned long long>(threadId));
  if (FILE* f = std::fopen(path, "r")) {
    unsigned long long onCpu = 0;
    const int n = std::fscanf(f, "%llu", &onCpu);
    std::fclose(f);
    if (n == 1) return static_cast<int64_t>(onCpu);
  }
  // Without scheduler statistics: utime and stime of stat, in clock ticks.
  // They stand behind the name in parentheses, which may hold blanks.
  std::snprintf(path, sizeof path, "/proc/self/task/%llu/stat",
                static_cast<unsigned long long>(threadId));
  FILE* f = std::fopen(path, "r");
  if (f == nullptr) return -1;
  char line[1024];
  const bool read = std::fgets(line, sizeof line, f) != nullptr;
  std::fclose(f);
  if (!read) return -1;
  const char* rest = std::strrchr(line, ')');
  if (rest == nullptr) return -1;
  unsigned long long utime = 0, stime = 0;
  // Fields 3 to 13 come before utime (14) and stime (15).
  if (std::sscanf(rest + 1, " %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %llu %llu", &utime,
                  &stime) != 2)
    return -1;
  const long hz = ::sysconf(_SC_CLK_TCK);
  if (hz <= 0) return -1;
  return static_cast<int64_t>((utime + stime) * (1000000000ULL / static_cast<unsigned long long>(hz)));
}

#endif

}  // namespace platform
}  // namespace velmar
