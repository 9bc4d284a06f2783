// The CPU time a thread of this process has used, by the system's thread id
// (platform::currentThreadId). Kept apart from Platform.{h,cpp}, as a small
// platform helper of its own: tests and benchmarks use it to show that an
// idle thread really sleeps.
//
// Threads: any thread, about any thread of the process that still runs.
#pragma once

#include <cstdint>

namespace velmar {
namespace platform {

/// Nanoseconds of CPU time (user and system) that the thread has used, or -1
/// if the system does not tell (no such thread, or no way to ask). Linux
/// reads /proc/self/task/<id>/schedstat (nanoseconds), else its stat (clock
/// ticks); Windows asks GetThreadTimes (100 ns units).
int64_t threadCpuTimeNs(uint64_t threadId);

}  // namespace platform
}  // namespace velmar
