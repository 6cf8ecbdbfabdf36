#include "base/XFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/Encoding.h"

namespace {

// Repeats a system call that a signal interrupted before it did anything.
template <typename Call>
auto Uninterrupted(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

}  // namespace

XFile::~XFile() { Close(); }

bool XFile::OpenA(const char* path, int flags, bool /*ignored*/) {
  if (fd_ >= 0) return true;
  if (path == nullptr) {
    errno = EFAULT;
    return false;
  }
  const mode_t mode = (flags & O_CREAT) != 0 ? 0600 : 0;
  // A child process of the host must not inherit it.
  fd_ = Uninterrupted([&] { return open64(path, flags | O_CLOEXEC, mode); });
  return fd_ >= 0;
}

bool XFile::OpenT(const char* path, int flags, bool ignored) {
  CString converted;
  ToUtf8(path, converted, 0);
  return OpenA(converted.c_str(), flags, ignored);
}

void XFile::Close() {
  if (fd_ < 0) return;
  close(fd_);
  fd_ = -1;
}

int XFile::Read(void* buf, unsigned int n) {
  return static_cast<int>(Uninterrupted([&] { return read(fd_, buf, n); }));
}

int XFile::Write(const void* buf, unsigned int n) {
  return static_cast<int>(Uninterrupted([&] { return write(fd_, buf, n); }));
}

unsigned int XFile::GetFileSize() { return static_cast<unsigned int>(GetFileSize64()); }

long long XFile::GetFileSize64() {
  struct stat64 info = {};
  return fstat64(fd_, &info) == 0 ? info.st_size : 0;
}

int XFile::SetFileSize(unsigned int n) { return SetFileSize64(n); }

int XFile::SetFileSize64(long long n) {
  return Uninterrupted([&] { return ftruncate64(fd_, n); });
}

bool XFile::Seek(int off, int whence) { return Seek64(off, whence); }

bool XFile::Seek64(long long off, int whence) { return lseek64(fd_, off, whence) >= 0; }

long long XFile::GetCurPos() { return lseek64(fd_, 0, SEEK_CUR); }
