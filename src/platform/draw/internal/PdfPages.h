// What the module's own code does with PDF documents and pages beyond their public face.
#pragma once

#include "ByteSource.h"
#include "platform/draw/PDFDocument.h"

#include <cairo.h>

namespace platform::draw {

/// As PDFDocument::createWithURL.
base::Result<PDFDocumentRef> openPdfDocument(const ByteSource& source);

/// The file of the document.
std::string_view bytesOf(const PDFDocument& document);

/// Draws the page, cut to its crop box, on a Cairo context whose space is the page's user space (y up). Colours are
/// sRGB. Fails for a page that is damaged or takes too long, in which case part of it may have been drawn, and so may
/// all further drawings of its document; other failures are those of the Cairo context.
base::Result<void> renderPage(const PDFPage& page, cairo_t* cairo);

} // namespace platform::draw
