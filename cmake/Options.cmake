# Flags that every target of the project is built with.
add_library(vqdb_options INTERFACE)
target_include_directories(vqdb_options INTERFACE ${PROJECT_SOURCE_DIR}/src)
target_compile_options(vqdb_options INTERFACE -Wall -Wextra -Wconversion -Wshadow)
# Only what is used goes into the add-on: with -O2 that keeps it small for the boards.
target_compile_options(vqdb_options INTERFACE -ffunction-sections -fdata-sections)
target_link_options(vqdb_options INTERFACE -Wl,--gc-sections)
string(REPLACE "-O3" "-O2" CMAKE_CXX_FLAGS_RELEASE "${CMAKE_CXX_FLAGS_RELEASE}")
# Files beyond 2 GiB and dates up to 2106 also where off_t and time_t would be 32 bits wide.
target_compile_definitions(vqdb_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
if(VQDB_WERROR)
  target_compile_options(vqdb_options INTERFACE -Werror)
endif()
if(VQDB_SANITIZE)
  target_compile_options(vqdb_options INTERFACE -fsanitize=${VQDB_SANITIZE} -fno-omit-frame-pointer -g)
  target_link_options(vqdb_options INTERFACE -fsanitize=${VQDB_SANITIZE})
  if(VQDB_SANITIZE MATCHES "undefined")
    # Without vptr: that check opens a pipe to look at memory, and so fails in tests that leave no descriptor.
    target_compile_options(vqdb_options INTERFACE -fno-sanitize-recover=undefined -fno-sanitize=vptr)
  endif()
endif()
if(VQDB_COVERAGE)
  target_compile_options(vqdb_options INTERFACE --coverage -fprofile-update=atomic -O0 -g)
  target_link_options(vqdb_options INTERFACE --coverage)
endif()
find_package(Threads REQUIRED)

# vqdb_room(name sources...): the object library vqdb_<name> of one source folder.
function(vqdb_room name)
  add_library(vqdb_${name} OBJECT ${ARGN})
  target_link_libraries(vqdb_${name} PUBLIC vqdb_options)
endfunction()
