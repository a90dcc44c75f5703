// velmctl dnp: the tables of DNP's printers, and the packets that go to them, made and read.
#include "print/DNPCommand.h"
#include "Command.h"
#include "Console.h"
#include "DnpPlanes.h"
#include "PictureFiles.h"
#include "Session.h"
#include "TextForms.h"
#include "platform/data/AtomicFile.h"
#include "print/dnp_photo.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace velmctl {

namespace {

constexpr std::string_view standardStream = "-"; // in the place of a file

// Tables ---------------------------------------------------------------------------------------------------------

using Row = std::vector<std::string>;

/// Columns under each other, two blanks apart.
void printAligned(const std::vector<Row>& rows) {
    std::vector<std::size_t> widths;
    for (const Row& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], row[column].size());
    }
    for (const Row& row : rows) {
        std::string line;
        for (std::size_t column = 0; column < row.size(); ++column)
            line += row[column] + std::string(widths[column] - row[column].size() + 2, ' ');
        Console::shared().result(line.substr(0, line.find_last_not_of(' ') + 1));
    }
}

void printTables() {
    std::vector<Row> media{{"media", "name", "default", "multicuts"}};
    for (const std::int32_t code : dnp_mediaSizes()) {
        std::string modes;
        for (const std::uint64_t mode : dnp_multicutModesForMedia(code))
            modes += (modes.empty() ? "" : " ") + std::to_string(mode);
        media.push_back({std::to_string(code), dnp_mediaNameForSize(code),
                         std::to_string(dnp_defaultMulticutForMedia("MT" + std::to_string(code) + "0")), modes});
    }
    printAligned(media);
    Console::shared().result("");

    std::vector<Row> multicuts{
        {"multicut", "name", "media", "300 x 300 dpi", "300 x 600 dpi", "frames at 300 x 300 dpi, y up"}};
    for (const std::int32_t code : dnp_multicuts()) {
        const auto frames = dnp_framesForMulticut(code, false);
        multicuts.push_back({std::to_string(code), dnp_paperNameForMulticut(code),
                             std::to_string(dnp_mediaCodeForMultiCut(code)), sizeText(dnp_pixelsForMulticut(code)),
                             sizeText(dnp_pixelsForMulticutHiRes(code)),
                             frames.size() > 1 ? rectText(base::rectFromString(frames.front())) : "whole sheet"});
        for (std::size_t i = 1; i < frames.size(); ++i)
            multicuts.push_back({"", "", "", "", "", rectText(base::rectFromString(frames[i]))});
    }
    printAligned(multicuts);
}

template <class Members>
base::Array arrayOf(const Members& members) {
    return base::Array(members.begin(), members.end());
}

base::Array arrayOf(base::Size size) {
    return {size.width, size.height};
}

base::Array framesOf(std::int32_t multicut, bool hiRes) {
    base::Array frames;
    for (const std::string& text : dnp_framesForMulticut(multicut, hiRes)) {
        const base::Rect frame = base::rectFromString(text);
        frames.emplace_back(base::Array{frame.x, frame.y, frame.width, frame.height});
    }
    return frames;
}

base::Dictionary tables() {
    base::Array media, multicuts;
    const std::vector<std::int32_t> codes = dnp_multicuts();
    for (const std::int32_t code : dnp_mediaSizes()) {
        const std::string type = std::to_string(code) + "0";
        base::Array supported;
        std::ranges::copy_if(codes, std::back_inserter(supported),
                             [&](std::int32_t multicut) { return dnp_mediaTypeSupportsMulticut(type, multicut); });
        media.emplace_back(base::Dictionary{{"code", code},
                                            {"name", dnp_mediaNameForSize(code)},
                                            {"defaultMulticut", dnp_defaultMulticutForMedia(type)},
                                            {"multicuts", arrayOf(dnp_multicutModesForMedia(code))},
                                            {"supported", std::move(supported)}});
    }
    for (const std::int32_t code : codes)
        multicuts.emplace_back(base::Dictionary{{"code", code},
                                                {"name", dnp_paperNameForMulticut(code)},
                                                {"media", dnp_mediaCodeForMultiCut(code)},
                                                {"size", arrayOf(dnp_pixelsForMulticut(code))},
                                                {"sizeHiRes", arrayOf(dnp_pixelsForMulticutHiRes(code))},
                                                {"frames", framesOf(code, false)},
                                                {"framesHiRes", framesOf(code, true)}});
    return {{"media", std::move(media)}, {"multicuts", std::move(multicuts)}};
}

void declareTable(CLI::App& dnp, const Chosen& chosen) {
    CLI::App* command = dnp.add_subcommand("table", "Print the media and what they can be cut into");
    const auto asJSON = std::make_shared<bool>(false);
    command->add_flag("--json", *asJSON, "One JSON object, with the frames at 300 x 600 dpi too");
    command->footer(
        "Sizes are pixels. The frames of a layout lie from the origin upward. A layout can be cut from each\n"
        "medium that lists it; the medium beside the layout is the one that a page takes by its name.\n"
        "\"supported\" in the JSON object is what printers are asked by, which is not quite the same list.\n");
    command->callback([=] {
        chosen([=](const Options& options) {
            const Session session(options);
            if (*asJSON)
                Console::shared().result(jsonText(tables()));
            else
                printTables();
            return exitSuccess;
        });
    });
}

// Making a packet ------------------------------------------------------------------------------------------------

struct PacketRequest {
    std::string command;
    std::optional<std::string> text;
    std::optional<std::string> file;
    std::string output;
};

/// Nothing for a number or text that no command has.
std::optional<int> codeOf(const std::string& command) {
    const bool isNumber =
        !command.empty() && command.size() < 4 && command.find_first_not_of("0123456789") == command.npos;
    if (!isNumber) return dnp_commandCodeForString(command);
    const int code = std::stoi(command);
    return dnp_stringForCommandCode(code) ? std::optional(code) : std::nullopt;
}

base::Result<void> writeBytes(const base::Data& bytes, const std::string& path) {
    if (path == standardStream) {
        if (std::fwrite(bytes.bytes.data(), 1, bytes.size(), stdout) == bytes.size() && std::fflush(stdout) == 0)
            return {};
        return base::failure(base::systemError(errno, "cannot write the packet to standard output"));
    }
    auto written = platform::data::writeFileAtomically(path, bytes);
    if (written) Console::shared().result(path);
    return written;
}

base::Result<void> makePacket(const PacketRequest& request) {
    std::optional<base::Data> payload;
    if (request.text) payload = base::Data(*request.text);
    if (request.file) {
        auto content = platform::data::readFile(*request.file, dnp_maximumPayloadSize);
        if (!content) return base::failure(content.error());
        payload = std::move(*content);
    }
    const LogEar ear;
    const int code = *codeOf(request.command);
    const auto packet = dnp_printerCommandData(code, payload ? &*payload : nullptr);
    const std::string name = *dnp_stringForCommandCode(code), irregularity = ear.lastAfter("ERROR: ", "");
    if (!packet)
        return base::failure(base::cocoaErrorDomain, 0,
                             "cannot make a packet of " + name + ": " + irregularity + "; it takes " +
                                 std::to_string(*dnp_payloadSizeForCommandCode(code)) + " bytes");
    if (!irregularity.empty()) Console::shared().diagnostic(name + ": " + irregularity);
    return writeBytes(*packet, request.output);
}

void declarePacket(CLI::App& dnp, const Chosen& chosen) {
    CLI::App* command = dnp.add_subcommand("packet", "Make the packet of a command");
    const auto request = std::make_shared<PacketRequest>();
    command->add_option("CODE", request->command, "The command's number, or its text (\"CNTRL QTY\")")
        ->required()
        ->type_name("")
        ->check([](const std::string& text) {
            return codeOf(text) ? std::string() : text + " is no command: neither the number of one nor its text";
        });
    CLI::Option* text = command->add_option("--payload", request->text, "The payload, as it stands")->type_name("TEXT");
    command->add_option("--payload-file", request->file, "A file that holds the payload")
        ->type_name("FILE")
        ->excludes(text);
    command->add_option("-o,--output", request->output, "The file to write; - is standard output")
        ->required()
        ->type_name("FILE");
    command->footer("Refuses a payload of another size than the command takes.\n");
    command->callback([=] {
        chosen([=](const Options& options) {
            const Session session(options);
            return report(makePacket(*request));
        });
    });
}

// Reading packets ------------------------------------------------------------------------------------------------

constexpr std::size_t keptPayload = 64; // what the short forms need

std::uint32_t littleEndian(const std::vector<std::uint8_t>& bytes, std::size_t offset) {
    return static_cast<std::uint32_t>(bytes[offset] | bytes[offset + 1] << 8 | bytes[offset + 2] << 16) |
           static_cast<std::uint32_t>(bytes[offset + 3]) << 24;
}

/// "BMP 1920 x 2480, 300 x 600 dpi"
std::string pictureText(const std::vector<std::uint8_t>& bytes, std::uint64_t length) {
    constexpr double metresInAnInch = 0.0254;
    const auto number = [&](std::size_t offset) { return std::to_string(littleEndian(bytes, offset)); };
    const auto dotsPerInch = [&](std::size_t offset) {
        return std::to_string(std::lround(littleEndian(bytes, offset) * metresInAnInch));
    };
    std::string text =
        "BMP " + number(18) + " x " + number(22) + ", " + dotsPerInch(38) + " x " + dotsPerInch(42) + " dpi";
    if (littleEndian(bytes, 2) != length) text += ", which says that it has " + number(2) + " bytes";
    return text;
}

std::string payloadText(const DNPPacket& packet) {
    constexpr std::size_t longestText = 40, longestBytes = 16, pictureHeader = 46;
    const std::vector<std::uint8_t>& bytes = packet.payload.bytes;
    if (bytes.size() >= pictureHeader && bytes[0] == 'B' && bytes[1] == 'M')
        return pictureText(bytes, packet.payloadLength.value_or(0));
    const bool isText = std::ranges::all_of(
        bytes, [](std::uint8_t byte) { return (byte >= ' ' && byte < 0x7F) || byte == '\r' || byte == '\n'; });
    std::string text;
    std::size_t shown = 0;
    if (isText) {
        shown = std::min(bytes.size(), longestText);
        text = oneLine(packet.payload.asText().substr(0, shown));
    } else {
        constexpr std::string_view digits = "0123456789abcdef";
        for (; shown < std::min(bytes.size(), longestBytes); ++shown)
            text += {digits[bytes[shown] >> 4], digits[bytes[shown] & 15], ' '};
        text.pop_back();
    }
    return text + (packet.payloadLength > shown ? "..." : "");
}

std::string packetLine(const std::string& offset, const std::string& command, const std::string& length,
                       const std::string& payload) {
    std::array<char, 64> columns{};
    std::snprintf(columns.data(), columns.size(), "%10s  %-22s  %8s  ", offset.c_str(), command.c_str(),
                  length.c_str());
    const std::string line = columns.data() + payload;
    return line.substr(0, line.find_last_not_of(' ') + 1);
}

/// A file, or standard input, as a reader of packets takes it.
class Input {
public:
    static base::Result<std::shared_ptr<Input>> open(const std::string& path) {
        const int descriptor = path == standardStream ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (descriptor < 0) return base::failure(base::systemError(errno, "cannot read " + path));
        return std::shared_ptr<Input>(new Input(descriptor));
    }
    ~Input() {
        if (descriptor_ != STDIN_FILENO) close(descriptor_);
    }
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    base::Result<std::size_t> read(std::span<std::uint8_t> buffer) const {
        ssize_t count = 0;
        do
            count = ::read(descriptor_, buffer.data(), buffer.size());
        while (count < 0 && errno == EINTR);
        if (count < 0) return base::failure(base::systemError(errno, "the stream cannot be read"));
        return static_cast<std::size_t>(count);
    }

private:
    explicit Input(int descriptor) : descriptor_(descriptor) {}
    int descriptor_;
};

base::Result<void> printPackets(const std::string& path) {
    const auto input = Input::open(path);
    if (!input) return base::failure(input.error());
    DNPPacketReader reader([&](std::span<std::uint8_t> buffer) { return (*input)->read(buffer); }, keptPayload);
    const std::string name = path == standardStream ? "standard input" : path;
    std::size_t count = 0;
    for (; const auto packet = reader.next(); ++count) {
        if (count == 0) Console::shared().result(packetLine("offset", "command", "length", "payload"));
        const std::string length = packet->payloadLength ? std::to_string(*packet->payloadLength) : "";
        Console::shared().result(
            packetLine(std::to_string(packet->offset), packet->command, length, payloadText(*packet)));
    }
    if (const auto& fault = reader.fault())
        return base::failure(base::cocoaErrorDomain, 0,
                             name + ": byte " + std::to_string(fault->offset) + ": " + fault->reason);
    if (count == 0) return base::failure(base::cocoaErrorDomain, 0, name + ": holds no packet");
    return {};
}

void declarePackets(CLI::App& dnp, const Chosen& chosen) {
    CLI::App* command = dnp.add_subcommand("packets", "Print a stream of packets as a table");
    const auto file = std::make_shared<std::string>();
    command->add_option("FILE", *file, "What would be sent to a printer; - is standard input")
        ->required()
        ->type_name("");
    command->footer("One line a packet: offset, command, length of the payload (empty when the packet tells none) and\n"
                    "payload. Where a packet is not as printers take it, its byte and the reason are told on standard\n"
                    "error and the exit status is 1; what stands before it has been printed.\n");
    command->callback([=] {
        chosen([=](const Options& options) {
            const Session session(options);
            return report(printPackets(*file));
        });
    });
}

// Planes ---------------------------------------------------------------------------------------------------------

void declarePlanes(CLI::App& dnp, const Chosen& chosen) {
    CLI::App* command = dnp.add_subcommand("planes", "Write the plane images of a page");
    const auto page = std::make_shared<std::string>(), folder = std::make_shared<std::string>();
    command->add_option("FILE", *page, "The file of a page for a DNP printer")->required()->type_name("");
    command->add_option("-o,--output", *folder, "The folder to write to; made when it is missing")
        ->required()
        ->type_name("DIR");
    command->footer("Writes Y.bmp, M.bmp and C.bmp, and of pages with a back BackY.bmp, BackM.bmp and BackC.bmp.\n"
                    "Prints the paths.\n");
    command->callback([=] {
        chosen([=](const Options& options) {
            const Session session(options);
            return report(writePlanes(*page, *folder));
        });
    });
}

void declarePicture(CLI::App& dnp, const Chosen& chosen) {
    CLI::App* command = dnp.add_subcommand("picture", "Write the colour picture that planes print");
    const auto folder = std::make_shared<std::string>(), output = std::make_shared<std::string>();
    command->add_option("DIR", *folder, "The folder of Y.bmp, M.bmp and C.bmp")->required()->type_name("");
    command->add_option("-o,--output", *output, "The picture to write: " + writableExtensions())
        ->required()
        ->type_name("FILE")
        ->check(whyNotWritable);
    command->footer("The picture is as wide as the printer's head. Prints its path.\n");
    command->callback([=] {
        chosen([=](const Options& options) {
            const Session session(options);
            return report(writePictureOfPlanes(*folder, *output));
        });
    });
}

} // namespace

void declareDnp(CLI::App& app, const Chosen& chosen) {
    CLI::App* command = app.add_subcommand("dnp", "What goes to DNP's printers: tables, packets, planes");
    command->require_subcommand(0, 1);
    declareTable(*command, chosen);
    declarePacket(*command, chosen);
    declarePackets(*command, chosen);
    declarePlanes(*command, chosen);
    declarePicture(*command, chosen);
}

} // namespace velmctl
