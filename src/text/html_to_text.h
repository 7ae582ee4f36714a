#pragma once

#include "base/text_string.h"

namespace ulvek {

class MarkupSource;

// HTML to the plain text a reader of the page sees: the text runs of the body, block elements as
// line and paragraph breaks, invisible and non-content elements dropped, character references
// converted. One scan over the markup (two when the document has no body element).
//
// Every form answers the input itself when the conversion produced nothing (no body text, or the
// scan failed). The output is not trimmed; it may end with "\n\n".
//
// Settings, in argument order:
//   entities      convert character references in text runs
//   stdEntities   convert the markup references (&amp; &lt; &gt; &quot;) too; with entities off,
//                 convert only those
//   nonUmlauted   fold the output through the diacritic fold table
//   reformat      re-flow preformatted text (single line breaks join lines)
//   onlyBody      only text inside <body>; a document without a body is converted whole
//   removeJunk    drop text hidden by colour or tiny fonts and oversized runs
//   didRemoveJunk out (may be null): junk was dropped
//   googleTags    honour <!--googleoff: index--> / <!--googleon: index--> comments
//   imageAlts     write the ALT (else TITLE) text of images

// The settings above by name, so a call says what it asks for.
struct HtmlToTextOptions {
  bool entities = true;
  bool standardEntities = true;
  bool nonUmlauted = false;
  bool reformat = false;
  bool onlyBody = false;
  bool removeJunk = false;
  bool googleTags = false;
  bool imageAlts = true;
};

// What the import reads of an HTML file: the body's text, googleoff regions left out.
inline constexpr HtmlToTextOptions kImportHtmlOptions{.onlyBody = true, .googleTags = true};

TextString stringByConvertingHtml2PlainText(TextView html, const HtmlToTextOptions& options,
                                            bool* didRemoveJunk = nullptr);
// The same over markup that may arrive window by window.
TextString stringByConvertingHtml2PlainText(const MarkupSource& html,
                                            const HtmlToTextOptions& options,
                                            bool* didRemoveJunk = nullptr);

TextString stringByConvertingHtml2PlainTextEntities(TextView html, bool entities, bool stdEntities,
                                                    bool nonUmlauted, bool reformat, bool onlyBody,
                                                    bool removeJunk, bool* didRemoveJunk,
                                                    bool googleTags, bool imageAlts);

// entities and stdEntities on.
TextString stringByConvertingHtml2PlainTextNonUmlauted(TextView html, bool nonUmlauted,
                                                       bool reformat, bool onlyBody,
                                                       bool removeJunk, bool* didRemoveJunk,
                                                       bool googleTags, bool imageAlts);
// entities and stdEntities on, no junk removal.
TextString stringByConvertingHtml2PlainTextNonUmlauted(TextView html, bool nonUmlauted,
                                                       bool reformat, bool onlyBody,
                                                       bool googleTags, bool imageAlts);
// As above with image alternative texts; (html, false, false, true, true) is kImportHtmlOptions.
TextString stringByConvertingHtml2PlainTextNonUmlauted(TextView html, bool nonUmlauted,
                                                       bool reformat, bool onlyBody,
                                                       bool googleTags);
// The whole document, no re-flowing, image alternative texts included.
TextString stringByConvertingHtml2PlainTextNonUmlauted(TextView html, bool nonUmlauted);

// The whole document, preformatted text re-flowed.
TextString stringByConvertingHtml2ReformattedPlainText(TextView html);
// The whole document, references converted, no folding.
TextString stringByConvertingHtml2PlainText(TextView html);
// Body text runs only, each preceded by one space: no breaks, no element rules.
TextString stringByConvertingHtml2SimplifiedPlainText(TextView html);

}  // namespace ulvek
