// The background log writer.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "support/TempDir.h"
#include "utility/AsyncLogging.h"
#include "utility/CountDownLatch.h"

using velmar::testing::TempDir;
using velmar::utility::AsyncLogging;
using velmar::utility::CountDownLatch;
using velmar::utility::LogFile;

namespace {

constexpr int kBufferSize = 4000000;

void append(AsyncLogging& log, const std::string& text) {
  log.append(text.data(), static_cast<int>(text.size()));
}

// Holds the writer at the start of its first pass until released, so that
// everything appended meanwhile is waiting for that one pass.
struct WriterGate {
  CountDownLatch release{1};
  std::atomic<int> passes{0};

  static void beforePass(void* arg) {
    auto* gate = static_cast<WriterGate*>(arg);
    if (gate->passes.fetch_add(1) == 0) gate->release.wait();
  }
  AsyncLogging::Hooks hooks() {
    AsyncLogging::Hooks hooks;
    hooks.beforePass = &WriterGate::beforePass;
    hooks.beforePassArg = this;
    return hooks;
  }
};

// A clock that moves on a second at every reading: together with a roll size
// of one byte, every buffer that the writer appends ends its file, so the
// files show the buffers.
std::atomic<time_t> g_ticks{0};
time_t tickingNow() {
  return 1700000000 + g_ticks.fetch_add(1);
}

}  // namespace

TEST(AsyncLogging, LinesFromManyThreadsReachTheFileWholeAndInOrder) {
  TempDir dir("async_logging_threads");
  constexpr int kThreads = 4;
  constexpr int kLines = 12000;  // about 5 MB: more than one buffer
  auto lineOf = [](int t, int i) {
    return std::to_string(t) + " " + std::to_string(i) + " " + std::string(100, 'x') + "\n";
  };
  {
    AsyncLogging log(dir / "velmarApi", 500000000, 1);
    ASSERT_TRUE(log.start());
    EXPECT_TRUE(log.running());
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        for (int i = 0; i < kLines; ++i) append(log, lineOf(t, i));
      });
    }
    for (auto& thread : threads) thread.join();
    log.stop();  // what is in the current buffer goes to the file
    EXPECT_FALSE(log.running());
    // Lines after the stop go nowhere and take no new memory; a second stop, a
    // start and the destructor are harmless.
    for (int i = 0; i < 5; ++i) append(log, std::string(kBufferSize / 2, 'z'));
    log.stop();
    EXPECT_FALSE(log.start());
  }
  const std::string text = dir.read(dir.files().at(0));
  std::vector<int> next(kThreads, 0);  // each thread's lines whole and in its order
  for (size_t at = 0; at < text.size();) {
    int t = text[at] - '0';
    ASSERT_TRUE(t >= 0 && t < kThreads) << text.substr(at, 120);
    const std::string expected = lineOf(t, next[t]++);
    ASSERT_EQ(text.compare(at, expected.size(), expected), 0) << text.substr(at, 120);
    at += expected.size();
  }
  EXPECT_EQ(next, std::vector<int>(kThreads, kLines));
}

// Nothing fills a buffer, yet the line is in the file after the interval
// (1 second here), without a stop.
TEST(AsyncLogging, IdleLineIsFlushedWithinTheInterval) {
  TempDir dir("async_logging_idle");
  AsyncLogging log(dir / "velmarApi", 500000000, 1);
  ASSERT_TRUE(log.start());
  append(log, "idle line\n");
  std::string text;
  for (int i = 0; i < 1000 && text.empty(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    text = dir.read(dir.files().at(0));
  }
  EXPECT_EQ(text, "idle line\n");
}

// flush() puts what was appended into the file at once, however long the
// interval; without a running writer it says no rather than wait.
TEST(AsyncLogging, FlushWritesWhatWasAppendedWithoutWaitingForTheInterval) {
  TempDir dir("async_logging_flush");
  AsyncLogging log(dir / "velmarApi", 500000000, 60);
  EXPECT_FALSE(log.flush(0.1));
  ASSERT_TRUE(log.start());
  for (int round = 0; round < 3; ++round) {
    append(log, "line " + std::to_string(round) + "\n");
    ASSERT_TRUE(log.flush(10.0));
    EXPECT_EQ(dir.read(dir.files().at(0)).size(), 7u * (round + 1));
  }
  log.stop();
  EXPECT_FALSE(log.flush(0.1));
}

// Lines of 2000000 bytes: each fills half a buffer, and the next one no
// longer fits, so n lines make n buffers for the writer's first pass.
TEST(AsyncLogging, WriterFallingBehindDropsAllButTheTwoOldestBuffers) {
  TempDir dir("async_logging_dropped");
  WriterGate gate;
  std::string err;
  {
    AsyncLogging log(dir / "velmarApi", 500000000, 1, gate.hooks());
    ASSERT_TRUE(log.start());
    // 26 buffers, each marked by its first byte; built once, these lines are large.
    std::string line(kBufferSize / 2 - 1, '.');
    line += '\n';
    for (int i = 0; i < 26; ++i) {
      line[0] = static_cast<char>('a' + i);
      append(log, line);
    }
    ::testing::internal::CaptureStderr();
    gate.release.countDown();
    log.stop();
    err = ::testing::internal::GetCapturedStderr();
  }
  std::vector<std::string> files = dir.files();
  ASSERT_EQ(files.size(), 1u);
  std::string text = dir.read(files[0]);
  const size_t end = text.find('\n') + 1;
  EXPECT_TRUE(std::regex_match(text.substr(0, end),
                               std::regex("Dropped log messages at \\d{8} \\d{2}:\\d{2}:\\d{2}\\."
                                          "\\d{6}, 24 larger buffers\n")))
      << text.substr(0, 100);
  EXPECT_EQ(err, text.substr(0, end));
  ASSERT_EQ(text.size(), end + 2 * static_cast<size_t>(kBufferSize / 2));
  EXPECT_EQ(text[end], 'a');
  EXPECT_EQ(text[end + kBufferSize / 2], 'b');
}

// The room test is strict: a line exactly as long as the room left goes to
// the next buffer; one byte shorter, it still fits.
TEST(AsyncLogging, LineThatExactlyFillsTheRoomGoesToTheNextBuffer) {
  const int firstLength = kBufferSize - 100;
  for (int length : {100, 99}) {
    SCOPED_TRACE(length);
    TempDir dir("async_logging_room");
    WriterGate gate;
    AsyncLogging::Hooks hooks = gate.hooks();
    hooks.file.now = &tickingNow;
    {
      AsyncLogging log(dir / "velmarApi", 1, 1, hooks);
      ASSERT_TRUE(log.start());
      append(log, std::string(static_cast<size_t>(firstLength), 'a'));
      append(log, std::string(static_cast<size_t>(length), 'b'));
      gate.release.countDown();
      log.stop();
    }
    const bool ownBuffer = length == 100;
    std::vector<std::string> files = dir.files();
    ASSERT_GE(files.size(), 2u);
    EXPECT_EQ(dir.read(files[0]).size(),
              static_cast<size_t>(firstLength + (ownBuffer ? 0 : length)));
    EXPECT_EQ(dir.read(files[1]), ownBuffer ? std::string(static_cast<size_t>(length), 'b') : "");
  }
}
