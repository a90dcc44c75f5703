// velmctl code make|read: machine-readable codes into pictures and out of them.
#include "Command.h"
#include "Console.h"
#include "PictureFiles.h"
#include "Session.h"
#include "TextForms.h"
#include "base/Path.h"
#include "base/Value.h"
#include "imaging/KLARON_2dCodeGenerator.h"
#include "imaging/KLARON_Image.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace velmctl {

namespace {

using GeneratorRef = std::unique_ptr<KLARON_2dCodeGenerator>;

struct MakeRequest {
    std::string message;
    std::string output;
    std::optional<std::int64_t> level;
    std::optional<std::int64_t> quiet;
};

/// One kind of code on the command line. The generator's class decides which numbers its option takes: `setOption`
/// answers whether it kept the number.
struct Kind {
    const char* name;
    const char* description;
    std::int64_t type;
    const char* option;
    std::optional<std::int64_t> MakeRequest::*number;
    const char* accepted;
    const char* meaning;
    bool (*setOption)(KLARON_2dCodeGenerator& generator, std::int64_t number);
};

template <class Generator>
bool setLevel(KLARON_2dCodeGenerator& generator, std::int64_t number) {
    auto& own = static_cast<Generator&>(generator);
    own.setCorrectionLevel(number);
    return base::Value(own.correctionLevel()) == base::Value(number);
}

bool setQuietSpace(KLARON_2dCodeGenerator& generator, std::int64_t number) {
    auto& own = static_cast<KLARON_Code128Generator&>(generator);
    own.setQuietSpace(number);
    return own.quietSpace() == base::Value(number);
}

constexpr Kind kinds[] = {
    {"aztec", "An Aztec code", 0, "--level", &MakeRequest::level, "5 to 95",
     "percent of the symbol that correct errors (23)", setLevel<KLARON_AztecCodeGenerator>},
    {"qrcode", "A QR code", 1, "--level", &MakeRequest::level, "0 to 3",
     "0 is L, 1 M, 2 H, 3 Q; from weak to strong L, M, Q, H (1)", setLevel<KLARON_QRCodeGenerator>},
    {"code128", "Bars of Code 128", 2, "--quiet", &MakeRequest::quiet, "0 to 20", "white modules at both ends (7)",
     setQuietSpace},
    {"pdf417", "A PDF417 code", 3, "--level", &MakeRequest::level, "0 to 8",
     "from weak to strong correction (by the message's length)", setLevel<KLARON_PDF417CodeGenerator>},
};

/// The path with the extension that it lacks: codes are PNG files unless told otherwise.
std::string outputPath(const std::string& path) {
    return base::pathExtension(path).empty() ? base::appendingPathExtension(path, "png") : path;
}

base::Result<void> makeCode(const Kind& kind, const MakeRequest& request) {
    const auto failed = [&](const std::string& why) {
        return base::failure(base::cocoaErrorDomain, 0,
                             "cannot make a code of kind " + std::string(kind.name) + ": " + why);
    };
    if (request.message.empty()) return failed("the message is empty");
    if (!std::ranges::all_of(request.message, [](char character) { return (character & 0x80) == 0; }))
        return failed("the message holds characters other than ASCII");
    const GeneratorRef generator = KLARON_2dCodeGenerator::classForType(kind.type).init();
    if (const auto number = request.*kind.number) kind.setOption(*generator, *number);
    generator->setMessage(request.message);
    const LogEar ear;
    const platform::draw::ImageRef picture = generator->createOutputImage();
    if (!picture) return failed(ear.lastAfter(" made no image: ", "the symbol would be too large"));
    return writePicture({picture, outputPath(request.output), std::nullopt, std::nullopt, false});
}

base::Result<void> readCodes(const std::string& file) {
    base::Result<void> answer;
    KLARON_Image::detectBarcodesInImage(file, [&](const auto& codes, const std::optional<base::Error>& error) {
        if (error)
            answer = base::failure(*error);
        else if (codes.empty())
            answer = base::failure(base::cocoaErrorDomain, 0, "there is no readable code in " + file);
        for (const platform::draw::FoundCode& code : codes)
            Console::shared().result(oneLine(code.message));
    });
    return answer;
}

void declareKind(CLI::App& make, const Kind& kind, const std::shared_ptr<MakeRequest>& request, const Chosen& chosen) {
    CLI::App* command = make.add_subcommand(kind.name, kind.description);
    command->add_option("MESSAGE", request->message, "What to encode: ASCII characters")->required()->type_name("");
    command
        ->add_option("-o,--output", request->output,
                     "The picture to write, 16 pixels a module: " + writableExtensions() + "; png when it names none")
        ->required()
        ->type_name("FILE")
        ->check([](const std::string& path) { return whyNotWritable(outputPath(path)); });
    command->add_option(kind.option, (*request).*kind.number, std::string(kind.accepted) + ": " + kind.meaning)
        ->type_name("N")
        ->check([&kind](const std::string& text) {
            std::int64_t number = 0;
            if (CLI::detail::lexical_cast(text, number) &&
                kind.setOption(*KLARON_2dCodeGenerator::classForType(kind.type).init(), number))
                return std::string();
            return text + " is not within " + kind.accepted;
        });
    command->callback([&kind, request, chosen] {
        chosen([&kind, request](const Options& options) {
            const Session session(options);
            return report(makeCode(kind, *request));
        });
    });
}

} // namespace

void declareCode(CLI::App& app, const Chosen& chosen) {
    CLI::App* command = app.add_subcommand("code", "Make machine-readable codes and read them");
    command->require_subcommand(0, 1);
    CLI::App* make = command->add_subcommand("make", "Write a code as a picture");
    make->require_subcommand(0, 1);
    make->footer("Prints the path that was written.\n");
    for (const Kind& kind : kinds)
        declareKind(*make, kind, std::make_shared<MakeRequest>(), chosen);

    CLI::App* read = command->add_subcommand("read", "Print the message of each code in a picture, one a line");
    read->footer(
        "From the top of the picture to its bottom. Line breaks and other control characters in a message are\n"
        "printed as \\n, \\r, \\t and \\x1d, so that each message stays one line. The exit status is 1 when there\n"
        "is no code.\n");
    const auto file = std::make_shared<std::string>();
    read->add_option("FILE", *file, "A picture")->required()->type_name("");
    read->callback([file, chosen] {
        chosen([file](const Options& options) {
            const Session session(options);
            return report(readCodes(*file));
        });
    });
}

} // namespace velmctl
