// Alarms on their way to JavaScript: the ten arguments, and the deliveries of this and later sessions.
#include "core/Alarms.h"

class AlarmDeliveryTest : public AlarmTest {
 protected:
  void SetUp() override {
    AlarmTest::SetUp();
    HasLists();
  }
  void Subscribed() {
    AnswersAlarms({});
    EXPECT_EQ(Subscribe(false), 0);
    EXPECT_EQ(Asked(), "n");
  }

  // The ten arguments of an alarm.
  std::string Args(const std::string& alarm, const std::vector<CString>& texts, const std::vector<CString>& tags) {
    napi_value args[10] = {};
    CDBCore::RAToArgs(js.Env(), args, S2RtAlarm2::FromBytes(reinterpret_cast<const uint8_t*>(alarm.data())), texts,
                      tags);
    std::string shown;
    for (const napi_value arg : args) shown += FakeNapi::Show(arg) + " ";
    return shown;
  }
};

TEST_F(AlarmDeliveryTest, EveryFieldHasItsPlace) {
  const std::string alarm = FromHex(
      "01 00 00 80  02 00 00 00  03 00  04 00  05 00  FE  FF  "
      "00 00 00 00 00 00 F0 3F  00 00 00 00 00 00 00 40");
  ASSERT_EQ(alarm.size(), 32u);
  const std::vector<CString> texts = {"x0", "x1", "x2", "x3", "x4", "x5"};
  const std::vector<CString> tags = {"g0", "g1", "g2", "g3"};
  EXPECT_EQ(Args(alarm, texts, tags), "Date(2147483649000) Date(2000) 'g3' 1 'x4' 'x5' 254 1 2 255 ");
}

TEST_F(AlarmDeliveryTest, AnActiveAlarmHasItsBeginTimeTwice) {
  EXPECT_EQ(Args(Alarm(7, 0, 0), core->textList, core->tagList),
            "Date(7000) Date(7000) 'tag0' 0 'text1' 'text2' 3 1.5 -2.5 4 ");
}

TEST_F(AlarmDeliveryTest, TimesAreUnsigned) {
  const std::string alarm = FromHex("FF FF FF FF FE FF FF FF") + Alarm(0, 0, 0).substr(8);
  EXPECT_EQ(Args(alarm, {}, {}).substr(0, 41), "Date(4294967295000) Date(4294967294000) '");
}

TEST_F(AlarmDeliveryTest, AnIndexAtTheListsLengthIsQuestionMarks) {
  const std::vector<CString> nine(9, "line");
  const std::string unknown = "'\?\?\?'";
  const auto texts = [&](unsigned int tag, unsigned int text1, unsigned int text2) {
    const std::string alarm =
        Alarm(1, 1, 0).substr(0, 8) + Word(tag) + Word(text1) + Word(text2) + Alarm(1, 1, 0).substr(14);
    return Args(alarm, nine, nine);
  };
  const std::string head = "Date(1000) Date(1000) ";
  const std::string tail = " 3 1.5 -2.5 4 ";
  EXPECT_EQ(texts(8, 8, 8), head + "'line' 1 'line' 'line'" + tail);
  EXPECT_EQ(texts(9, 8, 8), head + unknown + " 1 'line' 'line'" + tail);
  EXPECT_EQ(texts(8, 9, 8), head + "'line' 1 " + unknown + " 'line'" + tail);
  EXPECT_EQ(texts(8, 8, 65535), head + "'line' 1 'line' " + unknown + tail);
}

TEST_F(AlarmDeliveryTest, ListEntriesGoOutByteForByte) {
  EXPECT_NE(Args(Alarm(1, 1, 0), {}, {"\xCB\xAE"}).find("'\xCB\xAE'"), std::string::npos);
}

TEST_F(AlarmDeliveryTest, TheArgumentsAreMadeByTheseCallsInThisOrder) {
  js.log.clear();
  Args(Alarm(1, 2, 0), core->textList, core->tagList);
  EXPECT_EQ(js.log, (std::vector<std::string>{"napi_create_date", "napi_create_date", "napi_create_string_utf8",
                                              "napi_create_int32", "napi_create_string_utf8", "napi_create_string_utf8",
                                              "napi_create_int32", "napi_create_double", "napi_create_double",
                                              "napi_create_int32"}));
}

TEST_F(AlarmDeliveryTest, BothAlarmRecordsReachTheCallback) {
  Subscribed();
  server.Notify(Record(1, Alarm(1, 0, 0)) + Record(3, Alarm(1, 2, 1)));
  EXPECT_EQ(Changes(2), (std::vector<std::string>{Shown(1, 0, "tag0"), Shown(1, 2, "tag1")}));
  EXPECT_EQ(js.FunctionAt(0).blocking, 0);
}

TEST_F(AlarmDeliveryTest, WhatIsQueuedIsACopyOfTheThirtyTwoBytes) {
  static_assert(sizeof(S2RtAlarm2) == 32);
  Subscribed();
  const std::vector<std::string> alarms = {Alarm(0x01020304, 0x05060708, 0x090A), Alarm(7, 0, 1)};
  server.Notify(Record(1, alarms[0]) + Record(3, alarms[1]));
  ASSERT_TRUE(js.WaitQueuedEver(2));
  const std::deque<void*> queue = js.FunctionAt(0).queue;
  for (size_t i = 0; i < 2; ++i) EXPECT_EQ(ToHex({static_cast<const char*>(queue[i]), 32}), ToHex(alarms[i]));
}

TEST_F(AlarmDeliveryTest, AlarmsAndChangesShareAChunk) {
  FollowedDriver("Pump");
  Subscribed();
  server.Notify(Change(0, 0, 5) + Record(1, Alarm(1, 0, 0)) + Change(0, 1, 6));
  const std::vector<std::string> all = Changes(3);
  EXPECT_EQ(all, (std::vector<std::string>{"('Pump', 'A', 5)", "('Pump', 'B', 6)", Shown(1, 0, "tag0")}));
}

TEST_F(AlarmDeliveryTest, AlarmsBeforeTheSubscriptionAreSkipped) {
  FollowedDriver("Pump");
  server.Notify(Record(1, Alarm(1, 0, 0)) + Change(0, 0, 5));
  EXPECT_EQ(Changes(1), std::vector<std::string>{"('Pump', 'A', 5)"});
  EXPECT_EQ(js.QueuedEver(), 1u);
}

TEST_F(AlarmDeliveryTest, LaterSessionsReachTheSameCallback) {
  Subscribed();
  for (const bool serverEnds : {false, true, false}) {
    const size_t before = js.QueuedEver();
    server.Notify(Record(1, Alarm(1, 0, 0)));
    EXPECT_EQ(Changes(before + 1).back(), Shown(1, 0, "tag0"));
    if (serverEnds) {
      server.CloseNotify();
    } else {
      core->_Disconnect();
    }
    Connect();
  }
  EXPECT_EQ(js.Functions(), 1u);
  EXPECT_EQ(js.FunctionAt(0).threads, 1u);
}

TEST_F(AlarmDeliveryTest, ADisconnectKeepsTheFunctionAndTheEndOfTheInstanceAbortsIt) {
  Subscribed();
  core->_Disconnect();
  EXPECT_EQ(js.FunctionAt(0).released + js.FunctionAt(0).aborted, 0);
  core.reset();
  EXPECT_EQ(js.FunctionAt(0).released, 0);
  EXPECT_EQ(js.FunctionAt(0).aborted, 1);
  EXPECT_EQ(js.FunctionAt(0).threads, 0u);
}

TEST_F(AlarmDeliveryTest, AlarmsQueuedWhenTheInstanceEndsAreFreedUnseen) {
  Subscribed();
  server.Notify(Record(1, Alarm(1, 0, 0)) + Record(1, Alarm(2, 0, 0)));
  ASSERT_TRUE(js.WaitQueuedEver(2));
  core.reset();
  EXPECT_EQ(js.Drain(), 2u);
  EXPECT_TRUE(js.calls.empty());
}

TEST_F(AlarmDeliveryTest, ReleasingTwiceIsReleasingOnce) {
  Subscribed();
  core->_Disconnect();
  core->ReleaseAlarmFunc();
  core->ReleaseAlarmFunc();
  EXPECT_EQ(js.FunctionAt(0).aborted, 1);
}

TEST_F(AlarmDeliveryTest, WithoutEnvironmentOrCallbackAnAlarmIsOnlyFreed) {
  const napi_value callback = js.Recorder();
  CDBCore::OnNotifyRtAlarm(nullptr, callback, core.get(), new S2RtAlarm2{});
  CDBCore::OnNotifyRtAlarm(js.Env(), nullptr, core.get(), new S2RtAlarm2{});
  CDBCore::OnNotifyRtAlarm(js.Env(), callback, core.get(), nullptr);
  EXPECT_TRUE(js.calls.empty());
}

TEST_F(AlarmDeliveryTest, WhatTheCallbackThrowsIsUncaughtAndTheNextAlarmIsDelivered) {
  AnswersAlarms({});
  int calls = 0;
  EXPECT_EQ(core->_SetRtAlarmNotify(js.Function([&](const FakeNapi::Args&) {
    ++calls;
    js.Throw("boom");
  }),
                                    false),
            0);
  server.Notify(Record(1, Alarm(1, 0, 0)) + Record(1, Alarm(2, 0, 0)));
  Changes(2);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(js.uncaught, (std::vector<std::string>{"boom", "boom"}));
}

TEST_F(AlarmDeliveryTest, AnAlarmThatCannotBeQueuedIsFreedAndTheNextOneGoesOut) {
  Subscribed();
  js.Fail("napi_call_threadsafe_function", nullptr, 0, napi_queue_full);
  server.Notify(Record(1, Alarm(1, 0, 0)) + Record(1, Alarm(2, 0, 0)));
  EXPECT_EQ(Changes(1), std::vector<std::string>{Shown(2, 0, "tag0")});
}

TEST_F(AlarmDeliveryTest, AfterClosingTheFunctionIsNeverTouchedAgain) {
  Subscribed();
  js.CloseFunctions();
  server.Notify(Record(1, Alarm(1, 0, 0)) + Record(1, Alarm(2, 0, 0)));
  EXPECT_TRUE(Eventually([&] { return core->alarmFunc.load() == nullptr; }));
  core->_Disconnect();
  core->ReleaseAlarmFunc();
  EXPECT_EQ(js.FunctionAt(0).refused, 1);
  EXPECT_EQ(js.FunctionAt(0).aborted, 0);
}

TEST_F(AlarmDeliveryTest, AFailedNodeApiCallOnTheWayIsNoCrash) {
  Subscribed();
  for (const char* call : {"napi_create_date", "napi_create_string_utf8", "napi_create_int32", "napi_create_double",
                           "napi_get_global", "napi_call_function"}) {
    const size_t before = js.QueuedEver();
    js.Fail(call);
    server.Notify(Record(1, Alarm(1, 0, 0)));
    Changes(before + 1);
  }
}
