// The order lists of CVelmarOrderBook are std::string objects of the
// library's own C++ runtime; an application reads them through the same
// standard library (see VelmarMdStruct.h).
#include "VLClientApi/OrderBooks.h"

#include <cassert>
#include <chrono>
#include <cstring>
#include <thread>

#include "VLClientApi/OrderBookRules.h"
#include "VLClientApi/SecurityIdKey.h"
#include "utility/Logging.h"
#include "utility/Platform.h"
#include "utility/PrintableBytes.h"

namespace velmar {
namespace mdapi {

static_assert(kSnapshotBookBytes <= BookBytesPool::kSlotSize &&
                  kOrderBookBytes <= BookBytesPool::kSlotSize &&
                  kTradeBookBytes <= BookBytesPool::kSlotSize,
              "a pool slot holds the book bytes of every kind of node");

namespace {
// book.idle=block: how long the book thread keeps polling an empty queue
// before it sleeps. A burst's next message usually comes within it, and then
// costs no wake-up; an idle feed costs this much CPU once per message.
constexpr auto kPollBeforeSleep = std::chrono::microseconds(50);
// The longest sleep. No wake-up is lost by design; this only bounds the harm
// if one ever were.
constexpr auto kLongestSleep = std::chrono::seconds(1);
}  // namespace

OrderBooks::OrderBooks(SessionCore& core, SessionCounters& counters,
                       std::unique_ptr<BookBuilder> builder)
    : core_(core), counters_(counters), builder_(std::move(builder)), orderBookQueue_(192) {}

OrderBooks::~OrderBooks() { drainBookQueue(); }

void OrderBooks::configure(const SessionOptions& options) {
  idle_ = options.bookIdle;
  cpu_ = options.bookCpu;
  queueLimit_ = options.bookQueueLimit;
}

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
  if (queueLimit_ != SessionOptions::kUnboundedQueue) {
    // Nodes in flight: queued and not yet handled, their bytes included. The
    // handled count may lag a moment, which only drops a node early.
    const uint64_t queued = counters_.receiver.bookNodesQueued.load(std::memory_order_relaxed);
    const uint64_t handled = counters_.books.nodesHandled.load(std::memory_order_relaxed);
    if (queued - handled >= queueLimit_) {
      SessionCounters::add(counters_.receiver.bookNodesDropped);
      return;
    }
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
    return;
  }
  counters_.noteBookNodeQueued();
  if (idle_ == SessionOptions::BookIdle::kBlock) wakeBookThread();
}

void OrderBooks::notifyBookThread() {
  // Under the lock: the book thread either has not yet looked at the flag,
  // and will see it cleared, or already waits and gets the notice.
  { std::lock_guard<std::mutex> lock(wakeMutex_); }
  wakeCondition_.notify_one();
}

void OrderBooks::runOrderBook() {
  bookThreadId_.store(platform::currentThreadId(), std::memory_order_release);
  if (cpu_ != SessionOptions::kNoCpu && !platform::pinCurrentThread(cpu_)) {
    LOG_WARN << "book.cpu " << cpu_ << ": the book thread could not be pinned, it runs unpinned";
  }
  if (idle_ == SessionOptions::BookIdle::kSpin) {
    // Polls without pause, sleep or wait: the thread keeps one core for the
    // life of the process, and a node waits for nothing but its predecessors.
    for (;;) pollBookQueue();
  }
  for (;;) {
    if (!pollBookQueue()) idle();
  }
}

void OrderBooks::idle() {
  switch (idle_) {
    case SessionOptions::BookIdle::kSpin:
      return;
    case SessionOptions::BookIdle::kYield:
      std::this_thread::yield();
      return;
    case SessionOptions::BookIdle::kBlock:
      break;
  }
  const auto until = std::chrono::steady_clock::now() + kPollBeforeSleep;
  do {
    for (int i = 0; i < 64; ++i) {
      if (pollBookQueue()) return;
    }
  } while (std::chrono::steady_clock::now() < until);
  sleepUntilWoken();
}

void OrderBooks::sleepUntilWoken() {
  sleeping_.exchange(true, std::memory_order_acq_rel);
  for (;;) {
    // The last look, after the announcement: a node enqueued before the
    // receiver's exchange is seen here, one after it comes with a wake-up.
    // After a time-out the look is all: the flag still stands, so the thread
    // sleeps on without polling again.
    if (pollBookQueue()) break;
    std::unique_lock<std::mutex> lock(wakeMutex_);
    if (wakeCondition_.wait_for(lock, kLongestSleep,
                                [this] { return !sleeping_.load(std::memory_order_acquire); }))
      break;
  }
  sleeping_.store(false, std::memory_order_relaxed);
}

bool OrderBooks::pollBookQueue() {
  orderBookNode node;
  if (!orderBookQueue_.try_dequeue(node)) return false;
  // The bytes go back even if the application's callback throws.
  // The node counts as handled once its bytes are back: the queue limit
  // counts them in flight until then.
  struct GiveBack {
    BookBytesPool& pool;
    SessionCounters::Counter& handled;
    const char* bytes;
    ~GiveBack() {
      pool.release(bytes);
      SessionCounters::add(handled);
    }
  } giveBack{bookBytes_, counters_.books.nodesHandled, node.data};
  handleBookNode(node);
  return true;
}

bool OrderBooks::handleBookNode(const orderBookNode& node) {
  const int32_t kind = node.kind;
  if (kind != orderBookNode::kTrade && kind != orderBookNode::kOrder &&
      kind != orderBookNode::kSnapshot)
    return false;  // dropped without taking mutex_
  const char* body = node.data;

  if (core_.serializeCallbacks_) {
    utility::MutexLockGuard lock(core_.mutex_);
    auto it = szseOrderBookMap_.find(securityIdKey(bookSecurityId(body, kind)));
    if (it == szseOrderBookMap_.end()) return false;  // silent, as every refusal
    CVelmarOrderBook& book = *it->second;
    if (!builder_->apply(book, body, kind)) return false;
    // Every accepted message is published, changed or not, with the live
    // record and mutex_ still held.
    SessionCounters::add(counters_.books.published);
    SessionCounters::add(counters_.books.callbacksOrderBook);
    core_.spi_->OnRtnOrderBook(&book);
    return true;
  }

  {
    utility::MutexLockGuard lock(core_.mutex_);
    auto it = szseOrderBookMap_.find(securityIdKey(bookSecurityId(body, kind)));
    if (it == szseOrderBookMap_.end()) return false;
    CVelmarOrderBook& book = *it->second;
    if (!builder_->apply(book, body, kind)) return false;
    // The front may replace or drop the live book as soon as mutex_ is given
    // back: the application gets a copy that no one changes during the call.
    // The order lists keep their capacity from one copy to the next.
    if (bookScratch_) {
      *bookScratch_ = book;
    } else {
      bookScratch_.reset(new CVelmarOrderBook(book));
    }
  }
  SessionCounters::add(counters_.books.published);
  SessionCounters::add(counters_.books.callbacksOrderBook);
  utility::MutexLockGuard lock(core_.callbackMutex(SessionCore::Caller::kBooks));
  core_.spi_->OnRtnOrderBook(bookScratch_.get());
  return true;
}

void OrderBooks::drainBookQueue() {
  orderBookNode node;
  while (orderBookQueue_.try_dequeue(node)) {
    bookBytes_.release(node.data);
    SessionCounters::add(counters_.books.nodesHandled);
  }
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
