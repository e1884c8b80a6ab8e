// Garbage for readers: how much of it, and lines of it.
#pragma once

#include <cstdlib>
#include <random>
#include <string>

/// Number of random lines: the environment variable KALVARIS_RANDOM_LINES, else a million under the sanitizers, where a
/// wrong access is seen, and few enough for a quick suite elsewhere.
inline int random_lines() {
  if (const char* told = std::getenv("KALVARIS_RANDOM_LINES"))
    if (const int n = std::atoi(told); n > 0) return n;
#ifdef __SANITIZE_ADDRESS__
  return 1000000;
#else
  return 100000;
#endif
}

/// Up to `longest` characters drawn from `characters`.
inline std::string random_text(std::mt19937& random, const std::string& characters, std::size_t longest) {
  std::uniform_int_distribution<std::size_t> pick(0, characters.size() - 1), length(0, longest);
  std::string text;
  for (std::size_t n = length(random); n > 0; --n) text += characters[pick(random)];
  return text;
}
