// Whether a page's text is all invisible, seen by poppler's own content stream interpreter, which
// tells the render mode.

#include <poppler/GfxState.h>
#include <poppler/OutputDev.h>

#include "pdf_document.h"
#include "text_layer.h"

namespace ulvek::plugin::pdf {
namespace {

// Counts the glyphs a page draws, visible or not; images and paths are never decoded.
class GlyphCounter : public OutputDev {
 public:
  bool upsideDown() override { return true; }
  bool useDrawChar() override { return true; }
  bool interpretType3Chars() override { return false; }
  bool needNonText() override { return false; }

  void drawChar(GfxState* state, double, double, double, double, double, double, CharCode, int,
                const Unicode*, int) override {
    // Modes 3 and 7 neither fill nor stroke (7 only clips).
    if ((state->getRender() & 3) == 3)
      ++invisible;
    else
      ++visible;
  }

  // The first visible glyph settles it: the rest of the page is not interpreted.
  static bool done(void* data) {
    auto* counter = static_cast<GlyphCounter*>(data);
    return counter->visible > 0 ||
           (counter->deadline && std::chrono::steady_clock::now() >= *counter->deadline);
  }

  std::optional<std::chrono::steady_clock::time_point> deadline;
  long visible = 0;
  long invisible = 0;
};

}  // namespace

std::vector<bool> onlyInvisibleText(PdfDocument& document, const std::vector<std::size_t>& pages,
                                    std::optional<std::chrono::steady_clock::time_point> deadline) {
  std::vector<bool> answers(pages.size(), false);
  for (std::size_t at = 0; at < pages.size(); ++at) {
    GlyphCounter counter;
    counter.deadline = deadline;
    if (GlyphCounter::done(&counter)) break;
    if (pages[at] >= std::size_t(document.pages()) ||
        !document.display(static_cast<int>(pages[at]), counter, &GlyphCounter::done, &counter))
      continue;
    // Visible text, or a page stopped at the deadline, which may have some further on.
    if (GlyphCounter::done(&counter)) continue;
    answers[at] = counter.invisible > 0;
  }
  return answers;
}

}  // namespace ulvek::plugin::pdf
