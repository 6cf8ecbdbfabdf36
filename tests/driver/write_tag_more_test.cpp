// A write that the system takes in part.
#include "driver/DriverFixture.h"

namespace {

// A connection of which each send takes all bytes but one.
class ShortSock final : public CReqTimeSock {
 public:
  int _Send(const void* buf, int len, int flags) override { return CReqTimeSock::_Send(buf, len - 1, flags); }
};

class ShortCore final : public IDriverCore {
 public:
  ShortCore() { sock.Attach(dup(far.sock.Descriptor())); }
  int RequestAll(const void*, uint32_t, uint32_t, void*) override { return 0; }
  bool GetTagId(uint16_t, const char*, uint16_t&) override { return false; }
  CReqTimeSock& RequestSock() override { return sock; }
  uint32_t Rights() const override { return CDBDriver::kWriteRight; }
  SessionGate& Gate() override { return gate; }
  void EndAbandonedSession() override {}

  FakeCore far;
  ShortSock sock;
  SessionGate gate;
};

}  // namespace

TEST(ShortWriteTest, AWriteThatGoesInPartIsNotSentAndNotRepeated) {
  FakeNapi js;
  ShortCore core;
  CDBDriver driver(js.Env(), "Pump", 0x0201, &core);
  driver.SetTagCount(1);
  driver.tagIds["A"] = 0;
  EXPECT_EQ(driver.SetTagValue(js.Env(), "A", js.Boolean(true)), CDBDriver::kWriteNotSent);
  EXPECT_EQ(core.far.Sent(), "67 01 00 01 02 00 00 0B 00");
}
