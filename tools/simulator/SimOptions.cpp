#include "simulator/SimOptions.h"

#include <ctime>

#include "common/CommandLine.h"
#include "sim/MulticastSender.h"

namespace velmar {
namespace sim {

namespace {

const char kDescription[] =
    "The market side of a VLMdApi session on loopback: a front server and the\n"
    "multicast feed of one synthetic Shanghai/Shenzhen market (or of a recording).\n"
    "The front's market-data records come from the same market as the feed.\n"
    "With --front-only or --feed-only it runs one of the two alone.";

const char kFooter[] =
    "Front options are ignored with --feed-only, feed options with --front-only.\n"
    "\n"
    "On start it prints the lines that scripts can read, the front's when it runs\n"
    "one, the feed's when it sends:\n"
    "  front tcp://127.0.0.1:PORT\n"
    "  feed udp://GROUP:PORT\n"
    "The synthetic market: Shenzhen stocks 000001, 002415 (channel 2011), 300446\n"
    "(channel 2021) and index 399001; Shanghai stocks 600000 (channel 1), 600519\n"
    "(channel 2) and index 000001. The front alone (--front-only) serves the same\n"
    "instruments as they stand before the open.\n"
    "It exits with 0, with 1 if the feed failed (a recording that could not be\n"
    "read, datagrams that could not be sent), with 2 for bad options.";

int32_t today() {
  std::time_t now = std::time(nullptr);
  std::tm local{};
#if defined(_WIN32)
  localtime_s(&local, &now);
#else
  localtime_r(&now, &local);
#endif
  return (local.tm_year + 1900) * 10000 + (local.tm_mon + 1) * 100 + local.tm_mday;
}

/// "a.b.c.d:port" with a loopback address.
void setListen(const std::string& text, SimOptions* o) {
  const size_t colon = text.rfind(':');
  uint16_t port = 0;
  uint32_t address = 0;
  if (colon == std::string::npos || !CLI::detail::lexical_cast(text.substr(colon + 1), port) ||
      !parseIPv4(text.substr(0, colon), &address)) {
    throw CLI::ValidationError("--listen wants ADDRESS:PORT, got " + text);
  }
  if ((address >> 24) != 127) {
    throw CLI::ValidationError("refusing to listen on " + text.substr(0, colon) +
                               ": loopback (127.x.x.x) only");
  }
  o->listenHost = text.substr(0, colon);
  o->listenPort = port;
}

void setGroup(const std::string& text, SimOptions* o) {
  if (!parseEndpoint(text, &o->group, &o->groupPort)) {
    throw CLI::ValidationError("bad value '" + text + "' for --group");
  }
  const std::string why = checkGroup(o->group);
  if (!why.empty()) throw CLI::ValidationError(why);
}

void addUser(const std::string& text, SimOptions* o) {
  const size_t colon = text.find(':');
  if (colon == std::string::npos || colon == 0) {
    throw CLI::ValidationError("--user wants NAME:PASSWORD, got " + text);
  }
  o->users[text.substr(0, colon)] = text.substr(colon + 1);
}

CLI::Validator tradingDay() {
  return CLI::Validator(
      [](std::string& text) {
        int32_t day = 0;
        const bool good = CLI::detail::lexical_cast(text, day) && day >= 19700101 &&
                          day <= 99991231 && day % 100 >= 1 && day % 100 <= 31 &&
                          day / 100 % 100 >= 1 && day / 100 % 100 <= 12;
        return good ? std::string() : "bad value '" + text + "'";
      },
      "");
}

}  // namespace

int parseSimOptions(int argc, char** argv, SimOptions* o) {
  CLI::App app(kDescription, "vlmd-sim");
  tools::setUpCommandLine(app, kFooter);

  CLI::Option* frontOnly =
      app.add_flag("--front-only", o->frontOnly, "only the front server, no feed");
  app.add_flag("--feed-only", o->feedOnly, "only the multicast feed, no front")
      ->excludes(frontOnly);
  app.add_option("--duration", o->duration, "stop after S seconds (default: until interrupted)")
      ->type_name("S")
      ->check(tools::nonNegative<double>());
  app.add_option("--trading-day", o->tradingDay,
                 "trading day YYYYMMDD of the market and of the login\n"
                 "answer (default: today)")
      ->type_name("D")
      ->check(tradingDay());
  app.add_flag("--quiet", o->quiet,
               "only the front and feed lines: no progress lines (a count\n"
               "of datagrams sent every 5 s) and no summary at the end");

  const std::string front = "Front";
  app.add_option_function<std::string>(
         "--listen", [o](const std::string& text) { setListen(text, o); },
         "front address, A in 127.0.0.0/8 (default 127.0.0.1:0;\n"
         "port 0 lets the system choose)")
      ->type_name("A:P")
      ->group(front);
  app.add_option_function<std::vector<std::string>>(
         "--user",
         [o](const std::vector<std::string>& users) {
           for (const std::string& text : users) addUser(text, o);
         },
         "an accepted user; repeatable. Without any, every\n"
         "non-empty user id is accepted with the --password")
      ->type_name("NAME:PASSWORD")
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->group(front);
  app.add_option("--password", o->password,
                 "the password of any user when no --user is given\n"
                 "(default: empty, which accepts any password)")
      ->type_name("PW")
      ->group(front);
  app.add_option("--keepalive-ms", o->keepAliveMs,
                 "keep-alive period towards each client (default 1000;\n"
                 "0 sends none)")
      ->type_name("N")
      ->check(tools::within<int>(0, 3600000))
      ->group(front);
  app.add_option("--piece", o->idsPerPiece,
                 "instrument ids per package of a subscription answer\n"
                 "(default 0: as many as a package holds, 254)")
      ->type_name("N")
      ->check(tools::within<int>(0, 1000000))
      ->group(front);
  app.add_option("--sessions", o->sessions, "stop once N client connections have come and gone")
      ->type_name("N")
      ->check(tools::within<uint64_t>(0, 1000000))
      ->group(front);
  app.add_flag("--verbose", o->verbose, "print every request the front receives")->group(front);

  const std::string feed = "Feed";
  app.add_option_function<std::string>(
         "--group", [o](const std::string& text) { setGroup(text, o); },
         "multicast group and port, G in 239.255.0.0/16\n"
         "(default 239.255.0.1:30001); sent with TTL 0")
      ->type_name("G:P")
      ->group(feed);
  app.add_option("--interface", o->interfaceAddress,
                 "sending interface; only 127.0.0.1 is accepted (default)")
      ->type_name("A")
      ->check(CLI::Validator([](std::string& text) { return checkInterface(text); }, ""))
      ->group(feed);
  app.add_option("--rate", o->rate,
                 "datagrams per second of the synthetic market (default\n"
                 "200; 0 as fast as possible)")
      ->type_name("N")
      ->check(tools::nonNegative<double>())
      ->group(feed);
  app.add_option("--count", o->count, "stop the feed after N datagrams")
      ->type_name("N")
      ->check(tools::nonNegative<int64_t>())
      ->group(feed);
  app.add_option("--seed", o->seed, "seed of the synthetic market (default 1)")
      ->type_name("N")
      ->group(feed);
  app.add_option("--snapshot-ms", o->snapshotMs,
                 "simulated milliseconds between snapshot rounds\n"
                 "(default 3000)")
      ->type_name("N")
      ->check(tools::within<int64_t>(0, 86400000))
      ->group(feed);
  app.add_option("--record", o->recordPath,
                 "also write every datagram sent to FILE (replay format)")
      ->type_name("FILE")
      ->group(feed);
  CLI::Option* replay = app.add_option("--replay", o->replayPath,
                                       "send a recording (--record) instead of the synthetic\n"
                                       "market; the front's records then follow its snapshots")
                            ->type_name("FILE")
                            ->group(feed);
  CLI::Option* csv = app.add_option("--from-csv", o->csvPrefix,
                                    "send a real day from a vendor CSV export instead:\n"
                                    "PREFIX-orders.csv, PREFIX-trades.csv, PREFIX-snapshots.csv")
                         ->type_name("PREFIX")
                         ->excludes(replay)
                         ->group(feed);
  app.add_option("--channel", o->channel, "channel number for --from-csv (default 2021)")
      ->type_name("N")
      ->group(feed);
  app.add_option("--speed", o->speed,
                 "pace of --replay and --from-csv: 1 as recorded (default),\n"
                 "2 twice as fast, 0 as fast as possible")
      ->type_name("X")
      ->check(tools::nonNegative<double>())
      ->group(feed);
  app.add_flag("--no-send", o->noSend,
               "open no socket; with --record this converts or records\n"
               "as fast as possible")
      ->needs(app.get_option("--feed-only"))
      ->group(feed);
  app.add_option("--drop-every", o->dropEvery,
                 "withhold every Nth datagram (the Nth, 2Nth, ...) as a lossy\n"
                 "network would: the market moves on, the datagram is not\n"
                 "sent nor recorded (default 0: none)")
      ->type_name("N")
      ->check(tools::nonNegative<int64_t>())
      ->group(feed);
  CLI::Option* trueBook = app.add_option("--true-book", o->trueBookId,
                                         "a Shenzhen stock whose true ten-level book is written to")
                              ->type_name("ID")
                              ->excludes(replay)
                              ->excludes(csv)
                              ->group(feed);
  CLI::Option* trueBookFile =
      app.add_option("--true-book-file", o->trueBookPath,
                     "this file every 100 ms (replaced whole each time), for\n"
                     "vlmd-console --true-book-file; the synthetic market only")
          ->type_name("P")
          ->needs(trueBook)
          ->group(feed);
  trueBook->needs(trueBookFile);

  const int status = tools::parseCommandLine(app, argc, argv);
  if (status >= 0) return status;
  if (o->tradingDay == 0) o->tradingDay = today();
  return -1;
}

}  // namespace sim
}  // namespace velmar
