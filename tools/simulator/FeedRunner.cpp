#include "simulator/FeedRunner.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <optional>
#include <thread>

#include "sim/FeedEncoder.h"
#include "sim/MarketRecords.h"

namespace velmar {
namespace sim {

namespace {

// How often the shared records and the true book file are brought up to
// date, and how often a progress line is printed.
constexpr int64_t kRecordsEveryUs = 20000;
constexpr int64_t kTrueBookEveryUs = 100000;
constexpr int64_t kProgressEveryUs = 5000000;

}  // namespace

FeedRunner::FeedRunner(const SimOptions& o, FeedSource& source, MulticastSender* sender,
                       ReplayWriter* recorder, SharedRecords* shared, const std::atomic<bool>& stop)
    : o_(o),
      source_(source),
      sender_(sender),
      recorder_(recorder),
      shared_(shared),
      stop_(stop),
      trueBookAtUs_(-kTrueBookEveryUs) {}

void FeedRunner::run() {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  auto elapsedUs = [&] {
    return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count();
  };
  const int64_t durationUs = static_cast<int64_t>(o_.duration * 1e6);
  int64_t nextProgressUs = kProgressEveryUs;
  Datagram d;
  int64_t dueUs = 0;
  while (!stop_ && (o_.count == 0 || sent_ < o_.count)) {
    if (!source_.next(&d, &dueUs)) {
      if (!source_.error().empty()) {
        std::fprintf(stderr, "vlmd-sim: %s: %s\n", o_.replayPath.c_str(), source_.error().c_str());
        failed_ = true;
      }
      break;
    }
    // Without sending, nothing waits: a duration then bounds the datagrams'
    // own times, which records a stretch of the market as fast as possible.
    if (durationUs > 0 && dueUs > durationUs) break;
    // Sleep in slices so that a stop ends the wait soon.
    for (int64_t now = elapsedUs(); sender_ && dueUs > now + 500 && !stop_; now = elapsedUs()) {
      std::this_thread::sleep_for(std::chrono::microseconds(std::min<int64_t>(dueUs - now, 50000)));
    }
    if (stop_) break;
    const int64_t now = elapsedUs();
    if (durationUs > 0 && sender_ && now > durationUs) break;
    publish(d, dueUs, now);
    if (!o_.quiet && now >= nextProgressUs) {
      std::printf("vlmd-sim: %lld datagrams sent\n", static_cast<long long>(sent_.load()));
      std::fflush(stdout);
      nextProgressUs += kProgressEveryUs;
    }
    if (source_.caughtUp()) refresh(now);
  }
  if (recorder_) recorder_->flush();
  if (shared_) shared_->set(source_.records());
  ended_ = true;
}

void FeedRunner::publish(const Datagram& d, int64_t dueUs, int64_t nowUs) {
  // A withheld datagram is lost on the way: the market has made its move.
  if (o_.dropEvery > 0 && ++offered_ % o_.dropEvery == 0) {
    ++dropped_;
    source_.sent(d);
    return;
  }
  if (sender_ && !sender_->send(d.bytes.data(), d.bytes.size())) {
    if (++failures_ <= 5) {
      std::fprintf(stderr, "vlmd-sim: send failed (error %d)\n", sender_->lastError());
    }
    return;
  }
  ++sent_;
  ++sentByType_[messageType(d.bytes)];
  source_.sent(d);
  if (recorder_) {
    // A datagram is recorded at the time it was due; without pacing, at the
    // time it went out, or at its own time when nothing is sent.
    const int64_t at = dueUs >= 0 ? dueUs : sender_ ? nowUs : d.timeUs;
    recorder_->write(at, d.bytes.data(), d.bytes.size());
  }
}

void FeedRunner::refresh(int64_t nowUs) {
  if (shared_ && nowUs - recordsAtUs_ >= kRecordsEveryUs) {
    shared_->set(source_.records());
    recordsAtUs_ = nowUs;
  }
  if (!o_.trueBookPath.empty() && nowUs - trueBookAtUs_ >= kTrueBookEveryUs) {
    std::string error;
    std::optional<std::string> text = source_.trueBook(o_.trueBookId);
    if (text && !replaceFile(o_.trueBookPath, *text, &error) && !trueBookWarned_) {
      // A reader that holds the file open can make one replacement fail; the
      // next one tries again, so say it once.
      std::fprintf(stderr, "vlmd-sim: %s\n", error.c_str());
      trueBookWarned_ = true;
    }
    trueBookAtUs_ = nowUs;
  }
}

}  // namespace sim
}  // namespace velmar
