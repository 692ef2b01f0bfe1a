// What status says of a CAM's reply.
#include "ConsoleRig.h"

namespace chassis {
namespace {

TEST_F(ConsoleRig, AReplyIsOldAfterTheNextCaPmt) {
  insertCard();
  ask("progAssign 0, 101, 1");
  ask("camInsert 0, 0, 0x0500");
  runFor(8000);
  ask("camEntitle 0, 0, 101, 0");
  ask("caPMTSend 0, 0, 0x0500, 101, 3");
  runFor(1000);
  const std::string fresh = ask("status 0");
  EXPECT_TRUE(has(fresh, "  0x71   ")) << fresh;
  EXPECT_FALSE(has(fresh, "old")) << fresh;
  ask("caPMTSend 0, 0, 0x0500, 0, 0");
  runFor(1000);
  EXPECT_TRUE(has(ask("status 0"), "  0x71 (old)  ")) << answer_;
}

}  // namespace
}  // namespace chassis
