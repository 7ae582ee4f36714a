#pragma once

// A held text given to a windowed scan a few units at a time, so that tests and fuzz targets can
// put window edges anywhere.
#include <algorithm>
#include <cstddef>

#include "base/text_string.h"
#include "text/markup_scanner.h"

namespace ulvek::testing {

class PieceFeed final : public MarkupTextFeed {
 public:
  explicit PieceFeed(TextView text) : text_(text) {}
  bool appendMore(TextString& window, std::size_t units) override {
    const std::size_t count = std::min(units, text_.size() - at_);
    window.append(text_.substr(at_, count));
    at_ += count;
    return at_ < text_.size();
  }

 private:
  TextView text_;
  std::size_t at_ = 0;
};

}  // namespace ulvek::testing
