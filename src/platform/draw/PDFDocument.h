// PDF documents and their pages, to be drawn by BitmapContext::drawPDFPage. A page's default user space is in points,
// y up; boxes are given in it, unrotated, and their origin may lie anywhere.
//
// A document reads the whole file when it is opened and keeps no hold on it. A page keeps its document. Both are
// immutable and shared: any thread may use one; openings and drawings, of whichever document, wait for each other.
#pragma once

#include "base/Error.h"
#include "base/Geometry.h"
#include "base/Path.h"
#include "base/Value.h"

#include <memory>
#include <string_view>

namespace platform::draw {

class PDFDocument;
class PDFPage;
using PDFDocumentRef = std::shared_ptr<const PDFDocument>;
using PDFPageRef = std::shared_ptr<const PDFPage>;

enum class PDFBox { media, crop };

class PDFPage {
public:
    /// The crop box is the media box when the page states none, and never reaches beyond it.
    base::Rect boxRect(PDFBox box) const;
    /// By how many degrees the page is to be turned clockwise for display: 0, 90, 180 or 270.
    int rotationAngle() const;
    /// From user space to a space with y up in which the box, turned as the page asks and then clockwise by `rotate`
    /// degrees (a multiple of 90), is centred in `rect`. A box that is larger than the rectangle is made smaller, one
    /// that is smaller stays as it is; with `preserveAspect` both axes are scaled alike.
    base::AffineTransform drawingTransform(PDFBox box, const base::Rect& rect, int rotate, bool preserveAspect) const;

    struct Storage; ///< For the drawing code of this module.
    explicit PDFPage(std::unique_ptr<Storage> storage);
    ~PDFPage();
    PDFPage(const PDFPage&) = delete;
    PDFPage& operator=(const PDFPage&) = delete;
    const Storage& storage() const { return *storage_; }

private:
    std::unique_ptr<Storage> storage_;
};

class PDFDocument : public std::enable_shared_from_this<PDFDocument> {
public:
    /// Fails when the file can't be read or is larger than a gigabyte, is no PDF document, is cut off (its end mark is
    /// missing), needs a password, or has no pages.
    static base::Result<PDFDocumentRef> createWithURL(const base::URL& url);
    static base::Result<PDFDocumentRef> createWithData(base::Data data);

    int pageCount() const;
    /// Counted from 1; null when there is no such page or it can't be read.
    PDFPageRef page(int number) const;

    struct Storage; ///< For the drawing code of this module.
    explicit PDFDocument(std::unique_ptr<Storage> storage);
    ~PDFDocument();
    PDFDocument(const PDFDocument&) = delete;
    PDFDocument& operator=(const PDFDocument&) = delete;
    const Storage& storage() const { return *storage_; }

private:
    std::unique_ptr<Storage> storage_;
};

} // namespace platform::draw
