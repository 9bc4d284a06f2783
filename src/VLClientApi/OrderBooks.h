// OrderBooks: the rebuilt books of subscribed Shenzhen instruments, the queue
// that carries messages to them, and the book thread's loop.
//
// Threads, and what each may touch:
// - receiver thread: handOverToBooks only. Reads bookKeys_ under
//   bookKeysMutex_, takes bytes from bookBytes_, enqueues. Never mutex_, which
//   is held across application callbacks.
// - book thread: runOrderBook (pollBookQueue, handleBookNode). Takes mutex_
//   for the whole of one node: look-up, builder, OnRtnOrderBook.
// - front thread: addOrderBook, removeOrderBook, clearOrderBooks, with mutex_
//   held, each keeping bookKeys_ equal to the map's keys. Init also calls
//   clearOrderBooks, on the application thread with mutex_ held.
//
// Locks: szseOrderBookMap_ is guarded by mutex_. bookKeys_ by bookKeysMutex_,
// which is taken after mutex_ (front thread) or alone (receiver), and guards
// nothing else. orderBookQueue_ and bookBytes_ need no lock: one producer,
// the receiver, and one consumer, the book thread.
//
// Release of books. The map owns its books, so a book whose entry is replaced
// or removed is freed right there, on the front thread under mutex_. That is
// safe: the book thread holds mutex_ for as long as it works on a book and
// looks the book up anew for every node, and the application sees the book
// only inside OnRtnOrderBook, under the same lock. A node still queued for a
// dropped book finds no entry, or a fresh one, and is refused.
#pragma once

#include <concurrentqueue/concurrentqueue.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "VLClientApi/BookBuilder.h"
#include "VLClientApi/BookBytesPool.h"
#include "VLClientApi/OrderBookNode.h"
#include "VLClientApi/SessionCore.h"
#include "utility/Mutex.h"

namespace velmar {
namespace mdapi {

class TestAccess;

class OrderBooks {
 public:
  /// `core` outlives this object; `builder` makes and updates every book.
  OrderBooks(SessionCore& core, std::unique_ptr<BookBuilder> builder);
  /// Frees the bytes of the nodes still queued; no book thread runs by then.
  ~OrderBooks();
  OrderBooks(const OrderBooks&) = delete;
  OrderBooks& operator=(const OrderBooks&) = delete;

  // ---- Receiver thread ----
  /// Queues a Shenzhen message for the book thread if its instrument has a
  /// book or allOrderBook_ is set. The node carries a copy of the body's
  /// book bytes, since the receive buffer is reused at once.
  void handOverToBooks(const char* body, orderBookNode::Kind kind);

  // ---- Book thread ----
  /// Body of the book thread: polls the queue for ever.
  void runOrderBook();
  /// One turn of the book thread's loop: takes one node if there is one,
  /// handles it and gives its bytes back. False if the queue was empty.
  bool pollBookQueue();
  /// The look-up, the builder and OnRtnOrderBook, all under mutex_. A node of
  /// an unknown kind returns at once without the lock. True if the book was
  /// published.
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

  SessionCore& core_;
  const std::unique_ptr<BookBuilder> builder_;

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
};

}  // namespace mdapi
}  // namespace velmar
