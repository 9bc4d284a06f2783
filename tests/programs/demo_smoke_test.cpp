// The demo's two programs together: vlmd-sim in the background, vlmd-console
// against it for a few seconds, and the console's summary read back. Market
// data, ticks and at least one published book must have arrived, without an
// error and with one accepted login.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <random>
#include <regex>
#include <string>

#if defined(_WIN32)
#define popen _popen
#define pclose _pclose
#endif

namespace {

/// A command line for popen. Under wine the build's paths are those of the
/// host, seen on drive Z, and cmd.exe wants the whole line quoted once more.
std::string commandLine(const char* program, const std::string& arguments) {
  std::string line = "\"" + std::string(program) + "\" " + arguments;
#if defined(_WIN32)
  if (program[0] == '/') line.insert(1, "Z:");
  for (size_t i = 0; i < line.find("\" "); ++i) line[i] = line[i] == '/' ? '\\' : line[i];
  line = "\"" + line + "\"";
#endif
  return line;
}

/// "key=value" pairs of the line that starts with "summary ".
std::map<std::string, long long> summaryOf(const std::string& output) {
  std::map<std::string, long long> values;
  const size_t at = output.rfind("summary ");
  const std::string line =
      at == std::string::npos ? "" : output.substr(at, output.find('\n', at) - at);
  static const std::regex pair("(\\w+)=(-?\\d+)");
  for (std::sregex_iterator it(line.begin(), line.end(), pair), end; it != end; ++it)
    values[(*it)[1]] = std::stoll((*it)[2]);
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
  const std::string simArgs =
      "--listen 127.0.0.1:0 --snapshot-ms 300 --sessions 1 --duration 60 --group " + group;
  FILE* simOut = popen(commandLine(VLMD_SIM_PROGRAM, simArgs).c_str(), "r");
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

  const std::string ids = " 000001,002415,300446";
  const std::string console = "--front " + front + " --mcast udp://" + group +
                              " --interface 127.0.0.1 --md" + ids + " --ticks" + ids + " --books" +
                              ids + " --duration 4 --quiet";
  FILE* consoleOut = popen(commandLine(VLMD_CONSOLE_PROGRAM, console).c_str(), "r");
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
