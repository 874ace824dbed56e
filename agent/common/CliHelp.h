// The help layout of vekgnmid and vekgnmi (CLI11): one option a line, its
// value named as the option says (`option_text`), its description wrapped
// to 80 columns in a column of its own.
#pragma once

#include <sstream>
#include <string>

#include <CLI/CLI.hpp>

namespace VekGnmi {

class HelpFormatter : public CLI::Formatter {
 public:
  static constexpr size_t WIDTH = 80;
  static constexpr size_t COLUMN = 28;

  HelpFormatter() { column_width(COLUMN); }

  // The value's name only: no validators, defaults or option relations
  // (the description says what matters).
  std::string make_option_opts(const CLI::Option* opt) const override {
    return opt->get_option_text().empty() ? std::string() : " " + opt->get_option_text();
  }

  std::string make_option(const CLI::Option* opt, bool positional) const override {
    const std::string name = "  " + make_option_name(opt, positional) + make_option_opts(opt);
    std::ostringstream out;
    out << name;
    size_t at = name.size();
    if (at + 1 > COLUMN) {
      out << '\n';
      at = 0;
    }
    std::istringstream words(make_option_desc(opt));
    bool lineStart = true;
    for (std::string word; words >> word;) {
      if (!lineStart && at + 1 + word.size() > WIDTH) {
        out << '\n';
        at = 0;
        lineStart = true;
      }
      if (lineStart) {
        out << std::string(COLUMN - at, ' ');
        at = COLUMN;
      } else {
        out << ' ';
        ++at;
      }
      out << word;
      at += word.size();
      lineStart = false;
    }
    out << '\n';
    return out.str();
  }
};

}  // namespace VekGnmi
