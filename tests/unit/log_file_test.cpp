// The rolling log file and the plain append file: file names, rolls by size
// and by UTC day, the one-file-per-second rule, the flush interval, and files
// that can't be opened or written. The clock is a test clock throughout.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "support/TempDir.h"
#include "utility/AppendFile.h"
#include "utility/LogFile.h"
#include "utility/Platform.h"

using velmar::testing::TempDir;
using velmar::utility::AppendFile;
using velmar::utility::LogFile;

namespace {

// Noon UTC of a day, far from any midnight in every time zone's day count.
constexpr time_t kDay = 86400;
constexpr time_t kNoon = 20000 * kDay + kDay / 2;

std::atomic<time_t> g_now{kNoon};
time_t testNow() {
  return g_now.load();
}
std::string testHost() {
  return "testhost";
}
std::string noHost() {
  return "";
}

LogFile::Hooks testHooks(std::string (*host)() = &testHost) {
  LogFile::Hooks hooks;
  hooks.now = &testNow;
  hooks.hostName = host;
  return hooks;
}

std::string localStamp(time_t t) {
  struct tm tm;
  velmar::platform::localTime(t, &tm);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y%m%d-%H%M%S", &tm);
  return buf;
}

std::string pid() {
  return std::to_string(velmar::platform::processId());
}

void append(LogFile& file, const std::string& text) {
  file.append(text.data(), static_cast<int>(text.size()));
}

std::string captured() {
  return ::testing::internal::GetCapturedStderr();
}

size_t count(const std::string& text, const std::string& piece) {
  size_t n = 0;
  for (size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1)) ++n;
  return n;
}

}  // namespace

TEST(LogFile, FileNameCarriesLocalTimeHostAndProcessId) {
  struct Case {
    const char* name;
    std::string (*host)();
    std::string hostText;
  };
  const Case cases[] = {
      {"injected host", &testHost, "testhost"},
      {"no host name: two dots side by side", &noHost, ""},
      {"the system's host name", &LogFile::Hooks::systemHostName, velmar::platform::hostName()},
  };
  for (const Case& c : cases) {
    TempDir dir("log_file_name");
    g_now = kNoon;
    LogFile file(dir / "velmarApi", 1000, false, 3, 1024, testHooks(c.host));
    std::string expected =
        "velmarApi." + localStamp(kNoon) + "." + c.hostText + "." + pid() + ".log";
    EXPECT_EQ(dir.files(), std::vector<std::string>{expected}) << c.name;
    EXPECT_EQ(LogFile::logFileName("base", kNoon, c.hostText),
              "base." + localStamp(kNoon) + "." + c.hostText + "." + pid() + ".log")
        << c.name;
  }
  EXPECT_NE(LogFile::logFileName("b", kNoon, "").find(".." + pid() + ".log"), std::string::npos);
}

// A file past the size limit rolls only when the clock has moved on by a
// second: until then it keeps growing.
TEST(LogFile, RollsBySizeAtMostOncePerSecond) {
  TempDir dir("log_file_size");
  g_now = kNoon;
  LogFile file(dir / "velmarApi", 100, false, 3, 1024, testHooks());
  append(file, std::string(59, 'A') + "\n");
  append(file, std::string(59, 'B') + "\n");  // 120 bytes: past the limit, same second
  append(file, std::string(59, 'C') + "\n");
  EXPECT_EQ(dir.files().size(), 1u);
  EXPECT_FALSE(file.rollFile());

  g_now = kNoon + 1;
  append(file, "D\n");  // still into the old file, which then rolls
  append(file, "E\n");
  EXPECT_FALSE(file.rollFile());  // the same second again
  file.flush();

  std::vector<std::string> files = dir.files();
  ASSERT_EQ(files.size(), 2u);
  EXPECT_EQ(files[0].find("velmarApi." + localStamp(kNoon)), 0u);
  EXPECT_EQ(files[1].find("velmarApi." + localStamp(kNoon + 1)), 0u);
  EXPECT_EQ(dir.read(files[0]), std::string(59, 'A') + "\n" + std::string(59, 'B') + "\n" +
                                    std::string(59, 'C') + "\nD\n");
  EXPECT_EQ(dir.read(files[1]), "E\n");
}

// The day is the UTC day, and it is looked at only once in checkEveryN appends:
// the first lines of a new day still go to the old file.
TEST(LogFile, RollsAtTheUtcDayBoundaryOnlyAtTheCheck) {
  TempDir dir("log_file_day");
  const time_t lastSecond = 20000 * kDay + kDay - 1;  // 23:59:59 UTC
  g_now = lastSecond;
  {
    LogFile file(dir / "velmarApi", 1000000, false, 3, 4, testHooks());
    append(file, "1\n");
    append(file, "2\n");
    g_now = lastSecond + 1;  // 00:00:00 UTC of the next day
    append(file, "3\n");
    EXPECT_EQ(dir.files().size(), 1u);
    append(file, "4\n");  // fourth append: the check sees the new day
    append(file, "5\n");
    g_now = lastSecond + 2;
    for (int i = 6; i <= 9; ++i) append(file, std::to_string(i) + "\n");  // same day: no roll
  }
  std::vector<std::string> files = dir.files();
  ASSERT_EQ(files.size(), 2u);
  EXPECT_EQ(files[1].find("velmarApi." + localStamp(lastSecond + 1)), 0u);
  EXPECT_EQ(dir.read(files[0]), "1\n2\n3\n4\n");
  EXPECT_EQ(dir.read(files[1]), "5\n6\n7\n8\n9\n");
}

// Appends stay in the stream's buffer until a check finds that more than the
// flush interval has passed since the last flush.
TEST(LogFile, FlushesWhenMoreThanTheIntervalHasPassed) {
  TempDir dir("log_file_flush");
  g_now = kNoon;
  LogFile file(dir / "velmarApi", 1000000, false, 3, 1, testHooks());
  const std::string name = dir.files().at(0);
  append(file, "a\n");
  EXPECT_EQ(dir.read(name), "");
  g_now = kNoon + 3;
  append(file, "b\n");  // exactly the interval: not yet
  EXPECT_EQ(dir.read(name), "");
  g_now = kNoon + 4;
  append(file, "c\n");
  EXPECT_EQ(dir.read(name), "a\nb\nc\n");
  append(file, "d\n");  // the interval counts from that flush
  EXPECT_EQ(dir.read(name), "a\nb\nc\n");
}

// A folder that doesn't exist: one note on the standard error, lines dropped,
// nothing else. Flushes try again, at most once a second, and the log resumes
// once the folder is there.
TEST(LogFile, MissingFolderNeverHarmsAndTheFileOpensLater) {
  TempDir dir("log_file_missing");
  const std::string folder = dir / "later";
  g_now = kNoon;
  ::testing::internal::CaptureStderr();
  {
    LogFile file(folder + "/velmarApi", 100, false, 3, 1, testHooks());
    for (int i = 0; i < 10; ++i) append(file, std::string(30, 'x') + "\n");  // past the size too
    file.flush();
    g_now = kNoon + 1;
    file.flush();
    append(file, "lost\n");
    std::filesystem::create_directory(folder);
    file.flush();  // same second as the last try
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    g_now = kNoon + 2;
    file.flush();
    append(file, "kept\n");
  }
  std::string err = captured();
  EXPECT_EQ(count(err, "LogFile::rollFile() cannot open "), 1u) << err;
  EXPECT_NE(err.find(folder + "/velmarApi." + localStamp(kNoon) + "."), std::string::npos) << err;
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    files.push_back(entry.path().filename().string());
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(files[0].find("velmarApi." + localStamp(kNoon + 2)), 0u);
  EXPECT_EQ(TempDir::readFile(folder + "/" + files[0]), "kept\n");
}

// When the next file of a roll can't be opened, the open file goes on.
TEST(LogFile, KeepsTheOpenFileWhenTheNextCannotBeOpened) {
  TempDir dir("log_file_keep");
  g_now = kNoon;
  LogFile::Hooks hooks = testHooks();
  static std::atomic<bool> refuse{false};
  refuse = false;
  hooks.open = [](const char* path) -> FILE* {
    return refuse ? nullptr : AppendFile::openForAppend(path);
  };
  ::testing::internal::CaptureStderr();
  {
    LogFile file(dir / "velmarApi", 10, false, 3, 1024, hooks);
    refuse = true;
    g_now = kNoon + 1;
    append(file, "first line, past the limit\n");
    append(file, "second\n");
  }
  std::string err = captured();
  EXPECT_EQ(count(err, "cannot open"), 1u) << err;
  std::vector<std::string> files = dir.files();
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(dir.read(files[0]), "first line, past the limit\nsecond\n");
}

TEST(LogFile, ThreadSafeFileKeepsLinesWhole) {
  TempDir dir("log_file_threads");
  g_now = kNoon;
  constexpr int kThreads = 4;
  constexpr int kLines = 2000;
  {
    LogFile file(dir / "velmarApi", 1000000000, true, 3, 16, testHooks());
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&file, t] {
        std::string line = "thread " + std::to_string(t) + " " + std::string(40, 'a' + t) + "\n";
        for (int i = 0; i < kLines; ++i) append(file, line);
      });
    }
    for (auto& thread : threads) thread.join();
  }
  std::string text = dir.read(dir.files().at(0));
  ASSERT_EQ(text.size(), static_cast<size_t>(kThreads * kLines * 50));
  for (int t = 0; t < kThreads; ++t) {
    std::string line = "thread " + std::to_string(t) + " " + std::string(40, 'a' + t) + "\n";
    EXPECT_EQ(count(text, line), static_cast<size_t>(kLines));
  }
}

TEST(AppendFile, CountsOnlyItsOwnBytesAndAppends) {
  TempDir dir("append_file");
  const std::string path = dir / "f.log";
  {
    AppendFile file(path);
    file.append("old\n", 4);
  }
  AppendFile file(path);
  EXPECT_TRUE(file.isOpen());
  EXPECT_EQ(file.writtenBytes(), 0);
  file.append("new\n", 4);
  file.flush();
  EXPECT_EQ(file.writtenBytes(), 4);
  EXPECT_EQ(TempDir::readFile(path), "old\nnew\n");
}

// A stream that takes no bytes (opened for reading): the failure is reported,
// the piece is given up, and the size still grows by the whole piece.
TEST(AppendFile, FailedWriteIsReportedAndCounted) {
  TempDir dir("append_file_fail");
  const std::string path = dir / "f.log";
  { AppendFile(path).append("x", 1); }
  ::testing::internal::CaptureStderr();
  {
    AppendFile file(path, [](const char* p) { return std::fopen(p, "r"); });
    ASSERT_TRUE(file.isOpen());
    file.append("hello\n", 6);
    file.flush();
    EXPECT_EQ(file.writtenBytes(), 6);
  }
  std::string err = captured();
  EXPECT_EQ(err.rfind("AppendFile::append() failed ", 0), 0u) << err;
  EXPECT_EQ(count(err, "\n"), 1u) << err;
  EXPECT_EQ(TempDir::readFile(path), "x");
}

TEST(AppendFile, UnopenedFileDropsWrites) {
  AppendFile file("no/such/folder/f.log");
  EXPECT_FALSE(file.isOpen());
  file.append("abc", 3);
  file.flush();
  EXPECT_EQ(file.writtenBytes(), 3);
}
