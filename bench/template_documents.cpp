#include "Measure.h"
#include "TemplateFiles.h"
#include "template_sections.h"

#include "platform/data/XMLDocument.h"
#include "template/TemplateReport.h"
#include "template/VELM_Template.h"

#include <cstdio>
#include <cstdlib>
#include <libxml/parser.h>

namespace bench {

namespace {

constexpr int fileCount = 1000;
constexpr int nestedInEach = 2;

/// The file in the library's own tree, which is let go at once.
void parse(const std::string& path) {
    xmlDocPtr document = xmlReadFile(path.c_str(), nullptr, XML_PARSE_NONET);
    if (!document) std::exit(1);
    xmlFreeDoc(document);
}

VELM_Template::Ref read(const std::string& path) {
    auto document = VELM_Template::templateWithPath(path, std::nullopt);
    if (!document || document->layers().size() != layersOfMixedTemplate) {
        std::fprintf(stderr, "%s could not be read\n", path.c_str());
        std::exit(1);
    }
    return document;
}

void printReading(const std::vector<std::string>& paths, const std::string& nested, int rounds) {
    const auto seconds = secondsByTurns({{[&] {
                                             for (const std::string& path : paths) {
                                                 parse(path);
                                                 for (int i = 0; i < nestedInEach; ++i)
                                                     parse(nested);
                                             }
                                         }},
                                         {[&] {
                                             for (const std::string& path : paths)
                                                 read(path);
                                         }}},
                                        rounds, 10);
    const double floor = median(seconds[0]);
    const double velm = median(seconds[1]);
    std::printf("Reading %d template files of %d mixed layers, two of them nested files, with the memory of what was "
                "saved. The floor\nis libxml2's tree of the same files.\n\n"
                "| | ms for all | ms for each | / floor |\n|---|---|---|---|\n"
                "| floor | %.0f | %.3f | 1.00 |\n| velm | %.0f | %.3f | %.2f |\n",
                fileCount, layersOfMixedTemplate, floor * 1e3, floor * 1e3 / fileCount, velm * 1e3,
                velm * 1e3 / fileCount, velm / floor);
    std::fflush(stdout);
}

void printSteps(const std::string& path, int rounds) {
    const auto document = read(path);
    const auto package = plainPackage();
    document->setPackage(package);
    document->replaceKeyValues();
    const auto copy = document->copyWithZone();
    struct Step {
        const char* name;
        std::function<void()> run;
    };
    const std::vector<Step> steps{
        {"reading", [&] { read(path); }},
        {"reading with a report",
         [&] {
             TemplateReport report;
             VELM_Template::templateWithPath(path, false, std::nullopt, &report);
         }},
        {"filling (replaceKeyValues)", [&] { document->replaceKeyValues(); }},
        {"deep copy (copyWithZone)", [&] { document->copyWithZone(); }},
        {"writing (xmlForSaving, as text)",
         [&] { document->xmlForSaving()->xmlString(platform::data::XMLFormat::prettyPrinted); }},
        {"comparing with such a copy",
         [&] {
             if (!document->isEqualToTemplate(*copy)) std::exit(1);
         }},
    };
    std::vector<Work> works;
    for (const Step& step : steps)
        works.push_back({step.run, 20});
    const auto seconds = secondsByTurns(works, rounds, 3);
    std::printf("\nSteps on one such document.\n\n| step | ms | microseconds a layer |\n|---|---|---|\n");
    for (std::size_t i = 0; i < steps.size(); ++i)
        std::printf("| %s | %.3f | %.2f |\n", steps[i].name, median(seconds[i]) * 1e3,
                    median(seconds[i]) * 1e6 / layersOfMixedTemplate);
    std::fflush(stdout);
}

} // namespace

void printDocuments(const std::string& folder, int rounds) {
    const auto paths = makeMixedTemplates(fileCount, folder);
    if (paths.empty()) std::exit(1);
    printReading(paths, nestedTemplateIn(folder), rounds);
    printSteps(paths.front(), rounds);
}

} // namespace bench
