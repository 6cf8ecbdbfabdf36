// The session behind the handshake: the project path, the local project tree and the send primitive for requests.
#include <sys/stat.h>

#include <algorithm>
#include <cstring>

#include "net/CClientSock.h"

namespace {

constexpr mode_t kDirMode = 0700;
constexpr int kPathReplyRoom = 2048;

// "Cannot obtain the project path", in GB2312.
constexpr char kNoProjectPath[] = "\xCE\xDE\xB7\xA8\xBB\xF1\xC8\xA1\xB9\xA4\xB3\xCC\xC2\xB7\xBE\xB6";

struct Subdirectory {
  const char* name;
  bool fixMode;  // also chmod, so that an existing directory or the umask does not decide its mode
};

constexpr Subdirectory kSubdirectories[] = {
    {"Window/", false},  {"3DWnd/", false},   {"Report/", false},       {"CtmGph/", false},
    {"ScnDrv/", false},  {"DBDrv/", false},   {"Media/", false},        {"SysCfg/", false},
    {"RecData/", false}, {"ExtData/", false}, {"RecData/Event/", true}, {"RecData/Alarm2/", true},
};

// A directory that exists already is kept; no failure is reported, the later use of the directory shows it.
void MakeDir(const CString& path, bool fixMode) {
  mkdir(path.c_str(), kDirMode);
  if (fixMode) chmod(path.c_str(), kDirMode);
}

void MakeSubdirectories(const CString& projectPath) {
  for (const Subdirectory& sub : kSubdirectories) MakeDir(CString(projectPath + sub.name), sub.fixMode);
}

// The form of a server's directory name that stands for it in the GB2312 project path. The address is UTF-8, as the
// user gave it; an address that GB2312 cannot hold stays as it is.
CString InternalForm(const CString& server) {
  const auto isAscii = [](char c) { return (static_cast<unsigned char>(c) & 0x80) == 0; };
  if (std::all_of(server.begin(), server.end(), isAscii)) return server;
  CString internal;
  CString back;
  internal.FromUtf8(server.data(), static_cast<unsigned int>(server.size()));
  internal.ToUtf8(back);
  return back == server ? internal : server;
}

bool IsDotName(const CString& name) { return name == "." || name == ".."; }

// The zero-terminated text at pos of a reply of len bytes; pos moves behind its zero. It ends with the reply at the
// latest and is empty behind it.
CString TakeText(const char* reply, size_t len, size_t& pos) {
  if (pos >= len) return CString();
  const size_t size = strnlen(reply + pos, len - pos);
  CString text(reply + pos, size);
  pos += size + 1;
  return text;
}

}  // namespace

bool IsSafeProjectName(const CString& projectName) {
  if (IsDotName(projectName)) return false;
  if (projectName.find('/') != CString::npos || projectName.find('\0') != CString::npos) return false;
  // Dots before a byte that cannot be converted: all that is left of such a name in UTF-8 is the dots.
  const size_t dots = projectName.find_first_not_of('.');
  if (dots == CString::npos || dots < 1 || dots > 2) return true;
  CString utf8Name;
  projectName.ToUtf8(utf8Name);
  return !IsDotName(utf8Name);
}

int CClientSock::AfterConnect(const char* address, const CString& projectName, CString& error) {
  if (localDB) {
    const int result = GetPrjPath(projectPath, path2, path3, path4);
    if (result == 0) error = kNoProjectPath;
    return result;
  }
  CString utf8Name;
  projectName.ToUtf8(utf8Name);
  MakeDir(kMirrorRoot, false);
  CString server(address);
  server.Replace(":", "_");
  const CString serverDir(kMirrorRoot + server);
  MakeDir(serverDir, true);
  const CString utf8Dir(serverDir + "/" + utf8Name);
  MakeDir(utf8Dir, true);

  projectPath = kMirrorRoot + InternalForm(server) + "/" + projectName + "/";
  const CString ownDir(serverDir + "/" + projectName);
  if (ownDir != utf8Dir) MakeDir(ownDir, true);
  MakeSubdirectories(CString(ownDir + "/"));
  // Files are stored under the UTF-8 form of their path, so a name that is not plain ASCII needs the tree there too.
  if (ownDir != utf8Dir && !utf8Name.empty()) MakeSubdirectories(CString(utf8Dir + "/"));
  return 1;
}

int CClientSock::GetPrjPath(CString& path, CString& s2, CString& s3, CString& s4) {
  if (requestSock._Send("3", 1, 0) < 1) return 0;
  char reply[kPathReplyRoom];
  const int received = requestSock._Recv(reply, kPathReplyRoom, 0);
  if (received < 1 || reply[0] != '3') return 0;
  const size_t len = static_cast<size_t>(received);
  size_t pos = 1;
  for (CString* text : {&path, &s2, &s3, &s4}) *text = TakeText(reply, len, pos);
  return 1;
}

int CClientSock::ReqSend(const void* buf, int len) {
  if (len < 1) return len;
  for (int64_t total = 0; total < len;) {
    // The whole buffer each time, also after a short send: servers take a request as what one send brings.
    const int sent = requestSock._Send(buf, len, 0);
    if (sent < 1) return sent;
    total += sent;
  }
  return len;
}
