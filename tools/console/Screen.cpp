#include "console/Screen.h"

#include <cstdio>
#include <string>

#include "console/TrueBookFile.h"

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#endif

namespace velmar {
namespace console {

namespace {

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

}  // namespace

std::string frame(const ConsoleOptions& o, ConsoleSpi& spi, double seconds) {
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

}  // namespace console
}  // namespace velmar
