#include "files/DrvInfo.h"

#include <map>
#include <string>

#include "gtest/gtest.h"
#include "support/CaptureOutput.h"
#include "support/HexBytes.h"
#include "support/OpenDescriptors.h"
#include "support/TempDir.h"

namespace {

using Drivers = std::map<CString, SNDrvInfoEx>;

// A project directory whose driver file holds the bytes.
struct Project {
  explicit Project(const std::string& bytes) { dir.Write("RecData/drvinfo.dat", bytes); }
  Drivers& Load() {
    LoadPrjDrvInfo(CString(dir.Path()), drivers);
    return drivers;
  }
  TempDir dir;
  Drivers drivers;
};

// A driver that is never looked into.
CDBDriver* SomeDriver() {
  static char place;
  return reinterpret_cast<CDBDriver*>(&place);
}

}  // namespace

TEST(SNDrvInfoEx, HasItsFieldsInTheOrderOfTheFileAndThenTheDriver) {
  const SNDrvInfoEx entry{3, 16, SomeDriver()};
  EXPECT_EQ(3, entry.wDrvId);
  EXPECT_EQ(16, entry.wTagCount);
  EXPECT_EQ(SomeDriver(), entry.pDriver);
}

TEST(LoadPrjDrvInfo, OneRecordYieldsOneEntry) {
  Project project(FromHex("41 42 00 03 00 10 00"));
  ASSERT_EQ(1u, project.Load().size());
  const SNDrvInfoEx& entry = project.drivers.at("AB");
  EXPECT_EQ(3, entry.wDrvId);
  EXPECT_EQ(16, entry.wTagCount);
  EXPECT_EQ(nullptr, entry.pDriver);
}

TEST(LoadPrjDrvInfo, ReadsNumbersLittleEndianAndNamesAsTheyAre) {
  Project project(FromHex("B9 A4 B3 CC 00 34 12 FF FF") + FromHex("61 00 FF FF 00 00"));
  ASSERT_EQ(2u, project.Load().size());
  EXPECT_EQ(0x1234, project.drivers.at("\xB9\xA4\xB3\xCC").wDrvId);
  EXPECT_EQ(0xFFFF, project.drivers.at("\xB9\xA4\xB3\xCC").wTagCount);
  EXPECT_EQ(0xFFFF, project.drivers.at("a").wDrvId);
}

TEST(LoadPrjDrvInfo, TheMapIsOrderedByPlainBytes) {
  Project project(FromHex("B9 A4 00 01 00 01 00") + FromHex("61 62 00 02 00 01 00") + FromHex("61 00 03 00 01 00"));
  std::string order;
  for (const auto& [name, entry] : project.Load()) order += std::to_string(entry.wDrvId);
  EXPECT_EQ("321", order);
}

TEST(LoadPrjDrvInfo, TwoRecordsOfOneNameKeepTheSecond) {
  Project project(FromHex("41 00 01 00 02 00") + FromHex("41 00 05 00 06 00"));
  ASSERT_EQ(1u, project.Load().size());
  EXPECT_EQ(5, project.drivers.at("A").wDrvId);
  EXPECT_EQ(6, project.drivers.at("A").wTagCount);
}

TEST(LoadPrjDrvInfo, AnEmptyNameIsAnEmptyKey) {
  Project project(FromHex("00 07 00 08 00"));
  ASSERT_EQ(1u, project.Load().size());
  EXPECT_EQ(7, project.drivers.at("").wDrvId);
}

TEST(LoadPrjDrvInfo, AFileOfFourBytesLoadsNothing) {
  EXPECT_TRUE(Project(FromHex("00 07 00 08")).Load().empty());
  EXPECT_TRUE(Project("").Load().empty());
}

TEST(LoadPrjDrvInfo, AMissingFileLeavesTheMapAlone) {
  const TempDir dir;
  Drivers drivers;
  drivers["old"].pDriver = SomeDriver();
  LoadPrjDrvInfo(CString(dir.Path()), drivers);
  EXPECT_EQ(SomeDriver(), drivers.at("old").pDriver);
}

TEST(LoadPrjDrvInfo, ADirectoryInTheFilesPlaceLoadsNothing) {
  const TempDir dir;
  dir.MakeDir("RecData/drvinfo.dat");
  Drivers drivers;
  LoadPrjDrvInfo(CString(dir.Path()), drivers);
  EXPECT_TRUE(drivers.empty());
}

TEST(LoadPrjDrvInfo, WhatCannotBeReadIsNotReported) {
  CaptureStdout out;
  CaptureStderr err;
  const TempDir dir;
  Drivers drivers;
  LoadPrjDrvInfo<SNDrvInfoEx>(CString(dir.Path()), drivers);
  Project(FromHex("00 07 00 08")).Load();
  Project(FromHex("41 42 00 03 00 10")).Load();
  EXPECT_EQ("", out.Text());
  EXPECT_EQ("", err.Text());
}

TEST(LoadPrjDrvInfo, AFileWithoutARecordLeavesTheMapAlone) {
  for (const char* bytes : {"00 07 00 08", "41 42 00 03 00 10"}) {
    Project project(FromHex(bytes));
    project.drivers["AB"].pDriver = SomeDriver();
    project.drivers[""].pDriver = SomeDriver();
    EXPECT_EQ(2u, project.Load().size()) << bytes;
    EXPECT_EQ(SomeDriver(), project.drivers.at("AB").pDriver);
    EXPECT_EQ(SomeDriver(), project.drivers.at("").pDriver);
  }
}

TEST(LoadPrjDrvInfo, NamesThatDifferInCaseAreTwo) {
  Project project(FromHex("41 00 01 00 02 00") + FromHex("61 00 03 00 04 00"));
  ASSERT_EQ(2u, project.Load().size());
  EXPECT_EQ(1, project.drivers.at("A").wDrvId);
  EXPECT_EQ(3, project.drivers.at("a").wDrvId);
}

TEST(LoadPrjDrvInfo, AgainResetsTheReferencesOfTheNamesInTheFileOnly) {
  Project project(FromHex("41 00 01 00 02 00"));
  project.drivers["A"].pDriver = SomeDriver();
  project.drivers["A"].wTagCount = 99;
  project.drivers["B"].pDriver = SomeDriver();
  ASSERT_EQ(2u, project.Load().size()) << "the map is not cleared first";
  EXPECT_EQ(nullptr, project.drivers.at("A").pDriver);
  EXPECT_EQ(2, project.drivers.at("A").wTagCount);
  EXPECT_EQ(SomeDriver(), project.drivers.at("B").pDriver);
}

TEST(LoadPrjDrvInfo, ALastRecordCutShortIsIgnored) {
  const std::string whole = FromHex("41 42 00 03 00 10 00") + FromHex("43 44 00 05 00 06 00");
  for (size_t len = 5; len <= whole.size(); ++len) {
    EXPECT_EQ(len < 7 ? 0u : len < 14 ? 1u : 2u, Project(whole.substr(0, len)).Load().size()) << len;
  }
}

TEST(LoadPrjDrvInfo, ANameWithoutItsZeroIsNotRead) {
  EXPECT_TRUE(Project(std::string(4096, 'x')).Load().empty());
  EXPECT_EQ(1u, Project(FromHex("41 00 01 00 02 00") + std::string(100, 'x')).Load().size());
}

TEST(LoadPrjDrvInfo, FindsAProjectUnderTheUtf8FormOfItsPath) {
  const TempDir dir;
  dir.Write(FromHex("E5 B7 A5 E7 A8 8B") + "/RecData/drvinfo.dat", FromHex("41 00 01 00 02 00"));
  Drivers drivers;
  LoadPrjDrvInfo(CString(dir.Path() + FromHex("B9 A4 B3 CC") + "/"), drivers);
  EXPECT_EQ(1u, drivers.size());
}

TEST(LoadPrjDrvInfo, AFileBeyond16MiBIsNotLoaded) {
  const TempDir dir;
  std::string bytes(kMaxDrvInfoBytes, 'n');
  bytes.replace(0, 6, FromHex("41 00 01 00 02 00"));
  dir.Write("RecData/drvinfo.dat", bytes);
  Drivers drivers;
  LoadPrjDrvInfo(CString(dir.Path()), drivers);
  EXPECT_EQ(1u, drivers.size());
  dir.Write("RecData/drvinfo.dat", bytes + "n");
  drivers.clear();
  LoadPrjDrvInfo(CString(dir.Path()), drivers);
  EXPECT_TRUE(drivers.empty());
}

TEST(LoadPrjDrvInfo, LeavesNoDescriptorOpen) {
  const int before = OpenDescriptors();
  Project(FromHex("41 00 01 00 02 00")).Load();
  Project("tiny").Load();
  EXPECT_EQ(before, OpenDescriptors());
}

TEST(ParseDrvInfo, StopsAt65536Records) {
  std::string bytes;
  for (size_t i = 0; i <= kMaxDrvInfoRecords; ++i) bytes += FromHex("00 01 00 02 00");
  EXPECT_EQ(kMaxDrvInfoRecords, ParseDrvInfo(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()).size());
}

TEST(ParseDrvInfo, EveryCutIsReadWithinItsEnd) {
  const std::string whole = FromHex("41 42 00 03 00 10 00 00 05 00 06 00 43 00 01 02 03 04");
  for (size_t len = 0; len <= whole.size(); ++len) {
    const std::vector<uint8_t> exact(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(len));
    EXPECT_EQ(len < 7 ? 0u : len < 12 ? 1u : len < 18 ? 2u : 3u, ParseDrvInfo(exact.data(), len).size()) << len;
  }
}
