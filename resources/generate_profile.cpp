// Writes the ICC profile of the CP-D70 family in its super fine mode: an output profile of a modelled printer. Three
// dyes lie on white paper, each absorbs its own band of light and a little of the other two, and a part of the light is
// reflected by the surface. The model can be inverted by its formula, so both tables are computed and not fitted.
//
//   velm_generate_profile OUT.icc        the same bytes each time
#include <lcms2.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace {

using Triple = std::array<double, 3>;
using Matrix = std::array<Triple, 3>;

constexpr Triple whiteXYZ{0.9642, 1.0, 0.8249}; // D50, the white of connection spaces

// The bands of light, red, green and blue, to XYZ by D50; their sum is white.
constexpr Matrix bandsToXYZ{{{0.673459, 0.165661, 0.125080}, //
                             {0.279033, 0.675338, 0.045629}, //
                             {-0.001931, 0.029978, 0.796853}}};
// Densities of the red, green and blue bands for one unit of cyan, magenta and yellow dye. The rows sum to 1, so equal
// amounts of the three are grey.
constexpr Matrix dyes{{{0.930, 0.055, 0.015}, //
                       {0.110, 0.830, 0.060}, //
                       {0.040, 0.140, 0.820}}};
constexpr double fullTransmittance = 0.008; // of a dye at its full amount
constexpr double surface = 0.004;           // of the light that never reaches the dyes

Triple times(const Matrix& matrix, const Triple& vector) {
    Triple result{};
    for (std::size_t row = 0; row < 3; ++row)
        for (std::size_t column = 0; column < 3; ++column)
            result[row] += matrix[row][column] * vector[column];
    return result;
}

Matrix inverse(const Matrix& m) {
    Matrix result;
    double determinant = 0;
    for (std::size_t row = 0; row < 3; ++row)
        for (std::size_t column = 0; column < 3; ++column) {
            const std::size_t r1 = (column + 1) % 3, r2 = (column + 2) % 3, c1 = (row + 1) % 3, c2 = (row + 2) % 3;
            result[row][column] = m[r1][c1] * m[r2][c2] - m[r1][c2] * m[r2][c1];
        }
    for (std::size_t column = 0; column < 3; ++column)
        determinant += m[0][column] * result[column][0];
    for (Triple& row : result)
        for (double& value : row)
            value /= determinant;
    return result;
}

const Matrix XYZToBands = inverse(bandsToXYZ);
const Matrix dyesInverse = inverse(dyes);

// Pictures come coded as sRGB is, and a grey prints about as light as it is shown.
double linear(double coded) {
    return coded <= 0.04045 ? coded / 12.92 : std::pow((coded + 0.055) / 1.055, 2.4);
}
double coded(double level) {
    return level <= 0.0031308 ? level * 12.92 : 1.055 * std::pow(level, 1 / 2.4) - 0.055;
}

cmsCIELab labOf(const Triple& rgb) {
    Triple amounts;
    for (std::size_t i = 0; i < 3; ++i)
        amounts[i] = -std::log10(fullTransmittance + (1 - fullTransmittance) * linear(rgb[i]));
    Triple bands = times(dyes, amounts);
    for (double& band : bands)
        band = surface + (1 - surface) * std::pow(10, -band);
    const Triple XYZ = times(bandsToXYZ, bands);
    const cmsCIEXYZ color{XYZ[0], XYZ[1], XYZ[2]};
    const cmsCIEXYZ white{whiteXYZ[0], whiteXYZ[1], whiteXYZ[2]};
    cmsCIELab lab;
    cmsXYZ2Lab(&white, &lab, &color);
    return lab;
}

// False for a colour that the dyes can't give.
bool rgbOf(const cmsCIELab& lab, Triple& rgb) {
    const cmsCIEXYZ white{whiteXYZ[0], whiteXYZ[1], whiteXYZ[2]};
    cmsCIEXYZ color;
    cmsLab2XYZ(&white, &color, &lab);
    Triple bands = times(XYZToBands, {color.X, color.Y, color.Z});
    for (double& band : bands) {
        const double reflected = (band - surface) / (1 - surface);
        if (reflected <= 0) return false;
        band = -std::log10(reflected);
    }
    const Triple amounts = times(dyesInverse, bands);
    for (std::size_t i = 0; i < 3; ++i) {
        const double level = (std::pow(10, -amounts[i]) - fullTransmittance) / (1 - fullTransmittance);
        if (level < -1e-4 || level > 1 + 1e-4) return false;
        rgb[i] = coded(std::clamp(level, 0.0, 1.0));
    }
    return true;
}

// The nearest colour on the way to the grey axis, at a lightness nearer to the middle.
Triple printable(cmsCIELab lab) {
    static const double blackL = labOf({0, 0, 0}).L;
    Triple rgb{};
    const cmsCIELab grey{std::clamp(50 + (lab.L - 50) * 0.6, blackL, 100.0), 0, 0};
    lab.L = std::clamp(lab.L, blackL, 100.0);
    if (rgbOf(lab, rgb)) return rgb;
    double inside = 0, outside = 1;
    for (int step = 0; step < 24; ++step) {
        const double part = (inside + outside) / 2;
        const cmsCIELab between{grey.L + part * (lab.L - grey.L), part * lab.a, part * lab.b};
        (rgbOf(between, rgb) ? inside : outside) = part;
    }
    rgbOf({grey.L + inside * (lab.L - grey.L), inside * lab.a, inside * lab.b}, rgb);
    return rgb;
}

// -- The tables ------------------------------------------------------------------------------------------------------

constexpr double highest = 65535;

cmsUInt16Number sample(double part) {
    return static_cast<cmsUInt16Number>(std::lround(std::clamp(part, 0.0, 1.0) * highest));
}

cmsInt32Number sampleForward(const cmsUInt16Number in[], cmsUInt16Number out[], void*) {
    const cmsCIELab lab = labOf({in[0] / highest, in[1] / highest, in[2] / highest});
    out[0] = sample(lab.L / 100);
    out[1] = sample((lab.a + 128) / 255);
    out[2] = sample((lab.b + 128) / 255);
    return TRUE;
}

// What the table's points are laid on: straight from 0 to the bend, and from there to 1.
struct Bend {
    double at;      // of the connection space's part...
    double becomes; // ...that this part of the table stands for
    double table(double part) const {
        return part < at ? part / at * becomes : becomes + (part - at) / (1 - at) * (1 - becomes);
    }
    double connection(double part) const { return Bend{becomes, at}.table(part); }
};

constexpr int pointsBackward = 33;

// The darkest black lies on the second point: what is darker, all the same, needs no more room.
const Bend lightness{labOf({0, 0, 0}).L / 100, 1.0 / (pointsBackward - 1)};
// Greys, a* and b* of 0, lie on the points in the middle.
constexpr Bend chroma{128.0 / 255, 0.5};

cmsInt32Number sampleBackward(const cmsUInt16Number in[], cmsUInt16Number out[], void*) {
    // The points exactly, which stand rounded here.
    const auto point = [&](int i) { return std::round(in[i] / highest * (pointsBackward - 1)) / (pointsBackward - 1); };
    const Triple rgb = printable({lightness.connection(point(0)) * 100, chroma.connection(point(1)) * 255 - 128,
                                  chroma.connection(point(2)) * 255 - 128});
    for (std::size_t i = 0; i < 3; ++i)
        out[i] = sample(rgb[i]);
    return TRUE;
}

cmsToneCurve* curveOf(const Bend& bend, std::size_t count) {
    std::vector<cmsUInt16Number> entries;
    for (std::size_t i = 0; i < count; ++i)
        entries.push_back(sample(bend.table(static_cast<double>(i) / static_cast<double>(count - 1))));
    return cmsBuildTabulatedToneCurve16(nullptr, static_cast<cmsUInt32Number>(count), entries.data());
}

// Curves, table, curves: the shape that version 4 stores. Everything is handed to the profile, which frees it.
void writeTable(cmsHPROFILE profile, cmsTagSignature tag, int points, cmsSAMPLER16 sampler, bool isBackward) {
    cmsToneCurve* straight = cmsBuildGamma(nullptr, 1);
    cmsToneCurve* light = curveOf(lightness, 4096);
    cmsToneCurve* centre = curveOf(chroma, 256); // an entry for each whole a*, so that the bend lies on one
    cmsToneCurve* const none[] = {straight, straight, straight};
    cmsToneCurve* const lab[] = {light, centre, centre};
    cmsStage* table = cmsStageAllocCLut16bit(nullptr, static_cast<cmsUInt32Number>(points), 3, 3, nullptr);
    cmsStageSampleCLut16bit(table, sampler, nullptr, 0);
    cmsPipeline* pipeline = cmsPipelineAlloc(nullptr, 3, 3);
    cmsPipelineInsertStage(pipeline, cmsAT_END, cmsStageAllocToneCurves(nullptr, 3, isBackward ? lab : none));
    cmsPipelineInsertStage(pipeline, cmsAT_END, table);
    cmsPipelineInsertStage(pipeline, cmsAT_END, cmsStageAllocToneCurves(nullptr, 3, none));
    cmsWriteTag(profile, tag, pipeline);
    cmsPipelineFree(pipeline);
    cmsFreeToneCurve(centre);
    cmsFreeToneCurve(light);
    cmsFreeToneCurve(straight);
}

void writeText(cmsHPROFILE profile, cmsTagSignature tag, const char* text) {
    cmsMLU* translations = cmsMLUalloc(nullptr, 1);
    cmsMLUsetASCII(translations, "en", "US", text);
    cmsWriteTag(profile, tag, translations);
    cmsMLUfree(translations);
}

std::vector<std::uint8_t> profileBytes() {
    cmsHPROFILE profile = cmsCreateProfilePlaceholder(nullptr);
    cmsSetProfileVersion(profile, 4.3);
    cmsSetDeviceClass(profile, cmsSigOutputClass);
    cmsSetColorSpace(profile, cmsSigRgbData);
    cmsSetPCS(profile, cmsSigLabData);
    cmsSetHeaderRenderingIntent(profile, INTENT_RELATIVE_COLORIMETRIC);
    writeText(profile, cmsSigProfileDescriptionTag, "CP-D70 Super Fine");
    writeText(profile, cmsSigCopyrightTag, "Made from a model of dyes on paper; free for any use");
    const cmsCIELab paper{94.5, 0.6, -3.2};
    const cmsCIEXYZ white{whiteXYZ[0], whiteXYZ[1], whiteXYZ[2]};
    cmsCIEXYZ paperXYZ;
    cmsLab2XYZ(&white, &paperXYZ, &paper);
    cmsWriteTag(profile, cmsSigMediaWhitePointTag, &paperXYZ);
    writeTable(profile, cmsSigAToB0Tag, 17, sampleForward, false);
    cmsLinkTag(profile, cmsSigAToB1Tag, cmsSigAToB0Tag);
    cmsLinkTag(profile, cmsSigAToB2Tag, cmsSigAToB0Tag);
    writeTable(profile, cmsSigBToA0Tag, pointsBackward, sampleBackward, true);
    cmsLinkTag(profile, cmsSigBToA1Tag, cmsSigBToA0Tag);
    cmsLinkTag(profile, cmsSigBToA2Tag, cmsSigBToA0Tag);
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile, nullptr, &size);
    std::vector<std::uint8_t> bytes(size);
    const bool isSaved = size != 0 && cmsSaveProfileToMem(profile, bytes.data(), &size);
    cmsCloseProfile(profile);
    if (!isSaved) return {};
    // Noon of a day that is as good as any, in place of the time of the build: year, month, day, hours...
    constexpr std::array<std::uint8_t, 12> date{7, 0xE8, 0, 1, 0, 1, 0, 12, 0, 0, 0, 0};
    std::copy(date.begin(), date.end(), bytes.begin() + 24);
    return bytes;
}

} // namespace

int main(int count, char** arguments) {
    if (count != 2) {
        std::fputs("usage: velm_generate_profile OUT.icc\n", stderr);
        return 2;
    }
    const std::vector<std::uint8_t> bytes = profileBytes();
    const std::string aside = std::string(arguments[1]) + ".new";
    std::FILE* file = bytes.empty() ? nullptr : std::fopen(aside.c_str(), "wb");
    const bool isWritten = file && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    if (!file || std::fclose(file) != 0 || !isWritten || std::rename(aside.c_str(), arguments[1]) != 0) {
        std::fprintf(stderr, "%s: can't be written\n", arguments[1]);
        return 1;
    }
    return 0;
}
