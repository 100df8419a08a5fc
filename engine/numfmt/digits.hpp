// Decimal digits of a number at the application's 15-digit precision, with decimal
// rounding. Rounding the decimal digits rather than the binary Double is what makes 2.675
// show as 2.68 at two decimals, as it does in the application.
#pragma once

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace qz::engine::numfmt {

/// A non-negative number as decimal digits: value = 0.d1d2d3... x 10^exp. No trailing zeros;
/// zero is no digits.
struct Digits {
  std::string d;
  int exp = 0;

  static Digits of(double v, int significant = 15) {
    Digits x;
    // A percent format can scale the largest Double past infinity; such a value has no
    // digits to show, and printf would spell it without an exponent.
    if (!(v > 0) || !std::isfinite(v)) return x;
    char buf[48];
    std::snprintf(buf, sizeof buf, "%.*e", significant - 1, v);
    std::string s(buf);
    size_t e = s.find('e');
    if (e == std::string::npos) return x;
    x.exp = std::atoi(s.c_str() + e + 1) + 1;
    for (size_t i = 0; i < e; ++i)
      if (s[i] >= '0' && s[i] <= '9') x.d.push_back(s[i]);
    x.trim();
    return x;
  }

  void trim() {
    while (!d.empty() && d.back() == '0') d.pop_back();
    if (d.empty()) exp = 0;
  }
  bool zero() const { return d.empty(); }

  /// Rounds half up to `decimals` digits after the decimal point.
  void round_decimals(int decimals) { round_keep(exp + decimals); }
  /// Rounds half up to `n` significant digits.
  void round_significant(int n) { round_keep(n); }

  /// The digits before the decimal point ("" for values below 1).
  std::string integer_part() const {
    if (exp <= 0) return std::string();
    std::string out = d.substr(0, std::min<size_t>(d.size(), exp));
    out.append(exp > static_cast<int>(d.size()) ? exp - d.size() : 0, '0');
    return out;
  }
  /// The k-th digit after the decimal point (0-based).
  char fraction_digit(int k) const {
    int index = exp + k;
    if (index < 0 || index >= static_cast<int>(d.size())) return '0';
    return d[index];
  }

 private:
  void round_keep(int keep) {
    if (keep >= static_cast<int>(d.size())) return;
    if (keep < 0) {
      d.clear();
      exp = 0;
      return;
    }
    bool up = d[keep] >= '5';
    d.resize(keep);
    if (up) {
      int i = keep - 1;
      while (i >= 0 && d[i] == '9') d[i--] = '0';
      if (i >= 0) {
        ++d[i];
      } else {
        d.insert(d.begin(), '1');
        ++exp;
      }
    }
    trim();
  }
};

}  // namespace qz::engine::numfmt
