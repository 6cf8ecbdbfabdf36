// Driver objects: how they are made, what their methods ask Node-API for, and what its failures become.
#include "binding/BindingFixture.h"

namespace {

constexpr char kGb2312Name[] = "\xCB\xAE";  // 水
constexpr char kUtf8Name[] = "\xE6\xB0\xB4";

}  // namespace

// A core that knows one driver "D" of two tags; A is connected and holds the byte 5, and so does a Chinese name.
class DriverObjectTest : public BindingTest {
 protected:
  void SetUp() override {
    BindingTest::SetUp();
    core->driverInfo["D"] = SNDrvInfoEx{0, 2, nullptr};
    core->driverInfo[kGb2312Name] = SNDrvInfoEx{1, 2, nullptr};
    core->driverSlots.resize(2);
    core->rights = CDBDriver::kWriteRight;
    object = Get("D");
    driver = core->driverSlots[0];
    ASSERT_NE(driver, nullptr);
    const uint8_t typed[] = {17, 0, 5};
    driver->tags[0].Decode(typed, sizeof typed);
    driver->tags[0].connected = 1;
    driver->tagIds["A"] = driver->tagIds[kGb2312Name] = 0;
  }

  napi_value Get(const std::string& name) { return api.Call(DbCore::GetDriver, instance, {Text(name)}); }

  // Calls a method without a `this`.
  napi_value Call(const std::string& method, const std::vector<napi_value>& args) {
    const FakeClasses::Property& property = api.Method(object, method);
    return property.method != nullptr ? api.Call(property.method, js.Undefined(), args, property.data) : nullptr;
  }

  napi_value object = nullptr;
  CDBDriver* driver = nullptr;
};

TEST_F(DriverObjectTest, HasFourMethodsInTheirOrderWithTheSameData) {
  const std::vector<FakeClasses::Property>& methods = api.properties.at(object);
  const char* const names[] = {"SetTagNotify", "ConnectTag", "GetTagValue", "SetTagValue"};
  const napi_callback functions[] = {DrvSetTagNotify, DrvConnectTag, DrvGetTagValue, DrvSetTagValue};
  ASSERT_EQ(methods.size(), 4u);
  for (size_t i = 0; i < methods.size(); ++i) {
    EXPECT_EQ(methods[i].name, names[i]);
    EXPECT_EQ(methods[i].method, functions[i]) << i;
    EXPECT_EQ(methods[i].attributes, napi_default) << i;
    EXPECT_NE(methods[i].data, nullptr) << i;
    EXPECT_EQ(methods[i].data, methods[0].data) << i;
    EXPECT_FALSE(methods[i].others) << i;
  }
  EXPECT_TRUE(api.named[object].empty());
}

TEST_F(DriverObjectTest, IsANewOneForEachCallOfOneDriver) {
  const napi_value other = Get("D");
  ASSERT_NE(other, nullptr);
  EXPECT_NE(other, object);
  EXPECT_EQ(core->driverSlots[0], driver);
}

TEST_F(DriverObjectTest, OfAnUnknownNameIsNothingAndThrowsNothing) {
  EXPECT_EQ(Get("E"), nullptr);
  EXPECT_EQ(js.log, (Names{"napi_get_cb_info", "napi_get_value_string_utf8", "napi_unwrap"}));
}

TEST_F(DriverObjectTest, IsFoundByTheUtf8FormOfItsName) {
  EXPECT_NE(Get(kUtf8Name), nullptr);
  EXPECT_NE(core->driverSlots[1], nullptr);
}

TEST_F(DriverObjectTest, AFailureInItsMakingIsThrown) {
  std::vector<Failing> calls{{"napi_create_object"}, {"napi_define_properties"}};
  for (int i = 0; i < 4; ++i) {
    calls.push_back({"napi_get_named_property", i});
    calls.push_back({"napi_add_finalizer", i});
  }
  ExpectThrows(calls, [this] { return Get("D"); });
}

TEST_F(DriverObjectTest, MethodsAskForTheirArgumentsAndDataButForNoThis) {
  const std::pair<const char*, size_t> methods[] = {
      {"SetTagNotify", 1}, {"ConnectTag", 1}, {"GetTagValue", 1}, {"SetTagValue", 2}};
  for (const auto& [method, count] : methods) {
    Call(method, {});
    EXPECT_EQ(api.wantedArgs, count) << method;
    EXPECT_FALSE(api.wantedThis) << method;
    EXPECT_TRUE(api.wantedData) << method;
  }
}

TEST_F(DriverObjectTest, MethodsWithoutArgumentsReadNothing) {
  for (const char* method : {"SetTagNotify", "ConnectTag", "GetTagValue"}) {
    EXPECT_EQ(Call(method, {}), nullptr) << method;
    EXPECT_EQ(js.log, Names{"napi_get_cb_info"}) << method;
  }
  for (const auto& args : {std::vector<napi_value>{}, {js.Number(1)}}) {
    EXPECT_EQ(FakeNapi::Show(Call("SetTagValue", args)), "-3");
    EXPECT_EQ(js.log, (Names{"napi_get_cb_info", "napi_create_int32"}));
  }
}

TEST_F(DriverObjectTest, GetTagValueTakesTheUtf8FormOfANameAndGivesTheDriversValue) {
  EXPECT_EQ(FakeNapi::Show(Call("GetTagValue", {Text("A")})), "5");
  EXPECT_EQ(FakeNapi::Show(Call("GetTagValue", {Text(kUtf8Name)})), "5");
  EXPECT_EQ(FakeNapi::Show(Call("GetTagValue", {Text(std::string("A,") + kUtf8Name)})), "[5, 5]");
}

TEST_F(DriverObjectTest, ConnectTagGivesUndefinedWhateverTheDriverAnswers) {
  EXPECT_EQ(Call("ConnectTag", {Text("A")}), nullptr);        // true: connected already
  EXPECT_EQ(Call("ConnectTag", {Text("unknown")}), nullptr);  // false: no session to ask
  EXPECT_FALSE(js.Pending());
}

TEST_F(DriverObjectTest, SetTagValueGivesTheDriversResultAsANumber) {
  EXPECT_EQ(FakeNapi::Show(Call("SetTagValue", {Text("A"), js.Number(1)})), "-2");  // cannot be sent
  EXPECT_EQ(FakeNapi::Show(Call("SetTagValue", {Text("A"), js.Object()})), "-3");
  core->rights = 0;
  EXPECT_EQ(FakeNapi::Show(Call("SetTagValue", {Text("A"), js.Number(1)})), "-1");
}

TEST_F(DriverObjectTest, SetTagNotifyHandsTheCallbackToTheDriver) {
  const napi_value callback = js.Recorder();
  EXPECT_EQ(Call("SetTagNotify", {callback}), nullptr);
  ASSERT_EQ(js.Functions(), 1u);
  EXPECT_EQ(js.FunctionAt(0).callback, callback);
  EXPECT_NE(driver->notifyFunc.load(), nullptr);
  EXPECT_EQ(Call("SetTagNotify", {}), nullptr);
  EXPECT_NE(driver->notifyFunc.load(), nullptr);
}

// Node.js runs the hooks from the last to the first: ours has to end the receive thread before the thread-safe function
// that it calls is gone with its own.
TEST_F(DriverObjectTest, SetTagNotifyMovesTheCleanupHookBehindThatOfTheCallback) {
  const auto ours = api.hooks.at(0);
  api.hooks.emplace_back([](void*) {}, &api);
  EXPECT_EQ(Call("SetTagNotify", {js.Recorder()}), nullptr);
  EXPECT_EQ(api.hooks.size(), 2u);
  EXPECT_EQ(api.hooks.back(), ours);
  api.hooks.erase(api.hooks.begin());
}

TEST_F(DriverObjectTest, AFailureInAMethodIsThrown) {
  ExpectThrows({{"napi_get_cb_info"}, {"napi_create_string_utf8"}, {"napi_create_threadsafe_function"}},
               [this] { return Call("SetTagNotify", {js.Recorder()}); });
  ExpectThrows({{"napi_get_cb_info"}, {"napi_get_value_string_utf8"}},
               [this] { return Call("ConnectTag", {Text("A")}); });
  ExpectThrows({{"napi_get_cb_info"}, {"napi_get_value_string_utf8"}, {"napi_create_uint32"}},
               [this] { return Call("GetTagValue", {Text("A")}); });
  ExpectThrows({{"napi_get_cb_info"}, {"napi_get_value_string_utf8"}, {"napi_create_int32"}}, [this] {
    return Call("SetTagValue", {Text("A"), js.Number(1)});
  });
  ExpectThrows({{"napi_create_int32"}}, [this] { return Call("SetTagValue", {}); });
}

TEST_F(DriverObjectTest, MethodsOutliveTheInstance) {
  api.Collect(instance);
  EXPECT_EQ(Call("GetTagValue", {Text("A")}), nullptr);
  EXPECT_EQ(Call("ConnectTag", {Text("A")}), nullptr);
  EXPECT_EQ(Call("SetTagNotify", {js.Recorder()}), nullptr);
  EXPECT_EQ(FakeNapi::Show(Call("SetTagValue", {Text("A"), js.Number(1)})), "-2");
  EXPECT_EQ(js.Functions(), 0u);
}
