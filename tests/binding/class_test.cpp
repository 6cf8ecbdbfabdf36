// The module's entry and the class: what Node-API is asked for, in which order, and what its failures become.
#include <semaphore.h>

#include "binding/BindingFixture.h"

namespace {

Names PropertyNames(const std::vector<FakeClasses::Property>& properties) {
  Names names;
  for (const FakeClasses::Property& property : properties) names.push_back(property.name);
  return names;
}

}  // namespace

TEST(Module, IsRegisteredAtLoadTimeByItsRecord) {
  const napi_module* record = FakeClasses::record;
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->nm_version, 1);
  EXPECT_EQ(record->nm_flags, 0u);
  EXPECT_STREQ(record->nm_filename, "../../binding");
  EXPECT_STREQ(record->nm_modname, "VqDBAccess");
  EXPECT_EQ(record->nm_register_func, &Init);
}

TEST_F(BindingTest, InitDefinesOneClassWithFourMethods) {
  ASSERT_EQ(api.classes.size(), 1u);
  const FakeClasses::Class& type = api.classes[0];
  EXPECT_EQ(type.name, "DBCore");
  EXPECT_EQ(type.nameLength, NAPI_AUTO_LENGTH);
  EXPECT_EQ(type.make, &DbCore::New);
  EXPECT_EQ(type.data, nullptr);
  EXPECT_EQ(PropertyNames(type.properties), (Names{"Connect", "KeepALive", "GetDriver", "SetRtAlarmNotify"}));
  const napi_callback methods[] = {DbCore::Connect, DbCore::KeepALive, DbCore::GetDriver, DbCore::SetRtAlarmNotify};
  for (size_t i = 0; i < type.properties.size(); ++i) {
    EXPECT_EQ(type.properties[i].method, methods[i]) << i;
    EXPECT_EQ(type.properties[i].attributes, napi_default) << i;
    EXPECT_EQ(type.properties[i].data, nullptr) << i;
    EXPECT_FALSE(type.properties[i].others) << i;
  }
}

TEST_F(BindingTest, InitKeepsTheClassByOneReferenceAndExportsIt) {
  const napi_value type = api.classes.at(0).value;
  const napi_ref reference = DbCore::constructor(js.Env());
  ASSERT_NE(reference, nullptr);
  EXPECT_EQ(reference->value, type);
  EXPECT_EQ(reference->count, 1u);
  EXPECT_EQ(api.named[exports], (std::vector<std::pair<std::string, napi_value>>{{"DBCore", type}}));
}

TEST(Init, OfAnEnvironmentThatFailsThrowsAndGivesTheExports) {
  for (const char* call :
       {"napi_define_class", "napi_set_instance_data", "napi_create_reference", "napi_set_named_property"}) {
    FakeClasses api;
    const napi_value exports = api.js.Object();
    api.js.Fail(call);
    EXPECT_EQ(Init(api.js.Env(), exports), exports) << call;
    EXPECT_EQ(api.js.TakeException(), "Injected failure") << call;
  }
}

TEST(Init, OfTheClassGivesTheStatusOfWhatFailed) {
  FakeClasses api;
  api.js.Fail("napi_set_named_property", "No", 0, napi_object_expected);
  EXPECT_EQ(DbCore::Init(api.js.Env(), api.js.Object()), napi_object_expected);
  EXPECT_FALSE(api.js.Pending());
}

TEST_F(BindingTest, NewWrapsAnObjectThatKnowsItsEnvironment) {
  const FakeClasses::Finalizer& wrap = api.wrapped.at(instance);
  EXPECT_EQ(wrap.call, &DbCore::Destructor);
  EXPECT_EQ(wrap.hint, nullptr);
  EXPECT_EQ(core->env, js.Env());
  ASSERT_NE(core->wrapperRef, nullptr);
  EXPECT_EQ(core->wrapperRef->value, instance);
  EXPECT_EQ(core->alarmFunc.load(), nullptr);
  EXPECT_FALSE(core->connected.load());
  EXPECT_FALSE(core->semReady);
  EXPECT_FALSE(core->localServer);
  EXPECT_EQ(core->rights, 0u);
}

TEST_F(BindingTest, NewAsAPlainCallMakesAnInstanceOfTheClassWithoutArguments) {
  const napi_value other = api.Call(DbCore::New, js.Undefined(), {js.Number(1), js.Number(2)});
  EXPECT_EQ(api.newInstanceArgs, 0u);
  EXPECT_EQ(api.wrapped.count(other), 1u);
  EXPECT_EQ(api.wrapped.size(), 2u);
}

TEST(DbCoreObject, HoldsNothingBeforeItIsWrapped) {
  DbCore core;
  EXPECT_EQ(core.env, nullptr);
  EXPECT_EQ(core.wrapperRef, nullptr);
  EXPECT_EQ(core.alarmFunc.load(), nullptr);
}

TEST_F(BindingTest, DestructorOfNothingDoesNothing) {
  js.log.clear();
  DbCore::Destructor(js.Env(), nullptr, nullptr);
  EXPECT_TRUE(js.log.empty());
  EXPECT_EQ(api.references.size(), 2u);  // of the class and of the instance
}

TEST_F(BindingTest, DestructorDeletesTheReferenceBeforeItEndsTheSession) {
  core->connected = true;  // as with a session whose receive thread is through
  core->semReady = true;
  sem_init(&core->recvDone, 0, 1);
  core->driverInfo["D"] = SNDrvInfoEx{0, 1, nullptr};
  core->driverSlots.resize(1);
  CDBDriver* driver = core->_GetDriver("D");
  ASSERT_NE(driver, nullptr);
  driver->SetCBFunc(js.Env(), js.Recorder());
  std::vector<bool> connected;
  api.onDeleteReference = [&] { connected.push_back(core->connected.load()); };
  api.Collect(instance);
  EXPECT_EQ(connected, std::vector<bool>{true});
  EXPECT_EQ(api.references.size(), 1u);
  EXPECT_EQ(js.FunctionAt(0).released, 1);  // the drivers are gone
  api.onDeleteReference = nullptr;
}

TEST_F(BindingTest, ConnectReadsAddressUserAndPasswordBeforeItLooksForTheObject) {
  const napi_value result =
      api.Call(DbCore::Connect, instance, {Text("127.0.0.1:1"), Text("operator"), Text("secret"), Text("more")});
  EXPECT_EQ(FakeNapi::Show(result), "-2");  // nobody listens there
  EXPECT_EQ(js.log, (Names{"napi_get_cb_info", "napi_get_value_string_utf8", "napi_get_value_string_utf8",
                           "napi_get_value_string_utf8", "napi_unwrap", "napi_create_int32"}));
  EXPECT_EQ(api.wantedArgs, 3u);
  EXPECT_TRUE(api.wantedThis);
}

TEST_F(BindingTest, ConnectWithTooFewArgumentsGivesMinusThreeWithoutReadingThem) {
  for (const auto& args : {std::vector<napi_value>{}, {js.Number(1)}, {js.Number(1), js.Number(2)}}) {
    EXPECT_EQ(FakeNapi::Show(api.Call(DbCore::Connect, js.Object(), args)), "-3");
    EXPECT_EQ(js.log, (Names{"napi_get_cb_info", "napi_create_int32"}));
  }
}

TEST_F(BindingTest, KeepALiveAsksNodeApiForNothing) {
  EXPECT_EQ(api.Call(DbCore::KeepALive, instance, {js.Number(1)}), nullptr);
  EXPECT_TRUE(js.log.empty());
}

TEST_F(BindingTest, GetDriverWithoutArgumentGivesNothing) {
  EXPECT_EQ(api.Call(DbCore::GetDriver, js.Object(), {}), nullptr);
  EXPECT_EQ(js.log, Names{"napi_get_cb_info"});
  EXPECT_EQ(api.wantedArgs, 1u);
  EXPECT_TRUE(api.wantedThis);
}

TEST_F(BindingTest, SetRtAlarmNotifyReadsTheFlagBehindTheObject) {
  const napi_value result = api.Call(DbCore::SetRtAlarmNotify, instance, {js.Recorder(), js.Boolean(true)});
  EXPECT_EQ(FakeNapi::Show(result), "-2");  // no session
  ASSERT_GE(js.log.size(), 3u);
  EXPECT_EQ(Names(js.log.begin(), js.log.begin() + 3),
            (Names{"napi_get_cb_info", "napi_unwrap", "napi_get_value_bool"}));
  EXPECT_EQ(api.wantedArgs, 2u);
  EXPECT_TRUE(api.wantedThis);
}

// As for a driver's callback: the hooks run from the last to the first.
TEST_F(BindingTest, SetRtAlarmNotifyMovesTheCleanupHookBehindThatOfTheCallback) {
  const auto ours = api.hooks.at(0);
  api.hooks.emplace_back([](void*) {}, &api);
  api.Call(DbCore::SetRtAlarmNotify, instance, {js.Recorder(), js.Boolean(false)});
  EXPECT_EQ(api.hooks.size(), 2u);
  EXPECT_EQ(api.hooks.back(), ours);
  api.hooks.erase(api.hooks.begin());
}

TEST_F(BindingTest, SetRtAlarmNotifyWithTooFewArgumentsGivesMinusThreeWithoutReadingThem) {
  for (const auto& args : {std::vector<napi_value>{}, {js.Recorder()}}) {
    EXPECT_EQ(FakeNapi::Show(api.Call(DbCore::SetRtAlarmNotify, js.Object(), args)), "-3");
    EXPECT_EQ(js.log, (Names{"napi_get_cb_info", "napi_create_int32"}));
  }
}

TEST_F(BindingTest, AFailureInNewIsThrownAndLeavesNoObject) {
  ExpectThrows({{"napi_get_new_target"}, {"napi_get_cb_info"}, {"napi_wrap"}},
               [this] { return api.Construct(DbCore::New); });
  EXPECT_EQ(api.wrapped.size(), 1u);
  EXPECT_EQ(api.hooks.size(), 1u);
}

TEST_F(BindingTest, AFailureInAPlainCallIsThrown) {
  ExpectThrows({{"napi_get_new_target"},
                {"napi_get_cb_info"},
                {"napi_get_instance_data"},
                {"napi_get_reference_value"},
                {"napi_new_instance"}},
               [this] { return api.Call(DbCore::New, js.Undefined(), {}); });
  EXPECT_EQ(api.wrapped.size(), 1u);
}

TEST_F(BindingTest, AFailureInConnectIsThrown) {
  ExpectThrows({{"napi_get_cb_info"},
                {"napi_get_value_string_utf8", 0},
                {"napi_get_value_string_utf8", 1},
                {"napi_get_value_string_utf8", 2},
                {"napi_unwrap"},
                {"napi_create_int32"}},
               [this] {
                 return api.Call(DbCore::Connect, instance, {Text("127.0.0.1:1"), Text("operator"), Text("secret")});
               });
  ExpectThrows({{"napi_create_int32"}}, [this] { return api.Call(DbCore::Connect, instance, {}); });
}

TEST_F(BindingTest, AFailureInGetDriverIsThrown) {
  ExpectThrows({{"napi_get_cb_info"}, {"napi_get_value_string_utf8"}, {"napi_unwrap"}},
               [this] { return api.Call(DbCore::GetDriver, instance, {Text("D")}); });
}

TEST_F(BindingTest, AFailureInSetRtAlarmNotifyIsThrown) {
  ExpectThrows({{"napi_get_cb_info"}, {"napi_unwrap"}, {"napi_get_value_bool"}, {"napi_create_int32"}}, [this] {
    return api.Call(DbCore::SetRtAlarmNotify, instance, {js.Recorder(), js.Boolean(false)});
  });
  ExpectThrows({{"napi_create_int32"}}, [this] { return api.Call(DbCore::SetRtAlarmNotify, instance, {}); });
}
