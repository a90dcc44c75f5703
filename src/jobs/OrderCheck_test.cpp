#include "internal/TestBed.h"
#include "jobs/OrderCheck.h"
#include "output/VELM_PrintToFileSet.h"

#include <gtest/gtest.h>

using namespace jobs::testing;

namespace {

/// The sentences of an order of one package that stands in the ticket, with these outputs.
std::vector<std::string> findings(std::string_view outputs, std::string_view others = {}) {
    const std::string layout = "<layout name='a' size='{9, 9}'><layer type='textbox' frame='{{0, 0}, {9, 9}}'>"
                               "<string> </string><font size='4'>DejaVu Sans</font></layer></layout>";
    home().write("check.xml", nativeTicket("<package type='inline' name='Own'>" + layout + std::string(outputs) +
                                           "</package>" + std::string(others)));
    OrderReport report;
    const auto job = VELM_Job::jobWithContentsOfURL(base::URL::fileURLWithPath(home() / "check.xml"), &report);
    std::vector<std::string> sentences;
    if (!job) return {job.error().localizedDescription};
    for (const auto& finding : findingsOfOrder(planOfOrder(*job, &report), report))
        sentences.push_back(finding.message);
    return sentences;
}

} // namespace

TEST(OrderCheck, ProductsThatReplaceEachOther) {
    const auto set = VELM_PrintToFileSet::folderSetWithName("Path 1");
    ASSERT_TRUE(set);
    const std::string output = "<output><a type='node'/><destination type='filepath'><itempath>1</itempath>"
                               "</destination></output>";
    EXPECT_EQ(findings(output + output), std::vector<std::string>()) << "a name that is taken is numbered";
    set->setOverwriteExisting(true);
    EXPECT_EQ(findings(output), std::vector<std::string>());
    const auto told = findings(output + output);
    set->setOverwriteExisting(false);
    ASSERT_EQ(told.size(), 1U);
    EXPECT_NE(told.front().find("image.jpeg"), std::string::npos) << told.front();
}

TEST(OrderCheck, PicturesOfOutputsThatRunForEach) {
    const std::string copies = "<output><allimages/><destination type='filepath'><saveoriginalfileasis>1"
                               "</saveoriginalfileasis></destination></output>";
    const auto told = findings(copies, "<allimages><a>/nowhere/a.jpg</a><b>/nowhere/b.jpg</b></allimages>");
    ASSERT_EQ(told.size(), 2U);
    for (const std::string& sentence : told)
        EXPECT_NE(sentence.find(".jpg"), std::string::npos) << sentence;
}
