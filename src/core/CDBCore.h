// CDBCore: the client's whole view of one database server. It opens the session and logs in, mirrors the project's
// driver information, owns one CDBDriver per driver, runs the receive thread that takes notifications off the server,
// and tears all of it down again.
//
// Threads: the JavaScript thread calls everything but DoRecv and OnDBNotify, which run on the one detached receive
// thread of the session. There is no lock; what the two share:
//   connected      whoever changes it from true to false ends the session, by one exchange: never both
//   gate           keeps drivers and request connection while the JavaScript thread uses them (SessionGate)
//   driverSlots    filled by the JavaScript thread, read by the receive thread
//   tag tables     hand-over of values, see CDBDriver::STag
//   alarmFunc      set by the JavaScript thread, used by the receive thread
// Descriptors: the request connection is closed by whoever ends the session's things, after a shutdown that wakes a
// request in flight; the notification connection is only shut down by the JavaScript thread, and closed when the
// receive thread no longer reads it. So no descriptor number is ever used after its close.
//
// Thread-safe function "rt_alarm": made by _SetRtAlarmNotify, one thread reference, called by the receive threads of
// this and later sessions; its owner releases it with ReleaseAlarmFunc when the instance or its environment ends.
#pragma once

#include <node_api_types.h>
#include <semaphore.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "base/CString.h"
#include "core/DriverSlots.h"
#include "core/S2RtAlarm2.h"
#include "core/Thread.h"
#include "driver/CDBDriver.h"
#include "driver/IDriverCore.h"
#include "files/DrvInfo.h"
#include "files/SNFileInfo.h"
#include "net/CClientSock.h"

class CDBCore : public CClientSock, public IDriverCore {
 public:
  // Results of _Connect.
  static constexpr int kConnected = 0;
  static constexpr int kLoginRefused = -1;
  static constexpr int kConnectFailed = -2;  // transport or file failure
  static constexpr int kOutOfPlace = -3;     // the server answered something that does not belong there

  // Results of _SetRtAlarmNotify.
  static constexpr int kSubscribed = 0;
  static constexpr int kAlreadySubscribed = -1;
  static constexpr int kSubscribeFailed = -2;

  // Result of OnDBNotify: drop the rest of the chunk.
  static constexpr int kDropChunk = 0xFFFF;
  static constexpr int kChunkSize = 2048;

  CDBCore() = default;
  virtual ~CDBCore();
  CDBCore(const CDBCore&) = delete;
  CDBCore& operator=(const CDBCore&) = delete;

  // --- lifecycle (CoreLifecycle.cpp), JavaScript thread

  // Opens a session: handshake on both connections, project tree, login, driver information, receive thread. Blocks
  // for all of that. An open session is disconnected first. After a failure both connections are closed. One of the
  // results above. Called from inside a running request of the same core: kConnectFailed, nothing changes.
  int _Connect(const char* address, const char* user, const char* password);

  // Ends the session: closes both connections, waits for the receive thread (up to 16 s; in practice its 60 ms
  // pause), destroys the drivers. Returns at once when there is no session.
  void _Disconnect();

  // The driver of that name (GB2312, exact), made on first use and owned by this core until the session ends; null
  // when the project has no such driver or the session is gone.
  CDBDriver* _GetDriver(const char* name);
  CDBDriver* _GetDriver(const CString& name) { return _GetDriver(name.c_str()); }

  // Brings one project file up to date in the local tree; files tells the time and size of those the project lists, by
  // lower-case name. Non-zero on success (see GetFile); a file that is neither listed nor below media/, recdata/ or
  // syscfg/ is deleted locally instead.
  int GetPrjFile(const CString& name, const std::map<CString, SNFileInfo>& files);

  // Destroys every driver object, in the order of the names, and empties driverInfo; driverSlots keeps its length.
  void ClearDrivers();

  // --- receive thread (CoreReceive.cpp)

  // The thread's body: dispatches notifications until a disconnect or until the server closes; then it ends the
  // session itself.
  void DoRecv();

  // Thread entry: runs DoRecv of the core; returns null.
  static void* RecvThread(void* core);

  // --- dispatch (CoreDispatch.cpp), receive thread

  // Handles the notification record at record and returns the bytes that it takes; kDropChunk: unknown or cut off, drop
  // the rest of the chunk. Nothing at or behind record + available is read.
  int OnDBNotify(const uint8_t* record, size_t available = SIZE_MAX);

  // --- requests (CoreRequests.cpp), JavaScript thread; see IDriverCore

  int RequestAll(const void* request, uint32_t requestLen, uint32_t replyLen, void* reply) override;
  bool GetTagId(uint16_t driverIndex, const char* name, uint16_t& id) override;
  bool GetTagId(uint16_t driverIndex, const char* name, uint16_t* id) { return GetTagId(driverIndex, name, *id); }

  // Asks the server to stop notifying a tag; true when it confirms.
  bool UnadviseTag(int32_t id);

  CReqTimeSock& RequestSock() override { return requestSock; }
  uint32_t Rights() const override { return rights; }
  SessionGate& Gate() override { return *gate; }
  void EndAbandonedSession() override;

  // --- alarms (CoreAlarm.cpp), JavaScript thread

  // Subscribes callback to the alarms of this and all later sessions; with replayCurrent the alarms active now are
  // handed to it before this returns. One of the results above; after kSubscribeFailed a later call may try again.
  int _SetRtAlarmNotify(napi_value callback, bool replayCurrent);

  // Fills the ten callback arguments from an alarm; texts come from the lists, "???" for an index past a list's end.
  static void RAToArgs(napi_env environment, napi_value* args, const S2RtAlarm2& record,
                       const std::vector<CString>& texts, const std::vector<CString>& tags);

  // JavaScript side of "rt_alarm": context is the core, data a heap S2RtAlarm2, which it frees. With no environment or
  // callback left it only frees. What the callback throws becomes an uncaught exception.
  static void OnNotifyRtAlarm(napi_env environment, napi_value callback, void* context, void* data);

  // Ends the subscription for good; queued alarms are freed. REQUIRES: no receive thread runs.
  void ReleaseAlarmFunc();

  // --- state. JavaScript thread only, unless said otherwise.
  DriverSlots driverSlots;                    // both threads
  std::map<CString, SNDrvInfoEx> driverInfo;  // by driver name; whoever is allowed by the gate
  std::vector<CString> textList;              // alarm texts, UTF-8
  std::vector<CString> tagList;               // alarm tag names, UTF-8
  sem_t recvDone;                             // posted by a receive thread that ends after a disconnect
  bool semReady = false;                      // recvDone is initialised
  uint32_t rights = 0;                        // of the logged-in user; bit value 8 allows writes
  std::atomic<bool> connected{false};         // both threads: session open, and the receive loop's run flag
  bool localServer = false;                   // project files are not fetched when set; nothing sets it

  // The environment of the JavaScript instance, given to its drivers; null without one.
  napi_env env = nullptr;
  std::atomic<napi_threadsafe_function> alarmFunc{nullptr};             // both threads
  std::shared_ptr<SessionGate> gate = std::make_shared<SessionGate>();  // both threads; replaced between sessions

 protected:
  // Waits until the receive thread of an ended session is through, and frees what is left of that session.
  // REQUIRES: not connected.
  void AwaitReceiver();

 private:
  // The steps of _Connect, in order; each returns one of its results.
  int OpenSession(const char* address, const char* user, const char* password);
  int Login(const char* user, const char* password, uint32_t& newRights);
  int FetchDriverInfo(const SNAckRegReq& ack);
  void SizeDriverSlots();
  void StartReceiver();

  void CloseRequestSock();
  void CloseNotifySock();
  bool WaitRecvDone();
  void DestroyRecvDone();

  void DispatchChunk(const uint8_t* chunk, size_t size);
  void OnServerClosed();
  CDBDriver* DriverInSlot(uint16_t index) const;
  int OnDriverRecord(const uint8_t* record, size_t available);
  int OnCoreRecord(const uint8_t* record, size_t available);
  int OnAlarmRecord(const uint8_t* record, size_t available);
  int OnTagEvent(uint8_t command, const uint8_t* record, size_t available);

  bool ReadTagId(uint16_t& id);
  bool RequestAlarms(bool keep, std::vector<S2RtAlarm2>& alarms);
  bool ReadAlarms(bool keep, std::vector<S2RtAlarm2>& alarms);
  void LoadAlarmLists();
  void LoadAlarmList(const char* file, std::vector<CString>& list);
  void ReplayAlarms(napi_value callback, const std::vector<S2RtAlarm2>& alarms);
  void InstallAlarmFunc(napi_value callback);

  bool subscribing_ = false;                                        // JavaScript thread only
  std::map<const CDBDriver*, std::unique_ptr<CDBDriver>> drivers_;  // owner of those made here; as driverInfo
  std::shared_ptr<ThreadEnd> threadEnd_;                            // of the receive thread, when one was started
};
