// The receive thread: takes notifications off the server until the session ends, and ends it when the server goes.
#include <unistd.h>

#include <cerrno>

#include "core/CDBCore.h"

namespace {
constexpr useconds_t kLastNotificationsPauseUs = 60000;
}

void* CDBCore::RecvThread(void* core) {
  auto* self = static_cast<CDBCore*>(core);
  const std::shared_ptr<ThreadEnd> end = self->threadEnd_;
  self->DoRecv();
  if (end) end->Signal();  // from here on the core may be gone
  return nullptr;
}

void CDBCore::DoRecv() {
  uint8_t chunk[kChunkSize];
  while (connected.load()) {
    const int received = notifySock._Recv(chunk, kChunkSize, 0);
    if (received >= 1) {
      DispatchChunk(chunk, static_cast<size_t>(received));
      continue;
    }
    if (received < 0 && (errno == EAGAIN || errno == EINTR)) continue;  // a long silence is no end
    if (connected.exchange(false)) {
      OnServerClosed();
      return;
    }
  }
  usleep(kLastNotificationsPauseUs);
  if (semReady) sem_post(&recvDone);
}

// Intended behaviour: a record is never joined across two chunks; what does not fit is dropped with its chunk.
void CDBCore::DispatchChunk(const uint8_t* chunk, size_t size) {
  for (size_t offset = 0; offset < size;) {
    offset += static_cast<size_t>(OnDBNotify(chunk + offset, size - offset));
  }
}

// The server went away. JavaScript is not told; a request that waits for an answer fails at once.
void CDBCore::OnServerClosed() {
  requestSock.Shutdown();
  const bool mine = gate->CloseByReceiver();
  if (mine) CloseRequestSock();
  CloseNotifySock();
  DestroyRecvDone();
  if (mine) ClearDrivers();
}
