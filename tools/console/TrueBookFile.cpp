#include "console/TrueBookFile.h"

#include <fstream>
#include <sstream>

namespace velmar {
namespace console {

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

}  // namespace console
}  // namespace velmar
