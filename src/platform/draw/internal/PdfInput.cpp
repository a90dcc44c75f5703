#include "PdfInput.h"

#include <cstdint>
#include <ctime>

namespace platform::draw {
namespace {

// What the largest of honest pages, a map with a form for each of its signs, stays far below.
constexpr std::uint64_t readsOfAnyPage = 250'000; // and one for each byte of the document
constexpr std::time_t secondsOfAnyPage = 60;      // of the processor

std::time_t processorSeconds() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return time.tv_sec;
}

} // namespace

struct PdfInput::Stream {
    GMemoryInputStream base; // first, as the object system wants it
    std::uint64_t readsAllowed;
    std::uint64_t reads;
    std::time_t begin;
    bool exhausted;

    static GType type() {
        static const GType registered = g_type_register_static_simple(
            g_memory_input_stream_get_type(), "VelmPdfInput", sizeof(GMemoryInputStreamClass),
            [](gpointer ofClass, gpointer) { static_cast<GInputStreamClass*>(ofClass)->read_fn = read; },
            sizeof(Stream), nullptr, G_TYPE_FLAG_NONE);
        return registered;
    }

    static gssize read(GInputStream* input, void* target, gsize count, GCancellable* cancellable, GError** error) {
        auto& stream = *reinterpret_cast<Stream*>(input);
        if (++stream.reads > stream.readsAllowed || processorSeconds() - stream.begin > secondsOfAnyPage)
            stream.exhausted = true;
        if (stream.exhausted) return 0;
        static const auto* const plain =
            static_cast<const GInputStreamClass*>(g_type_class_peek(g_memory_input_stream_get_type()));
        return plain->read_fn(input, target, count, cancellable, error);
    }
};

PdfInput::PdfInput(std::string_view bytes)
    : stream_(static_cast<Stream*>(static_cast<void*>(g_object_new(Stream::type(), nullptr)))) {
    g_memory_input_stream_add_data(&stream_->base, bytes.data(), static_cast<gssize>(bytes.size()), nullptr);
    stream_->readsAllowed = readsOfAnyPage + bytes.size();
    beginDrawing();
}

PdfInput::~PdfInput() {
    g_object_unref(stream_);
}

GInputStream* PdfInput::stream() const {
    return reinterpret_cast<GInputStream*>(stream_);
}

void PdfInput::beginDrawing() {
    stream_->reads = 0;
    stream_->begin = processorSeconds();
}

bool PdfInput::isExhausted() const {
    return stream_->exhausted;
}

} // namespace platform::draw
