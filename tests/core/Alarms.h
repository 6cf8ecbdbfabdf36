// Alarm records for tests, and the fixture that subscribes to them.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "core/CoreFixture.h"

class AlarmTest : public CoreTest {
 protected:
  void SetUp() override { Connect(); }

  // An alarm of 32 bytes: texts 1 and 2, attributes 3 and 4, values 1.5 and -2.5.
  static std::string Alarm(unsigned int begin, unsigned int end, unsigned int tag) {
    return Word(begin) + Word(0) + Word(end) + Word(0) + Word(tag) + Word(1) + Word(2) + "\3\4" +
           FromHex("00 00 00 00 00 00 F8 3F 00 00 00 00 00 00 04 C0");
  }

  // What the callback gets for it, with the lists of HasLists.
  static std::string Shown(unsigned int begin, unsigned int end, const std::string& tag) {
    return "(Date(" + std::to_string(begin) + "000), Date(" + std::to_string(end != 0 ? end : begin) + "000), '" + tag +
           "', " + (end != 0 ? "1" : "0") + ", 'text1', 'text2', 3, 1.5, -2.5, 4)";
  }

  static std::string Answer(const std::vector<std::string>& alarms) {
    std::string bytes = "n" + Word(static_cast<unsigned int>(alarms.size()));
    for (const std::string& alarm : alarms) bytes += alarm;
    return bytes;
  }

  // A notification of an alarm.
  static std::string Record(int command, const std::string& alarm) {
    return "\xFF\xFF" + std::string(1, static_cast<char>(command)) + alarm;
  }

  void HasLists() {
    core->textList = {"text0", "text1", "text2"};
    core->tagList = {"tag0", "tag1", "tag2"};
  }

  // Answers 'n'. When the lists are still to come, also says that there are none.
  void AnswersAlarms(const std::vector<std::string>& alarms) { AnswersAlarms(alarms, *core); }
  void AnswersAlarms(const std::vector<std::string>& alarms, CDBCore& subject) {
    subject.requestSock.BackInStep();
    server.Answer(Answer(alarms));
    if (subject.textList.empty()) AnswersFiles({"Exist:No\r\n\r\n", "Exist:No\r\n\r\n"});
  }
  void AnswersLists(const std::vector<std::string>& alarms, const std::string& texts, const std::string& tags) {
    server.Answer(Answer(alarms));
    AnswersFiles({ScriptedServer::FileReply(texts, 1), ScriptedServer::FileReply(tags, 1)});
  }

  // Answers file requests, each once it is there, since a transfer takes all that has come in for its own.
  void AnswersFiles(const std::vector<std::string>& answers) {
    Asked();
    answering_ = std::thread([this, answers] {
      asked_ = server.Request(1);
      for (const std::string& answer : answers) {
        asked_ += server.RequestUntil("\r\n\r\n");
        server.Answer(answer);
      }
    });
  }

  // What was requested so far.
  std::string Asked() {
    if (answering_.joinable()) answering_.join();
    return std::exchange(asked_, "") + server.Requested();
  }

  void TearDown() override { Asked(); }

  int Subscribe(bool replay) { return core->_SetRtAlarmNotify(js.Recorder(), replay); }

 private:
  std::thread answering_;
  std::string asked_;
};
