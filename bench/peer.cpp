// The two ends that the benchmark measures against: a server that plays a recorded session and then answers one request
// for ever with the same bytes, and a client that sends that request and receives that answer, and nothing else. What
// the client takes is the floor: no library can take less on the same machine.
//   peer serve SCRIPT            prints its port; ends with its input
//   peer ask PORT SCRIPT TURNS   prints the nanoseconds that so many turns took
// A script is lines of words:
//   step CONNECTION LENGTH HEX   a request of LENGTH bytes is answered with HEX ("-": not at all); connection 0 makes
//                                the requests, connection 1 the notifications
//   loop REQUEST HEX             the request of connection 0 that is made again and again
//   stream COUNT HEX             behind each answer of the loop HEX is sent COUNT times on connection 1
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr size_t kWarmUp = 50;  // turns

struct Step {
  size_t length = 0;
  std::string answer;
};

struct Script {
  std::array<std::vector<Step>, 2> steps;
  std::string request;
  std::string answer;
  size_t streamCount = 0;
  std::string streamed;
};

[[noreturn]] void Fail(const std::string& sentence) { throw std::runtime_error(sentence); }

std::string FromHex(const std::string& hex) {
  std::string bytes;
  if (hex == "-") return bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  }
  return bytes;
}

void TakeLine(const std::string& line, Script& script) {
  std::istringstream words(line);
  std::string kind;
  std::string hex;
  words >> kind;
  if (kind == "step") {
    size_t connection = 0;
    Step step;
    words >> connection >> step.length >> hex;
    step.answer = FromHex(hex);
    script.steps.at(connection).push_back(step);
  } else if (kind == "loop") {
    std::string request;
    words >> request >> hex;
    script.request = FromHex(request);
    script.answer = FromHex(hex);
  } else if (kind == "stream") {
    words >> script.streamCount >> hex;
    script.streamed = FromHex(hex);
  }
  if (words.fail()) Fail("a line of the script is not understood: " + line);
}

Script Read(const char* path) {
  std::ifstream file(path);
  Script script;
  for (std::string line; std::getline(file, line);) TakeLine(line, script);
  if (script.request.empty()) Fail("the script has no loop");
  return script;
}

// Nothing is delayed, and nothing is waited for longer than any turn takes.
void SetOptions(int descriptor) {
  const int on = 1;
  const timeval bound{60, 0};
  setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof bound);
  setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &bound, sizeof bound);
}

sockaddr_in Loopback(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

// False when the other end has closed.
bool SendAll(int descriptor, const std::string& bytes) {
  size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t n = send(descriptor, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n < 1) return false;
    sent += static_cast<size_t>(n);
  }
  return true;
}

// Receives so many bytes and forgets them; false when the other end has closed.
bool ReceiveAll(int descriptor, size_t length) {
  static thread_local std::array<char, 65536> buffer;
  while (length > 0) {
    const ssize_t n = recv(descriptor, buffer.data(), std::min(length, buffer.size()), 0);
    if (n < 1) return false;
    length -= static_cast<size_t>(n);
  }
  return true;
}

// --- the server ---

struct Server {
  Script script;
  std::array<std::atomic<int>, 2> connections{-1, -1};  // -1: not there yet

  bool Stream() const {
    connections[1].wait(-1);
    for (size_t i = 0; i < script.streamCount; ++i) {
      if (!SendAll(connections[1], script.streamed)) return false;
    }
    return true;
  }

  void Serve(size_t number) {
    const int descriptor = connections.at(number);
    for (const Step& step : script.steps.at(number)) {
      if (!ReceiveAll(descriptor, step.length) || !SendAll(descriptor, step.answer)) return;
    }
    if (number == 1) return;
    while (ReceiveAll(descriptor, script.request.size()) && SendAll(descriptor, script.answer)) {
      if (script.streamCount > 0 && !Stream()) return;
    }
  }
};

int Listen() {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = Loopback(0);
  socklen_t length = sizeof address;
  if (bind(listener, reinterpret_cast<const sockaddr*>(&address), length) != 0 || listen(listener, 2) != 0 ||
      getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    Fail("cannot listen");
  }
  std::cout << ntohs(address.sin_port) << std::endl;
  return listener;
}

// Until the standard input ends: the program that started this one may end in any way.
void EndWithInput() {
  char byte = 0;
  while (read(STDIN_FILENO, &byte, 1) > 0) {
  }
  std::_Exit(0);
}

int ServeScript(const char* path) {
  Server server;
  server.script = Read(path);
  const int listener = Listen();
  std::thread(EndWithInput).detach();
  std::vector<std::thread> threads;
  for (size_t number = 0; number < server.connections.size(); ++number) {
    const int descriptor = accept(listener, nullptr, nullptr);
    SetOptions(descriptor);
    server.connections.at(number) = descriptor;
    server.connections.at(number).notify_all();
    threads.emplace_back([&server, number] { server.Serve(number); });
  }
  for (std::thread& thread : threads) thread.join();
  EndWithInput();
  return 0;
}

// --- the floor ---

int Connect(uint16_t port) {
  const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
  const sockaddr_in address = Loopback(port);
  if (connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) Fail("cannot connect");
  SetOptions(descriptor);
  return descriptor;
}

struct Asker {
  Script script;
  int requests = -1;
  int notifications = -1;

  void Turns(size_t count) const {
    const size_t streamed = script.streamCount * script.streamed.size();
    for (size_t turn = 0; turn < count; ++turn) {
      if (!SendAll(requests, script.request) || !ReceiveAll(requests, script.answer.size()) ||
          !ReceiveAll(notifications, streamed)) {
        Fail("the server has closed");
      }
    }
  }
};

int Ask(uint16_t port, const char* path, size_t turns) {
  Asker asker;
  asker.script = Read(path);
  asker.requests = Connect(port);
  asker.notifications = Connect(port);
  asker.Turns(kWarmUp);
  const auto begin = std::chrono::steady_clock::now();
  asker.Turns(turns);
  const auto taken = std::chrono::steady_clock::now() - begin;
  std::cout << std::chrono::duration_cast<std::chrono::nanoseconds>(taken).count() << std::endl;
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "serve" && argc == 3) return ServeScript(argv[2]);
    if (mode == "ask" && argc == 5) {
      return Ask(static_cast<uint16_t>(std::stoul(argv[2])), argv[3], std::stoul(argv[4]));
    }
    Fail("usage: peer serve SCRIPT | peer ask PORT SCRIPT TURNS");
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
