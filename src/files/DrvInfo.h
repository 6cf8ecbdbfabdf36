// The project's driver list, RecData/drvinfo.dat: which drivers there are, their ids and how many tags they have.
//
//   offset  size   field (records follow each other; the length of the file is their only end)
//   0       n + 1  driver name, GB2312, terminated by one zero byte
//   n + 1   2      driver id, little-endian
//   n + 3   2      tag count, little-endian
//
// Threads: no state; the map belongs to the caller.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "base/CString.h"

class CDBDriver;

// One driver of the project, kept in a map by driver name.
struct SNDrvInfoEx {
  uint16_t wDrvId = 0;           // index in the core's driver table
  uint16_t wTagCount = 0;        // size of the driver's tag table
  CDBDriver* pDriver = nullptr;  // made on first use; not owned here
};

// A driver file beyond this size is not loaded: 65536 ids with names of 128 bytes need 9 MB.
constexpr uint32_t kMaxDrvInfoBytes = 16u << 20;

// Records behind this count are not read: ids are 16 bits wide.
constexpr size_t kMaxDrvInfoRecords = 65536;

// One record of the file.
struct SNDrvInfoRecord {
  CString name;
  uint16_t id = 0;
  uint16_t tagCount = 0;
};

// Reads the records of a driver file's bytes in their order. A last record cut short is ignored.
std::vector<SNDrvInfoRecord> ParseDrvInfo(const uint8_t* bytes, size_t size);

// Reads the records of prjDir + "RecData/drvinfo.dat"; none when it is missing, unreadable, shorter than 5 bytes or
// longer than kMaxDrvInfoBytes. prjDir is GB2312 and ends with '/'.
std::vector<SNDrvInfoRecord> ReadDrvInfo(const CString& prjDir);

// Enters every record of the file into the map, its driver reference null. A name that is in the map already gets a
// whole new value; names that are not in the file stay as they are.
template <class T>
void LoadPrjDrvInfo(const CString& prjDir, std::map<CString, T>& drivers) {
  for (const SNDrvInfoRecord& record : ReadDrvInfo(prjDir)) {
    T entry{};
    entry.wDrvId = record.id;
    entry.wTagCount = record.tagCount;
    entry.pDriver = nullptr;
    drivers[record.name] = entry;
  }
}
