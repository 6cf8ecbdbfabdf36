// The registration with a server or relay, from any address text and with any replies, redirections included.
#include <cstdlib>

#include "net/CClientSock.h"
#include "support/Peer.h"

namespace {

const char* const kAddresses[] = {"127.0.0.1",  "127.0.0.1:8000",         "127.0.0.1:3968",
                                  "p2p:device", "P2P(127.0.0.1)):device", "p2p"};

bool IsKnownResult(uint32_t result) {
  return result == kHandshakeOk || result == kHandshakeFailed || result == kHandshakeBadAddress ||
         result == kHandshakeRefused || result == kHandshakeClientRefused;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const uint8_t options = input.Byte();
  const size_t form = options & 7;
  const std::string address = form < std::size(kAddresses) ? kAddresses[form] : input.Segment();
  CString project("unset");
  CString second("unset");
  SNAckRegReq ack{};
  CClientSock client;
  Peer peer(input);
  const uint32_t result = client.ConnectDB(address.c_str(), project, second, ack, (options & 8) != 0);
  FUZZ_CHECK(IsKnownResult(result));
  if (result == kHandshakeOk) {
    FUZZ_CHECK(client.requestSock.IsSocket() && client.notifySock.IsSocket());
    FUZZ_CHECK(project.find('\0') == CString::npos && second.find('\0') == CString::npos);
    ack.DrvInfoTime();
    ack.DrvInfoSize();
  } else {
    FUZZ_CHECK(project == "unset" && second == "unset");
  }
  return 0;
}
