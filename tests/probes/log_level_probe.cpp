// Exits 0 if the log level set from the environment at start-up is the one
// named on the command line. Run by ctest with different environments.
#include <cstdio>
#include <cstring>

#include "utility/Logging.h"

int main(int argc, char** argv) {
  using velmar::utility::Logger;
  const char* names[] = {"TRACE", "DEBUG", "INFO"};
  if (argc != 2) return 2;
  Logger::LogLevel level = Logger::logLevel();
  const char* actual = level <= Logger::INFO ? names[level] : "?";
  if (std::strcmp(actual, argv[1]) != 0) {
    std::fprintf(stderr, "level %s, expected %s\n", actual, argv[1]);
    return 1;
  }
  return 0;
}
