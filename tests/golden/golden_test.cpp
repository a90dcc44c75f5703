#include "PictureComparison.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::vector<std::string> caseNames() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(GOLDEN_CASES))
        if (entry.is_directory()) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

// The exit status of velmctl with these arguments in that folder; its output goes to the folder's "log.txt".
int runVelmctl(const fs::path& folder, const std::vector<std::string>& arguments) {
    std::vector<std::string> words = {VELMCTL, "--home", (folder / "home").string()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "log.txt", O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    pid_t process = 0;
    const int failed = posix_spawn(&process, VELMCTL, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = -1;
    if (failed || waitpid(process, &status, 0) != process) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The pictures below a folder, by their names without extension and without a time.
std::map<std::string, fs::path> picturesBelow(const fs::path& folder) {
    static const std::regex time("_\\d{4}-\\d{2}-\\d{2}_\\d{2}-\\d{2}-\\d{2}\\.\\d{3}$");
    std::map<std::string, fs::path> pictures;
    if (!fs::is_directory(folder)) return pictures;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file() || entry.path().extension() == ".txt") continue;
        const std::string name = fs::relative(entry.path(), folder).replace_extension().string();
        const bool isNew = pictures.emplace(std::regex_replace(name, time, ""), entry.path()).second;
        EXPECT_TRUE(isNew) << "two products are named " << name;
    }
    return pictures;
}

golden::Limits limitsOf(const fs::path& folder) {
    golden::Limits limits;
    if (std::ifstream file(folder / "limits.txt"); file) {
        std::string reason;
        file >> limits.share >> limits.largest >> reason;
        EXPECT_FALSE(reason.empty()) << "limits.txt states no reason";
    }
    return limits;
}

void checkPicture(const fs::path& product, const fs::path& expected, const fs::path& failures,
                  const golden::Limits& limits) {
    const auto got = golden::readPicture(product);
    ASSERT_TRUE(got) << got.error().localizedDescription;
    const auto reference = golden::readPicture(expected);
    ASSERT_TRUE(reference) << reference.error().localizedDescription;
    const golden::Difference difference = golden::compare(*got, *reference);
    if (difference.isWithin(limits)) return;
    fs::create_directories(failures);
    EXPECT_TRUE(golden::writePNG(*got, failures / "got.png"));
    EXPECT_TRUE(golden::writePNG(*reference, failures / "reference.png"));
    if (difference.sameSize) {
        const auto picture = golden::differencePicture(*got, *reference);
        EXPECT_TRUE(picture && golden::writePNG(*picture, failures / "difference.png"));
    }
    ADD_FAILURE() << (difference.sameSize ? "" : "another size, ") << 100 * difference.share
                  << " % of the samples differ, the largest by " << difference.largest << "; see " << failures;
}

// A case's files with the photographs, where velmctl may work on them.
void copyCase(const fs::path& original, const fs::path& folder) {
    fs::copy(original, folder, fs::copy_options::recursive);
    fs::create_directory(folder / "order.velm_job");
    fs::copy(GOLDEN_PHOTOS, folder / "order.velm_job/Images", fs::copy_options::recursive);
    fs::create_directory(folder / "out");
}

class Golden : public testing::TestWithParam<std::string> {
protected:
    static void SetUpTestSuite() { setenv("FONTCONFIG_FILE", GOLDEN_FONTS, 1); }
};

TEST_P(Golden, picturesAreAsExpected) {
    const fs::path original = fs::path(GOLDEN_CASES) / GetParam();
    const fs::path failures = fs::path(GOLDEN_FAILURES) / GetParam();
    fs::remove_all(failures);
    const support::TemporaryDirectory folder;
    copyCase(original, folder.path());

    std::vector<std::string> arguments;
    std::ifstream file(folder.path() / "arguments.txt");
    for (std::string line; std::getline(file, line);)
        arguments.push_back(line);
    if (arguments.empty()) arguments = {"process", "order.velm_job"};
    const int status = runVelmctl(folder.path(), arguments);
    EXPECT_EQ(status, 0) << support::readFile(folder.path() / "log.txt");

    auto products = picturesBelow(folder.path() / "out");
    const fs::path layout = folder.path() / "layout.txt";
    if (std::getenv("GOLDEN_UPDATE")) {
        fs::remove_all(original / "expected");
        for (const auto& [name, product] : products) {
            const fs::path expected = original / "expected" / (name + ".png");
            fs::create_directories(expected.parent_path());
            const auto picture = golden::readPicture(product);
            ASSERT_TRUE(picture && golden::writePNG(*picture, expected));
        }
        if (fs::exists(layout)) fs::copy(layout, original / "expected/layout.txt");
    }
    EXPECT_EQ(support::readFile(layout), support::readFile(original / "expected/layout.txt"));
    const auto expectations = picturesBelow(original / "expected");
    EXPECT_FALSE(expectations.empty()) << "the case expects no picture";
    for (const auto& [name, expected] : expectations) {
        SCOPED_TRACE(name);
        const auto product = products.extract(name);
        if (product)
            checkPicture(product.mapped(), expected, failures / name, limitsOf(original));
        else
            ADD_FAILURE() << "there is no such product";
    }
    for (const auto& [name, product] : products)
        ADD_FAILURE() << "unexpected product " << product;
    if (HasFailure()) std::cerr << support::readFile(folder.path() / "log.txt");
}

INSTANTIATE_TEST_SUITE_P(Cases, Golden, testing::ValuesIn(caseNames()),
                         [](const auto& parameter) { return parameter.param; });

// What an order makes of a template that fills its output is what the template alone gives for the order.
TEST_F(Golden, OrdersAndRendersAgree) {
    for (const char* name : {"text", "nesting", "crops"}) {
        SCOPED_TRACE(name);
        const support::TemporaryDirectory folder;
        copyCase(fs::path(GOLDEN_CASES) / name, folder.path());
        ASSERT_EQ(runVelmctl(folder.path(), {"render", "page.xml", "--order", "order.velm_job", "-o", "page.jpg"}), 0);
        ASSERT_EQ(runVelmctl(folder.path(), {"process", "order.velm_job"}), 0);
        const auto products = picturesBelow(folder.path() / "out");
        ASSERT_EQ(products.size(), 1U);
        const auto product = golden::readPicture(products.begin()->second);
        const auto rendered = golden::readPicture(folder / "page.jpg");
        ASSERT_TRUE(product && rendered);
        const golden::Difference difference = golden::compare(*product, *rendered);
        EXPECT_TRUE(difference.sameSize && difference.largest == 0) << difference.largest;
    }
}

} // namespace
