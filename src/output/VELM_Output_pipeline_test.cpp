#include "folders/QueueHelpers.h"
#include "internal/OutputFixture.h"
#include "output/PrinterDestinationHandler.h"
#include "output/VELM_PrintToFileSet.h"
#include "platform/data/PropertyList.h"
#include "platform/run/Group.h"

#include <gmock/gmock.h>

#include <latch>
#include <mutex>
#include <set>
#include <thread>

namespace {

using namespace output_testing;
using testing::HasSubstr;
using testing::SizeIs;

struct Answer {
    bool success;
    std::optional<base::Error> error;
};

bool isError(const Answer& answer, std::string_view domain, int code, std::string_view text) {
    return !answer.success && answer.error == base::Error{std::string(domain), code, std::string(text)};
}

class OutputPipeline : public testing::Test {
protected:
    OutputPipeline() {
        package_->order->values[{"key", "image1"}] = writePicture(folder_ / "photo.jpg", 40, 60, red, blue);
    }

    std::shared_ptr<VELM_Output> output(const std::string& xml, VELM_Output::Templates templates = {}) {
        auto made = outputFrom(xml);
        made->setPackage(package_);
        made->setTemplates(std::move(templates));
        return made;
    }

    std::vector<Answer> run(const VELM_Output& output) {
        std::vector<Answer> answers;
        output.processToCompletion([&](bool success, const auto& error) { answers.push_back({success, error}); });
        return answers;
    }

    std::string destination(const std::string& children = "") const {
        return "<destination type='filepath'><filepath>" + out() + "</filepath>" + children + "</destination>";
    }

    std::string out() const { return folder_ / "out"; }

    Picture onlyPicture() const {
        const auto files = filesIn(out());
        EXPECT_THAT(files, SizeIs(1));
        return Picture(files.at(0));
    }

    support::TemporaryDirectory folder_;
    std::shared_ptr<TestPackage> package_ = std::make_shared<TestPackage>();
};

TEST_F(OutputPipeline, deliversTheImageOfASimpleOutletAsItStands) {
    for (const std::string outlet : {"><page type='node' croprect='{{0, 30}, {40, 20}}'/>", // cut from its top
                                     " size='{20, 30}'><page type='node' frame='{{0,0},{20,30}}'/>", ">"}) {
        std::filesystem::remove_all(out());
        std::vector<std::string> announced;
        const auto token = VELM_Output::observeWrittenFiles(
            [&](const VELM_Output&, const base::URL& file) { announced.push_back(file.path()); });
        const auto answers =
            run(*output("<output" + outlet + destination() + "</output>", {{"page", photographTemplate(40, 60)}}));
        ASSERT_THAT(answers, SizeIs(1)) << outlet;
        EXPECT_TRUE(answers[0].success && !answers[0].error);
        EXPECT_EQ(announced, filesIn(out()));
        const Picture picture = onlyPicture();
        const bool isCut = outlet.find("croprect") != std::string::npos;
        EXPECT_EQ(picture.size(), (std::array{40, isCut ? 20 : 60})) << outlet;
        EXPECT_EQ(picture.at(20, 5), isCut ? blue : red) << outlet;
    }
}

TEST_F(OutputPipeline, placesEachNodeInItsFramesAndGoesOnWithoutAMissingTemplate) {
    const auto answers = run(*output("<output size='{80, 60}'><left type='node'><frame>{{0, 0}, {40, 60}}</frame>"
                                     "<origin>{40, 40}</origin></left><right type='node'/>" +
                                         destination() + "</output>",
                                     {{"left", photographTemplate(20, 20)}}));
    ASSERT_THAT(answers, SizeIs(2));
    EXPECT_TRUE(isError(answers[0], "NSCocoaErrorDomain", 1, "no template found named right"));
    EXPECT_TRUE(answers[1].success);
    const Picture picture = onlyPicture();
    EXPECT_EQ(picture.size(), (std::array{80, 60}));
    EXPECT_EQ(picture.at(20, 10), red);
    EXPECT_EQ(picture.at(20, 50), blue);
    EXPECT_EQ(picture.at(50, 43), red); // the template's own size at {40, 40} from the top left
    EXPECT_EQ(picture.at(50, 57), blue);
    EXPECT_EQ(picture.at(70, 50), white);
}

TEST_F(OutputPipeline, failsWithoutAProduct) {
    const VELM_Output::Templates templates{{"page", photographTemplate(40, 60)}};
    const auto unsized = run(*output(
        "<output><page type='node'><frame>{{0, 0}, {9, 9}}</frame></page>" + destination() + "</output>", templates));
    ASSERT_THAT(unsized, SizeIs(2));
    EXPECT_TRUE(
        isError(unsized[0], "NSCocoaErrorDomain", -5, "to use N-UP output behavior you must specify an OUTPUT size"));
    EXPECT_TRUE(isError(unsized[1], "NSCocoaErrorDomain", 1, "failed to generate output image"));
    const auto without = run(*output("<output>" + destination() + "</output>"));
    ASSERT_THAT(without, SizeIs(1));
    EXPECT_TRUE(isError(without[0], "NSCocoaErrorDomain", 1, "failed to generate output image"));
    const auto missed = run(
        *output("<output><page type='node' croprect='{{90, 90}, {5, 5}}'/>" + destination() + "</output>", templates));
    ASSERT_THAT(missed, SizeIs(1));
    EXPECT_TRUE(isError(missed[0], "NSCocoaErrorDomain", 1, "failed to generate output image"));
    EXPECT_THAT(filesIn(out()), SizeIs(0));
    output("<output>" + destination() + "</output>")->processToCompletion(nullptr);
}

TEST_F(OutputPipeline, mixesOriginalsAndProductsAndPassesOverUnknownKinds) {
    const auto answers =
        run(*output("<output>" + destination("<saveoriginalfileasis>1</saveoriginalfileasis>") + destination() +
                        "<destination/><destination type='printer'><saveoriginalfileasis>0</saveoriginalfileasis>"
                        "</destination></output>",
                    {{"page", photographTemplate(8, 8)}}));
    ASSERT_THAT(answers, SizeIs(3));
    EXPECT_TRUE(answers[0].success);
    EXPECT_TRUE(answers[1].success);
    EXPECT_FALSE(answers[2].success);
    EXPECT_THAT(answers[2].error->localizedDescription, HasSubstr("printer destinations are not supported here"));
    std::set<std::array<int, 2>> sizes;
    for (const std::string& file : filesIn(out()))
        sizes.insert(Picture(file).size());
    EXPECT_EQ(sizes, (std::set<std::array<int, 2>>{{8, 8}, {40, 60}}));
}

TEST_F(OutputPipeline, handsPrinterDestinationsToTheirHandler) {
    struct Handler : PrinterDestinationHandler {
        base::Result<void> process(const VELM_Output&, const VELM_Destination& destination,
                                   const platform::draw::ImageRef& product) override {
            if (destination.printerModel() != "DS620") return base::failure("defaults", -35, "no such printer");
            width = product->width();
            return {};
        }
        int width = 0;
    };
    const auto handler = std::make_shared<Handler>();
    PrinterDestinationHandler::setHandler(handler);
    const auto answers = run(*output("<output><destination type='printer'><model>DS620</model></destination>"
                                     "<destination type='printer'/></output>",
                                     {{"page", photographTemplate(8, 6)}}));
    PrinterDestinationHandler::setHandler(nullptr);
    EXPECT_EQ(handler->width, 8);
    ASSERT_THAT(answers, SizeIs(2));
    EXPECT_TRUE(answers[0].success);
    EXPECT_TRUE(isError(answers[1], "defaults", -35, "no such printer"));
}

TEST_F(OutputPipeline, limitsTheSizeAndWritesTheUploadComment) {
    const std::vector<std::pair<std::string, std::array<int, 2>>> cases = {
        {"<resize>yes</resize><limitsize>30</limitsize>", {20, 30}},
        {"<resize>no</resize><limitsize>30</limitsize>", {40, 60}},
        {"<resize>yes</resize>", {40, 60}},
    };
    for (const auto& [settings, size] : cases) {
        std::filesystem::remove_all(out());
        run(*output("<output>" + destination(settings + "<uploadsite>lx4</uploadsite>") + "</output>",
                    {{"page", photographTemplate(40, 60)}}));
        EXPECT_EQ(onlyPicture().size(), size) << settings;
        const auto comment = KLARON_Image::getEXIFUserCommentForImage(filesIn(out()).at(0));
        ASSERT_TRUE(comment);
        const auto list = platform::data::parsePropertyList(*comment);
        ASSERT_TRUE(list) << *comment;
        const auto& info = *base::valueForKey(*list->as<base::Dictionary>(), "uploadInfo").as<base::Dictionary>();
        EXPECT_EQ(base::textForKey(info, "f"), "lx4");
        EXPECT_EQ(base::textForKey(info, "Version"), "VELM-XML v1.0");
        EXPECT_THAT(base::textForKey(info, "OriginalPath").value_or(""), testing::StartsWith(out() + "/image_"));
    }
}

TEST_F(OutputPipeline, writesByTheSettingsOfAPrintToFileSet) {
    const auto set = VELM_PrintToFileSet::folderSetWithName("2");
    ASSERT_TRUE(set);
    set->setURL(base::URL::fileURLWithPath(out()));
    set->setProperty("fileFormat", "public.png");
    set->setProperty("webUploadHasMaxPixels", true);
    set->setProperty("webUploadMaxPixels", 12);
    const auto made = output("<output><destination type='filepath'><itempath>2</itempath></destination></output>",
                             {{"page", photographTemplate(40, 60)}});
    std::vector<std::string> announced;
    std::mutex mutex;
    const auto token = VELM_Output::observeWrittenFiles([&](const VELM_Output&, const base::URL& file) {
        const std::lock_guard lock(mutex);
        announced.push_back(file.path());
    });
    platform::run::Group group;
    for (int turn = 0; turn < 3; ++turn)
        group.async(folders::dispatchQueueSerial(), [&] { made->processToCompletion(nullptr); });
    group.wait();
    EXPECT_THAT(announced, testing::UnorderedElementsAreArray(filesIn(out())));
    EXPECT_THAT(filesIn(out()),
                testing::ElementsAre(out() + "/photo 1.png", out() + "/photo 2.png", out() + "/photo.png"));
    EXPECT_EQ(Picture(out() + "/photo 2.png").size(), (std::array{8, 12}));
    set->setProperty("overwriteExisting", true);
    run(*made);
    EXPECT_THAT(filesIn(out()), SizeIs(3));
}

TEST_F(OutputPipeline, reportsAPlaceThatCannotBeWrittenAndTriesTheNext) {
    folder_.write("blocked", "a file where a folder should be");
    const auto answers =
        run(*output("<output><destination type='filepath'><filepath>" + (folder_ / "blocked/sub/deep") +
                        "</filepath></destination>" + destination() + "</output>",
                    {{"page", photographTemplate(8, 8)}}));
    ASSERT_THAT(answers, SizeIs(2));
    EXPECT_FALSE(answers[0].success);
    EXPECT_TRUE(answers[0].error);
    EXPECT_TRUE(answers[1].success);
    EXPECT_THAT(filesIn(out()), SizeIs(1));
}

// Outputs of one package at the same time: two kinds that share one template, and one copy for each picture.
TEST_F(OutputPipeline, keepsTheProductsOfOneMomentApart) {
    constexpr int count = 12;
    const VELM_Output::Templates templates{{"page", photographTemplate(20, 30)}};
    const auto sheet = [&](const std::string& place) {
        return output(
            "<output size='{20, 30}'><page type='node'><frame>{{0, 0}, {20, 30}}</frame><frame>{{0, 0}, {0, 0}}"
            "</frame></page><destination type='filepath'><filepath>" +
                place + "</filepath><filename>originalimagename</filename></destination></output>",
            templates);
    };
    std::vector<std::shared_ptr<VELM_Output>> outputs;
    for (int index = 0; index < count; ++index) {
        const Pixel own{index * 20, 255 - index * 20, 128};
        const std::string path = writePicture(folder_ / "p" + std::to_string(index) + ".jpg", 40, 60, own, own);
        outputs.push_back(sheet(out() + "/shared"));
        const auto copy = sheet(out() + "/each")->copyWithZone();
        copy->setAllImagesPath(path);
        outputs.push_back(copy);
    }
    std::atomic<int> successes = 0;
    std::latch start(2 * count);
    std::vector<std::thread> threads;
    for (const auto& one : outputs) {
        threads.emplace_back([&, one] {
            start.arrive_and_wait();
            one->processToCompletion([&](bool success, const auto&) { successes += success; });
        });
    }
    // A copy is made while the others render the same template.
    const auto late = sheet(out() + "/late")->copyWithZone();
    for (auto& thread : threads)
        thread.join();
    run(*late);

    EXPECT_EQ(successes, 2 * count);
    EXPECT_THAT(filesIn(out() + "/late"), SizeIs(1));
    EXPECT_THAT(filesIn(out() + "/shared"), SizeIs(count));
    for (const std::string& file : filesIn(out() + "/shared"))
        EXPECT_EQ(Picture(file).at(10, 5), red);
    const auto each = filesIn(out() + "/each");
    EXPECT_THAT(each, SizeIs(count));
    for (const std::string& file : each) {
        const int index = std::stoi(base::lastPathComponent(file).substr(1));
        EXPECT_EQ(Picture(file).at(10, 15), (Pixel{index * 20, 255 - index * 20, 128})) << file;
    }
}

} // namespace
