#include "VLClientApi/ProcessLog.h"

#include <cstdlib>

#include "utility/AsyncLogging.h"
#include "utility/Logging.h"
#include "utility/Platform.h"

namespace velmar {
namespace mdapi {

const char kLogDirectory[] = "./log/md";

namespace {

const char kLogBaseName[] = "./log/md/velmarApi";
constexpr int64_t kLogRollSize = 500000000;
constexpr int kLogFlushInterval = 3;

// The process's one log writer, built by the first Init. The receiver and
// book threads log until the very end of the process, also while static
// objects are being destroyed, so the writer is never destroyed: at exit it
// is stopped, which writes what was handed over, and later lines are dropped.
utility::AsyncLogging& processLog() {
  static utility::AsyncLogging* log = [] {
    auto* created = new utility::AsyncLogging(kLogBaseName, kLogRollSize, kLogFlushInterval);
    std::atexit([] { processLog().stop(); });
    return created;
  }();
  return *log;
}

void writeToProcessLog(const char* line, int length) {
  processLog().append(line, length);
}

// FATAL and THROW wait this long for their line and those before it to reach
// the file; the writer alone would take up to its flush interval.
constexpr double kEndFlushSeconds = 2.0;
void flushProcessLog() { processLog().flush(kEndFlushSeconds); }

}  // namespace

void setUpProcessLog() {
  if (utility::Logger::output() != utility::Logger::defaultOutput()) return;
  utility::AsyncLogging& log = processLog();
  utility::Logger::setOutput(writeToProcessLog);
  utility::Logger::setFlush(flushProcessLog);
  // DEBUG, whatever the environment said: request and answer records appear
  // in the log in text form, and so do the book thread's lines.
  utility::Logger::setLogLevel(utility::Logger::DEBUG);
  log.start();
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
