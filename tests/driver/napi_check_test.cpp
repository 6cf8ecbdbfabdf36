// Failed Node-API calls become JavaScript errors; what callbacks throw becomes an uncaught exception.
#include "driver/NapiCheck.h"

#include <gtest/gtest.h>

#include "support/FakeNapi.h"

namespace {

// A failed call, as the code under test meets it.
napi_status FailedCall(FakeNapi& js, const char* message) {
  js.Fail("napi_get_undefined", message);
  napi_value unused;
  return napi_get_undefined(js.Env(), &unused);
}

}  // namespace

TEST(NapiCheck, SuccessIsTrueAndThrowsNothing) {
  FakeNapi js;
  EXPECT_TRUE(NapiCheck(js.Env(), napi_ok));
  EXPECT_FALSE(js.Pending());
}

TEST(NapiCheck, AFailureThrowsNodeApisOwnMessage) {
  FakeNapi js;
  EXPECT_FALSE(NapiCheck(js.Env(), FailedCall(js, "Something about an argument")));
  EXPECT_EQ(js.TakeException(), "Something about an argument");
}

TEST(NapiCheck, AFailureWithoutMessageThrowsAnEmptyErrorMessage) {
  FakeNapi js;
  EXPECT_FALSE(NapiCheck(js.Env(), FailedCall(js, nullptr)));
  EXPECT_EQ(js.TakeException(), "empty error message");
}

TEST(NapiCheck, AnExceptionThatIsPendingStays) {
  FakeNapi js;
  js.Throw("first");
  EXPECT_FALSE(NapiCheck(js.Env(), FailedCall(js, "second")));
  EXPECT_EQ(js.TakeException(), "first");
}

TEST(NapiRaiseUncaught, HandsOnAPendingExceptionAndClearsIt) {
  FakeNapi js;
  js.Throw("boom");
  NapiRaiseUncaught(js.Env());
  EXPECT_FALSE(js.Pending());
  EXPECT_EQ(js.uncaught, std::vector<std::string>{"boom"});
}

TEST(NapiRaiseUncaught, DoesNothingWithoutOne) {
  FakeNapi js;
  NapiRaiseUncaught(js.Env());
  EXPECT_TRUE(js.uncaught.empty());
}

TEST(NapiRaiseUncaught, GivesUpQuietlyWhenNodeApiFails) {
  FakeNapi js;
  js.Throw("boom");
  js.Fail("napi_is_exception_pending");
  NapiRaiseUncaught(js.Env());
  js.Fail("napi_get_and_clear_last_exception");
  NapiRaiseUncaught(js.Env());
  EXPECT_TRUE(js.uncaught.empty());
  EXPECT_EQ(js.TakeException(), "boom");
}
