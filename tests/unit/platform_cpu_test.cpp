// The CPUs a thread may be pinned to: the count the options check against,
// and the pinning the receiver and book threads use.
#include <gtest/gtest.h>

#include <thread>

#include "utility/Platform.h"

#if !defined(_WIN32)
#include <sched.h>
#endif

using velmar::platform::cpuCount;
using velmar::platform::pinCurrentThread;

TEST(PlatformCpu, PinsOnlyToCpusThatExist) {
  ASSERT_GE(cpuCount(), 1);
  // On a thread of its own: a pinned thread stays pinned.
  std::thread([] {
    for (int cpu : {-1, cpuCount(), 1 << 20}) EXPECT_FALSE(pinCurrentThread(cpu)) << cpu;
    int last = cpuCount() - 1;
#if !defined(_WIN32)
    // A container may allow fewer CPUs than the machine has online.
    cpu_set_t set;
    ASSERT_EQ(sched_getaffinity(0, sizeof set, &set), 0);
    while (last > 0 && !CPU_ISSET(last, &set)) --last;
#endif
    ASSERT_TRUE(pinCurrentThread(last));
#if !defined(_WIN32)
    ASSERT_EQ(sched_getaffinity(0, sizeof set, &set), 0);
    EXPECT_EQ(CPU_COUNT(&set), 1);
    EXPECT_TRUE(CPU_ISSET(last, &set));
    EXPECT_EQ(sched_getcpu(), last);
#endif
  }).join();
}
