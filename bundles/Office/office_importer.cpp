// Office.mdimporter: spreadsheets and presentations. Office Open XML (XLSX, XLTX, XLSM, PPTX)
// and OpenDocument (ODS, ODP) are zip archives of XML read with ulvekbot's zip reader and expat;
// legacy XLS is read with FreeXL. The document properties become attributes.

// Debian builds expat with DTD support; its header hides the amplification limit otherwise.
#ifndef XML_DTD
#define XML_DTD 1
#endif
#include <expat.h>
#include <freexl.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "importer_plugin.h"
#include "readers/zip/zip_archive.h"

namespace {

using ulvek::plugin::Attributes;

// Enough text for any index; a sheet of millions of cells stops here.
constexpr std::size_t kMaxText = 64ull * 1024 * 1024;
constexpr int kMaxDepth = 256;

// Members by name through ulvekbot's zip reader, linked in: it finds a name without walking the
// whole central directory, which made a deck of a thousand slides take seconds.
class Zip {
 public:
  explicit Zip(const char* path) : archive_(ulvek::ZipArchive::initWithZipFile(path)) {}
  bool isOpen() const { return archive_ != nullptr; }

  // Nothing for a missing member (quietly: many are optional), and for one that inflates past
  // the limits (with a log line).
  std::optional<std::string> member(const std::string& name) {
    if (!archive_ || !archive_->testForNamedFile(name)) return std::nullopt;
    // The zip reader's limits refuse zip bombs.
    std::optional<ulvek::Data> bytes = archive_->dataForNamedFile(name);
    if (!bytes) return std::nullopt;
    return std::string(bytes->begin(), bytes->end());
  }

 private:
  std::unique_ptr<ulvek::ZipArchive> archive_;
};

// Streams XML events to callbacks: element start (name, attributes), end, and text.
struct XmlEvents {
  std::function<void(std::string_view, const char**)> start;
  std::function<void(std::string_view)> end;
  std::function<void(std::string_view)> text;
  int depth = 0;
  bool tooDeep = false;
};

bool parseXml(const std::string& xml, XmlEvents& events) {
  XML_Parser parser = XML_ParserCreate(nullptr);
  if (!parser) return false;
  XML_SetBillionLaughsAttackProtectionMaximumAmplification(parser, 100.0f);
  XML_SetUserData(parser, &events);
  // Office documents declare no entities; a document that does is hostile.
  XML_SetEntityDeclHandler(
      parser,
      [](void* data, const XML_Char*, int, const XML_Char*, int, const XML_Char*, const XML_Char*,
         const XML_Char*, const XML_Char*) { static_cast<XmlEvents*>(data)->tooDeep = true; });
  XML_SetElementHandler(
      parser,
      [](void* data, const XML_Char* name, const XML_Char** attributes) {
        auto* events = static_cast<XmlEvents*>(data);
        if (++events->depth > kMaxDepth) events->tooDeep = true;
        if (!events->tooDeep && events->start) events->start(name, attributes);
      },
      [](void* data, const XML_Char* name) {
        auto* events = static_cast<XmlEvents*>(data);
        if (!events->tooDeep && events->end) events->end(name);
        --events->depth;
      });
  XML_SetCharacterDataHandler(parser, [](void* data, const XML_Char* text, int length) {
    auto* events = static_cast<XmlEvents*>(data);
    if (!events->tooDeep && events->text) events->text(std::string_view(text, std::size_t(length)));
  });
  bool ok = XML_Parse(parser, xml.data(), int(std::min<std::size_t>(xml.size(), INT32_MAX)), 1) !=
            XML_STATUS_ERROR;
  XML_ParserFree(parser);
  return ok;
}

const char* attribute(const char** attributes, std::string_view name) {
  for (int i = 0; attributes && attributes[i]; i += 2)
    if (name == attributes[i]) return attributes[i + 1];
  return nullptr;
}

// Text with tabs between cells and line feeds between rows and paragraphs, bounded.
class TextOut {
 public:
  void add(std::string_view text) {
    if (text_.size() + text.size() <= kMaxText) text_.append(text);
  }
  void cellBreak() { pending_ = pending_ == '\n' ? '\n' : '\t'; }
  void lineBreak() { pending_ = '\n'; }
  void write(std::string_view text) {
    if (text.empty()) return;
    if (pending_ && !text_.empty()) text_ += pending_;
    pending_ = 0;
    add(text);
  }
  std::string take() { return std::move(text_); }

 private:
  std::string text_;
  char pending_ = 0;
};

// ---- Document properties ----

std::optional<double> w3cDate(const std::string& text) {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0;
  double second = 0;
  if (std::sscanf(text.c_str(), "%d-%d-%dT%d:%d:%lf", &year, &month, &day, &hour, &minute,
                  &second) < 3)
    return std::nullopt;
  int offset = 0;
  std::size_t zone = text.find_first_of("+-", 10);
  int zh = 0, zm = 0;
  if (zone != std::string::npos && std::sscanf(text.c_str() + zone + 1, "%d:%d", &zh, &zm) >= 1)
    offset = (zh * 3600 + zm * 60) * (text[zone] == '-' ? -1 : 1);
  return ulvek::plugin::secondsSince1970(year, month, day, hour, minute, second, offset);
}

std::vector<std::string> splitKeywords(const std::string& text) {
  std::vector<std::string> words;
  std::string word;
  for (char c : text + ",") {
    if (c == ',' || c == ';') {
      std::size_t first = word.find_first_not_of(' '), last = word.find_last_not_of(' ');
      if (first != std::string::npos) words.push_back(word.substr(first, last - first + 1));
      word.clear();
    } else {
      word += c;
    }
  }
  return words;
}

// docProps/core.xml and meta.xml share Dublin Core; each has a few names of its own.
void readProperties(const std::string& xml, Attributes& out) {
  std::map<std::string, std::string> values;
  std::vector<std::string> keywords;
  std::string current, text;
  XmlEvents events;
  events.start = [&](std::string_view name, const char**) {
    current = name;
    text.clear();
  };
  events.text = [&](std::string_view chunk) { text.append(chunk); };
  events.end = [&](std::string_view name) {
    if (name == "meta:keyword")
      keywords.push_back(text);
    else if (!text.empty())
      values.emplace(std::string(name), text);
    text.clear();
  };
  parseXml(xml, events);
  auto value = [&](std::initializer_list<const char*> names) -> std::string {
    for (const char* name : names)
      if (auto found = values.find(name); found != values.end()) return found->second;
    return "";
  };
  out.string("kMDItemTitle", value({"dc:title"}));
  out.string("kMDItemSubject", value({"dc:subject"}));
  out.string("kMDItemDescription", value({"dc:description"}));
  std::string creator = value({"dc:creator", "meta:initial-creator"});
  if (!creator.empty()) out.strings("kMDItemAuthors", {creator});
  if (keywords.empty()) keywords = splitKeywords(value({"cp:keywords"}));
  out.strings("kMDItemKeywords", keywords);
  if (auto created = w3cDate(value({"dcterms:created", "meta:creation-date"})))
    out.date("kMDItemContentCreationDate", *created);
  if (auto modified = w3cDate(value({"dcterms:modified", "dc:date"})))
    out.date("kMDItemContentModificationDate", *modified);
}

// ---- Office Open XML ----

// "ppt/slides/../notesSlides/n.xml" → "ppt/notesSlides/n.xml".
std::string normalised(const std::string& path) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  while (start <= path.size()) {
    std::size_t slash = path.find('/', start);
    if (slash == std::string::npos) slash = path.size();
    std::string part = path.substr(start, slash - start);
    if (part == "..") {
      if (!parts.empty()) parts.pop_back();
    } else if (!part.empty() && part != ".") {
      parts.push_back(part);
    }
    start = slash + 1;
  }
  std::string joined;
  for (const std::string& part : parts) joined += (joined.empty() ? "" : "/") + part;
  return joined;
}

// Targets of a part's relationships by id, resolved against the part's folder.
std::map<std::string, std::string> relationships(Zip& zip, const std::string& folder,
                                                 const std::string& part) {
  std::map<std::string, std::string> targets;
  std::optional<std::string> xml = zip.member(folder + "_rels/" + part + ".rels");
  if (!xml) return targets;
  XmlEvents events;
  events.start = [&](std::string_view name, const char** attributes) {
    if (name != "Relationship") return;
    const char* id = attribute(attributes, "Id");
    const char* target = attribute(attributes, "Target");
    if (!id || !target) return;
    std::string path = target;
    if (path.starts_with("/"))
      path.erase(0, 1);
    else
      path = folder + path;
    targets[id] = normalised(path);
  };
  parseXml(*xml, events);
  return targets;
}

std::vector<std::string> sharedStrings(Zip& zip) {
  std::vector<std::string> strings;
  std::optional<std::string> xml = zip.member("xl/sharedStrings.xml");
  if (!xml) return strings;
  bool inText = false, inPhonetic = false;
  XmlEvents events;
  events.start = [&](std::string_view name, const char**) {
    if (name == "si")
      strings.emplace_back();
    else if (name == "rPh")
      inPhonetic = true;
    else if (name == "t")
      inText = !inPhonetic;
  };
  events.end = [&](std::string_view name) {
    if (name == "t")
      inText = false;
    else if (name == "rPh")
      inPhonetic = false;
  };
  events.text = [&](std::string_view text) {
    if (inText && !strings.empty() && strings.back().size() < kMaxText) strings.back().append(text);
  };
  parseXml(*xml, events);
  return strings;
}

void readSheet(const std::string& xml, const std::vector<std::string>& shared, TextOut& out) {
  std::string type, value;
  bool inValue = false;
  XmlEvents events;
  events.start = [&](std::string_view name, const char** attributes) {
    if (name == "row") out.lineBreak();
    if (name == "c") {
      const char* t = attribute(attributes, "t");
      type = t ? t : "";
      value.clear();
    }
    if (name == "v" || name == "t") inValue = true;
  };
  events.end = [&](std::string_view name) {
    if (name == "v" || name == "t") inValue = false;
    if (name != "c" || value.empty()) return;
    if (type == "s") {
      char* end = nullptr;
      unsigned long index = std::strtoul(value.c_str(), &end, 10);
      if (end != value.c_str() && index < shared.size())
        value = shared[index];
      else
        value.clear();
    } else if (type == "b") {
      value = value == "1" ? "TRUE" : "FALSE";
    }
    out.write(value);
    out.cellBreak();
  };
  events.text = [&](std::string_view text) {
    if (inValue && value.size() < kMaxText) value.append(text);
  };
  parseXml(xml, events);
}

std::string readWorkbook(Zip& zip) {
  TextOut out;
  std::optional<std::string> workbook = zip.member("xl/workbook.xml");
  if (!workbook) return "";
  std::map<std::string, std::string> targets = relationships(zip, "xl/", "workbook.xml");
  std::vector<std::pair<std::string, std::string>> sheets;  // name, part
  XmlEvents events;
  events.start = [&](std::string_view name, const char** attributes) {
    if (name != "sheet") return;
    const char* sheetName = attribute(attributes, "name");
    const char* id = attribute(attributes, "r:id");
    auto target = id ? targets.find(id) : targets.end();
    if (target != targets.end()) sheets.emplace_back(sheetName ? sheetName : "", target->second);
  };
  parseXml(*workbook, events);
  std::vector<std::string> shared = sharedStrings(zip);
  for (const auto& [name, part] : sheets) {
    out.lineBreak();
    out.write(name);
    if (std::optional<std::string> xml = zip.member(part)) readSheet(*xml, shared, out);
  }
  return out.take();
}

// Paragraph text (a:t runs, a:p paragraphs) of one slide or notes part.
void readDrawingText(const std::string& xml, TextOut& out) {
  bool inText = false;
  XmlEvents events;
  events.start = [&](std::string_view name, const char**) {
    if (name == "a:p") out.lineBreak();
    if (name == "a:t") inText = true;
    if (name == "a:tab") out.write("\t");
  };
  events.end = [&](std::string_view name) {
    if (name == "a:t") inText = false;
  };
  events.text = [&](std::string_view text) {
    if (inText) out.write(text);
  };
  parseXml(xml, events);
}

std::string readPresentation(Zip& zip) {
  std::optional<std::string> presentation = zip.member("ppt/presentation.xml");
  if (!presentation) return "";
  std::map<std::string, std::string> targets = relationships(zip, "ppt/", "presentation.xml");
  std::vector<std::string> slides;
  XmlEvents events;
  events.start = [&](std::string_view name, const char** attributes) {
    if (name != "p:sldId") return;
    const char* id = attribute(attributes, "r:id");
    auto target = id ? targets.find(id) : targets.end();
    if (target != targets.end()) slides.push_back(target->second);
  };
  parseXml(*presentation, events);
  TextOut out;
  std::vector<std::string> notes;
  for (const std::string& slide : slides) {
    if (std::optional<std::string> xml = zip.member(slide)) readDrawingText(*xml, out);
    std::size_t slash = slide.rfind('/');
    std::string folder = slide.substr(0, slash + 1), part = slide.substr(slash + 1);
    for (const auto& [id, target] : relationships(zip, folder, part))
      if (target.find("notesSlide") != std::string::npos) notes.push_back(target);
  }
  // Speaker notes after the slides.
  for (const std::string& part : notes)
    if (std::optional<std::string> xml = zip.member(part)) readDrawingText(*xml, out);
  return out.take();
}

// ---- OpenDocument ----

std::string readOpenDocument(const std::string& content) {
  TextOut out;
  int inParagraph = 0;
  bool inCell = false, cellHasParagraph = false;
  XmlEvents events;
  events.start = [&](std::string_view name, const char** attributes) {
    if (name == "text:p" || name == "text:h") {
      ++inParagraph;
      // Paragraphs of one cell stay in the cell, a blank apart.
      if (inParagraph == 1 && inCell && cellHasParagraph)
        out.write(" ");
      else if (inParagraph == 1 && !inCell)
        out.lineBreak();
      cellHasParagraph = cellHasParagraph || inCell;
    } else if (name == "table:table-row" || name == "draw:page" || name == "table:table") {
      out.lineBreak();
      if (name == "table:table") out.write(attribute(attributes, "table:name") ?: "");
    } else if (name == "table:table-cell") {
      inCell = true;
      cellHasParagraph = false;
    } else if (name == "text:s") {
      const char* count = attribute(attributes, "text:c");
      int spaces = count ? std::clamp(std::atoi(count), 1, 1000) : 1;
      if (inParagraph) out.write(std::string(std::size_t(spaces), ' '));
    } else if (name == "text:tab") {
      if (inParagraph) out.write("\t");
    } else if (name == "text:line-break") {
      out.lineBreak();
    }
  };
  events.end = [&](std::string_view name) {
    if (name == "text:p" || name == "text:h") --inParagraph;
    if (name == "table:table-cell") {
      inCell = false;
      out.cellBreak();
    }
  };
  events.text = [&](std::string_view text) {
    if (inParagraph > 0) out.write(text);
  };
  parseXml(content, events);
  return out.take();
}

// ---- Legacy XLS ----

bool importXls(Attributes& out, const char* path) {
  const void* handle = nullptr;
  if (freexl_open(path, &handle) != FREEXL_OK) {
    if (handle) freexl_close(handle);
    return false;
  }
  TextOut text;
  unsigned int sheets = 0;
  freexl_get_info(handle, FREEXL_BIFF_SHEET_COUNT, &sheets);
  for (unsigned short sheet = 0; sheet < sheets; ++sheet) {
    const char* name = nullptr;
    if (freexl_get_worksheet_name(handle, sheet, &name) == FREEXL_OK && name) {
      text.lineBreak();
      text.write(name);
    }
    unsigned int rows = 0;
    unsigned short columns = 0;
    if (freexl_select_active_worksheet(handle, sheet) != FREEXL_OK ||
        freexl_worksheet_dimensions(handle, &rows, &columns) != FREEXL_OK)
      continue;
    for (unsigned int row = 0; row < rows; ++row) {
      text.lineBreak();
      for (unsigned short column = 0; column < columns; ++column) {
        FreeXL_CellValue cell{};
        if (freexl_get_cell_value(handle, row, column, &cell) != FREEXL_OK) continue;
        char number[64];
        switch (cell.type) {
          case FREEXL_CELL_INT:
            std::snprintf(number, sizeof number, "%d", cell.value.int_value);
            text.write(number);
            break;
          case FREEXL_CELL_DOUBLE:
            std::snprintf(number, sizeof number, "%.15g", cell.value.double_value);
            text.write(number);
            break;
          case FREEXL_CELL_TEXT:
          case FREEXL_CELL_SST_TEXT:
          case FREEXL_CELL_DATE:
          case FREEXL_CELL_DATETIME:
          case FREEXL_CELL_TIME:
            if (cell.value.text_value) text.write(cell.value.text_value);
            break;
          default:
            break;
        }
        text.cellBreak();
      }
    }
  }
  freexl_close(handle);
  out.string("kMDItemTextContent", text.take());
  return true;
}

bool importOffice(Attributes& out, const char*, const char* path) {
  Zip zip(path);
  if (!zip.isOpen()) return importXls(out, path);
  std::string text;
  if (std::optional<std::string> mimetype = zip.member("mimetype")) {
    // OpenDocument: content.xml and meta.xml whatever the kind.
    if (std::optional<std::string> content = zip.member("content.xml"))
      text = readOpenDocument(*content);
    if (std::optional<std::string> meta = zip.member("meta.xml")) readProperties(*meta, out);
  } else {
    text = zip.member("xl/workbook.xml") ? readWorkbook(zip) : readPresentation(zip);
    if (std::optional<std::string> core = zip.member("docProps/core.xml"))
      readProperties(*core, out);
  }
  out.string("kMDItemTextContent", text);
  return true;
}

}  // namespace

ULVEK_EXPORT_IMPORTER_FACTORY(UlvekOfficeImporterFactory, importOffice)
