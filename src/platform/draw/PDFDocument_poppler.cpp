// Poppler has two faces, and neither is enough: the one for GLib draws on Cairo but hides a page's rotation, the one
// for C++ tells it but draws on bitmaps of its own only. So a document is opened through both.
#include "base/Text.h"
#include "internal/PdfInput.h"
#include "internal/PdfPages.h"
#include "platform/draw/PDFDocument.h"

#include <algorithm>
#include <cpp/poppler-document.h>
#include <cpp/poppler-global.h>
#include <cpp/poppler-page.h>
#include <mutex>
#include <optional>
#include <poppler.h>

namespace platform::draw {

using base::AffineTransform;
using base::Rect;

namespace {

// All of the library's work, whichever document it is on: it makes some of its shared tables without a lock.
std::mutex libraryMutex;

} // namespace

struct PDFDocument::Storage {
    ~Storage() {
        const std::lock_guard lock(libraryMutex);
        if (drawing) g_object_unref(drawing);
        input.reset();
        facts.reset();
    }
    base::Data bytes;                         // both faces read from it
    std::unique_ptr<poppler::document> facts; // made first and ended last: its kind of messages is in force
    std::unique_ptr<PdfInput> input;          // of `drawing`
    PopplerDocument* drawing = nullptr;
    int pageCount = 0;
};

struct PDFPage::Storage {
    PDFDocumentRef document;
    int index;
    Rect media;
    Rect crop;
    int rotation;
};

namespace {

// Where readers look for the marks of a document's beginning and end.
constexpr std::size_t markReach = 1024;

// What the library has to say about broken documents must not reach standard error.
void keepQuiet() {
    static std::once_flag once;
    std::call_once(once, [] { poppler::set_debug_error_function([](const std::string&, void*) {}, nullptr); });
}

// The library would gather what is there of half a document, and show half of it.
bool isCutOff(std::string_view text) {
    if (text.substr(text.size() - std::min(text.size(), markReach)).find("%%EOF") == std::string_view::npos)
        return true;
    // A document made for reading over a network has an end mark at its front too, and tells its own length there.
    const std::string_view beginning = text.substr(0, markReach);
    const std::size_t length = beginning.find("/L ");
    return beginning.find("/Linearized") != std::string_view::npos && length != std::string_view::npos &&
           base::integerValue(beginning.substr(length + 3)) > static_cast<std::int64_t>(text.size());
}

Rect rectOf(const poppler::rectf& rect) {
    return {rect.x(), rect.y(), rect.width(), rect.height()};
}

int degreesOf(poppler::page::orientation_enum orientation) {
    switch (orientation) {
    case poppler::page::landscape:
        return 90;
    case poppler::page::upside_down:
        return 180;
    case poppler::page::seascape:
        return 270;
    default:
        return 0;
    }
}

// A clockwise turn (y up) by a multiple of 90 degrees, without the rounding of sine and cosine.
AffineTransform quarterTurns(int degrees) {
    switch ((degrees / 90 % 4 + 4) % 4) {
    case 1:
        return {0, -1, 1, 0, 0, 0};
    case 2:
        return {-1, 0, 0, -1, 0, 0};
    case 3:
        return {0, 1, -1, 0, 0, 0};
    default:
        return {};
    }
}

} // namespace

base::Result<PDFDocumentRef> openPdfDocument(const ByteSource& source) {
    keepQuiet();
    auto bytes = allBytes(source);
    if (!bytes) return base::failure(bytes.error());
    auto storage = std::make_unique<PDFDocument::Storage>();
    storage->bytes = std::move(*bytes);
    const std::string_view text = storage->bytes.asText();
    if (text.substr(0, markReach).find("%PDF-") == std::string_view::npos)
        return pictureFailure(source, "it is not a PDF document");
    if (isCutOff(text)) return pictureFailure(source, "the file is cut off");
    const std::lock_guard lock(libraryMutex); // ends before `storage` does
    storage->facts.reset(poppler::document::load_from_raw_data(text.data(), static_cast<int>(text.size())));
    if (!storage->facts) return pictureFailure(source, "the PDF document is damaged");
    if (storage->facts->is_locked()) return pictureFailure(source, "the PDF document needs a password");
    storage->pageCount = storage->facts->pages();

    storage->input = std::make_unique<PdfInput>(text);
    storage->drawing = poppler_document_new_from_stream(storage->input->stream(), static_cast<goffset>(text.size()),
                                                        nullptr, nullptr, nullptr);
    if (!storage->drawing) return pictureFailure(source, "the PDF document is damaged");
    storage->pageCount = std::min(storage->pageCount, poppler_document_get_n_pages(storage->drawing));
    if (storage->pageCount < 1) return pictureFailure(source, "the PDF document has no pages");
    return std::make_shared<const PDFDocument>(std::move(storage));
}

PDFDocument::PDFDocument(std::unique_ptr<Storage> storage) : storage_(std::move(storage)) {}
PDFDocument::~PDFDocument() = default;

std::string_view bytesOf(const PDFDocument& document) {
    return document.storage().bytes.asText();
}

base::Result<PDFDocumentRef> PDFDocument::createWithURL(const base::URL& url) {
    const auto source = ByteSource::ofFile(url);
    if (!source) return base::failure(source.error());
    return openPdfDocument(**source);
}

base::Result<PDFDocumentRef> PDFDocument::createWithData(base::Data data) {
    return openPdfDocument(*ByteSource::ofData(std::move(data)));
}

int PDFDocument::pageCount() const {
    return storage_->pageCount;
}

PDFPageRef PDFDocument::page(int number) const {
    if (number < 1 || number > pageCount()) return nullptr;
    const std::lock_guard lock(libraryMutex);
    const std::unique_ptr<poppler::page> page(storage_->facts->create_page(number - 1));
    if (!page) return nullptr;
    auto storage = std::make_unique<PDFPage::Storage>();
    storage->document = shared_from_this();
    storage->index = number - 1;
    storage->media = rectOf(page->page_rect(poppler::media_box));
    storage->crop = rectOf(page->page_rect(poppler::crop_box));
    storage->rotation = degreesOf(page->orientation());
    return std::make_shared<const PDFPage>(std::move(storage));
}

PDFPage::PDFPage(std::unique_ptr<Storage> storage) : storage_(std::move(storage)) {}
PDFPage::~PDFPage() = default;

Rect PDFPage::boxRect(PDFBox box) const {
    return box == PDFBox::media ? storage_->media : storage_->crop;
}

int PDFPage::rotationAngle() const {
    return storage_->rotation;
}

AffineTransform PDFPage::drawingTransform(PDFBox box, const Rect& rect, int rotate, bool preserveAspect) const {
    const Rect from = boxRect(box);
    const AffineTransform turn = quarterTurns(storage_->rotation + rotate % 360);
    const Rect turned = turn.apply(Rect{0, 0, from.width, from.height});
    double scaleX = turned.width > 0 ? std::min(1.0, rect.width / turned.width) : 1;
    double scaleY = turned.height > 0 ? std::min(1.0, rect.height / turned.height) : 1;
    if (preserveAspect) scaleX = scaleY = std::min(scaleX, scaleY);
    return AffineTransform::translation(rect.center().x, rect.center().y)
        .after(AffineTransform::scaling(scaleX, scaleY))
        .after(turn)
        .after(AffineTransform::translation(-from.center().x, -from.center().y));
}

base::Result<void> renderPage(const PDFPage& page, cairo_t* cairo) {
    const PDFPage::Storage& storage = page.storage();
    const PDFDocument::Storage& document = storage.document->storage();
    // The library draws the crop box as it is displayed: turned, from its top left corner, y down.
    const Rect displayed = quarterTurns(storage.rotation).apply(Rect{0, 0, storage.crop.width, storage.crop.height});
    const AffineTransform toDisplay = AffineTransform{1, 0, 0, -1, 0, displayed.height}.after(
        page.drawingTransform(PDFBox::crop, {0, 0, displayed.width, displayed.height}, 0, true));
    const AffineTransform toUser = toDisplay.inverted();
    const cairo_matrix_t matrix = {toUser.a, toUser.b, toUser.c, toUser.d, toUser.tx, toUser.ty};

    const std::lock_guard lock(libraryMutex);
    document.input->beginDrawing();
    PopplerPage* const drawn = poppler_document_get_page(document.drawing, storage.index);
    if (drawn) {
        cairo_save(cairo);
        cairo_transform(cairo, &matrix);
        poppler_page_render(drawn, cairo);
        cairo_restore(cairo);
        g_object_unref(drawn);
    }
    const std::string name = "page " + std::to_string(storage.index + 1);
    if (document.input->isExhausted())
        return base::failure(base::cocoaErrorDomain, 0, name + " of the PDF document takes too long to draw");
    if (!drawn) return base::failure(base::cocoaErrorDomain, 0, name + " of the PDF document is damaged");
    return {};
}

} // namespace platform::draw
