// CSyncSocket: the owner of one IPv4 socket descriptor, with blocking transfers. It does no framing and no scrambling.
// It is empty (descriptor -1) or holds one descriptor; the same object is closed and created again many times.
// Results are 1 for success and 0 for failure unless said otherwise; errno stays as the system set it. Ports are
// host-order numbers of which the low 16 bits count; times are in milliseconds. Nothing is printed or thrown.
// Signals: an interrupted transfer goes on until the time-out of the socket has passed since it began (then -1 with
// errno EAGAIN), and a send to a peer that is gone fails with EPIPE instead of raising SIGPIPE.
// Threads: one thread at a time per object. The one exception is Shutdown, which another thread may call while a
// transfer blocks, provided that nobody closes or creates the socket meanwhile.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>

class CSyncSocket {
 public:
  CSyncSocket() = default;

  // Adopts an open descriptor and closes it in the end.
  explicit CSyncSocket(int descriptor) : fd_(descriptor) {}

  CSyncSocket(const CSyncSocket&) = delete;
  CSyncSocket& operator=(const CSyncSocket&) = delete;

  // The virtual operations, in slot order; nothing else here is virtual.

  // Closes the descriptor unless it is -1: also a descriptor of 0, which Close and IsSocket take for no socket.
  virtual ~CSyncSocket();

  // True when the descriptor is neither -1 nor 0.
  virtual bool IsSocket() const;

  // One send(2) of len bytes: the count sent, perhaps fewer than len, or -1. A negative len gives -1 (EINVAL).
  virtual int _Send(const void* buf, int len, int flags = 0);

  // One recv(2) of at most len bytes: the count received, 0 when the peer has closed, or -1. As _Send for len.
  virtual int _Recv(void* buf, int len, int flags = 0);

  int32_t Descriptor() const { return fd_; }

  // Takes over an open descriptor; what the object held before is closed first (as Close does).
  void Attach(int32_t descriptor);

  // Opens a socket of the type (SOCK_STREAM, SOCK_DGRAM), closed on exec. With port 0 and no addr it stays unbound;
  // otherwise it is bound to addr (null: any) and port, after SO_REUSEADDR was set to a non-zero reuse.
  // 1 at once when a descriptor is held already, which stays. A failure leaves the object empty.
  int Create(unsigned int port, int type, const char* addr, int reuse);

  // Builds an IPv4 address. host null: address 0 (any); a dotted address: that; else (and for "0.0.0.0") the first
  // address that a name look-up gives; when it finds none, 0 for "0.0.0.0" and 255.255.255.255 for a name.
  static void CreateAddrIn(const char* host, unsigned int port, sockaddr_in* out);

  // The same from an address in network order.
  static void CreateAddrIn(unsigned long addr, unsigned int port, sockaddr_in* out);

  // Connects, for as long as the operating system tries. A failure leaves the descriptor open: the caller closes it.
  int _Connect(const char* host, unsigned int port);
  int _Connect(unsigned long addr, unsigned int port);  // addr in network order

  // Takes the next connection of a listening socket into peer, whose old descriptor is overwritten without being
  // closed: hand in an empty object. After a failure (0) peer is empty. addr and len as for accept(2), may be null.
  int Accept(CSyncSocket& peer, sockaddr* addr, unsigned int* len);

  // One sendto(2) / recvfrom(2); the count moved or -1. from is zeroed in every case.
  int _SendTo(const void* buf, int len, unsigned int port, const char* host, int flags = 0);
  int _RecvFrom(void* buf, int len, sockaddr_in* from, int flags = 0);

  // Move exactly len bytes: 1, or 0 after an error, a time-out or the peer's close (some bytes may have moved).
  // A len of 0 gives 1 and a negative one 0, both without a system call. The virtual transfers are not used.
  int SendAll(const void* buf, int len, int flags = 0);
  int RecvAll(void* buf, int len, int flags = 0);

  // Set the time-outs of single transfers. SetRecvTimeOut and SetSendTimeOut: 0 means endless. SetTimeOut sets both,
  // the receive side first; there 0 changes nothing and gives 1.
  int SetRecvTimeOut(long ms);
  int SetSendTimeOut(long ms);
  int SetTimeOut(long ms);

  // Named as a query but issues a set call with an empty time, as the protocol's other ends have always done: the
  // receive time-out becomes endless, ms becomes 0 and the result is 1; 0 when the call fails, ms unchanged.
  int GetRecvTimeOut(long& ms);

  // Wait up to ms, then one virtual transfer. SendTimeOut: 1 when all len bytes went at once, 0 otherwise, also after
  // the time-out. RecvTimeOut: what _Recv returned, or -3 after the time-out or a failed wait (a negative ms fails).
  int SendTimeOut(const void* buf, unsigned long len, long ms);
  int RecvTimeOut(void* buf, int len, long ms);

  // Sends small requests at once instead of gathering them (TCP_NODELAY).
  int SetNoDelay();

  // Lets the system probe a silent peer: after idle seconds, every interval seconds, given up after count probes.
  int SetKeepAlive(int idleSeconds, int intervalSeconds, int count);

  // Ends the connection in both directions if IsSocket(): a transfer that blocks in another thread returns at once.
  // The descriptor stays open, so that its number cannot be given to someone else while that thread may use it.
  void Shutdown();

  // Told when an answer was not taken whole. A connection that carries one request after another overrides it; here it
  // does nothing.
  virtual void MarkOutOfStep() {}

  // Closes the descriptor if IsSocket(); the object is empty afterwards in every case.
  void Close();

 protected:
  int32_t fd_ = -1;  // -1: no socket
};
