// The demo's two programs together: vlmd-sim in the background, vlmd-console
// against it for a few seconds, and the console's summary read back. Market
// data, ticks and at least one published book must have arrived, without an
// error and with one accepted login; both with the simulator's front and feed
// in one process and with each in a process of its own.
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

/// A simulator in the background, its output read as it comes.
class Simulator {
 public:
  explicit Simulator(const std::string& arguments)
      : out_(popen(commandLine(VLMD_SIM_PROGRAM, arguments).c_str(), "r")) {}
  ~Simulator() {
    if (out_ != nullptr) finish();
  }

  /// Reads up to the line that starts with `prefix`; its rest, or empty if
  /// the simulator ended first.
  std::string readUntil(const std::string& prefix) {
    char buffer[512];
    while (out_ != nullptr && std::fgets(buffer, sizeof buffer, out_) != nullptr) {
      const std::string line = buffer;
      text_ += line;
      if (line.rfind(prefix, 0) == 0) {
        return line.substr(prefix.size(), line.find_last_not_of("\r\n") + 1 - prefix.size());
      }
    }
    return std::string();
  }

  /// Reads the rest and waits for the end; the exit status.
  int finish() {
    char buffer[512];
    while (std::fgets(buffer, sizeof buffer, out_) != nullptr) text_ += buffer;
    const int status = pclose(out_);
    out_ = nullptr;
    return status;
  }

  bool started() const { return out_ != nullptr; }
  const std::string& text() const { return text_; }

 private:
  FILE* out_;
  std::string text_;
};

/// A group of its own: other runs on this machine must not be heard.
std::string privateGroup() {
  std::random_device seed;
  std::mt19937 random(seed());
  return "239.255." + std::to_string(random() % 254 + 1) + "." +
         std::to_string(random() % 254 + 1) + ":30001";
}

/// Runs the console for a few seconds against a front and a group; its
/// output, and its exit status in *status.
std::string runConsole(const std::string& front, const std::string& group, int* status) {
  const std::string ids = " 000001,002415,300446";
  const std::string arguments = "--front " + front + " --mcast udp://" + group +
                                " --interface 127.0.0.1 --md" + ids + " --ticks" + ids +
                                " --books" + ids + " --duration 4 --quiet";
  FILE* out = popen(commandLine(VLMD_CONSOLE_PROGRAM, arguments).c_str(), "r");
  if (out == nullptr) {
    *status = -1;
    return std::string();
  }
  std::string output;
  char buffer[512];
  while (std::fgets(buffer, sizeof buffer, out) != nullptr) output += buffer;
  *status = pclose(out);
  return output;
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

void expectEverythingArrived(const std::string& consoleOutput) {
  std::map<std::string, long long> summary = summaryOf(consoleOutput);
  ASSERT_FALSE(summary.empty()) << "no summary line";
  EXPECT_EQ(summary["logins"], 1);
  EXPECT_EQ(summary["errors"], 0);
  EXPECT_GT(summary["md"], 0);
  EXPECT_GT(summary["ticks"], 0);
  EXPECT_GT(summary["orders"], 0);
  EXPECT_GT(summary["trades"], 0);
  EXPECT_GT(summary["books"], 0);
}

TEST(DemoSmoke, ConsoleReceivesMarketDataTicksAndBooksFromTheSimulator) {
  const std::string group = privateGroup();
  // The simulator serves the console's one session and ends when its
  // connection goes; the duration is only a bound.
  Simulator sim("--listen 127.0.0.1:0 --snapshot-ms 300 --sessions 1 --duration 60 --group " +
                group);
  ASSERT_TRUE(sim.started());
  const std::string front = sim.readUntil("front ");
  ASSERT_FALSE(front.empty()) << "vlmd-sim printed no front address:\n" << sim.text();

  int consoleStatus = 0;
  const std::string output = runConsole(front, group, &consoleStatus);
  // The console's exit closed its connection, which ends the simulator.
  const int simStatus = sim.finish();

  SCOPED_TRACE("vlmd-console said:\n" + output + "\nvlmd-sim said:\n" + sim.text());
  EXPECT_EQ(consoleStatus, 0);
  EXPECT_EQ(simStatus, 0);
  expectEverythingArrived(output);
}

TEST(DemoSmoke, ConsoleReceivesFromFrontAndFeedRunApart) {
  const std::string group = privateGroup();
  // The front alone serves the market before the open; the feed alone
  // carries on from there.
  Simulator front("--front-only --listen 127.0.0.1:0 --sessions 1 --duration 60");
  ASSERT_TRUE(front.started());
  const std::string address = front.readUntil("front ");
  ASSERT_FALSE(address.empty()) << "vlmd-sim --front-only printed no address:\n" << front.text();
  Simulator feed("--feed-only --snapshot-ms 300 --duration 8 --quiet --group " + group);
  ASSERT_TRUE(feed.started());
  ASSERT_EQ(feed.readUntil("feed udp://"), group) << feed.text();

  int consoleStatus = 0;
  const std::string output = runConsole(address, group, &consoleStatus);
  const int frontStatus = front.finish();
  const int feedStatus = feed.finish();

  SCOPED_TRACE("vlmd-console said:\n" + output + "\nthe front said:\n" + front.text() +
               "\nthe feed said:\n" + feed.text());
  EXPECT_EQ(consoleStatus, 0);
  EXPECT_EQ(frontStatus, 0);
  EXPECT_EQ(feedStatus, 0);
  expectEverythingArrived(output);
}

}  // namespace
