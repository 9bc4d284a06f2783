// Subscriptions: what the front's answers have granted, as the feed reads it.
// The tick filter (tickSubscriptions_) and the latest record of each
// subscribed instrument (marketDataExchange1_/2_).
//
// Threads and locks: everything here is guarded by the session lock
// (SessionCore::mutex_); every operation expects it held.
// - front thread (FrontSession): changes the maps as answers arrive, clears
//   them on logout and loss of the connection. Init clears the records too,
//   on the application thread.
// - receiver thread (Feed, SnapshotHandlers): looks instruments up and updates
//   the stored records in place; it never adds or removes an entry.
// A record is freed when its entry is replaced or removed, on the front thread
// under the lock, so the feed never keeps a pointer beyond its own lock scope.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "VLClientApi/SecurityIdKey.h"
#include "VelmarMdStruct.h"

namespace velmar {
namespace mdapi {

class TestAccess;

class Subscriptions {
 public:
  using RecordMap = std::unordered_map<std::string, std::unique_ptr<CVelmarMarketData>>;

  // ---- Front thread ----
  /// Takes a record of exchange 1 or 2 into its map, freeing one held before
  /// under the same id. A record of any other exchange is left with the caller.
  void keepMarketData(std::unique_ptr<CVelmarMarketData>& record) {
    RecordMap* map = record->ExchangeID == 1   ? &marketDataExchange1_
                     : record->ExchangeID == 2 ? &marketDataExchange2_
                                               : nullptr;
    if (map)
      (*map)[securityIdKey(record->SecurityID, sizeof record->SecurityID)] = std::move(record);
  }
  /// An unsubscription names no exchange: the id goes from both maps.
  void dropMarketData(const std::string& key) {
    marketDataExchange1_.erase(key);
    marketDataExchange2_.erase(key);
  }
  void clearMarketData() {
    marketDataExchange1_.clear();
    marketDataExchange2_.clear();
  }
  void addTicks(const std::string& key) { tickSubscriptions_[key] = 1; }
  void removeTicks(const std::string& key) { tickSubscriptions_.erase(key); }
  /// Logout and loss of the connection: nothing stays granted.
  void clear() {
    tickSubscriptions_.clear();
    clearMarketData();
  }

  // ---- Receiver thread ----
  /// The tick filter of one exchange for an 8-byte id: the exchange's
  /// all-ticks flag, or the instrument granted. With the flag set the key
  /// text is not even built.
  bool tickSubscribed(const std::atomic<bool>& allTicks, const char* securityId) const {
    return allTicks.load(std::memory_order_relaxed) ||
           tickSubscriptions_.find(securityIdKey(securityId)) != tickSubscriptions_.end();
  }
  /// The stored record of a Shanghai (1) or Shenzhen (2) instrument, or null.
  CVelmarMarketData* shanghaiRecord(const std::string& key) {
    return find(marketDataExchange1_, key);
  }
  CVelmarMarketData* shenzhenRecord(const std::string& key) {
    return find(marketDataExchange2_, key);
  }

  // ---- Any thread with the lock, for inspection ----
  size_t tickCount() const { return tickSubscriptions_.size(); }
  bool hasTicks(const std::string& key) const { return tickSubscriptions_.count(key) != 0; }

 private:
  friend class TestAccess;

  static CVelmarMarketData* find(RecordMap& map, const std::string& key) {
    auto it = map.find(key);
    return it == map.end() ? nullptr : it->second.get();
  }

  /// Instruments with a granted SubTickByTick.
  std::unordered_map<std::string, uint32_t> tickSubscriptions_;
  /// Latest record per instrument, one map per exchange; the maps own them.
  RecordMap marketDataExchange1_;
  RecordMap marketDataExchange2_;
};

}  // namespace mdapi
}  // namespace velmar
