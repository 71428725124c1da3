// Entries that an attacker puts at the path of one of the daemon's files, before or during an
// operation. Neither the entry nor what it points at may change.
#include <filesystem>
#include <optional>

#include <gtest/gtest.h>

#include "tests/security/intercepted_calls.h"
#include "tests/security/operations.h"
#include "tests/security/planted.h"
#include "tests/support/story.h"

namespace vorlatch::tests {
namespace {

namespace fs = std::filesystem;

class PlantedEntry : public testing::TestWithParam<Operation> {
 protected:
  void putBeforehand(const std::vector<Plant>& all) {
    for (const Plant& plant : all) {
      begin();
      putAt(path(), plant);
      const OpenedSpecials opened;
      GetParam().run();
      expectNothingChanged(plant.name);
      EXPECT_EQ(opened.paths, std::vector<std::string>{}) << plant.name;
    }
  }

  // For each plant, repeats the operation and puts the plant at `place` before the first, second,
  // ... file call. Returns how often it was put.
  int exchange(const std::vector<Plant>& all,
               const std::function<std::optional<std::string>()>& place) {
    int exchanged = 0;
    for (const Plant& plant : all) {
      bool has_happened = true;
      for (int call = 1; has_happened; ++call) {
        begin();
        const BeforeFileCall action(call, [&] {
          if (const auto found = place()) putAt(*found, plant);
        });
        GetParam().run();
        has_happened = action.hasHappened();
        if (!planted_) continue;
        ++exchanged;
        expectNothingChanged(plant.name + " before file call " + std::to_string(call));
      }
    }
    return exchanged;
  }

  [[nodiscard]] std::string path() const { return story_.file(GetParam().file); }
  // The path of the temporary file beside the file, if there is one.
  [[nodiscard]] std::optional<std::string> temporary() const {
    for (const auto& entry : fs::directory_iterator(story_.file(""))) {
      if (entry.path().string().starts_with(path() + ".")) return entry.path();
    }
    return std::nullopt;
  }

 private:
  // Creates the operation's files and untouched victims.
  void begin() {
    for (const auto& entry : fs::directory_iterator(story_.file(""))) fs::remove_all(entry.path());
    GetParam().prepare(story_);
    planted_.reset();
    victims_.emplace(story_.rootPath("/elsewhere"));
  }
  void putAt(const std::string& place, const Plant& plant) {
    planted_.emplace(plant, place, *victims_);
    before_ = asAllStands();
  }
  [[nodiscard]] std::string asAllStands() const {
    return planted_->asItStands() + victims_->asTheyStand();
  }
  void expectNothingChanged(const std::string& when) const {
    EXPECT_EQ(asAllStands(), before_) << when;
    EXPECT_FALSE(victims_->isSecretIn(story_.file(""))) << when;
  }

  Story story_;
  std::optional<Victims> victims_;
  std::optional<Planted> planted_;
  std::string before_;
};
// Device files, which only root can create.
class PrivilegedPlantedEntry : public PlantedEntry {};

TEST_P(PlantedEntry, BeforehandLeadsNowhereAndIsNotOpened) {
  putBeforehand(plants());
}

TEST_P(PlantedEntry, BetweenAnyTwoFileCallsLeadsNowhere) {
  // Each plant was put more than once.
  EXPECT_GT(exchange(plants(), [&] { return path(); }), static_cast<int>(plants().size()));
}

TEST_P(PlantedEntry, UnderTheTemporaryNameLeadsNowhere) {
  EXPECT_EQ(exchange(plants(), [&] { return temporary(); }) > 0, GetParam().writes_temporary);
}

TEST_P(PrivilegedPlantedEntry, BeforehandLeadsNowhereAndIsNotOpened) {
  putBeforehand(devicePlants());
}

TEST_P(PrivilegedPlantedEntry, BetweenAnyTwoFileCallsLeadsNowhere) {
  EXPECT_GT(exchange(devicePlants(), [&] { return path(); }),
            static_cast<int>(devicePlants().size()));
}

TEST_P(PrivilegedPlantedEntry, UnderTheTemporaryNameLeadsNowhere) {
  EXPECT_EQ(exchange(devicePlants(), [&] { return temporary(); }) > 0, GetParam().writes_temporary);
}

INSTANTIATE_TEST_SUITE_P(Each, PlantedEntry, testing::ValuesIn(operations()),
                         testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(PrivilegedEach, PrivilegedPlantedEntry, testing::ValuesIn(operations()),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace vorlatch::tests
