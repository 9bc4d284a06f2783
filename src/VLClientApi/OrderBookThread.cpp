// The books' side of MdApiImpl: the hand-over from the receiver thread, the
// book thread's loop and gate, and the front thread's changes of the map.
//
// Who touches what:
// - receiver thread: handOverToBooks. Reads bookKeys_ under bookKeysMutex_,
//   copies the body into bytes of the node's own, enqueues. Never mutex_.
// - book thread: runOrderBook. Takes mutex_ for the whole of one node (gate,
//   rule, OnRtnOrderBook), then gives the node's bytes back.
// - front thread: addOrderBook, removeOrderBook, clearOrderBooks, with mutex_
//   held, each keeping bookKeys_ equal to the map's keys.
//
// Release of books. The map owns its books (unique_ptr), so a book whose
// entry is replaced or removed is freed right there, on the front thread under
// mutex_. That is safe: the book thread holds mutex_ for as long as it works
// on a book and looks the book up anew for every node, so it never holds a
// pointer across nodes, and the application sees the book only inside
// OnRtnOrderBook, under the same lock. A node still queued for a dropped book
// finds no entry, or a Fresh one, and is dropped by the gate.
//
// The order lists of CVelmarOrderBook are std::string objects of the
// library's own C++ runtime; an application reads them through the same
// standard library (see VelmarMdStruct.h).
#include <cassert>
#include <cstring>

#include "VLClientApi/MdApiImpl.h"
#include "VLClientApi/OrderBookRules.h"
#include "utility/Logging.h"

namespace velmar {
namespace mdapi {

static_assert(kSnapshotBookBytes <= BookBytesPool::kSlotSize &&
                  kOrderBookBytes <= BookBytesPool::kSlotSize &&
                  kTradeBookBytes <= BookBytesPool::kSlotSize,
              "a pool slot holds the book bytes of every kind of node");

void MdApiImpl::handOverToBooks(const char* body, orderBookNode::Kind kind) {
  const size_t size = bookBytesOf(kind);
  if (size == 0) return;
  // With allOrderBook_ set every Shenzhen message goes to the queue and the
  // key is not even looked at; the gate drops instruments without a book.
  if (!allOrderBook_.load(std::memory_order_acquire)) {
    const std::string key = securityIdKey(bookSecurityId(body, kind));  // short: no allocation
    utility::MutexLockGuard lock(bookKeysMutex_);
    if (bookKeys_.find(key) == bookKeys_.end()) return;
  }

  // The receive buffer is reused as soon as the handlers return, so the node
  // gets a copy of the bytes that the book thread will read: the whole of an
  // order or a trade, a snapshot up to its last book field. The datagram lies
  // in a buffer of feed::kReceiveSize bytes, so the copy stays within it.
  char* bytes = bookBytes_.take(size);
  if (bytes == nullptr) return;  // out of memory: the message is lost for the book
  std::memcpy(bytes, body, size);
  if (!orderBookQueue_.enqueue(orderBookNode{bytes, kind})) {
    bookBytes_.putBack(bytes);  // lost for the book; the handler still runs
  }
}

void MdApiImpl::runOrderBook() {
  // Polls without pause, sleep or wait: the thread keeps one core for the
  // life of the process, and a node waits for nothing but its predecessors.
  for (;;) pollBookQueue();
}

bool MdApiImpl::pollBookQueue() {
  orderBookNode node;
  if (!orderBookQueue_.try_dequeue(node)) return false;
  // The bytes go back even if the application's callback throws.
  struct GiveBack {
    BookBytesPool& pool;
    const char* bytes;
    ~GiveBack() { pool.release(bytes); }
  } giveBack{bookBytes_, node.data};
  handleBookNode(node);
  return true;
}

bool MdApiImpl::handleBookNode(const orderBookNode& node) {
  const int32_t kind = node.kind;
  if (kind != orderBookNode::kTrade && kind != orderBookNode::kOrder &&
      kind != orderBookNode::kSnapshot)
    return false;  // dropped without taking mutex_
  const char* body = node.data;

  utility::MutexLockGuard lock(mutex_);
  // The gate. Every refusal is silent: no callback, no log line.
  if (kind == orderBookNode::kSnapshot && !snapshotHasLastPx(body)) return false;
  auto it = szseOrderBookMap_.find(securityIdKey(bookSecurityId(body, kind)));
  if (it == szseOrderBookMap_.end()) return false;
  CVelmarOrderBook& book = *it->second;
  if (!bookAccepts(book, body, kind)) return false;

  switch (kind) {
    case orderBookNode::kTrade:
      applyTrade(book, body);
      break;
    case orderBookNode::kOrder:
      applyOrder(book, body);
      break;
    default:
      applySnapshot(book, body);
      break;
  }
  // Every accepted message is published, changed or not, with the live record
  // and mutex_ still held.
  spi_->OnRtnOrderBook(&book);
  return true;
}

void MdApiImpl::drainBookQueue() {
  orderBookNode node;
  while (orderBookQueue_.try_dequeue(node)) bookBytes_.release(node.data);
}

void MdApiImpl::addOrderBook(const char* id16) {
  assert(mutex_.isLockedByThisThread());
  std::string key = securityIdKey(id16, sizeof(CVelmarOrderBook::SecurityID));
  // Replacing an entry frees the former book here: its state is gone and the
  // new one is Fresh until its first snapshot.
  szseOrderBookMap_[key] = makeOrderBook(id16);
  LOG_INFO << "szseOrderBookMap_ add subInstrumentID:" << key;
  utility::MutexLockGuard lock(bookKeysMutex_);
  bookKeys_.insert(std::move(key));
}

void MdApiImpl::removeOrderBook(const char* id16) {
  assert(mutex_.isLockedByThisThread());
  const std::string key = securityIdKey(id16, sizeof(CVelmarOrderBook::SecurityID));
  szseOrderBookMap_.erase(key);
  utility::MutexLockGuard lock(bookKeysMutex_);
  bookKeys_.erase(key);
}

void MdApiImpl::clearOrderBooks() {
  assert(mutex_.isLockedByThisThread());
  szseOrderBookMap_.clear();
  std::unordered_set<std::string> dropped;
  {
    // Swap under the lock, free outside it: the receiver waits for a swap only.
    utility::MutexLockGuard lock(bookKeysMutex_);
    dropped.swap(bookKeys_);
  }
}

}  // namespace mdapi
}  // namespace velmar
