// The tokens of an XML property list. Portable: it tells what stands in the bytes for whoever
// bounds them and for whoever reads them, so that both see the same nesting.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vorlatch::plist {

struct XmlToken {
  enum class Kind : std::uint8_t {
    Text,       // between tags, entities not yet replaced
    CData,      // taken literally
    Open,       // <name ...>
    Close,      // </name>
    Empty,      // <name .../>
    End,        // of the bytes
    Malformed,  // what follows cannot be told
  };
  Kind kind;
  std::string_view content;  // a tag's name, or the text; part of the bytes scanned
};

// Goes through the bytes once, in linear time. Comments, processing instructions and the document
// type are passed over. Malformed is also everything that parsers could take for different
// structures: a NUL, an encoding other than UTF-8, angle brackets in an attribute, and a document
// type with declarations of its own. Once malformed or at the end, it stays there.
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
