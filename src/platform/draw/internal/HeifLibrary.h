// Owning handles for libheif, for the files of this module that read and write with it.
#pragma once

#include <libheif/heif.h>
#include <memory>

namespace platform::draw {

struct ReleaseHeif {
    void operator()(heif_context* context) const { heif_context_free(context); }
    void operator()(const heif_image_handle* handle) const { heif_image_handle_release(handle); }
    void operator()(const heif_image* image) const { heif_image_release(image); }
    void operator()(heif_encoder* encoder) const { heif_encoder_release(encoder); }
    void operator()(heif_decoding_options* options) const { heif_decoding_options_free(options); }
    void operator()(heif_encoding_options* options) const { heif_encoding_options_free(options); }
    void operator()(heif_color_profile_nclx* profile) const { heif_nclx_color_profile_free(profile); }
};
template <class Type>
using Heif = std::unique_ptr<Type, ReleaseHeif>;

/// Null when there is no memory.
inline Heif<heif_context> newHeifContext() {
    // The library would prepare itself on its first use, by whichever threads come first.
    static const heif_error ready = heif_init(nullptr);
    return Heif<heif_context>(ready.code == heif_error_Ok ? heif_context_alloc() : nullptr);
}

} // namespace platform::draw
