#include "VLClientApi/SessionOptions.h"

#include <cstring>

#include "VLClientApi/ErrorTable.h"
#include "utility/Platform.h"
#include "utility/PrintableBytes.h"

namespace velmar {
namespace mdapi {

namespace {

using utility::Logger;
using utility::PrintableBytes;

enum class When { kAnyTime, kBeforeInit, kBeforeFirstLog };

// A parser stores the value and returns null, or returns why it refused the
// value and leaves the options alone.
using Parser = const char* (*)(SessionOptions& options, const std::string& value);

struct Option {
  const char* name;
  When when;
  Parser parse;
};

// Plain decimal digits only: no sign, no blank, no base prefix, nothing
// behind. Ten digits cover every bound in use and can't wrap a uint64.
bool parseNumber(const std::string& text, uint64_t low, uint64_t high, uint64_t* out) {
  if (text.empty() || text.size() > 10) return false;
  uint64_t n = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    n = n * 10 + static_cast<uint64_t>(c - '0');
  }
  if (n < low || n > high) return false;
  *out = n;
  return true;
}

const char* parseCpu(const std::string& value, int* cpu) {
  if (value == "none") {
    *cpu = SessionOptions::kNoCpu;
    return nullptr;
  }
  uint64_t n = 0;
  if (!parseNumber(value, 0, 4095, &n)) return "not \"none\" or a CPU number";
  if (n >= static_cast<uint64_t>(platform::cpuCount())) return "no such CPU on this machine";
  *cpu = static_cast<int>(n);
  return nullptr;
}

const Option kOptions[] = {
    {"log.level", When::kAnyTime,
     [](SessionOptions& o, const std::string& v) -> const char* {
       static const struct {
         const char* text;
         Logger::LogLevel level;
       } kLevels[] = {{"trace", Logger::TRACE},
                      {"debug", Logger::DEBUG},
                      {"info", Logger::INFO},
                      {"warn", Logger::WARN},
                      {"error", Logger::ERR}};
       for (const auto& l : kLevels) {
         if (v != l.text) continue;
         o.logLevel = l.level;
         o.logLevelSet = true;
         return nullptr;
       }
       return "not trace, debug, info, warn or error";
     }},
    {"log.directory", When::kBeforeFirstLog,
     [](SessionOptions& o, const std::string& v) -> const char* {
       if (v.empty()) return "empty";
       // The base name of the files goes behind one '/'; a trailing one would
       // double it, which some systems read as a network path.
       std::string folder = v;
       while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
       o.logDirectory = folder;
       return nullptr;
     }},
    {"book.mode", When::kBeforeInit,
     [](SessionOptions& o, const std::string& v) -> const char* {
       if (v == "specified") {
         o.bookMode = SessionOptions::BookMode::kSpecified;
         return nullptr;
       }
       if (v == "exact") return "the exact mode is not available in this version";
       return "not specified";
     }},
    {"book.idle", When::kBeforeInit,
     [](SessionOptions& o, const std::string& v) -> const char* {
       using Idle = SessionOptions::BookIdle;
       if (v == "spin") {
         o.bookIdle = Idle::kSpin;
       } else if (v == "yield") {
         o.bookIdle = Idle::kYield;
       } else if (v == "block") {
         o.bookIdle = Idle::kBlock;
       } else {
         return "not spin, yield or block";
       }
       return nullptr;
     }},
    {"book.cpu", When::kBeforeInit,
     [](SessionOptions& o, const std::string& v) { return parseCpu(v, &o.bookCpu); }},
    {"feed.receiver_cpu", When::kBeforeInit,
     [](SessionOptions& o, const std::string& v) { return parseCpu(v, &o.receiverCpu); }},
    {"feed.socket_buffer", When::kBeforeInit,
     [](SessionOptions& o, const std::string& v) -> const char* {
       // Below a page the kernel rounds up anyway; above 1 GiB is a typo.
       uint64_t n = 0;
       if (!parseNumber(v, 4096, 1073741824, &n)) return "not a byte count from 4096 to 1073741824";
       o.socketBuffer = static_cast<int>(n);
       return nullptr;
     }},
    {"book.queue_limit", When::kBeforeInit,
     [](SessionOptions& o, const std::string& v) -> const char* {
       if (v == "unbounded") {
         o.bookQueueLimit = SessionOptions::kUnboundedQueue;
         return nullptr;
       }
       // Each node may hold a few hundred bytes of its own; 16 Mi of them are
       // gigabytes, which no limit meant to bound memory asks for.
       uint64_t n = 0;
       if (!parseNumber(v, 1, 16777216, &n)) return "not \"unbounded\" or 1 to 16777216";
       o.bookQueueLimit = static_cast<uint32_t>(n);
       return nullptr;
     }},
    {"callbacks.serialize", When::kBeforeInit,
     [](SessionOptions& o, const std::string& v) -> const char* {
       if (v != "true" && v != "false") return "not true or false";
       o.serializeCallbacks = v == "true";
       return nullptr;
     }},
    {"stats.interval_ms", When::kBeforeInit,
     [](SessionOptions& o, const std::string& v) -> const char* {
       uint64_t n = 0;
       if (v == "0") {
         o.statsIntervalMs = 0;
         return nullptr;
       }
       if (!parseNumber(v, 100, 3600000, &n)) return "not 0 or 100 to 3600000";
       o.statsIntervalMs = static_cast<uint32_t>(n);
       return nullptr;
     }},
};

// Length up to the bound, reading no further than one byte beyond it, so an
// unterminated buffer is read no further than that either.
size_t boundedLength(const char* text, size_t bound) {
  size_t n = 0;
  while (n <= bound && text[n] != '\0') ++n;
  return n;
}

// The shown part of a name or value in a log line: printable, and short.
PrintableBytes shown(const char* text) {
  return text ? PrintableBytes::id(text, 80) : PrintableBytes{"(null)", 6};
}

int refuse(int code, const char* name, const char* value, const char* why) {
  LOG_ERROR << "SetOption " << shown(name) << " = " << shown(value) << " refused, " << code << ": "
            << why;
  return code;
}

}  // namespace

int SessionOptions::set(const char* name, const char* value, Stage stage) {
  if (name == nullptr) return refuse(kUnknownOption, name, value, "no name");
  const size_t nameLength = boundedLength(name, kMaxNameLength);
  if (nameLength > kMaxNameLength) return refuse(kUnknownOption, name, value, "name too long");
  const Option* option = nullptr;
  for (const Option& o : kOptions) {
    if (std::strcmp(o.name, name) == 0) option = &o;
  }
  if (option == nullptr) return refuse(kUnknownOption, name, value, "no such option");

  if (option->when == When::kBeforeInit && stage.sessionStarted)
    return refuse(kOptionOnlyBeforeInit, name, value, "the session has started");
  if (option->when == When::kBeforeFirstLog && (stage.sessionStarted || stage.processLogStarted))
    return refuse(kOptionOnlyBeforeInit, name, value, "the process log has started");

  if (value == nullptr) return refuse(kInvalidOptionValue, name, value, "no value");
  const size_t valueLength = boundedLength(value, kMaxValueLength);
  if (valueLength > kMaxValueLength) return refuse(kInvalidOptionValue, name, value, "too long");

  // Parse into a copy: a refused value leaves every setting as it was.
  SessionOptions changed = *this;
  if (const char* why = option->parse(changed, std::string(value, valueLength)))
    return refuse(kInvalidOptionValue, name, value, why);
  if (stage.sessionStarted) {
    // The session's threads read the other settings without a lock: write
    // only what may still change, the level.
    logLevel = changed.logLevel;
    logLevelSet = changed.logLevelSet;
  } else {
    *this = changed;
  }
  LOG_INFO << "SetOption " << name << " = " << PrintableBytes{value, valueLength};
  return kNoError;
}

}  // namespace mdapi
}  // namespace velmar
