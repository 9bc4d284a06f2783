// VLMdApi: client library for Shanghai and Shenzhen Level-2 market data.
//
// An application obtains a VelmarMdApi from CreateMdUserApi, registers its
// addresses and a VelmarMdSpi, and calls Init. Everything the library learns
// reaches the application through the VelmarMdSpi callbacks.
//
// The order of the virtual operations of both classes is the binary interface
// of the library: never reorder, insert or remove one.
#ifndef VELMAR_MD_API_H
#define VELMAR_MD_API_H

/// @file VelmarMdApi.h
/// The session class VelmarMdApi, the callback class VelmarMdSpi and the
/// status callbacks VelmarMdStatusSpi.
///
/// A session in short:
/// @code
///   VelmarMdApi* api = VelmarMdApi::CreateMdUserApi();
///   api->RegisterSpi(&mySpi);                       // lives as long as the process
///   api->RegisterFront("tcp://10.0.0.1:7001");
///   api->RegisterMulticast("udp://239.1.1.1:30001");
///   api->RegisterMulticastInterface("10.0.0.5");    // local address that joins the group
///   api->Init();                                    // 0, or -115 for a bad address
///   // OnFrontConnected -> ReqUserLogin; OnRspUserLogin -> Sub...; data follows
///   api->Release();                                 // at the end, from an application thread
///   api->Join();
/// @endcode
///
/// Threads. Init starts three threads that belong to the session: the front
/// loop (the TCP connection, its answers and timers; it ends with Release),
/// the multicast receiver and the book thread (both run until the process
/// ends). A fourth thread, started by the first Init of the process, writes
/// the log to ./log/md under the working directory.
///
/// The session lock. Most callbacks run with the session's lock held, so that
/// no two of them overlap; each callback's comment says whether it does. A
/// callback that takes long holds up the other threads at their next use of
/// the lock. The lock is not recursive, but the library never takes it again
/// on a thread that holds it, so requests may be made from any callback.
///
/// Rules for the application:
/// - Every pointer handed to a callback is valid during the call only; copy
///   what you keep.
/// - Never call Init, Join or Release from a callback.
/// - Never make two requests at the same time from different threads: the
///   request path reuses one buffer without a lock. Requests made from
///   callbacks that hold the session lock are serialised by it.
/// - Never delete the VelmarMdApi (its destructor is protected), and keep the
///   VelmarMdSpi alive until the process ends: the receiver and book threads
///   use both until then.
/// - Callbacks let no exception escape; the library does not catch them.

#include "VelmarMdStruct.h"

#if defined(_WIN32)
#if defined(VLMDAPI_STATIC)
#define VLMDAPI_EXPORT
#elif defined(VLMDAPI_BUILDING)
#define VLMDAPI_EXPORT __declspec(dllexport)
#else
#define VLMDAPI_EXPORT __declspec(dllimport)
#endif
#else
#define VLMDAPI_EXPORT __attribute__((visibility("default")))
#endif

namespace velmar {
namespace mdapi {

/// Callbacks of one session. Derive from this class and override what you
/// need; every operation has an empty body.
///
/// Where each callback runs, and whether the session lock is held:
/// - front loop, lock held: OnFrontConnected, OnFrontDisconnected,
///   OnRspError for the front's errors, OnRspUserLogin, OnRspUserLogout, the
///   six instrument answers (OnRspSubMarketData to OnRspUnSubTickByTick,
///   OnRspSubOrderBook, OnRspUnSubOrderBook), and OnRtnMarketData and
///   OnRtnTickByTick for records sent by the front;
/// - front loop, lock not held: OnHeartBeatWarning and the answers to the
///   "all" requests (OnRspSubAllMarketData, OnRspUnSubAllMarketData,
///   OnRspSubAllTickByTick, OnRspUnSubAllTickByTick);
/// - multicast receiver, lock held: OnRtnMarketData when a feed snapshot has
///   updated a record, OnRtnTickByTick for a feed order or trade;
/// - book thread, lock held: OnRtnOrderBook;
/// - the thread that made a request: OnRspError for a refusal by the
///   library's own checks (lock not held) and OnRspError -117 for a request
///   that could not be sent (lock held).
///
/// Callbacks that run with the lock held never run at the same time as one
/// another; the others may run beside any callback. An application that shares data
/// between callbacks and its own threads needs its own protection.
///
/// A callback must return quickly and must not call Init, Join or Release.
/// Requests from inside a callback are allowed. Every pointer argument is
/// valid during the call only.
class VelmarMdSpi {
 public:
  /// The TCP connection to the front is up; log in now (ReqUserLogin may be
  /// called from here). Comes again after every reconnect, with login and
  /// subscriptions gone. Front loop thread, session lock held.
  virtual void OnFrontConnected() {}
  /// 0: an established connection went down. 4097: a connect attempt failed,
  /// another follows. Login and all subscriptions are gone in both cases; the
  /// library reconnects to the same front by itself.
  /// Front loop thread, session lock held.
  virtual void OnFrontDisconnected(int reason) { (void)reason; }
  /// Nothing arrived from the front for `seconds`; repeats every `seconds`
  /// until the connection is down. Front loop thread, session lock not held.
  virtual void OnHeartBeatWarning(int seconds) { (void)seconds; }
  /// An error. `info->ErrorID` is a negative error id, `info->ErrorMsg` its
  /// text. Three sources:
  /// - the front refused a request: front loop thread, session lock held;
  /// - the library refused a request by its own checks (not connected, not
  ///   logged in, a bad argument): on the thread that made the request, before
  ///   the request returns, session lock not held; `requestId` is the
  ///   request's, `isLast` true;
  /// - a request could not be built or sent: ErrorID -117, `requestId` -1,
  ///   on the thread that made the request, session lock held.
  ///
  /// `info` is valid during the call only; for the library's own errors it is
  /// a scratch record that the next error overwrites.
  virtual void OnRspError(CVelmarRspInfo* info, int requestId, bool isLast) {
    (void)info, (void)requestId, (void)isLast;
  }
  /// Accepted: login set, info null. Refused: login null, info set. Subscribe
  /// from here. Front loop thread, session lock held; both pointers are valid
  /// during the call only.
  virtual void OnRspUserLogin(CVelmarRspUserLogin* login, CVelmarRspInfo* info, int requestId,
                              bool isLast) {
    (void)login, (void)info, (void)requestId, (void)isLast;
  }
  /// Accepted: logout set, info null. Refused: logout null, info set.
  /// Front loop thread, session lock held; pointers valid during the call only.
  virtual void OnRspUserLogout(CVelmarRspUserLogout* logout, CVelmarRspInfo* info, int requestId,
                               bool isLast) {
    (void)logout, (void)info, (void)requestId, (void)isLast;
  }
  /// Answer to SubAllMarketData, with the front's tick type and exchange bits.
  /// Front loop thread, session lock not held.
  virtual void OnRspSubAllMarketData(int tickType, int exchange, int requestId, bool isLast) {
    (void)tickType, (void)exchange, (void)requestId, (void)isLast;
  }
  /// Answer to UnSubAllMarketData. Front loop thread, session lock not held.
  virtual void OnRspUnSubAllMarketData(int tickType, int exchange, int requestId, bool isLast) {
    (void)tickType, (void)exchange, (void)requestId, (void)isLast;
  }
  /// Answer to SubAllTickByTick, with the exchange bits.
  /// Front loop thread, session lock not held.
  virtual void OnRspSubAllTickByTick(int exchange, int requestId, bool isLast) {
    (void)exchange, (void)requestId, (void)isLast;
  }
  /// Answer to UnSubAllTickByTick. Front loop thread, session lock not held.
  virtual void OnRspUnSubAllTickByTick(int exchange, int requestId, bool isLast) {
    (void)exchange, (void)requestId, (void)isLast;
  }
  /// Answer to SubMarketData with the ids it names; a long answer comes in
  /// several calls, the last with `isLast` true, and an empty one not at all.
  /// instrumentIds: `count` pointers to 16-byte NUL-padded ids, released after
  /// the call. Front loop thread, session lock held. The same holds for the
  /// five other instrument answers below.
  virtual void OnRspSubMarketData(char** instrumentIds, int count, int requestId, bool isLast) {
    (void)instrumentIds, (void)count, (void)requestId, (void)isLast;
  }
  /// Answer to UnSubMarketData; as OnRspSubMarketData.
  virtual void OnRspUnSubMarketData(char** instrumentIds, int count, int requestId, bool isLast) {
    (void)instrumentIds, (void)count, (void)requestId, (void)isLast;
  }
  /// Answer to SubTickByTick; as OnRspSubMarketData.
  virtual void OnRspSubTickByTick(char** instrumentIds, int count, int requestId, bool isLast) {
    (void)instrumentIds, (void)count, (void)requestId, (void)isLast;
  }
  /// Answer to UnSubTickByTick; as OnRspSubMarketData.
  virtual void OnRspUnSubTickByTick(char** instrumentIds, int count, int requestId, bool isLast) {
    (void)instrumentIds, (void)count, (void)requestId, (void)isLast;
  }
  /// The library's stored record of the instrument; read it during the call.
  /// Comes on the front loop thread for the records the front sends after a
  /// subscription, and on the multicast receiver thread when a feed snapshot
  /// has updated the record; session lock held in both cases. Other threads
  /// change the record under that lock after the call: copy what you keep.
  virtual void OnRtnMarketData(CVelmarMarketData* data) { (void)data; }
  /// A scratch record, overwritten by the next message. Comes on the front
  /// loop thread for records from the front, and on the multicast receiver
  /// thread for feed orders and trades of subscribed instruments that passed
  /// the sequence check; session lock held in both cases.
  virtual void OnRtnTickByTick(CVelmarTickByTick* data) { (void)data; }
  /// The live book, on the book thread with the session lock held, once for
  /// every feed message that the book accepted, whether it changed the levels
  /// or not. Copy what you keep, never write to it (the order-list strings
  /// included). With callbacks.serialize false: the library's copy of the
  /// live book, taken for the call, under the book thread's callback lock
  /// instead of the session lock; valid during the call only.
  virtual void OnRtnOrderBook(CVelmarOrderBook* book) { (void)book; }
  /// Answer to SubOrderBook; as OnRspSubMarketData. The library keeps a book
  /// for each id of an answer with `isLast` true; it fills from the
  /// instrument's next feed snapshot on.
  virtual void OnRspSubOrderBook(char** instrumentIds, int count, int requestId, bool isLast) {
    (void)instrumentIds, (void)count, (void)requestId, (void)isLast;
  }
  /// Answer to UnSubOrderBook; as OnRspSubMarketData.
  virtual void OnRspUnSubOrderBook(char** instrumentIds, int count, int requestId, bool isLast) {
    (void)instrumentIds, (void)count, (void)requestId, (void)isLast;
  }
  // Declared last so that it stands behind every callback in the table.
  virtual ~VelmarMdSpi() {}
};

/// Callbacks about the session itself: feed gaps, statistics, book states.
/// Registered apart from VelmarMdSpi through VelmarMdApi::RegisterStatusSpi,
/// so that VelmarMdSpi keeps its binary interface. Derive from this class and
/// override what you need; every operation has an empty body. Callbacks added
/// in later versions go at the end.
///
/// "The callback lock" below is the session lock while the option
/// callbacks.serialize is true (the default), and the calling thread's own
/// callback lock while it is false (see VelmarMdApi::SetOption).
class VelmarMdStatusSpi {
 public:
  // Declared first: callbacks added later go at the end, behind it.
  virtual ~VelmarMdStatusSpi() {}

  /// Values of OnOrderBookStatus's `status`.
  enum OrderBookStatus : int {
    /// Subscribed; waits for the instrument's first feed snapshot.
    kOrderBookWaiting = 1,
    /// Seeded by a snapshot; the book follows the feed.
    kOrderBookLive = 2,
    /// A message of the book's channel went missing: the levels may be wrong
    /// until the book is seeded again.
    kOrderBookSuspect = 3,
  };

  /// The feed skipped numbers on channel `channelNo`: `receivedSeq` came
  /// where `expectedSeq` (the channel's last number seen + 1) was due, so
  /// receivedSeq - expectedSeq messages were sent and not received. Every
  /// tick-by-tick message of the channel counts, subscribed or not (Shenzhen
  /// orders and trades share their channel's numbers; Shanghai trades have
  /// channels of their own, apart from Shenzhen's even under the same
  /// number). The message itself is handled as without a gap, and its own
  /// callbacks follow this one. No gap: a channel's first message, a repeat,
  /// an older number, the first message after a new trading day's login, and
  /// the first after the session was disconnected or logged out (what came
  /// meanwhile was refused by the session, not lost). The subscribed
  /// instruments' own numbers may jump without a gap, as other instruments
  /// fill the channel between them. Multicast receiver thread, callback lock
  /// held (the session lock only while callbacks.serialize is true, taken
  /// for this call alone).
  virtual void OnFeedGap(int channelNo, int64_t expectedSeq, int64_t receivedSeq) {
    (void)channelNo, (void)expectedSeq, (void)receivedSeq;
  }
  /// Every stats.interval_ms milliseconds from Init on, when that option is
  /// set. The record is the library's own, valid during the call; its `Size`
  /// says how much of it the library filled: check it before reading a field
  /// that a later header added. Front loop thread, no lock held.
  virtual void OnStatistics(const CVelmarStatistics* statistics) { (void)statistics; }
  /// The book of `securityId` (NUL-terminated, valid during the call) changed
  /// to `status`, one of OrderBookStatus. Book thread, callback lock held.
  virtual void OnOrderBookStatus(const char* securityId, int status) {
    (void)securityId, (void)status;
  }
};

/// One market-data session. Created by CreateMdUserApi; never deleted: an
/// initialised session's threads use the object until the process ends.
///
/// Register everything before Init, from one thread. Requests return 0 when
/// the request went out (or could not be sent: then OnRspError -117 follows),
/// or a negative error id:
///
/// | Code | Meaning |
/// |---|---|
/// | -116 | not connected to the front (wait for OnFrontConnected) |
/// | -100 | not logged in (wait for OnRspUserLogin) |
/// | -119 | ReqUserLogin while logged in |
/// | -120 | a record's check failed (an empty UserID or Password) |
/// | -112 | instrument array null or count 0 |
/// | -106 | no valid exchange bit |
/// | -107 | no valid tick type bit |
/// | -300 | SetOption: no option has this name (also a null or over-long name) |
/// | -301 | SetOption: the value is not one the option takes |
/// | -302 | SetOption: the option can only be set before Init |
/// | -303 | GetStatistics: a null record, or a Size below version 1's |
///
/// Exchanges are bits: 1 Shanghai, 2 Shenzhen, 3 both. Instrument ids are
/// passed as an array of pointers, each to a buffer of at least 16 bytes
/// holding a NUL-padded id; exactly 16 bytes are read from each.
///
/// Requests run on the calling thread. Make them from one thread at a time:
/// the request path reuses one buffer without a lock.
class VLMDAPI_EXPORT VelmarMdApi {
 public:
  /// Creates a session object, or returns null if memory is short. The text
  /// is reserved and not used. Any number of objects may be created; each
  /// initialised one has threads of its own.
  static VelmarMdApi* CreateMdUserApi(const char* reserved = "");
  /// "VELMAR_API_V" and the library's version, as "VELMAR_API_V1.0.1".
  /// Works before Init.
  static const char* GetVersion();

  /// Stops reconnecting and ends the front loop. The feed and book threads
  /// run on to the end of the process with the feed gate closed. Make no
  /// request afterwards. Not from a callback.
  virtual void Release() = 0;
  /// Starts the session: 0, -999 if it has run before, -115 for a missing or
  /// malformed front, multicast or local address. The first Init of the
  /// process starts the log: it creates the folder (log.directory, ./log/md
  /// under the working directory by default) and sets the log level to DEBUG,
  /// or keeps the level that SetOption("log.level") chose. Not from a
  /// callback.
  virtual int Init() = 0;
  /// Waits until the front loop has ended (after Release). Returns 0. Not
  /// from a callback.
  virtual int Join() = 0;
  /// Local date of the first call in the process, as YYYYMMDD. The text is
  /// kept for the life of the process.
  virtual const char* GetTradingDay() = 0;
  /// "tcp://host:port"; one is chosen at random by Init and kept for every
  /// reconnect. The text is copied; only Init looks at it.
  virtual void RegisterFront(const char* address) = 0;
  /// "udp://group:port"; one is chosen at random by Init.
  virtual void RegisterMulticast(const char* address) = 0;
  /// "tcp://host:port" to bind the front connection to; optional.
  virtual void RegisterLocalTcpAddress(const char* address) = 0;
  /// Dotted IPv4 address of the interface that joins the group; optional.
  virtual void RegisterMulticastInterface(const char* address) = 0;
  /// Kept and not used.
  virtual void SetUserString(const char* text) = 0;
  /// The callback object; must be set before Init and stay alive until the
  /// process ends. Not owned.
  virtual void RegisterSpi(VelmarMdSpi* spi) = 0;
  /// Seconds of front silence before OnHeartBeatWarning; default 30. Takes
  /// effect when the receive time-out is next armed.
  virtual void SetHeartbeatTimeout(unsigned int seconds) = 0;

  /// Logs in; the answer is OnRspUserLogin. Call it on OnFrontConnected.
  /// Refusals by the library's checks also come as OnRspError on this thread.
  virtual int ReqUserLogin(CVelmarReqUserLogin* request, int requestId) = 0;
  /// Logs out; the answer is OnRspUserLogout.
  virtual int ReqUserLogout(CVelmarReqUserLogout* request, int requestId) = 0;
  /// Market data of every instrument of the exchanges in `exchange`; tickType
  /// is a mask of the bits 1, 2 and 4. Answer: OnRspSubAllMarketData.
  virtual int SubAllMarketData(int tickType, int exchange, int requestId) = 0;
  virtual int UnSubAllMarketData(int tickType, int exchange, int requestId) = 0;
  /// Tick-by-tick orders and trades of every instrument of the exchanges in
  /// `exchange`. Answer: OnRspSubAllTickByTick.
  virtual int SubAllTickByTick(int exchange, int requestId) = 0;
  virtual int UnSubAllTickByTick(int exchange, int requestId) = 0;
  /// instrumentIds: `count` pointers, each to a buffer of at least 16 bytes;
  /// at most 254 ids per request. Answer: OnRspSubMarketData, then the
  /// instruments' records through OnRtnMarketData.
  virtual int SubMarketData(char** instrumentIds, int count, int requestId) = 0;
  virtual int UnSubMarketData(char** instrumentIds, int count, int requestId) = 0;
  /// Tick-by-tick orders and trades of these instruments, at most 254 ids.
  /// Answer: OnRspSubTickByTick.
  virtual int SubTickByTick(char** instrumentIds, int count, int requestId) = 0;
  virtual int UnSubTickByTick(char** instrumentIds, int count, int requestId) = 0;
  /// Passes every Shenzhen message to the book thread; `exchange` must have
  /// bit 2. Books are still kept only for the ids of SubOrderBook. No answer
  /// callback.
  virtual int SubAllOrderBook(int exchange, int requestId) = 0;
  virtual int UnSubAllOrderBook(int exchange, int requestId) = 0;
  /// Rebuilt ten-level books of these Shenzhen instruments, at most 254 ids.
  /// Answer: OnRspSubOrderBook, then OnRtnOrderBook. The library's checks
  /// report by return code only, with no OnRspError.
  virtual int SubOrderBook(char** instrumentIds, int count, int requestId) = 0;
  virtual int UnSubOrderBook(char** instrumentIds, int count, int requestId) = 0;

  // ---- Appended behind the first 25; later operations go below these. ----

  /// Sets one option of the session: 0, or -300 for a name that is no
  /// option (null, empty or over 64 bytes included), -301 for a value the
  /// option does not take (null, over 1024 bytes, trailing characters, a
  /// number out of range, a CPU the machine does not have), -302 for an
  /// option that can only be set before Init. A refused option leaves the
  /// session as it was; every call writes a log line (INFO accepted, ERR
  /// refused, with the name and the code). Names are dotted lower case;
  /// values are exact texts, numbers plain decimal digits. Call it from the
  /// thread that calls Init, never at the same time as Init.
  ///
  /// | Name | Values | Default | Settable | Effect |
  /// |---|---|---|---|---|
  /// | log.level | trace, debug, info, warn, error | debug | any time | level of the process's log, at once and for every session; Init keeps a level set before it instead of setting DEBUG |
  /// | log.directory | a folder, 1 to 1024 bytes | ./log/md | before the process's first Init | where the rolling log files go; Init creates the missing folders ('/' separates) |
  /// | book.mode | specified | specified | before Init | how books are rebuilt; "exact" is reserved and refused (-301) for now |
  /// | book.idle | spin, yield, block | spin | before Init | the book thread with an empty queue: polls without pause (one core busy), yields the CPU between polls, or sleeps until the receiver wakes it (near 0 % CPU without traffic) |
  /// | book.cpu | none, or 0 to CPUs - 1 | none | before Init | pins the book thread to that CPU |
  /// | feed.receiver_cpu | none, or 0 to CPUs - 1 | none | before Init | pins the multicast receiver thread to that CPU |
  /// | feed.socket_buffer | 4096 to 1073741824 | 15728640 | before Init | receive buffer of the feed socket, bytes; the system may grant less (net.core.rmem_max on Linux) |
  /// | book.queue_limit | 1 to 16777216, or unbounded | unbounded | before Init | most messages waiting for the book thread; past it the receiver drops the message for the books (counted in BookNodesDropped), and that book misses it |
  /// | callbacks.serialize | true, false | true | before Init | see below |
  /// | stats.interval_ms | 0 (off), or 100 to 3600000 | 0 | before Init | period of VelmarMdStatusSpi::OnStatistics |
  ///
  /// callbacks.serialize true: every callback that VelmarMdSpi lists as
  /// "lock held" runs under the one session lock, whatever its thread, so no
  /// two of them ever overlap; a slow callback holds up the other threads,
  /// the receiver included (its socket buffer then fills and drops). The
  /// OnRtnMarketData record is the library's stored one.
  /// false: the front loop, the multicast receiver and the book thread each
  /// hold a lock of their own around their "lock held" callbacks instead,
  /// and the session lock only for a moment around their own work, never
  /// around a callback. What stays: the callbacks of one thread come one
  /// after another, in the same order as with true; requests from callbacks
  /// are allowed and never wait for another thread's callback; pointers are
  /// valid during the call only; a book handed to OnRtnOrderBook changes
  /// during the call for no one. What changes: callbacks of different
  /// threads may run at the same time (a slow OnRtnOrderBook no longer holds
  /// up the receiver), so the application guards the state its callbacks
  /// share; OnRtnMarketData gets a copy of the stored record, which no other
  /// thread writes during the call; OnRspError -117 (a request that could
  /// not be sent) comes with no lock taken for it; and requests made from
  /// callbacks of different threads are no longer kept apart by the lock:
  /// the rule against two requests at the same time applies to them too.
  virtual int SetOption(const char* name, const char* value) = 0;
  /// Copies the session's counters into `*out`: 0, or -303 for a null
  /// pointer or an out->Size below version 1's (200). Set out->Size to
  /// sizeof(CVelmarStatistics) first; the library fills up to that many
  /// bytes and sets Size to the number filled (see CVelmarStatistics). Any
  /// thread, any time, also before Init and from callbacks; takes no lock.
  /// Each counter is read on its own, so counters read together may be a
  /// few events apart.
  virtual int GetStatistics(CVelmarStatistics* out) = 0;
  /// The object for VelmarMdStatusSpi callbacks, or null for none. Not owned;
  /// it must stay alive until the process ends once registered. Best before
  /// Init; a later change is safe, and callbacks already under way may still
  /// reach the object it replaces.
  virtual void RegisterStatusSpi(VelmarMdStatusSpi* spi) = 0;

  VelmarMdApi() = default;
  VelmarMdApi(const VelmarMdApi&) = default;
  VelmarMdApi& operator=(const VelmarMdApi&) = default;

 protected:
  // Not virtual and not public: the application never deletes the object.
  ~VelmarMdApi() {}
};

}  // namespace mdapi
}  // namespace velmar

#endif  // VELMAR_MD_API_H
