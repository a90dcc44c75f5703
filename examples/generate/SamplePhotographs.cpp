#include "SamplePhotographs.h"

#include "Scenes.h"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <exiv2/exiv2.hpp>
#include <jpeglib.h>
#include <lcms2.h>

namespace samples {

const std::vector<Photograph>& catalogue() {
    static const std::vector<Photograph> photographs = {
        {"House_0001_Morning.jpg", Scene::house, Daytime::morning, 6000, 4000, 1, false, 1},
        {"House_0002_Noon.jpg", Scene::house, Daytime::noon, 4000, 3000, 3, false, 2},
        {"Lighthouse_0003_Noon.jpg", Scene::lighthouse, Daytime::noon, 4000, 6000, 6, false, 3},
        {"Lighthouse_0004_Evening.jpg", Scene::lighthouse, Daytime::evening, 3000, 4000, 8, false, 4},
        {"Harbour_0005_Evening.jpg", Scene::harbour, Daytime::evening, 4000, 3000, 1, true, 5},
    };
    return photographs;
}

namespace {

/// Display P3: the primaries of digital cinema, the white of daylight, the tone curve of sRGB.
std::vector<std::uint8_t> wideGamutProfile() {
    const cmsCIExyY white{0.3127, 0.3290, 1.0};
    const cmsCIExyYTRIPLE primaries{{0.680, 0.320, 1.0}, {0.265, 0.690, 1.0}, {0.150, 0.060, 1.0}};
    const cmsFloat64Number sRGBCurve[] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
    cmsToneCurve* curve = cmsBuildParametricToneCurve(nullptr, 4, sRGBCurve);
    cmsToneCurve* curves[] = {curve, curve, curve};
    cmsHPROFILE profile = cmsCreateRGBProfile(&white, &primaries, curves);
    std::vector<std::uint8_t> bytes;
    cmsUInt32Number size = 0;
    if (profile && cmsSaveProfileToMem(profile, nullptr, &size)) {
        bytes.resize(size);
        if (!cmsSaveProfileToMem(profile, bytes.data(), &size)) bytes.clear();
    }
    if (profile) cmsCloseProfile(profile);
    cmsFreeToneCurve(curve);
    // The header's moment of creation (twelve bytes from 24 on) would make each run's file another: 2020-01-01.
    const std::uint8_t moment[12] = {0x07, 0xE4, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0};
    if (bytes.size() > 36) std::copy(std::begin(moment), std::end(moment), bytes.begin() + 24);
    return bytes;
}

/// The content of the file's EXIF segment.
std::vector<std::uint8_t> exifSegment(const Photograph& photograph, int storedWidth, int storedHeight) {
    Exiv2::ExifData exif;
    exif["Exif.Image.Make"] = "Velm";
    exif["Exif.Image.Model"] = "Sample Camera";
    exif["Exif.Image.Orientation"] = static_cast<std::uint16_t>(photograph.orientation);
    exif["Exif.Photo.DateTimeOriginal"] = "2026:05:17 10:24:36";
    exif["Exif.Photo.DateTimeDigitized"] = "2026:05:17 10:24:36";
    exif["Exif.Photo.PixelXDimension"] = static_cast<std::uint32_t>(storedWidth);
    exif["Exif.Photo.PixelYDimension"] = static_cast<std::uint32_t>(storedHeight);
    exif["Exif.Photo.ColorSpace"] = static_cast<std::uint16_t>(photograph.wideGamut ? 0xFFFF : 1);
    Exiv2::Blob blob;
    Exiv2::ExifParser::encode(blob, Exiv2::bigEndian, exif);
    std::vector<std::uint8_t> segment = {'E', 'x', 'i', 'f', 0, 0};
    segment.insert(segment.end(), blob.begin(), blob.end());
    return segment;
}

/// The rows as they are stored under an orientation. Blocks keep both the reads and the writes of a turn near to
/// each other in memory.
std::vector<std::uint8_t> storedPixels(const Painting& painting, int orientation) {
    if (orientation == 1) return painting.pixels();
    const int width = painting.width();
    const int height = painting.height();
    const std::vector<std::uint8_t>& from = painting.pixels();
    std::vector<std::uint8_t> to(from.size());
    const int block = 32;
    for (int top = 0; top < height; top += block)
        for (int left = 0; left < width; left += block)
            for (int y = top; y < std::min(height, top + block); ++y)
                for (int x = left; x < std::min(width, left + block); ++x) {
                    std::size_t target = 0;
                    switch (orientation) {
                    case 3:
                        target = static_cast<std::size_t>(height - 1 - y) * width + (width - 1 - x);
                        break;
                    // A reader turns what is stored under 6 clockwise, so it lies counter-clockwise here.
                    case 6:
                        target = static_cast<std::size_t>(width - 1 - x) * height + y;
                        break;
                    case 8:
                        target = static_cast<std::size_t>(x) * height + (height - 1 - y);
                        break;
                    default:
                        break;
                    }
                    const std::uint8_t* pixel = &from[(static_cast<std::size_t>(y) * width + x) * 3];
                    std::copy(pixel, pixel + 3, &to[target * 3]);
                }
    return to;
}

struct JumpingErrorManager {
    jpeg_error_mgr manager;
    std::jmp_buf jump;
};

[[noreturn]] void leaveByJump(j_common_ptr info) {
    std::longjmp(reinterpret_cast<JumpingErrorManager*>(info->err)->jump, 1);
}

} // namespace

std::vector<std::uint8_t> jpegOf(const Photograph& photograph, std::string& error) {
    const bool turned = photograph.orientation == 6 || photograph.orientation == 8;
    const int width = turned ? photograph.height : photograph.width;
    const int height = turned ? photograph.width : photograph.height;
    const std::vector<std::uint8_t> pixels = storedPixels(paint(photograph), photograph.orientation);
    const std::vector<std::uint8_t> exif = exifSegment(photograph, width, height);
    const std::vector<std::uint8_t> profile = photograph.wideGamut ? wideGamutProfile() : std::vector<std::uint8_t>();

    jpeg_compress_struct compressor{};
    JumpingErrorManager errors{};
    compressor.err = jpeg_std_error(&errors.manager);
    errors.manager.error_exit = leaveByJump;
    unsigned char* volatile output = nullptr;
    unsigned long size = 0;
    if (setjmp(errors.jump)) {
        char message[JMSG_LENGTH_MAX];
        errors.manager.format_message(reinterpret_cast<j_common_ptr>(&compressor), message);
        error = message;
        jpeg_destroy_compress(&compressor);
        std::free(output);
        return {};
    }
    jpeg_create_compress(&compressor);
    jpeg_mem_dest(&compressor, const_cast<unsigned char**>(&output), &size);
    compressor.image_width = static_cast<JDIMENSION>(width);
    compressor.image_height = static_cast<JDIMENSION>(height);
    compressor.input_components = 3;
    compressor.in_color_space = JCS_RGB;
    jpeg_set_defaults(&compressor);
    jpeg_set_quality(&compressor, 92, TRUE);
    compressor.write_JFIF_header = FALSE; // as cameras do: the EXIF segment comes first
    jpeg_start_compress(&compressor, TRUE);
    jpeg_write_marker(&compressor, JPEG_APP0 + 1, exif.data(), static_cast<unsigned>(exif.size()));
    if (!profile.empty()) jpeg_write_icc_profile(&compressor, profile.data(), static_cast<unsigned>(profile.size()));
    while (compressor.next_scanline < compressor.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(&pixels[static_cast<std::size_t>(compressor.next_scanline) * width * 3]);
        jpeg_write_scanlines(&compressor, &row, 1);
    }
    jpeg_finish_compress(&compressor);
    jpeg_destroy_compress(&compressor);
    std::vector<std::uint8_t> file(output, output + size);
    std::free(output);
    return file;
}

} // namespace samples
