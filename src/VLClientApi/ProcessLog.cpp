#include "VLClientApi/ProcessLog.h"

#include <atomic>
#include <cstdlib>

#include "utility/AsyncLogging.h"
#include "utility/Logging.h"
#include "utility/Platform.h"

namespace velmar {
namespace mdapi {

namespace {

const char kLogBaseName[] = "velmarApi";
constexpr int64_t kLogRollSize = 500000000;
constexpr int kLogFlushInterval = 3;
// FATAL and THROW wait this long for their line and those before it to reach
// the file; the writer alone would take up to its flush interval.
constexpr double kEndFlushSeconds = 2.0;

// The process's one log writer, built by the first Init in the folder that
// session chose. The receiver and book threads log until the very end of the
// process, also while static objects are being destroyed, so the writer is
// never destroyed: at exit it is stopped, which writes what was handed over,
// and later lines are dropped.
std::atomic<utility::AsyncLogging*> g_processLog{nullptr};

utility::AsyncLogging& processLog(const std::string& directory) {
  static utility::AsyncLogging* log = [&directory] {
    auto* created = new utility::AsyncLogging(directory + "/" + kLogBaseName, kLogRollSize,
                                              kLogFlushInterval);
    std::atexit([] { g_processLog.load()->stop(); });
    g_processLog.store(created);
    return created;
  }();
  return *log;
}

void writeToProcessLog(const char* line, int length) { g_processLog.load()->append(line, length); }

void flushAtTheEnd() { flushProcessLog(kEndFlushSeconds); }

}  // namespace

void setUpProcessLog(const std::string& directory, bool keepLevel) {
  if (utility::Logger::output() != utility::Logger::defaultOutput()) return;
  utility::AsyncLogging& log = processLog(directory);
  utility::Logger::setOutput(writeToProcessLog);
  utility::Logger::setFlush(flushAtTheEnd);
  // DEBUG, whatever the environment said: request and answer records appear
  // in the log in text form, and so do the book thread's lines. A level the
  // application chose through SetOption stands.
  if (!keepLevel) utility::Logger::setLogLevel(utility::Logger::DEBUG);
  log.start();
}

bool processLogStarted() { return g_processLog.load() != nullptr; }

bool flushProcessLog(double seconds) {
  utility::AsyncLogging* log = g_processLog.load();
  return log != nullptr && log->flush(seconds);
}

bool makeLogDirectory(const std::string& path) {
  std::string prefix;
  std::string segment;
  for (size_t i = 0; i < path.size(); ++i) {
    segment.push_back(path[i]);
    if (path[i] != '/' && i + 1 != path.size()) continue;
    prefix += segment;
    segment.clear();
    if (!platform::pathExists(prefix.c_str()) && !platform::makeDirectory(prefix.c_str()))
      return false;
  }
  return true;
}

}  // namespace mdapi
}  // namespace velmar
