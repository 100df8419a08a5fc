// Engineering: numbers in other bases, bit operations, complex numbers held as text
// ("3+4i"), Bessel functions, the error function, unit conversion, DELTA and GESTEP.
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>

#include "engine/calc/fn_util.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::calc {
namespace {

using namespace fn;
using Complex = std::complex<double>;

// ---- bases --------------------------------------------------------------------------------

/// The text a base-conversion function reads: typed numbers as they show ("1100"),
/// Booleans refused.
String digits_arg(Args& a, size_t i) {
  Value v = scalar(a, i);
  if (v.is_error()) raise(v.error_code());
  if (v.kind == Value::Kind::Boolean) raise(cell_error::value);
  return Evaluator::to_text(v);
}

int digit_value(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'A' && c <= u'Z') return c - u'A' + 10;
  if (c >= u'a' && c <= u'z') return c - u'a' + 10;
  return 99;
}

/// Reads up to ten digits of `base` (2, 8 or 16); ten digits with the top bit set are a
/// negative number in two's complement over 10 digits.
int64_t from_base(const String& s, int base) {
  if (s.size() > 10) raise(cell_error::num);
  int64_t v = 0;
  for (char16_t c : s) {
    int d = digit_value(c);
    if (d >= base) raise(cell_error::num);
    v = v * base + d;
  }
  int bits = base == 2 ? 10 : base == 8 ? 30 : 40;
  int64_t span = int64_t{1} << bits;
  if (s.size() == 10 && v >= span / 2) v -= span;
  return v;
}

/// Writes a whole number in `base`: negatives as ten digits of two's complement (the places
/// are then ignored); positives padded with zeros to `places` when given.
Operand to_base(Args& a, int64_t v, int base, size_t places_arg, int64_t lo, int64_t hi) {
  if (v < lo || v > hi) return error(cell_error::num);
  int bits = base == 2 ? 10 : base == 8 ? 30 : 40;
  bool negative = v < 0;
  uint64_t u =
      negative ? static_cast<uint64_t>(v + (int64_t{1} << bits)) : static_cast<uint64_t>(v);
  String out;
  do {
    int d = static_cast<int>(u % base);
    out.insert(out.begin(), static_cast<char16_t>(d < 10 ? u'0' + d : u'A' + d - 10));
    u /= base;
  } while (u > 0);
  if (negative) {
    while (out.size() < 10) out.insert(out.begin(), base == 2 ? u'1' : base == 8 ? u'7' : u'F');
    return text(out);
  }
  if (places_arg < a.size() && !a.missing(places_arg)) {
    double places = integer(a, places_arg);
    if (places <= 0 || places > 10 || static_cast<size_t>(places) < out.size())
      return error(cell_error::num);
    out.insert(out.begin(), static_cast<size_t>(places) - out.size(), u'0');
  }
  return text(out);
}

template <int From, int To>
Operand f_base_to_base(Args& a) {
  int64_t v = from_base(digits_arg(a, 0), From);
  if (To == 10) return num(static_cast<double>(v));
  int64_t lo = To == 2 ? -512 : To == 8 ? -(int64_t{1} << 29) : -(int64_t{1} << 39);
  int64_t hi = -lo - 1;
  return to_base(a, v, To, 1, lo, hi);
}

template <int To>
Operand f_dec_to(Args& a) {
  double x = std::trunc(number(a, 0));
  int64_t lo = To == 2 ? -512 : To == 8 ? -(int64_t{1} << 29) : -(int64_t{1} << 39);
  int64_t hi = -lo - 1;
  if (x < static_cast<double>(lo) || x > static_cast<double>(hi)) return error(cell_error::num);
  return to_base(a, static_cast<int64_t>(x), To, 1, lo, hi);
}

Operand f_base(Args& a) {
  double x = std::trunc(number(a, 0)), radix = std::trunc(number(a, 1));
  double min_len = a.missing(2) ? 0 : std::trunc(number(a, 2));
  if (x < 0 || x >= 9007199254740992.0 || radix < 2 || radix > 36 || min_len < 0 || min_len > 255)
    return error(cell_error::num);
  uint64_t u = static_cast<uint64_t>(x), r = static_cast<uint64_t>(radix);
  String out;
  do {
    int d = static_cast<int>(u % r);
    out.insert(out.begin(), static_cast<char16_t>(d < 10 ? u'0' + d : u'A' + d - 10));
    u /= r;
  } while (u > 0);
  if (out.size() < min_len)
    out.insert(out.begin(), static_cast<size_t>(min_len) - out.size(), u'0');
  return text(out);
}

Operand f_decimal(Args& a) {
  String s = text(a, 0);
  double radix = std::trunc(number(a, 1));
  if (radix < 2 || radix > 36 || s.size() > 255) return error(cell_error::num);
  double v = 0;
  for (char16_t c : s) {
    int d = digit_value(c);
    if (d >= radix) return error(cell_error::num);
    v = v * radix + d;
  }
  if (v >= 9007199254740992.0) return error(cell_error::num);
  return num(v);
}

// ---- bits ---------------------------------------------------------------------------------

constexpr double kBitLimit = 281474976710656.0;  // 2^48

uint64_t bits_arg(Args& a, size_t i) {
  double x = number(a, i);
  if (x < 0 || x >= kBitLimit || x != std::floor(x)) raise(cell_error::num);
  return static_cast<uint64_t>(x);
}
template <int Op>
Operand f_bit(Args& a) {
  uint64_t x = bits_arg(a, 0), y = bits_arg(a, 1);
  uint64_t r = Op == 0 ? (x & y) : Op == 1 ? (x | y) : (x ^ y);
  return num(static_cast<double>(r));
}
template <bool Left>
Operand f_bitshift(Args& a) {
  uint64_t x = bits_arg(a, 0);
  double shift = std::trunc(number(a, 1));
  if (std::fabs(shift) > 53) return error(cell_error::num);
  if (!Left) shift = -shift;
  double r = shift >= 0 ? static_cast<double>(x) * std::ldexp(1.0, static_cast<int>(shift))
                        : static_cast<double>(x >> static_cast<int>(-shift));
  if (r >= kBitLimit) return error(cell_error::num);
  return num(r);
}

// ---- error function, steps ------------------------------------------------------------------

Operand f_erf(Args& a) {
  double lo = number(a, 0);
  if (a.missing(1)) return num(std::erf(lo));
  return num(std::erf(number(a, 1)) - std::erf(lo));
}
Operand f_erf_precise(Args& a) {
  return num(std::erf(number(a, 0)));
}
Operand f_erfc(Args& a) {
  return num(std::erfc(number(a, 0)));
}
Operand f_delta(Args& a) {
  return num(number(a, 0) == number_or(a, 1, 0) ? 1 : 0);
}
Operand f_gestep(Args& a) {
  return num(number(a, 0) >= number_or(a, 1, 0) ? 1 : 0);
}

// ---- Bessel functions ---------------------------------------------------------------------

// The modified Bessel functions of the second kind as the application computes them: the
// classic polynomial fits for orders 0 and 1 around the exact I0 and I1 (good to about 1e-8,
// and it is these digits workbooks hold), then K(n+1) = K(n-1) + 2n/x K(n) for higher orders.
double poly(double t, std::initializer_list<double> cs) {
  double r = 0, p = 1;
  for (double c : cs) r += c * p, p *= t;
  return r;
}
double fitted_k0(double x) {
  if (x <= 2) {
    double h = x / 2;
    return -std::log(h) * std::cyl_bessel_i(0.0, x) +
           poly(h * h, {-0.57721566, 0.42278420, 0.23069756, 0.03488590, 0.00262698, 0.00010750,
                        0.00000740});
  }
  return std::exp(-x) / std::sqrt(x) *
         poly(2 / x, {1.25331414, -0.07832358, 0.02189568, -0.01062446, 0.00587872, -0.00251540,
                      0.00053208});
}
double fitted_k1(double x) {
  if (x <= 2) {
    double h = x / 2;
    return (x * std::log(h) * std::cyl_bessel_i(1.0, x) +
            poly(h * h, {1, 0.15443144, -0.67278579, -0.18156897, -0.01919402, -0.00110404,
                         -0.00004686})) /
           x;
  }
  return std::exp(-x) / std::sqrt(x) *
         poly(2 / x, {1.25331414, 0.23498619, -0.03655620, 0.01504268, -0.00780353, 0.00325614,
                      -0.00068245});
}
double fitted_k(double n, double x) {
  double k0 = fitted_k0(x), k1 = fitted_k1(x);
  if (n == 0) return k0;
  // Each step grows the value: it overflows long before a huge order is reached, unless
  // the values have already vanished (a huge x).
  for (double j = 1; j < n && std::isfinite(k1) && k1 != 0; ++j) {
    double k2 = k0 + 2 * j / x * k1;
    k0 = k1;
    k1 = k2;
  }
  return k1;
}

template <char Kind>
Operand f_bessel(Args& a) {
  double x = number(a, 0), n = std::trunc(number(a, 1));
  if (n < 0) return error(cell_error::num);
  if ((Kind == 'K' || Kind == 'Y') && x <= 0) return error(cell_error::num);
  try {
    double ax = std::fabs(x);
    double r = Kind == 'J'   ? std::cyl_bessel_j(n, ax)
               : Kind == 'I' ? std::cyl_bessel_i(n, ax)
               : Kind == 'K' ? fitted_k(n, ax)
                             : std::cyl_neumann(n, ax);
    // J and I of a negative argument: odd orders change sign.
    if (x < 0 && std::fmod(n, 2) == 1) r = -r;
    if (!std::isfinite(r)) return error(cell_error::num);
    return num(r);
  } catch (const std::exception&) {
    return error(cell_error::num);
  }
}

// ---- complex numbers --------------------------------------------------------------------------

/// A plain decimal number as complex texts write their parts ("1.5", "-2e3", "+.5").
bool read_real(StringView s, double& out) {
  if (s.empty()) return false;
  size_t i = 0;
  if (s[i] == u'+' || s[i] == u'-') ++i;
  size_t digits = 0;
  while (i < s.size() && s[i] >= u'0' && s[i] <= u'9') ++i, ++digits;
  if (i < s.size() && s[i] == u'.') {
    ++i;
    while (i < s.size() && s[i] >= u'0' && s[i] <= u'9') ++i, ++digits;
  }
  if (digits == 0) return false;
  if (i < s.size() && (s[i] == u'e' || s[i] == u'E')) {
    ++i;
    if (i < s.size() && (s[i] == u'+' || s[i] == u'-')) ++i;
    size_t exp_digits = 0;
    while (i < s.size() && s[i] >= u'0' && s[i] <= u'9') ++i, ++exp_digits;
    if (exp_digits == 0) return false;
  }
  if (i != s.size()) return false;
  out = std::strtod(to_utf8(s).c_str(), nullptr);
  return true;
}

struct ComplexText {
  Complex z;
  char16_t suffix = 0;  // 'i', 'j', or 0 when the text had no imaginary part
};

bool read_complex(StringView s, ComplexText& out) {
  out = {};
  if (s.empty()) return true;  // an empty cell reads as 0
  char16_t last = s.back();
  double re = 0, im = 0;
  if (last != u'i' && last != u'j') {
    if (!read_real(s, re)) return false;
    out.z = Complex(re, 0);
    return true;
  }
  out.suffix = last;
  StringView body = s.substr(0, s.size() - 1);
  // The imaginary part starts at the last sign that is not an exponent's.
  size_t split = StringView::npos;
  for (size_t k = body.size(); k-- > 1;)
    if ((body[k] == u'+' || body[k] == u'-') && body[k - 1] != u'e' && body[k - 1] != u'E') {
      split = k;
      break;
    }
  StringView real_part = split == StringView::npos ? StringView() : body.substr(0, split);
  StringView imag_part = split == StringView::npos ? body : body.substr(split);
  if (!real_part.empty() && !read_real(real_part, re)) return false;
  if (imag_part.empty() || imag_part == u"+")
    im = 1;
  else if (imag_part == u"-")
    im = -1;
  else if (!read_real(imag_part, im))
    return false;
  out.z = Complex(re, im);
  return true;
}

ComplexText complex_arg(Args& a, size_t i) {
  Value v = scalar(a, i);
  if (v.is_error()) raise(v.error_code());
  if (v.kind == Value::Kind::Boolean) raise(cell_error::value);
  ComplexText c;
  if (v.kind == Value::Kind::Number) {
    c.z = Complex(v.number, 0);
    return c;
  }
  if (!read_complex(Evaluator::to_text(v), c)) raise(cell_error::num);
  return c;
}

String complex_text(Complex z, char16_t suffix) {
  double re = z.real(), im = z.imag();
  if (!std::isfinite(re) || !std::isfinite(im)) raise(cell_error::num);
  if (suffix == 0) suffix = u'i';
  if (im == 0) return number_to_text(re);
  String imag = im == 1 ? String() : im == -1 ? String(u"-") : number_to_text(im);
  imag += suffix;
  if (re == 0) return imag;
  return number_to_text(re) + (im > 0 ? u"+" : u"") + imag;
}

/// The suffix of a result from several operands: they must agree where they have one.
char16_t common_suffix(char16_t a, char16_t b) {
  if (a && b && a != b) raise(cell_error::value);
  return a ? a : b;
}

Operand f_complex(Args& a) {
  double re = number(a, 0), im = number(a, 1);
  char16_t suffix = u'i';
  if (!a.missing(2)) {
    String s = text(a, 2);
    if (s == u"j")
      suffix = u'j';
    else if (!s.empty() && s != u"i")
      return error(cell_error::value);
  }
  return text(complex_text(Complex(re, im), suffix));
}

Operand f_imreal(Args& a) {
  return num(complex_arg(a, 0).z.real());
}
Operand f_imaginary(Args& a) {
  return num(complex_arg(a, 0).z.imag());
}
Operand f_imabs(Args& a) {
  return num(std::abs(complex_arg(a, 0).z));
}
Operand f_imargument(Args& a) {
  Complex z = complex_arg(a, 0).z;
  if (z == Complex(0, 0)) return error(cell_error::div0);
  return num(std::arg(z));
}
Operand f_imconjugate(Args& a) {
  ComplexText c = complex_arg(a, 0);
  return text(complex_text(std::conj(c.z), c.suffix));
}

/// One-argument complex functions; `F` answers false where the function is undefined.
template <bool (*F)(Complex, Complex&)>
Operand f_im_unary(Args& a) {
  ComplexText c = complex_arg(a, 0);
  Complex r;
  if (!F(c.z, r)) return error(cell_error::num);
  return text(complex_text(r, c.suffix));
}
bool c_exp(Complex z, Complex& r) {
  r = std::exp(z);
  return true;
}
bool c_ln(Complex z, Complex& r) {
  if (z == Complex(0, 0)) return false;
  r = std::log(z);
  return true;
}
bool c_log10(Complex z, Complex& r) {
  if (z == Complex(0, 0)) return false;
  r = std::log(z) / std::log(10.0);
  return true;
}
bool c_log2(Complex z, Complex& r) {
  if (z == Complex(0, 0)) return false;
  r = std::log(z) / std::log(2.0);
  return true;
}
bool c_sqrt(Complex z, Complex& r) {
  r = std::polar(std::sqrt(std::abs(z)), std::arg(z) / 2);
  return true;
}
bool c_sin(Complex z, Complex& r) {
  r = std::sin(z);
  return true;
}
bool c_cos(Complex z, Complex& r) {
  r = std::cos(z);
  return true;
}
bool c_tan(Complex z, Complex& r) {
  r = std::tan(z);
  return true;
}
bool c_sinh(Complex z, Complex& r) {
  r = std::sinh(z);
  return true;
}
bool c_cosh(Complex z, Complex& r) {
  r = std::cosh(z);
  return true;
}
bool reciprocal(Complex d, Complex& r) {
  if (d == Complex(0, 0)) return false;
  r = 1.0 / d;
  return true;
}
bool c_cot(Complex z, Complex& r) {
  return z != Complex(0, 0) && reciprocal(std::tan(z), r);
}
bool c_csc(Complex z, Complex& r) {
  return z != Complex(0, 0) && reciprocal(std::sin(z), r);
}
bool c_csch(Complex z, Complex& r) {
  return z != Complex(0, 0) && reciprocal(std::sinh(z), r);
}
bool c_sec(Complex z, Complex& r) {
  return reciprocal(std::cos(z), r);
}
bool c_sech(Complex z, Complex& r) {
  return reciprocal(std::cosh(z), r);
}

Operand f_impower(Args& a) {
  ComplexText c = complex_arg(a, 0);
  double n = number(a, 1);
  double r = std::abs(c.z);
  if (r == 0) return n > 0 ? text(u"0") : error(cell_error::num);
  return text(complex_text(std::polar(std::pow(r, n), n * std::arg(c.z)), c.suffix));
}
Operand f_imdiv(Args& a) {
  ComplexText x = complex_arg(a, 0), y = complex_arg(a, 1);
  if (y.z == Complex(0, 0)) return error(cell_error::num);
  return text(complex_text(x.z / y.z, common_suffix(x.suffix, y.suffix)));
}
Operand f_imsub(Args& a) {
  ComplexText x = complex_arg(a, 0), y = complex_arg(a, 1);
  return text(complex_text(x.z - y.z, common_suffix(x.suffix, y.suffix)));
}

/// IMSUM and IMPRODUCT read every cell of their ranges (empty cells count as nothing).
template <bool Product>
Operand f_im_fold(Args& a) {
  Complex acc = Product ? Complex(1, 0) : Complex(0, 0);
  char16_t suffix = 0;
  auto take = [&](const Value& v) {
    if (v.is_error()) raise(v.error_code());
    if (v.kind == Value::Kind::Boolean) raise(cell_error::value);
    ComplexText c;
    if (v.kind == Value::Kind::Number)
      c.z = Complex(v.number, 0);
    else if (!read_complex(Evaluator::to_text(v), c))
      raise(cell_error::num);
    suffix = common_suffix(suffix, c.suffix);
    acc = Product ? acc * c.z : acc + c.z;
  };
  for (size_t i = 0; i < a.size(); ++i) {
    if (a.missing(i)) continue;
    const Operand& o = a.get(i);
    if (o.is_value()) {
      take(o.value);
      continue;
    }
    a.ev().for_each(o, [&](const Value& v, bool) { take(v); });
  }
  return text(complex_text(acc, suffix));
}

// ---- unit conversion ----------------------------------------------------------------------------

enum class Quantity : uint8_t {
  Mass,
  Length,
  Time,
  Pressure,
  Force,
  Energy,
  Power,
  Magnetism,
  Temperature,
  Volume,
  Area,
  Information,
  Speed
};

struct Unit {
  const char16_t* name;
  Quantity kind;
  double factor;  ///< in the quantity's base unit
  bool prefixes;  ///< takes the decimal prefixes (k, m, ...)
  int power = 1;  ///< the power a prefix is raised to (2 for areas such as "km2")
};

constexpr double kInch = 0.0254;
constexpr double kPica = kInch / 72;
constexpr double kLightYear = 9460730472580800.0;
constexpr double kMile = 1609.344;
constexpr double kNauticalMile = 1852;

// Base units: gram, metre, second, pascal, newton, joule, watt, tesla, kelvin, cubic
// metre, square metre, bit, metre per second.
const Unit kUnits[] = {
    {u"g", Quantity::Mass, 1, true},
    {u"sg", Quantity::Mass, 14593.9029372064, false},
    {u"lbm", Quantity::Mass, 453.59237, false},
    {u"u", Quantity::Mass, 1.66053886e-24, true},
    {u"ozm", Quantity::Mass, 28.349523125, false},
    {u"grain", Quantity::Mass, 0.06479891, false},
    {u"cwt", Quantity::Mass, 45359.237, false},
    {u"shweight", Quantity::Mass, 45359.237, false},
    {u"uk_cwt", Quantity::Mass, 50802.34544, false},
    {u"lcwt", Quantity::Mass, 50802.34544, false},
    {u"hweight", Quantity::Mass, 50802.34544, false},
    {u"stone", Quantity::Mass, 6350.29318, false},
    {u"ton", Quantity::Mass, 907184.74, false},
    {u"uk_ton", Quantity::Mass, 1016046.9088, false},
    {u"LTON", Quantity::Mass, 1016046.9088, false},
    {u"brton", Quantity::Mass, 1016046.9088, false},
    {u"m", Quantity::Length, 1, true},
    {u"mi", Quantity::Length, kMile, false},
    {u"Nmi", Quantity::Length, kNauticalMile, false},
    {u"in", Quantity::Length, kInch, false},
    {u"ft", Quantity::Length, 0.3048, false},
    {u"yd", Quantity::Length, 0.9144, false},
    {u"ang", Quantity::Length, 1e-10, true},
    {u"ell", Quantity::Length, 1.143, false},
    {u"ly", Quantity::Length, kLightYear, true},
    {u"parsec", Quantity::Length, 3.08567758128155e16, true},
    {u"pc", Quantity::Length, 3.08567758128155e16, true},
    {u"Picapt", Quantity::Length, kPica, false},
    {u"Pica", Quantity::Length, kPica, false},
    {u"pica", Quantity::Length, kInch / 6, false},
    {u"survey_mi", Quantity::Length, 1609.34721869444, false},
    {u"yr", Quantity::Time, 31557600, false},
    {u"day", Quantity::Time, 86400, false},
    {u"d", Quantity::Time, 86400, false},
    {u"hr", Quantity::Time, 3600, false},
    {u"mn", Quantity::Time, 60, false},
    {u"min", Quantity::Time, 60, false},
    {u"sec", Quantity::Time, 1, true},
    {u"s", Quantity::Time, 1, true},
    {u"Pa", Quantity::Pressure, 1, true},
    {u"p", Quantity::Pressure, 1, true},
    {u"atm", Quantity::Pressure, 101325, true},
    {u"at", Quantity::Pressure, 101325, true},
    {u"mmHg", Quantity::Pressure, 133.322, true},
    {u"psi", Quantity::Pressure, 6894.75729316836, false},
    {u"Torr", Quantity::Pressure, 133.322368421053, false},
    {u"N", Quantity::Force, 1, true},
    {u"dyn", Quantity::Force, 1e-5, true},
    {u"dy", Quantity::Force, 1e-5, true},
    {u"lbf", Quantity::Force, 4.4482216152605, false},
    {u"pond", Quantity::Force, 0.00980665, true},
    {u"J", Quantity::Energy, 1, true},
    {u"e", Quantity::Energy, 1e-7, true},
    {u"c", Quantity::Energy, 4.184, true},
    {u"cal", Quantity::Energy, 4.1868, true},
    {u"eV", Quantity::Energy, 1.60217653e-19, true},
    {u"ev", Quantity::Energy, 1.60217653e-19, true},
    {u"HPh", Quantity::Energy, 2684519.53696, false},
    {u"hh", Quantity::Energy, 2684519.53696, false},
    {u"Wh", Quantity::Energy, 3600, true},
    {u"wh", Quantity::Energy, 3600, true},
    {u"flb", Quantity::Energy, 1.3558179483314, false},
    {u"BTU", Quantity::Energy, 1055.05585262, false},
    {u"btu", Quantity::Energy, 1055.05585262, false},
    {u"HP", Quantity::Power, 745.69987158227, false},
    {u"h", Quantity::Power, 745.69987158227, false},
    {u"PS", Quantity::Power, 735.49875, false},
    {u"W", Quantity::Power, 1, true},
    {u"w", Quantity::Power, 1, true},
    {u"T", Quantity::Magnetism, 1, true},
    {u"ga", Quantity::Magnetism, 1e-4, true},
    {u"C", Quantity::Temperature, 1, false},
    {u"cel", Quantity::Temperature, 1, false},
    {u"F", Quantity::Temperature, 1, false},
    {u"fah", Quantity::Temperature, 1, false},
    {u"K", Quantity::Temperature, 1, true},
    {u"kel", Quantity::Temperature, 1, true},
    {u"Rank", Quantity::Temperature, 1, false},
    {u"Reau", Quantity::Temperature, 1, false},
    {u"tsp", Quantity::Volume, 4.92892159375e-6, false},
    {u"tspm", Quantity::Volume, 5e-6, false},
    {u"tbs", Quantity::Volume, 1.478676478125e-5, false},
    {u"oz", Quantity::Volume, 2.95735295625e-5, false},
    {u"cup", Quantity::Volume, 2.365882365e-4, false},
    {u"pt", Quantity::Volume, 4.73176473e-4, false},
    {u"us_pt", Quantity::Volume, 4.73176473e-4, false},
    {u"uk_pt", Quantity::Volume, 5.6826125e-4, false},
    {u"qt", Quantity::Volume, 9.46352946e-4, false},
    {u"uk_qt", Quantity::Volume, 1.1365225e-3, false},
    {u"gal", Quantity::Volume, 3.785411784e-3, false},
    {u"uk_gal", Quantity::Volume, 4.54609e-3, false},
    {u"l", Quantity::Volume, 1e-3, true},
    {u"L", Quantity::Volume, 1e-3, true},
    {u"lt", Quantity::Volume, 1e-3, true},
    {u"ang3", Quantity::Volume, 1e-30, true, 3},
    {u"ang^3", Quantity::Volume, 1e-30, true, 3},
    {u"barrel", Quantity::Volume, 0.158987294928, false},
    {u"bushel", Quantity::Volume, 0.03523907016688, false},
    {u"ft3", Quantity::Volume, 0.028316846592, false},
    {u"ft^3", Quantity::Volume, 0.028316846592, false},
    {u"in3", Quantity::Volume, 1.6387064e-5, false},
    {u"in^3", Quantity::Volume, 1.6387064e-5, false},
    {u"ly3", Quantity::Volume, kLightYear* kLightYear* kLightYear, true, 3},
    {u"ly^3", Quantity::Volume, kLightYear* kLightYear* kLightYear, true, 3},
    {u"m3", Quantity::Volume, 1, true, 3},
    {u"m^3", Quantity::Volume, 1, true, 3},
    {u"mi3", Quantity::Volume, kMile* kMile* kMile, false},
    {u"mi^3", Quantity::Volume, kMile* kMile* kMile, false},
    {u"yd3", Quantity::Volume, 0.764554857984, false},
    {u"yd^3", Quantity::Volume, 0.764554857984, false},
    {u"Nmi3", Quantity::Volume, kNauticalMile* kNauticalMile* kNauticalMile, false},
    {u"Nmi^3", Quantity::Volume, kNauticalMile* kNauticalMile* kNauticalMile, false},
    {u"Picapt3", Quantity::Volume, kPica* kPica* kPica, false},
    {u"Picapt^3", Quantity::Volume, kPica* kPica* kPica, false},
    {u"Pica3", Quantity::Volume, kPica* kPica* kPica, false},
    {u"Pica^3", Quantity::Volume, kPica* kPica* kPica, false},
    {u"GRT", Quantity::Volume, 2.8316846592, false},
    {u"regton", Quantity::Volume, 2.8316846592, false},
    {u"MTON", Quantity::Volume, 1.13267386368, false},
    {u"uk_acre", Quantity::Area, 4046.8564224, false},
    {u"us_acre", Quantity::Area, 4046.87260987425, false},
    {u"ang2", Quantity::Area, 1e-20, true, 2},
    {u"ang^2", Quantity::Area, 1e-20, true, 2},
    {u"ar", Quantity::Area, 100, true},
    {u"ft2", Quantity::Area, 0.09290304, false},
    {u"ft^2", Quantity::Area, 0.09290304, false},
    {u"ha", Quantity::Area, 10000, false},
    {u"in2", Quantity::Area, 0.00064516, false},
    {u"in^2", Quantity::Area, 0.00064516, false},
    {u"ly2", Quantity::Area, kLightYear* kLightYear, true, 2},
    {u"ly^2", Quantity::Area, kLightYear* kLightYear, true, 2},
    {u"m2", Quantity::Area, 1, true, 2},
    {u"m^2", Quantity::Area, 1, true, 2},
    {u"Morgen", Quantity::Area, 2500, false},
    {u"mi2", Quantity::Area, kMile* kMile, false},
    {u"mi^2", Quantity::Area, kMile* kMile, false},
    {u"Nmi2", Quantity::Area, kNauticalMile* kNauticalMile, false},
    {u"Nmi^2", Quantity::Area, kNauticalMile* kNauticalMile, false},
    {u"Picapt2", Quantity::Area, kPica* kPica, false},
    {u"Picapt^2", Quantity::Area, kPica* kPica, false},
    {u"Pica2", Quantity::Area, kPica* kPica, false},
    {u"Pica^2", Quantity::Area, kPica* kPica, false},
    {u"yd2", Quantity::Area, 0.83612736, false},
    {u"yd^2", Quantity::Area, 0.83612736, false},
    {u"bit", Quantity::Information, 1, true},
    {u"byte", Quantity::Information, 8, true},
    {u"admkn", Quantity::Speed, 1853.184 / 3600, false},
    {u"kn", Quantity::Speed, kNauticalMile / 3600, false},
    {u"m/h", Quantity::Speed, 1.0 / 3600, true},
    {u"m/hr", Quantity::Speed, 1.0 / 3600, true},
    {u"m/s", Quantity::Speed, 1, true},
    {u"m/sec", Quantity::Speed, 1, true},
    {u"mph", Quantity::Speed, kMile / 3600, false},
};

struct Prefix {
  const char16_t* name;
  double factor;
  bool binary;
};
const Prefix kPrefixes[] = {
    {u"Yi", 1208925819614629174706176.0, true},
    {u"Zi", 1180591620717411303424.0, true},
    {u"Ei", 1152921504606846976.0, true},
    {u"Pi", 1125899906842624.0, true},
    {u"Ti", 1099511627776.0, true},
    {u"Gi", 1073741824.0, true},
    {u"Mi", 1048576.0, true},
    {u"ki", 1024.0, true},
    {u"Y", 1e24, false},
    {u"Z", 1e21, false},
    {u"E", 1e18, false},
    {u"P", 1e15, false},
    {u"T", 1e12, false},
    {u"G", 1e9, false},
    {u"M", 1e6, false},
    {u"k", 1e3, false},
    {u"h", 1e2, false},
    {u"da", 1e1, false},
    {u"e", 1e1, false},
    {u"d", 1e-1, false},
    {u"c", 1e-2, false},
    {u"m", 1e-3, false},
    {u"u", 1e-6, false},
    {u"n", 1e-9, false},
    {u"p", 1e-12, false},
    {u"f", 1e-15, false},
    {u"a", 1e-18, false},
    {u"z", 1e-21, false},
    {u"y", 1e-24, false},
};

struct Resolved {
  const Unit* unit = nullptr;
  double scale = 1;  ///< the prefix's factor, raised to the unit's power
};

Resolved resolve_unit(StringView name) {
  for (const Unit& u : kUnits)
    if (name == u.name) return {&u, 1};
  for (const Prefix& p : kPrefixes) {
    StringView pn = p.name;
    if (name.size() <= pn.size() || name.substr(0, pn.size()) != pn) continue;
    StringView rest = name.substr(pn.size());
    for (const Unit& u : kUnits) {
      if (rest != u.name || !u.prefixes) continue;
      // Binary prefixes belong to bits and bytes only.
      if (p.binary && u.kind != Quantity::Information) continue;
      return {&u, std::pow(p.factor, u.power)};
    }
  }
  return {};
}

double to_kelvin(StringView unit, double x) {
  if (unit == u"C" || unit == u"cel") return x + 273.15;
  if (unit == u"F" || unit == u"fah") return (x - 32) * 5 / 9 + 273.15;
  if (unit == u"Rank") return x * 5 / 9;
  if (unit == u"Reau") return x * 1.25 + 273.15;
  return x;  // K, kel
}
double from_kelvin(StringView unit, double k) {
  if (unit == u"C" || unit == u"cel") return k - 273.15;
  if (unit == u"F" || unit == u"fah") return (k - 273.15) * 9 / 5 + 32;
  if (unit == u"Rank") return k * 9 / 5;
  if (unit == u"Reau") return (k - 273.15) * 0.8;
  return k;
}

Operand f_convert(Args& a) {
  double x = number(a, 0);
  String from = text(a, 1), to = text(a, 2);
  Resolved f = resolve_unit(from), t = resolve_unit(to);
  if (!f.unit || !t.unit || f.unit->kind != t.unit->kind) return error(cell_error::na);
  if (f.unit->kind == Quantity::Temperature)
    return num(from_kelvin(t.unit->name, to_kelvin(f.unit->name, x * f.scale)) / t.scale);
  return num(x * (f.unit->factor * f.scale) / (t.unit->factor * t.scale));
}

}  // namespace

void add_engineering_functions(std::vector<FunctionInfo>& t) {
  t.insert(t.end(), {
                        {u"BASE", 2, 3, f_base, each_arg},
                        {u"BESSELI", 2, 2, f_bessel<'I'>, each_arg},
                        {u"BESSELJ", 2, 2, f_bessel<'J'>, each_arg},
                        {u"BESSELK", 2, 2, f_bessel<'K'>, each_arg},
                        {u"BESSELY", 2, 2, f_bessel<'Y'>, each_arg},
                        {u"BIN2DEC", 1, 1, f_base_to_base<2, 10>, each_arg},
                        {u"BIN2HEX", 1, 2, f_base_to_base<2, 16>, each_arg},
                        {u"BIN2OCT", 1, 2, f_base_to_base<2, 8>, each_arg},
                        {u"BITAND", 2, 2, f_bit<0>, each_arg},
                        {u"BITLSHIFT", 2, 2, f_bitshift<true>, each_arg},
                        {u"BITOR", 2, 2, f_bit<1>, each_arg},
                        {u"BITRSHIFT", 2, 2, f_bitshift<false>, each_arg},
                        {u"BITXOR", 2, 2, f_bit<2>, each_arg},
                        {u"COMPLEX", 2, 3, f_complex, each_arg},
                        {u"CONVERT", 3, 3, f_convert, each_arg},
                        {u"DEC2BIN", 1, 2, f_dec_to<2>, each_arg},
                        {u"DEC2HEX", 1, 2, f_dec_to<16>, each_arg},
                        {u"DEC2OCT", 1, 2, f_dec_to<8>, each_arg},
                        {u"DECIMAL", 2, 2, f_decimal, each_arg},
                        {u"DELTA", 1, 2, f_delta, each_arg},
                        {u"ERF", 1, 2, f_erf, each_arg},
                        {u"ERF.PRECISE", 1, 1, f_erf_precise, each_arg},
                        {u"ERFC", 1, 1, f_erfc, each_arg},
                        {u"ERFC.PRECISE", 1, 1, f_erfc, each_arg},
                        {u"GESTEP", 1, 2, f_gestep, each_arg},
                        {u"HEX2BIN", 1, 2, f_base_to_base<16, 2>, each_arg},
                        {u"HEX2DEC", 1, 1, f_base_to_base<16, 10>, each_arg},
                        {u"HEX2OCT", 1, 2, f_base_to_base<16, 8>, each_arg},
                        {u"IMABS", 1, 1, f_imabs, each_arg},
                        {u"IMAGINARY", 1, 1, f_imaginary, each_arg},
                        {u"IMARGUMENT", 1, 1, f_imargument, each_arg},
                        {u"IMCONJUGATE", 1, 1, f_imconjugate, each_arg},
                        {u"IMCOS", 1, 1, f_im_unary<c_cos>, each_arg},
                        {u"IMCOSH", 1, 1, f_im_unary<c_cosh>, each_arg},
                        {u"IMCOT", 1, 1, f_im_unary<c_cot>, each_arg},
                        {u"IMCSC", 1, 1, f_im_unary<c_csc>, each_arg},
                        {u"IMCSCH", 1, 1, f_im_unary<c_csch>, each_arg},
                        {u"IMDIV", 2, 2, f_imdiv, each_arg},
                        {u"IMEXP", 1, 1, f_im_unary<c_exp>, each_arg},
                        {u"IMLN", 1, 1, f_im_unary<c_ln>, each_arg},
                        {u"IMLOG10", 1, 1, f_im_unary<c_log10>, each_arg},
                        {u"IMLOG2", 1, 1, f_im_unary<c_log2>, each_arg},
                        {u"IMPOWER", 2, 2, f_impower, each_arg},
                        {u"IMPRODUCT", 1, -1, f_im_fold<true>},
                        {u"IMREAL", 1, 1, f_imreal, each_arg},
                        {u"IMSEC", 1, 1, f_im_unary<c_sec>, each_arg},
                        {u"IMSECH", 1, 1, f_im_unary<c_sech>, each_arg},
                        {u"IMSIN", 1, 1, f_im_unary<c_sin>, each_arg},
                        {u"IMSINH", 1, 1, f_im_unary<c_sinh>, each_arg},
                        {u"IMSQRT", 1, 1, f_im_unary<c_sqrt>, each_arg},
                        {u"IMSUB", 2, 2, f_imsub, each_arg},
                        {u"IMSUM", 1, -1, f_im_fold<false>},
                        {u"IMTAN", 1, 1, f_im_unary<c_tan>, each_arg},
                        {u"OCT2BIN", 1, 2, f_base_to_base<8, 2>, each_arg},
                        {u"OCT2DEC", 1, 1, f_base_to_base<8, 10>, each_arg},
                        {u"OCT2HEX", 1, 2, f_base_to_base<8, 16>, each_arg},
                    });
}

}  // namespace qz::engine::calc
