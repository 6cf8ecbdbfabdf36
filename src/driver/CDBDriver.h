// CDBDriver: one driver (a group of tags) of the connected project. It owns the table of the driver's tags, the cache
// from tag name to tag id, and the JavaScript callback for tag changes. The core makes it on first use, and destroys it
// when the session ends.
//
// Threads: everything runs on the JavaScript thread but OnDBNotify, which is the receive thread's. The two meet in the
// tag table only, where each tag hands a new value over through two atomics (see STag); no lock, and the receive thread
// never waits. A driver's destructor runs on whichever thread ends the session; SessionGate sees to it that no
// JavaScript call is inside then.
//
// Thread-safe function "db_recv": made by SetCBFunc, one thread reference, called by the receive thread, released by
// the destructor. Messages still queued then are delivered as long as the environment lives; each keeps the tag table.
#pragma once

#include <node_api_types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "base/CString.h"
#include "driver/IDriverCore.h"
#include "value/XVariant.h"

class CDBDriver {
 public:
  // No such tag: in requests, replies and the name cache.
  static constexpr uint16_t kNoTag = 0xFFFF;
  // Result of OnDBNotify for a record that cannot be taken.
  static constexpr int kCannotTake = 0xFFFF;
  // Bit of the user's rights that allows writing.
  static constexpr uint32_t kWriteRight = 8;

  // Results of SetTagValue.
  static constexpr int kWriteSent = 0;
  static constexpr int kWriteNoRight = -1;
  static constexpr int kWriteNotSent = -2;
  static constexpr int kWriteBadValue = -3;

  // One tag. The receive thread leaves a new value in `incoming`; the JavaScript thread takes it into `value` when it
  // next looks at the tag. A value is thus always seen whole, and its string is freed by the thread that holds it.
  struct STag {
    // JavaScript thread only.
    XVariant value;          // as last taken; read it through Value()
    CString name;            // GB2312; empty until a name resolved to this tag
    uint16_t id = 0;         // index of this tag in the table
    uint16_t connected = 0;  // 1 once connected: the value is kept current by notifications

    // Both threads.
    std::atomic<uint16_t> type{0};             // type of the values; set by the JavaScript thread, below 2: unknown yet
    std::atomic<XVariant*> incoming{nullptr};  // newest value not yet taken; set by the receive thread, owned

    STag() = default;
    ~STag() { delete incoming.load(std::memory_order_relaxed); }
    STag(STag&& other) noexcept;
    STag& operator=(STag&&) = delete;

    // JavaScript thread: the current value.
    const XVariant& Value();

    // JavaScript thread: decodes a typed value from a reply. Returns the bytes consumed; 0 when the value runs past
    // size, the tag then keeps its value. A notification that came in since the last look is newer and stays.
    size_t Decode(const uint8_t* bytes, size_t size);
  };

  // The tags and the name of a driver. Queued change messages share it, so that they can name driver and tag also when
  // the driver itself is gone.
  struct TagTable {
    CString driverName;      // GB2312
    std::vector<STag> tags;  // the tag with id n is element n
  };

  // core must outlive the driver.
  CDBDriver(napi_env environment, const CString& driverName, uint16_t driverNumber, IDriverCore* owner);
  ~CDBDriver();
  CDBDriver(const CDBDriver&) = delete;
  CDBDriver& operator=(const CDBDriver&) = delete;

  // --- tag table (TagTable.cpp)

  // Sizes the tag table: new tags are empty, tags from count on are freed. Then numbers all tags from 0.
  // REQUIRES: the receive thread does not know the driver yet.
  void SetTagCount(unsigned long count);

  // Returns the id of the tag, from the cache or else from the server; kNoTag for a null, empty or unknown name.
  // Every answer is kept, kNoTag too: an unknown name is asked for once.
  uint16_t GetTagId(const char* name);

  // --- names to ids (TagResolve.cpp)

  // Resolves a comma-separated list of names and appends one entry a name to out: the tag, or null for a name that is
  // empty, too long to ask for, or unknown. Cached names are appended at once, the others when their batch is answered:
  // out is not always in the order of the list. False when a request failed; out keeps what it has.
  // REQUIRES: list is not null.
  bool CheckTagId(const char* list, std::vector<STag*>& out);

  // Sends one prepared batch request and takes its answer for names, in order. False when it failed.
  bool ReqBatchGetPoss(const std::vector<CString>& names, const void* request, unsigned int requestLen,
                       std::vector<STag*>& out);

  // --- connect, read, write (TagAccess.cpp)

  // Asks the server to notify the changes of the listed tags, at most kMaxConnect a call, and takes their values.
  // True when all of that was done or nothing was to do.
  bool _ConnectTag(const char* list);

  // Resolves list into out and brings the values of all listed tags up to date; connected tags are current as they
  // are. At most kMaxRead tags are asked for. True when done.
  bool _GetTagValue(const char* list, std::vector<STag*>& out);

  // The value of the one listed tag, or an array of the values of several, in the order of CheckTagId. Null (undefined
  // to JavaScript) after a failure or an empty list. May throw into JavaScript.
  napi_value GetTagValue(napi_env environment, const char* list);

  // Writes value to the one listed tag, or the elements of the array value to several. One of the kWrite results; no
  // answer is awaited, and the table is not changed: the new value comes back as a notification or with a read.
  // A failed Node-API call gives kWriteBadValue and throws into JavaScript.
  int SetTagValue(napi_env environment, const char* list, napi_value value);

  // Appends a typed value to a write request (kWriteRoom bytes) at length and advances length. False, with length
  // and buffer unchanged, for a type that cannot be written, when the room ends, and after a failed Node-API call,
  // which throws into JavaScript.
  bool ValueToBuf(napi_env environment, napi_value value, uint8_t* buffer, unsigned int& length);

  static constexpr int kMaxConnect = 519;  // the request's loop ends when count x 5 exceeds 2591
  static constexpr int kMaxRead = 1023;    // 3 + 4 x 1023 = 4095 of 4096 bytes
  static constexpr unsigned int kWriteRoom = 2048;
  static constexpr int kMaxEmptyChunks = 1024;  // a reply with more chunks without a value than this has failed

  // --- notification (TagNotify.cpp)

  // Installs the callback for tag changes. The first one stays for the driver's life; later calls are ignored.
  // Throws into JavaScript when callback cannot be installed.
  void SetCBFunc(napi_env environment, napi_value callback);

  // Receive thread: takes the new value of a tag, encoded without type word, and queues it for the callback. Returns
  // the bytes of body consumed, kCannotTake when the record cannot be taken: no such tag, its type is not known yet, or
  // the value runs past available bytes.
  int OnDBNotify(uint16_t tagIndex, const uint8_t* body, size_t available = SIZE_MAX);

  // The JavaScript form of a value, made in this driver's environment. Null for the types that have none (undefined to
  // JavaScript), and after a failure, which throws.
  napi_value ValueToValue(const XVariant& value) const;
  static napi_value ValueToValue(napi_env environment, const XVariant& value);

  // JavaScript side of "db_recv": calls callback(driver name, tag name, value) and frees the message; with no
  // environment or callback left, or a tag that SetTagCount has freed since, it only frees. What the callback throws
  // becomes an uncaught exception.
  static void OnCallJavaScript(napi_env environment, napi_value callback, void* context, void* data);

  uint16_t Number() const { return number; }
  const CString& Name() const { return table->driverName; }

  // JavaScript thread only.
  napi_env env;
  const uint16_t number;  // index of the driver, in every tag request
  const std::shared_ptr<TagTable> table;
  std::vector<STag>& tags;                   // of the table
  std::map<CString, unsigned short> tagIds;  // by name, GB2312; also names without a tag (kNoTag)
  IDriverCore* const core;

  // Both threads: set by the JavaScript thread, used by the receive thread.
  std::atomic<napi_threadsafe_function> notifyFunc{nullptr};

 private:
  struct ChangeMessage;
  struct PendingBatch;

  bool FlushBatch(PendingBatch& batch, std::vector<STag*>& out);
  STag* TagOrNull(uint16_t id);
  STag* StoreName(uint16_t id, const CString& name);

  template <class ReadReply>
  bool Exchange(const std::vector<uint8_t>& request, ReadReply readReply);
  bool ReadConnectReply(const std::vector<STag*>& asked);
  bool ReadReadReply(const std::vector<STag*>& asked);
  napi_value ValuesToArray(napi_env environment, const std::vector<STag*>& entries);
  bool AppendWrite(napi_env environment, const STag& tag, napi_value value, uint8_t* buffer, unsigned int& length);
  int AppendWrites(napi_env environment, const std::vector<STag*>& entries, napi_value values, uint8_t* buffer,
                   unsigned int& length);
  int SendWrites(const std::vector<STag*>& entries, napi_env environment, napi_value value);

  void QueueChange(napi_threadsafe_function func, ChangeMessage* message);

  // Receive thread only.
  XVariant* spare_ = nullptr;  // a handed-over value that nobody took, for the next notification
};
