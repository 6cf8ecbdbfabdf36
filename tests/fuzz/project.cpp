// The project path reply, and which project names from a server may become a directory's name.
#include "base/Encoding.h"
#include "net/CClientSock.h"
#include "support/Peer.h"

namespace {

void CheckPathReply(Input& input) {
  CClientSock client;
  Peer peer(input);
  client.requestSock.Attach(peer.Open());
  CString texts[4];
  const int result = client.GetPrjPath(texts[0], texts[1], texts[2], texts[3]);
  FUZZ_CHECK(result == 0 || result == 1);
  for (const CString& text : texts) FUZZ_CHECK(text.size() < 2048 && text.find('\0') == CString::npos);
}

bool StaysInDirectory(const std::string& name) {
  return name != "." && name != ".." && name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
}

void CheckName(const CString& name) {
  if (!IsSafeProjectName(name)) return;
  CString utf8;
  name.ToUtf8(utf8);
  FUZZ_CHECK(StaysInDirectory(name) && StaysInDirectory(utf8));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  CheckName(CString(input.Segment()));
  CheckPathReply(input);
  return 0;
}
