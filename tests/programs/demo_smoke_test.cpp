// The demo's two programs together: vlmd-sim in the background, vlmd-console
// against it for a few seconds, and the console's summary read back. Market
// data, ticks and at least one published book must have arrived, without an
// error and with one accepted login.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <map>
#include <random>
#include <sstream>
#include <string>

#if defined(_WIN32)
#define popen _popen
#define pclose _pclose
#endif

namespace {

/// A program path for the command line. Under wine the build's paths are
/// those of the host, which the emulated system sees on drive Z.
std::string program(const char* path) {
  std::string p = path;
#if defined(_WIN32)
  if (!p.empty() && p[0] == '/') p = "Z:" + p;
  for (char& c : p) c = c == '/' ? '\\' : c;
#endif
  return "\"" + p + "\"";
}

/// The whole command line for popen; cmd.exe wants one more pair of quotes
/// around a line that starts with a quoted program.
std::string commandLine(const std::string& line) {
#if defined(_WIN32)
  return "\"" + line + "\"";
#else
  return line;
#endif
}

/// "key=value" pairs of the line that starts with "summary ".
std::map<std::string, long long> summaryOf(const std::string& output) {
  std::map<std::string, long long> values;
  std::istringstream lines(output);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.rfind("summary ", 0) != 0) continue;
    std::istringstream words(line.substr(8));
    std::string word;
    while (words >> word) {
      size_t eq = word.find('=');
      if (eq != std::string::npos) values[word.substr(0, eq)] = std::stoll(word.substr(eq + 1));
    }
  }
  return values;
}

TEST(DemoSmoke, ConsoleReceivesMarketDataTicksAndBooksFromTheSimulator) {
  // A group of its own: other runs on this machine must not be heard.
  std::random_device seed;
  std::mt19937 random(seed());
  const std::string group = "239.255." + std::to_string(random() % 254 + 1) + "." +
                            std::to_string(random() % 254 + 1) + ":30001";
  // The simulator serves the console's one session and ends when its
  // connection goes; the duration is only a bound.
  const std::string sim = program(VLMD_SIM_PROGRAM) +
                          " --listen 127.0.0.1:0 --snapshot-ms 300 --sessions 1 --duration 60"
                          " --group " +
                          group;
  FILE* simOut = popen(commandLine(sim).c_str(), "r");
  ASSERT_NE(simOut, nullptr);
  std::string front;
  char buffer[512];
  std::string simText;
  while (front.empty() && std::fgets(buffer, sizeof buffer, simOut) != nullptr) {
    std::string line = buffer;
    simText += line;
    if (line.rfind("front tcp://", 0) == 0)
      front = line.substr(6, line.find_last_not_of("\r\n") - 5);
  }
  ASSERT_FALSE(front.empty()) << "vlmd-sim printed no front address:\n" << simText;

  const std::string console = program(VLMD_CONSOLE_PROGRAM) + " --front " + front +
                              " --mcast udp://" + group +
                              " --interface 127.0.0.1 --md 000001,002415,300446"
                              " --ticks 000001,002415,300446 --books 000001,002415,300446"
                              " --duration 4 --quiet";
  FILE* consoleOut = popen(commandLine(console).c_str(), "r");
  ASSERT_NE(consoleOut, nullptr);
  std::string output;
  while (std::fgets(buffer, sizeof buffer, consoleOut) != nullptr) output += buffer;
  const int consoleStatus = pclose(consoleOut);

  // The console's exit closed its connection, which ends the simulator.
  while (std::fgets(buffer, sizeof buffer, simOut) != nullptr) simText += buffer;
  const int simStatus = pclose(simOut);

  SCOPED_TRACE("vlmd-console said:\n" + output + "\nvlmd-sim said:\n" + simText);
  EXPECT_EQ(consoleStatus, 0);
  EXPECT_EQ(simStatus, 0);
  std::map<std::string, long long> summary = summaryOf(output);
  ASSERT_FALSE(summary.empty()) << "no summary line";
  EXPECT_EQ(summary["logins"], 1);
  EXPECT_EQ(summary["errors"], 0);
  EXPECT_GT(summary["md"], 0);
  EXPECT_GT(summary["ticks"], 0);
  EXPECT_GT(summary["orders"], 0);
  EXPECT_GT(summary["trades"], 0);
  EXPECT_GT(summary["books"], 0);
}

}  // namespace
