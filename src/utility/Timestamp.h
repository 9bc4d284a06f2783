#pragma once

#include <cstdint>
#include <string>

namespace velmar {

/// Microseconds since the Unix epoch, held by value.
class Timestamp {
 public:
  static constexpr int64_t kMicroSecondsPerSecond = 1000 * 1000;

  Timestamp() : microSecondsSinceEpoch_(0) {}
  explicit Timestamp(int64_t microSecondsSinceEpoch)
      : microSecondsSinceEpoch_(microSecondsSinceEpoch) {}

  /// The platform's 100-ns clock divided by 10.
  static Timestamp now();
  static Timestamp invalid() { return Timestamp(); }

  bool valid() const { return microSecondsSinceEpoch_ > 0; }
  int64_t microSecondsSinceEpoch() const { return microSecondsSinceEpoch_; }
  int64_t secondsSinceEpoch() const { return microSecondsSinceEpoch_ / kMicroSecondsPerSecond; }

  /// Local time: "YYYYMMDD HH:MM:SS" (17 characters), with ".uuuuuu" when
  /// showMicroseconds is set (24 characters).
  std::string toFormattedString(bool showMicroseconds = true) const;

 private:
  int64_t microSecondsSinceEpoch_;
};

inline bool operator<(Timestamp a, Timestamp b) {
  return a.microSecondsSinceEpoch() < b.microSecondsSinceEpoch();
}
inline bool operator==(Timestamp a, Timestamp b) {
  return a.microSecondsSinceEpoch() == b.microSecondsSinceEpoch();
}

/// `t` plus `seconds`, the seconds as whole microseconds truncated toward 0.
inline Timestamp addTime(Timestamp t, double seconds) {
  int64_t delta = static_cast<int64_t>(seconds * Timestamp::kMicroSecondsPerSecond);
  return Timestamp(t.microSecondsSinceEpoch() + delta);
}

}  // namespace velmar
