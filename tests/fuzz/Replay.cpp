// Runs a harness over every file of the directories given: the corpus as a test, without a fuzzer.
//   replay_NAME DIRECTORY...
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" void __sanitizer_set_report_fd(void* fd) __attribute__((weak));

namespace {

namespace fs = std::filesystem;

int report = STDERR_FILENO;
std::string current;  // the file that is running

void SayAndDie(int signal) {
  const char text[] = "failed on ";
  if (write(report, text, sizeof text - 1) > 0 && write(report, current.data(), current.size()) > 0) {
    if (write(report, "\n", 1) < 0) _exit(1);
  }
  ::signal(signal, SIG_DFL);
  raise(signal);
}

// The code under test reports unconvertible text on standard error; that is not our news.
void Silence() {
  report = dup(STDERR_FILENO);
  if (__sanitizer_set_report_fd != nullptr) __sanitizer_set_report_fd(reinterpret_cast<void*>(intptr_t{report}));
  const int null = open("/dev/null", O_WRONLY);
  dup2(null, STDOUT_FILENO);
  dup2(null, STDERR_FILENO);
  close(null);
}

std::vector<fs::path> FilesOf(int argc, char** argv) {
  std::vector<fs::path> files;
  for (int i = 1; i < argc; ++i) {
    for (const fs::directory_entry& entry : fs::directory_iterator(argv[i])) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<fs::path> files = FilesOf(argc, argv);
  Silence();
  for (const int signal : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGALRM}) ::signal(signal, SayAndDie);
  for (const fs::path& file : files) {
    current = file.string();
    std::ifstream in(file, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(in), {});
    alarm(10);  // no input may take longer
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  }
  alarm(0);
  dprintf(report, "%zu inputs\n", files.size());
  return files.empty() ? 1 : 0;
}
