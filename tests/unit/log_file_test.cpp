// The rolling log file and the plain append file, on a test clock.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <ctime>
#include <string>
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

void append(LogFile& file, const std::string& text) {
  file.append(text.data(), static_cast<int>(text.size()));
}

size_t count(const std::string& text, const std::string& piece) {
  size_t n = 0;
  for (size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1)) ++n;
  return n;
}

}  // namespace

// <base>.<local time>.<host>.<pid>.log; no host name leaves two dots side by side.
TEST(LogFile, FileNameCarriesLocalTimeHostAndProcessId) {
  const std::pair<std::string (*)(), std::string> hosts[] = {
      {&testHost, "testhost"},
      {+[] { return std::string(); }, ""},
  };
  for (const auto& host : hosts) {
    TempDir dir("log_file_name");
    g_now = kNoon;
    LogFile file(dir / "velmarApi", 1000, false, 3, 1024, testHooks(host.first));
    EXPECT_EQ(dir.files(),
              std::vector<std::string>{"velmarApi." + localStamp(kNoon) + "." + host.second + "." +
                                       std::to_string(velmar::platform::processId()) + ".log"});
  }
}

// A file past the size limit rolls only when the clock has moved on by a
// second: until then it keeps growing.
TEST(LogFile, RollsBySizeAtMostOncePerSecond) {
  TempDir dir("log_file_size");
  g_now = kNoon;
  LogFile file(dir / "velmarApi", 100, false, 3, 1024, testHooks());
  const std::string a(59, 'A'), b(59, 'B'), c(59, 'C');
  append(file, a + "\n");
  append(file, b + "\n");  // 120 bytes: past the limit, same second
  append(file, c + "\n");
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
  EXPECT_EQ(dir.read(files[0]), a + "\n" + b + "\n" + c + "\nD\n");
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
    for (const char* line : {"1\n", "2\n"}) append(file, line);
    g_now = lastSecond + 1;  // 00:00:00 UTC of the next day
    append(file, "3\n");
    EXPECT_EQ(dir.files().size(), 1u);
    append(file, "4\n");  // fourth append: the check sees the new day
    g_now = lastSecond + 2;
    for (int i = 5; i <= 9; ++i) append(file, std::to_string(i) + "\n");  // same day: no roll
  }
  std::vector<std::string> files = dir.files();
  ASSERT_EQ(files.size(), 2u);
  EXPECT_EQ(files[1].find("velmarApi." + localStamp(lastSecond + 1)), 0u);
  EXPECT_EQ(dir.read(files[0]), "1\n2\n3\n4\n");
  EXPECT_EQ(dir.read(files[1]), "5\n6\n7\n8\n9\n");
}

// A file that can't be opened never harms the program that logs: one note
// until a file opens again, lines dropped while none is open, a new try at
// most once a second (flushes try too), and a failed roll keeps the open file.
TEST(LogFile, FilesThatCannotBeOpened) {
  TempDir dir("log_file_refused");
  g_now = kNoon;
  static std::atomic<bool> refuse{true};
  refuse = true;
  LogFile::Hooks hooks = testHooks();
  hooks.open = [](const char* path) { return refuse ? nullptr : AppendFile::openForAppend(path); };
  ::testing::internal::CaptureStderr();
  {
    LogFile file(dir / "velmarApi", 10, false, 3, 1, hooks);
    append(file, "lost, and past the size\n");
    g_now = kNoon + 1;
    file.flush();  // fails again, without a second note
    refuse = false;
    file.flush();  // the same second: no new try
    EXPECT_TRUE(dir.files().empty());
    g_now = kNoon + 2;
    file.flush();
    append(file, "kept, past the size\n");
    g_now = kNoon + 3;
    refuse = true;
    append(file, "second\n");  // the roll fails: the file goes on
  }
  std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(count(err, "LogFile::rollFile() cannot open "), 2u) << err;
  EXPECT_EQ(err.find("LogFile::rollFile() cannot open " + dir / "velmarApi." + localStamp(kNoon)),
            0u)
      << err;
  std::vector<std::string> files = dir.files();
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(files[0].find("velmarApi." + localStamp(kNoon + 2)), 0u);
  EXPECT_EQ(dir.read(files[0]), "kept, past the size\nsecond\n");
}

// The size counts from the opening, also when the file held something; a
// file that isn't open or takes no bytes (opened for reading) counts what it
// gives up, and a failed write is reported once.
TEST(AppendFile, CountsOnlyItsOwnBytesAndSurvivesFailures) {
  TempDir dir("append_file");
  const std::string path = dir / "f.log";
  AppendFile(path).append("old\n", 4);
  {
    AppendFile file(path);
    EXPECT_EQ(file.writtenBytes(), 0);
    file.append("new\n", 4);
    file.flush();
    EXPECT_EQ(file.writtenBytes(), 4);
  }
  EXPECT_EQ(TempDir::readFile(path), "old\nnew\n");

  AppendFile unopened(dir / "no/such/folder/f.log");
  EXPECT_FALSE(unopened.isOpen());
  unopened.append("abc", 3);
  EXPECT_EQ(unopened.writtenBytes(), 3);

  ::testing::internal::CaptureStderr();
  {
    AppendFile file(path, [](const char* p) { return std::fopen(p, "r"); });
    ASSERT_TRUE(file.isOpen());
    file.append("hello\n", 6);
    file.flush();
    EXPECT_EQ(file.writtenBytes(), 6);
  }
  std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(err.rfind("AppendFile::append() failed ", 0), 0u) << err;
  EXPECT_EQ(count(err, "\n"), 1u) << err;
  EXPECT_EQ(TempDir::readFile(path), "old\nnew\n");
}
