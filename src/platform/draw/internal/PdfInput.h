// The bytes of a PDF document as the library's drawing face takes them. A page of a few kilobytes can ask for any
// amount of work (forms that use two forms each, thirty deep), and the library has no means to end a drawing. But each
// use of a form, pattern or picture reads its bytes again: so a drawing that goes on too long finds the document at its
// end, and with that comes to its own. Of one thread at a time.
#pragma once

#include <gio/gio.h>
#include <string_view>

namespace platform::draw {

class PdfInput {
public:
    /// The bytes must outlive every document that reads them.
    explicit PdfInput(std::string_view bytes);
    ~PdfInput();
    PdfInput(const PdfInput&) = delete;
    PdfInput& operator=(const PdfInput&) = delete;

    GInputStream* stream() const;
    /// From here on a new drawing's work is counted, on the calling thread.
    void beginDrawing();
    /// Whether a drawing was ended. The library may have kept what it then misread, so this one never begins again.
    bool isExhausted() const;

private:
    struct Stream;
    Stream* stream_;
};

} // namespace platform::draw
