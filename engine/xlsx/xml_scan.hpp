// A forward-only XML reader for the large parts of a package (worksheets, shared strings).
// Building a tree of a million-cell sheet costs hundreds of bytes per cell; reading it token
// by token costs nothing beyond the text, and lets the loader remember where each element
// sits in the text, so that a save can splice new content between untouched bytes.
//
// The reader checks what matters for safety and meaning: tags nest, attributes are quoted,
// entities are the predefined ones or character references, nothing stands outside the root
// element, and no document type declaration appears. Errors name the part and the offset.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qz::engine::xlsx {

class XmlScanner {
 public:
  enum class Token { Start, End, Text, Eof };

  struct Attr {
    std::string_view name;   ///< qualified name
    std::string_view value;  ///< raw, entities not yet decoded
  };

  /// `where` names the part in errors ("cannot open 'a.xlsx': part 'xl/...'").
  XmlScanner(std::string_view text, std::string where);

  /// The next token. An empty element `<a/>` yields Start (with `self_closing()`) and then
  /// End. Comments, processing instructions and the XML declaration are skipped.
  Token next();

  /// Qualified and local name of the current Start or End tag.
  std::string_view name() const { return name_; }
  std::string_view local() const;
  bool self_closing() const { return self_closing_; }
  /// Attributes of the current Start tag.
  const std::vector<Attr>& attrs() const { return attrs_; }
  /// The raw value of the attribute whose local name (or qualified name, if it has a
  /// prefix) is `name`; `found` says whether it was there.
  std::string_view attr(std::string_view name, bool* found = nullptr) const;
  /// The decoded value of an attribute ("" when absent).
  std::string attr_text(std::string_view name) const;
  /// Text of the current Text token, entities decoded (CDATA taken as is).
  std::string text() const;
  /// Raw text of the current Text token.
  std::string_view raw_text() const { return raw_; }

  /// Byte offset where the current token begins and just past where it ends.
  size_t begin() const { return begin_; }
  size_t end() const { return pos_; }
  /// Nesting depth: the root element's Start and End are at depth 1.
  size_t depth() const { return depth_; }

  /// The text not read yet, and a way past what a caller read from it itself: only whole
  /// elements may be skipped that way, so that the nesting stays as it was.
  std::string_view remaining() const { return text_.substr(pos_); }
  void skip_bytes(size_t n) {
    pos_ += n;
    begin_ = pos_;
  }

  /// After a Start: skips to its matching End (which becomes the current token).
  void skip_element();
  /// After a Start: the decoded text of all text inside it, up to its matching End.
  std::string element_text();

  [[noreturn]] void fail(const std::string& problem) const;
  /// Well-formed XML that means nothing valid (a row numbered 0, a cell outside its row).
  [[noreturn]] void invalid(const std::string& problem) const;

  /// Decodes the predefined entities and character references of raw text; raises through
  /// `fail` on an unknown entity.
  void decode(std::string_view raw, std::string& out) const;

 private:
  void scan_tag();
  void skip_misc();

  std::string_view text_;
  std::string where_;
  size_t pos_ = 0;
  size_t begin_ = 0;
  size_t depth_ = 0;
  bool seen_root_ = false;
  bool pending_end_ = false;
  bool pop_pending_ = false;
  bool self_closing_ = false;
  bool cdata_ = false;
  std::string_view name_;
  std::string_view raw_;
  std::vector<Attr> attrs_;
  std::vector<std::string_view> open_;
};

/// Decodes the `_xHHHH_` escapes the format uses for characters XML cannot carry (a literal
/// "_x" sequence is itself escaped as "_x005F_").
std::u16string decode_escapes(std::u16string s);
/// The reverse: escapes control characters and literal `_xHHHH_` sequences.
std::u16string encode_escapes(std::u16string_view s);

/// Appends text escaped for element content or an attribute value.
void append_escaped(std::string& out, std::string_view text, bool attribute);

}  // namespace qz::engine::xlsx
