#pragma once

#include <exiv2/exiv2.hpp>

#include <string>

namespace ulvek::image {

// Where a picture's IPTC stands against its XMP. Photoshop and the programs that follow the
// Metadata Working Group store a digest of the IPTC beside it when they write both; a digest
// that no longer matches means a program that knows only IPTC changed it since.
enum class IptcState {
  Absent,           // no IPTC block
  Synchronised,     // no digest, or the digest matches: the XMP speaks for both
  ChangedAfterXmp,  // the digest does not match: the IPTC is newer
};

// The state of a JPEG's (from its APP13 segments) or a TIFF's (from its image resources tag)
// IPTC; Absent for other kinds.
IptcState iptcState(const std::string& path, const Exiv2::Image& image);

// The state of a Photoshop image resource block (a run of "8BIM" resources), with the IPTC
// found elsewhere where the block holds none.
IptcState iptcStateOfResources(const std::string& resources, std::string iptc = {});

}  // namespace ulvek::image
