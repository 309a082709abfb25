#include "db_access/access_sql.h"

#include <sqlite3.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <vector>

#include "qk/variant.h"

namespace qk::companions {

namespace {

enum class Kind { Space, Word, Number, Text, Quoted, Op, Open, Close, Comma, Other };

struct Token {
  Kind kind;
  std::string text;
};

bool is_word_start(char c) {
  return std::isalpha(static_cast<unsigned char>(c)) || c == '_';
}
bool is_word_char(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '$';
}

// Case-insensitive comparison with a lower-case word, without a copy.
bool is_word(const std::string& s, std::string_view lower_word) {
  if (s.size() != lower_word.size()) return false;
  for (std::size_t i = 0; i < s.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(s[i])) != lower_word[i]) return false;
  return true;
}

std::vector<Token> tokenize(const std::string& s) {
  std::vector<Token> out;
  out.reserve(s.size() / 3);
  std::size_t i = 0;
  while (i < s.size()) {
    char c = s[i];
    std::size_t j = i + 1;
    Kind kind = Kind::Other;
    if (std::isspace(static_cast<unsigned char>(c))) {
      while (j < s.size() && std::isspace(static_cast<unsigned char>(s[j]))) ++j;
      kind = Kind::Space;
    } else if (c == '\'' || c == '"') {
      while (j < s.size()) {
        if (s[j] == c) {
          if (j + 1 < s.size() && s[j + 1] == c)
            j += 2;
          else
            break;
        } else {
          ++j;
        }
      }
      j = std::min(j + 1, s.size());
      kind = Kind::Text;
    } else if (c == '[') {
      while (j < s.size() && s[j] != ']') ++j;
      j = std::min(j + 1, s.size());
      kind = Kind::Quoted;
    } else if (std::isdigit(static_cast<unsigned char>(c)) ||
               (c == '.' && i + 1 < s.size() &&
                std::isdigit(static_cast<unsigned char>(s[i + 1])))) {
      while (j < s.size() && (std::isalnum(static_cast<unsigned char>(s[j])) || s[j] == '.')) ++j;
      kind = Kind::Number;
    } else if (is_word_start(c)) {
      while (j < s.size() && is_word_char(s[j])) ++j;
      kind = Kind::Word;
    } else if (c == '(') {
      kind = Kind::Open;
    } else if (c == ')') {
      kind = Kind::Close;
    } else if (c == ',') {
      kind = Kind::Comma;
    } else if (std::string("<>=!|").find(c) != std::string::npos) {
      while (j < s.size() && std::string("<>=|").find(s[j]) != std::string::npos) ++j;
      kind = Kind::Op;
    } else if (std::string("+-*/\\&^%").find(c) != std::string::npos) {
      kind = Kind::Op;
    }
    out.push_back({kind, s.substr(i, j - i)});
    i = j;
  }
  return out;
}

// A token list where a rewritten operation becomes a single primary.
using Tokens = std::vector<Token>;

bool is_mod(const Token& t) {
  return t.kind == Kind::Word && is_word(t.text, "mod");
}

// Words that can stand before "(" without naming a function.
bool is_keyword(const Token& t) {
  static const char* kWords[] = {"and",  "or",    "not",    "where",    "select", "from",   "on",
                                 "in",   "is",    "like",   "between",  "when",   "then",   "else",
                                 "case", "by",    "having", "set",      "values", "exists", "as",
                                 "join", "union", "all",    "distinct", "mod",    "into",   "end"};
  if (t.kind != Kind::Word) return false;
  for (const char* k : kWords)
    if (is_word(t.text, k)) return true;
  return false;
}

// Operators that bind tighter than the operator being rewritten, so they stay inside its
// operands: for "\" these are ^ * /, for mod also "\" (already rewritten by then).
bool binds_tighter(const Token& t) {
  return t.kind == Kind::Op &&
         (t.text == "^" || t.text == "*" || t.text == "/" || t.text == "* 1.0 /");
}

std::size_t skip_space_back(const Tokens& t, std::size_t i) {
  while (i > 0 && t[i - 1].kind == Kind::Space) --i;
  return i;
}
std::size_t skip_space_fwd(const Tokens& t, std::size_t i) {
  while (i < t.size() && t[i].kind == Kind::Space) ++i;
  return i;
}

// Start of the primary that ends just before end (exclusive); npos when there is none.
std::size_t primary_start(const Tokens& t, std::size_t end) {
  std::size_t i = skip_space_back(t, end);
  if (i == 0) return std::string::npos;
  const Token& last = t[i - 1];
  std::size_t start;
  if (last.kind == Kind::Close) {
    int depth = 0;
    std::size_t k = i;
    while (k > 0) {
      --k;
      if (t[k].kind == Kind::Close)
        ++depth;
      else if (t[k].kind == Kind::Open && --depth == 0)
        break;
    }
    if (depth != 0) return std::string::npos;
    start = k;
    std::size_t before = skip_space_back(t, start);
    if (before > 0 && t[before - 1].kind == Kind::Word && !is_keyword(t[before - 1]))
      start = before - 1;  // a function call
  } else if (last.kind == Kind::Word || last.kind == Kind::Number || last.kind == Kind::Text ||
             last.kind == Kind::Quoted) {
    if (is_keyword(last)) return std::string::npos;
    start = i - 1;
    // qualified names: a.b
    while (start >= 2 && t[start - 1].kind == Kind::Other && t[start - 1].text == "." &&
           (t[start - 2].kind == Kind::Word || t[start - 2].kind == Kind::Quoted))
      start -= 2;
  } else {
    return std::string::npos;
  }
  // A unary sign belongs to the operand when nothing that ends an operand precedes it.
  std::size_t before = skip_space_back(t, start);
  if (before > 0 && t[before - 1].kind == Kind::Op &&
      (t[before - 1].text == "-" || t[before - 1].text == "+")) {
    std::size_t b2 = skip_space_back(t, before - 1);
    bool operand_before =
        b2 > 0 && (t[b2 - 1].kind == Kind::Close || t[b2 - 1].kind == Kind::Number ||
                   t[b2 - 1].kind == Kind::Text || t[b2 - 1].kind == Kind::Quoted ||
                   (t[b2 - 1].kind == Kind::Word && !is_keyword(t[b2 - 1])));
    if (!operand_before) start = before - 1;
  }
  return start;
}

// End (exclusive) of the primary starting at or after begin; npos when there is none.
std::size_t primary_end(const Tokens& t, std::size_t begin) {
  std::size_t i = skip_space_fwd(t, begin);
  if (i < t.size() && t[i].kind == Kind::Op && (t[i].text == "-" || t[i].text == "+"))
    i = skip_space_fwd(t, i + 1);
  if (i >= t.size()) return std::string::npos;
  auto close_of = [&](std::size_t open) {
    int depth = 0;
    for (std::size_t k = open; k < t.size(); ++k) {
      if (t[k].kind == Kind::Open)
        ++depth;
      else if (t[k].kind == Kind::Close && --depth == 0)
        return k + 1;
    }
    return std::string::npos;
  };
  if (t[i].kind == Kind::Open) return close_of(i);
  if (t[i].kind == Kind::Word && !is_keyword(t[i])) {
    std::size_t j = skip_space_fwd(t, i + 1);
    if (j < t.size() && t[j].kind == Kind::Open) return close_of(j);
    std::size_t end = i + 1;
    while (end + 1 < t.size() && t[end].kind == Kind::Other && t[end].text == "." &&
           (t[end + 1].kind == Kind::Word || t[end + 1].kind == Kind::Quoted))
      end += 2;
    return end;
  }
  if (t[i].kind == Kind::Number || t[i].kind == Kind::Text || t[i].kind == Kind::Quoted)
    return i + 1;
  return std::string::npos;
}

std::string join(const Tokens& t, std::size_t a, std::size_t b) {
  std::string s;
  for (std::size_t k = a; k < b; ++k) s += t[k].text;
  return s;
}

// Rewrites every binary operator matched by is_op into fn(left, right), left to right.
void rewrite_binary(Tokens& t, bool (*is_op)(const Token&), const char* fn) {
  for (std::size_t k = 0; k < t.size(); ++k) {
    if (!is_op(t[k])) continue;
    // Left operand: primaries joined by tighter operators.
    std::size_t left = primary_start(t, k);
    while (left != std::string::npos) {
      std::size_t b = skip_space_back(t, left);
      if (b > 0 && binds_tighter(t[b - 1])) {
        std::size_t s = primary_start(t, b - 1);
        if (s == std::string::npos) break;
        left = s;
      } else {
        break;
      }
    }
    std::size_t right = primary_end(t, k + 1);
    while (right != std::string::npos) {
      std::size_t f = skip_space_fwd(t, right);
      if (f < t.size() && binds_tighter(t[f])) {
        std::size_t e = primary_end(t, f + 1);
        if (e == std::string::npos) break;
        right = e;
      } else {
        break;
      }
    }
    if (left == std::string::npos || right == std::string::npos) continue;  // leave it to SQLite
    std::size_t ls = skip_space_back(t, k);
    std::size_t rs = skip_space_fwd(t, k + 1);
    std::string text = std::string(fn) + "(" + join(t, left, ls) + ", " + join(t, rs, right) + ")";
    t.erase(t.begin() + static_cast<long>(left), t.begin() + static_cast<long>(right));
    t.insert(t.begin() + static_cast<long>(left), Token{Kind::Word, text});
    k = left;
  }
}

bool is_intdiv(const Token& t) {
  return t.kind == Kind::Op && t.text == "\\";
}

double rounded(sqlite3_value* v) {
  return std::nearbyint(sqlite3_value_double(v));  // the default rounding: ties to even
}

void fn_int(sqlite3_context* ctx, int, sqlite3_value** argv) {
  if (sqlite3_value_type(argv[0]) == SQLITE_NULL) return sqlite3_result_null(ctx);
  double f = std::floor(sqlite3_value_double(argv[0]));
  if (std::fabs(f) < 9e18)
    sqlite3_result_int64(ctx, static_cast<sqlite3_int64>(f));
  else
    sqlite3_result_double(ctx, f);
}

void fn_mod(sqlite3_context* ctx, int, sqlite3_value** argv) {
  if (sqlite3_value_type(argv[0]) == SQLITE_NULL || sqlite3_value_type(argv[1]) == SQLITE_NULL)
    return sqlite3_result_null(ctx);
  double a = rounded(argv[0]), b = rounded(argv[1]);
  if (b == 0) return sqlite3_result_error(ctx, "Division by zero", -1);
  sqlite3_result_int64(ctx, static_cast<sqlite3_int64>(std::fmod(a, b)));
}

void fn_intdiv(sqlite3_context* ctx, int, sqlite3_value** argv) {
  if (sqlite3_value_type(argv[0]) == SQLITE_NULL || sqlite3_value_type(argv[1]) == SQLITE_NULL)
    return sqlite3_result_null(ctx);
  double a = rounded(argv[0]), b = rounded(argv[1]);
  if (b == 0) return sqlite3_result_error(ctx, "Division by zero", -1);
  sqlite3_result_int64(ctx, static_cast<sqlite3_int64>(std::trunc(a / b)));
}

}  // namespace

std::string translate_access_sql(const std::string& sql) {
  Tokens t = tokenize(sql);
  bool changed = false;
  for (std::size_t k = 0; k < t.size(); ++k) {
    Token& tok = t[k];
    if (tok.kind == Kind::Text && tok.text[0] == '"') {
      std::string inner = tok.text.substr(1, tok.text.size() >= 2 ? tok.text.size() - 2 : 0);
      std::string out = "'";
      for (std::size_t i = 0; i < inner.size(); ++i) {
        if (inner[i] == '"' && i + 1 < inner.size() && inner[i + 1] == '"') ++i;
        if (inner[i] == '\'') out += '\'';
        out += inner[i];
      }
      tok.text = out + "'";
      changed = true;
    } else if (tok.kind == Kind::Quoted) {
      tok.text = "\"" + tok.text.substr(1, tok.text.size() - 2) + "\"";
      changed = true;
    } else if (tok.kind == Kind::Word && is_word(tok.text, "true")) {
      tok.text = "-1";
      changed = true;
    } else if (tok.kind == Kind::Word && is_word(tok.text, "false")) {
      tok.text = "0";
      changed = true;
    } else if (tok.kind == Kind::Op && tok.text == "&") {
      tok.text = "||";
      changed = true;
    } else if (tok.kind == Kind::Op && tok.text == "/") {
      tok.text = "* 1.0 /";
      changed = true;
    } else if (is_mod(tok) || is_intdiv(tok)) {
      changed = true;
    }
  }
  if (!changed) return sql;
  rewrite_binary(t, is_intdiv, "qk_intdiv");
  rewrite_binary(t, is_mod, "qk_mod");
  return join(t, 0, t.size());
}

Parameterized parameterize(const std::string& sqlite_sql) {
  Parameterized out;
  Tokens t = tokenize(sqlite_sql);
  bool active = false;
  int depth = 0;
  for (Token& tok : t) {
    if (tok.kind == Kind::Open) ++depth;
    if (tok.kind == Kind::Close) --depth;
    if (tok.kind == Kind::Word && depth == 0) {
      if (is_word(tok.text, "where") || is_word(tok.text, "set")) active = true;
      if (is_word(tok.text, "order") || is_word(tok.text, "group") || is_word(tok.text, "limit"))
        active = false;
    }
    if (!active) continue;
    if (tok.kind == Kind::Number) {
      bool integer = tok.text.find_first_not_of("0123456789") == std::string::npos;
      bool decimal = !integer && tok.text.find_first_not_of("0123456789.") == std::string::npos &&
                     std::count(tok.text.begin(), tok.text.end(), '.') == 1;
      if (integer && tok.text.size() <= 9) {
        out.values.emplace_back(static_cast<int32_t>(std::stol(tok.text)));
      } else if (decimal) {
        out.values.emplace_back(std::stod(tok.text));
      } else {
        continue;
      }
    } else if (tok.kind == Kind::Text && tok.text.size() >= 2 && tok.text[0] == '\'') {
      std::string v;
      for (std::size_t i = 1; i + 1 < tok.text.size(); ++i) {
        v += tok.text[i];
        if (tok.text[i] == '\'' && tok.text[i + 1] == '\'') ++i;
      }
      out.values.emplace_back(v);
    } else {
      continue;
    }
    tok.text = "?" + std::to_string(out.values.size());
  }
  out.sql = join(t, 0, t.size());
  return out;
}

std::string pg_dialect(const std::string& sqlite_sql, std::vector<bool>* used) {
  Tokens t = tokenize(sqlite_sql);
  auto word_at = [&](std::size_t k, std::string_view lower) {
    return k < t.size() && t[k].kind == Kind::Word && is_word(t[k].text, lower);
  };
  used->clear();
  std::size_t plain = 0;
  std::string out;
  for (std::size_t k = 0; k < t.size(); ++k) {
    const Token& tok = t[k];
    if (tok.kind == Kind::Other && tok.text == "?") {
      std::size_t n = ++plain;
      if (k + 1 < t.size() && t[k + 1].kind == Kind::Number &&
          t[k + 1].text.find_first_not_of("0123456789") == std::string::npos)
        n = std::stoul(t[++k].text);
      if (used->size() < n) used->resize(n);
      (*used)[n - 1] = true;
      out += "$" + std::to_string(n);
      continue;
    }
    if (word_at(k, "is")) {
      std::size_t n = skip_space_fwd(t, k + 1);
      bool negated = word_at(n, "not");
      std::size_t operand = negated ? skip_space_fwd(t, n + 1) : n;
      if (!word_at(operand, "null") && !word_at(operand, "true") && !word_at(operand, "false")) {
        out += negated ? "IS DISTINCT FROM" : "IS NOT DISTINCT FROM";
        if (negated) k = n;
        continue;
      }
    } else if (word_at(k, "update")) {
      // PostgreSQL always stops at a failing row.
      std::size_t o = skip_space_fwd(t, k + 1), f = skip_space_fwd(t, o + 1);
      if (word_at(o, "or") && word_at(f, "fail")) {
        out += tok.text;
        k = f;
        continue;
      }
    } else if (word_at(k, "int")) {
      std::size_t n = skip_space_fwd(t, k + 1);
      if (n < t.size() && t[n].kind == Kind::Open) {
        out += "qk_int";
        continue;
      }
    }
    out += tok.text;
  }
  return out;
}

namespace {

// qk_flags(current, written, clear_only, writable): see register_access_functions' header.
void fn_flags(sqlite3_context* ctx, int, sqlite3_value** v) {
  auto text = [&](int i) {
    const unsigned char* t = sqlite3_value_text(v[i]);
    return std::string(t ? reinterpret_cast<const char*>(t) : "");
  };
  std::string current = text(0), written = text(1);
  bool clear_only = sqlite3_value_int(v[2]) != 0;
  bool all = sqlite3_value_type(v[3]) == SQLITE_NULL;
  std::string writable = text(3);
  std::string out = current;
  for (std::size_t i = 0; i < out.size(); ++i) {
    if (!all && (i >= writable.size() || writable[i] != '1')) continue;
    char w = i < written.size() ? written[i] : '0';
    out[i] = clear_only ? (current[i] == '1' && w == '1' ? '1' : '0') : w;
  }
  sqlite3_result_text(ctx, out.data(), static_cast<int>(out.size()), SQLITE_TRANSIENT);
}

}  // namespace

void register_access_functions(sqlite3* db) {
  int flags = SQLITE_UTF8 | SQLITE_DETERMINISTIC;
  sqlite3_create_function(db, "qk_flags", 4, flags, nullptr, fn_flags, nullptr, nullptr);
  sqlite3_create_function(db, "int", 1, flags, nullptr, fn_int, nullptr, nullptr);
  sqlite3_create_function(db, "qk_mod", 2, flags, nullptr, fn_mod, nullptr, nullptr);
  sqlite3_create_function(db, "qk_intdiv", 2, flags, nullptr, fn_intdiv, nullptr, nullptr);
}

}  // namespace qk::companions
