// An answer that comes late or in part is not taken for the answer of the next request.
#include <thread>

#include "driver/DriverFixture.h"

class LateAnswerTest : public DriverTest {
 protected:
  LateAnswerTest() {
    KnowsAllTags();
    core.sock.SetTimeOut(20);
  }

  // The value that a read of A gives when the server answers it only once it has the request.
  std::string ReadsAnsweredBehindTheRequest(const std::string& answer) {
    core.Sent();
    core.sock.SetTimeOut(5000);
    std::thread server([&] {
      char request[64];
      ASSERT_GT(recv(core.server, request, sizeof request, 0), 0);
      core.Answers(answer);
    });
    const std::string shown = FakeNapi::Show(driver.GetTagValue(js.Env(), "A"));
    server.join();
    return shown;
  }
};

TEST_F(LateAnswerTest, AReadThatTimedOutDoesNotAnswerTheNextOne) {
  EXPECT_EQ(driver.GetTagValue(js.Env(), "A"), nullptr);
  core.Answers("48 00 03 00 11 00 01");
  EXPECT_EQ(ReadsAnsweredBehindTheRequest("48 00 03 00 11 00 02"), "2");
}

TEST_F(LateAnswerTest, ARestBehindACutAnswerIsThrownAway) {
  core.Answers("48 00 09 00 11 00 01");
  EXPECT_EQ(driver.GetTagValue(js.Env(), "A"), nullptr);
  core.Answers("08 00 72 65 73 74");
  EXPECT_EQ(ReadsAnsweredBehindTheRequest("48 00 03 00 11 00 02"), "2");
}

TEST_F(LateAnswerTest, AnAnswerOutOfPlaceIsThrownAwayWhole) {
  core.Answers("30 31 32 33 34 35 36");
  EXPECT_EQ(driver.GetTagValue(js.Env(), "A"), nullptr);
  EXPECT_EQ(ReadsAnsweredBehindTheRequest("48 00 03 00 11 00 02"), "2");
}

TEST_F(LateAnswerTest, AConnectThatTimedOutDoesNotAnswerAReadEither) {
  EXPECT_FALSE(driver._ConnectTag("A"));
  core.Answers("62 03 00 11 00 01");
  EXPECT_EQ(ReadsAnsweredBehindTheRequest("48 00 03 00 11 00 02"), "2");
}

TEST_F(LateAnswerTest, NorDoesABatchOfNamesWithAnotherLetter) {
  core.Answers("6C 00 00 00 00 FF FF");
  EXPECT_EQ(driver.GetTagValue(js.Env(), "Unknown"), nullptr);
  EXPECT_EQ(ReadsAnsweredBehindTheRequest("48 00 03 00 11 00 02"), "2");
}

TEST_F(LateAnswerTest, NothingIsThrownAwayBehindAnAnswerThatWasWhole) {
  core.Answers("48 00 03 00 11 00 01 48 00 03 00 11 00 02");
  EXPECT_EQ(FakeNapi::Show(driver.GetTagValue(js.Env(), "A")), "1");
  EXPECT_EQ(FakeNapi::Show(driver.GetTagValue(js.Env(), "A")), "2");
}
