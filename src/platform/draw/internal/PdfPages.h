// What the module's own code does with PDF documents and pages beyond their public face.
#pragma once

#include "ByteSource.h"
#include "platform/draw/PDFDocument.h"

#include <cairo.h>

namespace platform::draw {

/// As PDFDocument::createWithURL.
base::Result<PDFDocumentRef> openPdfDocument(const ByteSource& source);

/// Draws the page, cut to its crop box, on a Cairo context whose space is the page's user space (y up). Colours are
/// sRGB. Failures are those of the Cairo context.
void renderPage(const PDFPage& page, cairo_t* cairo);

} // namespace platform::draw
