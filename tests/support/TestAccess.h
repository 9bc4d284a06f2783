// The one door through which tests and benchmarks reach the private state of
// the session and its parts. Each hook names what a test needs to see or set;
// everything else goes through the parts' own operations.
#pragma once

#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <string>
#include <unordered_map>

#include "VLClientApi/Feed.h"
#include "VLClientApi/FrontSession.h"
#include "VLClientApi/MdApiImpl.h"
#include "VLClientApi/OrderBooks.h"
#include "VLClientApi/Subscriptions.h"
#include "VLNet/EventLoop.h"
#include "VLNet/EventLoopThread.h"
#include "VLNet/TcpClient.h"

namespace velmar {
namespace mdapi {

class TestAccess {
 public:
  // ---- Session ----
  static SessionCore& core(MdApiImpl& api) { return api; }
  static OrderBooks& books(MdApiImpl& api) { return api.books_; }
  static Feed& feed(MdApiImpl& api) { return api.feed_; }
  static FrontSession& front(MdApiImpl& api) { return api.front_; }
  static Subscriptions& subscriptions(MdApiImpl& api) { return api.front_.subscriptions(); }

  /// As Init leaves the session, without its threads.
  static void markStarted(MdApiImpl& api) { api.started_.store(true); }
  static const SessionOptions& options(MdApiImpl& api) { return api.options_; }
  static SessionCounters& counters(MdApiImpl& api) { return api.counters_; }
  static void startStatisticsTimer(MdApiImpl& api) { api.startStatisticsTimer(); }
  static void reportStatistics(MdApiImpl& api) { api.reportStatistics(); }

  // ---- Front session ----
  /// Stops the connector and closes a live connection; the loop runs on.
  static void stopClient(FrontSession& front) { front.client_->stop(); }
  /// Ends a session that a test started with startLoop and createClient: the
  /// client and the last connection go on the loop thread, which they belong
  /// to, then the loop ends.
  static void closeFront(FrontSession& front) {
    std::promise<void> done;
    front.loop_->runInLoop([&] {
      front.client_.reset();
      front.conn_.reset();
      done.set_value();
    });
    done.get_future().wait();
    front.loopThread_->quit();
    front.loopThread_->join();
  }

  // ---- Feed ----
  /// Last accepted sequence number per channel.
  static const std::unordered_map<uint32_t, int64_t>& channelSeq(Feed& feed) {
    return feed.channelSeq_;
  }

  // ---- Subscriptions ----
  /// Stores a record under a key of exchange 1 or 2 whatever the record
  /// holds, as a test's byte pattern needs; mutex_ held or no other thread.
  static void putRecord(Subscriptions& s, int exchange, const std::string& key,
                        std::unique_ptr<CVelmarMarketData> record) {
    (exchange == 1 ? s.marketDataExchange1_ : s.marketDataExchange2_)[key] = std::move(record);
  }

  // ---- Books ----
  /// Nodes waiting for the book thread (approximate while threads run).
  static size_t queuedNodes(OrderBooks& books) { return books.orderBookQueue_.size_approx(); }
  /// Takes the next node off the queue as the book thread would, leaving its
  /// bytes with the caller (give them back with releaseNode).
  static bool takeNode(OrderBooks& books, orderBookNode* node) {
    return books.orderBookQueue_.try_dequeue(*node);
  }
  static void releaseNode(OrderBooks& books, const orderBookNode& node) {
    books.bookBytes_.release(node.data);
  }
  static const BookBytesPool& bookBytes(OrderBooks& books) { return books.bookBytes_; }
  /// True while the book thread has announced its sleep (book.idle=block).
  static bool bookThreadSleeping(OrderBooks& books) {
    return books.sleeping_.load(std::memory_order_acquire);
  }
  /// The system id of the thread in runOrderBook, 0 until it runs.
  static uint64_t bookThreadId(OrderBooks& books) {
    return books.bookThreadId_.load(std::memory_order_acquire);
  }
  /// mutex_ held: the receiver's key set equals the keys of the map.
  static bool bookKeysMirrorMap(OrderBooks& books) {
    utility::MutexLockGuard lock(books.bookKeysMutex_);
    if (books.bookKeys_.size() != books.szseOrderBookMap_.size()) return false;
    for (const auto& e : books.szseOrderBookMap_)
      if (books.bookKeys_.count(e.first) != 1) return false;
    return true;
  }
};

}  // namespace mdapi
}  // namespace velmar
