// The book thread's options through a real Init: book.cpu pins the thread,
// as the system reports it, and with book.idle=block the idle thread uses
// (next to) no CPU. The front is unreachable and the group silent, so the
// book thread never gets a node.
#include <gtest/gtest.h>

#ifndef _WIN32
#include <sched.h>
#endif

#include <chrono>
#include <thread>

#include "VLClientApi/MdApiImpl.h"
#include "support/TestAccess.h"
#include "utility/ThreadCpuTime.h"

namespace {

using velmar::mdapi::MdApiImpl;
using velmar::mdapi::TestAccess;

TEST(BookThreadOptions, PinnedAndAsleep) {
#ifdef _WIN32
  GTEST_SKIP() << "the affinity of another thread is read through /proc and sched_getaffinity";
#else
  // The CPU: the highest one the process may use, so that the pinned set
  // differs from the inherited one wherever there are two CPUs or more.
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  ASSERT_EQ(0, sched_getaffinity(0, sizeof allowed, &allowed));
  int cpu = -1;
  for (int i = 0; i < CPU_SETSIZE && i < velmar::platform::cpuCount(); ++i)
    if (CPU_ISSET(i, &allowed)) cpu = i;
  ASSERT_GE(cpu, 0);

  velmar::mdapi::VelmarMdSpi spi;
  auto* api = static_cast<MdApiImpl*>(velmar::mdapi::VelmarMdApi::CreateMdUserApi(""));
  api->RegisterSpi(&spi);
  api->RegisterFront("tcp://127.0.0.1:1");
  api->RegisterMulticast("udp://239.255.42.17:30117");
  api->RegisterMulticastInterface("127.0.0.1");
  ASSERT_EQ(0, api->SetOption("book.cpu", std::to_string(cpu).c_str()));
  ASSERT_EQ(0, api->SetOption("book.idle", "block"));
  ASSERT_EQ(0, api->Init());

  velmar::mdapi::OrderBooks& books = TestAccess::books(*api);
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (TestAccess::bookThreadId(books) == 0 && std::chrono::steady_clock::now() < until)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  const uint64_t tid = TestAccess::bookThreadId(books);
  ASSERT_NE(0u, tid);

  cpu_set_t set;
  CPU_ZERO(&set);
  ASSERT_EQ(0, sched_getaffinity(static_cast<pid_t>(tid), sizeof set, &set));
  EXPECT_EQ(1, CPU_COUNT(&set));
  EXPECT_TRUE(CPU_ISSET(cpu, &set));

  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  const int64_t before = velmar::platform::threadCpuTimeNs(tid);
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  const int64_t after = velmar::platform::threadCpuTimeNs(tid);
  ASSERT_GE(before, 0);
  EXPECT_LT(after - before, 30000000) << "ns of CPU over 1.5 s without traffic";
  // No Release: the session ends with the process, its threads still running.
#endif
}

}  // namespace
