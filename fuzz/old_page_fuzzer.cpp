// The property list of an old page: read as a dictionary, and as a file with a picture beside it.
#include "Fuzzing.h"
#include "platform/data/PropertyList.h"
#include "print/KLARON_PrintPage.h"

#include <filesystem>
#include <fstream>

using fuzzing::require;

namespace {

/// Removed with all that it holds when the process ends.
class Folder {
public:
    Folder() {
        std::string name = (std::filesystem::temp_directory_path() / "old-page-XXXXXX").string();
        require(mkdtemp(name.data()) != nullptr, "there is a folder to write");
        path_ = name;
        std::ofstream(path_ / "page.jpeg") << "a picture by its name";
    }
    ~Folder() { std::filesystem::remove_all(path_); }

    base::URL written(const std::uint8_t* bytes, std::size_t size) const {
        const std::filesystem::path list = path_ / "page.plist";
        std::ofstream(list, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(size));
        return base::URL::fileURLWithPath(list.string());
    }

private:
    std::filesystem::path path_;
};

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    fuzzing::silenceLog();
    static const Folder folder;
    const auto list = platform::data::parsePropertyList({reinterpret_cast<const char*>(bytes), size});
    const bool isDictionary = list && list->as<base::Dictionary>();
    const auto page = KLARON_PrintPage::printPageForOldVelm(folder.written(bytes, size));
    require((page != nullptr) == isDictionary, "a page is what has a dictionary and a picture");
    if (!page) return 0;
    require(page->requiresIdealMedia() && page->copies() != 0, "what all old pages have");
    require(page->inputImages().size() == 1 && page->fileURLs().size() == 2, "a page names its files");
    require(page->imageFilters().size() == 1, "filters stand in one list");
    (void)page->description();
    const auto archive = archiveOfPage(page);
    require(archive && pageFromArchive(archive->asText()), "an old page can be archived");

    const auto other = KLARON_PrintPage::printPageForOldVelm(*list);
    require(other && other->className() == page->className() && other->printerModel() == page->printerModel() &&
                other->reason() == page->reason() && other->inputImages().empty(),
            "a dictionary chooses the same class and paper");
    return 0;
}
