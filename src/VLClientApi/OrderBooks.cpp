// The order lists of CVelmarOrderBook are std::string objects of the
// library's own C++ runtime; an application reads them through the same
// standard library (see VelmarMdStruct.h).
#include "VLClientApi/OrderBooks.h"

#include <cassert>
#include <cstring>

#include "VLClientApi/OrderBookRules.h"
#include "VLClientApi/SecurityIdKey.h"
#include "utility/Logging.h"
#include "utility/PrintableBytes.h"

namespace velmar {
namespace mdapi {

static_assert(kSnapshotBookBytes <= BookBytesPool::kSlotSize &&
                  kOrderBookBytes <= BookBytesPool::kSlotSize &&
                  kTradeBookBytes <= BookBytesPool::kSlotSize,
              "a pool slot holds the book bytes of every kind of node");

OrderBooks::OrderBooks(SessionCore& core, std::unique_ptr<BookBuilder> builder)
    : core_(core), builder_(std::move(builder)), orderBookQueue_(192) {}

OrderBooks::~OrderBooks() { drainBookQueue(); }

void OrderBooks::handOverToBooks(const char* body, orderBookNode::Kind kind) {
  const size_t size = bookBytesOf(kind);
  if (size == 0) return;
  // With allOrderBook_ set every Shenzhen message goes to the queue and the
  // key is not even looked at; the book thread drops instruments without a book.
  if (!core_.allOrderBook_.load(std::memory_order_acquire)) {
    const std::string key = securityIdKey(bookSecurityId(body, kind));  // short: no allocation
    utility::MutexLockGuard lock(bookKeysMutex_);
    if (bookKeys_.find(key) == bookKeys_.end()) return;
  }

  // The node gets a copy of the bytes that the book thread will read: the
  // whole of an order or a trade, a snapshot up to its last book field. The
  // datagram lies in a buffer of feed::kReceiveSize bytes, so the copy stays
  // within it.
  char* bytes = bookBytes_.take(size);
  if (bytes == nullptr) return;  // out of memory: the message is lost for the book
  std::memcpy(bytes, body, size);
  if (!orderBookQueue_.enqueue(orderBookNode{bytes, kind})) {
    bookBytes_.putBack(bytes);  // lost for the book; the handler still runs
  }
}

void OrderBooks::runOrderBook() {
  // Polls without pause, sleep or wait: the thread keeps one core for the
  // life of the process, and a node waits for nothing but its predecessors.
  for (;;) pollBookQueue();
}

bool OrderBooks::pollBookQueue() {
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

bool OrderBooks::handleBookNode(const orderBookNode& node) {
  const int32_t kind = node.kind;
  if (kind != orderBookNode::kTrade && kind != orderBookNode::kOrder &&
      kind != orderBookNode::kSnapshot)
    return false;  // dropped without taking mutex_
  const char* body = node.data;

  utility::MutexLockGuard lock(core_.mutex_);
  auto it = szseOrderBookMap_.find(securityIdKey(bookSecurityId(body, kind)));
  if (it == szseOrderBookMap_.end()) return false;  // silent, as every refusal
  CVelmarOrderBook& book = *it->second;
  if (!builder_->apply(book, body, kind)) return false;
  // Every accepted message is published, changed or not, with the live record
  // and mutex_ still held.
  core_.spi_->OnRtnOrderBook(&book);
  return true;
}

void OrderBooks::drainBookQueue() {
  orderBookNode node;
  while (orderBookQueue_.try_dequeue(node)) bookBytes_.release(node.data);
}

void OrderBooks::addOrderBook(const char* id16) {
  assert(core_.mutex_.isLockedByThisThread());
  std::string key = securityIdKey(id16, sizeof(CVelmarOrderBook::SecurityID));
  // Replacing an entry frees the former book here: its state is gone and the
  // new one is fresh until its first snapshot.
  szseOrderBookMap_[key] = builder_->makeBook(id16);
  LOG_INFO << "szseOrderBookMap_ add subInstrumentID:"
           << utility::PrintableBytes{key.data(), key.size()};
  utility::MutexLockGuard lock(bookKeysMutex_);
  bookKeys_.insert(std::move(key));
}

void OrderBooks::removeOrderBook(const char* id16) {
  assert(core_.mutex_.isLockedByThisThread());
  const std::string key = securityIdKey(id16, sizeof(CVelmarOrderBook::SecurityID));
  szseOrderBookMap_.erase(key);
  utility::MutexLockGuard lock(bookKeysMutex_);
  bookKeys_.erase(key);
}

void OrderBooks::clearOrderBooks() {
  assert(core_.mutex_.isLockedByThisThread());
  szseOrderBookMap_.clear();
  std::unordered_set<std::string> dropped;
  {
    // Swap under the lock, free outside it: the receiver waits for a swap only.
    utility::MutexLockGuard lock(bookKeysMutex_);
    dropped.swap(bookKeys_);
  }
}

CVelmarOrderBook* OrderBooks::findBook(const std::string& key) const {
  auto it = szseOrderBookMap_.find(key);
  return it == szseOrderBookMap_.end() ? nullptr : it->second.get();
}

}  // namespace mdapi
}  // namespace velmar
