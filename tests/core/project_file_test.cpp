// Bringing a project file up to date: which are fetched, which are deleted.
#include <utime.h>

#include "core/CoreFixture.h"

class ProjectFileTest : public CoreTest {
 protected:
  void SetUp() override { Connect(); }

  std::string Local(const std::string& name) const { return server.ProjectPath() + name; }
  void Write(const std::string& name) const { std::ofstream(Local(name), std::ios::binary) << "old"; }
  bool Has(const std::string& name) const { return std::filesystem::exists(Local(name)); }

  std::map<CString, SNFileInfo> files;
};

TEST_F(ProjectFileTest, AListedFileIsFetchedByTheNameGiven) {
  files["window/main.wnd"] = {1000, 3};
  server.Answer(ScriptedServer::FileReply("abc", 1000));
  EXPECT_EQ(core->GetPrjFile("Window/Main.wnd", files), 1);
  EXPECT_EQ(server.Requested(), "4Window/Main.wnd\r\nHello:Yes\r\n\r\n");
  EXPECT_TRUE(Has("Window/Main.wnd"));
}

TEST_F(ProjectFileTest, AListedFileThatIsCurrentIsNotAskedFor) {
  Write("Window/a.wnd");
  struct stat status;
  ASSERT_EQ(stat(Local("Window/a.wnd").c_str(), &status), 0);
  files["window/a.wnd"] = {static_cast<uint32_t>(status.st_mtime), 3};
  EXPECT_EQ(core->GetPrjFile("Window/a.wnd", files), 1);
  EXPECT_EQ(server.Requested(), "");
}

TEST_F(ProjectFileTest, AListedFileOfAnotherSizeIsAskedFor) {
  Write("Window/a.wnd");
  files["window/a.wnd"] = {0, 4};
  server.Answer("UseLast:Yes\r\n\r\n");
  EXPECT_EQ(core->GetPrjFile("Window/a.wnd", files), 1);
  EXPECT_EQ(server.Requested().substr(0, 24), "4Window/a.wnd\r\nLastTime:");
}

TEST_F(ProjectFileTest, UnlistedFilesOfTheThreeDirectoriesAreFetchedInAnyCase) {
  for (const char* name : {"SysCfg/a", "syscfg/b", "RecData/c", "RECDATA/d", "Media/e", "mEdIa/f"}) {
    core->requestSock.BackInStep();
    server.Answer("UseLast:Yes\r\n\r\n");
    EXPECT_EQ(core->GetPrjFile(name, files), 1) << name;
    EXPECT_EQ(server.Requested(), "4" + std::string(name) + "\r\nHello:Yes\r\n\r\n") << name;
  }
}

TEST_F(ProjectFileTest, AnUnlistedFileIsFetchedWhateverTheLocalCopy) {
  Write("SysCfg/a");
  server.Answer("UseLast:Yes\r\n\r\n");
  EXPECT_EQ(core->GetPrjFile("SysCfg/a", files), 1);
  EXPECT_NE(server.Requested(), "");
}

TEST_F(ProjectFileTest, AnUnlistedFileIsFetchedAlsoOverAnEmptyOneOfNoTime) {
  std::ofstream(Local("SysCfg/a"), std::ios::binary).flush();
  const utimbuf never{0, 0};
  ASSERT_EQ(utime(Local("SysCfg/a").c_str(), &never), 0);
  server.Answer("UseLast:Yes\r\n\r\n");
  EXPECT_EQ(core->GetPrjFile("SysCfg/a", files), 1);
  EXPECT_EQ(server.Requested(), "4SysCfg/a\r\nLastTime:0\r\nSize:0\r\nHello:Yes\r\n\r\n");
}

TEST_F(ProjectFileTest, AListedFileThatCannotBeHadGivesZero) {
  files["window/a.wnd"] = {1000, 3};
  server.CloseRequest();
  EXPECT_EQ(core->GetPrjFile("Window/a.wnd", files), 0);
}

TEST_F(ProjectFileTest, AListedFileOfTheThreeDirectoriesGoesByItsEntry) {
  Write("SysCfg/a");
  struct stat status;
  ASSERT_EQ(stat(Local("SysCfg/a").c_str(), &status), 0);
  files["syscfg/a"] = {static_cast<uint32_t>(status.st_mtime), 3};
  EXPECT_EQ(core->GetPrjFile("SysCfg/a", files), 1);
  EXPECT_EQ(server.Requested(), "");
}

TEST_F(ProjectFileTest, AnyOtherUnlistedFileIsDeletedLocally) {
  for (const char* name : {"Window/a.wnd", "Report/b", "SysCfg2", "XMedia/"}) {
    if (name[0] != 'X') Write(name);
    EXPECT_EQ(core->GetPrjFile(name, files), 1) << name;
    EXPECT_FALSE(Has(name)) << name;
  }
  EXPECT_EQ(server.Requested(), "");
}

TEST_F(ProjectFileTest, AFileThatIsDeletedMayHaveAChineseName) {
  Write("Window/\xE6\xB0\xB4");
  EXPECT_EQ(core->GetPrjFile("Window/\xCB\xAE", files), 1);
  EXPECT_FALSE(Has("Window/\xE6\xB0\xB4"));
}

TEST_F(ProjectFileTest, KeysAreComparedInLowerCaseOnly) {
  files["Window/A.wnd"] = {1, 1};  // no key that a name can have
  Write("Window/A.wnd");
  EXPECT_EQ(core->GetPrjFile("Window/A.wnd", files), 1);
  EXPECT_FALSE(Has("Window/A.wnd"));
}

TEST_F(ProjectFileTest, WithALocalServerNothingIsFetchedAndNothingDeleted) {
  core->localServer = true;
  Write("Window/a.wnd");
  EXPECT_EQ(core->GetPrjFile("Window/a.wnd", files), 1);
  EXPECT_EQ(core->GetPrjFile("SysCfg/a", files), 1);
  EXPECT_TRUE(Has("Window/a.wnd"));
  EXPECT_EQ(server.Requested(), "");
}

TEST_F(ProjectFileTest, ATransferThatFailsGivesZero) {
  server.CloseRequest();
  EXPECT_EQ(core->GetPrjFile("SysCfg/a", files), 0);
}

TEST_F(ProjectFileTest, WithoutASessionNothingIsFetchedButOldFilesStillGo) {
  Write("Window/a.wnd");
  server.CloseNotify();
  ASSERT_TRUE(Eventually([&] { return IsGone(*core); }));
  EXPECT_EQ(core->GetPrjFile("SysCfg/a", files), 0);
  EXPECT_EQ(core->GetPrjFile("Window/a.wnd", files), 1);
  EXPECT_FALSE(Has("Window/a.wnd"));
}

TEST_F(ProjectFileTest, WhatATransferLeftBehindIsNotTakenForTheNextAnswer) {
  std::filesystem::create_directories(Local("SysCfg/a"));  // a directory cannot be opened for writing
  server.Answer(ScriptedServer::FileReply(std::string(5000, 'x'), 1));
  EXPECT_EQ(core->GetPrjFile("SysCfg/a", files), 1);
  server.Requested();
  std::thread answering([&] {
    server.RequestUntil("\r\n\r\n");
    server.Answer("UseLast:Yes\r\n\r\n");
  });
  EXPECT_EQ(core->GetPrjFile("SysCfg/b", files), 1);
  answering.join();
}

TEST_F(ProjectFileTest, ATransferThatWasTakenWholeLeavesTheNextAnswerAlone) {
  server.Answer(ScriptedServer::FileReply("abc", 1));
  EXPECT_EQ(core->GetPrjFile("SysCfg/a", files), 1);
  server.Answer("ab");
  char reply[2];
  EXPECT_EQ(core->RequestAll("L", 1, 2, reply), 1);
  EXPECT_EQ(std::string(reply, 2), "ab");
}
