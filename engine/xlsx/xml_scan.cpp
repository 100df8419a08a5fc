#include "engine/xlsx/xml_scan.hpp"

#include <cstring>

#include "qzxl/error.hpp"

namespace qz::engine::xlsx {

namespace {

bool blank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

void put_utf8(std::string& out, uint32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

}  // namespace

XmlScanner::XmlScanner(std::string_view text, std::string where)
    : text_(text), where_(std::move(where)) {
  if (text_.substr(0, 3) == "\xEF\xBB\xBF") pos_ = 3;
  attrs_.reserve(8);
}

void XmlScanner::fail(const std::string& problem) const {
  throw Error(err::host_failure, where_ + " is not well-formed XML (" + problem + " at byte " +
                                     std::to_string(begin_) + ")");
}

void XmlScanner::invalid(const std::string& problem) const {
  throw Error(err::host_failure,
              where_ + " is invalid (" + problem + " at byte " + std::to_string(begin_) + ")");
}

std::string_view XmlScanner::local() const {
  size_t colon = name_.find(':');
  return colon == std::string_view::npos ? name_ : name_.substr(colon + 1);
}

std::string_view XmlScanner::attr(std::string_view name, bool* found) const {
  bool qualified = name.find(':') != std::string_view::npos;
  for (const Attr& a : attrs_) {
    std::string_view n = a.name;
    if (!qualified) {
      size_t colon = n.find(':');
      // Unprefixed attributes belong to no namespace; a prefixed one only matches when the
      // caller asked for it by its prefix ("r:id").
      if (colon != std::string_view::npos) continue;
    }
    if (n == name) {
      if (found) *found = true;
      return a.value;
    }
  }
  if (found) *found = false;
  return {};
}

std::string XmlScanner::attr_text(std::string_view name) const {
  std::string out;
  decode(attr(name), out);
  for (char& c : out)
    if (c == '\t' || c == '\n' || c == '\r') c = ' ';
  return out;
}

std::string XmlScanner::text() const {
  if (cdata_) return std::string(raw_);
  std::string out;
  decode(raw_, out);
  return out;
}

void XmlScanner::decode(std::string_view raw, std::string& out) const {
  size_t amp = raw.find('&');
  size_t cr = raw.find('\r');
  if (amp == std::string_view::npos && cr == std::string_view::npos) {
    out.append(raw);
    return;
  }
  out.reserve(out.size() + raw.size());
  for (size_t i = 0; i < raw.size(); ++i) {
    char c = raw[i];
    if (c == '\r') {
      // Line ends are normalised to a line feed, as every XML reader does.
      out += '\n';
      if (i + 1 < raw.size() && raw[i + 1] == '\n') ++i;
      continue;
    }
    if (c != '&') {
      out += c;
      continue;
    }
    size_t semi = raw.find(';', i);
    if (semi == std::string_view::npos || semi - i > 12) fail("an unterminated entity reference");
    std::string_view ent = raw.substr(i + 1, semi - i - 1);
    if (ent == "lt")
      out += '<';
    else if (ent == "gt")
      out += '>';
    else if (ent == "amp")
      out += '&';
    else if (ent == "quot")
      out += '"';
    else if (ent == "apos")
      out += '\'';
    else if (ent.size() > 1 && ent[0] == '#') {
      uint32_t cp = 0;
      bool hex = ent[1] == 'x';
      std::string_view digits = ent.substr(hex ? 2 : 1);
      if (digits.empty()) fail("an empty character reference");
      for (char d : digits) {
        int v;
        if (d >= '0' && d <= '9')
          v = d - '0';
        else if (hex && d >= 'a' && d <= 'f')
          v = d - 'a' + 10;
        else if (hex && d >= 'A' && d <= 'F')
          v = d - 'A' + 10;
        else
          fail("a bad character reference");
        cp = cp * (hex ? 16 : 10) + static_cast<uint32_t>(v);
        if (cp > 0x10FFFF) fail("a character reference out of range");
      }
      if (cp == 0 || (cp >= 0xD800 && cp <= 0xDFFF)) fail("a character reference to no character");
      put_utf8(out, cp);
    } else {
      fail("the undefined entity '&" + std::string(ent) + ";'");
    }
    i = semi;
  }
}

void XmlScanner::scan_tag() {
  // At '<' of a start tag.
  size_t p = pos_ + 1;
  size_t n = text_.size();
  size_t s = p;
  while (p < n && !blank(text_[p]) && text_[p] != '/' && text_[p] != '>') ++p;
  name_ = text_.substr(s, p - s);
  if (name_.empty()) fail("a tag without a name");
  attrs_.clear();
  self_closing_ = false;
  for (;;) {
    while (p < n && blank(text_[p])) ++p;
    if (p >= n) fail("a tag that never closes");
    char c = text_[p];
    if (c == '>') {
      ++p;
      break;
    }
    if (c == '/') {
      if (p + 1 >= n || text_[p + 1] != '>') fail("a stray '/' in a tag");
      self_closing_ = true;
      p += 2;
      break;
    }
    size_t a = p;
    while (p < n && !blank(text_[p]) && text_[p] != '=' && text_[p] != '>' && text_[p] != '/') ++p;
    std::string_view an = text_.substr(a, p - a);
    while (p < n && blank(text_[p])) ++p;
    if (p >= n || text_[p] != '=' || an.empty()) fail("an attribute without a value");
    ++p;
    while (p < n && blank(text_[p])) ++p;
    if (p >= n || (text_[p] != '"' && text_[p] != '\'')) fail("an unquoted attribute value");
    char q = text_[p++];
    size_t v = p;
    const void* e = std::memchr(text_.data() + p, q, n - p);
    if (!e) fail("an attribute value that never ends");
    p = static_cast<size_t>(static_cast<const char*>(e) - text_.data());
    std::string_view value = text_.substr(v, p - v);
    if (value.find('<') != std::string_view::npos) fail("a '<' in an attribute value");
    attrs_.push_back({an, value});
    ++p;
  }
  pos_ = p;
}

XmlScanner::Token XmlScanner::next() {
  // An End reports the depth of its Start; the element is left on the call after it.
  if (pop_pending_) {
    --depth_;
    pop_pending_ = false;
  }
  if (pending_end_) {
    pending_end_ = false;
    pop_pending_ = true;
    return Token::End;
  }
  const size_t n = text_.size();
  cdata_ = false;
  for (;;) {
    begin_ = pos_;
    if (pos_ >= n) {
      if (!open_.empty()) fail("the part ends inside <" + std::string(open_.back()) + ">");
      if (!seen_root_) fail("no root element");
      depth_ = 0;
      return Token::Eof;
    }
    if (text_[pos_] != '<') {
      const void* lt = std::memchr(text_.data() + pos_, '<', n - pos_);
      size_t end = lt ? static_cast<size_t>(static_cast<const char*>(lt) - text_.data()) : n;
      raw_ = text_.substr(pos_, end - pos_);
      pos_ = end;
      if (open_.empty()) {
        for (char c : raw_)
          if (!blank(c) && c != '\0')
            fail(seen_root_ ? "text after the root element" : "text before the root element");
        continue;
      }
      return Token::Text;
    }
    std::string_view rest = text_.substr(pos_);
    if (rest.substr(0, 2) == "<?") {
      size_t end = text_.find("?>", pos_ + 2);
      if (end == std::string_view::npos) fail("a processing instruction that never ends");
      pos_ = end + 2;
      continue;
    }
    if (rest.substr(0, 4) == "<!--") {
      size_t end = text_.find("-->", pos_ + 4);
      if (end == std::string_view::npos) fail("a comment that never ends");
      pos_ = end + 3;
      continue;
    }
    if (rest.substr(0, 9) == "<![CDATA[") {
      if (open_.empty()) fail("a CDATA section outside the root element");
      size_t end = text_.find("]]>", pos_ + 9);
      if (end == std::string_view::npos) fail("a CDATA section that never ends");
      raw_ = text_.substr(pos_ + 9, end - pos_ - 9);
      pos_ = end + 3;
      cdata_ = true;
      return Token::Text;
    }
    if (rest.substr(0, 2) == "<!")
      throw Error(err::host_failure,
                  where_ +
                      " has a document type declaration, which no workbook part has "
                      "(refused: entity definitions are how XML bombs grow)");
    if (rest.substr(0, 2) == "</") {
      size_t close = text_.find('>', pos_ + 2);
      if (close == std::string_view::npos) fail("an end tag that never closes");
      std::string_view nm = text_.substr(pos_ + 2, close - pos_ - 2);
      while (!nm.empty() && blank(nm.back())) nm.remove_suffix(1);
      if (open_.empty()) fail("an end tag </" + std::string(nm) + "> without a start");
      if (nm != open_.back())
        fail("</" + std::string(nm) + "> closing <" + std::string(open_.back()) + ">");
      name_ = open_.back();
      open_.pop_back();
      pos_ = close + 1;
      pop_pending_ = true;
      return Token::End;
    }
    if (open_.empty() && seen_root_) fail("more than one root element");
    scan_tag();
    seen_root_ = true;
    ++depth_;
    if (self_closing_)
      pending_end_ = true;
    else
      open_.push_back(name_);
    return Token::Start;
  }
}

void XmlScanner::skip_element() {
  if (self_closing_) {
    next();
    return;
  }
  size_t d = depth_;
  for (;;) {
    Token t = next();
    if (t == Token::End && depth_ == d) return;
    if (t == Token::Eof) fail("the part ends inside an element");
  }
}

std::string XmlScanner::element_text() {
  std::string out;
  if (self_closing_) {
    next();
    return out;
  }
  size_t d = depth_;
  for (;;) {
    Token t = next();
    if (t == Token::Text) {
      if (cdata_)
        out.append(raw_);
      else
        decode(raw_, out);
    } else if (t == Token::End && depth_ == d) {
      return out;
    } else if (t == Token::Eof) {
      fail("the part ends inside an element");
    }
  }
}

std::u16string decode_escapes(std::u16string s) {
  size_t at = s.find(u"_x");
  if (at == std::u16string::npos) return s;
  std::u16string out;
  out.reserve(s.size());
  size_t i = 0;
  auto hexv = [](char16_t c) -> int {
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    return -1;
  };
  while (i < s.size()) {
    if (s[i] == u'_' && i + 6 < s.size() && s[i + 1] == u'x' && s[i + 6] == u'_') {
      int v = 0;
      bool ok = true;
      for (size_t k = 2; k < 6; ++k) {
        int h = hexv(s[i + k]);
        if (h < 0) {
          ok = false;
          break;
        }
        v = v * 16 + h;
      }
      if (ok) {
        out += static_cast<char16_t>(v);
        i += 7;
        continue;
      }
    }
    out += s[i++];
  }
  return out;
}

std::u16string encode_escapes(std::u16string_view s) {
  auto needs = [&](size_t i) {
    char16_t c = s[i];
    if (c < 0x20 && c != u'\t' && c != u'\n' && c != u'\r') return true;
    if (c == 0xFFFE || c == 0xFFFF) return true;
    // A literal "_xHHHH_" would read back as an escape; escape its underscore.
    if (c == u'_' && i + 6 < s.size() && s[i + 1] == u'x' && s[i + 6] == u'_') {
      for (size_t k = 2; k < 6; ++k) {
        char16_t h = s[i + k];
        if (!((h >= u'0' && h <= u'9') || (h >= u'a' && h <= u'f') || (h >= u'A' && h <= u'F')))
          return false;
      }
      return true;
    }
    return false;
  };
  std::u16string out;
  out.reserve(s.size());
  static const char16_t hex[] = u"0123456789ABCDEF";
  for (size_t i = 0; i < s.size(); ++i) {
    if (!needs(i)) {
      out += s[i];
      continue;
    }
    char16_t c = s[i];
    out += u"_x";
    out += hex[(c >> 12) & 15];
    out += hex[(c >> 8) & 15];
    out += hex[(c >> 4) & 15];
    out += hex[c & 15];
    out += u'_';
  }
  return out;
}

void append_escaped(std::string& out, std::string_view text, bool attribute) {
  size_t start = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    const char* rep = nullptr;
    switch (text[i]) {
      case '&':
        rep = "&amp;";
        break;
      case '<':
        rep = "&lt;";
        break;
      case '>':
        rep = "&gt;";
        break;
      case '"':
        rep = attribute ? "&quot;" : nullptr;
        break;
      case '\r':
        rep = "&#13;";
        break;
      case '\n':
        rep = attribute ? "&#10;" : nullptr;
        break;
      case '\t':
        rep = attribute ? "&#9;" : nullptr;
        break;
      default:
        break;
    }
    if (!rep) continue;
    out.append(text.data() + start, i - start);
    out += rep;
    start = i + 1;
  }
  out.append(text.data() + start, text.size() - start);
}

}  // namespace qz::engine::xlsx
