// Tag changes: into the table, onto the queue, and to the JavaScript callback.
#include <atomic>

#include "driver/DriverFixture.h"

class TagNotifyTest : public DriverTest {
 protected:
  TagNotifyTest() {
    KnowsAllTags();
    Connected(0, "11 00 01");
  }

  void Subscribes() { driver.SetCBFunc(js.Env(), js.Recorder()); }
};

TEST_F(TagNotifyTest, TheFunctionIsMadeAsDocumented) {
  Subscribes();
  ASSERT_EQ(js.Functions(), 1u);
  const napi_threadsafe_function__ function = js.FunctionAt(0);
  EXPECT_EQ(function.name, "db_recv");
  EXPECT_EQ(function.maxQueue, 0u);
  EXPECT_EQ(function.initialThreads, 1u);
  EXPECT_FALSE(function.asyncResource);
  EXPECT_FALSE(function.finalizer);
  EXPECT_EQ(function.context, &driver);
  EXPECT_EQ(function.callJs, &CDBDriver::OnCallJavaScript);
}

TEST_F(TagNotifyTest, SetCBFuncTakesTheEnvironmentAgain) {
  FakeNapi other;
  CDBDriver fresh(js.Env(), "Fan", 7, &core);
  fresh.SetCBFunc(other.Env(), other.Recorder());
  EXPECT_EQ(fresh.env, other.Env());
  EXPECT_EQ(other.Functions(), 1u);
  fresh.SetCBFunc(js.Env(), js.Recorder());  // ignored whole: the environment stays, too
  EXPECT_EQ(fresh.env, other.Env());
  EXPECT_EQ(js.Functions(), 0u);
}

TEST_F(TagNotifyTest, AChangeReachesTheCallbackWithDriverTagAndValue) {
  Subscribes();
  EXPECT_EQ(Notified(0, "2A"), 1);
  EXPECT_TRUE(js.calls.empty());
  EXPECT_EQ(js.Drain(), 1u);
  EXPECT_EQ(js.calls, std::vector<std::string>{"('Pump', 'A', 42)"});
}

TEST_F(TagNotifyTest, EveryTypeReachesTheCallbackAsDocumented) {
  Subscribes();
  for (const ValueType& type : kSizedTypes) {
    Connected(1, ToHex(Word(type.code) + FromHex(type.bytes)));
    EXPECT_EQ(Notified(1, type.bytes), static_cast<int>(FromHex(type.bytes).size())) << type.code;
    js.calls.clear();
    js.Drain();
    const std::string shown = type.shown == std::string("nothing") ? "undefined" : type.shown;
    EXPECT_EQ(js.calls, std::vector<std::string>{"('Pump', 'B', " + shown + ")"}) << type.code;
    EXPECT_EQ(driver.tags[1].Value().vt, type.code);
  }
}

TEST_F(TagNotifyTest, ATypeWithoutAValueCannotBeTaken) {
  Subscribes();
  for (const ValueType& type : kBareTypes) {
    Connected(1, ToHex(Word(type.code)));
    EXPECT_EQ(Notified(1, "01 02 03 04"), 65535) << type.code;
  }
  EXPECT_EQ(js.Queued(), 0u);
}

TEST_F(TagNotifyTest, AFalseReachesTheCallback) {
  Subscribes();
  Connected(1, "0B 00 01");
  Notified(1, "00");
  js.Drain();
  EXPECT_EQ(js.calls, std::vector<std::string>{"('Pump', 'B', false)"});
}

TEST_F(TagNotifyTest, ATagThatWasNeverReadOrConnectedCannotBeTaken) {
  Subscribes();
  EXPECT_EQ(Notified(2, "01"), 65535);
  driver.tags[2].type = VT_NULL;
  EXPECT_EQ(Notified(2, "01"), 65535);
  driver.tags[2].type = VT_I2;
  EXPECT_EQ(Notified(2, "01 00"), 2);
  driver.tags[3].type = VT_EMPTY;
  EXPECT_EQ(Notified(3, "01"), 65535);
  EXPECT_EQ(Shown(3), "nothing");
  EXPECT_EQ(js.Queued(), 1u);
}

TEST_F(TagNotifyTest, ATagBehindTheTableCannotBeTaken) {
  Connected(4, "11 00 01");
  EXPECT_EQ(Notified(4, "02"), 1);
  EXPECT_EQ(Notified(5, "02"), 65535);
  EXPECT_EQ(Notified(65535, "02"), 65535);
}

TEST_F(TagNotifyTest, AValueThatRunsPastTheBytesCannotBeTakenAndTheOldOneStays) {
  Subscribes();
  for (const ValueType& type : kSizedTypes) {
    const std::string bytes = FromHex(type.bytes);
    Connected(1, ToHex(Word(type.code) + bytes));
    for (size_t cut = 0; cut < bytes.size(); ++cut) {
      EXPECT_EQ(Notified(1, ToHex(bytes.substr(0, cut))), 65535) << type.code << " cut at " << cut;
    }
    EXPECT_EQ(Shown(1), type.shown) << type.code;
    EXPECT_EQ(Notified(1, type.bytes), static_cast<int>(bytes.size())) << type.code;  // and the next one is taken
  }
  EXPECT_EQ(js.Queued(), std::size(kSizedTypes));
}

TEST_F(TagNotifyTest, BytesBehindTheValueAreNotConsumed) {
  EXPECT_EQ(Notified(0, "02 FF FF"), 1);
  EXPECT_EQ(Shown(0), "2");
  Connected(1, "08 00 00");
  EXPECT_EQ(Notified(1, "68 69 00 FF"), 3);
  EXPECT_EQ(Shown(1), "'hi'");
}

TEST_F(TagNotifyTest, TheWholeBodyMayBeGivenWithoutASize) {
  const uint8_t body[] = {9};
  EXPECT_EQ(driver.OnDBNotify(0, body), 1);
  EXPECT_EQ(Shown(0), "9");
}

TEST_F(TagNotifyTest, WithoutACallbackTheTableIsUpdatedSilently) {
  EXPECT_EQ(Notified(0, "05"), 1);
  EXPECT_EQ(js.Functions(), 0u);
  EXPECT_EQ(FakeNapi::Show(driver.GetTagValue(js.Env(), "A")), "5");
  EXPECT_EQ(core.Sent(), "");
}

TEST_F(TagNotifyTest, TheFirstOfTwoCallbacksStays) {
  Subscribes();
  driver.SetCBFunc(js.Env(), js.Function([](const FakeNapi::Args&) { ADD_FAILURE() << "the second was called"; }));
  EXPECT_EQ(js.Functions(), 1u);
  Notified(0, "05");
  js.Drain();
  EXPECT_EQ(js.calls.size(), 1u);
}

TEST_F(TagNotifyTest, EachChangeBringsItsOwnValueInOrder) {
  Subscribes();
  Connected(1, "08 00 00");
  Notified(0, "01");
  Notified(1, "68 69 00");
  Notified(0, "02");
  EXPECT_EQ(Shown(0), "2");
  js.Drain();
  EXPECT_EQ(js.calls, (std::vector<std::string>{"('Pump', 'A', 1)", "('Pump', 'B', 'hi')", "('Pump', 'A', 2)"}));
}

TEST_F(TagNotifyTest, ACallbackThatReadsTheTagSeesTheValueOrANewerOne) {
  std::string seen;
  driver.SetCBFunc(js.Env(), js.Function([&](const FakeNapi::Args& args) {
    seen += FakeNapi::Show(args[2]) + ":" + FakeNapi::Show(driver.GetTagValue(js.Env(), "A")) + " ";
  }));
  Notified(0, "01");
  Notified(0, "02");
  js.Drain();
  EXPECT_EQ(seen, "1:2 2:2 ");
}

TEST_F(TagNotifyTest, DriverAndTagNamesAreConvertedToUtf8) {
  CDBDriver chinese(js.Env(), "\xB1\xC3", 1, &core);  // GB2312
  chinese.SetTagCount(1);
  chinese.tags[0].name = "\xCB\xAE\xCE\xBB";
  chinese.tags[0].type = VT_UI1;
  chinese.SetCBFunc(js.Env(), js.Recorder());
  const uint8_t body[] = {7};
  chinese.OnDBNotify(0, body, 1);
  js.Drain();
  EXPECT_EQ(js.calls, std::vector<std::string>{"('\xE6\xB3\xB5', '\xE6\xB0\xB4\xE4\xBD\x8D', 7)"});
}

TEST_F(TagNotifyTest, ATagWithoutANameHasAnEmptyOne) {
  Subscribes();
  driver.tags[1].name.clear();
  driver.tags[1].type = VT_UI1;
  Notified(1, "07");
  js.Drain();
  EXPECT_EQ(js.calls, std::vector<std::string>{"('Pump', '', 7)"});
}

TEST_F(TagNotifyTest, TheNameIsTheOneTheTagHasWhenTheCallbackIsCalled) {
  Subscribes();
  driver.tags[1].name.clear();
  driver.tags[1].type = VT_UI1;
  Notified(1, "07");
  driver.tags[1].name = "Later";
  js.Drain();
  EXPECT_EQ(js.calls, std::vector<std::string>{"('Pump', 'Later', 7)"});
}

TEST_F(TagNotifyTest, TheQueueIsNeverWaitedFor) {
  Subscribes();
  for (int i = 0; i < 1000; ++i) Notified(0, "01");
  EXPECT_EQ(js.FunctionAt(0).blocking, 0);
  EXPECT_EQ(js.Drain(), 1000u);
}

TEST_F(TagNotifyTest, AChangeThatCannotBeQueuedIsFreedAndTheTableHasIt) {
  Subscribes();
  js.Fail("napi_call_threadsafe_function", nullptr, 0, napi_queue_full);
  EXPECT_EQ(Notified(0, "05"), 1);
  EXPECT_EQ(Shown(0), "5");
  EXPECT_EQ(Notified(0, "06"), 1);  // and the next one goes out
  EXPECT_EQ(js.Drain(), 1u);
}

TEST_F(TagNotifyTest, AfterClosingTheFunctionIsNeverTouchedAgain) {
  Subscribes();
  js.CloseFunctions();
  EXPECT_EQ(Notified(0, "05"), 1);
  EXPECT_EQ(Notified(0, "06"), 1);
  EXPECT_EQ(js.FunctionAt(0).refused, 1);
  EXPECT_EQ(driver.notifyFunc.load(), nullptr);
  EXPECT_EQ(Shown(0), "6");
  // The destructor must not release it either; the fake environment would fail the test.
}

TEST_F(TagNotifyTest, TheDriversEndReleasesTheFunctionAndQueuedChangesAreStillDelivered) {
  {
    CDBDriver brief(js.Env(), "Brief", 1, &core);
    brief.SetTagCount(1);
    brief.tags[0].name = "T";
    brief.tags[0].type = VT_BSTR;
    brief.SetCBFunc(js.Env(), js.Recorder());
    const uint8_t body[] = {'h', 'i', 0};
    brief.OnDBNotify(0, body, sizeof body);
  }
  EXPECT_EQ(js.FunctionAt(0).released, 1);
  EXPECT_EQ(js.FunctionAt(0).aborted, 0);
  EXPECT_EQ(js.FunctionAt(0).threads, 0u);
  EXPECT_EQ(js.Drain(), 1u);
  EXPECT_EQ(js.calls, std::vector<std::string>{"('Brief', 'T', 'hi')"});
}

TEST_F(TagNotifyTest, WithoutAnEnvironmentQueuedChangesAreOnlyFreed) {
  Subscribes();
  Notified(0, "05");
  js.EndEnvironment();
  EXPECT_EQ(js.Queued(), 0u);
  EXPECT_TRUE(js.calls.empty());
}

TEST_F(TagNotifyTest, WithoutACallbackOrAMessageNothingIsCalled) {
  Subscribes();
  Notified(0, "05");
  void* const message = js.FunctionAt(0).queue.front();
  js.functions_[0]->queue.clear();
  CDBDriver::OnCallJavaScript(js.Env(), nullptr, &driver, message);
  CDBDriver::OnCallJavaScript(js.Env(), js.Recorder(), &driver, nullptr);
  EXPECT_TRUE(js.calls.empty());
}

TEST_F(TagNotifyTest, WhatACallbackThrowsIsUncaughtAndTheNextChangeIsDelivered) {
  int calls = 0;
  driver.SetCBFunc(js.Env(), js.Function([&](const FakeNapi::Args&) {
    ++calls;
    js.Throw("number " + std::to_string(calls));
  }));
  Notified(0, "01");
  Notified(0, "02");
  js.Drain();
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(js.uncaught, (std::vector<std::string>{"number 1", "number 2"}));
}

TEST_F(TagNotifyTest, AFailedCallOnTheWayToTheCallbackIsUncaughtAndFreesTheMessage) {
  Subscribes();
  Connected(1, "07 00 00 00 00 00 00 00 00 00");
  const std::pair<const char*, int> failures[] = {{"napi_create_string_utf8", 0},
                                                  {"napi_create_string_utf8", 1},
                                                  {"napi_get_undefined", 0},
                                                  {"napi_get_global", 0},
                                                  {"napi_call_function", 0}};
  for (const auto& [call, skip] : failures) {
    js.Fail(call, call, skip);
    Notified(1, "00 00 00 00 00 00 00 00");
    js.Drain();
    ASSERT_EQ(js.uncaught.size(), 1u) << call;
    EXPECT_EQ(js.uncaught[0], call);
    js.uncaught.clear();
  }
  js.Fail("napi_create_uint32", "value");
  Notified(0, "01");
  js.Drain();
  EXPECT_EQ(js.uncaught, std::vector<std::string>{"value"});
  EXPECT_TRUE(js.calls.empty());
}

TEST_F(TagNotifyTest, ACallbackThatCannotBeInstalledThrowsAndALaterOneCan) {
  driver.SetCBFunc(js.Env(), js.Number(1));
  EXPECT_EQ(js.TakeException(), "Invalid argument");
  js.Fail("napi_create_string_utf8", "No memory");
  driver.SetCBFunc(js.Env(), js.Recorder());
  EXPECT_EQ(js.TakeException(), "No memory");
  EXPECT_EQ(js.Functions(), 0u);
  EXPECT_EQ(driver.notifyFunc.load(), nullptr);
  Subscribes();
  EXPECT_EQ(js.Functions(), 1u);
}
