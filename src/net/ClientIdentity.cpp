#include "net/ClientIdentity.h"

#include <sys/time.h>

#include <cstdlib>
#include <cstring>
#include <ctime>

#include "base/Wire.h"

void CoCreateGuid(_GUID* g) {
  const time_t now = time(nullptr);
  g->Data1 = static_cast<uint32_t>(now);
  srand(static_cast<unsigned int>(now));
  g->Data2 = static_cast<uint16_t>(rand());
  g->Data3 = static_cast<uint16_t>(rand());
  timeval clock{};
  gettimeofday(&clock, nullptr);
  wire::StoreU32(g->Data4, static_cast<uint32_t>(clock.tv_sec));
  wire::StoreU32(g->Data4 + 4, static_cast<uint32_t>(clock.tv_usec));
}

void GuidToBytes(const _GUID& g, uint8_t* out) {
  wire::StoreU32(out, g.Data1);
  wire::StoreU16(out + 4, g.Data2);
  wire::StoreU16(out + 6, g.Data3);
  std::memcpy(out + 8, g.Data4, sizeof g.Data4);
}

void GetGatewayMac(unsigned int /*addr*/, unsigned char* mac) { std::memset(mac, 0, kMacBytes); }
