// The pictures that are asked of a template: on which queue each is drawn and replied, and what many at once make of
// it.
#include "internal/TemplateFixture.h"

#include "platform/run/MainQueue.h"
#include "platform/run/Queue.h"

#include <atomic>
#include <thread>

using namespace template_testing;
using namespace std::chrono_literals;
using platform::draw::ImageRef;

namespace {

// A text bar that stands upright when it is turned, in a container or not; and an empty hole.
VELM_Template::Ref turnedBar() {
    return templateFrom(
        "<layout size='{40, 40}' name='bar'>"
        "<layer type='textbox' frame='{{0, 15}, {40, 10}}'><string> </string><rotation>1.5708</rotation>"
        "<background color='#F00'>yes</background></layer>"
        "<layer type='image' frame='{{30, 0}, {10, 10}}'/></layout>");
}

TEST(TemplateImages, AreDrawnUnderTheirFlagsAndRepliedOnTheirQueues) {
    const std::string ownQueue = "com.kestrune.velm.queue.rendering.bar";
    const struct {
        void (VELM_Template::*ask)(VELM_Template::ImageReply);
        std::string_view label; // of the queue that the reply runs on; the main queue when empty
        Pixel left, top;
        int alphaOfHole; // a placeholder stands in it on the screen
        bool leavesUnrotated;
    } cases[] = {
        {&VELM_Template::getPreviewImage, "", clear, red, 115, false},
        {&VELM_Template::getPreviewImageUnrotated, "", red, clear, 115, true},
        {&VELM_Template::getComposedImage, ownQueue, clear, red, 0, false},
        {&VELM_Template::getThumbnailImage, ownQueue, white, red, 255, true},
    };
    platform::run::RunLoop loop;
    for (const auto& test : cases) {
        SCOPED_TRACE(&test - cases);
        auto document = turnedBar();
        document->setIsRenderingUnrotated(true);
        const std::weak_ptr<VELM_Template> made = document;
        (document.get()->*test.ask)({}); // nobody to reply to
        ImageRef image;
        std::string label;
        bool isMain = false, isPreview = true, isUnrotated = false;
        std::atomic<bool> isDone = false;
        (document.get()->*test.ask)([&, asked = document.get()](const ImageRef& drawn) {
            image = drawn;
            label = platform::run::currentQueueLabel();
            isMain = platform::run::mainQueue()->isCurrent();
            isPreview = asked->isRenderingPreview();
            isUnrotated = asked->isRenderingUnrotated();
            isDone = true;
        });
        document.reset(); // it lives until it has replied
        ASSERT_TRUE(loop.runUntil([&] { return isDone.load() && made.expired(); }, 20s));
        if (test.label.empty())
            EXPECT_TRUE(isMain);
        else
            EXPECT_EQ(label, test.label);
        EXPECT_FALSE(isPreview);
        EXPECT_EQ(isUnrotated, test.leavesUnrotated);
        const int scale = image->width() / 40;
        EXPECT_EQ(pixelAt(image, 2 * scale, 20 * scale), test.left);
        EXPECT_EQ(pixelAt(image, 20 * scale, 2 * scale), test.top);
        EXPECT_EQ(pixelAt(image, 35 * scale, 1 * scale).alpha, test.alphaOfHole);
    }
}

TEST(TemplateImages, AThumbnailIsMadeOnceAndAnnouncedOnTheMainQueue) {
    platform::run::RunLoop loop;
    const auto document = turnedBar();
    std::vector<bool> announced; // whether there was one
    const auto note = [&] {
        EXPECT_TRUE(platform::run::mainQueue()->isCurrent());
        announced.push_back(document->thumbnail() != nullptr);
    };
    const auto observation = document->observable().observe("thumbnail", note, note);
    EXPECT_EQ(document->thumbnail(), nullptr);
    EXPECT_TRUE(document->isRenderingThumbnail());
    EXPECT_EQ(document->thumbnail(), nullptr);
    ASSERT_TRUE(loop.runUntil([&] { return !document->isRenderingThumbnail(); }, 20s));
    EXPECT_THAT(announced, testing::ElementsAre(false, true));
    ImageRef image;
    std::thread([&] { image = document->thumbnail(); }).join(); // while the main queue waits
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width(), 192);
    EXPECT_EQ(document->frame(), (base::Rect{0, 0, 40, 40})); // a copy was scaled

    const auto none = templateFrom("<layout/>");
    EXPECT_EQ(none->thumbnail(), nullptr);
    ASSERT_TRUE(loop.runUntil([&] { return !none->isRenderingThumbnail(); }, 20s));
    EXPECT_EQ(none->thumbnail(), nullptr);
    ASSERT_TRUE(loop.runUntil([&] { return !none->isRenderingThumbnail(); }, 20s));
}

TEST(TemplateImages, ManyAskAtOnceWhileTheMainQueueWaits) {
    platform::run::RunLoop loop;
    const auto shared = turnedBar();
    const auto documentAround = [&](double scale) {
        const auto document = templateFrom("<layout size='{80, 80}'/>");
        document->setLayers({shared, templateFrom("<layer type='stamp' key='x' frame='{{0, 0}, {80, 20}}'/>")});
        document->setScale(scale);
        return document;
    };
    const std::vector<VELM_Template::Ref> documents{documentAround(1), documentAround(1), shared};
    std::atomic<int> replies = 0;
    const auto reply = [&](const ImageRef& image) { replies += image != nullptr; };
    std::vector<std::thread> threads;
    for (const auto& document : documents) {
        threads.emplace_back([&] {
            for (int i = 0; i < 4; ++i) {
                document->getPreviewImage(reply);
                document->getThumbnailImage(reply);
                document->getComposedImage(reply);
                EXPECT_EQ(document->image(), document->image());
            }
        });
    }
    for (const auto& document : documents)
        EXPECT_TRUE(document->imageUncached()); // on the main thread, behind previews that reply there
    for (std::thread& thread : threads)
        thread.join();
    ASSERT_TRUE(loop.runUntil([&] { return replies == 36; }, 20s));
    EXPECT_EQ(documents[0]->image()->width(), 80);
}

} // namespace
