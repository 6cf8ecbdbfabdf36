// Opening and ending a session.
//
//   login request                      | reply: one read of up to 256 bytes
//   off  size  field                   | off  size  field
//   0    1     '9'                     | 0    1     '9' accepted, '0' refused
//   1    n+1   user, NUL               | 5    4     rights, little-endian
//   ...  m+1   password, NUL           |
#include <strings.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "base/Encoding.h"
#include "base/Wire.h"
#include "core/CDBCore.h"
#include "files/GetFile.h"

namespace {

constexpr char kDrvInfoFile[] = "RecData/drvinfo.dat";
constexpr char kDrvInfoKey[] = "recdata/drvinfo.dat";
constexpr size_t kLoginRoom = 256;
constexpr int kRightsOffset = 5;
constexpr useconds_t kStepPauseUs = 6000;
constexpr time_t kDisconnectWaitS = 16;
constexpr uint32_t kUnknownFile = 0xFFFFFFFF;  // time and size of a file that is fetched without being listed

bool BeginsWithNoCase(const CString& text, const char* prefix) {
  return strncasecmp(text.c_str(), prefix, std::strlen(prefix)) == 0;
}

bool IsAlwaysWanted(const CString& name) {
  return BeginsWithNoCase(name, "media/") || BeginsWithNoCase(name, "recdata/") || BeginsWithNoCase(name, "syscfg/");
}

time_t MonotonicSeconds() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec;
}

}  // namespace

CDBCore::~CDBCore() {
  _Disconnect();
  AwaitReceiver();
  DestroyRecvDone();
}

int CDBCore::_Connect(const char* address, const char* user, const char* password) {
  if (gate->InUse()) return kConnectFailed;  // asked for by a callback inside a request
  _Disconnect();
  AwaitReceiver();
  gate = std::make_shared<SessionGate>();
  const int result = OpenSession(address, user, password);
  if (result != kConnected) {
    CloseRequestSock();
    CloseNotifySock();
  }
  return result;
}

int CDBCore::OpenSession(const char* address, const char* user, const char* password) {
  CString projectName;
  CString second;
  SNAckRegReq ack{};
  if (ConnectDB(address, projectName, second, ack, true) != 0) return kConnectFailed;
  usleep(kStepPauseUs);
  if (projectName.empty() || !IsSafeProjectName(projectName)) return kOutOfPlace;
  CString error;
  if (AfterConnect(address, projectName, error) == 0) return kConnectFailed;
  usleep(kStepPauseUs);
  uint32_t newRights = 0;
  const int login = Login(user, password, newRights);
  if (login != kConnected) return login;
  const int fetched = FetchDriverInfo(ack);
  if (fetched != kConnected) return fetched;
  SizeDriverSlots();
  rights = newRights;
  StartReceiver();
  return kConnected;
}

int CDBCore::Login(const char* user, const char* password, uint32_t& newRights) {
  const size_t userLen = std::strlen(user) + 1;
  const size_t passwordLen = std::strlen(password) + 1;
  uint8_t request[kLoginRoom] = {'9'};
  if (userLen + passwordLen + 1 > sizeof request) return kConnectFailed;
  std::memcpy(request + 1, user, userLen);
  std::memcpy(request + 1 + userLen, password, passwordLen);
  if (ReqSend(request, static_cast<int>(1 + userLen + passwordLen)) < 1) return kConnectFailed;

  uint8_t reply[kLoginRoom] = {};  // a short reply reads as if zero bytes followed
  if (requestSock._Recv(reply, sizeof reply, 0) < 1) return kConnectFailed;
  usleep(kStepPauseUs);
  if (reply[0] == '0') return kLoginRefused;
  if (reply[0] != '9') return kOutOfPlace;
  newRights = wire::LoadU32(reply + kRightsOffset);
  return kConnected;
}

int CDBCore::FetchDriverInfo(const SNAckRegReq& ack) {
  std::map<CString, SNFileInfo> files;
  files[kDrvInfoKey] = SNFileInfo{ack.DrvInfoTime(), ack.DrvInfoSize()};
  if (GetPrjFile(kDrvInfoFile, files) == 0) return kConnectFailed;
  LoadPrjDrvInfo(projectPath, driverInfo);
  return kConnected;
}

// One slot a driver, and enough for the highest index in the file: a project may have gaps in its numbering.
void CDBCore::SizeDriverSlots() {
  size_t slots = driverInfo.size();
  for (const auto& [name, info] : driverInfo) slots = std::max(slots, static_cast<size_t>(info.wDrvId) + 1);
  driverSlots.resize(slots);
}

void CDBCore::StartReceiver() {
  if (!semReady) {
    semReady = true;
    sem_init(&recvDone, 0, 0);
  }
  connected.store(true);
  threadEnd_ = std::make_shared<ThreadEnd>();
  if (!vqthread_create(RecvThread, this)) {
    // No thread to wait for: the session stands, without notifications.
    threadEnd_.reset();
    sem_post(&recvDone);
  }
}

void CDBCore::_Disconnect() {
  if (!connected.exchange(false)) return;
  gate->Close();
  notifySock.SetFixedPeer(0);
  notifySock.Shutdown();  // wakes the receive thread; its descriptor is closed when the thread has let go of it
  CloseRequestSock();
  const bool posted = semReady && WaitRecvDone();
  if (!posted && threadEnd_ != nullptr) return;   // a late thread still uses the rest: whoever comes next waits for it
  if (threadEnd_ != nullptr) threadEnd_->Wait();  // it posts with its last steps
  threadEnd_.reset();
  CloseNotifySock();
  DestroyRecvDone();
  ClearDrivers();
}

// True when the receive thread has posted; false when it has not within the wait. The wait goes by the wall clock, as
// semaphores do, so a clock that is set meanwhile is checked against the monotonic one.
bool CDBCore::WaitRecvDone() {
  const time_t start = MonotonicSeconds();
  for (;;) {
    timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += kDisconnectWaitS - (MonotonicSeconds() - start);
    if (sem_timedwait(&recvDone, &until) == 0) return true;
    if (errno != EINTR && MonotonicSeconds() - start >= kDisconnectWaitS) return false;
  }
}

void CDBCore::DestroyRecvDone() {
  if (!semReady) return;
  semReady = false;
  sem_destroy(&recvDone);
}

void CDBCore::AwaitReceiver() {
  if (threadEnd_ == nullptr) return;
  threadEnd_->Wait();
  threadEnd_.reset();
  CloseNotifySock();
  DestroyRecvDone();
  ClearDrivers();
}

void CDBCore::EndAbandonedSession() {
  CloseRequestSock();
  ClearDrivers();
}

void CDBCore::CloseRequestSock() {
  requestSock.SetFixedPeer(0);
  requestSock.Close();
}

void CDBCore::CloseNotifySock() {
  notifySock.SetFixedPeer(0);
  notifySock.Close();
}

CDBDriver* CDBCore::_GetDriver(const char* name) {
  const SessionUse use(*this);
  if (!use || name == nullptr) return nullptr;
  const auto entry = driverInfo.find(name);
  if (entry == driverInfo.end()) return nullptr;
  SNDrvInfoEx& info = entry->second;
  if (info.pDriver != nullptr) return info.pDriver;

  auto driver = std::make_unique<CDBDriver>(env, entry->first, info.wDrvId, this);
  info.pDriver = driver.get();
  drivers_[info.pDriver] = std::move(driver);
  info.pDriver->SetTagCount(info.wTagCount);
  if (info.wDrvId < driverSlots.size()) driverSlots[info.wDrvId] = info.pDriver;
  return info.pDriver;
}

int CDBCore::GetPrjFile(const CString& name, const std::map<CString, SNFileInfo>& files) {
  if (localServer) return 1;
  const SessionUse use(*this);
  CReqTimeSock none;  // stands for the connection of a session that has ended
  CReqTimeSock& sock = use ? requestSock : none;
  sock.BackInStep();
  CString key = name;
  _strlwr(key.data());
  const auto listed = files.find(key);
  if (listed != files.end() || IsAlwaysWanted(name)) {
    const SNFileInfo wanted = listed != files.end() ? listed->second : SNFileInfo{kUnknownFile, kUnknownFile};
    const int result = GetFile(name, sock, '4', projectPath, wanted.fileTime, wanted.fileSize, nullptr, nullptr);
    if (result == 0) sock.MarkOutOfStep();
    return result;
  }
  CString local;
  CString(projectPath + name).ToUtf8(local);
  std::remove(local.c_str());
  return 1;
}

void CDBCore::ClearDrivers() {
  driverSlots.Forget();  // its length stays until the next session sizes it
  for (auto& [name, info] : driverInfo) {
    CDBDriver* const driver = std::exchange(info.pDriver, nullptr);
    if (drivers_.erase(driver) == 0) delete driver;  // one that was put there from outside is destroyed all the same
  }
  drivers_.clear();
  driverInfo.clear();
}
