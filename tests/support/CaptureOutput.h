// What the process writes to standard output or standard error while the object lives.
#pragma once

#include <stdio.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

class CaptureOutput {
 public:
  CaptureOutput(FILE* stream, int descriptor) : stream_(stream), descriptor_(descriptor), file_(tmpfile()) {
    if (file_ == nullptr) throw std::runtime_error("tmpfile failed");
    fflush(stream_);
    saved_ = dup(descriptor_);
    dup2(fileno(file_), descriptor_);
  }
  ~CaptureOutput() {
    Restore();
    fclose(file_);
  }
  CaptureOutput(const CaptureOutput&) = delete;
  CaptureOutput& operator=(const CaptureOutput&) = delete;

  // Ends the capture and returns what was written.
  std::string Text() {
    Restore();
    std::string text;
    char buf[4096];
    rewind(file_);
    for (size_t n = fread(buf, 1, sizeof buf, file_); n > 0; n = fread(buf, 1, sizeof buf, file_)) text.append(buf, n);
    return text;
  }

 private:
  void Restore() {
    if (saved_ < 0) return;
    fflush(stream_);
    dup2(saved_, descriptor_);
    close(saved_);
    saved_ = -1;
  }

  FILE* stream_;
  int descriptor_;
  FILE* file_;
  int saved_ = -1;
};

class CaptureStdout : public CaptureOutput {
 public:
  CaptureStdout() : CaptureOutput(stdout, STDOUT_FILENO) {}
};

class CaptureStderr : public CaptureOutput {
 public:
  CaptureStderr() : CaptureOutput(stderr, STDERR_FILENO) {}
};
