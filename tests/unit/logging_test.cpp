// The log line: its fixed prefix, level texts, thread id, the source
// position, the 4000-byte limit and the rules for pieces that don't fit.
#include "utility/Logging.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <regex>
#include <string>

#include "support/LogCapture.h"
#include "utility/PrintableBytes.h"
#include "utility/CurrentThread.h"
#include "utility/Timestamp.h"

using velmar::testing::LogCapture;
using velmar::utility::Logger;
using velmar::utility::LogStream;

namespace {

struct ParsedLine {
  std::string date, micros6, micros, level, tid, message, file, line;
};

bool parse(const std::string& text, ParsedLine* out) {
  static const std::regex re(
      R"(^(\d{8} \d{2}:\d{2}:\d{2})\.(\d{6})Z (\d+) (TRACE  |DEBUG  |INFO   |WARN   |ERR    |FATAL  )( *\d+) ([\s\S]*) - ([^:]+):(\d+)\n$)");
  std::smatch m;
  if (!std::regex_match(text, m, re)) return false;
  *out = {m[1], m[2], m[3], m[4], m[5], m[6], m[7], m[8]};
  return true;
}

int g_evaluations = 0;
int sideEffect() {
  return ++g_evaluations;
}

struct Widget {
  void work() { LOG_DEBUG << "inside"; }
};

}  // namespace

TEST(LogLine, PrefixTimeLevelThreadAndSourcePosition) {
  LogCapture capture;
  const int line = __LINE__ + 1;
  LOG_INFO << "hello " << 42 << ' ' << -7;
  ParsedLine p;
  ASSERT_TRUE(parse(LogCapture::text(), &p)) << LogCapture::text();
  EXPECT_EQ(p.level, "INFO   ");
  EXPECT_EQ(p.message, "hello 42 -7");
  EXPECT_EQ(p.file, "logging_test.cpp");
  EXPECT_EQ(p.line, std::to_string(line));
  // The two time forms agree: local date text, micro part, whole microseconds.
  int64_t micros = std::stoll(p.micros);
  EXPECT_EQ(std::stoll(p.micros6), micros % 1000000);
  EXPECT_EQ(p.date, velmar::Timestamp(micros).toFormattedString(false));
  // The thread id: "%5llu" of the cached id, then one blank.
  char tid[32];
  snprintf(tid, sizeof tid, "%5llu", static_cast<unsigned long long>(velmar::CurrentThread::tid()));
  EXPECT_EQ(p.tid, tid);
}

TEST(LogLine, LevelTextsFunctionNamesAndTheErrnoForm) {
  LogCapture capture(Logger::TRACE);
  LOG_TRACE << "t";
  LOG_WARN << "w";
  Widget().work();
  errno = EINVAL;
  LOG_SYSERR << "opening";
  errno = 0;
  LOG_SYSERR << "clean";
  const std::string text = LogCapture::text();
  // TRACE and DEBUG lines start their message with the qualified function name.
  for (const std::string& piece :
       {std::string(" TRACE  "), std::string(" WARN   "), std::string(" ERR    "),
        std::string(" LogLine_LevelTextsFunctionNamesAndTheErrnoForm_Test::TestBody t - "),
        std::string(" {anonymous}::Widget::work inside - "),
        " (errno=" + std::to_string(EINVAL) + ") opening - "})
    EXPECT_NE(text.find(piece), std::string::npos) << piece << "\n" << text;
  EXPECT_EQ(text.find("errno=0"), std::string::npos);  // no error, no error text
}

TEST(LogLine, StatementsBelowTheLevelEvaluateNothing) {
  LogCapture capture(Logger::INFO);
  g_evaluations = 0;
  LOG_TRACE << sideEffect();
  LOG_DEBUG << sideEffect();
  Logger::setLogLevel(Logger::ERR);
  LOG_INFO << sideEffect();
  LOG_WARN << sideEffect();
  EXPECT_EQ(g_evaluations, 0);
  EXPECT_EQ(LogCapture::text(), "");
  Logger::setLogLevel(Logger::FATAL);
  LOG_ERROR << "always";  // errors are written whatever the level
  EXPECT_TRUE(LogCapture::contains("ERR    "));
  Logger::setLogLevel(Logger::WARN);
  LOG_WARN << "at its level";
  EXPECT_TRUE(LogCapture::contains("WARN   "));
  // if/else around a statement binds as written.
  bool elseTaken = false;
  if (g_evaluations != 0)
    LOG_INFO << "no";
  else
    elseTaken = true;
  EXPECT_TRUE(elseTaken);
}

// Pieces that don't fit vanish whole; a line never exceeds 3999 bytes.
TEST(LogLine, PiecesTooLargeForTheLineAreDroppedWhole) {
  LogCapture capture;
  LOG_INFO << std::string(5000, 'x') << "short";
  ParsedLine p;
  ASSERT_TRUE(parse(LogCapture::text(), &p)) << LogCapture::text();
  EXPECT_EQ(p.message, "short");

  LogCapture::clear();
  LOG_INFO << std::string(3900, 'y') << std::string(200, 'z') << "tail";
  const std::string big = LogCapture::text();
  EXPECT_LE(big.size(), 3999u);
  EXPECT_EQ(big.find('z'), std::string::npos);
  EXPECT_NE(big.find("tail"), std::string::npos);
}

TEST(LogStreamTest, NumbersNeed32FreeBytesWhileShortTextStillFits) {
  LogStream s;
  s << std::string(static_cast<size_t>(s.buffer().avail() - 31), 'a');  // 31 bytes left
  s << 12345 << 1.5 << static_cast<const void*>(&s);
  EXPECT_EQ(s.buffer().avail(), 31);
  s << "ok";
  EXPECT_EQ(s.buffer().avail(), 29);

  LogStream t;
  t << INT_MIN << ' ' << LLONG_MIN << ' ' << ULLONG_MAX << ' ' << static_cast<short>(-5) << ' '
    << static_cast<unsigned short>(65535) << ' ' << 0 << ' ';
  t << reinterpret_cast<const void*>(0xABCDEF) << ' ' << static_cast<const void*>(nullptr) << ' ';
  t << 10.05 << ' ' << static_cast<const char*>(nullptr);
  EXPECT_EQ(t.buffer().toString(),
            "-2147483648 -9223372036854775808 18446744073709551615 -5 65535 0 0xABCDEF 0x0 "
            "10.050000 (null)");

  // Numbers go out two digits a step: every digit count, odd and even.
  for (long long v = 1; v < LLONG_MAX / 10; v = v * 10 + v % 7) {
    for (long long x : {v - 1, v, -v}) {
      LogStream u;
      u << x << ' ' << static_cast<unsigned long long>(x < 0 ? -x : x);
      EXPECT_EQ(u.buffer().toString(), std::to_string(x) + ' ' + std::to_string(x < 0 ? -x : x));
    }
  }
}

// Ids from the network go into lines as text: non-printable bytes as \xNN,
// printable ones (backslash included) unchanged; an id field ends at its
// first NUL or its width.
TEST(LogStreamTest, PrintableBytesEscapeWhatIsNotText) {
  using velmar::utility::PrintableBytes;
  LogStream s;
  s << PrintableBytes::id("000001\0zz", 8) << '|' << PrintableBytes::id("300446AB", 8) << '|'
    << PrintableBytes::id("a\x01\xff\\\x7f\n", 8) << '|' << PrintableBytes{"\0x", 2};
  EXPECT_EQ(s.buffer().toString(), "000001|300446AB|a\\x01\\xFF\\\\x7F\\x0A|\\x00x");
}

TEST(LogDeathTest, FatalEndsTheProcessAfterWritingTheLine) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH({ LOG_FATAL << "the end"; }, "fatal:.*FATAL  .*the end");
}
