// SetOption, GetStatistics and RegisterStatusSpi: the operations added behind
// the requests. The settings themselves live in SessionOptions and the
// counters in SessionCounters; this file joins them to the session.
#include <algorithm>
#include <cstring>

#include "VLClientApi/ErrorTable.h"
#include "VLClientApi/MdApiImpl.h"
#include "VLClientApi/ProcessLog.h"
#include "VLNet/EventLoop.h"
#include "utility/Logging.h"

namespace velmar {
namespace mdapi {

namespace {
// Size of the first version of the record: every reader knows at least it.
constexpr uint32_t kFirstStatisticsSize = 200;
static_assert(sizeof(CVelmarStatistics) >= kFirstStatisticsSize, "the record only grows");
}  // namespace

int MdApiImpl::SetOption(const char* name, const char* value) {
  const SessionOptions::Stage stage{started_.load(), processLogStarted()};
  const int result = options_.set(name, value, stage);
  // The level is the process's: it applies at once, before Init too, and
  // Init keeps it.
  if (result == kNoError && std::strcmp(name, "log.level") == 0)
    utility::Logger::setLogLevel(options_.logLevel);
  return result;
}

int MdApiImpl::GetStatistics(CVelmarStatistics* out) {
  if (out == nullptr || out->Size < kFirstStatisticsSize) {
    LOG_ERROR << "GetStatistics refused, " << kInvalidStatisticsRecord << ": "
              << (out ? "Size below the first version's" : "null record");
    return kInvalidStatisticsRecord;
  }
  CVelmarStatistics all;
  counters_.fill(&all);
  // A caller built against a newer header keeps the fields this version
  // doesn't know as it left them; Size tells it where ours end.
  const uint32_t filled = std::min<uint32_t>(out->Size, sizeof all);
  all.Size = filled;
  std::memcpy(out, &all, filled);
  return kNoError;
}

void MdApiImpl::RegisterStatusSpi(VelmarMdStatusSpi* spi) {
  statusSpi_.store(spi, std::memory_order_release);
}

void MdApiImpl::startStatisticsTimer() {
  const uint32_t ms = options_.statsIntervalMs;
  net::EventLoop* loop = front_.loop();
  if (ms == 0 || loop == nullptr) return;
  // On the front loop, which lives until Release: no thread of its own for a
  // callback that comes a few times a second at most.
  loop->runEvery(ms / 1000.0, [this] { reportStatistics(); });
}

void MdApiImpl::reportStatistics() {
  VelmarMdStatusSpi* spi = statusSpi();
  if (spi == nullptr) return;
  // Counted before the read, so that the record counts the call it comes in.
  SessionCounters::add(counters_.front.callbacksStatus);
  CVelmarStatistics statistics;
  counters_.fill(&statistics);
  spi->OnStatistics(&statistics);
}

}  // namespace mdapi
}  // namespace velmar
