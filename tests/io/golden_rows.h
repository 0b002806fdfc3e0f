// Helpers of the io tests: written networks, whole golden files under
// tests/data/, and rows of tab-separated ones (one case a line, '#' starts
// a comment line, and the fields know the escapes \n, \t and \\).
#pragma once

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "orvel.h"

namespace orvel::test {

// What ov_domain_write_net prints for a domain or class; empty on failure.
inline std::string written(ov_domain_t domain) {
  char *buffer = nullptr;
  std::size_t size = 0;
  std::FILE *stream = open_memstream(&buffer, &size);
  const bool ok = stream != nullptr && ov_domain_write_net(domain, stream) == ov_error_none;
  if (stream != nullptr) std::fclose(stream);
  std::string text(ok ? buffer : "", ok ? size : 0);
  std::free(buffer);
  return text;
}

inline std::string read_file(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

inline std::string unescape(const std::string &field) {
  std::string out;
  for (std::size_t i = 0; i < field.size(); ++i) {
    if (field[i] != '\\' || i + 1 == field.size()) {
      out += field[i];
      continue;
    }
    const char c = field[++i];
    out += c == 'n' ? '\n' : c == 't' ? '\t' : c;
  }
  return out;
}

inline std::vector<std::vector<std::string>> golden_rows(const std::string &name) {
  std::ifstream in(std::string(ORVEL_TEST_DATA "/") + name);
  std::vector<std::vector<std::string>> rows;
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::vector<std::string> fields;
    for (std::size_t start = 0;;) {
      const std::size_t tab = line.find('\t', start);
      fields.push_back(unescape(line.substr(start, tab - start)));
      if (tab == std::string::npos) break;
      start = tab + 1;
    }
    rows.push_back(std::move(fields));
  }
  return rows;
}

} // namespace orvel::test
