// The icons of apps, as the page asks for them, and all that is no icon.
#include <filesystem>

#include <gtest/gtest.h>

#include "platform/property_list.h"
#include "tests/support/files.h"
#include "tests/web/page_story.h"
#include "web/routes.h"

namespace vorlatch::tests {
namespace {

constexpr std::size_t kMostBytes = std::size_t{256} * 1024;
const std::string kPng("\x89PNG\r\n\x1a\n\0pixels", 15);

struct IconStory : PageStory {
  IconStory() { device.applications = {rootPath("/Apps")}; }

  const web::Routes routes{kPage};

  [[nodiscard]] std::string inBundle(const std::string& name) const {
    return rootPath("/Apps/A.app/" + name);
  }
  void describe(Dictionary info) const {
    std::filesystem::create_directories(inBundle(""));
    info.emplace("CFBundleIdentifier", "org.a");
    writeAll(inBundle("Info.plist"), platform::writeXmlPropertyList(plist::Value(info)));
  }
  void describeIcon(const std::string& name) const {
    describe({{"CFBundleIconFiles", Array{"AppIcon20x20", name}}});
  }
  [[nodiscard]] web::Answer answer(const std::string& query = "app=org.a") const {
    web::Request request = get("/api/icon");
    request.query = query;
    request.cookies = {"vorlatch=" + key};
    return routes.answer(request);
  }
  // The picture, or the status.
  [[nodiscard]] std::string icon(const std::string& query = "app=org.a") const {
    const web::Answer given = answer(query);
    return given.status == 200 ? given.body : std::to_string(given.status);
  }
};

TEST(Icon, IsGivenWithTheKeyAlone) {
  IconStory story;
  story.describeIcon("Icon");
  writeAll(story.inBundle("Icon.png"), kPng);
  EXPECT_EQ(story.icon(), kPng);
  const std::string head = web::headOf(story.answer(), true);
  EXPECT_NE(head.find("Cache-Control: private, max-age=86400\r\nContent-Type: image/png\r\n"
                      "Content-Length: 15\r\n"),
            head.npos)
      << head;
  web::Request request = PageStory::get("/api/icon");
  request.query = "app=org.a";
  EXPECT_EQ(story.routes.answer(request).status, 401);
  for (const char* query : {"", "app=", "app=org.b", "app=org", "org.a", "app=../A.app"}) {
    EXPECT_EQ(story.icon(query), "204") << query;
  }
}

TEST(Icon, IsTheOneThatTheBundleNames) {
  IconStory story;
  const auto list = [](const char* name) {
    return Dictionary{
        {"CFBundlePrimaryIcon", Dictionary{{"CFBundleIconFiles", Array{"small", name}}}}};
  };
  story.describe({});
  for (const char* name : {"first", "ipad", "old", "small"}) {
    writeAll(story.inBundle("") + name + ".png", kPng + name);
  }
  story.describe({{"CFBundleIcons", list("first")}, {"CFBundleIcons~ipad", list("ipad")}});
  EXPECT_EQ(story.icon(), kPng + "first");
  story.describe({{"CFBundleIcons~ipad", list("ipad")}, {"CFBundleIconFiles", Array{"old.png"}}});
  EXPECT_EQ(story.icon(), kPng + "ipad");
  story.describe({{"CFBundleIcons", 5}, {"CFBundleIconFiles", Array{"old.png"}}});
  EXPECT_EQ(story.icon(), kPng + "old");
  // The highest resolution first.
  for (const char* scale : {"@2x~ipad", "", "@2x", "@3x"}) {
    story.describeIcon("scaled");
    writeAll(story.inBundle("scaled") + scale + ".png", kPng + scale);
    EXPECT_EQ(story.icon(), kPng + scale);
  }
  for (const plist::Value& wrong :
       {plist::Value("old"), plist::Value(Array{}), plist::Value(Array{7})}) {
    story.describe({{"CFBundleIconFiles", wrong}});
    EXPECT_EQ(story.icon(), "204");
  }
}

TEST(Icon, IsAPlainPictureInTheBundle) {
  IconStory story;
  story.describeIcon("Icon");
  const std::string path = story.inBundle("Icon.png");
  const std::string outside = story.rootPath("/Apps/outside.png");
  writeAll(outside, kPng);
  EXPECT_EQ(story.icon(), "204");
  writeAll(path, "text");
  EXPECT_EQ(story.icon(), "204");
  writeAll(path, kPng + std::string(kMostBytes - kPng.size(), 'x'));
  EXPECT_EQ(story.icon().size(), kMostBytes);
  writeAll(path, kPng + std::string(kMostBytes - kPng.size() + 1, 'x'));
  EXPECT_EQ(story.icon(), "204");
  std::filesystem::remove(path);
  std::filesystem::create_symlink(outside, path);
  EXPECT_EQ(story.icon(), "204");
  std::filesystem::create_directories(story.inBundle("Inner"));
  writeAll(story.inBundle("Inner/Icon.png"), kPng);
  writeAll(story.inBundle(".Icon.png"), kPng);
  for (const char* name : {"../outside", "Inner/Icon", ".Icon", ""}) {
    story.describeIcon(name);
    EXPECT_EQ(story.icon(), "204") << name;
  }
  // A link in place of the bundle.
  writeAll(story.inBundle("Plain.png"), kPng);
  story.describeIcon("Plain");
  EXPECT_EQ(story.icon(), kPng);
  std::filesystem::rename(story.rootPath("/Apps/A.app"), story.rootPath("/Elsewhere"));
  std::filesystem::create_directory_symlink(story.rootPath("/Elsewhere"),
                                            story.rootPath("/Apps/A.app"));
  EXPECT_EQ(story.icon(), "204");
}

}  // namespace
}  // namespace vorlatch::tests
