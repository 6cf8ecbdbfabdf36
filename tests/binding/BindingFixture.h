// The module, registered in an environment of its own, and an instance of its class.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "binding/DbCore.h"
#include "binding/DriverMethods.h"
#include "binding/FakeClasses.h"

// A Node-API function, and which of its calls, counted from 0.
struct Failing {
  const char* function;
  int call = 0;
};

using Names = std::vector<std::string>;

class BindingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    EXPECT_EQ(Init(js.Env(), exports), exports);
    instance = api.Construct(DbCore::New);
    core = static_cast<DbCore*>(api.wrapped.at(instance).data);
  }

  napi_value Text(const std::string& utf8) { return js.Text(utf8); }

  // Each of the calls fails in turn: the function gives nothing and throws the failure's message.
  void ExpectThrows(const std::vector<Failing>& calls, const std::function<napi_value()>& act) {
    for (const Failing& failing : calls) {
      for (const char* message : {"Something went wrong", static_cast<const char*>(nullptr)}) {
        js.Fail(failing.function, message, failing.call);
        EXPECT_EQ(FakeNapi::Show(act()), "nothing") << failing.function << " " << failing.call;
        EXPECT_EQ(js.TakeException(), message != nullptr ? message : "empty error message")
            << failing.function << " " << failing.call;
      }
    }
  }

  FakeClasses api;
  FakeNapi& js = api.js;
  napi_value exports = js.Object();
  napi_value instance = nullptr;
  DbCore* core = nullptr;
};
