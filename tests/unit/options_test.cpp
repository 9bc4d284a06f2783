// Session options: every option's accepted and refused values, when each may
// be set, what a refusal leaves behind and says in the log; the statistics
// record's size rule and where each counter lands in it.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "VLClientApi/ErrorTable.h"
#include "VLClientApi/MdApiImpl.h"
#include "VLClientApi/SessionCounters.h"
#include "VLClientApi/SessionOptions.h"
#include "support/LogCapture.h"
#include "support/TestAccess.h"
#include "utility/Platform.h"

using velmar::mdapi::MdApiImpl;
using velmar::mdapi::TestAccess;
using velmar::mdapi::SessionCounters;
using velmar::mdapi::SessionOptions;
using velmar::testing::LogCapture;
using velmar::utility::Logger;
namespace mdapi = velmar::mdapi;

namespace {

constexpr SessionOptions::Stage kBeforeInit{false, false};

struct ValueCase {
  const char* name;
  const char* value;
  int code;
};

}  // namespace

TEST(SessionOptions, AcceptedAndRefusedValues) {
  const std::string lastCpu = std::to_string(velmar::platform::cpuCount() - 1);
  const std::string noCpu = std::to_string(velmar::platform::cpuCount());
  const std::string longName = "log." + std::string(61, 'x');  // 65 bytes
  const std::string longestValue(SessionOptions::kMaxValueLength, 'd');
  const std::string tooLongValue(SessionOptions::kMaxValueLength + 1, 'd');
  const int ok = mdapi::kNoError;
  const int unknown = mdapi::kUnknownOption;
  const int bad = mdapi::kInvalidOptionValue;
  const ValueCase cases[] = {
      // Names: exact, lower case, nothing around them.
      {nullptr, "x", unknown},
      {"", "x", unknown},
      {"log", "info", unknown},
      {"LOG.LEVEL", "info", unknown},
      {"log.level ", "info", unknown},
      {"log_level", "info", unknown},
      {longName.c_str(), "info", unknown},
      // log.level
      {"log.level", "trace", ok},
      {"log.level", "debug", ok},
      {"log.level", "info", ok},
      {"log.level", "warn", ok},
      {"log.level", "error", ok},
      {"log.level", nullptr, bad},
      {"log.level", "", bad},
      {"log.level", "WARN", bad},
      {"log.level", "warning", bad},
      {"log.level", "info ", bad},
      {"log.level", "fatal", bad},
      // log.directory
      {"log.directory", "logs/md", ok},
      {"log.directory", longestValue.c_str(), ok},
      {"log.directory", tooLongValue.c_str(), bad},
      {"log.directory", "", bad},
      // book.mode: the exact mode is not there yet.
      {"book.mode", "specified", ok},
      {"book.mode", "exact", bad},
      {"book.mode", "Specified", bad},
      // book.idle
      {"book.idle", "spin", ok},
      {"book.idle", "yield", ok},
      {"book.idle", "block", ok},
      {"book.idle", "sleep", bad},
      {"book.idle", "spin\n", bad},
      // The CPUs: numbers of this machine, plain digits only.
      {"book.cpu", "0", ok},
      {"book.cpu", lastCpu.c_str(), ok},
      {"book.cpu", "none", ok},
      {"book.cpu", noCpu.c_str(), bad},
      {"book.cpu", "4096", bad},
      {"book.cpu", "-1", bad},
      {"book.cpu", "+0", bad},
      {"book.cpu", " 0", bad},
      {"book.cpu", "0 ", bad},
      {"book.cpu", "0x0", bad},
      {"book.cpu", "1a", bad},
      {"feed.receiver_cpu", "0", ok},
      {"feed.receiver_cpu", lastCpu.c_str(), ok},
      {"feed.receiver_cpu", noCpu.c_str(), bad},
      {"feed.receiver_cpu", "", bad},
      // feed.socket_buffer
      {"feed.socket_buffer", "4096", ok},
      {"feed.socket_buffer", "1073741824", ok},
      {"feed.socket_buffer", "4095", bad},
      {"feed.socket_buffer", "1073741825", bad},
      {"feed.socket_buffer", "18446744073709551617", bad},
      {"feed.socket_buffer", "16M", bad},
      {"feed.socket_buffer", "-4096", bad},
      // book.queue_limit
      {"book.queue_limit", "1", ok},
      {"book.queue_limit", "16777216", ok},
      {"book.queue_limit", "unbounded", ok},
      {"book.queue_limit", "0", bad},
      {"book.queue_limit", "16777217", bad},
      {"book.queue_limit", "Unbounded", bad},
      // callbacks.serialize
      {"callbacks.serialize", "true", ok},
      {"callbacks.serialize", "false", ok},
      {"callbacks.serialize", "1", bad},
      {"callbacks.serialize", "TRUE", bad},
      {"callbacks.serialize", "yes", bad},
      // stats.interval_ms
      {"stats.interval_ms", "0", ok},
      {"stats.interval_ms", "100", ok},
      {"stats.interval_ms", "3600000", ok},
      {"stats.interval_ms", "99", bad},
      {"stats.interval_ms", "00", bad},
      {"stats.interval_ms", "3600001", bad},
  };
  LogCapture capture(Logger::INFO);
  for (const ValueCase& c : cases) {
    SessionOptions options;
    const std::string label = std::string(c.name ? c.name : "(null)") + " = " +
                              (c.value ? std::string(c.value).substr(0, 40) : "(null)");
    EXPECT_EQ(options.set(c.name, c.value, kBeforeInit), c.code) << label;
  }
}

// What each accepted value turns into, and that a refused value leaves the
// earlier one in place.
TEST(SessionOptions, StoredValues) {
  using Idle = SessionOptions::BookIdle;
  using Check = std::function<bool(const SessionOptions&)>;
  const struct {
    const char* name;
    const char* value;
    Check check;
  } cases[] = {
      {"log.level", "warn",
       [](const SessionOptions& o) { return o.logLevelSet && o.logLevel == Logger::WARN; }},
      {"log.level", "error", [](const SessionOptions& o) { return o.logLevel == Logger::ERR; }},
      {"log.level", "trace", [](const SessionOptions& o) { return o.logLevel == Logger::TRACE; }},
      {"log.directory", "logs/md//",
       [](const SessionOptions& o) { return o.logDirectory == "logs/md"; }},
      {"log.directory", "/", [](const SessionOptions& o) { return o.logDirectory == "/"; }},
      {"book.idle", "yield", [](const SessionOptions& o) { return o.bookIdle == Idle::kYield; }},
      {"book.idle", "block", [](const SessionOptions& o) { return o.bookIdle == Idle::kBlock; }},
      {"book.cpu", "0",
       [](const SessionOptions& o) { return o.bookCpu == 0 && o.receiverCpu < 0; }},
      {"feed.receiver_cpu", "0",
       [](const SessionOptions& o) { return o.receiverCpu == 0 && o.bookCpu < 0; }},
      {"feed.socket_buffer", "65536",
       [](const SessionOptions& o) { return o.socketBuffer == 65536; }},
      {"book.queue_limit", "1000",
       [](const SessionOptions& o) { return o.bookQueueLimit == 1000; }},
      {"callbacks.serialize", "false",
       [](const SessionOptions& o) { return !o.serializeCallbacks; }},
      {"stats.interval_ms", "250",
       [](const SessionOptions& o) { return o.statsIntervalMs == 250; }},
  };
  LogCapture capture(Logger::INFO);
  for (const auto& c : cases) {
    SessionOptions options;
    ASSERT_EQ(options.set(c.name, c.value, kBeforeInit), 0) << c.name << " = " << c.value;
    EXPECT_TRUE(c.check(options)) << c.name << " = " << c.value;
  }

  SessionOptions defaults;
  EXPECT_FALSE(defaults.logLevelSet);
  EXPECT_EQ(defaults.logDirectory, "./log/md");
  EXPECT_EQ(defaults.bookIdle, Idle::kSpin);
  EXPECT_EQ(defaults.bookQueueLimit, SessionOptions::kUnboundedQueue);
  EXPECT_TRUE(defaults.serializeCallbacks);

  SessionOptions kept;
  ASSERT_EQ(kept.set("book.queue_limit", "5", kBeforeInit), 0);
  ASSERT_EQ(kept.set("log.directory", "mine", kBeforeInit), 0);
  EXPECT_NE(kept.set("book.queue_limit", "0", kBeforeInit), 0);
  EXPECT_NE(kept.set("log.directory", "", kBeforeInit), 0);
  EXPECT_NE(kept.set("log.level", "loud", kBeforeInit), 0);
  EXPECT_EQ(kept.bookQueueLimit, 5u);
  EXPECT_EQ(kept.logDirectory, "mine");
  EXPECT_FALSE(kept.logLevelSet);
}

// Only the log level may change once the session runs; the log folder not
// even before this session's Init once any session has started the log. The
// name is checked before the time, and the time before the value.
TEST(SessionOptions, WhenEachOptionMayBeSet) {
  const SessionOptions::Stage started{true, true};
  const SessionOptions::Stage otherSessionLogs{false, true};
  const int ok = mdapi::kNoError;
  const int late = mdapi::kOptionOnlyBeforeInit;
  const struct {
    const char* name;
    const char* value;
    int started;
    int otherSessionLogs;
  } cases[] = {
      {"log.level", "info", ok, ok},
      {"log.directory", "logs", late, late},
      {"book.mode", "specified", late, ok},
      {"book.idle", "block", late, ok},
      {"book.cpu", "0", late, ok},
      {"feed.receiver_cpu", "0", late, ok},
      {"feed.socket_buffer", "65536", late, ok},
      {"book.queue_limit", "10", late, ok},
      {"callbacks.serialize", "false", late, ok},
      {"stats.interval_ms", "1000", late, ok},
      {"book.idle", "nonsense", late, mdapi::kInvalidOptionValue},
      {"no.such", "1", mdapi::kUnknownOption, mdapi::kUnknownOption},
      {"log.level", "loud", mdapi::kInvalidOptionValue, mdapi::kInvalidOptionValue},
  };
  LogCapture capture(Logger::INFO);
  for (const auto& c : cases) {
    SessionOptions a, b;
    EXPECT_EQ(a.set(c.name, c.value, started), c.started) << c.name << " = " << c.value;
    EXPECT_EQ(b.set(c.name, c.value, otherSessionLogs), c.otherSessionLogs)
        << c.name << " = " << c.value;
  }
}

TEST(SessionOptions, EveryCallWritesOneLine) {
  LogCapture capture(Logger::INFO);
  SessionOptions options;
  options.set("book.idle", "block", kBeforeInit);
  options.set("book.idle", "nap", kBeforeInit);
  options.set(nullptr, nullptr, kBeforeInit);
  options.set("book.idle", "spin", SessionOptions::Stage{true, true});
  options.set("log.directory", "bad\x01name/\x7f", SessionOptions::Stage{true, true});
  const auto lines = LogCapture::messages("SetOption");
  ASSERT_EQ(lines.size(), 5u) << LogCapture::text();
  EXPECT_EQ(lines[0], "SetOption book.idle = block");
  EXPECT_EQ(lines[1], "SetOption book.idle = nap refused, -301: not spin, yield or block");
  EXPECT_EQ(lines[2], "SetOption (null) = (null) refused, -300: no name");
  EXPECT_EQ(lines[3], "SetOption book.idle = spin refused, -302: the session has started");
  // Whatever the application passes, the line stays text.
  EXPECT_EQ(lines[4],
            "SetOption log.directory = bad\\x01name/\\x7F refused, -302: the process log has "
            "started");
  EXPECT_NE(LogCapture::text().find("ERR    "), std::string::npos);
}

// The operation on the session: the level is the process's and applies at
// once; after Init only the level may change.
TEST(SessionOptions, SetOptionOnTheSession) {
  LogCapture capture(Logger::INFO);
  MdApiImpl api;
  EXPECT_EQ(api.SetOption("log.level", "warn"), 0);
  EXPECT_EQ(Logger::logLevel(), Logger::WARN);
  EXPECT_EQ(api.SetOption("book.idle", "block"), 0);
  EXPECT_EQ(api.SetOption("log.level", "verbose"), mdapi::kInvalidOptionValue);
  EXPECT_EQ(Logger::logLevel(), Logger::WARN);

  TestAccess::markStarted(api);
  EXPECT_EQ(api.SetOption("book.idle", "spin"), mdapi::kOptionOnlyBeforeInit);
  EXPECT_EQ(TestAccess::options(api).bookIdle, SessionOptions::BookIdle::kBlock);
  EXPECT_EQ(api.SetOption("log.level", "trace"), 0);
  EXPECT_EQ(Logger::logLevel(), Logger::TRACE);
  EXPECT_EQ(api.SetOption(nullptr, "trace"), mdapi::kUnknownOption);
}

TEST(Statistics, SizeRule) {
  LogCapture capture(Logger::INFO);
  MdApiImpl api;
  TestAccess::counters(api).receiver.datagrams.store(7);
  EXPECT_EQ(api.GetStatistics(nullptr), mdapi::kInvalidStatisticsRecord);

  // A caller of a later version: its record is longer, and what this
  // version doesn't know stays as the caller left it.
  struct Later {
    CVelmarStatistics known;
    uint64_t added[3];
  };
  const struct {
    uint32_t size;
    int code;
    uint32_t filled;
  } cases[] = {
      {0, mdapi::kInvalidStatisticsRecord, 0},
      {199, mdapi::kInvalidStatisticsRecord, 199},
      {200, 0, 200},
      {sizeof(Later), 0, 200},
      {0xffffffffu, 0, 200},
  };
  for (const auto& c : cases) {
    Later record;
    std::memset(&record, 0xab, sizeof record);
    record.known.Size = c.size;
    EXPECT_EQ(api.GetStatistics(&record.known), c.code) << c.size;
    EXPECT_EQ(record.known.Size, c.filled) << c.size;
    EXPECT_EQ(record.added[0], 0xababababababababull) << c.size;
    if (c.code == 0) {
      EXPECT_EQ(record.known.DatagramsReceived, 7u) << c.size;
      EXPECT_EQ(record.known.Reserved, 0u);
      EXPECT_GT(record.known.SampleTime, 0);
    } else {
      EXPECT_EQ(record.known.DatagramsReceived, 0xababababababababull) << c.size;
    }
  }
}

// Each counter lands in its own field; counters that several threads keep
// for one field are summed.
TEST(Statistics, EveryCounterReachesItsField) {
  SessionCounters c;
  using F = uint64_t CVelmarStatistics::*;
  const struct {
    std::vector<SessionCounters::Counter*> counters;
    F field;
  } cases[] = {
      {{&c.receiver.datagrams}, &CVelmarStatistics::DatagramsReceived},
      {{&c.receiver.bytes}, &CVelmarStatistics::BytesReceived},
      {{&c.receiver.droppedByGate}, &CVelmarStatistics::DroppedByGate},
      {{&c.receiver.droppedBySequence}, &CVelmarStatistics::DroppedBySequence},
      {{&c.receiver.droppedStale}, &CVelmarStatistics::DroppedStale},
      {{&c.receiver.sequenceGaps}, &CVelmarStatistics::SequenceGaps},
      {{&c.receiver.messagesMissing}, &CVelmarStatistics::MessagesMissing},
      {{&c.receiver.receiveErrors}, &CVelmarStatistics::ReceiveErrors},
      {{&c.receiver.kernelDrops}, &CVelmarStatistics::KernelDrops},
      {{&c.receiver.shortDatagrams}, &CVelmarStatistics::ShortDatagrams},
      {{&c.receiver.droppedUnknownChannel}, &CVelmarStatistics::DroppedUnknownChannel},
      {{&c.receiver.bookNodesQueued}, &CVelmarStatistics::BookNodesQueued},
      {{&c.receiver.bookNodesDropped}, &CVelmarStatistics::BookNodesDropped},
      {{&c.receiver.bookQueueHighWater}, &CVelmarStatistics::BookQueueHighWater},
      {{&c.books.nodesHandled}, &CVelmarStatistics::BookNodesHandled},
      {{&c.books.published}, &CVelmarStatistics::BooksPublished},
      {{&c.front.callbacksSession}, &CVelmarStatistics::CallbacksSession},
      {{&c.front.callbacksResponse}, &CVelmarStatistics::CallbacksResponse},
      {{&c.front.callbacksError, &c.anyThread.callbacksError}, &CVelmarStatistics::CallbacksError},
      {{&c.front.callbacksMarketData, &c.receiver.callbacksMarketData},
       &CVelmarStatistics::CallbacksMarketData},
      {{&c.front.callbacksTickByTick, &c.receiver.callbacksTickByTick},
       &CVelmarStatistics::CallbacksTickByTick},
      {{&c.books.callbacksOrderBook}, &CVelmarStatistics::CallbacksOrderBook},
      {{&c.front.callbacksStatus, &c.receiver.callbacksStatus, &c.books.callbacksStatus},
       &CVelmarStatistics::CallbacksStatus},
  };
  // Distinct values: 1000 per field, plus a distinct bit per contributing
  // counter so a sum that misses one shows.
  uint64_t value = 1000;
  for (const auto& k : cases) {
    uint64_t bit = 1;
    for (SessionCounters::Counter* counter : k.counters) {
      counter->store(value + bit);
      bit <<= 1;
    }
    value += 1000;
  }
  CVelmarStatistics out;
  c.fill(&out);
  EXPECT_EQ(out.Size, sizeof out);
  value = 1000;
  for (const auto& k : cases) {
    uint64_t expected = 0, bit = 1;
    for (size_t i = 0; i < k.counters.size(); ++i, bit <<= 1) expected += value + bit;
    EXPECT_EQ(out.*k.field, expected)
        << "field at offset "
        << (reinterpret_cast<const char*>(&(out.*k.field)) - reinterpret_cast<const char*>(&out));
    value += 1000;
  }
}

// The high-water mark follows the queue's depth, nodes queued less nodes
// handled, and never goes down.
TEST(Statistics, BookQueueHighWater) {
  SessionCounters c;
  const struct {
    int queue;
    int handle;
    uint64_t highWater;
  } steps[] = {{3, 0, 3}, {0, 2, 3}, {1, 0, 3}, {3, 0, 5}, {0, 5, 5}, {1, 0, 5}};
  for (const auto& s : steps) {
    for (int i = 0; i < s.queue; ++i) c.noteBookNodeQueued();
    SessionCounters::add(c.books.nodesHandled, static_cast<uint64_t>(s.handle));
    CVelmarStatistics out;
    c.fill(&out);
    EXPECT_EQ(out.BookQueueHighWater, s.highWater) << out.BookNodesQueued;
  }
}

namespace {

// Keeps what OnStatistics handed over, for the test thread to wait on.
class StatisticsSpi : public velmar::mdapi::VelmarMdStatusSpi {
 public:
  void OnStatistics(const CVelmarStatistics* statistics) override {
    std::lock_guard<std::mutex> lock(mutex_);
    records_.push_back(*statistics);
    changed_.notify_all();
  }
  std::vector<CVelmarStatistics> waitFor(size_t count) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, std::chrono::seconds(5), [&] { return records_.size() >= count; });
    return records_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<CVelmarStatistics> records_;
};

}  // namespace

// stats.interval_ms drives OnStatistics on the front loop; each record counts
// the call it comes in, and without a status object nothing is counted.
TEST(Statistics, PeriodicReportOnTheFrontLoop) {
  LogCapture capture(Logger::INFO);
  MdApiImpl api;
  StatisticsSpi spi;
  velmar::mdapi::FrontSession& front = TestAccess::front(api);
  front.startLoop();

  TestAccess::reportStatistics(api);  // no status object yet
  CVelmarStatistics before;
  TestAccess::counters(api).fill(&before);
  EXPECT_EQ(before.CallbacksStatus, 0u);

  ASSERT_EQ(api.SetOption("stats.interval_ms", "100"), 0);
  api.RegisterStatusSpi(&spi);
  TestAccess::counters(api).receiver.datagrams.store(42);
  TestAccess::startStatisticsTimer(api);
  const std::vector<CVelmarStatistics> records = spi.waitFor(2);
  ASSERT_GE(records.size(), 2u);
  for (size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(records[i].Size, sizeof(CVelmarStatistics));
    EXPECT_EQ(records[i].DatagramsReceived, 42u);
    EXPECT_EQ(records[i].CallbacksStatus, i + 1);
  }
  EXPECT_GE(records[1].SampleTime - records[0].SampleTime, 50000);  // microseconds
  TestAccess::closeFront(front);  // no report may reach the session after the test
}
