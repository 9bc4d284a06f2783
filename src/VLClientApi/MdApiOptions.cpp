// SetOption, GetStatistics and RegisterStatusSpi: the operations added behind
// the requests. The settings themselves live in SessionOptions and the
// counters in SessionCounters; this file joins them to the session.
#include <algorithm>
#include <cstring>

#include "VLClientApi/ErrorTable.h"
#include "VLClientApi/MdApiImpl.h"
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

}  // namespace mdapi
}  // namespace velmar
