// One sheet that is to leave a printer: the images on it, how they are fitted and coloured, which printer model and
// medium it needs, and while it prints, its status. The base of all pages; every real page is a KLARON_PrintPage_DNP or
// a KLARON_PrintPageMitsu1. Sizes are in pixels of the printer, resolutions in dots per inch.
//
// Whoever made a page owns it. It is used by one thread at a time. imagePreview() and imageThumbnail() render a
// snapshot of the page on a global queue and bring what they made to the main queue, where they announce it: whoever
// asks for them uses the page there, or keeps the main queue from running meanwhile.
//
// The class in its files: KLARON_PrintPage.cpp its data, _archive its archived form, _previews the two caches,
// _processing the way from a picture to the page's image, _raster the bytes that printers take; PrintPageFactory.cpp
// chooses the class of a page.
#pragma once

#include "base/Error.h"
#include "base/Geometry.h"
#include "base/Value.h"
#include "platform/draw/ColorSpace.h"
#include "platform/draw/Image.h"
#include "platform/draw/Raster.h"
#include "platform/filter/Filter.h"
#include "platform/filter/FilterContext.h"
#include "platform/filter/FilterImage.h"
#include "platform/run/Group.h"
#include "platform/run/Observation.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

class KLARON_PrintPage;
class KLARON_USBPrinter;
using KLARON_PrintPageRef = std::shared_ptr<KLARON_PrintPage>;

/// What rasterData() hands over. The pixels live until the callback returns.
struct RasterData {
    std::size_t width = 0;
    std::size_t height = 0;
    std::size_t bytesPerRow = 0;
    std::size_t bitsPerComponent = 0;
    std::size_t bytesPerPixel = 0; ///< By the alpha information alone: 3, 1 or 4, also for 16 bits a component.
    std::uint32_t alphaInfo = 0;
    std::size_t reserved = 0;
    const std::uint8_t* data = nullptr; ///< Red, green, blue, alpha; rows from the top.
};

/// The bytes of a raster: none, one block of interleaved samples, or three planes.
using RasterBytes = std::variant<std::monostate, base::Data, std::array<base::Data, 3>>;

/// How the pixels of a rendered page lie.
enum class RasterFormat { rgba8, rgba16 };

class KLARON_PrintPage : public base::Object, public std::enable_shared_from_this<KLARON_PrintPage> {
public:
    /// `colorManagement` 1, `autoRotate` on, "dateInit" now.
    KLARON_PrintPage();
    ~KLARON_PrintPage() override;
    KLARON_PrintPage(const KLARON_PrintPage&) = delete;
    KLARON_PrintPage& operator=(const KLARON_PrintPage&) = delete;

    /// A page for a printer's model name. Every name gives a page.
    static KLARON_PrintPageRef printPageForModel(std::string_view model);
    /// A page out of an old property list (a URL or its dictionary); the key "printer" chooses the class. Null when the
    /// file can't be read or has no image beside it.
    static KLARON_PrintPageRef printPageForOldVelm(const base::Value& urlOrDictionary);
    static KLARON_PrintPageRef initWithOLDVELM(const base::Value& urlOrDictionary);
    static base::Result<base::ObjectRef> initWithCoder(const base::Dictionary& values);
    /// copyWithZone: what a page's copy takes over, see KLARON_PrintPage.cpp. It has no printer's status.
    virtual KLARON_PrintPageRef copy() const;

    // What is stored.
    bool isPrinting() const { return isPrinting_; }
    void setIsPrinting(bool isPrinting) { isPrinting_ = isPrinting; }
    bool isDuplex() const { return isDuplex_; }
    void setIsDuplex(bool isDuplex) { isDuplex_ = isDuplex; }
    /// 1 or 2: the profile in printerProfileICC is used; any other value: none.
    std::int32_t colorManagement() const { return colorManagement_; }
    void setColorManagement(std::int32_t colorManagement);
    const std::vector<base::URL>& fileURLs() const { return fileURLs_; }
    void setFileURLs(std::vector<base::URL> urls) { fileURLs_ = std::move(urls); }
    /// In the order of the frames.
    const std::vector<base::URL>& inputImages() const { return inputImages_; }
    void setInputImages(std::vector<base::URL> urls);
    /// One list for each of inputImages, by the same index.
    const std::vector<platform::filter::Filters>& imageFilters() const { return imageFilters_; }
    void setImageFilters(std::vector<platform::filter::Filters> filters);
    const std::optional<base::URL>& printerProfileICC() const { return printerProfileICC_; }
    void setPrinterProfileICC(std::optional<base::URL> url);
    const std::optional<std::string>& requiredModel() const { return requiredModel_; }
    void setRequiredModel(std::optional<std::string> model) { requiredModel_ = std::move(model); }
    const std::optional<std::string>& destinationLabel() const { return destinationLabel_; }
    void setDestinationLabel(std::optional<std::string> label) { destinationLabel_ = std::move(label); }
    const std::optional<std::string>& destinationSerialNumber() const { return destinationSerialNumber_; }
    void setDestinationSerialNumber(std::optional<std::string> number) { destinationSerialNumber_ = std::move(number); }
    /// The old index of the printer; 0 when the page was made for a model by its name.
    std::uint64_t printerModel() const { return printerModel_; }
    void setPrinterModel(std::uint64_t model) { printerModel_ = model; }
    const std::optional<std::int64_t>& printerQueuePosition() const { return printerQueuePosition_; }
    void setPrinterQueuePosition(std::optional<std::int64_t> position) { printerQueuePosition_ = position; }
    const std::optional<std::string>& status() const { return status_; }
    void setStatus(std::optional<std::string> status) { status_ = std::move(status); }
    /// A colour code.
    const std::optional<std::string>& colorStatus() const { return colorStatus_; }
    void setColorStatus(std::optional<std::string> code) { colorStatus_ = std::move(code); }
    std::int64_t copies() const { return copies_; }
    void setCopies(std::int64_t copies) { copies_ = copies; }
    using StatusBlock = std::function<void(KLARON_PrintPage& page)>;
    using ResultBlock = std::function<void(KLARON_PrintPage& page, const base::Result<void>& result)>;
    const StatusBlock& statusBlock() const { return statusBlock_; }
    void setStatusBlock(StatusBlock block) { statusBlock_ = std::move(block); }
    const ResultBlock& resultBlock() const { return resultBlock_; }
    void setResultBlock(ResultBlock block) { resultBlock_ = std::move(block); }
    std::shared_ptr<KLARON_USBPrinter> printer() const { return printer_.lock(); }
    void setPrinter(const std::weak_ptr<KLARON_USBPrinter>& printer) { printer_ = printer; }
    base::Dictionary& properties() { return properties_; }
    const base::Dictionary& properties() const { return properties_; }
    void setProperties(base::Dictionary properties) { properties_ = std::move(properties); }
    std::int64_t printerUSBProductID() const { return printerUSBProductID_; }
    void setPrinterUSBProductID(std::int64_t id) { printerUSBProductID_ = id; }
    const platform::run::GroupRef& groupPrint();

    // What stands in properties(), each under its own name; the readers know a default.
    std::optional<base::Date> dateInit() const;
    std::optional<base::Date> datePrintStart() const;
    void setDatePrintStart(std::optional<base::Date> date);
    std::optional<base::Date> datePrintComplete() const;
    void setDatePrintComplete(std::optional<base::Date> date);
    bool requiresIdealMedia() const;
    void setRequiresIdealMedia(bool required);
    bool applyImageFilters() const;
    void setApplyImageFilters(bool apply);
    bool autoRotate() const;
    void setAutoRotate(bool rotate);
    /// "gravity".
    std::string imageGravity() const;
    void setImageGravity(std::optional<std::string> gravity);
    /// Why the page can't print now.
    virtual std::optional<std::string> reason() const;
    void setReason(std::optional<std::string> reason);

    // What the kind of printer decides.
    virtual base::Size outputSize() const { return outputSize_; }
    void setOutputSize(base::Size size) { outputSize_ = size; }
    virtual base::Size outputResolution() const { return outputResolution_; }
    void setOutputResolution(base::Size resolution) { outputResolution_ = resolution; }
    virtual std::uint64_t pixelsWide() const;
    virtual std::uint64_t pixelsHigh() const;
    virtual std::uint64_t bytesPerRow() const { return 0; }
    virtual std::optional<std::string> mediaName() const { return std::nullopt; }
    virtual std::vector<std::string> paperNames() const { return {}; }
    /// The layouts to choose from. No kind of page knows any: paperNames() is empty, and no index is selected.
    virtual std::optional<std::set<std::uint64_t>> availableMulticutModes() const { return std::nullopt; }
    /// Where the page's layout stands among availableMulticutModes(); nothing when it is none of them.
    std::optional<std::size_t> selectedPaperIndex() const;
    /// Chooses that layout. An index beyond the modes changes nothing.
    void setSelectedPaperIndex(std::size_t index);
    /// Stores the name under "paperName"; pages of a printer choose medium and layout by it.
    virtual void configureNamedPaper(std::string_view name);
    /// The plane images that the printer takes; nothing when the page can't be rastered or the printer takes none.
    virtual std::optional<std::vector<base::Data>> YMCDataPlanes() { return std::nullopt; }

    /// Hands the page to its printer; without one nothing happens.
    void print();
    virtual void showPrintPanel(std::string_view sender = {});

    // Image processing.
    /// The page's image, not yet computed; null when there is none. Options: "isPreviewImage", "DrawsCanvas",
    /// "urlImage", "imageFilters" (an array of Filter objects), "imageGravity", "outputSize", "previewSize".
    virtual platform::filter::FilterImageRef imagePreProcessWithOptions(const base::Dictionary& options = {});
    /// The space of the printer and its medium. A profile that can't be printed to is logged and taken off the page.
    virtual platform::draw::ColorSpaceRef outputColorSpace();
    virtual platform::filter::WorkingFormat rasterContextFormatWorking() const;
    virtual RasterFormat rasterContextFormatOutput() const;
    std::optional<platform::draw::Raster> imageRaster();
    /// The page's bytes, see KLARON_PrintPage_raster.cpp. In: "bitsPerComponent", "planar", "cmy". Out: "width",
    /// "height", "numberOfComponents", "bytesPerRow", "bitsPerComponent", "alphaInfo", "colorSpace"; or "error" alone.
    RasterBytes imageRasterWithProperties(base::Dictionary* properties = nullptr);
    RasterBytes rgb_8_chunky(base::Dictionary* properties = nullptr);
    RasterBytes rgb_8_planar(base::Dictionary* properties = nullptr);
    RasterBytes cmy_8_chunky(base::Dictionary* properties = nullptr);
    RasterBytes cmy_8_planar(base::Dictionary* properties = nullptr);
    RasterBytes rgb_16_chunky(base::Dictionary* properties = nullptr);
    RasterBytes rgb_16_planar(base::Dictionary* properties = nullptr);
    RasterBytes cmy_16_chunky(base::Dictionary* properties = nullptr);
    RasterBytes cmy_16_planar(base::Dictionary* properties = nullptr);
    /// Calls back once with the page's pixels, or not at all when there are none.
    void rasterData(const std::function<void(const RasterData&)>& callback);

    using FilterCollection = std::vector<platform::filter::FilterRef>;
    /// The collection's filter of that name, made and added when it isn't there. Null for an unknown name.
    static platform::filter::FilterRef filterNamed(std::string_view name, FilterCollection& collection);
    /// Sets an input of a filter when the key is among the possible ones. Always false.
    static bool setFilterForKey(std::string_view key, const base::Value& value, FilterCollection& collection,
                                std::string_view filterName, const std::vector<std::string_view>& possibleKeys,
                                const base::Dictionary& translation);
    /// One list of filters made of old colour settings ("colorAdjustBrightness" or "Brightness"...).
    static std::vector<platform::filter::Filters>
    filtersForOLDVELMColorAdjustments(const base::Dictionary& adjustments);

    // Previews: the image of the last rendering, null until the first has ended. There is one under way at a time.
    /// The user default "thumbnailSizeCustom", else 64 by 64.
    static base::Size thumbnailSize();
    /// Starts a rendering when there is no image.
    platform::draw::ImageRef imageThumbnail();
    /// Starts a rendering each time, and drops the thumbnail with it.
    platform::draw::ImageRef imagePreview();

    /// Changes of "inputImages", "imageFilters", "printerProfileICC", "imageGravity", "colorManagement", "autoRotate",
    /// "applyImageFilters", "multicut", "quality" and with each of them "imagePreview"; with "multicut" also
    /// "selectedPaperIndex". "imagePreview" and "imageThumbnail" too when a rendering has ended: reading the one that
    /// is announced then starts no new one.
    platform::run::Observable& observable() { return observable_; }

    std::string className() const override { return "KLARON_PrintPage"; }
    std::string description() const override;
    std::optional<base::Dictionary> encoded() override;

protected:
    /// Takes over what a copy takes over; a class that adds members adds them here.
    virtual void copyTo(KLARON_PrintPage& page) const;
    /// Reads the old form into this page. False: there is no page.
    virtual bool readOldVelm(const base::Value& urlOrDictionary);
    /// Takes the archived values over. The page then has no defaults but those of the archive.
    virtual void decode(const base::Dictionary& values);
    /// The layout of a page that has one.
    virtual std::uint64_t multicutMode() const { return 0; }
    virtual void setMulticutMode(std::uint64_t) {}
    /// Announces a change of a key and of all that depends on it.
    void change(std::string_view key, const std::function<void()>& change);

private:
    enum class Preview { image, thumbnail };

    void setProperty(std::string_view key, base::Value value);
    /// A page with the same picture that shares nothing which changes.
    KLARON_PrintPageRef snapshot() const;
    /// Starts a rendering unless one is under way; answers whether it did.
    bool startRendering(Preview preview);
    void setRendered(Preview preview, platform::draw::ImageRef image);
    platform::draw::ImageRef rendered(Preview preview) const;
    /// On a snapshot: makes the picture of a preview.
    platform::draw::ImageRef render(Preview preview);

    bool isPrinting_ = false;
    bool isDuplex_ = false;
    bool didUpdateImagePreview_ = false;   // main queue only
    bool didUpdateImageThumbnail_ = false; // main queue only
    std::int32_t colorManagement_ = 0;
    std::vector<base::URL> fileURLs_;
    std::vector<base::URL> inputImages_;
    std::vector<platform::filter::Filters> imageFilters_;
    std::optional<base::URL> printerProfileICC_;
    std::optional<std::string> requiredModel_;
    std::optional<std::string> destinationLabel_;
    std::optional<std::string> destinationSerialNumber_;
    std::uint64_t printerModel_ = 0;
    std::optional<std::int64_t> printerQueuePosition_;
    std::optional<std::string> status_;
    std::optional<std::string> colorStatus_;
    std::int64_t copies_ = 0;
    StatusBlock statusBlock_;
    ResultBlock resultBlock_;
    std::weak_ptr<KLARON_USBPrinter> printer_;
    base::Dictionary properties_;
    mutable std::mutex previewsMutex_; // for the two images
    platform::draw::ImageRef imagePreview_;
    platform::draw::ImageRef imageThumbnail_;
    std::int64_t printerUSBProductID_ = 0;
    platform::run::GroupRef groupPrint_;
    base::Size outputResolution_;
    base::Size outputSize_;
    platform::run::Observable observable_;
};

/// Makes the classes of pages and filters known to archives. Whoever reads pages as a part of other archives calls it
/// before. Again is without effect.
void registerPrintPageClasses();
/// A keyed archive with the page as its root.
base::Result<base::Data> archiveOfPage(const KLARON_PrintPageRef& page);
/// The page of an archive; an error for what is none. A page of the base class counts as one.
base::Result<KLARON_PrintPageRef> pageFromArchive(std::string_view bytes);
