// The page that is compiled in.
#include "web/page_files.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace vorlatch::tests {
namespace {

const web::PageFile* fileNamed(std::string_view name) {
  const auto files = web::pageFiles();
  const auto file = std::ranges::find(files, name, &web::PageFile::name);
  return file != files.end() ? &*file : nullptr;
}

TEST(PageFiles, HaveChartsCompressed) {
  const web::PageFile* const charts = fileNamed("chart.js");
  ASSERT_NE(charts, nullptr);
  EXPECT_STREQ(charts->type, "text/javascript; charset=utf-8");
  EXPECT_TRUE(charts->gzip.starts_with("\x1f\x8b\x08"));
  EXPECT_GT(charts->gzip.size(), 50'000U);
  EXPECT_LT(charts->gzip.size(), 100'000U);
}

TEST(PageFiles, HaveNamesAndTagsOfTheirOwn) {
  for (const web::PageFile& file : web::pageFiles()) {
    EXPECT_EQ(file.name.find('/'), file.name.npos);
    const auto has_tag = [&](const web::PageFile& other) {
      return other.tag == std::string_view(file.tag);
    };
    EXPECT_EQ(std::ranges::count_if(web::pageFiles(), has_tag), 1) << file.name;
    EXPECT_EQ(fileNamed(file.name), &file);
    EXPECT_EQ(std::string_view(file.tag).size(), 18U);
  }
}

}  // namespace
}  // namespace vorlatch::tests
