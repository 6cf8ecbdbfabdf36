// XFile: the owner of one POSIX file descriptor, with 64-bit offsets. It reports nothing; results are the system
// call's and errno is left for the caller. Not copied; one thread at a time.
#pragma once

#include <cstdint>

class XFile {
 public:
  XFile() = default;
  ~XFile();
  XFile(const XFile&) = delete;
  XFile& operator=(const XFile&) = delete;

  // Opens path (in the file system's encoding, UTF-8) with open(2) flags; mode 0600 when flags hold O_CREAT, else 0.
  // True when open. On an object that is open already: true, the open file is kept and path is not looked at.
  // The last argument is accepted and ignored.
  bool OpenA(const char* path, int flags, bool ignored);

  // As OpenA with a path in GB2312.
  bool OpenT(const char* path, int flags, bool ignored);

  // Closes the file if one is open.
  void Close();

  // One read(2): bytes read, 0 at the end, -1 on error.
  int Read(void* buf, unsigned int n);

  // One write(2): bytes written, perhaps fewer than n, or -1.
  int Write(const void* buf, unsigned int n);

  // Size in bytes; GetFileSize gives its low 32 bits. REQUIRES: open (else 0).
  unsigned int GetFileSize();
  long long GetFileSize64();

  // Cuts or extends the file to n bytes: 0, or -1 on error.
  int SetFileSize(unsigned int n);
  int SetFileSize64(long long n);

  // Moves the position by lseek's rules; true when the new position is not negative.
  bool Seek(int off, int whence);
  bool Seek64(long long off, int whence);

  // The current position, or -1.
  long long GetCurPos();

 private:
  int32_t fd_ = -1;  // -1: no file
};
