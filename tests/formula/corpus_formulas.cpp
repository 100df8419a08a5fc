#include "corpus_formulas.hpp"

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "qzxl/convert.hpp"

namespace qz::test {

namespace fs = std::filesystem;

namespace {

void add(std::vector<CorpusFormula>& out, const std::string& source, std::string text) {
  if (text.rfind("\xEF\xBB\xBF", 0) == 0) text.erase(0, 3);  // a byte-order mark
  if (text.empty()) return;
  String f = from_utf8(text);
  if (f.front() != u'=') f.insert(f.begin(), u'=');
  out.push_back({source, std::move(f)});
}

// Every string anywhere in a JSON document: the test inputs of these files sit at varying
// depths, and an extra string (an expected token name) is just one more formula to read.
void add_strings(std::vector<CorpusFormula>& out, const std::string& source,
                 const nlohmann::json& j) {
  if (j.is_string()) {
    add(out, source, j.get<std::string>());
  } else if (j.is_array() || j.is_object()) {
    for (const auto& item : j) add_strings(out, source, item);
  }
}

// One CSV field per line, quoted with doubled quotes inside.
std::string unquote_csv(const std::string& line) {
  if (line.size() < 2 || line.front() != '"' || line.back() != '"') return line;
  std::string out;
  for (size_t i = 1; i + 1 < line.size(); ++i) {
    out += line[i];
    if (line[i] == '"' && line[i + 1] == '"') ++i;
  }
  return out;
}

}  // namespace

std::vector<CorpusFormula> load_corpus_formulas(const fs::path& dir) {
  std::vector<CorpusFormula> out;
  std::error_code ec;
  if (dir.empty() || !fs::is_directory(dir, ec)) return out;
  std::vector<fs::path> files;
  for (const auto& e : fs::recursive_directory_iterator(dir)) files.push_back(e.path());
  std::sort(files.begin(), files.end());
  for (const auto& path : files) {
    const std::string ext = path.extension().string();
    const std::string name = path.filename().string();
    std::ifstream in(path, std::ios::binary);
    if (ext == ".json") {
      add_strings(out, name, nlohmann::json::parse(in, nullptr, false));
      continue;
    }
    if (ext != ".jsonl" && ext != ".csv" && ext != ".tsv" && ext != ".txt") continue;
    if (name == "SOURCE.txt") continue;
    std::string line;
    int formula_column = -1;
    for (int n = 1; std::getline(in, line); ++n) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      const std::string where = name + ":" + std::to_string(n);
      if (ext == ".jsonl") {
        auto j = nlohmann::json::parse(line, nullptr, false);
        for (const char* key : {"formula", "expr"})
          if (j.is_object() && j.contains(key) && j[key].is_string())
            add(out, where, j[key].get<std::string>());
      } else if (ext == ".tsv") {
        std::vector<std::string> cols;
        std::stringstream ss(line);
        for (std::string c; std::getline(ss, c, '\t');) cols.push_back(c);
        if (n == 1) {
          for (size_t i = 0; i < cols.size(); ++i)
            if (cols[i] == "formula") formula_column = static_cast<int>(i);
        } else if (formula_column >= 0 && static_cast<size_t>(formula_column) < cols.size()) {
          add(out, where, cols[static_cast<size_t>(formula_column)]);
        }
      } else {
        add(out, where, unquote_csv(line));
      }
    }
  }
  return out;
}

}  // namespace qz::test
