// The table of log messages: it has what the daemon's sources write, and the lines in English.
#include "control/log_messages.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>

#include <gtest/gtest.h>

#include "tests/cli/log_story.h"

namespace vorlatch::tests {
namespace {

using control::LogLine;
using control::LogMessage;

// Messages, each with the texts that it takes in place of %s.
using Messages = std::map<std::string, std::set<std::string>>;

// Takes the string literal at the beginning of the text, which may have several parts.
std::string takeLiteral(std::string_view& text) {
  std::string literal;
  while (text.starts_with('"')) {
    const std::size_t end = text.find('"', 1);
    literal += text.substr(1, end - 1);
    text.remove_prefix(end + 1);
    if (const std::size_t next = text.find_first_not_of(" \n"); text[next] == '"') {
      text.remove_prefix(next);
    }
  }
  return literal;
}

void addMessagesOf(const std::string& source, Messages& messages) {
  constexpr std::string_view kCall = "writeLogLine(";
  constexpr std::string_view kBegin = "[%s] ";
  constexpr std::string_view kEnd = "\\n";
  for (std::size_t at = source.find(kCall); at != source.npos; at = source.find(kCall, at + 1)) {
    std::string_view call = std::string_view(source).substr(at + kCall.size());
    call = call.substr(0, call.find(';'));
    call.remove_prefix(std::min(call.find_first_not_of(" \n"), call.size()));
    std::string form = takeLiteral(call);
    if (form.empty()) continue;  // the function's own declaration
    ASSERT_TRUE(form.starts_with(kBegin) && form.ends_with(kEnd)) << form;
    form = form.substr(kBegin.size(), form.size() - kBegin.size() - kEnd.size());
    std::set<std::string>& words = messages[form];
    while (call.find('"') != call.npos) {
      call.remove_prefix(call.find('"'));
      words.insert(takeLiteral(call));
    }
  }
}

std::string withCategory(const LogMessage& message) {
  const std::string category = message.category;
  return (category.empty() ? "" : "[" + category + "] ") + message.form;
}

TEST(LogMessages, AreThoseThatTheDaemonWrites) {
  Messages written;
  for (const char* folder : {"kernel", "daemon", "reconcile", "config", "log"}) {
    for (const auto& file :
         std::filesystem::directory_iterator(std::string(VORLATCH_DOCS "../") + folder)) {
      addMessagesOf(readAll(file.path()), written);
    }
  }
  Messages listed;
  std::set<std::string> codes;
  std::set<std::string> used_categories;
  for (const LogMessage& message : control::logMessages()) {
    codes.insert(message.code);
    if (*message.category != '\0') used_categories.insert(message.category);
    std::set<std::string>& words = listed[withCategory(message)];
    for (const control::LogWord& word : control::logWords()) {
      if (std::string(word.code) == message.code) words.insert(word.text);
    }
  }
  std::set<std::string> categories;
  for (const control::LogCategory& category : control::logCategories()) {
    categories.insert(category.name);
  }
  EXPECT_EQ(listed, written);
  EXPECT_EQ(codes.size(), control::logMessages().size());
  EXPECT_EQ(categories, used_categories);
}

// Returns the form with its fields filled in.
std::string example(std::string form, const std::string& text) {
  for (const auto& [field, value] :
       {std::pair<std::string, std::string>{"%d", "-12"}, {"%.1f", "1.5"}, {"%s", text}}) {
    for (std::size_t at = 0; (at = form.find(field, at)) != form.npos; at += value.size()) {
      form.replace(at, field.size(), value);
    }
  }
  return form;
}

LogLine lineOf(const LogMessage& message, const std::string& text) {
  return {"03-04 05:06:07", message.category, example(message.form, text)};
}

TEST(LogMessages, AreRecognised) {
  for (const LogMessage& message : control::logMessages()) {
    const bool has_words = std::any_of(
        control::logWords().begin(), control::logWords().end(),
        [&](const control::LogWord& word) { return std::string(word.code) == message.code; });
    if (has_words) continue;
    // A name that contains what stands behind it.
    const std::string name = "a PID:1 已启动 PID: 2 完成 已退出";
    const LogLine line = lineOf(message, name);
    const auto known = control::recognised(line);
    ASSERT_TRUE(known) << message.code;
    EXPECT_STREQ(known->message->code, message.code);
    const bool names_target = std::string_view(message.form).find("%s") != std::string::npos;
    EXPECT_EQ(known->target().value_or("none"), names_target ? name : "none") << message.code;
    const std::string english = *message.english == '\0' ? message.form : message.english;
    EXPECT_EQ(control::inEnglish(line).text, example(english, name));
  }
}

TEST(LogMessages, WithWordsNameNoTarget) {
  for (const control::LogWord& word : control::logWords()) {
    for (const LogMessage& message : control::logMessages()) {
      if (std::string(word.code) != message.code) continue;
      const LogLine line = lineOf(message, word.text);
      const auto known = control::recognised(line);
      ASSERT_TRUE(known) << line.text;
      EXPECT_FALSE(known->target()) << line.text;
      EXPECT_EQ(control::inEnglish(line).text, example(message.english, word.english));
    }
  }
}

TEST(LogInEnglish, KeepsStampsNumbersAndNames) {
  const Lines lines{"[系统] 设定内存优先级(210) -> [内核] 失败",
                    kChapterRule,
                    "[进程] 目标: 微信 已启动 PID: 18 ",
                    "[内存限制] 目标 Act:-1 Inact:0 | 最终 Act:7 Inact:8 -> [成功]",
                    "[系统] 内存优先级:40 -> [内核: 成功]",
                    "[状态剥离] 目标: 剥离系统托管并开启强锁 -> [操作: 失败] [内核]: -1)",
                    "[内核] ：调用成功但状态丢失",
                    "[内核] ：失败",
                    "[内核] ：其他",
                    "[守护] 日志大小超过设定限制(1.5MB)，已自动清空。",
                    "[内存限制] 目标已是 3",
                    "内核"};
  LogStory story(lines);
  const std::string english = stamped(
      {"[system] own jetsam band (210) -> [kernel] refused", kChapterRule,
       "[process] 微信 started, PID 18",
       "[limits] wanted Act:-1 Inact:0 | final Act:7 Inact:8 -> [succeeded]",
       "[system] jetsam band:40 -> [kernel: succeeded]",
       "[managed] wanted: taken out of the system's management, and locked -> [call: refused] "
       "[kernel]: -1)",
       "[kernel] the call succeeded, but the state is lost", "[kernel] refused", "[内核] ：其他",
       "[daemon] the log was larger than its limit (1.5MB), and was emptied",
       "[内存限制] 目标已是 3", "内核"});
  for (const char* command :
       {"log --english", "--lang en log", "log --lang=en", "log --lang zh --english"}) {
    EXPECT_EQ(story.answer(command), english) << command;
  }
  EXPECT_EQ(story.answer("log"), stamped(lines));
  ::setenv("TZ", "UTC0", 1);
  EXPECT_EQ(story.answer("log --json --english --category process"),
            R"({"schema":1,"time":"2026-03-04T05:06:07+00:00","stamp":"03-04 05:06:07",)"
            R"("category":"process","text":"微信 started, PID 18","code":"target-started"})"
            "\n");
}

// The colours are those of the lines as they are written.
TEST(LogInEnglish, InColours) {
  LogStory story({"[内核] ：失败"});
  story.has_colour = true;
  EXPECT_EQ(story.answer("log --english"),
            "\x1b[2m[03-04 05:06:07]\x1b[0m \x1b[36m[kernel]\x1b[0m \x1b[31mrefused\x1b[0m\n");
}

}  // namespace
}  // namespace vorlatch::tests
