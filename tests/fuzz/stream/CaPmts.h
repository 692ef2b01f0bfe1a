// What a host tells a CAM to descramble.
#ifndef TESTS_FUZZ_STREAM_CA_PMTS_H
#define TESTS_FUZZ_STREAM_CA_PMTS_H

#include "CiIf.h"
#include "cam/Cam.h"

// The CA PMT that adds a program of a card's table, without its private data.
chassis::Apdu caPmtOf(const CiDescProg &program);

#endif
