// Reading a password from standard input without showing it.
#pragma once

#include <string>

namespace VekGnmi {

// Reads one line of standard input into `out` (without its line end). When
// standard input is a terminal, `prompt` is written to standard error first
// and the terminal does not echo what is typed. False when the input ended
// before a line.
bool readSecretLine(const char* prompt, std::string& out);

}  // namespace VekGnmi
