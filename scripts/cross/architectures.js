'use strict';
// The platforms that the package ships for, by Node.js's names.
//   debian     name in Debian's archive and suffix of its packages
//   triplet    prefix of the cross compiler's programs
//   qemu       emulator of Debian's package qemu-user-static
//   toolchain  CMake toolchain file in cmake/
//   glibc      the highest glibc version that the shipped library may need (check-binary.js)
//   glibcxx    the same of libstdc++
const architectures = {
  x64: { debian: 'amd64', glibc: '2.17', glibcxx: '3.4.21' },
  arm64: {
    debian: 'arm64',
    triplet: 'aarch64-linux-gnu',
    qemu: 'qemu-aarch64-static',
    toolchain: 'arm64.cmake',
    glibc: '2.17',
    glibcxx: '3.4.21',
  },
  // ARMv7 hard float. Dates after 2038 need glibc's 64-bit time functions, which came with 2.34.
  arm: {
    debian: 'armhf',
    triplet: 'arm-linux-gnueabihf',
    qemu: 'qemu-arm-static',
    toolchain: 'arm.cmake',
    glibc: '2.34',
    glibcxx: '3.4.21',
  },
};

module.exports = { architectures };
