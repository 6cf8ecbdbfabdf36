// Subscribing to alarms: request 'n', the two lists, the replay, and the function for later alarms.
#include <utime.h>

#include "core/Alarms.h"
#include "core/CoreFixture.h"

class AlarmSubscribeTest : public AlarmTest {
 protected:
  // A list as an earlier session has left it in the mirror.
  std::string Mirrored(const char* list, const std::string& lines) const {
    const std::string path = server.ProjectPath() + "RecData/" + list;
    std::ofstream(path, std::ios::binary) << lines;
    return path;
  }
};

TEST_F(AlarmSubscribeTest, AsksForTheActiveAlarmsAndThenForBothLists) {
  AnswersAlarms({});
  EXPECT_EQ(Subscribe(true), 0);
  EXPECT_EQ(Asked(), "n4RecData/textlist\r\nHello:Yes\r\n\r\n4RecData/taglist\r\nHello:Yes\r\n\r\n");
  EXPECT_TRUE(js.calls.empty());
}

TEST_F(AlarmSubscribeTest, TheFunctionIsMadeAsDocumented) {
  for (const bool replay : {true, false}) {
    TestCore other(js.Env());
    Connect(other);
    AnswersAlarms({}, other);
    EXPECT_EQ(other._SetRtAlarmNotify(js.Recorder(), replay), 0);
    const napi_threadsafe_function__ function = js.FunctionAt(js.Functions() - 1);
    EXPECT_EQ(function.name, "rt_alarm");
    EXPECT_EQ(function.maxQueue, 0u);
    EXPECT_EQ(function.initialThreads, 1u);
    EXPECT_FALSE(function.asyncResource);
    EXPECT_FALSE(function.finalizer);
    EXPECT_EQ(function.context, static_cast<CDBCore*>(&other));
    EXPECT_EQ(function.callJs, &CDBCore::OnNotifyRtAlarm);
  }
}

TEST_F(AlarmSubscribeTest, ActiveAlarmsAreReplayedInOrderBeforeItReturns) {
  HasLists();
  AnswersAlarms({Alarm(1, 2, 0), Alarm(3, 0, 1), Alarm(5, 6, 2)});
  EXPECT_EQ(Subscribe(true), 0);
  EXPECT_EQ(js.calls, (std::vector<std::string>{Shown(1, 2, "tag0"), Shown(3, 0, "tag1"), Shown(5, 6, "tag2")}));
  EXPECT_EQ(js.Queued(), 0u);
  EXPECT_EQ(std::count(js.log.begin(), js.log.end(), "napi_get_global"), 1);
  EXPECT_EQ(js.log.back(), "napi_create_threadsafe_function");  // later alarms come behind the replayed ones
}

TEST_F(AlarmSubscribeTest, WithoutReplayTheyAreReadAndThrownAway) {
  HasLists();
  AnswersAlarms({Alarm(1, 2, 0), Alarm(3, 0, 1), Alarm(5, 6, 2)});
  server.Answer(FromHex("4C 02 00"));  // the next answer stands right behind 96 bytes
  EXPECT_EQ(Subscribe(false), 0);
  EXPECT_TRUE(js.calls.empty());
  uint16_t id = 0;
  EXPECT_TRUE(core->GetTagId(0, "A", id));
  EXPECT_EQ(id, 2);
  EXPECT_EQ(js.Functions(), 1u);
}

TEST_F(AlarmSubscribeTest, ASecondCallIsRefusedAndSendsNothing) {
  HasLists();
  AnswersAlarms({});
  EXPECT_EQ(Subscribe(true), 0);
  Asked();
  EXPECT_EQ(Subscribe(true), -1);
  EXPECT_EQ(Subscribe(false), -1);
  EXPECT_EQ(Asked(), "");
  EXPECT_EQ(js.Functions(), 1u);
}

TEST_F(AlarmSubscribeTest, AlsoAfterAReconnect) {
  HasLists();
  AnswersAlarms({});
  EXPECT_EQ(Subscribe(true), 0);
  core->_Disconnect();
  EXPECT_EQ(Subscribe(true), -1);
  Connect();
  EXPECT_EQ(Subscribe(true), -1);
  EXPECT_EQ(Asked(), "");
}

TEST_F(AlarmSubscribeTest, EveryCutOfTheAnswerGivesMinusTwoAndALaterCallSucceeds) {
  HasLists();
  const std::string answer = Answer({Alarm(1, 2, 0), Alarm(3, 4, 1)});
  core->requestSock.SetTimeOut(15);
  for (size_t cut = 0; cut < answer.size(); ++cut) {
    core->requestSock.BackInStep();
    server.Answer(answer.substr(0, cut));
    EXPECT_EQ(Subscribe(true), -2) << cut;
    EXPECT_EQ(js.Functions(), 0u);
  }
  EXPECT_TRUE(js.calls.empty());
  core->requestSock.BackInStep();
  server.Answer(answer);
  EXPECT_EQ(Subscribe(true), 0);
  EXPECT_EQ(js.calls.size(), 2u);
}

TEST_F(AlarmSubscribeTest, AnotherLetterGivesMinusTwo) {
  server.Answer("N" + Word(0));
  EXPECT_EQ(Subscribe(true), -2);
  EXPECT_EQ(Asked(), "n");
}

TEST_F(AlarmSubscribeTest, ARequestThatCannotBeSentGivesMinusTwoAndReadsNothing) {
  server.Answer(Answer({}));
  ASSERT_EQ(shutdown(core->requestSock.Descriptor(), SHUT_WR), 0);
  EXPECT_EQ(Subscribe(true), -2);
  char unread[8];
  EXPECT_EQ(core->requestSock._Recv(unread, sizeof unread), 3);
  EXPECT_EQ(js.Functions(), 0u);
}

TEST_F(AlarmSubscribeTest, TheRequestSetsTheTimeOfTheLastSend) {
  HasLists();
  SystemHooks hooks;
  hooks.SetTime(4000000000);
  AnswersAlarms({});
  EXPECT_EQ(Subscribe(true), 0);
  EXPECT_EQ(core->requestSock.LastSend(), 4000000000);
}

TEST_F(AlarmSubscribeTest, WithoutASessionItGivesMinusTwo) {
  core->_Disconnect();
  EXPECT_EQ(Subscribe(true), -2);
  TestCore fresh(js.Env());
  EXPECT_EQ(fresh._SetRtAlarmNotify(js.Recorder(), true), -2);
  EXPECT_EQ(js.Functions(), 0u);
}

TEST_F(AlarmSubscribeTest, AnAnswerMayComeByteByByte) {
  HasLists();
  SystemHooks hooks;
  hooks.SliceReceives(1);
  AnswersAlarms({Alarm(1, 2, 0)});
  EXPECT_EQ(Subscribe(true), 0);
  EXPECT_EQ(js.calls, std::vector<std::string>{Shown(1, 2, "tag0")});
}

TEST_F(AlarmSubscribeTest, TheLargestCountIsReadWhole) {
  HasLists();
  std::string bytes = "n" + Word(65535);
  for (int i = 0; i < 65535; ++i) bytes += Alarm(1, 0, 0);
  std::thread answering([&] { server.Answer(bytes + FromHex("4C 02 00")); });
  EXPECT_EQ(Subscribe(false), 0);
  answering.join();
  uint16_t id = 0;
  EXPECT_TRUE(core->GetTagId(0, "A", id));
  EXPECT_EQ(id, 2);
}

TEST_F(AlarmSubscribeTest, TheListsAreFetchedAndLoadedOneEntryALine) {
  AnswersLists({Alarm(1, 2, 1)}, "text0\r\ntext1\r\ntext2\r\n", "tag0\r\ntag1\r\n");
  EXPECT_EQ(Subscribe(true), 0);
  EXPECT_EQ(core->textList, (std::vector<CString>{"text0", "text1", "text2"}));
  EXPECT_EQ(core->tagList, (std::vector<CString>{"tag0", "tag1"}));
  EXPECT_EQ(js.calls, std::vector<std::string>{Shown(1, 2, "tag1")});
}

TEST_F(AlarmSubscribeTest, ListsThatAreThereAreNotFetchedAgain) {
  core->textList = {"text0", "text1", "text2"};
  server.Answer(Answer({}));
  AnswersFiles({"Exist:No\r\n\r\n"});
  EXPECT_EQ(Subscribe(true), 0);
  EXPECT_EQ(Asked(), "n4RecData/taglist\r\nHello:Yes\r\n\r\n");
}

TEST_F(AlarmSubscribeTest, ListsOutliveTheSession) {
  AnswersLists({}, "text0\n", "tag0\n");
  EXPECT_EQ(Subscribe(true), 0);
  core->_Disconnect();
  EXPECT_EQ(core->textList.size(), 1u);
  EXPECT_EQ(core->tagList.size(), 1u);
}

TEST_F(AlarmSubscribeTest, ListsThatCannotBeHadShowQuestionMarks) {
  server.Answer(Answer({Alarm(1, 2, 0)}));
  std::thread closing([&] {
    server.Request(1);
    server.RequestSome();
    server.CloseRequest();
  });
  EXPECT_EQ(Subscribe(true), 0);
  closing.join();
  EXPECT_EQ(js.calls,
            std::vector<std::string>{"(Date(1000), Date(2000), '\?\?\?', 1, '\?\?\?', '\?\?\?', 3, 1.5, -2.5, 4)"});
}

TEST_F(AlarmSubscribeTest, ListsOfTheMirrorServeWhenTheirTransferFails) {
  Mirrored("textlist", "text0\r\ntext1\r\ntext2\r\n");
  Mirrored("taglist", "tag0\r\n");
  server.Answer(Answer({Alarm(1, 2, 0)}));
  std::thread closing([&] {
    server.Request(1);
    server.RequestUntil("\r\n\r\n");
    server.CloseRequest();
  });
  EXPECT_EQ(Subscribe(true), 0);
  closing.join();
  EXPECT_EQ(js.calls, std::vector<std::string>{Shown(1, 2, "tag0")});
}

TEST_F(AlarmSubscribeTest, ListsAreAskedForUnlessTheMirroredOneIsEmptyAndOfTimeZero) {
  const utimbuf zero{};
  ASSERT_EQ(utime(Mirrored("textlist", "").c_str(), &zero), 0);
  ASSERT_EQ(utime(Mirrored("taglist", "x").c_str(), &zero), 0);
  server.Answer(Answer({}));
  AnswersFiles({"UseLast:Yes\r\n\r\n"});
  EXPECT_EQ(Subscribe(true), 0);
  EXPECT_EQ(Asked(), "n4RecData/taglist\r\nLastTime:0\r\nSize:1\r\nHello:Yes\r\n\r\n");
  EXPECT_TRUE(core->textList.empty());
  EXPECT_EQ(core->tagList, std::vector<CString>{"x"});
}

TEST_F(AlarmSubscribeTest, ACallbackThatThrowsKeepsItsExceptionAndTheSubscriptionStands) {
  HasLists();
  AnswersAlarms({Alarm(1, 2, 0), Alarm(3, 4, 1)});
  int calls = 0;
  EXPECT_EQ(core->_SetRtAlarmNotify(js.Function([&](const FakeNapi::Args&) {
    ++calls;
    js.Throw("boom");
  }),
                                    true),
            0);
  EXPECT_EQ(calls, 1);  // with an exception pending Node-API makes no further call
  EXPECT_EQ(std::count(js.log.begin(), js.log.end(), "napi_call_function"), 2);
  EXPECT_EQ(js.TakeException(), "boom");
  EXPECT_EQ(js.Functions(), 1u);
}

TEST_F(AlarmSubscribeTest, ACallbackThatSubscribesAgainIsRefused) {
  HasLists();
  AnswersAlarms({Alarm(1, 2, 0)});
  int inner = 0;
  EXPECT_EQ(core->_SetRtAlarmNotify(js.Function([&](const FakeNapi::Args&) { inner = Subscribe(true); }), true), 0);
  EXPECT_EQ(inner, -1);
  EXPECT_EQ(js.Functions(), 1u);
}

TEST_F(AlarmSubscribeTest, AFunctionThatCannotBeMadeLeavesALaterCallFree) {
  HasLists();
  AnswersAlarms({});
  js.Fail("napi_create_threadsafe_function");
  EXPECT_EQ(Subscribe(true), 0);
  EXPECT_FALSE(js.Pending());
  AnswersAlarms({});
  EXPECT_EQ(Subscribe(true), 0);
  EXPECT_EQ(js.Functions(), 1u);
}
