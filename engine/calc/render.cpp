// Rendering a parsed formula back to text, in A1 or R1C1, at any cell.
#include <string>

#include "engine/calc/formula.hpp"
#include "qzxl/convert.hpp"
#include "vocab/columns.hpp"

namespace qz::engine::calc {
namespace {

bool is_letter(char16_t c) {
  return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || (c >= 0x80 && c != 0xA0);
}
bool is_digit(char16_t c) {
  return c >= u'0' && c <= u'9';
}

/// Whether the whole text reads as an A1 cell ("AB12") or an R1C1 term ("R", "C3", "R1C1"),
/// which a sheet name must not be mistaken for.
bool looks_like_reference(StringView s) {
  auto upper = [](char16_t c) { return (c >= u'a' && c <= u'z') ? char16_t(c - 32) : c; };
  size_t i = 0;
  int64_t col = 0;
  while (i < s.size() && i < 4 && upper(s[i]) >= u'A' && upper(s[i]) <= u'Z')
    col = col * 26 + (upper(s[i++]) - u'A' + 1);
  if (i > 0 && i <= 3 && col <= kMaxCols && i < s.size()) {
    int64_t row = 0;
    size_t j = i;
    while (j < s.size() && is_digit(s[j]) && j - i < 8) row = row * 10 + (s[j++] - u'0');
    if (j == s.size() && row >= 1 && row <= kMaxRows) return true;
  }
  // R1C1 forms: R, C, RC, R12, C7, R1C1.
  i = 0;
  auto part = [&](char16_t letter, int64_t limit) {
    if (i < s.size() && upper(s[i]) == letter) {
      ++i;
      int64_t v = 0;
      size_t start = i;
      while (i < s.size() && is_digit(s[i]) && i - start < 8) v = v * 10 + (s[i++] - u'0');
      return i == start || (v >= 1 && v <= limit);
    }
    return false;
  };
  bool r = part(u'R', kMaxRows);
  bool ok = true;
  if (i < s.size()) ok = part(u'C', kMaxCols);
  return r && ok && i == s.size() ? true : (!r && (i = 0, part(u'C', kMaxCols)) && i == s.size());
}

void append_number(String& out, int64_t v) {
  out += u16(std::to_string(v));
}

}  // namespace

bool sheet_name_needs_quotes(StringView name) {
  if (name.empty()) return true;
  if (is_digit(name[0]) || name[0] == u'.') return true;
  for (char16_t c : name) {
    if (!(is_letter(c) || is_digit(c) || c == u'_' || c == u'.')) return true;
  }
  return looks_like_reference(name);
}

String column_letters(int32_t col) {
  return qz::column_letters(col);
}

namespace {

class Renderer {
 public:
  Renderer(const Formula& f, Notation notation, CellRef origin, const SheetResolver& sheets,
           const StructuredSpelling* structured = nullptr)
      : f_(f), notation_(notation), origin_(origin), sheets_(sheets), structured_(structured) {}

  String run() {
    std::vector<String> stack;
    std::vector<String> args;
    for (uint32_t i = 0; i < f_.nodes.size(); ++i) {
      const Node& n = f_.nodes[i];
      args.clear();
      for (int k = 0; k < n.nargs; ++k) args.push_back(String());
      for (int k = n.nargs - 1; k >= 0; --k) {
        args[k] = std::move(stack.back());
        stack.pop_back();
      }
      stack.push_back(node(n, args));
    }
    String out = stack.empty() ? String() : std::move(stack.back());
    out += f_.text(f_.trailing_ws);
    return out;
  }

 private:
  const Formula& f_;
  Notation notation_;
  CellRef origin_;
  const SheetResolver& sheets_;
  const StructuredSpelling* structured_;

  String node(const Node& n, std::vector<String>& args) {
    String out = f_.text(n.ws);
    switch (n.kind) {
      case NodeKind::Number:
        out += n.str ? f_.text(n.str) : canonical_number(n.number);
        break;
      case NodeKind::Text: {
        out += u'"';
        for (char16_t c : f_.text(n.str)) {
          if (c == u'"') out += u'"';
          out += c;
        }
        out += u'"';
        break;
      }
      case NodeKind::Boolean:
        out += n.number != 0 ? u"TRUE" : u"FALSE";
        break;
      case NodeKind::Error:
        out += error_text(static_cast<int32_t>(n.number));
        break;
      case NodeKind::Ref:
        out += reference(f_.refs[n.ref]);
        break;
      case NodeKind::Name:
        if (n.ref != kNoRef) out += prefix(f_.refs[n.ref]);
        out += f_.text(n.str);
        break;
      case NodeKind::Opaque:
        out += structured_ && *structured_ ? (*structured_)(f_.text(n.str)) : f_.text(n.str);
        break;
      case NodeKind::Missing:
        break;
      case NodeKind::Func: {
        // Files carry the prefixes of newer functions, however the formula was typed.
        out += structured_ ? function_file_name(f_.text(n.str)) : f_.text(n.str);
        out += u'(';
        for (int k = 0; k < n.nargs; ++k) {
          out += args[k];
          out += f_.ws2(n, k);
          out += k + 1 < n.nargs ? u',' : u')';
        }
        if (n.nargs == 0) {
          out += f_.ws2(n, 0);
          out += u')';
        }
        break;
      }
      case NodeKind::Invoke:
        out = args[0] + u'(';
        for (int k = 1; k < n.nargs; ++k) {
          out += args[k];
          out += f_.ws2(n, k - 1);
          out += k + 1 < n.nargs ? u',' : u')';
        }
        if (n.nargs == 1) {
          out += f_.ws2(n, 0);
          out += u')';
        }
        break;
      case NodeKind::Paren:
        out += u'(';
        out += args[0];
        out += f_.ws2(n, 0);
        out += u')';
        break;
      case NodeKind::Array: {
        out += u'{';
        for (int k = 0; k < n.nargs; ++k) {
          out += args[k];
          out += f_.ws2(n, k);
          if (k + 1 == n.nargs)
            out += u'}';
          else
            out += (k + 1) % n.cols == 0 ? u';' : u',';
        }
        break;
      }
      case NodeKind::Unary:
        // Files spell "@" as a function older versions can read as unknown.
        if (n.op == Op::At && structured_) {
          out += u"_xlfn.SINGLE(" + args[0] + u")";
          break;
        }
        out += n.op == Op::Neg ? u"-" : n.op == Op::Plus ? u"+" : u"@";
        out += args[0];
        break;
      case NodeKind::Percent:
        out = args[0] + f_.text(n.ws) + u"%";
        break;
      case NodeKind::Spill:
        out = structured_ ? u"_xlfn.ANCHORARRAY(" + args[0] + u")" : args[0] + u"#";
        break;
      case NodeKind::Binary:
        out = args[0];
        if (n.op == Op::Intersect) {
          out += f_.text(n.str);
        } else {
          out += f_.text(n.ws);
          out += operator_text(n.op);
        }
        out += args[1];
        break;
    }
    return out;
  }

  static StringView operator_text(Op op) {
    switch (op) {
      case Op::Add:
        return u"+";
      case Op::Sub:
        return u"-";
      case Op::Mul:
        return u"*";
      case Op::Div:
        return u"/";
      case Op::Pow:
        return u"^";
      case Op::Concat:
        return u"&";
      case Op::Eq:
        return u"=";
      case Op::Ne:
        return u"<>";
      case Op::Lt:
        return u"<";
      case Op::Le:
        return u"<=";
      case Op::Gt:
        return u">";
      case Op::Ge:
        return u">=";
      case Op::Range:
        return u":";
      case Op::Union:
        return u",";
      default:
        return u"";
    }
  }

  String prefix(const RefInfo& r) {
    if (r.sheet_deleted) return u"#REF!";
    if (r.external) return f_.text(r.external) + u"!";
    if (!r.has_sheet || r.sheet == kNoSheet) return String();
    String n1 = sheets_.sheet_name(r.sheet);
    if (n1.empty()) return u"#REF!";
    String names = n1;
    bool quote = r.quoted || sheet_name_needs_quotes(n1);
    if (r.sheet2 != kNoSheet) {
      String n2 = sheets_.sheet_name(r.sheet2);
      if (n2.empty()) return u"#REF!";
      quote = quote || sheet_name_needs_quotes(n2);
      names += u':';
      names += n2;
    }
    if (!quote) return names + u"!";
    String out = u"'";
    for (char16_t c : names) {
      if (c == u'\'') out += u'\'';
      out += c;
    }
    return out + u"'!";
  }

  bool row_of(const RefPart& p, int32_t& row) const {
    row = p.row_abs ? p.row : p.row + origin_.row;
    return row >= 0 && row < kMaxRows;
  }
  bool col_of(const RefPart& p, int32_t& col) const {
    col = p.col_abs ? p.col : p.col + origin_.col;
    return col >= 0 && col < kMaxCols;
  }

  bool a1_row(String& out, const RefPart& p) const {
    int32_t row = 0;
    if (!row_of(p, row)) return false;
    if (p.row_abs) out += u'$';
    append_number(out, row + 1);
    return true;
  }
  bool a1_col(String& out, const RefPart& p) const {
    int32_t col = 0;
    if (!col_of(p, col)) return false;
    if (p.col_abs) out += u'$';
    out += column_letters(col);
    return true;
  }
  bool r1c1_row(String& out, const RefPart& p) const {
    int32_t row = 0;
    if (!row_of(p, row)) return false;
    out += u'R';
    if (p.row_abs) {
      append_number(out, p.row + 1);
    } else if (p.row != 0) {
      out += u'[';
      append_number(out, p.row);
      out += u']';
    }
    return true;
  }
  bool r1c1_col(String& out, const RefPart& p) const {
    int32_t col = 0;
    if (!col_of(p, col)) return false;
    out += u'C';
    if (p.col_abs) {
      append_number(out, p.col + 1);
    } else if (p.col != 0) {
      out += u'[';
      append_number(out, p.col);
      out += u']';
    }
    return true;
  }

  String reference(const RefInfo& r) {
    String out = prefix(r);
    if (r.deleted) return out + u"#REF!";
    String body;
    bool ok = true;
    if (notation_ == Notation::A1) {
      switch (r.kind) {
        case RefKind::Cell:
          ok = a1_col(body, r.a) && a1_row(body, r.a);
          break;
        case RefKind::Area:
          ok = a1_col(body, r.a) && a1_row(body, r.a);
          body += u':';
          ok = ok && a1_col(body, r.b) && a1_row(body, r.b);
          break;
        case RefKind::Cols:
          ok = a1_col(body, r.a);
          body += u':';
          ok = ok && a1_col(body, r.b);
          break;
        case RefKind::Rows:
          ok = a1_row(body, r.a);
          body += u':';
          ok = ok && a1_row(body, r.b);
          break;
      }
    } else {
      switch (r.kind) {
        case RefKind::Cell:
          ok = r1c1_row(body, r.a) && r1c1_col(body, r.a);
          break;
        case RefKind::Area:
          ok = r1c1_row(body, r.a) && r1c1_col(body, r.a);
          body += u':';
          ok = ok && r1c1_row(body, r.b) && r1c1_col(body, r.b);
          break;
        case RefKind::Cols:
          ok = r1c1_col(body, r.a);
          if (!(r.a == r.b)) {
            body += u':';
            ok = ok && r1c1_col(body, r.b);
          }
          break;
        case RefKind::Rows:
          ok = r1c1_row(body, r.a);
          if (!(r.a == r.b)) {
            body += u':';
            ok = ok && r1c1_row(body, r.b);
          }
          break;
      }
    }
    // A relative reference carried off the grid (a copy too far up or left) is lost.
    return out + (ok ? body : String(u"#REF!"));
  }
};

}  // namespace

String render(const Formula& f, Notation notation, CellRef origin, SheetId home,
              const SheetResolver& sheets) {
  return Renderer(f, notation, origin, sheets).run();
}

String render(const Formula& f, CellRef origin, SheetId home, const SheetResolver& sheets,
              const StructuredSpelling& structured) {
  return Renderer(f, Notation::A1, origin, sheets, &structured).run();
}

}  // namespace qz::engine::calc
