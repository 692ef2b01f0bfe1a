#include "app/Preparation.h"

#include <gtest/gtest.h>

#include <csignal>

using chassis::BeginWork;
using chassis::GoOn;
using chassis::prepare;

namespace {

const chassis::Progress half{"reading", 1, 2};

TEST(Preparation, WithoutASignalItIsDone) {
  EXPECT_EQ(prepare([](const BeginWork &) {}), 0);
  EXPECT_EQ(prepare([](const BeginWork &begin) { EXPECT_TRUE(begin()(half)); }), 0);
}

TEST(Preparation, ASignalEndsIt) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    EXPECT_EQ(prepare([signal](const BeginWork &begin) {
                const GoOn goOn = begin();
                EXPECT_TRUE(goOn(half));
                std::raise(signal);
                EXPECT_FALSE(goOn(half));
                EXPECT_FALSE(goOn(half));
                throw chassis::Interrupted("not read to its end");
              }),
              128 + signal);
  }
}

TEST(Preparation, ASignalBehindTheLastQuestionCountsToo) {
  EXPECT_EQ(prepare([](const BeginWork &begin) {
              const GoOn goOn = begin();
              std::raise(SIGTERM);
            }),
            143);
}

TEST(Preparation, ASizeOfTheTerminalEndsNothing) {
  EXPECT_EQ(prepare([](const BeginWork &begin) {
              const GoOn goOn = begin();
              std::raise(SIGWINCH);
              EXPECT_TRUE(goOn(half));
            }),
            0);
}

TEST(Preparation, WhatElseIsWrongIsThrown) {
  EXPECT_THROW(prepare([](const BeginWork &) { throw chassis::InputError("no PAT"); }),
               chassis::InputError);
  EXPECT_THROW(prepare([](const BeginWork &) { throw chassis::Interrupted("by itself"); }),
               chassis::Interrupted);
}

}  // namespace
