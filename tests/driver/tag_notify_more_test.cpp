// Notifications at the edges: a tag that was taken out of the table, a message that nobody takes, a callback that is
// gone.
#include "driver/DriverFixture.h"

namespace {

class TagNotifyEdgeTest : public DriverTest {
 protected:
  TagNotifyEdgeTest() { Connected(0, "11 00 01"); }
};

}  // namespace

TEST_F(TagNotifyEdgeTest, ATagThatWasTakenOutOfTheTableCannotBeTaken) {
  driver.SetTagCount(6);
  Connected(5, "11 00 01");
  driver.SetTagCount(5);
  EXPECT_EQ(Notified(5, "02"), 65535);
}

TEST_F(TagNotifyEdgeTest, AChangeThatCannotBeQueuedLetsGoOfTheTable) {
  driver.SetCBFunc(js.Env(), js.Recorder());
  for (const napi_status status : {napi_queue_full, napi_generic_failure, napi_closing}) {
    js.Fail("napi_call_threadsafe_function", nullptr, 0, status);
    EXPECT_EQ(Notified(0, "05"), 1);
    EXPECT_EQ(driver.table.use_count(), 1) << status;
  }
}

TEST_F(TagNotifyEdgeTest, WithoutACallbackNothingIsThrown) {
  driver.SetCBFunc(js.Env(), js.Recorder());
  Notified(0, "05");
  void* const message = js.FunctionAt(0).queue.front();
  js.functions_[0]->queue.clear();
  CDBDriver::OnCallJavaScript(js.Env(), nullptr, &driver, message);
  EXPECT_TRUE(js.uncaught.empty());
  EXPECT_FALSE(js.Pending());
}
