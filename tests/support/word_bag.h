#pragma once

// How well two texts agree word for word, ignoring order and white space: the F1 score of their
// bags of words (runs of letters and digits, lower-cased).
#include <unicode/uchar.h>

#include <algorithm>
#include <map>
#include <string>

#include "base/text_string.h"

namespace ulvek::testing {

inline std::map<std::u16string, int> wordBag(TextView text) {
  std::map<std::u16string, int> bag;
  std::u16string word;
  for (char16_t c : text) {
    if (u_isalnum(c) || c == u'_') {
      word.push_back(static_cast<char16_t>(u_tolower(c)));
    } else if (!word.empty()) {
      ++bag[word];
      word.clear();
    }
  }
  if (!word.empty()) ++bag[word];
  return bag;
}

inline double wordBagF1(TextView ours, TextView theirs) {
  std::map<std::u16string, int> a = wordBag(ours);
  std::map<std::u16string, int> b = wordBag(theirs);
  int common = 0, countA = 0, countB = 0;
  for (const auto& [word, n] : a) {
    countA += n;
    if (auto found = b.find(word); found != b.end()) common += std::min(n, found->second);
  }
  for (const auto& [word, n] : b) countB += n;
  if (countA == 0 && countB == 0) return 1.0;
  if (common == 0) return 0.0;
  double precision = static_cast<double>(common) / countA;
  double recall = static_cast<double>(common) / countB;
  return 2 * precision * recall / (precision + recall);
}

}  // namespace ulvek::testing
