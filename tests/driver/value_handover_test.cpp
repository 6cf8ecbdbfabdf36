// Values that both threads touch: which one wins, and that none is ever seen torn.
#include <atomic>
#include <thread>

#include "driver/DriverFixture.h"

class ValueHandoverTest : public DriverTest {
 protected:
  ValueHandoverTest() { KnowsAllTags(); }

  // Runs call while the server, having got the request, sees to it that tag 0 is notified and then answers.
  template <class Call>
  void WithNotificationBeforeTheAnswer(const std::string& body, const std::string& answer, Call call) {
    std::thread server([&] {
      char request[64];
      ASSERT_GT(recv(core.server, request, sizeof request, 0), 0);
      Notified(0, body);
      core.Answers(answer);
    });
    call();
    server.join();
  }
};

TEST_F(ValueHandoverTest, ANotificationBetweenARequestAndItsAnswerIsTheNewerOne) {
  Connected(0, "11 00 01");
  driver.tags[0].connected = 0;
  WithNotificationBeforeTheAnswer("03", "48 00 03 00 11 00 02",
                                  [&] { EXPECT_EQ(FakeNapi::Show(driver.GetTagValue(js.Env(), "A")), "3"); });
  EXPECT_EQ(Shown(0), "3");
}

TEST_F(ValueHandoverTest, TheSameHoldsForConnecting) {
  Connected(0, "11 00 01");
  driver.tags[0].connected = 0;
  WithNotificationBeforeTheAnswer("03", "62 03 00 11 00 02", [&] { EXPECT_TRUE(driver._ConnectTag("A")); });
  EXPECT_EQ(Shown(0), "3");
  EXPECT_EQ(driver.tags[0].connected, 1);
}

TEST_F(ValueHandoverTest, ANotificationBeforeTheRequestIsOlderThanTheAnswer) {
  Connected(0, "11 00 01");
  driver.tags[0].connected = 0;
  Notified(0, "09");
  core.Answers("48 00 03 00 11 00 02");
  EXPECT_EQ(FakeNapi::Show(driver.GetTagValue(js.Env(), "A")), "2");
  driver.tags[0].connected = 0;
  Notified(0, "09");
  core.Answers("62 03 00 11 00 04");
  EXPECT_TRUE(driver._ConnectTag("A"));
  EXPECT_EQ(Shown(0), "4");
}

TEST_F(ValueHandoverTest, AFailedReadKeepsTheNotificationBeforeIt) {
  Connected(0, "11 00 01");
  driver.tags[0].connected = 0;
  Notified(0, "09");
  core.HangsUp();
  EXPECT_EQ(FakeNapi::Show(driver.GetTagValue(js.Env(), "A")), "nothing");
  EXPECT_EQ(Shown(0), "9");
}

TEST_F(ValueHandoverTest, ATypeThatChangesWithTheAnswerIsTheTypeOfLaterNotifications) {
  Connected(0, "11 00 01");
  driver.tags[0].connected = 0;
  WithNotificationBeforeTheAnswer("03", "62 04 00 12 00 00 01", [&] { EXPECT_TRUE(driver._ConnectTag("A")); });
  EXPECT_EQ(Shown(0), "3");  // the notification, whole and in its own type
  EXPECT_EQ(Notified(0, "05"), 65535);
  EXPECT_EQ(Notified(0, "05 01"), 2);
  EXPECT_EQ(Shown(0), "261");
}

TEST_F(ValueHandoverTest, ManyNotificationsThatNobodyLooksAtLeaveTheLast) {
  Connected(0, "08 00 00");
  for (int i = 0; i < 100; ++i) Notified(0, "61 00");
  Notified(0, "6C 61 73 74 00");
  EXPECT_EQ(Shown(0), "'last'");
  EXPECT_EQ(Shown(0), "'last'");
}

TEST_F(ValueHandoverTest, AReaderSeesWholeTextsInOrderWhileAnotherThreadNotifies) {
  Connected(0, "08 00 00");
  driver.SetCBFunc(js.Env(), js.Function([](const FakeNapi::Args&) {}));
  constexpr int kRounds = 4000;
  std::atomic<bool> done{false};
  std::thread receiver([&] {
    for (int i = 1; i <= kRounds; ++i) {
      // The number again and again, so that a mixture of two texts would show.
      std::string text;
      for (int part = 0; part < 20; ++part) text += std::to_string(100000 + i);
      driver.OnDBNotify(0, reinterpret_cast<const uint8_t*>(text.c_str()), text.size() + 1);
    }
    done = true;
  });
  int last = 100000;
  for (bool more = true; more;) {
    more = !done;
    const XVariant& value = driver.tags[0].Value();
    if (value.str->empty()) continue;
    const std::string text = *value.str;
    const int number = std::stoi(text.substr(0, 6));
    EXPECT_GE(number, last);
    last = number;
    for (size_t part = 0; part < 20; ++part) ASSERT_EQ(text.substr(part * 6, 6), text.substr(0, 6));
  }
  receiver.join();
  EXPECT_EQ(last, 100000 + kRounds);
  EXPECT_EQ(js.Drain(), static_cast<size_t>(kRounds));
}

TEST_F(ValueHandoverTest, RequestsAndNotificationsOfTheSameTagsRunSideBySide) {
  Connected(0, "11 00 01");
  Connected(1, "08 00 00");
  std::atomic<bool> stop{false};
  std::thread receiver([&] {
    while (!stop) {
      Notified(0, "02");
      Notified(1, "74 65 78 74 00");
      Notified(2, "01");  // its type is unknown until the first read
    }
  });
  for (int round = 0; round < 300; ++round) {
    for (CDBDriver::STag& tag : driver.tags) tag.connected = 0;
    core.Answers("48 00 0A 00 11 00 05 08 00 78 00 11 00 06");
    EXPECT_NE(driver.GetTagValue(js.Env(), "A,B,C"), nullptr);
    core.Answers("62 0A 00 11 00 05 08 00 78 00 11 00 06");
    EXPECT_TRUE(driver._ConnectTag("A,B,C"));
    core.Sent();
  }
  stop = true;
  receiver.join();
}

TEST_F(ValueHandoverTest, ASubscriptionMayComeWhileNotificationsArrive) {
  Connected(0, "11 00 01");
  std::atomic<bool> stop{false};
  std::thread receiver([&] {
    while (!stop) Notified(0, "02");
  });
  driver.SetCBFunc(js.Env(), js.Function([](const FakeNapi::Args&) {}));
  EXPECT_TRUE(js.WaitQueuedEver(10));
  js.CloseFunctions();
  stop = true;
  receiver.join();
  js.Drain();
}
