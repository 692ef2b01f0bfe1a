// The command line of a program that only reads and writes files.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "InputError.h"

namespace chassis {

// Reads the arguments and runs the work; --help is told instead of it. Throws InputError.
inline int parsed(CLI::App &app, int argc, char **argv, const std::function<int()> &work) {
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success &success) {
    return app.exit(success);
  } catch (const CLI::ParseError &error) {
    throw InputError(error.what());
  }
  return work();
}

}  // namespace chassis
