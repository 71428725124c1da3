#include "tests/blackbox/property_list_bytes.h"

#include <cstdint>

#include <gtest/gtest.h>
#include <plist/plist.h>

#include "platform/property_list.h"

namespace vorlatch {
namespace {

void appendBigEndian(std::string& bytes, std::uint64_t number, int size) {
  for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) {
    bytes += static_cast<char>(number >> static_cast<unsigned>(shift));
  }
}

}  // namespace

std::string binaryPropertyList(const plist::Value& value) {
  const std::string xml = platform::writeXmlPropertyList(value);
  plist_t node = nullptr;
  plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &node);
  char* bytes = nullptr;
  std::uint32_t length = 0;
  plist_to_bin(node, &bytes, &length);
  std::string binary(bytes, length);
  plist_to_bin_free(bytes);
  plist_free(node);
  EXPECT_TRUE(binary.starts_with("bplist00"));
  return binary;
}

std::string nestedXml(std::size_t depth) {
  std::string bytes = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n";
  for (std::size_t i = 0; i < depth; ++i) bytes += "<array>";
  for (std::size_t i = 0; i < depth; ++i) bytes += "</array>";
  return bytes + "\n</plist>\n";
}

std::string nestedBinary(std::size_t depth) {
  constexpr int kReferenceSize = 4;
  constexpr int kOffsetSize = 4;
  constexpr char kArrayOfOne = '\xa1';
  constexpr char kEmptyArray = '\xa0';
  std::string bytes = "bplist00";
  std::string offsets;
  for (std::size_t i = 0; i < depth; ++i) {
    appendBigEndian(offsets, bytes.size(), kOffsetSize);
    bytes += i + 1 < depth ? kArrayOfOne : kEmptyArray;
    if (i + 1 < depth) appendBigEndian(bytes, i + 1, kReferenceSize);
  }
  const std::size_t offset_table = bytes.size();
  bytes += offsets;
  bytes.append(6, '\0');
  bytes += static_cast<char>(kOffsetSize);
  bytes += static_cast<char>(kReferenceSize);
  appendBigEndian(bytes, depth, 8);
  appendBigEndian(bytes, 0, 8);
  appendBigEndian(bytes, offset_table, 8);
  return bytes;
}

}  // namespace vorlatch
