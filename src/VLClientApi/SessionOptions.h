// SessionOptions: what an application chose through SetOption, checked
// strictly and kept as plain values whose defaults are the library's
// behaviour without options.
//
// Threads: set() runs on the application's thread that calls Init, never at
// the same time as Init. Once Init has gone through, the session's threads
// read the settings without a lock, which is safe because set() then refuses
// every option but log.level, and that one changes only logLevel here (the
// level in force is the logger's own atomic).
#pragma once

#include <cstdint>
#include <string>

#include "utility/Logging.h"

namespace velmar {
namespace mdapi {

class SessionOptions {
 public:
  enum class BookIdle { kSpin, kYield, kBlock };
  enum class BookMode { kSpecified, kExact };

  static constexpr int kNoCpu = -1;
  static constexpr uint32_t kUnboundedQueue = 0;
  static constexpr int kDefaultSocketBuffer = 15728640;
  /// Longer names and values are refused without being read further.
  static constexpr size_t kMaxNameLength = 64;
  static constexpr size_t kMaxValueLength = 1024;

  /// Where the caller stands: options differ in how long they may be set.
  struct Stage {
    bool sessionStarted;     ///< this object's Init has gone through
    bool processLogStarted;  ///< the process's log writer exists
  };

  /// kNoError with the value stored, or kUnknownOption, kInvalidOptionValue
  /// or kOptionOnlyBeforeInit with nothing changed. Writes one log line:
  /// INFO for an accepted option, ERR with the name and the code for a
  /// refused one. Null pointers are refused, never read.
  int set(const char* name, const char* value, Stage stage);

  /// log.level was set; Init keeps logLevel instead of setting DEBUG.
  bool logLevelSet = false;
  utility::Logger::LogLevel logLevel = utility::Logger::DEBUG;
  std::string logDirectory = "./log/md";
  BookMode bookMode = BookMode::kSpecified;
  BookIdle bookIdle = BookIdle::kSpin;
  int bookCpu = kNoCpu;
  int receiverCpu = kNoCpu;
  int socketBuffer = kDefaultSocketBuffer;
  /// Most nodes in the book queue; kUnboundedQueue for no limit.
  uint32_t bookQueueLimit = kUnboundedQueue;
  bool serializeCallbacks = true;
  /// Period of OnStatistics; 0 for none.
  uint32_t statsIntervalMs = 0;
};

}  // namespace mdapi
}  // namespace velmar
