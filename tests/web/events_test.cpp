// The live status: who is sent what, and when nothing is sent.
#include "web/events.h"

#include <gtest/gtest.h>

#include "tests/web/page_story.h"

namespace vorlatch::tests {
namespace {

using control::Language;

// A page that keeps what it is sent.
struct FakePage final : web::Listener {
  explicit FakePage(web::Events& all) : events(all) {}

  void send(const web::EventText& event) override { received.push_back(*event); }
  void dismiss() override {
    is_dismissed = true;
    events.remove(*this);
  }
  Lines take() { return std::exchange(received, {}); }

  web::Events& events;
  Lines received = {};
  bool is_dismissed = false;
};

struct EventsStory : PageStory {
  void set(const std::string& target) { EXPECT_EQ(run({"set", target, "NiceValue=5"}).status, 0); }

  web::Events events;
  FakePage first{events};
  FakePage second{events};
};

bool isStatusWith(const Lines& lines, const std::string& text) {
  return lines.size() == 1 && lines[0].starts_with("event: status\ndata: {\"schema\": 1,") &&
         lines[0].ends_with("}\n\n") && lines[0].find(text) != std::string::npos;
}

TEST(Events, SendTheStatusAtOnceAndWhenItChanges) {
  EventsStory story;
  story.events.add(Language::English, story.first);
  EXPECT_TRUE(isStatusWith(story.first.take(), "\"targets\": []"));
  story.events.look();
  EXPECT_EQ(story.first.take(), Lines{});
  story.set("kbd");
  story.events.look();
  EXPECT_TRUE(isStatusWith(story.first.take(), "\"target\": \"kbd\""));
  story.events.look();
  EXPECT_EQ(story.first.take(), Lines{});
}

TEST(Events, GiveAllPagesTheSamePicture) {
  EventsStory story;
  story.events.add(Language::English, story.first);
  story.set("kbd");
  story.events.add(Language::English, story.second);
  // The one that is there, although the status changed since.
  EXPECT_EQ(story.second.take(), story.first.take());
  story.events.look();
  const Lines seen = story.first.take();
  EXPECT_TRUE(isStatusWith(seen, "kbd"));
  EXPECT_EQ(story.second.take(), seen);
}

TEST(Events, SpeakEachPagesLanguage) {
  EventsStory story;
  story.set("kbd");
  story.events.add(Language::English, story.first);
  story.events.add(Language::Chinese, story.second);
  EXPECT_TRUE(isStatusWith(story.first.take(), "\"verdict_text\": \"not running\""));
  EXPECT_TRUE(isStatusWith(story.second.take(), "\"verdict_text\": \"没有运行\""));
}

TEST(Events, StopForAPageThatHasGone) {
  EventsStory story;
  story.events.add(Language::English, story.first);
  story.events.add(Language::English, story.second);
  story.events.remove(story.first);
  EXPECT_TRUE(story.events.hasListeners());
  story.first.take();
  story.second.take();
  story.events.sendComment();
  EXPECT_EQ(story.first.take(), Lines{});
  EXPECT_EQ(story.second.take(), Lines{":\n\n"});
  story.events.remove(story.second);
  EXPECT_FALSE(story.events.hasListeners());
  story.events.look();
  EXPECT_EQ(story.second.take(), Lines{});
}

TEST(Events, EndWhenTheKeyIsReplaced) {
  EventsStory story;
  story.events.add(Language::English, story.first);
  story.events.add(Language::Chinese, story.second);
  control::replaceAccessKey();
  story.events.look();
  EXPECT_TRUE(story.first.is_dismissed);
  EXPECT_TRUE(story.second.is_dismissed);
  EXPECT_FALSE(story.events.hasListeners());
}

TEST(Events, TellWhyThereIsNoStatus) {
  EventsStory story;
  writeAll(story.preferencesFile(), "damaged");
  story.events.add(Language::English, story.first);
  const Lines seen = story.first.take();
  ASSERT_EQ(seen.size(), 1U);
  EXPECT_TRUE(seen[0].starts_with(R"(event: status
data: {"error":{"code":"failed","message":")"))
      << seen[0];
  story.writeTargets({});
  story.events.look();
  EXPECT_TRUE(isStatusWith(story.first.take(), "\"targets\": []"));
}

}  // namespace
}  // namespace vorlatch::tests
