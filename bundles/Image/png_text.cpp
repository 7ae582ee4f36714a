#include "png_text.h"

#include <png.h>

#include <cstdio>
#include <memory>

namespace ulvek::image {
namespace {

// A compressed chunk may expand this far and no further: a zTXt bomb costs nothing.
constexpr png_alloc_size_t kMaxChunkBytes = 4 << 20;

// libpng reports errors by long jump, so the jump lands in a frame that owns nothing.
bool readInfo(png_structp png, png_infop info) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_read_info(png, info);
  return true;
}

// tEXt and zTXt hold ISO Latin 1.
std::string latin1ToUtf8(const char* text, std::size_t length) {
  std::string utf8;
  utf8.reserve(length);
  for (std::size_t i = 0; i < length; ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c < 0x80) {
      utf8 += static_cast<char>(c);
    } else {
      utf8 += static_cast<char>(0xC0 | (c >> 6));
      utf8 += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return utf8;
}

void ignoreWarning(png_structp, png_const_charp) {}
void ignoreError(png_structp png, png_const_charp) { png_longjmp(png, 1); }

}  // namespace

std::map<std::string, std::string> pngTextChunks(const char* path) {
  std::map<std::string, std::string> chunks;
  std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path, "rb"), std::fclose);
  if (!file) return chunks;
  png_byte signature[8];
  if (std::fread(signature, 1, sizeof signature, file.get()) != sizeof signature ||
      png_sig_cmp(signature, 0, sizeof signature) != 0)
    return chunks;
  png_structp png =
      png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, ignoreError, ignoreWarning);
  if (!png) return chunks;
  png_infop info = png_create_info_struct(png);
  if (!info) {
    png_destroy_read_struct(&png, nullptr, nullptr);
    return chunks;
  }
  png_init_io(png, file.get());
  png_set_sig_bytes(png, sizeof signature);
  // Only the chunks are read, never the pixels: any declared size will do.
  png_set_user_limits(png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
  png_set_chunk_malloc_max(png, kMaxChunkBytes);
  if (readInfo(png, info)) {
    png_textp text = nullptr;
    int count = 0;
    png_get_text(png, info, &text, &count);
    for (int i = 0; i < count; ++i) {
      if (!text[i].key || !text[i].text) continue;
      const bool international = text[i].compression == PNG_ITXT_COMPRESSION_NONE ||
                                 text[i].compression == PNG_ITXT_COMPRESSION_zTXt;
      std::string value = international ? std::string(text[i].text, text[i].itxt_length)
                                        : latin1ToUtf8(text[i].text, text[i].text_length);
      if (!value.empty()) chunks.emplace(text[i].key, std::move(value));
    }
  }
  png_destroy_read_struct(&png, &info, nullptr);
  return chunks;
}

}  // namespace ulvek::image
