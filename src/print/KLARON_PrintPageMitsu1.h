// A sheet for a Mitsubishi CP-D70DW, CP-D80DW or CP-D90DW printer: which medium, which layout, overcoat and print mode.
// It is always one picture, in the printers' own colour space and with 16 bits a component. What the numbers mean
// stands in mitsu_tables.h. Ownership and threads as KLARON_PrintPage.
#pragma once

#include "print/KLARON_PrintPage.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class KLARON_PrintPageMitsu1 : public KLARON_PrintPage {
public:
    static std::shared_ptr<KLARON_PrintPageMitsu1> initWithOLDVELM(const base::Value& urlOrDictionary);
    static base::Result<base::ObjectRef> initWithCoder(const base::Dictionary& values);
    KLARON_PrintPageRef copy() const override;

    std::uint8_t mediaSize() const { return mediaSize_; }
    void setMediaSize(std::uint8_t media) { mediaSize_ = media; }
    /// 0 glossy, 2 matte.
    std::uint8_t overcoat() const { return overcoat_; }
    void setOvercoat(std::uint8_t overcoat) { overcoat_ = overcoat; }
    /// The print mode: 0 fine, 3 super fine, 4 ultra fine, all others automatic.
    std::uint8_t quality() const { return quality_; }
    void setQuality(std::uint8_t quality);
    /// The job's number at the printer. Neither archived nor copied.
    std::uint16_t jobID() const { return jobID_; }
    void setJobID(std::uint16_t jobID) { jobID_ = jobID; }
    /// The layout; 0 when none is known, and the page then has no height.
    std::uint64_t multicut() const { return multicut_; }
    void setMulticut(std::uint64_t multicut);

    // Slots for the printer's side. Pages don't fill them: the planes are made by whoever sends them.
    std::optional<std::vector<base::Data>> YMCDataPlanes() override { return planes_; }
    const std::optional<base::Data>& YMCData() const { return data_; }
    const std::optional<std::vector<base::Data>>& panoramaData() const { return panorama_; }

    std::optional<std::string> reason() const override;
    base::Size outputSize() const override;
    base::Size outputResolution() const override { return {300, 300}; }
    /// They differ between the CP-D90DW and the other models, by printerModel().
    std::uint64_t pixelsWide() const override;
    std::uint64_t pixelsHigh() const override;
    /// Of a layout on this page's model; 0 for an unknown one.
    std::uint64_t pixelsHighForMulticut(std::uint64_t multicut) const;
    std::optional<std::string> mediaName() const override;
    std::vector<std::string> paperNames() const override;
    /// Chooses layout and medium; the name itself is not kept.
    void configureNamedPaper(std::string_view name) override;

    /// Of the resource "CPD70_SF.icc"; null without it. The page's own profile plays no part.
    platform::draw::ColorSpaceRef outputColorSpace() override;
    platform::filter::WorkingFormat rasterContextFormatWorking() const override;
    RasterFormat rasterContextFormatOutput() const override { return RasterFormat::rgba16; }

    std::string className() const override { return "KLARON_PrintPageMitsu1"; }
    std::string description() const override;
    std::optional<base::Dictionary> encoded() override;

protected:
    void copyTo(KLARON_PrintPage& page) const override;
    bool readOldVelm(const base::Value& urlOrDictionary) override;
    void decode(const base::Dictionary& values) override;
    std::uint64_t multicutMode() const override { return multicut_; }
    void setMulticutMode(std::uint64_t mode) override { setMulticut(mode); }

private:
    std::uint8_t mediaSize_ = 0;
    std::uint8_t overcoat_ = 0;
    std::uint8_t quality_ = 0;
    std::uint16_t jobID_ = 0;
    std::uint64_t multicut_ = 0;
    std::optional<std::vector<base::Data>> planes_;
    std::optional<base::Data> data_;
    std::optional<std::vector<base::Data>> panorama_;
};
