// OrderBooks: the rebuilt books of subscribed Shenzhen instruments, the queue
// that carries messages to them, and the book thread's loop.
//
// Threads, and what each may touch:
// - receiver thread: handOverToBooks only. Reads bookKeys_ under
//   bookKeysMutex_, takes bytes from bookBytes_, enqueues. Never mutex_, which
//   is held across application callbacks.
// - book thread: runOrderBook (pollBookQueue, handleBookNode, idle). With
//   callbacks serialized (the default) it takes mutex_ for the whole of one
//   node: look-up, builder, OnRtnOrderBook. Otherwise it takes mutex_ for the
//   look-up, the builder and a copy of the book into bookScratch_, and calls
//   OnRtnOrderBook with that copy under its own callback lock
//   (SessionCore::callbackMutex(kBooks)), so a slow callback holds up
//   neither the front nor, through mutex_, anyone else.
// - front thread: addOrderBook, removeOrderBook, clearOrderBooks, with mutex_
//   held, each keeping bookKeys_ equal to the map's keys. Init also calls
//   clearOrderBooks, on the application thread with mutex_ held.
//
// Locks: szseOrderBookMap_ is guarded by mutex_. bookKeys_ by bookKeysMutex_,
// which is taken after mutex_ (front thread) or alone (receiver), and guards
// nothing else. orderBookQueue_ and bookBytes_ need no lock: one producer,
// the receiver, and one consumer, the book thread. wakeMutex_ guards nothing
// but the book thread's sleep (book.idle=block) and is taken alone.
//
// Settings (configure) are copied by Init before the book thread starts and
// never change after, so both threads read them without a lock.
//
// Sleeping (book.idle=block). The book thread announces its sleep with an
// exchange of sleeping_ and looks at the queue once more before it waits; the
// receiver, after each enqueue, clears sleeping_ with an exchange too and
// wakes the thread only if the flag was set. Both are read-modify-writes of
// one atomic, so either the receiver sees the flag, or the book thread's
// exchange reads the receiver's and its last look finds the node: no wake-up
// is lost, and the receiver makes no system call while the book thread is busy.
//
// Memory. The bytes of nodes beyond the pool's slots come from the heap and
// are freed as soon as the book thread has handled them, but the allocator
// keeps such small pieces for reuse rather than giving them to the system,
// and the queue keeps the blocks it grew to for as long as it lives: what a
// burst took stays with the process (order_book_bench BM_BurstMemory shows
// it). book.queue_limit bounds both.
//
// Release of books. The map owns its books, so a book whose entry is replaced
// or removed is freed right there, on the front thread under mutex_. That is
// safe: the book thread holds mutex_ for as long as it works on a book and
// looks the book up anew for every node, and the application sees the live
// book only inside OnRtnOrderBook, under the same lock (or, with callbacks
// not serialized, a copy of the book's own). A node still queued for a
// dropped book finds no entry, or a fresh one, and is refused.
#pragma once

#include <concurrentqueue/concurrentqueue.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "VLClientApi/BookBuilder.h"
#include "VLClientApi/BookBytesPool.h"
#include "VLClientApi/OrderBookNode.h"
#include "VLClientApi/SessionCore.h"
#include "VLClientApi/SessionCounters.h"
#include "VLClientApi/SessionOptions.h"
#include "utility/Mutex.h"

namespace velmar {
namespace mdapi {

class TestAccess;

class OrderBooks {
 public:
  /// `core` and `counters` outlive this object; `builder` makes and updates
  /// every book.
  OrderBooks(SessionCore& core, SessionCounters& counters, std::unique_ptr<BookBuilder> builder);
  /// Frees the bytes of the nodes still queued; no book thread runs by then.
  ~OrderBooks();
  OrderBooks(const OrderBooks&) = delete;
  OrderBooks& operator=(const OrderBooks&) = delete;

  // ---- Application thread, before the book thread starts ----
  /// Takes book.idle, book.cpu and book.queue_limit. Without it the books
  /// behave as without options.
  void configure(const SessionOptions& options);

  // ---- Receiver thread ----
  /// Queues a Shenzhen message for the book thread if its instrument has a
  /// book or allOrderBook_ is set. The node carries a copy of the body's
  /// book bytes, since the receive buffer is reused at once. Past
  /// book.queue_limit nodes in flight the message is dropped and counted.
  void handOverToBooks(const char* body, orderBookNode::Kind kind);
  /// Wakes the book thread if it sleeps (book.idle=block). Called by
  /// handOverToBooks; any thread may call it.
  void wakeBookThread() {
    if (sleeping_.exchange(false, std::memory_order_acq_rel)) notifyBookThread();
  }

  // ---- Book thread ----
  /// Body of the book thread: pins it (book.cpu), then polls the queue for
  /// ever, idling between empty polls as book.idle says.
  void runOrderBook();
  /// What the book thread does after an empty poll: nothing (spin), give up
  /// the CPU once (yield), or poll a little longer and then sleep until
  /// wakeBookThread (block). Returns when a node may be there.
  void idle();
  /// One turn of the book thread's loop: takes one node if there is one,
  /// handles it and gives its bytes back. False if the queue was empty.
  bool pollBookQueue();
  /// The look-up, the builder and OnRtnOrderBook: all under mutex_ while
  /// callbacks are serialized, else the callback on a copy of the book under
  /// the books' callback lock. A node of an unknown kind returns at once
  /// without a lock. True if the book was published.
  bool handleBookNode(const orderBookNode& node);
  /// Frees the bytes of every node still queued. Only while no book thread
  /// runs: at destruction, and in tests.
  void drainBookQueue();

  // ---- Front thread, mutex_ held ----
  /// A fresh book for a 16-byte id, replacing any book of that id.
  void addOrderBook(const char* id16);
  /// Drops the book of a 16-byte id, if there is one.
  void removeOrderBook(const char* id16);
  /// Logout, lost connection, given-up connect, Init: drops every book.
  void clearOrderBooks();

  // ---- Any thread, mutex_ held ----
  /// The live book of an instrument, or null. Valid while the lock is held.
  CVelmarOrderBook* findBook(const std::string& key) const;
  size_t bookCount() const { return szseOrderBookMap_.size(); }

 private:
  friend class TestAccess;

  /// Book thread: the sleep of book.idle=block, after the queue was found
  /// empty for a while.
  void sleepUntilWoken();
  /// Receiver thread: the wake-up itself, once sleeping_ was found set.
  void notifyBookThread();

  SessionCore& core_;
  SessionCounters& counters_;
  const std::unique_ptr<BookBuilder> builder_;

  // Settings, from configure.
  SessionOptions::BookIdle idle_ = SessionOptions::BookIdle::kSpin;
  int cpu_ = SessionOptions::kNoCpu;
  uint32_t queueLimit_ = SessionOptions::kUnboundedQueue;

  /// The book thread's system id, once it runs (0 before); for tests.
  std::atomic<uint64_t> bookThreadId_{0};
  /// Book thread only: the book handed to OnRtnOrderBook while callbacks are
  /// not serialized, a copy taken under mutex_.
  std::unique_ptr<CVelmarOrderBook> bookScratch_;

  /// Books of subscribed Shenzhen instruments; mutex_.
  std::unordered_map<std::string, std::unique_ptr<CVelmarOrderBook>> szseOrderBookMap_;
  /// Receiver thread to book thread; one producer, one consumer.
  moodycamel::ConcurrentQueue<orderBookNode> orderBookQueue_;
  /// Bytes of the queued nodes: the receiver fills them, the book thread gives
  /// them back.
  BookBytesPool bookBytes_;
  /// The keys of szseOrderBookMap_, for the receiver's filter.
  utility::MutexLock bookKeysMutex_;
  std::unordered_set<std::string> bookKeys_;

  /// Set by the book thread before it sleeps, cleared by whoever wakes it.
  alignas(64) std::atomic<bool> sleeping_{false};
  std::mutex wakeMutex_;
  std::condition_variable wakeCondition_;
};

}  // namespace mdapi
}  // namespace velmar
