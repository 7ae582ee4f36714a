// Feeds markup to the scanner and every operation built on it. The first byte picks how the rest
// becomes text: even = UTF-8 (pages as they arrive), odd = raw little-endian UTF-16 units, so lone
// surrogates and NULs reach the scanner too. Every reported range is checked against the text, and
// a scan in small windows must report what the whole scan reports.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "fuzz_support.h"
#include "piece_feed.h"
#include "text/markup_scanner.h"

namespace {

using namespace ulvek;

using fuzzing::check;

TextString textFromInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return {};
  const std::uint8_t mode = data[0];
  ++data;
  --size;
  return fuzzing::textFromBytes(data, size, (mode & 1) != 0);
}

void checkAttribute(const MarkupItem& item, std::string_view name, bool contentMode) {
  const TextRange value = FindTagAttribute(item.units, item.tagRange(), name, contentMode);
  if (!value.found()) return;
  check(value.length > 0);
  check(value.location >= item.tagLocation);
  check(value.location + value.length <= item.tagLocation + item.tagLength);
}

// Every item as its text run and tag, with the name and state.
TextString itemsOf(MarkupItem const& item) {
  TextString out(item.textRun());
  out += u'{';
  out += static_cast<char16_t>(u'0' + static_cast<int>(item.state));
  out += item.name();
  out += u'|';
  out += item.tag();
  out += u'}';
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  const TextString text = textFromInput(data, size);
  const std::size_t n = text.size();

  for (bool mutableCopy : {false, true}) {
    std::size_t lastEnd = 0;
    bool sawFinal = false;
    ScanMarkup(
        text,
        [&](const MarkupItem& item) {
          check(!sawFinal);
          check(item.text.size() == n);
          check(item.textLocation >= lastEnd || item.textLocation == n);
          check(item.textLocation <= item.tagLocation);
          check(item.tagLocation <= n && item.tagLength <= n - item.tagLocation);
          if (item.hasName()) {
            check(item.state == MarkupState::Tag);
            check(item.nameLocation > item.tagLocation);
            check(item.nameLocation + item.nameLength <= item.tagLocation + item.tagLength);
          }
          if (item.isFinal()) sawFinal = true;
          lastEnd = item.tagLocation + item.tagLength;
          if (item.tagLength != 0) {
            checkAttribute(item, "HREF", false);
            checkAttribute(item, "CONTENT", true);
            isTagOpenCharacters(item.units, item.tagRange());
            isTagClosedCharacters(item.units, item.tagRange());
            isMetaTagInRange(item.text, item.tagRange());
            isRemarkTagInRange(item.text, item.tagRange());
          }
          // Handlers may rewrite the run in front of the item in the private copy.
          if (item.mutableUnits) {
            for (std::size_t i = item.textLocation; i < item.tagLocation; ++i) {
              item.mutableUnits[i] = u' ';
            }
          }
          return false;
        },
        nullptr, mutableCopy);
    check(sawFinal == (n != 0));
  }

  TextString whole;
  ScanMarkup(
      text, [&](const MarkupItem& item) { return whole += itemsOf(item), false; }, nullptr, false);
  const std::size_t chosen = 1 + (size > 1 ? data[1] % 64u : 0u);
  for (std::size_t window : {std::size_t{1}, std::size_t{7}, chosen}) {
    TextString windowed;
    testing::PieceFeed feed(text);
    parseXmlInWindows(
        feed, [&](const MarkupItem& item) { return windowed += itemsOf(item), false; }, window);
    check(windowed == whole);
  }

  check(stripTags(text).size() <= n + n / 2 + 1);
  stripTag(text, "P");
  stripAttributesOfTag(text, "A");
  stripAttributesOfTag(text, "IMG");
  const std::vector<TextString> prefixes = {u"<style", u"<x", u""};
  if (std::optional<TextString> removed = stripTagBodies(text, prefixes, false)) {
    check(removed->size() <= n);
  }
  stripTagBodies(text, prefixes, true);
  return 0;
}
