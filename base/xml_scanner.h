// Splits an XML property list into tokens. Portable. The code that bounds a list and the code that
// guards a parser share it, so that both see the same nesting.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vorlatch::plist {

struct XmlToken {
  enum class Kind : std::uint8_t {
    Text,       // text between tags, entities not yet replaced
    CData,      // text to be taken literally
    Open,       // <name ...>
    Close,      // </name>
    Empty,      // <name .../>
    End,        // the end of the bytes
    Malformed,  // the rest cannot be read reliably
  };
  Kind kind;
  std::string_view content;  // the tag's name, or the text; points into the scanned bytes
};

// Scans the bytes once, in linear time. Skips comments, processing instructions and the document
// type. Malformed includes everything that parsers could read as different structures: a NUL, an
// encoding other than UTF-8, angle brackets in an attribute, and a document type that contains
// declarations. After Malformed or End, next() keeps returning it.
class XmlScanner {
 public:
  // The bytes must outlive the scanner and its tokens.
  explicit XmlScanner(std::string_view bytes);

  XmlToken next();

 private:
  XmlToken malformed();
  XmlToken textUntilTag();
  XmlToken tag();
  XmlToken characterData();
  bool skipComment();
  bool skipInstruction();
  bool skipDeclaration();
  [[nodiscard]] std::size_t tagEnd() const;

  std::string_view rest_;
  bool is_ascii_ = false;
  bool malformed_ = false;
};

}  // namespace vorlatch::plist
