// A sheet for a DNP dye-sublimation printer: which roll, how the sheet is cut, overcoat, quality and cut mode; it puts
// several pictures into the frames of its layout and makes the three planes that such a printer takes. What the numbers
// mean stands in dnp_photo.h. Ownership and threads as KLARON_PrintPage.
#pragma once

#include "print/KLARON_PrintPage.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

class KLARON_PrintPage_DNP : public KLARON_PrintPage {
public:
    static std::shared_ptr<KLARON_PrintPage_DNP> initWithOLDVELM(const base::Value& urlOrDictionary);
    static base::Result<base::ObjectRef> initWithCoder(const base::Dictionary& values);
    KLARON_PrintPageRef copy() const override;

    bool sheetFed() const { return sheetFed_; }
    void setSheetFed(bool sheetFed) { sheetFed_ = sheetFed; }
    /// The back is coated too: the page gets blank planes for it.
    bool overcoatBackside() const { return overcoatBackside_; }
    void setOvercoatBackside(bool overcoatBackside) { overcoatBackside_ = overcoatBackside; }
    std::int32_t mediaSize() const { return mediaSize_; }
    void setMediaSize(std::int32_t media) { mediaSize_ = media; }
    /// 0: none is chosen.
    std::int32_t multicut() const { return multicut_; }
    void setMulticut(std::int32_t multicut);
    std::int32_t overcoat() const { return overcoat_; }
    void setOvercoat(std::int32_t overcoat) { overcoat_ = overcoat; }
    std::int32_t quality() const { return quality_; }
    void setQuality(std::int32_t quality);
    /// 0 or 120.
    std::int32_t cutMode() const { return cutMode_; }
    void setCutMode(std::int32_t cutMode) { cutMode_ = cutMode; }

    /// 600 lines to the inch in the direction of the feed, in place of 300.
    bool hiRes() const { return quality_ == 10 || quality_ == 30; }
    /// Dots of the thermal head, so the width of a plane: 1920 or 2560.
    int headWidth() const;

    std::optional<std::string> reason() const override;
    base::Size outputSize() const override;
    base::Size outputResolution() const override;
    std::optional<std::string> mediaName() const override;
    std::vector<std::string> paperNames() const override;
    void configureNamedPaper(std::string_view name) override;

    /// Of one picture the whole sheet, of several (or none) the sheet with its frames. Null without a multicut, unless
    /// a preview is asked for.
    platform::filter::FilterImageRef imagePreProcessWithOptions(const base::Dictionary& options = {}) override;
    /// A white sheet with a picture in each frame; the last picture fills the frames that are left over. Null without a
    /// multicut, and when a picture can't be read.
    platform::filter::FilterImageRef imagePreProcessMultiWithOptions(const base::Dictionary& options);
    /// BMP files (DNPPlanes.h): Y, M, C, and for duplex and coated backs blank ones of the back, in this order. Nothing
    /// when the page can't be rastered; that is logged.
    std::optional<std::vector<base::Data>> YMCDataPlanes() override;

    /// What the numbers of old property lists stand for; 0 for what there never was.
    static std::int32_t oldVelm_media(std::int64_t printer, std::int64_t mediaType);
    static std::int32_t oldVelm_multicut(std::int32_t media, std::int64_t cutInHalf);
    static std::int32_t oldVelm_cutmode(std::int32_t media, std::int64_t cutInHalf);

    std::string className() const override { return "KLARON_PrintPage_DNP"; }
    std::string description() const override;
    /// The cut mode is written as "self.cutMode" and read as "self.cutmode", so an archive brings it back as 0.
    std::optional<base::Dictionary> encoded() override;

protected:
    void copyTo(KLARON_PrintPage& page) const override;
    bool readOldVelm(const base::Value& urlOrDictionary) override;
    void decode(const base::Dictionary& values) override;
    std::uint64_t multicutMode() const override { return static_cast<std::uint64_t>(multicut_); }
    void setMulticutMode(std::uint64_t mode) override { setMulticut(static_cast<std::int32_t>(mode)); }

private:
    bool sheetFed_ = false;
    bool overcoatBackside_ = false;
    std::int32_t mediaSize_ = 0;
    std::int32_t multicut_ = 0;
    std::int32_t overcoat_ = 0;
    std::int32_t quality_ = 0;
    std::int32_t cutMode_ = 0;
};
