// vlmd-console: a console client of the VLMdApi library, built on its public
// interface only (VelmarMdApi.h and VelmarMdStruct.h, the shared library
// VLMdApi). It logs in, subscribes to what the options ask for, counts what
// arrives, and can show one rebuilt order book live, beside the simulator's
// true book of the same instrument.
//
// The library calls back on its own threads, mostly under its session lock,
// so the callbacks here only count and copy a few numbers: a render thread
// draws the screen from those copies, under a mutex of this program.
#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#endif

#include "VelmarMdApi.h"
#include "VelmarMdStruct.h"

using velmar::mdapi::VelmarMdApi;
using velmar::mdapi::VelmarMdSpi;

namespace {

const char kUsage[] =
    "Usage: vlmd-console --front tcp://HOST:PORT [options]\n"
    "A console client of the VLMdApi market-data library: logs in, subscribes,\n"
    "counts what arrives and shows one order book live.\n"
    "\n"
    "Connection:\n"
    "  --front tcp://H:P    the front server (required)\n"
    "  --mcast udp://G:P    the multicast feed (default udp://239.255.0.1:30001)\n"
    "  --interface A        local address that joins the feed's group\n"
    "                       (default 127.0.0.1, the simulator's)\n"
    "  --user NAME          user id of the login (default demo)\n"
    "  --password PW        password of the login (default demo)\n"
    "Subscriptions (IDS is a comma list such as 000001,002415; EXCHANGE is SH,\n"
    "SZ or ALL):\n"
    "  --md IDS             market data of these instruments\n"
    "  --md-all EXCHANGE    market data of every instrument of the exchange\n"
    "  --ticks IDS          tick-by-tick orders and trades of these instruments\n"
    "  --ticks-all EXCHANGE tick by tick of every instrument of the exchange\n"
    "  --books IDS          rebuilt order books of these Shenzhen instruments\n"
    "  --books-all          pass every Shenzhen message to the book thread; books\n"
    "                       are still kept only for the instruments of --books\n"
    "Display:\n"
    "  --view ID            live view of the order book of ID (a --books id),\n"
    "                       redrawn in place at most 5 times a second\n"
    "  --true-book-file P   show the simulator's true book from this file beside\n"
    "                       it (vlmd-sim --true-book ID --true-book-file P)\n"
    "  --duration S         stop after S seconds (default: until Ctrl-C)\n"
    "  --quiet              no live view; only the summary at the end\n"
    "  --help               this text\n"
    "\n"
    "At the end it prints a summary of what arrived, with a last line for\n"
    "scripts: \"summary md=N ticks=N orders=N trades=N books=N errors=N logins=N\".\n"
    "It exits with 0 if a login was accepted, 1 if none was, 2 for bad options.\n"
    "The library writes its log under ./log/md of the working directory.\n";

std::atomic<bool> g_stop{false};

void onSignal(int) {
  g_stop = true;
}

struct Options {
  std::string front;
  std::string mcast = "udp://239.255.0.1:30001";
  std::string interfaceAddress = "127.0.0.1";
  std::string user = "demo";
  std::string password = "demo";
  std::vector<std::string> md, ticks, books;
  int mdAll = 0, ticksAll = 0;  // exchange masks, 0 for none
  bool booksAll = false;
  std::string view;
  std::string trueBookPath;
  double duration = 0;
  bool quiet = false;
};

std::vector<std::string> splitIds(const std::string& text) {
  std::vector<std::string> ids;
  std::string id;
  std::istringstream in(text);
  while (std::getline(in, id, ',')) {
    if (!id.empty()) ids.push_back(id);
  }
  return ids;
}

/// SH 1, SZ 2, ALL 3 (also the numbers themselves); 0 if unknown.
int parseExchange(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  if (text == "SH" || text == "SSE" || text == "1") return 1;
  if (text == "SZ" || text == "SZSE" || text == "2") return 2;
  if (text == "ALL" || text == "3") return 3;
  return 0;
}

int usageError(const std::string& text) {
  std::fprintf(stderr, "vlmd-console: %s (see --help)\n", text.c_str());
  return 2;
}

// 0 to go on, -1 after --help, otherwise the exit status.
int parseOptions(int argc, char** argv, Options* o) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::fputs(kUsage, stdout);
      return -1;
    }
    if (arg == "--quiet" || arg == "--books-all") {
      (arg == "--quiet" ? o->quiet : o->booksAll) = true;
      continue;
    }
    if (i + 1 >= argc) return usageError(arg + " needs a value");
    const std::string value = argv[++i];
    bool good = true;
    if (arg == "--front") {
      o->front = value;
    } else if (arg == "--mcast") {
      o->mcast = value;
    } else if (arg == "--interface") {
      o->interfaceAddress = value;
    } else if (arg == "--user") {
      o->user = value;
    } else if (arg == "--password") {
      o->password = value;
    } else if (arg == "--md" || arg == "--ticks" || arg == "--books") {
      std::vector<std::string>& list = arg == "--md"      ? o->md
                                       : arg == "--ticks" ? o->ticks
                                                          : o->books;
      for (const std::string& id : splitIds(value)) {
        good = good && id.size() < 16;
        list.push_back(id);
      }
      good = good && !list.empty();
    } else if (arg == "--md-all" || arg == "--ticks-all") {
      int mask = parseExchange(value);
      good = mask != 0;
      (arg == "--md-all" ? o->mdAll : o->ticksAll) = mask;
    } else if (arg == "--view") {
      o->view = value;
    } else if (arg == "--true-book-file") {
      o->trueBookPath = value;
    } else if (arg == "--duration") {
      char* end = nullptr;
      o->duration = std::strtod(value.c_str(), &end);
      good = end != value.c_str() && *end == '\0' && o->duration >= 0;
    } else {
      return usageError("unknown option " + arg);
    }
    if (!good) return usageError("bad value '" + value + "' for " + arg);
  }
  if (o->front.empty()) return usageError("--front is required");
  if (o->user.empty() || o->user.size() >= 16) return usageError("--user wants 1 to 15 characters");
  if (o->password.empty() || o->password.size() >= 32) {
    return usageError("--password wants 1 to 31 characters");
  }
  if (!o->view.empty() && std::find(o->books.begin(), o->books.end(), o->view) == o->books.end()) {
    o->books.push_back(o->view);  // the view needs the book
  }
  return 0;
}

// --- What the screen shows ----------------------------------------------------

struct Level {
  double price = 0;
  int64_t qty = 0;
  int orders = 0;  // orders the library knows on the level
};

struct BookView {
  bool seen = false;
  int64_t updateTime = 0;
  double lastPrice = 0;
  int64_t volume = 0;
  int64_t trades = 0;
  std::array<Level, 10> bids{}, asks{};
};

struct RecordView {
  bool seen = false;
  int64_t updateTime = 0;
  double lastPrice = 0;
  int64_t volume = 0;
  std::string phase;
};

/// Orders named by a list such as ",101,102,": one fewer than its commas.
int countOrders(const std::string& list) {
  int commas = static_cast<int>(std::count(list.begin(), list.end(), ','));
  return commas > 1 ? commas - 1 : 0;
}

/// A fixed text field up to its first NUL.
std::string idText(const char* id, size_t size) {
  return std::string(id, std::find(id, id + size, '\0'));
}

// --- Callbacks ------------------------------------------------------------------

class ConsoleSpi : public VelmarMdSpi {
 public:
  ConsoleSpi(VelmarMdApi* api, const Options& options) : api_(api), o_(options) {}

  // Counters, read by the render thread and at the end.
  std::atomic<int64_t> connects{0}, disconnects{0}, connectFailures{0}, heartbeatWarnings{0};
  std::atomic<int64_t> logins{0}, errors{0}, answers{0};
  std::atomic<int64_t> marketData{0}, marketDataSh{0}, marketDataSz{0};
  std::atomic<int64_t> tickOrders{0}, tickTrades{0}, tickCancels{0};
  std::atomic<int64_t> books{0};
  std::atomic<bool> loggedIn{false};

  void OnFrontConnected() override {
    ++connects;
    CVelmarReqUserLogin request;
    std::memset(&request, 0, sizeof request);
    std::strncpy(request.UserID, o_.user.c_str(), sizeof request.UserID - 1);
    std::strncpy(request.Password, o_.password.c_str(), sizeof request.Password - 1);
    std::strncpy(request.UserProductInfo, "vlmd-console", sizeof request.UserProductInfo - 1);
    check("ReqUserLogin", api_->ReqUserLogin(&request, nextRequestId()));
  }

  void OnFrontDisconnected(int reason) override {
    loggedIn = false;
    ++(reason == 0 ? disconnects : connectFailures);
  }

  void OnHeartBeatWarning(int) override { ++heartbeatWarnings; }

  void OnRspError(CVelmarRspInfo* info, int, bool) override {
    if (info != nullptr) noteError(*info, "error");
  }

  void OnRspUserLogin(CVelmarRspUserLogin* login, CVelmarRspInfo* info, int, bool) override {
    if (login == nullptr) {
      if (info != nullptr) noteError(*info, "login refused");
      return;
    }
    loggedIn = true;
    ++logins;
    subscribe();
  }

  void OnRspSubAllMarketData(int, int, int, bool) override { ++answers; }
  void OnRspSubAllTickByTick(int, int, bool) override { ++answers; }
  void OnRspSubMarketData(char**, int, int, bool) override { ++answers; }
  void OnRspSubTickByTick(char**, int, int, bool) override { ++answers; }
  void OnRspSubOrderBook(char**, int, int, bool) override { ++answers; }

  void OnRtnMarketData(CVelmarMarketData* d) override {
    ++marketData;
    ++(d->ExchangeID == 1 ? marketDataSh : marketDataSz);
    // The view shows a Shenzhen book; "000001" is also a Shanghai index.
    if (d->ExchangeID == 2 && !o_.view.empty() && o_.view == idText(d->SecurityID, 16)) {
      std::lock_guard<std::mutex> lock(viewMutex_);
      record_.seen = true;
      record_.updateTime = d->UpdateTime;
      record_.lastPrice = d->LastPrice;
      record_.volume = d->TotalVolume;
      record_.phase = idText(d->TradingPhaseCode, sizeof d->TradingPhaseCode);
    }
  }

  void OnRtnTickByTick(CVelmarTickByTick* t) override {
    if (t->TickType == 1) {
      ++tickOrders;
    } else if (t->TradeFlag == '4') {
      ++tickCancels;
    } else {
      ++tickTrades;
    }
  }

  void OnRtnOrderBook(CVelmarOrderBook* b) override {
    ++books;
    const std::string id = idText(b->SecurityID, sizeof b->SecurityID);
    {
      std::lock_guard<std::mutex> lock(statsMutex_);
      ++booksById_[id];
    }
    if (id != o_.view) return;
    // Copy the numbers now: the record is live and changes after the call.
    std::lock_guard<std::mutex> lock(viewMutex_);
    book_.seen = true;
    book_.updateTime = b->UpdateTime;
    book_.lastPrice = b->LastPrice;
    book_.volume = b->TotalVolume;
    book_.trades = b->NumTrades;
    for (size_t i = 0; i < 10; ++i) {
      book_.bids[i] = Level{b->Bid[i], b->BidQty[i], countOrders(b->BidOrders[i])};
      book_.asks[i] = Level{b->Ask[i], b->AskQty[i], countOrders(b->AskOrders[i])};
    }
  }

  void copyView(BookView* book, RecordView* record) {
    std::lock_guard<std::mutex> lock(viewMutex_);
    *book = book_;
    *record = record_;
  }

  std::map<std::string, int64_t> booksById() {
    std::lock_guard<std::mutex> lock(statsMutex_);
    return booksById_;
  }

  std::vector<std::string> errorTexts() {
    std::lock_guard<std::mutex> lock(statsMutex_);
    return errorTexts_;
  }

 private:
  int nextRequestId() { return ++requestId_; }

  void noteError(const CVelmarRspInfo& info, const char* what) {
    ++errors;
    char text[160];
    std::snprintf(text, sizeof text, "%s: %d %s", what, static_cast<int>(info.ErrorID),
                  idText(info.ErrorMsg, sizeof info.ErrorMsg).c_str());
    std::lock_guard<std::mutex> lock(statsMutex_);
    if (errorTexts_.size() < 10) errorTexts_.push_back(text);
  }

  void check(const char* request, int result) {
    if (result == 0) return;
    ++errors;
    char text[96];
    std::snprintf(text, sizeof text, "%s returned %d", request, result);
    std::lock_guard<std::mutex> lock(statsMutex_);
    if (errorTexts_.size() < 10) errorTexts_.push_back(text);
  }

  /// Sends ids in requests of at most 254, the most one request carries.
  template <typename Request>
  void subscribeIds(const char* name, const std::vector<std::string>& ids, Request request) {
    for (size_t at = 0; at < ids.size(); at += 254) {
      const size_t n = std::min<size_t>(254, ids.size() - at);
      std::vector<std::array<char, 16>> buffers(n);
      std::vector<char*> pointers(n);
      for (size_t i = 0; i < n; ++i) {
        buffers[i].fill('\0');
        std::memcpy(buffers[i].data(), ids[at + i].data(),
                    std::min<size_t>(15, ids[at + i].size()));
        pointers[i] = buffers[i].data();
      }
      check(name, (api_->*request)(pointers.data(), static_cast<int>(n), nextRequestId()));
    }
  }

  // Runs in OnRspUserLogin on the front's thread: every request of this
  // program goes out from that one thread, as the library wants.
  void subscribe() {
    if (!o_.md.empty()) subscribeIds("SubMarketData", o_.md, &VelmarMdApi::SubMarketData);
    if (o_.mdAll != 0) {
      check("SubAllMarketData", api_->SubAllMarketData(7, o_.mdAll, nextRequestId()));
    }
    if (!o_.ticks.empty()) subscribeIds("SubTickByTick", o_.ticks, &VelmarMdApi::SubTickByTick);
    if (o_.ticksAll != 0) {
      check("SubAllTickByTick", api_->SubAllTickByTick(o_.ticksAll, nextRequestId()));
    }
    if (!o_.books.empty()) subscribeIds("SubOrderBook", o_.books, &VelmarMdApi::SubOrderBook);
    if (o_.booksAll) check("SubAllOrderBook", api_->SubAllOrderBook(2, nextRequestId()));
  }

  VelmarMdApi* api_;
  const Options& o_;
  int requestId_ = 0;  // front thread only

  std::mutex viewMutex_;
  BookView book_;
  RecordView record_;

  std::mutex statsMutex_;
  std::map<std::string, int64_t> booksById_;
  std::vector<std::string> errorTexts_;
};

// --- The simulator's true book ----------------------------------------------------

struct TrueBook {
  bool ok = false;
  std::string id;
  int64_t time = 0;
  double last = 0;
  int64_t volume = 0;
  std::array<Level, 10> bids{}, asks{};
};

/// Reads the file vlmd-sim writes; ok is false if it is missing or malformed.
TrueBook readTrueBook(const std::string& path) {
  TrueBook b;
  std::ifstream in(path);
  std::string line;
  if (!in || !std::getline(in, line) || line.rfind("vlmd-true-book", 0) != 0) return b;
  while (std::getline(in, line)) {
    std::istringstream words(line);
    std::string kind;
    words >> kind;
    if (kind == "id") {
      std::string key;
      long long time = 0, volume = 0;
      words >> b.id >> key >> key >> key >> time >> key >> b.last >> key >> volume;
      b.time = time;
      b.volume = volume;
    } else if (kind == "bid" || kind == "ask") {
      size_t level = 0;
      Level l;
      long long qty = 0;
      if (!(words >> level >> l.price >> qty >> l.orders) || level < 1 || level > 10) return b;
      l.qty = qty;
      (kind == "bid" ? b.bids : b.asks)[level - 1] = l;
    }
  }
  b.ok = !b.id.empty();
  return b;
}

// --- Rendering --------------------------------------------------------------------

std::string formatLevel(const char* side, int n, const Level& l) {
  char text[64];
  if (l.price == 0) {
    std::snprintf(text, sizeof text, "%s %2d %10s %9s %5s", side, n, "-", "-", "");
  } else {
    std::snprintf(text, sizeof text, "%s %2d %10.2f %9lld %5d", side, n, l.price,
                  static_cast<long long>(l.qty), l.orders);
  }
  return text;
}

std::string formatTime(int64_t stamp) {
  // YYYYMMDDHHMMSSmmm (Shenzhen) shown as HH:MM:SS.mmm.
  if (stamp <= 0) return "--:--:--.---";
  const int64_t t = stamp % 1000000000;
  char text[32];
  std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", static_cast<int>(t / 10000000),
                static_cast<int>(t / 100000 % 100), static_cast<int>(t / 1000 % 100),
                static_cast<int>(t % 1000));
  return text;
}

/// Milliseconds of the day of a stamp in either exchange's form.
int64_t msOfDay(int64_t stamp) {
  const int64_t t = stamp % 1000000000;
  return t / 10000000 * 3600000 + t / 100000 % 100 * 60000 + t / 1000 % 100 * 1000 + t % 1000;
}

std::string frame(const Options& o, ConsoleSpi& spi, double seconds) {
  BookView book;
  RecordView record;
  spi.copyView(&book, &record);
  TrueBook truth;
  if (!o.trueBookPath.empty()) truth = readTrueBook(o.trueBookPath);

  std::string out;
  char line[256];
  auto add = [&](const std::string& text) {
    out += text;
    out += "\x1b[K\n";  // clear what an earlier, longer line left
  };
  std::snprintf(line, sizeof line, "vlmd-console  %s  %s  %.1f s  %s", o.front.c_str(),
                o.mcast.c_str(), seconds, spi.loggedIn ? "logged in" : "not logged in");
  add(line);
  std::snprintf(
      line, sizeof line,
      "market data %lld   ticks %lld (orders %lld, trades %lld, cancels %lld)   "
      "books %lld   errors %lld",
      static_cast<long long>(spi.marketData.load()),
      static_cast<long long>(spi.tickOrders + spi.tickTrades + spi.tickCancels),
      static_cast<long long>(spi.tickOrders.load()), static_cast<long long>(spi.tickTrades.load()),
      static_cast<long long>(spi.tickCancels.load()), static_cast<long long>(spi.books.load()),
      static_cast<long long>(spi.errors.load()));
  add(line);
  add("");
  const bool showTruth = !o.trueBookPath.empty();
  const int width = 42;
  auto pair = [&](const std::string& left, const std::string& right, bool mark) {
    std::string text = left;
    if (showTruth) {
      text.resize(width, ' ');
      text += mark ? " * " : "   ";
      text += right;
    }
    add(text);
  };
  std::snprintf(line, sizeof line, "%s rebuilt by the library", o.view.c_str());
  pair(line, truth.ok ? "true book of the simulator" : "true book: not available", false);
  std::string left, right;
  std::snprintf(line, sizeof line, "%s  last %.2f  vol %lld", formatTime(book.updateTime).c_str(),
                book.lastPrice, static_cast<long long>(book.volume));
  left = book.seen ? line : "waiting for the first snapshot";
  std::snprintf(line, sizeof line, "%s  last %.2f  vol %lld", formatTime(truth.time).c_str(),
                truth.last, static_cast<long long>(truth.volume));
  right = truth.ok ? line : "";
  if (truth.ok && book.seen && truth.time > 0 && book.updateTime > 0) {
    // The two books are read at different moments; say how far apart.
    const int64_t apart = msOfDay(truth.time) - msOfDay(book.updateTime);
    std::snprintf(line, sizeof line, "  (%lld ms %s)",
                  static_cast<long long>(apart < 0 ? -apart : apart),
                  apart < 0 ? "older" : "newer");
    if (apart != 0) right += line;
  }
  pair(left, right, false);
  std::snprintf(line, sizeof line, "%-6s %10s %9s %5s", "", "price", "qty", "ord");
  pair(line, line, false);
  int differ = 0;
  auto row = [&](const char* side, int i, const Level& mine, const Level& theirs) {
    const bool mark =
        showTruth && truth.ok && (mine.price != theirs.price || mine.qty != theirs.qty);
    differ += mark ? 1 : 0;
    pair(formatLevel(side, i + 1, mine), truth.ok ? formatLevel(side, i + 1, theirs) : "", mark);
  };
  for (int i = 9; i >= 0; --i) row("ask", i, book.asks[i], truth.asks[i]);
  pair(std::string(29, '-'), truth.ok ? std::string(29, '-') : "", false);
  for (int i = 0; i < 10; ++i) row("bid", i, book.bids[i], truth.bids[i]);
  if (record.seen) {
    std::snprintf(line, sizeof line, "market data of %s: %s  last %.2f  vol %lld  phase %s",
                  o.view.c_str(), formatTime(record.updateTime).c_str(), record.lastPrice,
                  static_cast<long long>(record.volume), record.phase.c_str());
    add(line);
  } else {
    add("");
  }
  add("ord: orders on the level; the rebuilt book counts those it has seen arrive");
  if (showTruth && truth.ok) {
    add(differ == 0 ? "all levels agree with the true book"
                    : "*: the level differs from the true book (read at another moment, or"
                      " not yet corrected by a snapshot)");
  }
  return out;
}

void enableTerminalEscapes() {
#if defined(_WIN32)
  HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
  DWORD mode = 0;
  if (out != INVALID_HANDLE_VALUE && GetConsoleMode(out, &mode)) {
    SetConsoleMode(out, mode | 0x0004);  // ENABLE_VIRTUAL_TERMINAL_PROCESSING
  }
#endif
}

void printSummary(ConsoleSpi& spi, double seconds) {
  const long long orders = spi.tickOrders, trades = spi.tickTrades, cancels = spi.tickCancels;
  std::printf("\nvlmd-console summary after %.1f s\n", seconds);
  std::printf(
      "  front          %lld connected, %lld disconnected, %lld failed connects, "
      "%lld heartbeat warnings\n",
      static_cast<long long>(spi.connects.load()), static_cast<long long>(spi.disconnects.load()),
      static_cast<long long>(spi.connectFailures.load()),
      static_cast<long long>(spi.heartbeatWarnings.load()));
  std::printf("  logins         %lld accepted; %lld subscription answers\n",
              static_cast<long long>(spi.logins.load()),
              static_cast<long long>(spi.answers.load()));
  std::printf("  market data    %lld (Shanghai %lld, Shenzhen %lld)\n",
              static_cast<long long>(spi.marketData.load()),
              static_cast<long long>(spi.marketDataSh.load()),
              static_cast<long long>(spi.marketDataSz.load()));
  std::printf("  tick by tick   %lld (orders %lld, trades %lld, cancellations %lld)\n",
              orders + trades + cancels, orders, trades, cancels);
  std::string byId;
  for (const auto& [id, n] : spi.booksById()) {
    byId += (byId.empty() ? ": " : ", ") + id + " " + std::to_string(n);
  }
  std::printf("  order books    %lld published%s\n", static_cast<long long>(spi.books.load()),
              byId.c_str());
  std::printf("  errors         %lld\n", static_cast<long long>(spi.errors.load()));
  for (const std::string& e : spi.errorTexts()) std::printf("                 %s\n", e.c_str());
  std::printf(
      "summary md=%lld ticks=%lld orders=%lld trades=%lld books=%lld errors=%lld "
      "logins=%lld\n",
      static_cast<long long>(spi.marketData.load()), orders + trades + cancels, orders,
      trades + cancels, static_cast<long long>(spi.books.load()),
      static_cast<long long>(spi.errors.load()), static_cast<long long>(spi.logins.load()));
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  if (int status = parseOptions(argc, argv, &o)) return status < 0 ? 0 : status;

  VelmarMdApi* api = VelmarMdApi::CreateMdUserApi("");
  if (api == nullptr) {
    std::fprintf(stderr, "vlmd-console: no memory for the session\n");
    return 1;
  }
  // The library's feed and book threads run until the process ends and may
  // still call back after Release, so the callback object is never deleted.
  auto* spi = new ConsoleSpi(api, o);
  api->RegisterSpi(spi);
  api->RegisterFront(o.front.c_str());
  api->RegisterMulticast(o.mcast.c_str());
  if (!o.interfaceAddress.empty()) api->RegisterMulticastInterface(o.interfaceAddress.c_str());
  std::printf("vlmd-console: %s, front %s, feed %s on %s\n", VelmarMdApi::GetVersion(),
              o.front.c_str(), o.mcast.c_str(),
              o.interfaceAddress.empty() ? "any interface" : o.interfaceAddress.c_str());
  std::fflush(stdout);

  std::signal(SIGINT, onSignal);
  std::signal(SIGTERM, onSignal);
  const int init = api->Init();
  if (init != 0) {
    std::fprintf(stderr, "vlmd-console: Init failed with %d (check --front and --mcast)\n", init);
    return 1;
  }

  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  auto elapsed = [&] { return std::chrono::duration<double>(Clock::now() - start).count(); };

  // The render thread draws at most 5 frames a second from the copies the
  // callbacks keep; it never calls the library.
  std::mutex renderMutex;
  std::condition_variable renderWake;
  bool renderStop = false;
  std::thread render;
  const bool live = !o.quiet && !o.view.empty();
  if (live) {
    enableTerminalEscapes();
    std::fputs("\x1b[2J", stdout);
    render = std::thread([&] {
      std::unique_lock<std::mutex> lock(renderMutex);
      while (!renderStop) {
        lock.unlock();
        std::string text = "\x1b[H" + frame(o, *spi, elapsed()) + "\x1b[J";
        std::fwrite(text.data(), 1, text.size(), stdout);
        std::fflush(stdout);
        lock.lock();
        renderWake.wait_for(lock, std::chrono::milliseconds(200), [&] { return renderStop; });
      }
    });
  }

  int64_t lastReportS = 0;
  while (!g_stop && (o.duration == 0 || elapsed() < o.duration)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    // Without a live view, a line every 5 seconds shows that things move.
    const int64_t s = static_cast<int64_t>(elapsed());
    if (!live && !o.quiet && s >= lastReportS + 5) {
      lastReportS = s;
      std::printf("%3llds: market data %lld, ticks %lld, books %lld, errors %lld\n",
                  static_cast<long long>(s), static_cast<long long>(spi->marketData.load()),
                  static_cast<long long>(spi->tickOrders + spi->tickTrades + spi->tickCancels),
                  static_cast<long long>(spi->books.load()),
                  static_cast<long long>(spi->errors.load()));
      std::fflush(stdout);
    }
  }
  if (live) {
    {
      std::lock_guard<std::mutex> lock(renderMutex);
      renderStop = true;
    }
    renderWake.notify_all();
    render.join();
  }
  const double seconds = elapsed();
  api->Release();
  api->Join();
  printSummary(*spi, seconds);
  return spi->logins > 0 ? 0 : 1;
}
