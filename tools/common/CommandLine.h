// What the tools' command lines share, on top of CLI11: the same look of the
// help, the same handling of --help and of mistakes, and value checks whose
// messages name the value rather than a type.
//
// Header only and free of the library's internals, so that the console
// client, an application of the public interface, can use it too.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdio>
#include <limits>
#include <string>

namespace velmar {
namespace tools {

/// A program's command line: the description above the options, the notes
/// below them. Options are given once; a repeated one keeps its last value
/// unless it collects a list.
inline void setUpCommandLine(CLI::App& app, const std::string& footer) {
  app.get_formatter()->column_width(23);
  app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  app.set_help_flag("-h,--help", "this text");
  app.footer(footer);
}

/// Parses argv. -1 to go on; otherwise the exit status: 0 after --help
/// (printed to stdout), 2 after a mistake (said on stderr as
/// "program: what (see --help)").
inline int parseCommandLine(CLI::App& app, int argc, char** argv) {
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    std::fputs(app.help().c_str(), stdout);
    std::fputs("\n", stdout);
    return 0;
  } catch (const CLI::ParseError& e) {
    std::fprintf(stderr, "%s: %s (see --help)\n", app.get_name().c_str(), e.what());
    return 2;
  }
  return -1;
}

/// A number of type T from min to max (CLI11's own range check would also
/// print the bounds into the help).
template <typename T>
CLI::Validator within(T min, T max) {
  return CLI::Validator(
      [min, max](std::string& text) {
        T value{};
        if (!CLI::detail::lexical_cast(text, value) || !(value >= min) || value > max) {
          return "bad value '" + text + "'";
        }
        return std::string();
      },
      "");
}

template <typename T>
CLI::Validator nonNegative() {
  return within<T>(0, std::numeric_limits<T>::max());
}

}  // namespace tools
}  // namespace velmar
