#include "cli/qr_code.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <utility>

namespace vorlatch::cli {
namespace {

// Version 4 with error correction level L of ISO/IEC 18004, the smallest with room for the address
// of the page, and always its mask 0: readers take any.
constexpr int kSize = 33;  // modules on a side
constexpr int kQuietZone = 4;
constexpr int kTiming = 6;  // the row and the column
constexpr int kAlignmentCentre = 26;
constexpr std::size_t kDataBytes = 80;
constexpr std::size_t kCorrectionBytes = 20;
constexpr unsigned kFormatBits = 0x77C4;  // of level L and mask 0
static_assert(kQrColumns == kSize + 2 * kQuietZone);

using Codewords = std::array<std::uint8_t, kDataBytes + kCorrectionBytes>;
using Correction = std::array<std::uint8_t, kCorrectionBytes>;

// Multiplies in the field of 256 elements, modulo x^8 + x^4 + x^3 + x^2 + 1.
std::uint8_t multiply(std::uint8_t a, std::uint8_t b) {
  unsigned product = 0;
  for (int bit = 7; bit >= 0; --bit) {
    product = (product << 1U) ^ ((product >> 7U) * 0x11DU);
    product ^= ((b >> static_cast<unsigned>(bit)) & 1U) * a;
  }
  return static_cast<std::uint8_t>(product);
}

// Returns the product of all (x - 2^i), without its first coefficient, which is 1.
Correction generator() {
  Correction coefficients{};
  coefficients.back() = 1;
  std::uint8_t root = 1;
  for (std::size_t i = 0; i < kCorrectionBytes; ++i) {
    for (std::size_t j = 0; j < kCorrectionBytes; ++j) {
      coefficients[j] = multiply(coefficients[j], root);
      if (j + 1 < kCorrectionBytes) coefficients[j] ^= coefficients[j + 1];
    }
    root = multiply(root, 2);
  }
  return coefficients;
}

// Returns the rest of dividing the data by the generator.
Correction correctionOf(const Codewords& data) {
  const Correction divisor = generator();
  Correction rest{};
  for (std::size_t i = 0; i < kDataBytes; ++i) {
    const std::uint8_t factor = data[i] ^ rest.front();
    for (std::size_t j = 0; j < kCorrectionBytes; ++j) {
      const std::uint8_t next = j + 1 < kCorrectionBytes ? rest[j + 1] : std::uint8_t{0};
      rest[j] = next ^ multiply(divisor[j], factor);
    }
  }
  return rest;
}

Codewords codewordsOf(std::string_view text) {
  Codewords words{};
  std::size_t bits = 0;
  const auto append = [&](unsigned value, unsigned length) {
    for (; length > 0; ++bits) {
      words[bits / 8] |= static_cast<std::uint8_t>(((value >> --length) & 1U) << (7 - bits % 8));
    }
  };
  append(0b0100, 4);  // bytes follow
  append(static_cast<unsigned>(text.size()), 8);
  for (const char byte : text) append(static_cast<unsigned char>(byte), 8);
  append(0, 4);
  for (unsigned pad = 0xEC; bits < 8 * kDataBytes; pad ^= 0xEC ^ 0x11) append(pad, 8);
  const Correction correction = correctionOf(words);
  std::copy(correction.begin(), correction.end(), words.begin() + kDataBytes);
  return words;
}

struct Module {
  bool is_dark = false;
  bool is_fixed = false;  // belongs to a pattern, not to the data
};

class Grid {
 public:
  explicit Grid(const Codewords& words) {
    for (int i = 0; i < kSize; ++i) {
      fix(i, kTiming, i % 2 == 0);
      fix(kTiming, i, i % 2 == 0);
    }
    for (const auto& [x, y] : {std::pair{3, 3}, {kSize - 4, 3}, {3, kSize - 4}}) drawFinder(x, y);
    drawSquares(kAlignmentCentre, kAlignmentCentre, 2);
    drawFormat();
    drawData(words);
  }

  // Modules outside are light.
  [[nodiscard]] bool isDark(int x, int y) const {
    return isInside(x) && isInside(y) && at(x, y).is_dark;
  }

 private:
  static bool isInside(int i) { return i >= 0 && i < kSize; }
  static std::size_t indexOf(int x, int y) {
    return static_cast<std::size_t>(y) * kSize + static_cast<std::size_t>(x);
  }
  [[nodiscard]] const Module& at(int x, int y) const { return modules_[indexOf(x, y)]; }
  Module& at(int x, int y) { return modules_[indexOf(x, y)]; }
  void fix(int x, int y, bool is_dark) {
    if (isInside(x) && isInside(y)) at(x, y) = {.is_dark = is_dark, .is_fixed = true};
  }

  // Draws squares in one another; those at an odd distance from the outermost are light.
  void drawSquares(int centre_x, int centre_y, int radius) {
    for (int y = -radius; y <= radius; ++y) {
      for (int x = -radius; x <= radius; ++x) {
        fix(centre_x + x, centre_y + y, std::max(std::abs(x), std::abs(y)) != radius - 1);
      }
    }
  }

  void drawFinder(int x, int y) {
    for (int i = -4; i <= 4; ++i) {
      for (const auto& [dx, dy] : {std::pair{i, -4}, {i, 4}, {-4, i}, {4, i}}) {
        fix(x + dx, y + dy, false);
      }
    }
    drawSquares(x, y, 3);
  }

  // Twice, around the finder patterns.
  void drawFormat() {
    for (int i = 0; i < 15; ++i) {
      const bool bit = ((kFormatBits >> static_cast<unsigned>(i)) & 1U) != 0;
      // The rows and columns of timing are left out.
      if (i < 8) {
        fix(8, i < 6 ? i : i + 1, bit);
        fix(kSize - 1 - i, 8, bit);
      } else {
        fix(i == 8 ? 7 : 14 - i, 8, bit);
        fix(8, kSize - 15 + i, bit);
      }
    }
    fix(8, kSize - 8, true);
  }

  // In pairs of columns from the right, upwards and downwards in turn.
  void drawData(const Codewords& words) {
    std::size_t bit = 0;
    bool goes_up = true;
    for (int right = kSize - 1; right > 0; right -= 2, goes_up = !goes_up) {
      if (right == kTiming) --right;
      for (int i = 0; i < kSize; ++i) {
        const int y = goes_up ? kSize - 1 - i : i;
        for (const int x : {right, right - 1}) {
          if (at(x, y).is_fixed) continue;
          const bool is_set =
              bit < 8 * words.size() && ((words[bit / 8] >> (7 - bit % 8)) & 1) != 0;
          at(x, y).is_dark = is_set != ((x + y) % 2 == 0);
          ++bit;
        }
      }
    }
  }

  std::array<Module, std::size_t{kSize} * kSize> modules_{};
};

}  // namespace

std::string qrCode(std::string_view text) {
  const Grid grid(codewordsOf(text));
  std::string lines;
  for (int y = -kQuietZone; y < kSize + kQuietZone; y += 2) {
    for (int x = -kQuietZone; x < kSize + kQuietZone; ++x) {
      const bool lower_is_dark = grid.isDark(x, y + 1);
      lines += grid.isDark(x, y) ? (lower_is_dark ? " " : "▄") : (lower_is_dark ? "▀" : "█");
    }
    lines += '\n';
  }
  return lines;
}

}  // namespace vorlatch::cli
