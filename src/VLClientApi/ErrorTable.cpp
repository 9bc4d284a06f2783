#include "VLClientApi/ErrorTable.h"

namespace velmar {
namespace mdapi {

namespace {

// The ids run 0..-8, -100..-139, -200..-207, -300..-303, -999 and
// -1001..-1009. The texts are the front's own, spelling included:
// applications compare them; -300..-303 are the library's own.
const char* const kGeneral[] = {
    "No error",
    "Netwrok error",
    "Unprocessed request num exceed limit",
    "Request num exceed limit per second",
    "exanic init failed",
    "exanic version incorrect",
    "exanic status error",
    "system no init yet",
    "authorize failed",
};

const char* const kRequest[] = {
    "Not logged in",                                   // -100
    "Can't find user",                                 // -101
    "Wrong password",                                  // -102
    "Can't find order",                                // -103
    "Invalid TID",                                     // -104
    "Unconnected to exchange",                         // -105
    "Invalid exchange",                                // -106
    "Invalid tick type",                               // -107
    "INvalid request",                                 // -108
    "Failed to open file",                             // -109
    "Failed to read file",                             // -110
    "Wrong instrument",                                // -111
    "Invalid volume",                                  // -112
    "Duplicated msg",                                  // -113
    "Out of trading time",                             // -114
    "Invalid front addr",                              // -115
    "failed to connect front server",                  // -116
    "Request error",                                   // -117
    "OrderRef error",                                  // -118
    "Duplicated login",                                // -119
    "Field check error",                               // -120
    "Invalid userID",                                  // -121
    "Invalid instrument status",                       // -122
    "Order price exceed Upper and Lower Limit Price",  // -123
    "Not enough position",                             // -124
    "Invalid account",                                 // -125
    "Not enough money",                                // -126
    "Not instrument margin rate",                      // -127
    "Not exchange margin rate",                        // -128
    "Not instrument commission rate",                  // -129
    "Can't find original order",                       // -130
    "No Position",                                     // -131
    "No Order",                                        // -132
    "No Trade",                                        // -133
    "Order insert failed",                             // -134
    "Order action failed",                             // -135
    "Operation failed",                                // -136
    "Seq num no contiguous",                           // -137
    "Seq num out of date",                             // -138
    "User existed",                                    // -139
};

const char* const kStorage[] = {
    "Unavailable exchange",           // -200
    "Position frozen error",          // -201
    "Account frozen error",           // -202
    "Update mdb error",               // -203
    // The front's own words: -204 is the speculation account's limit, -205
    // the arbitrage account's.
    "Exceed spec open volume limit",  // -204
    "Exceed arb open volume limit",   // -205
    "Can't find original position",   // -206
    "Can't find invester account",    // -207
};

const char* const kOptions[] = {
    "Unknown option",                      // -300
    "Invalid option value",                // -301
    "Option can only be set before Init",  // -302
    "Invalid statistics record",           // -303
};

const char* const kDatabase[] = {
    "Init database failed",     // -1001
    "Connect database failed",  // -1002
    "Close database failed",    // -1003
    "Check database error",     // -1004
    "Init csv failed",          // -1005
    "Connect csv failed",       // -1006
    "Close csv failed",         // -1007
    "Check csv error",          // -1008
    "Check config failed",      // -1009
};

template <size_t N>
const char* pick(const char* const (&table)[N], int first, int id) {
  int index = first - id;
  return index >= 0 && index < static_cast<int>(N) ? table[index] : nullptr;
}

}  // namespace

std::string errorText(int16_t id) {
  const char* text = nullptr;
  if (id <= 0 && id >= -8) {
    text = pick(kGeneral, 0, id);
  } else if (id <= -100 && id >= -139) {
    text = pick(kRequest, -100, id);
  } else if (id <= -200 && id >= -207) {
    text = pick(kStorage, -200, id);
  } else if (id <= -300 && id >= -303) {
    text = pick(kOptions, -300, id);
  } else if (id == -999) {
    text = "Internal error";
  } else if (id <= -1001 && id >= -1009) {
    text = pick(kDatabase, -1001, id);
  }
  return text ? text : "Unknow error";
}

}  // namespace mdapi
}  // namespace velmar
