// The log back end against spdlog's asynchronous logger, both writing real
// files in a folder of their own under the system's temporary folder.
//
// *Throughput: one producer hands over a batch of finished lines of 110
//   bytes, then the writer is stopped, which writes and closes the file; the
//   time runs from the first line to the closed file. spdlog writes the same
//   bytes (pattern "%v") through a queue of 8192 entries and one worker, and
//   its time ends when the worker has drained the queue and closed the file.
// *Line: the cost of one line on the calling thread with the writer running
//   all the time: the hand-over of a finished line (Append), and a whole log
//   statement with two numbers (Statement, spdlog's info() with its default
//   pattern). The writer here never makes a caller wait; when it falls far
//   behind it drops buffers instead, and says so on the standard error. The
//   counter `kept` (Append only) is the part of the handed-over bytes found in
//   the files afterwards (1 = nothing dropped).
//   spdlog blocks its callers while its queue is full, so its cost per line
//   includes waiting for its worker.
#include <benchmark/benchmark.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "utility/AsyncLogging.h"
#include "utility/Logging.h"
#include "utility/Platform.h"

#if defined(VLMD_HAVE_SPDLOG)
#include <spdlog/async.h>
#include <spdlog/async_logger.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

namespace {

using velmar::utility::AsyncLogging;
using velmar::utility::Logger;

constexpr int64_t kRollSize = 500000000;
constexpr int kBatchLines = 400000;  // 44 MB: below what the writer may drop at once

// A line as the log statements make them, 110 bytes with the newline.
const std::string& sampleLine() {
  static const std::string line =
      "20240105 10:31:02.123456Z 1704421862123456 INFO   12345 ORDER_LOST SecurityID: 300446 "
      "pre_seq 1000 , Applseqnum 999 - x.cpp:1\n";
  return line;
}

// A folder of its own under the temporary folder, removed when done.
class BenchDir {
 public:
  explicit BenchDir(const char* name) {
    static std::atomic<int> counter{0};
    path_ =
        std::filesystem::temp_directory_path() /
        (std::string("vlmd_bench_") + name + "." + std::to_string(velmar::platform::processId()) +
         "." + std::to_string(counter.fetch_add(1)));
    std::filesystem::create_directories(path_);
  }
  ~BenchDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  std::string file(const char* name) const { return (path_ / name).string(); }
  uint64_t bytes() const {
    uint64_t total = 0;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
      if (entry.is_regular_file()) total += entry.file_size();
    }
    return total;
  }
  void clear() {
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
      std::error_code ignored;
      std::filesystem::remove(entry.path(), ignored);
    }
  }

 private:
  std::filesystem::path path_;
};

void BM_Throughput_Velmar(benchmark::State& state) {
  BenchDir dir("velmar");
  const std::string& line = sampleLine();
  const int len = static_cast<int>(line.size());
  for (auto _ : state) {
    state.PauseTiming();
    dir.clear();
    auto log = std::make_unique<AsyncLogging>(dir.file("velmarApi"), kRollSize, 3);
    log->start();
    state.ResumeTiming();
    for (int i = 0; i < kBatchLines; ++i) log->append(line.data(), len);
    log->stop();
    state.PauseTiming();
    log.reset();
    if (dir.bytes() != static_cast<uint64_t>(kBatchLines) * line.size()) {
      state.SkipWithError("lines were dropped");
    }
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kBatchLines);
  state.SetBytesProcessed(state.iterations() * kBatchLines * static_cast<int64_t>(line.size()));
}

// Everything the line benchmarks of one run share; built and torn down by
// the first thread around its loop (the library holds the other threads
// until then and lets them finish first).
struct VelmarLineRun {
  BenchDir dir{"velmar_line"};
  AsyncLogging log{dir.file("velmarApi"), kRollSize, 3};
  std::atomic<uint64_t> handedOver{0};
};
VelmarLineRun* g_velmar = nullptr;

void toVelmar(const char* msg, int len) {
  g_velmar->log.append(msg, len);
}

void beginVelmarRun(benchmark::State& state) {
  if (state.thread_index() != 0) return;
  g_velmar = new VelmarLineRun;
  g_velmar->log.start();
}

void endVelmarRun(benchmark::State& state) {
  if (state.thread_index() != 0) return;
  g_velmar->log.stop();
  if (g_velmar->handedOver.load() > 0) {
    state.counters["kept"] = static_cast<double>(g_velmar->dir.bytes()) /
                             static_cast<double>(g_velmar->handedOver.load());
  }
  delete g_velmar;
  g_velmar = nullptr;
}

void BM_Line_Velmar_Append(benchmark::State& state) {
  beginVelmarRun(state);
  const std::string& line = sampleLine();
  const int len = static_cast<int>(line.size());
  for (auto _ : state) g_velmar->log.append(line.data(), len);
  g_velmar->handedOver += state.iterations() * line.size();
  endVelmarRun(state);
  state.SetItemsProcessed(state.iterations());
}

void BM_Line_Velmar_Statement(benchmark::State& state) {
  beginVelmarRun(state);
  Logger::OutputFunc previous = Logger::output();
  Logger::LogLevel previousLevel = Logger::logLevel();
  if (state.thread_index() == 0) {
    Logger::setOutput(toVelmar);
    Logger::setLogLevel(Logger::DEBUG);
  }
  int64_t seq = 1000;
  for (auto _ : state) {
    LOG_INFO << "ORDER_LOST SecurityID: 300446 pre_seq " << seq << " , Applseqnum " << seq - 1;
    ++seq;
  }
  if (state.thread_index() == 0) {
    Logger::setOutput(previous);
    Logger::setLogLevel(previousLevel);
  }
  endVelmarRun(state);
  state.SetItemsProcessed(state.iterations());
}

#if defined(VLMD_HAVE_SPDLOG)

constexpr size_t kSpdlogQueue = 8192;

std::shared_ptr<spdlog::async_logger> makeSpdlog(
    const std::shared_ptr<spdlog::details::thread_pool>& pool, const std::string& path) {
  auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(path, true);
  return std::make_shared<spdlog::async_logger>("bench", sink, pool,
                                                spdlog::async_overflow_policy::block);
}

void BM_Throughput_Spdlog(benchmark::State& state) {
  BenchDir dir("spdlog");
  const std::string& line = sampleLine();
  // Without its newline: the pattern's end of line puts it back.
  const spdlog::string_view_t text(line.data(), line.size() - 1);
  for (auto _ : state) {
    state.PauseTiming();
    dir.clear();
    auto pool = std::make_shared<spdlog::details::thread_pool>(kSpdlogQueue, 1);
    auto logger = makeSpdlog(pool, dir.file("spdlog.log"));
    logger->set_pattern("%v");
    state.ResumeTiming();
    for (int i = 0; i < kBatchLines; ++i) logger->log(spdlog::level::info, text);
    logger.reset();
    pool.reset();  // drains the queue, joins the worker; the file closes with the last message
    state.PauseTiming();
    if (dir.bytes() != static_cast<uint64_t>(kBatchLines) * line.size()) {
      state.SkipWithError("unexpected file size");
    }
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kBatchLines);
  state.SetBytesProcessed(state.iterations() * kBatchLines * static_cast<int64_t>(line.size()));
}

struct SpdlogLineRun {
  BenchDir dir{"spdlog_line"};
  std::shared_ptr<spdlog::details::thread_pool> pool =
      std::make_shared<spdlog::details::thread_pool>(kSpdlogQueue, 1);
  std::shared_ptr<spdlog::async_logger> logger = makeSpdlog(pool, dir.file("spdlog.log"));
};
SpdlogLineRun* g_spdlog = nullptr;

void beginSpdlogRun(benchmark::State& state, bool raw) {
  if (state.thread_index() != 0) return;
  g_spdlog = new SpdlogLineRun;
  if (raw) g_spdlog->logger->set_pattern("%v");
}

void endSpdlogRun(benchmark::State& state) {
  if (state.thread_index() != 0) return;
  g_spdlog->logger.reset();
  g_spdlog->pool.reset();
  delete g_spdlog;
  g_spdlog = nullptr;
}

void BM_Line_Spdlog_Append(benchmark::State& state) {
  beginSpdlogRun(state, true);
  const std::string& line = sampleLine();
  const spdlog::string_view_t text(line.data(), line.size() - 1);
  for (auto _ : state) g_spdlog->logger->log(spdlog::level::info, text);
  endSpdlogRun(state);
  state.SetItemsProcessed(state.iterations());
}

void BM_Line_Spdlog_Statement(benchmark::State& state) {
  beginSpdlogRun(state, false);
  int64_t seq = 1000;
  for (auto _ : state) {
    g_spdlog->logger->info("ORDER_LOST SecurityID: 300446 pre_seq {} , Applseqnum {}", seq,
                           seq - 1);
    ++seq;
  }
  endSpdlogRun(state);
  state.SetItemsProcessed(state.iterations());
}

#endif  // VLMD_HAVE_SPDLOG

}  // namespace

BENCHMARK(BM_Throughput_Velmar)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Line_Velmar_Append)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_Line_Velmar_Statement)->Threads(1)->Threads(2)->UseRealTime();
#if defined(VLMD_HAVE_SPDLOG)
BENCHMARK(BM_Throughput_Spdlog)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Line_Spdlog_Append)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_Line_Spdlog_Statement)->Threads(1)->Threads(2)->UseRealTime();
#endif
