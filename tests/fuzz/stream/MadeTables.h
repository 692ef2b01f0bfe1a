// Tables that are made rather than found: each is sent through packets, and what the chassis's
// readers tell must be what a second reading of the sections says.
#ifndef TESTS_FUZZ_STREAM_MADE_TABLES_H
#define TESTS_FUZZ_STREAM_MADE_TABLES_H

#include "Input.h"

void checkMadeTables(fuzz::Input &input);

#endif
