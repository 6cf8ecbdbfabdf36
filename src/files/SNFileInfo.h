// What the project's file list says of one file.
#pragma once

#include <cstdint>

struct SNFileInfo {
  uint32_t fileTime = 0;  // modification time expected, seconds since 1970
  uint32_t fileSize = 0;  // size expected, bytes
};
