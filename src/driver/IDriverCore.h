// What a driver asks of the core that owns it: the request connection, two requests, the user's rights and the gate of
// the session. All of it is called on the JavaScript thread.
#pragma once

#include <cstdint>

#include "driver/SessionGate.h"
#include "net/CReqTimeSock.h"

class IDriverCore {
 public:
  // Sends the whole request on the request connection and receives exactly replyLen bytes into reply.
  // 1 when both were done, else 0; reply then holds an unknown part.
  virtual int RequestAll(const void* request, uint32_t requestLen, uint32_t replyLen, void* reply) = 0;

  // Asks the server for the id of one tag. False, with id unchanged, when there is no session or no proper answer.
  virtual bool GetTagId(uint16_t driverIndex, const char* name, uint16_t& id) = 0;

  virtual CReqTimeSock& RequestSock() = 0;

  // Rights of the logged-in user, as the login answered.
  virtual uint32_t Rights() const = 0;

  // The gate of the session that the drivers of this core belong to.
  virtual SessionGate& Gate() = 0;

  // Ends what the receive thread left to the JavaScript thread: closes the request connection, destroys the drivers.
  virtual void EndAbandonedSession() = 0;

 protected:
  ~IDriverCore() = default;
};

// Keeps the session's drivers and request connection for the length of a scope, unless they are gone already. Ending
// the scope may destroy the driver whose method holds it: declare it first, so that nothing is touched after it.
class SessionUse {
 public:
  explicit SessionUse(IDriverCore& core) : core_(core), entered_(core.Gate().Enter()) {}
  ~SessionUse() {
    if (entered_ && core_.Gate().Leave()) core_.EndAbandonedSession();
  }
  SessionUse(const SessionUse&) = delete;
  SessionUse& operator=(const SessionUse&) = delete;

  explicit operator bool() const { return entered_; }

 private:
  IDriverCore& core_;
  const bool entered_;
};
