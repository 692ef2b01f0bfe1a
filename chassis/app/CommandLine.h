// The command line of a program, as far as programs have it in common.
#pragma once

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <functional>
#include <string>

#include "base/InputError.h"
#include "console/Layout.h"
#include "console/StandardOutput.h"

namespace chassis {

constexpr std::size_t proseWidth = 93;  // as wide as it reads well

// Prose of --help as a paragraph of its own.
inline std::string helpParagraph(const std::string &text) {
  return paragraph(text, std::min(outputWidth(), proseWidth));
}

// What --help tells, in the columns that there are; the library's own help knows no width. Returns
// the exit status.
inline int showHelp(const CLI::App &app) {
  const auto asked = app.get_subcommands();
  const CLI::App &shown = asked.empty() ? app : *asked.front();
  writeStandardOutput(fitted(shown.help(asked.empty() ? "" : app.get_name()), outputWidth()));
  return 0;
}

// Reads the arguments and runs the work; --help is told instead of it. Throws InputError.
inline int parsed(CLI::App &app, int argc, char **argv, const std::function<int()> &work) {
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp &) {
    return showHelp(app);
  } catch (const CLI::Success &success) {
    return app.exit(success);
  } catch (const CLI::ParseError &error) {
    throw InputError(error.what());
  }
  return work();
}

}  // namespace chassis
