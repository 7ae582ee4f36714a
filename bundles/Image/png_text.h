#pragma once

#include <map>
#include <string>

namespace ulvek::image {

// The text chunks (tEXt, zTXt, iTXt) a PNG file holds before its image data, by keyword ("Title",
// "Author", "Description", "Comment", "Copyright", "Creation Time"), as UTF-8; the first chunk of
// a keyword wins. Nothing for other files, and nothing more once libpng finds the file broken.
std::map<std::string, std::string> pngTextChunks(const char* path);

}  // namespace ulvek::image
