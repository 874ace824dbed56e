#include "SecretInput.h"

#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

namespace VekGnmi {

bool readSecretLine(const char* prompt, std::string& out) {
  const bool terminal = ::isatty(STDIN_FILENO) == 1;
  termios saved{};
  if (terminal) {
    std::fputs(prompt, stderr);
    std::fflush(stderr);
    if (::tcgetattr(STDIN_FILENO, &saved) == 0) {
      termios quiet = saved;
      quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
      ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    }
  }
  const bool read = static_cast<bool>(std::getline(std::cin, out));
  if (terminal) {
    ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
    std::fputs("\n", stderr);
  }
  if (!out.empty() && out.back() == '\r') out.pop_back();
  return read;
}

}  // namespace VekGnmi
