// Helpers for tests that run an EventLoop on the test thread.
#pragma once

#include <gtest/gtest.h>

#include "VLNet/EventLoop.h"

namespace velmar {
namespace testing {

/// Runs the loop until something quits it. A watchdog quits it after a
/// generous limit and fails the test, so a broken loop cannot hang the suite.
inline void runLoop(net::EventLoop& loop, double limitSeconds = 30.0) {
  bool timedOut = false;
  net::TimerId watchdog = loop.runAfter(limitSeconds, [&] {
    timedOut = true;
    loop.quit();
  });
  loop.loop();
  loop.cancel(watchdog);
  EXPECT_FALSE(timedOut) << "the loop was not quit within " << limitSeconds << " s";
}

}  // namespace testing
}  // namespace velmar
