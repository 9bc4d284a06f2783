// A front server for tests and demonstrations: it speaks the package format of
// the front connection on 127.0.0.1, answers logins, logouts and
// subscriptions, sends the current market-data records of the instruments
// asked for, sends keep-alives, and can be made to misbehave on purpose.
//
//   FrontSimulatorOptions options;
//   options.users = {{"alice", "pw"}};
//   FrontSimulator front(options);
//   front.start();                       // listens at once; port() is known
//   api->RegisterFront(front.address()); // "tcp://127.0.0.1:<port>"
//   ...
//   ASSERT_TRUE(front.waitForRequests(2, 5000));
//   front.stop();                        // or the destructor
//
// One thread of its own polls the listener and every client connection.
// Clients are served independently: each has its own login state, its own
// input buffer (framed with the library's package reader, so a framing error
// drops that client's buffered bytes, as the library does) and its own queue
// of outgoing writes.
//
// Every answer is one package: ftdType 1, ftdcMark 'H', chain 'S' on the last
// package of an answer and 0 on the others, the FTDC tid and the one field's
// id both the answer's field id, and the request id of the request echoed.
//
// Answers:
//   0 login            22, or 32 {Tid 22, -101 unknown user / -102 wrong
//                      password / -119 already logged in on this connection}
//   1 logout           23 with the request's UserID; the connection is then
//                      logged out
//   3 / 4              24 / 25 echoing the record; 3 then sends the batch of
//                      every instrument of the exchanges in its Exchange bits
//   5 / 6              28 / 29 echoing the ids; 5 then sends the batch of the
//                      known ones among them
//   7 / 8              26 / 27 echoing the record
//   9 / 10             30 / 31 echoing the ids
//   17 / 18            35 / 36 echoing the ids
//   19 / 20            nothing
//   any other id       32 {Tid = that id, -104 "Invalid TID"}
// Before a login every request but the login is answered with
// 32 {Tid = the request's id, -100 "Not logged in"}; in particular a logout
// is refused under Tid 1 (a general error for the client), not 23.
//
// The batch: one package per record under field 33, Shanghai records before
// Shenzhen ones, in the order of the source's instrument lists (of the
// request's ids for 5), the last package marked. An id known on both
// exchanges ("000001": a Shenzhen stock, a Shanghai index) gives both records.
// When nothing is known there is no batch at all: only the id answer goes
// out, and a client that waits for a marked field 33 keeps waiting.
//
// The id answers of 28 to 31, 35 and 36 echo whole 16-byte ids (a trailing
// rest of a value that is no multiple of 16 is left out) and go out in pieces
// of at most idsPerPiece ids, 254 at most whatever is set, since that is what
// one package holds. A request with no ids is answered with one empty field.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "VelmarMdStruct.h"
#include "package/WireFormat.h"

class CVelmarPackage;

namespace velmar {
namespace sim {

/// Where the simulator's market-data records come from. Both functions are
/// called on the simulator's thread, at the moment a request is answered, so
/// a live source (a synthetic market running elsewhere) must make them safe
/// to call from there.
struct FrontMarketData {
  /// The ids of one exchange (1 Shanghai, 2 Shenzhen), in the order the
  /// batch of an all-instruments subscription sends them.
  std::function<std::vector<std::string>(uint32_t exchange)> instruments;
  /// The current record of an instrument on an exchange; nothing if the
  /// exchange has no such instrument.
  std::function<std::optional<CVelmarMarketData>(const std::string& id, uint32_t exchange)> record;

  /// A fixed market of the state before the open on `tradingDay`
  /// (YYYYMMDD): Shenzhen stocks 000001, 002415, 300446 (limit 20%) and index
  /// 399001; Shanghai stocks 600000, 600519 and index 000001. No volume has
  /// traded yet, last prices are the previous close, and the ten best levels
  /// of the stocks hold the pre-open orders. The stamps are 09:15:00.000 in the
  /// feed's form for each exchange (YYYYMMDDHHMMSSmmm for Shenzhen, HHMMSSmmm
  /// for Shanghai), so that every snapshot of the session is newer.
  static FrontMarketData staticMarket(int32_t tradingDay);
};

/// One request as the simulator received it.
struct FrontRequest {
  int connection = 0;    ///< 1, 2, ... in the order of acceptance
  uint32_t tid = 0;      ///< the FTDC header's tid
  uint32_t fieldId = 0;  ///< the first field's id; tid for a package with no field
  uint32_t requestId = 0;
  uint8_t chain = 0;
  uint16_t fieldCount = 0;
  std::string value;  ///< the first field's value bytes

  /// The ids of an instrument request, each up to its first NUL.
  std::vector<std::string> ids() const;
  /// One line for a log: connection, tid, request id, chain and the value
  /// in readable form (user, record or ids).
  std::string text() const;
};

struct FrontSimulatorOptions {
  /// Where to listen. Only addresses of the loopback network 127.0.0.0/8 are
  /// accepted; port 0 lets the system choose.
  std::string listenAddress = "127.0.0.1";
  uint16_t port = 0;
  /// Accepted users and their passwords. When empty, any non-empty user id is
  /// accepted with `anyUserPassword`, or with any password if that is empty.
  std::map<std::string, std::string> users;
  std::string anyUserPassword = "secret";
  /// Keep-alive period towards each client, from its connection on; 0 sends
  /// none.
  int keepAliveIntervalMs = 1000;
  /// Ids per package of an id answer; 0 (or anything above 254) sends as many
  /// as one package holds.
  int idsPerPiece = 0;
  /// TradingDay of the login answer and of the static market; empty takes
  /// today's local date.
  std::string tradingDay;
  int32_t maxUserOrderLocalId = 1;
  /// Empty functions take the static market of the trading day.
  FrontMarketData marketData;
  /// Called on the simulator's thread for every request, before it is
  /// answered; for logging.
  std::function<void(const FrontRequest&)> onRequest;
};

class FrontSimulator {
 public:
  explicit FrontSimulator(FrontSimulatorOptions options = FrontSimulatorOptions());
  /// stop()s.
  ~FrontSimulator();
  FrontSimulator(const FrontSimulator&) = delete;
  FrontSimulator& operator=(const FrontSimulator&) = delete;

  /// Binds and listens, then starts the thread. False, with the reason in
  /// *error, if the address is refused or the socket calls fail; nothing runs
  /// then. A started simulator is not started again.
  bool start(std::string* error = nullptr);
  /// Closes every connection and the listener and joins the thread. Safe to
  /// call more than once; the request log stays readable.
  void stop();
  bool running() const;

  /// The port listened on (the chosen one for port 0); 0 before start.
  uint16_t port() const;
  /// "tcp://<address>:<port>", the form a front address is registered in.
  std::string address() const;

  // Settings that may change while running. Like all the operations below,
  // they take effect on the simulator's thread before they return.
  void setKeepAliveInterval(int ms);
  void setIdsPerPiece(int ids);

  // --- Misbehaviour -------------------------------------------------------
  // "Packages" here are the answers and the packages of sendPackage; keep-
  // alives and raw bytes are never split or joined, and never go in between
  // the halves of a split package. The counts are shared by all connections.

  /// Writes each of the next `count` packages in two writes: its first
  /// `splitAt` bytes (half of it when 0 or not less than its length), then,
  /// after `pauseMs`, the rest. Nothing else goes to that client between them.
  /// A negative pause holds the rest back until releaseHeld(), for tests that
  /// must look at a client while it holds half a package.
  void splitNextPackages(int count, int pauseMs = 20, size_t splitAt = 0);
  /// Lets the held rests of split packages go.
  void releaseHeld();
  /// Holds the next `count` packages of a client back and writes them in one
  /// write when the last of them is there (or when a client's held packages
  /// would otherwise be mixed with another client's count).
  void joinNextPackages(int count);
  /// Writes bytes as they are, in one write, to every client.
  void sendRaw(const std::string& bytes);
  /// Sends one package, as an answer is sent, to every client that is
  /// logged in (or to every client when `toAll`).
  void sendPackage(uint32_t fieldId, const void* value, size_t length,
                   uint8_t chain = mdapi::wire::kChainRequest, uint32_t requestId = 0,
                   bool toAll = false);
  /// Silent: requests are still received and logged, but nothing is answered
  /// and no keep-alive goes out; raw bytes and sendPackage still do.
  void setSilent(bool silent);
  /// Closes every client connection at once; what was queued for them is lost.
  void closeConnections();
  /// Closes the listener: new connections are refused by the system.
  void stopListening();
  /// Listens again on the same address and port; false if that fails.
  bool resumeListening();
  bool listening() const;

  // --- Observation ---------------------------------------------------------
  /// Every request received so far, in order of arrival over all clients.
  std::vector<FrontRequest> requests() const;
  size_t requestCount() const;
  /// The index-th request (0-based); a default request when there is none.
  FrontRequest request(size_t index) const;
  /// Waits until at least `count` requests have been received; false on time-out.
  bool waitForRequests(size_t count, int timeoutMs = 5000) const;
  /// Waits until a request with this field id has been received.
  bool waitForRequestWithId(uint32_t fieldId, int timeoutMs = 5000) const;
  void clearRequests();
  /// Keep-alives received from clients.
  size_t keepAlivesReceived() const;
  bool waitForKeepAlives(size_t count, int timeoutMs = 5000) const;
  /// Framing errors in what clients sent, each of which dropped that client's
  /// buffered bytes.
  size_t framingErrors() const;
  bool waitForFramingErrors(size_t count, int timeoutMs = 5000) const;
  /// Connections accepted since start, and connections open now.
  int acceptedConnections() const;
  int openConnections() const;
  bool waitForAccepted(int count, int timeoutMs = 5000) const;
  /// Waits until exactly `count` connections are open.
  bool waitForOpenConnections(int count, int timeoutMs = 5000) const;

 private:
  struct Connection;
  struct Chunk;
  using Clock = std::chrono::steady_clock;

  // Simulator thread.
  void loop();
  bool openListener(std::string* error);
  void closeListener();
  void acceptAll();
  void readFrom(Connection& c);
  void handleRequest(Connection& c, const FrontRequest& r);
  void answerIds(Connection& c, uint32_t fieldId, const FrontRequest& r);
  void sendBatch(Connection& c, const std::vector<CVelmarMarketData>& records, uint32_t requestId);
  void sendError(Connection& c, int32_t tid, int32_t errorId, uint32_t requestId);
  std::string buildPackage(uint32_t fieldId, const void* value, size_t length, uint8_t chain,
                           uint32_t requestId);
  void queuePackage(Connection& c, std::string bytes);
  void queueChunk(Connection& c, std::string bytes, int pauseMs);
  void flushJoined(Connection& c);
  void writeTo(Connection& c, Clock::time_point now);
  void closeConnection(Connection& c);
  int pollTimeoutMs(Clock::time_point now) const;

  /// Runs f on the simulator's thread and waits for it; runs it at once on
  /// that thread itself, or when the thread is not running.
  void runInLoop(const std::function<void()>& f);
  void wake();

  FrontSimulatorOptions options_;
  FrontMarketData market_;

  // Set by start and stop only.
  std::thread thread_;
  uint32_t listenIp_ = 0;  // host order
  uint16_t port_ = 0;
  int wakeSend_ = -1;  // a loopback UDP pair that interrupts the poll
  int wakeReceive_ = -1;

  // Simulator thread (or the caller, when the thread is not running).
  int listenFd_ = -1;
  int nextConnectionId_ = 1;
  std::vector<std::unique_ptr<Connection>> connections_;
  std::unique_ptr<CVelmarPackage> package_;
  std::string keepAlive_;
  bool silent_ = false;
  int splitCount_ = 0;
  int splitPauseMs_ = 20;
  size_t splitAt_ = 0;
  int joinCount_ = 0;
  Connection* joining_ = nullptr;
  int keepAliveMs_;
  int idsPerPiece_;

  // Commands for the simulator's thread.
  mutable std::mutex commandMutex_;
  std::vector<std::function<void()>> commands_;
  bool running_ = false;
  bool stopping_ = false;

  // What tests observe.
  mutable std::mutex stateMutex_;
  mutable std::condition_variable stateChanged_;
  std::vector<FrontRequest> requests_;
  size_t keepAlives_ = 0;
  size_t framingErrors_ = 0;
  int accepted_ = 0;
  int open_ = 0;
  bool listening_ = false;
};

}  // namespace sim
}  // namespace velmar
