#include "readers/xml/xml_events.h"

// Debian builds expat with DTD support; its header hides the amplification limit otherwise.
#ifndef XML_DTD
#define XML_DTD 1
#endif
#include <expat.h>

#include <algorithm>
#include <climits>

namespace ulvek {
namespace {

struct State {
  const XmlEvents& events;
  XML_Parser parser;
  int depth = 0;
  bool refused = false;
};

void refuse(State& state) {
  if (state.refused) return;
  state.refused = true;
  XML_StopParser(state.parser, XML_FALSE);
}

}  // namespace

bool parseXml(std::string_view xml, const XmlEvents& events) {
  XML_Parser parser = XML_ParserCreate(nullptr);
  if (!parser) return false;
  State state{events, parser};
  XML_SetUserData(parser, &state);
  XML_SetBillionLaughsAttackProtectionMaximumAmplification(parser, 50.0f);
  XML_SetParamEntityParsing(parser, XML_PARAM_ENTITY_PARSING_NEVER);
  XML_SetEntityDeclHandler(parser, [](void* data, const XML_Char*, int, const XML_Char*, int,
                                      const XML_Char*, const XML_Char*, const XML_Char*,
                                      const XML_Char*) { refuse(*static_cast<State*>(data)); });
  XML_SetElementHandler(
      parser,
      [](void* data, const XML_Char* name, const XML_Char** attributes) {
        auto& state = *static_cast<State*>(data);
        if (++state.depth > kMaxXmlDepth) return refuse(state);
        if (state.events.start) state.events.start(name, attributes);
      },
      [](void* data, const XML_Char* name) {
        auto& state = *static_cast<State*>(data);
        if (state.events.end && !state.refused) state.events.end(name);
        --state.depth;
      });
  XML_SetCharacterDataHandler(parser, [](void* data, const XML_Char* text, int length) {
    auto& state = *static_cast<State*>(data);
    if (state.events.text && !state.refused)
      state.events.text(std::string_view(text, static_cast<std::size_t>(length)));
  });
  bool ok = true;
  // Pieces below INT_MAX each, as expat counts in int.
  constexpr std::size_t kPiece = 1 << 30;
  for (std::size_t at = 0; ok && !state.refused && at < xml.size(); at += kPiece) {
    std::size_t size = std::min(kPiece, xml.size() - at);
    bool last = at + size == xml.size();
    ok = XML_Parse(parser, xml.data() + at, static_cast<int>(size), last) != XML_STATUS_ERROR;
  }
  if (xml.empty()) ok = XML_Parse(parser, "", 0, 1) != XML_STATUS_ERROR;
  XML_ParserFree(parser);
  return ok && !state.refused;
}

const char* xmlAttribute(const char** attributes, std::string_view name) {
  for (int i = 0; attributes && attributes[i]; i += 2)
    if (name == attributes[i]) return attributes[i + 1];
  return nullptr;
}

}  // namespace ulvek
