// One template by two roads: the same pixels, to the last bit. The templates are those of the golden cases that render.
#include "base/Places.h"
#include "folders/DefaultsKeys.h"
#include "jobs/VELM_Job.h"
#include "jobs/VELM_Package.h"
#include "platform/data/UserDefaults.h"
#include "platform/data/XMLDocument.h"
#include "platform/draw/Bitmap.h"
#include "platform/draw/Image.h"
#include "platform/draw/PictureCache.h"
#include "support/LogCapture.h"
#include "support/TemporaryDirectory.h"
#include "template/TemplateLayout.h"
#include "template/VELM_Template.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <set>
#include <thread>
#include <vector>

namespace fs = std::filesystem;
using base::URL;
using platform::draw::Bitmap;
using platform::draw::ImageRef;

namespace {

std::vector<std::string> caseNames() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(GOLDEN_CASES))
        if (fs::exists(entry.path() / "arguments.txt") && fs::exists(entry.path() / "order.velm_job/Templates"))
            names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

URL urlOf(const fs::path& path) {
    return URL::fileURLWithPath(path.string());
}

// A case as velmctl is given it, and its template read and filled from it.
class Order {
public:
    explicit Order(const std::string& name) {
        fs::copy(fs::path(GOLDEN_CASES) / name, files.path(), fs::copy_options::recursive);
        fs::copy(GOLDEN_PHOTOS, container / "Images", fs::copy_options::recursive);
        hasOwnPhotograph_ = support::readFile(files / "arguments.txt").find("--image") != std::string::npos;
        if (fs::exists(container / "job.xml")) take(container);
    }

    // A bundle, or a ticket that stands alone.
    void take(const fs::path& ticket) {
        const auto read = VELM_Job::jobWithContentsOfURL(urlOf(ticket));
        ASSERT_TRUE(read) << read.error().localizedDescription;
        job_ = *read;
        package_ = VELM_Package::init();
        package_->setJob(job_);
        package_->setValue("name", job_->packageName().value_or(""));
    }

    VELM_Template::Ref read(const std::string& path) const {
        const auto document = VELM_Template::templateWithPath(path, job_ ? job_->urlJobContainer() : std::nullopt);
        EXPECT_TRUE(document) << path;
        return document;
    }
    VELM_Template::Ref read() const { return read(page); }
    VELM_Template::Ref fill(const VELM_Template::Ref& document) const {
        if (package_) document->setPackage(package_);
        if (hasOwnPhotograph_) document->setFilepathCustomImage((container / "Images/upright8.jpg").string());
        document->replaceKeyValues();
        return document;
    }
    VELM_Template::Ref filled() const { return fill(read()); }

    support::TemporaryDirectory files;
    const fs::path container = files.path() / "order.velm_job";
    const std::string page = container / "Templates/page.xml";

private:
    VELM_Job::Ref job_;
    VELM_Package::Ref package_;
    bool hasOwnPhotograph_ = false; // the run's, in place of the order's
};

// Size and samples, to be compared.
std::string pixelsOf(const ImageRef& image) {
    const auto bitmap = image ? image->bitmap() : base::failure(base::cocoaErrorDomain, 1, "no picture");
    if (!bitmap) {
        ADD_FAILURE() << bitmap.error().localizedDescription;
        return {};
    }
    std::string pixels = base::stringFromSize({double(bitmap->width()), double(bitmap->height())});
    for (int y = 0; y < bitmap->height(); ++y)
        pixels.append(reinterpret_cast<const char*>(bitmap->row(y)), 4 * static_cast<std::size_t>(bitmap->width()));
    return pixels;
}

std::string drawn(const VELM_Template::Ref& document) {
    return pixelsOf(document->imageUncached());
}

void setFolder(std::string_view key, const base::Value& folder) {
    EXPECT_TRUE(platform::data::UserDefaults::standard().setObject(folder, key));
}

// Out of the order into the tree that the settings name, and drawn from there.
std::string fromTheSettingsFolders(Order& order, bool isTicketAlone) {
    const fs::path tree = order.files.path() / "tree";
    fs::create_directories(tree / "Nodes");
    for (const std::string_view folder : {"Templates", "Nodes", "Images"})
        if (fs::exists(order.container / folder)) fs::rename(order.container / folder, tree / folder);
    fs::create_directory_symlink(tree / "Images", order.container / "Images");
    if (isTicketAlone && fs::exists(order.container / "job.xml")) {
        fs::rename(order.container / "job.xml", tree / "alone.xml");
        order.take(tree / "alone.xml");
    }
    VELM_Template::setCurrentTemplatesFolder(urlOf(tree / "Templates"));
    std::string pixels = drawn(order.fill(order.read("page.xml")));
    setFolder(key_velmFolderTemplates, {});
    setFolder(key_velmFolderNodes, {});
    return pixels;
}

std::string nestedInAnother(Order& order) {
    const auto whole = order.read();
    const std::string size = base::stringFromSize(whole->canvasSize());
    return drawn(order.fill(
        order.read(order.files.write("order.velm_job/Templates/outer.xml",
                                     "<data><layout size='" + size + "'><layer type='node' frame='{{0, 0}, " + size +
                                         "}'><filepath>" + order.page + "</filepath></layer></layout></data>"))));
}

std::string withoutPictureCache(Order& order) {
    const std::size_t capacity = platform::draw::pictureCacheCapacity();
    platform::draw::setPictureCacheCapacity(0);
    std::string pixels = drawn(order.filled());
    platform::draw::setPictureCacheCapacity(capacity);
    return pixels;
}

const struct {
    const char* name;
    std::function<std::string(Order&)> pixels;
    std::set<std::string_view> except; // the cases that this road changes
} roads[] = {
    {"drawn a second time",
     [](Order& order) {
         const auto document = order.filled();
         document->imageUncached();
         return drawn(document);
     }},
    {"kept", [](Order& order) { return pixelsOf(order.filled()->image()); }},
    {"on the caller's thread", [](Order& order) { return pixelsOf(order.filled()->createProductImage()); }},
    {"at a scale of 1",
     [](Order& order) {
         const auto document = order.filled();
         document->setScale(1);
         return drawn(document);
     }},
    {"after its layout was asked",
     [](Order& order) {
         const auto document = order.filled();
         EXPECT_FALSE(layoutText(*document, layoutOf(*document)).empty());
         return drawn(document);
     }},
    // The layers of a copy know no parent, so that their stamps see neither the package nor the run's photograph.
    {"a copy",
     [](Order& order) { return drawn(order.fill(order.read()->copyWithZone())); },
     {"own_photograph", "stamps"}},
    {"with a cold picture cache",
     [](Order& order) {
         platform::draw::clearPictureCache();
         return drawn(order.filled());
     }},
    {"without a picture cache", withoutPictureCache},
    // A node that a body calls a graphic is none, and stands for its layer as that.
    {"as a node of another", nestedInAnother, {"itself"}},
    {"in the folders of the settings", [](Order& order) { return fromTheSettingsFolders(order, false); }},
    // Beside a ticket that stands alone the pictures of node files are looked for in the Nodes folder.
    {"without a bundle", [](Order& order) { return fromTheSettingsFolders(order, true); }, {"nested", "scaled"}},
    {"composed",
     [](Order& order) {
         const auto document = order.filled();
         std::promise<std::string> pixels;
         document->getComposedImage([&](const ImageRef& image) { pixels.set_value(pixelsOf(image)); });
         return pixels.get_future().get();
     }},
};

// What a file does not hold of a template, so that it looks otherwise once it was written and read.
const std::map<std::string, std::string> losses = {
    {"backgrounds", "a background that stands as the attribute alone, and that of a picture"},
    {"borders", "the border of the older element"},
    {"frames", "a layer with a place and no size"},
    {"itself", "all of a template without layers"},
    {"nested", "the background of a node"},
    {"shadows", "the shadows of the older elements, the background of a picture"},
    {"stamps", "the number of a stored text"},
};

class Equivalence : public testing::TestWithParam<std::string> {
protected:
    static void SetUpTestSuite() {
        setenv("FONTCONFIG_FILE", GOLDEN_FONTS, 1);
        static const support::TemporaryDirectory home;
        base::setPlaces(base::Places::below(home.path()));
    }
    const support::LogCapture log_;
};

TEST_P(Equivalence, EveryRoadLeadsToTheSamePixels) {
    const std::string expected = drawn(Order(GetParam()).filled());
    for (const auto& road : roads) {
        if (road.except.count(GetParam())) continue;
        Order order(GetParam());
        EXPECT_TRUE(road.pixels(order) == expected) << road.name;
    }
}

TEST_P(Equivalence, WrittenAndReadAgain) {
    const Order order(GetParam());
    const auto again = [&](const VELM_Template::Ref& document) {
        const auto text = document->xmlForSaving()->xmlData(platform::data::XMLFormat::prettyPrinted);
        const auto read = order.read(order.files.write("order.velm_job/Templates/again.xml", text.asText()));
        if (document->hasBackground()) read->setHasBackground(true); // no file holds a document's own
        return read;
    };
    const std::string expected = drawn(order.filled());
    const std::string once = drawn(order.fill(again(order.read())));
    const auto loss = losses.find(GetParam());
    if (loss == losses.end())
        EXPECT_TRUE(once == expected);
    else
        EXPECT_FALSE(once == expected) << "no loss of " << loss->second;
    EXPECT_TRUE(drawn(order.fill(again(again(order.read())))) == once) << "a second time loses more";
}

INSTANTIATE_TEST_SUITE_P(Cases, Equivalence, testing::ValuesIn(caseNames()),
                         [](const auto& parameter) { return parameter.param; });

// All templates at once, each asked by two threads.
TEST_F(Equivalence, ManyThreads) {
    struct Task {
        explicit Task(const std::string& name) : order(name), expected(drawn(order.filled())), shared(order.filled()) {}
        Order order;
        std::string expected;
        VELM_Template::Ref shared;
    };
    std::vector<std::unique_ptr<Task>> tasks;
    for (const std::string& name : caseNames())
        tasks.push_back(std::make_unique<Task>(name));
    platform::draw::clearPictureCache();
    std::vector<std::thread> threads;
    for (const auto& task : tasks)
        for (const bool isFresh : {true, false})
            threads.emplace_back([&task = *task, isFresh] {
                EXPECT_TRUE(drawn(isFresh ? task.order.filled() : task.shared) == task.expected) << task.order.page;
                EXPECT_TRUE(pixelsOf(task.shared->image()) == task.expected) << task.order.page;
            });
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace
