// Media.mdimporter: tags and audio properties of MP3, FLAC, Ogg Vorbis and Opus, MP4/M4A, WAV,
// AIFF and WMA files, read with TagLib. Unsynchronised lyrics are the text.

#include <taglib/audioproperties.h>
#include <taglib/fileref.h>
#include <taglib/tag.h>
#include <taglib/tpropertymap.h>

#include <cstdint>
#include <string>
#include <vector>

#include "importer_plugin.h"

namespace {

using ulvek::plugin::Attributes;

std::string utf8(const TagLib::String& text) { return text.to8Bit(true); }

std::vector<std::string> values(const TagLib::PropertyMap& properties, const char* key) {
  std::vector<std::string> items;
  auto found = properties.find(key);
  if (found == properties.end()) return items;
  for (const TagLib::String& value : found->second) items.push_back(utf8(value));
  return items;
}

std::string firstValue(const TagLib::PropertyMap& properties, const char* key) {
  std::vector<std::string> items = values(properties, key);
  return items.empty() ? std::string() : items.front();
}

bool importMedia(Attributes& out, const char*, const char* path) {
  TagLib::FileRef file(path, true, TagLib::AudioProperties::Accurate);
  if (file.isNull()) return false;
  if (const TagLib::Tag* tag = file.tag()) {
    TagLib::PropertyMap properties = file.file()->properties();
    out.string("kMDItemTitle", utf8(tag->title()));
    std::vector<std::string> artists = values(properties, "ARTIST");
    if (artists.empty()) artists.push_back(utf8(tag->artist()));
    out.strings("kMDItemAuthors", artists);
    out.string("kMDItemAlbum", utf8(tag->album()));
    out.string("kMDItemComposer", firstValue(properties, "COMPOSER"));
    out.string("kMDItemMusicalGenre", utf8(tag->genre()));
    out.string("kMDItemComment", utf8(tag->comment()));
    out.string("kMDItemCopyright", firstValue(properties, "COPYRIGHT"));
    if (tag->year() > 0) out.integer("kMDItemRecordingYear", tag->year());
    if (tag->track() > 0) out.integer("kMDItemAudioTrackNumber", tag->track());
    out.string("kMDItemTextContent", firstValue(properties, "LYRICS"));
  }
  if (const TagLib::AudioProperties* audio = file.audioProperties()) {
    if (audio->lengthInMilliseconds() > 0)
      out.number("kMDItemDurationSeconds", audio->lengthInMilliseconds() / 1000.0);
    // In kbit/s, which a damaged header can make overflow an int once in bit/s.
    if (audio->bitrate() > 0)
      out.integer("kMDItemAudioBitRate", std::int64_t{audio->bitrate()} * 1000);
    if (audio->sampleRate() > 0) out.integer("kMDItemAudioSampleRate", audio->sampleRate());
    if (audio->channels() > 0) out.integer("kMDItemAudioChannelCount", audio->channels());
  }
  return true;
}

}  // namespace

ULVEK_EXPORT_IMPORTER_FACTORY(UlvekMediaImporterFactory, importMedia)
