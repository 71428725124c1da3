// The QR code of an address, read by a library that reads pictures.
#include "cli/qr_code.h"

#include <zbar.h>

#include <gtest/gtest.h>

#include "control/access_key.h"
#include "tests/support/text.h"

namespace vorlatch::tests {
namespace {

constexpr unsigned kPixels = 4;  // a module's, in each direction

// The printed code as a picture with light blocks and dark blanks.
struct Picture {
  unsigned width = 0;
  unsigned height = 0;
  std::string pixels = {};
};

void addRow(Picture& picture, const std::vector<bool>& light) {
  for (unsigned i = 0; i < kPixels; ++i) {
    for (const bool is_light : light) picture.pixels.append(kPixels, is_light ? '\xff' : '\0');
  }
  picture.width = static_cast<unsigned>(light.size()) * kPixels;
  picture.height += kPixels;
}

Picture pictureOf(const std::string& code) {
  Picture picture;
  std::vector<bool> upper;
  std::vector<bool> lower;
  for (std::size_t i = 0; i < code.size();) {
    if (code[i] == '\n') {
      addRow(picture, upper);
      addRow(picture, lower);
      upper.clear();
      lower.clear();
      ++i;
      continue;
    }
    const std::string block = code.substr(i, code[i] == ' ' ? 1 : 3);
    upper.push_back(block == "█" || block == "▀");
    lower.push_back(block == "█" || block == "▄");
    i += block.size();
  }
  return picture;
}

std::string readByCamera(const std::string& code) {
  const Picture picture = pictureOf(code);
  zbar::Image image(picture.width, picture.height, "Y800", picture.pixels.data(),
                    picture.pixels.size());
  zbar::ImageScanner scanner;
  scanner.scan(image);
  std::string read;
  for (auto symbol = image.symbol_begin(); symbol != image.symbol_end(); ++symbol) {
    read += symbol->get_type_name() + ": " + symbol->get_data() + "\n";
  }
  return read;
}

TEST(QrCode, IsReadByACamera) {
  for (int i = 0; i < 100; ++i) {
    const std::string address = "http://127.0.0.1:8717/#key=" + control::newSecret();
    EXPECT_EQ(readByCamera(cli::qrCode(address)), "QR-Code: " + address + "\n");
  }
}

TEST(QrCode, HasRoomForEveryTextThatItTakes) {
  for (const std::size_t size : {std::size_t{1}, std::size_t{31}, cli::kQrTextBytesMax}) {
    const std::string text(size, 'k');
    EXPECT_EQ(readByCamera(cli::qrCode(text)), "QR-Code: " + text + "\n") << size;
  }
}

TEST(QrCode, IsAsWideAsItSays) {
  const std::string code = cli::qrCode("x");
  const std::string line = code.substr(0, code.find('\n'));
  EXPECT_EQ(line.size(), 3 * cli::kQrColumns);
  EXPECT_EQ(std::count(code.begin(), code.end(), '\n'), 21);
}

}  // namespace
}  // namespace vorlatch::tests
