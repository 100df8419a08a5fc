// Matrix algebra (MINVERSE, MDETERM) and least-squares fits (LINEST, LOGEST, TREND,
// GROWTH). Fits work on centred data through a Gram-Schmidt factorisation, which keeps
// their precision when the x values are large (years, dates) and finds the columns that
// add nothing, as the application reports them: a coefficient and standard error of 0.
#include <algorithm>
#include <cmath>
#include <numeric>

#include "engine/calc/fn_util.hpp"

namespace qz::engine::calc {
namespace {

using namespace fn;

using Grid2 = std::vector<std::vector<double>>;

/// A block of numbers; anything else in it is #VALUE!.
Grid2 numbers_block(Args& a, size_t i, int32_t& rows, int32_t& cols) {
  Matrix m = a.ev().matrix(a.get_array(i));
  rows = m.rows;
  cols = m.cols;
  Grid2 g(rows, std::vector<double>(cols));
  for (int32_t r = 0; r < rows; ++r)
    for (int32_t c = 0; c < cols; ++c) {
      const Value& v = m.at(r, c);
      if (v.is_error()) raise(v.error_code());
      if (v.kind != Value::Kind::Number) raise(cell_error::value);
      g[r][c] = v.number;
    }
  return g;
}

/// LU decomposition with partial pivoting, in place; returns the determinant's sign and
/// the row order, or false when a pivot vanishes.
bool lu(Grid2& m, std::vector<size_t>& order, double& sign) {
  size_t n = m.size();
  order.resize(n);
  std::iota(order.begin(), order.end(), 0);
  sign = 1;
  for (size_t k = 0; k < n; ++k) {
    size_t p = k;
    for (size_t r = k + 1; r < n; ++r)
      if (std::fabs(m[r][k]) > std::fabs(m[p][k])) p = r;
    if (m[p][k] == 0) return false;
    if (p != k) {
      std::swap(m[p], m[k]);
      std::swap(order[p], order[k]);
      sign = -sign;
    }
    for (size_t r = k + 1; r < n; ++r) {
      m[r][k] /= m[k][k];
      for (size_t c = k + 1; c < n; ++c) m[r][c] -= m[r][k] * m[k][c];
    }
  }
  return true;
}

Operand f_mdeterm(Args& a) {
  int32_t rows, cols;
  Grid2 m = numbers_block(a, 0, rows, cols);
  if (rows != cols) return error(cell_error::value);
  std::vector<size_t> order;
  double sign;
  if (!lu(m, order, sign)) return num(0);
  double d = sign;
  for (int32_t k = 0; k < rows; ++k) d *= m[k][k];
  return num(d);
}

Operand f_minverse(Args& a) {
  int32_t rows, cols;
  Grid2 m = numbers_block(a, 0, rows, cols);
  if (rows != cols) return error(cell_error::value);
  std::vector<size_t> order;
  double sign;
  if (!lu(m, order, sign)) return error(cell_error::num);
  size_t n = m.size();
  // A pivot lost in rounding noise means a singular matrix too.
  double scale = 0;
  for (size_t k = 0; k < n; ++k) scale = std::max(scale, std::fabs(m[k][k]));
  for (size_t k = 0; k < n; ++k)
    if (std::fabs(m[k][k]) <= scale * 1e-15) return error(cell_error::num);
  Matrix out(rows, cols);
  for (size_t c = 0; c < n; ++c) {
    // Solve L U x = P e_c.
    std::vector<double> x(n);
    for (size_t r = 0; r < n; ++r) {
      double s = order[r] == c ? 1 : 0;
      for (size_t k = 0; k < r; ++k) s -= m[r][k] * x[k];
      x[r] = s;
    }
    for (size_t r = n; r-- > 0;) {
      double s = x[r];
      for (size_t k = r + 1; k < n; ++k) s -= m[r][k] * x[k];
      x[r] = s / m[r][r];
    }
    for (size_t r = 0; r < n; ++r)
      out.at(static_cast<int32_t>(r), static_cast<int32_t>(c)) = Value::num(x[r]);
  }
  return out.cells.size() == 1 ? Operand(out.cells[0]) : Operand::arr(std::move(out));
}

// ---- least squares --------------------------------------------------------------------------

/// Observations for a fit: y values and the x variables, one vector per variable.
struct Data {
  std::vector<double> y;
  Grid2 x;              // x[j][i]: variable j at observation i
  bool by_rows = true;  // observations run down the rows (y is a column)
};

Data fit_data(Args& a, bool log_y) {
  Data d;
  int32_t yr, yc;
  Grid2 y = numbers_block(a, 0, yr, yc);
  d.by_rows = yc == 1;
  if (yr != 1 && yc != 1) raise(cell_error::ref);
  for (int32_t r = 0; r < yr; ++r)
    for (int32_t c = 0; c < yc; ++c) {
      double v = y[r][c];
      if (log_y) {
        if (v <= 0) raise(cell_error::num);
        v = std::log(v);
      }
      d.y.push_back(v);
    }
  size_t n = d.y.size();
  if (a.size() < 2 || a.missing(1)) {
    d.x.assign(1, std::vector<double>(n));
    for (size_t i = 0; i < n; ++i) d.x[0][i] = static_cast<double>(i + 1);
    return d;
  }
  int32_t xr, xc;
  Grid2 x = numbers_block(a, 1, xr, xc);
  if (static_cast<size_t>(xr) * xc == n && (xr == 1 || xc == 1)) {
    // One variable, in any orientation.
    d.x.assign(1, {});
    for (int32_t r = 0; r < xr; ++r)
      for (int32_t c = 0; c < xc; ++c) d.x[0].push_back(x[r][c]);
  } else if (d.by_rows && static_cast<size_t>(xr) == n) {
    d.x.assign(xc, std::vector<double>(n));
    for (int32_t r = 0; r < xr; ++r)
      for (int32_t c = 0; c < xc; ++c) d.x[c][r] = x[r][c];
  } else if (!d.by_rows && static_cast<size_t>(xc) == n) {
    d.x.assign(xr, std::vector<double>(n));
    for (int32_t r = 0; r < xr; ++r)
      for (int32_t c = 0; c < xc; ++c) d.x[r][c] = x[r][c];
  } else {
    raise(cell_error::ref);
  }
  return d;
}

struct Fit {
  std::vector<double> coef;  // per variable; 0 for a variable that adds nothing
  std::vector<double> se;    // standard errors of coef
  std::vector<bool> kept;
  double intercept = 0, se_intercept = 0;
  double r2 = 0, se_y = 0, f = 0, df = 0, ss_reg = 0, ss_resid = 0;
  bool df_zero = false;
};

Fit fit(const Data& d, bool constant) {
  size_t n = d.y.size(), k = d.x.size();
  double ny = static_cast<double>(n);
  std::vector<double> xmean(k, 0);
  double ymean = 0;
  if (constant) {
    ymean = std::accumulate(d.y.begin(), d.y.end(), 0.0) / ny;
    for (size_t j = 0; j < k; ++j)
      xmean[j] = std::accumulate(d.x[j].begin(), d.x[j].end(), 0.0) / ny;
  }
  // Modified Gram-Schmidt over the centred columns.
  std::vector<std::vector<double>> q;
  std::vector<size_t> cols;
  Grid2 r;  // r[a][b] for kept columns a, b
  Fit out;
  out.kept.assign(k, false);
  for (size_t j = 0; j < k; ++j) {
    std::vector<double> v(n);
    for (size_t i = 0; i < n; ++i) v[i] = d.x[j][i] - xmean[j];
    double norm0 = std::sqrt(std::inner_product(v.begin(), v.end(), v.begin(), 0.0));
    std::vector<double> rc(q.size() + 1, 0);
    for (size_t a = 0; a < q.size(); ++a) {
      double dot = std::inner_product(q[a].begin(), q[a].end(), v.begin(), 0.0);
      rc[a] = dot;
      for (size_t i = 0; i < n; ++i) v[i] -= dot * q[a][i];
    }
    double norm = std::sqrt(std::inner_product(v.begin(), v.end(), v.begin(), 0.0));
    if (norm0 == 0 || norm <= 1e-13 * norm0) continue;  // adds nothing to the others
    for (double& e : v) e /= norm;
    rc[q.size()] = norm;
    q.push_back(std::move(v));
    cols.push_back(j);
    r.push_back(std::move(rc));
    out.kept[j] = true;
  }
  size_t p = q.size();
  // Solve R beta = Q^T yc.
  std::vector<double> yc(n), qty(p), beta(p);
  for (size_t i = 0; i < n; ++i) yc[i] = d.y[i] - ymean;
  for (size_t a = 0; a < p; ++a)
    qty[a] = std::inner_product(q[a].begin(), q[a].end(), yc.begin(), 0.0);
  for (size_t a = p; a-- > 0;) {
    double s = qty[a];
    for (size_t b = a + 1; b < p; ++b) s -= r[b][a] * beta[b];
    beta[a] = s / r[a][a];
  }
  out.coef.assign(k, 0);
  out.se.assign(k, 0);
  for (size_t a = 0; a < p; ++a) out.coef[cols[a]] = beta[a];
  if (constant) {
    out.intercept = ymean;
    for (size_t j = 0; j < k; ++j) out.intercept -= out.coef[j] * xmean[j];
  }
  double ss_tot = 0;
  for (size_t i = 0; i < n; ++i) {
    double fitted = out.intercept;
    for (size_t j = 0; j < k; ++j) fitted += out.coef[j] * d.x[j][i];
    out.ss_resid += (d.y[i] - fitted) * (d.y[i] - fitted);
    ss_tot += constant ? (d.y[i] - ymean) * (d.y[i] - ymean) : d.y[i] * d.y[i];
  }
  out.ss_reg = ss_tot - out.ss_resid;
  out.df = ny - static_cast<double>(p) - (constant ? 1 : 0);
  out.df_zero = out.df <= 0;
  out.r2 = ss_tot == 0 ? 1 : out.ss_reg / ss_tot;
  if (!out.df_zero) {
    out.se_y = std::sqrt(out.ss_resid / out.df);
    out.f =
        out.ss_resid == 0 ? NAN : (out.ss_reg / static_cast<double>(p)) / (out.ss_resid / out.df);
    // (R^T R)^-1 = R^-1 R^-T: the variances of the coefficients up to se_y^2.
    Grid2 inv(p, std::vector<double>(p, 0));  // R^-1, upper triangular in (a, b) = r[b][a] terms
    for (size_t c = 0; c < p; ++c) {
      inv[c][c] = 1 / r[c][c];
      for (size_t a = c; a-- > 0;) {
        double s = 0;
        for (size_t b = a + 1; b <= c; ++b) s += r[b][a] * inv[b][c];
        inv[a][c] = -s / r[a][a];
      }
    }
    std::vector<double> var_diag(p, 0);
    for (size_t a = 0; a < p; ++a)
      for (size_t c = a; c < p; ++c) var_diag[a] += inv[a][c] * inv[a][c];
    for (size_t a = 0; a < p; ++a) out.se[cols[a]] = out.se_y * std::sqrt(var_diag[a]);
    if (constant) {
      // Var(b) = se_y^2 (1/n + m^T (Xc^T Xc)^-1 m) with m the means of the kept columns.
      std::vector<double> w(p, 0);  // R^-T m
      for (size_t c = 0; c < p; ++c) {
        double s = 0;
        for (size_t a = 0; a <= c; ++a) s += inv[a][c] * xmean[cols[a]];
        w[c] = s;
      }
      double quad = std::inner_product(w.begin(), w.end(), w.begin(), 0.0);
      out.se_intercept = out.se_y * std::sqrt(1 / ny + quad);
    }
  }
  return out;
}

/// LINEST and LOGEST: the coefficients last variable first, then the constant; with
/// statistics, four more rows as the application lays them out.
Operand regression(Args& a, bool log_y) {
  Data d = fit_data(a, log_y);
  bool constant = a.size() < 3 || a.missing(2) || boolean(a, 2);
  bool stats = a.size() > 3 && !a.missing(3) && boolean(a, 3);
  Fit f = fit(d, constant);
  int32_t k = static_cast<int32_t>(d.x.size());
  auto shown = [&](double v) { return Value::num(log_y ? std::exp(v) : v); };
  Matrix out(stats ? 5 : 1, k + 1);
  for (Value& v : out.cells) v = Value::error(cell_error::na);
  for (int32_t j = 0; j < k; ++j) out.at(0, k - 1 - j) = shown(f.coef[j]);
  out.at(0, k) = shown(constant ? f.intercept : 0);
  if (stats) {
    auto stat = [&](double v) {
      return f.df_zero || !std::isfinite(v) ? Value::error(cell_error::num) : Value::num(v);
    };
    for (int32_t j = 0; j < k; ++j) out.at(1, k - 1 - j) = stat(f.se[j]);
    out.at(1, k) = constant ? stat(f.se_intercept) : Value::error(cell_error::na);
    out.at(2, 0) = Value::num(f.r2);
    out.at(2, 1) = stat(f.se_y);
    out.at(3, 0) = stat(f.f);
    out.at(3, 1) = Value::num(std::max(0.0, f.df));
    out.at(4, 0) = Value::num(f.ss_reg);
    out.at(4, 1) = Value::num(f.ss_resid);
  }
  return out.cells.size() == 1 ? Operand(out.cells[0]) : Operand::arr(std::move(out));
}
Operand f_linest(Args& a) {
  return regression(a, false);
}
Operand f_logest(Args& a) {
  return regression(a, true);
}

/// TREND and GROWTH: the fitted values at new x (by default the known x), shaped as given.
Operand projection(Args& a, bool log_y) {
  Data d = fit_data(a, log_y);
  bool constant = a.size() < 4 || a.missing(3) || boolean(a, 3);
  Fit f = fit(d, constant);
  size_t k = d.x.size();
  Matrix out;
  if (a.size() < 3 || a.missing(2)) {
    // The known x: one fitted value per observation, laid out as y is.
    size_t n = d.y.size();
    out = d.by_rows ? Matrix(static_cast<int32_t>(n), 1) : Matrix(1, static_cast<int32_t>(n));
    for (size_t i = 0; i < n; ++i) {
      double v = f.intercept;
      for (size_t j = 0; j < k; ++j) v += f.coef[j] * d.x[j][i];
      out.cells[i] = Value::num(log_y ? std::exp(v) : v);
    }
  } else {
    int32_t rows, cols;
    Grid2 x = numbers_block(a, 2, rows, cols);
    if (k == 1) {
      out = Matrix(rows, cols);
      for (int32_t r = 0; r < rows; ++r)
        for (int32_t c = 0; c < cols; ++c) {
          double v = f.intercept + f.coef[0] * x[r][c];
          out.at(r, c) = Value::num(log_y ? std::exp(v) : v);
        }
    } else {
      // Several variables: one new observation per row (or per column).
      bool by_rows = d.by_rows;
      int32_t count = by_rows ? rows : cols;
      if ((by_rows ? cols : rows) != static_cast<int32_t>(k)) return error(cell_error::ref);
      out = by_rows ? Matrix(count, 1) : Matrix(1, count);
      for (int32_t i = 0; i < count; ++i) {
        double v = f.intercept;
        for (size_t j = 0; j < k; ++j)
          v +=
              f.coef[j] * (by_rows ? x[i][static_cast<int32_t>(j)] : x[static_cast<int32_t>(j)][i]);
        out.cells[i] = Value::num(log_y ? std::exp(v) : v);
      }
    }
  }
  for (Value& v : out.cells)
    if (!std::isfinite(v.number)) v = Value::error(cell_error::num);
  return out.cells.size() == 1 ? Operand(out.cells[0]) : Operand::arr(std::move(out));
}
Operand f_trend(Args& a) {
  return projection(a, false);
}
Operand f_growth(Args& a) {
  return projection(a, true);
}

}  // namespace

void add_matrix_functions(std::vector<FunctionInfo>& t) {
  t.insert(t.end(), {
                        {u"GROWTH", 1, 4, f_growth},
                        {u"LINEST", 1, 4, f_linest},
                        {u"LOGEST", 1, 4, f_logest},
                        {u"MDETERM", 1, 1, f_mdeterm},
                        {u"MINVERSE", 1, 1, f_minverse},
                        {u"TREND", 1, 4, f_trend},
                    });
}

}  // namespace qz::engine::calc
