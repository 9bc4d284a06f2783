// Arbitrary datagrams, and runs of them, through the whole feed path of a
// logged-in session: the receive step (the reused buffer, the short-datagram
// count), the dispatch by message type, the channel bound, the tick and
// snapshot handlers with their callbacks, the hand-over to the books and the
// book rules on the book thread's step. Subscriptions, market-data records
// and books are in place, so every handler reaches its end.
//
// Input: one steering byte (bit 0: every Shenzhen message goes to the books;
// bit 1: all Shenzhen ticks pass the filter; bit 2: all Shanghai ticks; bit 3:
// the snapshots wait for the front's last record), then datagrams, each
// behind its 16-bit little-endian length. A length beyond the receive buffer
// is cut to it, as the socket would. Each input starts a new trading day, so
// earlier inputs' sequence numbers do not refuse its ticks.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "VLClientApi/MdApiImpl.h"
#include "support/TestAccess.h"
#include "utility/Logging.h"

namespace {

using velmar::mdapi::MdApiImpl;
using velmar::mdapi::ReceiveBuffer;
using velmar::mdapi::TestAccess;

void require(bool ok) {
  if (!ok) __builtin_trap();
}

// Reads every field of what it is handed, so that a record built from bytes
// that were never written shows up under the sanitizers.
class ReadingSpi : public velmar::mdapi::VelmarMdSpi {
 public:
  void OnRtnMarketData(CVelmarMarketData* data) override { sink(data, sizeof *data); }
  void OnRtnTickByTick(CVelmarTickByTick* data) override { sink(data, sizeof *data); }
  void OnRtnOrderBook(CVelmarOrderBook* book) override {
    sink(book->SecurityID, sizeof book->SecurityID);
    for (int i = 0; i < 10; ++i) {
      sum_ += static_cast<uint64_t>(book->Bid[i] + book->Ask[i]) + book->BidQty[i] + book->AskQty[i];
      sum_ += book->BidOrders[i].size() + book->AskOrders[i].size();
    }
  }

 private:
  void sink(const void* p, size_t n) {
    const unsigned char* b = static_cast<const unsigned char*>(p);
    for (size_t i = 0; i < n; ++i) sum_ += b[i];
  }
  volatile uint64_t sum_ = 0;
};

void discard(const char*, int) {}

struct Session {
  Session() {
    velmar::utility::Logger::setOutput(discard);  // lines built, then dropped
    velmar::utility::Logger::setLogLevel(velmar::utility::Logger::DEBUG);
    api.RegisterSpi(&spi);
    velmar::mdapi::SessionCore& core = TestAccess::core(api);
    core.connected_ = true;
    core.loggedIn_ = true;
    velmar::mdapi::Subscriptions& subs = TestAccess::subscriptions(api);
    velmar::utility::MutexLockGuard lock(core.mutex_);
    for (const char* id : {"000001", "300446", "600000"}) {
      subs.addTicks(id);
      auto record = std::unique_ptr<CVelmarMarketData>(new CVelmarMarketData());
      std::memset(record.get(), 0, sizeof *record);
      std::strcpy(record->SecurityID, id);
      record->ExchangeID = id[0] == '6' ? 1 : 2;
      TestAccess::putRecord(subs, static_cast<int>(record->ExchangeID), id, std::move(record));
    }
    char id16[16] = {};
    for (const char* id : {"000001", "300446"}) {
      std::strcpy(id16, id);
      TestAccess::books(api).addOrderBook(id16);
    }
  }
  ReadingSpi spi;
  MdApiImpl api;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Session* session = new Session();  // one session, as in a process
  if (size < 1) return 0;
  velmar::mdapi::SessionCore& core = TestAccess::core(session->api);
  velmar::mdapi::Feed& feed = TestAccess::feed(session->api);
  velmar::mdapi::OrderBooks& books = TestAccess::books(session->api);
  core.allOrderBook_ = (data[0] & 1) != 0;
  core.allTickExchange2_ = (data[0] & 2) != 0;
  core.allTickExchange1_ = (data[0] & 4) != 0;
  core.snapshotsComplete_ = (data[0] & 8) == 0;
  feed.forgetSequences();

  size_t at = 1;
  while (at + 2 <= size) {
    size_t length = data[at] | (static_cast<size_t>(data[at + 1]) << 8);
    at += 2;
    if (length > size - at) length = size - at;
    const size_t received = length < ReceiveBuffer::kCapacity ? length : ReceiveBuffer::kCapacity;
    // Only the datagram's own bytes are written, as the socket does.
    if (received > 0) std::memcpy(feed.receiveBuffer().data(), data + at, received);
    at += length;
    if (received == 0) continue;  // the receiver skips empty datagrams
    feed.onDatagramReceived(received);
    // The book thread's step, after every datagram: the hand-over queue
    // never outgrows a few nodes, and a node is handled before the next
    // datagram changes the books' inputs.
    int handled = 0;
    while (books.pollBookQueue()) ++handled;
    require(handled <= 1);
  }
  return 0;
}
