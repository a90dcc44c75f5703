// The properties of an image as a PDF document keeps them. Pure functions; any thread.
#pragma once

#include "base/Value.h"

#include <string>
#include <string_view>

namespace platform::draw {

/// An XMP packet: the EXIF comment (also as the description), the dates, the note (as keywords), the orientation.
std::string xmpPacket(const base::Dictionary& properties);
/// The EXIF comment of the last such packet at the end of a document's `bytes`, as properties; empty without one, and
/// for other forms of packets.
base::Dictionary propertiesOfXmpPacket(std::string_view bytes);
/// The entries of the information dictionary, with its brackets: Subject is the EXIF comment, Keywords the note,
/// CreationDate the date.
std::string pdfInformation(const base::Dictionary& properties);

} // namespace platform::draw
