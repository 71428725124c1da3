#include "base/xml_scanner.h"

#include <algorithm>

namespace vorlatch::plist {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kCommentStart = "<!--";
constexpr std::string_view kCommentEnd = "-->";
constexpr std::string_view kCDataStart = "<![CDATA[";
constexpr std::string_view kCDataEnd = "]]>";
constexpr std::string_view kInstructionStart = "<?";
constexpr std::string_view kInstructionEnd = "?>";

bool equalIgnoringCase(std::string_view a, std::string_view b) {
  const auto lower = [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [&lower](char x, char y) { return lower(x) == lower(y); });
}

bool isAscii(std::string_view bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](char c) { return (c & 0x80) == 0; });
}

// Returns true if an XML declaration names no encoding or UTF-8, or US-ASCII for ASCII bytes.
bool isUtf8Declaration(std::string_view declaration, bool is_ascii) {
  const std::size_t encoding = declaration.find("encoding");
  if (encoding == std::string_view::npos) return true;
  declaration.remove_prefix(encoding);
  const std::size_t open = declaration.find_first_of("\"'");
  if (open == std::string_view::npos) return false;
  const std::size_t close = declaration.find(declaration[open], open + 1);
  if (close == std::string_view::npos) return false;
  const std::string_view name = declaration.substr(open + 1, close - open - 1);
  return equalIgnoringCase(name, "UTF-8") || equalIgnoringCase(name, "UTF8") ||
         (is_ascii && equalIgnoringCase(name, "US-ASCII"));
}

}  // namespace

XmlScanner::XmlScanner(std::string_view bytes) : rest_(bytes) {
  if (rest_.starts_with(kByteOrderMark)) rest_.remove_prefix(kByteOrderMark.size());
  malformed_ = rest_.find('\0') != std::string_view::npos;
  is_ascii_ = isAscii(rest_);
}

XmlToken XmlScanner::next() {
  while (!malformed_ && !rest_.empty()) {
    if (rest_.front() != '<') return textUntilTag();
    if (rest_.starts_with(kCDataStart)) return characterData();
    if (rest_.starts_with(kCommentStart)) {
      if (!skipComment()) return malformed();
    } else if (rest_.starts_with(kInstructionStart)) {
      if (!skipInstruction()) return malformed();
    } else if (rest_.starts_with("<!")) {
      if (!skipDeclaration()) return malformed();
    } else {
      return tag();
    }
  }
  return malformed_ ? malformed() : XmlToken{XmlToken::Kind::End, {}};
}

XmlToken XmlScanner::malformed() {
  malformed_ = true;
  return {XmlToken::Kind::Malformed, {}};
}

XmlToken XmlScanner::textUntilTag() {
  const std::size_t length = std::min(rest_.find('<'), rest_.size());
  const XmlToken token{XmlToken::Kind::Text, rest_.substr(0, length)};
  rest_.remove_prefix(length);
  return token;
}

XmlToken XmlScanner::characterData() {
  const std::size_t end = rest_.find(kCDataEnd, kCDataStart.size());
  if (end == std::string_view::npos) return malformed();
  const XmlToken token{XmlToken::Kind::CData,
                       rest_.substr(kCDataStart.size(), end - kCDataStart.size())};
  rest_.remove_prefix(end + kCDataEnd.size());
  return token;
}

bool XmlScanner::skipComment() {
  const std::size_t end = rest_.find(kCommentEnd, kCommentStart.size());
  if (end == std::string_view::npos) return false;
  rest_.remove_prefix(end + kCommentEnd.size());
  return true;
}

bool XmlScanner::skipInstruction() {
  const std::size_t end = rest_.find(kInstructionEnd, kInstructionStart.size());
  if (end == std::string_view::npos) return false;
  const std::string_view instruction = rest_.substr(0, end);
  if (instruction.starts_with("<?xml") && !isUtf8Declaration(instruction, is_ascii_)) return false;
  rest_.remove_prefix(end + kInstructionEnd.size());
  return true;
}

bool XmlScanner::skipDeclaration() {
  const std::size_t end = tagEnd();
  if (end == std::string_view::npos) return false;
  if (rest_.substr(0, end).find('[') != std::string_view::npos) return false;
  rest_.remove_prefix(end + 1);
  return true;
}

// Returns the index of the > that ends the tag at the start, or npos. Some parsers end a tag at the
// first >, others skip a quoted >. Refuses quoted brackets, so that both find the same end.
std::size_t XmlScanner::tagEnd() const {
  std::size_t at = rest_.find_first_of("<>\"'", 1);
  while (at != std::string_view::npos && (rest_[at] == '"' || rest_[at] == '\'')) {
    const bool double_quoted = rest_[at] == '"';
    const std::size_t close = rest_.find_first_of(double_quoted ? "\"<>" : "'<>", at + 1);
    if (close == std::string_view::npos || rest_[close] != rest_[at]) return std::string_view::npos;
    at = rest_.find_first_of("<>\"'", close + 1);
  }
  return at == std::string_view::npos || rest_[at] == '<' ? std::string_view::npos : at;
}

XmlToken XmlScanner::tag() {
  const std::size_t end = tagEnd();
  if (end == std::string_view::npos) return malformed();
  std::string_view inside = rest_.substr(1, end - 1);
  XmlToken::Kind kind = XmlToken::Kind::Open;
  if (inside.starts_with('/')) {
    kind = XmlToken::Kind::Close;
    inside.remove_prefix(1);
  } else if (inside.ends_with('/')) {
    kind = XmlToken::Kind::Empty;
    inside.remove_suffix(1);
  }
  const std::string_view name = inside.substr(0, inside.find_first_of(kBlanks));
  if (name.empty()) return malformed();
  rest_.remove_prefix(end + 1);
  return {kind, name};
}

}  // namespace vorlatch::plist
