#include "console/ConsoleOptions.h"

#include <algorithm>
#include <cstdio>
#include <map>

#include "common/CommandLine.h"

namespace velmar {
namespace console {

namespace {

const char kDescription[] =
    "A console client of the VLMdApi market-data library: logs in, subscribes,\n"
    "counts what arrives and shows one order book live.";

const char kFooter[] =
    "IDS is a comma list such as 000001,002415; EXCHANGE is SH, SZ or ALL.\n"
    "\n"
    "At the end it prints a summary of what arrived, with a last line for\n"
    "scripts: \"summary md=N ticks=N orders=N trades=N books=N errors=N logins=N\".\n"
    "It exits with 0 if a login was accepted, 1 if none was, 2 for bad options.\n"
    "The library writes its log under ./log/md of the working directory.";

/// SH 1, SZ 2, ALL 3 (also the numbers themselves), in any case.
const std::map<std::string, int> kExchanges = {
    {"sh", 1}, {"sse", 1}, {"1", 1}, {"sz", 2}, {"szse", 2}, {"2", 2}, {"all", 3}, {"3", 3},
};

/// An instrument list: comma-separated ids of 15 characters at most (empty
/// items are dropped); a repeated option adds to the list.
CLI::Option* addIds(CLI::App& app, const std::string& name, std::vector<std::string>* ids,
                    const std::string& help) {
  return app.add_option(name, *ids, help)
      ->type_name("IDS")
      ->delimiter(',')
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->check(CLI::Validator(
          [](std::string& id) { return id.size() < 16 ? std::string() : "bad id '" + id + "'"; },
          ""));
}

CLI::Option* addExchange(CLI::App& app, const std::string& name, int* mask,
                         const std::string& help) {
  return app.add_option(name, *mask, help)
      ->type_name("EXCHANGE")
      ->transform(CLI::Transformer(kExchanges, CLI::ignore_case).description(""));
}

int usageError(const std::string& text) {
  std::fprintf(stderr, "vlmd-console: %s (see --help)\n", text.c_str());
  return 2;
}

}  // namespace

int parseConsoleOptions(int argc, char** argv, ConsoleOptions* o) {
  CLI::App app(kDescription, "vlmd-console");
  tools::setUpCommandLine(app, kFooter);

  const std::string connection = "Connection";
  app.add_option("--front", o->front, "the front server")
      ->type_name("tcp://H:P")
      ->required()
      ->group(connection);
  app.add_option("--mcast", o->mcast, "the multicast feed (default udp://239.255.0.1:30001)")
      ->type_name("udp://G:P")
      ->group(connection);
  app.add_option("--interface", o->interfaceAddress,
                 "local address that joins the feed's group\n"
                 "(default 127.0.0.1, the simulator's)")
      ->type_name("A")
      ->group(connection);
  app.add_option("--user", o->user, "user id of the login (default demo)")
      ->type_name("NAME")
      ->group(connection);
  app.add_option("--password", o->password, "password of the login (default demo)")
      ->type_name("PW")
      ->group(connection);

  const std::string subscriptions = "Subscriptions";
  addIds(app, "--md", &o->md, "market data of these instruments")->group(subscriptions);
  addExchange(app, "--md-all", &o->mdAll, "market data of every instrument of the exchange")
      ->group(subscriptions);
  addIds(app, "--ticks", &o->ticks, "tick-by-tick orders and trades of these instruments")
      ->group(subscriptions);
  addExchange(app, "--ticks-all", &o->ticksAll, "tick by tick of every instrument of the exchange")
      ->group(subscriptions);
  addIds(app, "--books", &o->books, "rebuilt order books of these Shenzhen instruments")
      ->group(subscriptions);
  app.add_flag("--books-all", o->booksAll,
               "pass every Shenzhen message to the book thread; books\n"
               "are still kept only for the instruments of --books")
      ->group(subscriptions);

  const std::string display = "Display";
  app.add_option("--view", o->view,
                 "live view of the order book of ID (a --books id),\n"
                 "redrawn in place at most 5 times a second")
      ->type_name("ID")
      ->group(display);
  app.add_option("--true-book-file", o->trueBookPath,
                 "show the simulator's true book from this file beside\n"
                 "it (vlmd-sim --true-book ID --true-book-file P)")
      ->type_name("P")
      ->group(display);
  app.add_option("--duration", o->duration, "stop after S seconds (default: until Ctrl-C)")
      ->type_name("S")
      ->check(tools::nonNegative<double>())
      ->group(display);
  app.add_flag("--quiet", o->quiet, "no live view; only the summary at the end")->group(display);

  const int status = tools::parseCommandLine(app, argc, argv);
  if (status >= 0) return status;
  if (o->front.empty()) return usageError("--front is required");
  if (o->user.empty() || o->user.size() >= 16) return usageError("--user wants 1 to 15 characters");
  if (o->password.empty() || o->password.size() >= 32) {
    return usageError("--password wants 1 to 31 characters");
  }
  if (!o->view.empty() && std::find(o->books.begin(), o->books.end(), o->view) == o->books.end()) {
    o->books.push_back(o->view);  // the view needs the book
  }
  return -1;
}

}  // namespace console
}  // namespace velmar
