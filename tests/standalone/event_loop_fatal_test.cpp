// A loop used from a thread that does not own it ends the process with a
// FATAL line naming both threads. Its own process: the FATAL path sleeps
// before it aborts.
#include <gtest/gtest.h>

#include <thread>

#include "VLNet/EventLoop.h"

TEST(EventLoopDeathTest, WrongThreadIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        velmar::net::EventLoop loop;
        std::thread([&] { loop.assertInLoopThread(); }).join();
      },
      "EventLoop::abortNotInLoopThread - EventLoop 0x.* was created in threadId_ = .*, "
      "current thread id = ");
}
