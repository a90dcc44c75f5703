// A file of user defaults that another program has left: a setting is stored beside what it holds. Whatever the file
// holds is then there still, in it or, when it can't be read, in a file beside it.
#include "Fuzzing.h"
#include "base/Places.h"
#include "platform/data/PropertyList.h"
#include "platform/data/UserDefaults.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

using fuzzing::require;
using platform::data::UserDefaults;

namespace fs = std::filesystem;

namespace {

class Settings {
public:
    Settings() {
        std::string folder =
            (fs::exists("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path()) / "velm-XXXXXX";
        require(mkdtemp(folder.data()) != nullptr, "there is a folder for the settings");
        folder_ = folder;
        base::setPlaces(base::Places::below(folder));
    }
    ~Settings() {
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
    }

    static void write(const std::string& path, std::string_view content) {
        std::ofstream(path, std::ios::binary).write(content.data(), static_cast<std::streamsize>(content.size()));
    }
    static std::string content(const std::string& path) {
        std::ifstream stream(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }
    /// What was put aside, which is taken away.
    static std::optional<std::string> takePutAside(const std::string& path) {
        for (const auto& entry : fs::directory_iterator(fs::path(path).parent_path()))
            if (entry.path().string().starts_with(path + ".damaged-")) {
                const std::string kept = content(entry.path());
                fs::remove(entry.path());
                return kept;
            }
        return std::nullopt;
    }

private:
    fs::path folder_;
};

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    fuzzing::silenceLog();
    static const Settings settings;
    static std::int64_t number = 0;
    UserDefaults& defaults = UserDefaults::suite("fuzzed");
    require(defaults.setObject(++number, "ours").has_value(), "a setting is stored"); // and makes the folder

    const std::string_view hostile(reinterpret_cast<const char*>(bytes), size);
    Settings::write(defaults.path(), hostile);
    require(defaults.setObject(++number, "ours").has_value(), "a setting is stored beside what stands there");
    require(defaults.integerForKey("ours") == number, "a setting is read as it was stored");

    const auto before = platform::data::parsePropertyList(hostile);
    const auto* held = before ? before->as<base::Dictionary>() : nullptr;
    const auto putAside = Settings::takePutAside(defaults.path());
    require(putAside.has_value() == (held == nullptr), "what can't be read is put aside, and nothing else");
    require(!putAside || *putAside == hostile, "what is put aside is whole");
    const auto after = platform::data::parsePropertyList(Settings::content(defaults.path()));
    require(after && after->as<base::Dictionary>(), "what was stored can be read");
    if (!held) return 0;
    // Written, to compare numbers that are none as equal.
    base::Dictionary expected = *held;
    expected.insert_or_assign("ours", number);
    const auto form = platform::data::PropertyListFormat::binary;
    require(platform::data::propertyListData(*after, form).value() ==
                platform::data::propertyListData(expected, form).value(),
            "what another program stored stays");
    return 0;
}
