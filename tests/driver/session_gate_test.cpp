// The gate of a session: who ends the session's things, in every state.
#include "driver/SessionGate.h"

#include <gtest/gtest.h>

#include <thread>

#include "driver/DriverFixture.h"

TEST(SessionGate, AnIdleGateLetsTheJavaScriptThreadInAndOutAgain) {
  SessionGate gate;
  EXPECT_FALSE(gate.InUse());
  for (int round = 0; round < 3; ++round) {
    EXPECT_TRUE(gate.Enter());
    EXPECT_TRUE(gate.InUse());
    EXPECT_FALSE(gate.Leave());
    EXPECT_FALSE(gate.InUse());
  }
}

TEST(SessionGate, AReceiverThatFindsNobodyInsideEndsTheSession) {
  SessionGate gate;
  EXPECT_TRUE(gate.CloseByReceiver());
  EXPECT_FALSE(gate.Enter());
  EXPECT_FALSE(gate.InUse());
}

TEST(SessionGate, AReceiverThatFindsSomebodyInsideLeavesTheSessionToThem) {
  SessionGate gate;
  ASSERT_TRUE(gate.Enter());
  EXPECT_FALSE(gate.CloseByReceiver());
  EXPECT_TRUE(gate.InUse());
  EXPECT_TRUE(gate.Leave());
  EXPECT_FALSE(gate.Enter());
}

TEST(SessionGate, UsesNestAndOnlyTheOutermostLeaveCounts) {
  SessionGate gate;
  ASSERT_TRUE(gate.Enter());
  ASSERT_TRUE(gate.Enter());
  EXPECT_FALSE(gate.CloseByReceiver());
  EXPECT_TRUE(gate.Enter());  // inside already: what it uses is still there
  EXPECT_FALSE(gate.Leave());
  EXPECT_FALSE(gate.Leave());
  EXPECT_TRUE(gate.InUse());
  EXPECT_TRUE(gate.Leave());
  EXPECT_FALSE(gate.InUse());
}

TEST(SessionGate, TheSessionIsEndedOnce) {
  SessionGate idle;
  EXPECT_TRUE(idle.CloseByReceiver());
  EXPECT_FALSE(idle.CloseByReceiver());

  SessionGate used;
  ASSERT_TRUE(used.Enter());
  EXPECT_FALSE(used.CloseByReceiver());
  EXPECT_FALSE(used.CloseByReceiver());
  EXPECT_TRUE(used.Leave());
  EXPECT_FALSE(used.CloseByReceiver());
}

TEST(SessionGate, ADisconnectClosesItForGood) {
  SessionGate gate;
  gate.Close();
  EXPECT_FALSE(gate.Enter());
  EXPECT_FALSE(gate.CloseByReceiver());
  EXPECT_FALSE(gate.Enter());
}

TEST(SessionGate, WhateverTheTimingExactlyOneSideEndsTheSession) {
  for (int round = 0; round < 100; ++round) {
    SessionGate gate;
    bool byReceiver = false;
    std::thread receiver([&] { byReceiver = gate.CloseByReceiver(); });
    int byUser = 0;
    while (gate.Enter()) byUser += gate.Leave() ? 1 : 0;
    receiver.join();
    EXPECT_EQ(byUser + (byReceiver ? 1 : 0), 1);
  }
}

TEST(SessionUse, HoldsTheSessionForItsScope) {
  FakeCore core;
  {
    const SessionUse use(core);
    EXPECT_TRUE(use);
    EXPECT_TRUE(core.gate.InUse());
  }
  EXPECT_FALSE(core.gate.InUse());
  EXPECT_EQ(core.ended, 0);
}

TEST(SessionUse, EndsAnAbandonedSessionWhenTheOutermostScopeEnds) {
  FakeCore core;
  {
    const SessionUse outer(core);
    {
      const SessionUse inner(core);
      core.gate.CloseByReceiver();
    }
    EXPECT_EQ(core.ended, 0);
  }
  EXPECT_EQ(core.ended, 1);
  const SessionUse late(core);
  EXPECT_FALSE(late);
}

TEST(SessionUse, OfAClosedSessionHoldsAndEndsNothing) {
  FakeCore core;
  core.gate.Close();
  { EXPECT_FALSE(SessionUse(core)); }
  EXPECT_EQ(core.ended, 0);
}
