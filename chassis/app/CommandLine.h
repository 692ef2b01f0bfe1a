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

// What was wrong with the arguments, and what would be right; the library's words where they do.
inline std::string wrongArguments(const CLI::App &app, const CLI::ParseError &error) {
  if (const auto unknown = app.remaining(true);
      dynamic_cast<const CLI::ExtrasError *>(&error) != nullptr && !unknown.empty()) {
    return "'" + unknown.front() + "' is none of its arguments; --help lists them";
  }
  const auto asked = app.get_subcommands();
  for (const CLI::Option *option : (asked.empty() ? app : *asked.front()).get_options()) {
    if (dynamic_cast<const CLI::ArgumentMismatch *>(&error) != nullptr &&
        option->get_items_expected_max() == 1 && option->count() > 1) {
      return option->get_name() + " is given " + std::to_string(option->count()) +
             " times; once is right";
    }
  }
  return error.what();
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
    throw InputError(wrongArguments(app, error));
  }
  return work();
}

}  // namespace chassis
