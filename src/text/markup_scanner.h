#pragma once

// A forgiving one-pass scanner over HTML, XML and property-list text. It never builds a tree:
// every tag, comment and declaration section is reported to a handler together with the run of
// plain text in front of it, and the handler decides what to keep and whether to go on.

#include <cstddef>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "base/text_string.h"

namespace ulvek {

// What the scanner was inside when it reported an item.
enum class MarkupState : int {
  Text = 0,     // only for the final call, which carries the trailing text
  Tag = 1,      // "<" ... ">", including end tags, "<?xml ...?>" and "<!DOCTYPE ...>"
  Comment = 2,  // begun by "<!-"
  Section = 3,  // begun by "<![" (CDATA and conditional sections)
};

// One reported item. All locations index `units`. The plain-text run in front of the item is
// [textLocation, tagLocation); the item itself is [tagLocation, tagLocation + tagLength).
struct MarkupItem {
  TextView text;                     // the scanned units (the private copy in mutable mode)
  const char16_t* units = nullptr;   // text.data()
  char16_t* mutableUnits = nullptr;  // writable copy in mutable mode, else null
  std::size_t nameLocation = kNotFound;
  std::size_t nameLength = 0;
  std::size_t tagLocation = 0;
  std::size_t tagLength = 0;
  std::size_t textLocation = 0;
  MarkupState state = MarkupState::Text;
  void* context = nullptr;

  bool hasName() const { return nameLength != 0; }
  TextView name() const { return hasName() ? text.substr(nameLocation, nameLength) : TextView(); }
  TextView tag() const { return text.substr(tagLocation, tagLength); }
  TextRange tagRange() const { return {tagLocation, tagLength}; }
  // The plain text between the previous item and this one.
  TextView textRun() const { return text.substr(textLocation, tagLocation - textLocation); }
  // The last call of a scan: no item, only the trailing text.
  bool isFinal() const { return tagLength == 0 && tagLocation == text.size(); }
  // Name equality against an ASCII name, ignoring case ("script", "META").
  bool nameIs(std::string_view asciiName) const;
};

// Receives the scanner's items. Answer true to stop the scan.
class MarkupTagHandler {
 public:
  virtual ~MarkupTagHandler() = default;
  virtual bool handleItem(const MarkupItem& item) = 0;
};

// Walks `text` once and reports every item, then a final call with the trailing text.
// With `mutableCopy` the units are copied first and handlers may rewrite text runs in place
// through `MarkupItem::mutableUnits` (never past the item's tag location). Answers false for an
// empty text (the handler is not called), true otherwise.
bool ScanMarkup(TextView text, MarkupTagHandler& handler, void* context, bool mutableCopy);

// Adapts any callable `bool(const MarkupItem&)` to a handler.
template <typename Function>
class CallableMarkupHandler final : public MarkupTagHandler {
 public:
  explicit CallableMarkupHandler(Function& function) : function_(function) {}
  bool handleItem(const MarkupItem& item) override { return function_(item); }

 private:
  Function& function_;
};

template <typename Function>
requires std::is_invocable_r_v<bool, Function&, const MarkupItem&>
bool ScanMarkup(TextView text, Function&& function, void* context, bool mutableCopy) {
  CallableMarkupHandler<std::remove_reference_t<Function>> handler(function);
  return ScanMarkup(text, handler, context, mutableCopy);
}

// ScanMarkup with a protective region: an exception thrown by a handler is logged in the usual
// exception format and the answer is then false.
bool parseXmlWithHandler(TextView text, MarkupTagHandler& handler, void* context, bool mutableCopy);

template <typename Function>
requires std::is_invocable_r_v<bool, Function&, const MarkupItem&>
bool parseXmlWithHandler(TextView text, Function&& function, void* context, bool mutableCopy) {
  CallableMarkupHandler<std::remove_reference_t<Function>> handler(function);
  return parseXmlWithHandler(text, handler, context, mutableCopy);
}

// ---- Markup held whole or decoded window by window ----

// Gives markup text a piece at a time.
class MarkupTextFeed {
 public:
  virtual ~MarkupTextFeed() = default;
  // Appends about `units` more units to `window`; answers false once the text is complete.
  virtual bool appendMore(TextString& window, std::size_t units) = 0;
};

// parseXmlWithHandler over text that arrives in pieces, holding only a window of it: the same
// items as over the whole text, with locations in the current window (handlers keep no location
// from one item to the next). An item is never split: the window grows to hold it.
bool parseXmlInWindows(MarkupTextFeed& feed, MarkupTagHandler& handler, std::size_t windowUnits);

template <typename Function>
requires std::is_invocable_r_v<bool, Function&, const MarkupItem&>
bool parseXmlInWindows(MarkupTextFeed& feed, Function&& function, std::size_t windowUnits) {
  CallableMarkupHandler<std::remove_reference_t<Function>> handler(function);
  return parseXmlInWindows(feed, static_cast<MarkupTagHandler&>(handler), windowUnits);
}

// Markup to scan, whole or fed window by window. Every scan starts at the beginning.
class MarkupSource {
 public:
  virtual ~MarkupSource() = default;
  // parseXmlWithHandler over the text.
  virtual bool scan(MarkupTagHandler& handler) const = 0;
  // The whole text, for the rare answer that is the input itself.
  virtual TextString wholeText() const = 0;
  // About how many units the text has.
  virtual std::size_t lengthHint() const = 0;

  template <typename Function>
  requires std::is_invocable_r_v<bool, Function&, const MarkupItem&>
  bool scan(Function&& function) const {
    CallableMarkupHandler<std::remove_reference_t<Function>> handler(function);
    return scan(static_cast<MarkupTagHandler&>(handler));
  }
};

// A text held whole; `text` must outlive the source.
class WholeMarkup final : public MarkupSource {
 public:
  explicit WholeMarkup(TextView text) : text_(text) {}
  bool scan(MarkupTagHandler& handler) const override;
  using MarkupSource::scan;
  TextString wholeText() const override { return TextString(text_); }
  std::size_t lengthHint() const override { return text_.size(); }

 private:
  TextView text_;
};

// ---- Attribute lookup inside one tag ----
// Names are upper-case ASCII ("HREF", "SRC", "CONTENT"); matching ignores case and needs a word
// boundary before the name. Values keep their character references; trailing white is trimmed;
// an empty value counts as absent.

// Range of the value inside `units` (location kNotFound when absent). `contentMode` lets a
// quoted value hold nested markup, as meta CONTENT values sometimes do.
TextRange FindTagAttribute(const char16_t* units, TextRange tagRange, std::string_view name,
                           bool contentMode);

TextRange rangeOfAttributeOfTagCharacters(const char16_t* units, TextRange tagRange,
                                          std::string_view name);
TextRange rangeOfAttributeOfTagCharacters(const char16_t* units, std::size_t length,
                                          std::string_view name);
std::optional<TextString> attributeOfTagCharacters(const char16_t* units, TextRange tagRange,
                                                   std::string_view name);
std::optional<TextString> attributeOfTagCharacters(const char16_t* units, std::size_t length,
                                                   std::string_view name);
// The "CONTENT" attribute in content mode.
std::optional<TextString> contentAttributeOfTagCharacters(const char16_t* units,
                                                          TextRange tagRange);
// `tag` holds exactly one tag.
std::optional<TextString> attributeOfTagWithName(TextView tag, std::string_view name);
// The tag is `range` of `text`.
std::optional<TextString> attributeOfTagInRange(TextView text, TextRange range,
                                                std::string_view name);

// ---- Tag predicates on a tag's own text ----
// Open: a start tag (at least 3 units, second unit not "/").
bool isTagOpen(TextView tag);
bool isTagOpenCharacters(const char16_t* units, TextRange range);
bool isTagOpenInRange(TextView text, TextRange range);
// Closed: an end tag or a self-closing tag (at least 4 units, second or next-to-last unit "/").
bool isTagClosed(TextView tag);
bool isTagClosedCharacters(const char16_t* units, TextRange range);
bool isTagClosedInRange(TextView text, TextRange range);
// "<![" ... (at least 7 units).
bool isMetaTag(TextView tag);
bool isMetaTagInRange(TextView text, TextRange range);
// "<!-" ... (at least 7 units).
bool isRemarkTag(TextView tag);
bool isRemarkTagInRange(TextView text, TextRange range);

// ---- Strip operations ----
// The text runs only, joined by a space where the previous run does not end in white.
TextString stripTags(TextView text);
// Without the start and end tags named `name` (upper-case ASCII), their contents kept.
TextString stripTag(TextView text, std::string_view name);
// The tags named `name` rewritten without attributes, keeping an HREF or SRC link.
TextString stripAttributesOfTag(TextView text, std::string_view name);
// Prefixes include the "<" ("<style-attribute"). Remove mode drops whole matching elements;
// keep mode (`except`) answers only those elements, each followed by "\n". Nothing means the
// result would be empty (or, in remove mode with no prefixes, the text itself).
std::optional<TextString> stripTagBodies(TextView text, const std::vector<TextString>& prefixes,
                                         bool except);
std::optional<TextString> stripTagBodies(TextView text, const std::vector<TextString>& prefixes);
std::optional<TextString> stripTagBodiesExcept(TextView text,
                                               const std::vector<TextString>& prefixes);

}  // namespace ulvek
