// The background log writer: lines from many threads reach the file whole and
// in order, an idle buffer is flushed within the interval, a writer that
// falls behind drops all but two buffers and says so, the strict room test,
// and the failures that must not harm the program that logs.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "support/TempDir.h"
#include "utility/AsyncLogging.h"
#include "utility/CountDownLatch.h"
#include "utility/Platform.h"
#include "utility/Thread.h"

using velmar::testing::TempDir;
using velmar::utility::AsyncLogging;
using velmar::utility::CountDownLatch;
using velmar::utility::LogFile;
using velmar::utility::Thread;

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
  constexpr int kLines = 30000;  // about 5 MB: more than one buffer
  {
    AsyncLogging log(dir / "velmarApi", 500000000, 1);
    ASSERT_TRUE(log.start());
    EXPECT_TRUE(log.running());
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&log, t] {
        for (int i = 0; i < kLines; ++i) {
          append(log, "t" + std::to_string(t) + " " + std::to_string(i) + " " +
                          std::string(20, 'x') + "\n");
        }
      });
    }
    for (auto& thread : threads) thread.join();
    log.stop();  // what is in the current buffer goes to the file
    EXPECT_FALSE(log.running());
  }
  std::vector<std::string> files = dir.files();
  ASSERT_EQ(files.size(), 1u);
  EXPECT_NE(files[0].find("." + std::to_string(velmar::platform::processId()) + ".log"),
            std::string::npos);
  std::string text = dir.read(files[0]);
  std::vector<int> next(kThreads, 0);
  size_t lines = 0;
  for (size_t at = 0; at < text.size();) {
    size_t end = text.find('\n', at);
    ASSERT_NE(end, std::string::npos);
    std::string line = text.substr(at, end - at);
    int t = line[1] - '0';
    ASSERT_TRUE(t >= 0 && t < kThreads) << line;
    ASSERT_EQ(line,
              "t" + std::to_string(t) + " " + std::to_string(next[t]) + " " + std::string(20, 'x'));
    ++next[t];
    ++lines;
    at = end + 1;
  }
  EXPECT_EQ(lines, static_cast<size_t>(kThreads * kLines));
}

// Nothing fills a buffer, yet the line is in the file after the interval
// (1 second here), without a stop.
TEST(AsyncLogging, IdleLineIsFlushedWithinTheInterval) {
  TempDir dir("async_logging_idle");
  AsyncLogging log(dir / "velmarApi", 500000000, 1);
  ASSERT_TRUE(log.start());
  append(log, "idle line\n");
  std::string text;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (std::chrono::steady_clock::now() < deadline) {
    std::vector<std::string> files = dir.files();
    if (!files.empty()) text = dir.read(files[0]);
    if (!text.empty()) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_EQ(text, "idle line\n");
}

// Lines of 2000000 bytes: each fills half a buffer, and the next one no
// longer fits, so n lines make n buffers for the writer's first pass.
TEST(AsyncLogging, WriterFallingBehindDropsAllButTheTwoOldestBuffers) {
  struct Case {
    int buffers;
    bool dropped;
  };
  for (const Case& c : {Case{26, true}, Case{25, false}}) {
    SCOPED_TRACE(c.buffers);
    TempDir dir("async_logging_dropped");
    WriterGate gate;
    std::string err;
    {
      AsyncLogging log(dir / "velmarApi", 500000000, 1, gate.hooks());
      ASSERT_TRUE(log.start());
      for (int i = 0; i < c.buffers; ++i) {
        append(log, std::string(kBufferSize / 2 - 1, static_cast<char>('a' + i)) + "\n");
      }
      ::testing::internal::CaptureStderr();
      gate.release.countDown();
      log.stop();
      err = ::testing::internal::GetCapturedStderr();
    }
    std::vector<std::string> files = dir.files();
    ASSERT_EQ(files.size(), 1u);
    std::string text = dir.read(files[0]);
    if (c.dropped) {
      // "Dropped log messages at YYYYMMDD HH:MM:SS.uuuuuu, 24 larger buffers\n"
      const std::string head = "Dropped log messages at ";
      const std::string tail = ", 24 larger buffers\n";
      size_t end = text.find('\n') + 1;
      ASSERT_EQ(end, head.size() + 24 + tail.size()) << text.substr(0, 100);
      std::string message = text.substr(0, end);
      EXPECT_EQ(message.substr(0, head.size()), head);
      EXPECT_EQ(message.substr(head.size() + 24), tail);
      EXPECT_EQ(err, message);
      ASSERT_EQ(text.size(), end + 2 * static_cast<size_t>(kBufferSize / 2));
      EXPECT_EQ(text[end], 'a');
      EXPECT_EQ(text[end + kBufferSize / 2], 'b');
    } else {
      EXPECT_EQ(err, "");
      ASSERT_EQ(text.size(), static_cast<size_t>(c.buffers) * (kBufferSize / 2));
      for (int i = 0; i < c.buffers; ++i) {
        EXPECT_EQ(text[static_cast<size_t>(i) * (kBufferSize / 2)], 'a' + i);
      }
    }
  }
}

// The room test is strict: a line exactly as long as the room left goes to
// the next buffer; one byte shorter, it still fits.
TEST(AsyncLogging, LineThatExactlyFillsTheRoomGoesToTheNextBuffer) {
  struct Case {
    int secondLength;
    bool ownBuffer;
  };
  const int firstLength = kBufferSize - 100;
  for (const Case& c : {Case{100, true}, Case{99, false}}) {
    SCOPED_TRACE(c.secondLength);
    TempDir dir("async_logging_room");
    WriterGate gate;
    AsyncLogging::Hooks hooks = gate.hooks();
    hooks.file.now = &tickingNow;
    {
      AsyncLogging log(dir / "velmarApi", 1, 1, hooks);
      ASSERT_TRUE(log.start());
      append(log, std::string(static_cast<size_t>(firstLength), 'a'));
      append(log, std::string(static_cast<size_t>(c.secondLength), 'b'));
      gate.release.countDown();
      log.stop();
    }
    std::vector<std::string> files = dir.files();
    ASSERT_GE(files.size(), 2u);
    std::string first = dir.read(files[0]);
    std::string second = dir.read(files[1]);
    EXPECT_EQ(first.size(), static_cast<size_t>(firstLength + (c.ownBuffer ? 0 : c.secondLength)));
    EXPECT_EQ(second, c.ownBuffer ? std::string(static_cast<size_t>(c.secondLength), 'b') : "");
  }
}

// The folder of the log doesn't exist: the program goes on logging, the
// writer starts and stops, nothing is written, one note says why.
TEST(AsyncLogging, FileThatCannotBeOpenedNeverHarmsTheLogger) {
  TempDir dir("async_logging_missing");
  ::testing::internal::CaptureStderr();
  {
    AsyncLogging log(dir / "missing/velmarApi", 1000, 1);
    ASSERT_TRUE(log.start());
    for (int i = 0; i < 20000; ++i) append(log, std::string(300, 'x') + "\n");
    log.stop();
  }
  std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("LogFile::rollFile() cannot open "), std::string::npos) << err;
  EXPECT_TRUE(dir.files().empty());
  EXPECT_FALSE(std::filesystem::exists(dir / "missing"));
}

// A writer thread that can't be started: start() neither waits for ever nor
// throws; lines handed over before and after go to the standard output.
TEST(AsyncLogging, WriterThatCannotStartFallsBackToTheStandardOutput) {
  TempDir dir("async_logging_nostart");
  AsyncLogging::Hooks hooks;
  hooks.startThread = [](Thread&) {
    throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
  };
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  {
    AsyncLogging log(dir / "velmarApi", 1000, 1, hooks);
    append(log, "before start\n");
    EXPECT_FALSE(log.start());
    EXPECT_FALSE(log.running());
    append(log, "after start\n");
    append(log, "");
    append(log, "and one more\n");
  }
  std::fflush(stdout);
  std::string out = ::testing::internal::GetCapturedStdout();
  std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(out, "before start\nafter start\nand one more\n");
  EXPECT_EQ(err.rfind("AsyncLogging::start() failed", 0), 0u) << err;
  EXPECT_TRUE(dir.files().empty());
}

// After stop, lines go nowhere and take no new memory; a second stop and the
// destructor are harmless.
TEST(AsyncLogging, LinesAfterStopAreNotWrittenAndStopTwiceIsHarmless) {
  TempDir dir("async_logging_stopped");
  AsyncLogging log(dir / "velmarApi", 500000000, 1);
  ASSERT_TRUE(log.start());
  append(log, "written\n");
  log.stop();
  for (int i = 0; i < 5; ++i) append(log, std::string(kBufferSize / 2, 'z'));
  log.stop();
  EXPECT_EQ(dir.read(dir.files().at(0)), "written\n");
}
