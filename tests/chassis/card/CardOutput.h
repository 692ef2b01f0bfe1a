// Gives a card an output as the chassis does.
#pragma once

#include <memory>
#include <string>

#include "card/Card.h"
#include "io/FileSink.h"
#include "io/Files.h"

inline void setOutput(chassis::Card &card, chassis::Files &files, const std::string &path) {
  card.endOutput();
  card.setOutput(std::make_unique<chassis::FileSink>(files.openOutput(card.outputName(), path)));
}
