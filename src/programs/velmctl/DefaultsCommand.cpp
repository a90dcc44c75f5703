// velmctl defaults read|write|delete: the settings, from outside.
#include "Command.h"
#include "Console.h"
#include "Session.h"
#include "base/Text.h"
#include "base/Value.h"
#include "platform/data/PropertyList.h"
#include "platform/data/UserDefaults.h"

#include <charconv>
#include <memory>
#include <string>
#include <string_view>

namespace velmctl {

namespace {

using platform::data::UserDefaults;

constexpr std::string_view standardSuite = "com.kestrune.VELM";

struct Request {
    std::string suite{standardSuite};
    std::string key;
    std::string value;
    bool asText = false;
};

UserDefaults& suiteOf(const Request& request) {
    return request.suite == standardSuite ? UserDefaults::standard() : UserDefaults::suite(request.suite);
}

int report(const base::Result<void>& result) {
    if (result) return exitSuccess;
    Console::shared().diagnostic(result.error().localizedDescription);
    return exitFailure;
}

template <class Number>
bool isNumber(const std::string& text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

/// Yes, no, true and false are booleans, numbers are numbers, what begins with "<" is a property list, anything else
/// is text.
base::Result<base::Value> valueFromText(const std::string& text) {
    for (const auto& [word, value] : {std::pair("yes", true), {"true", true}, {"no", false}, {"false", false}})
        if (base::equalIgnoringCase(text, word)) return base::Value(value);
    if (std::int64_t whole = 0; isNumber(text, whole)) return base::Value(whole);
    if (double real = 0; isNumber(text, real)) return base::Value(real);
    if (!text.starts_with('<')) return base::Value(text);
    const bool isDocument = text.starts_with("<?xml") || text.starts_with("<plist");
    return platform::data::parsePropertyList(isDocument ? text : "<plist version=\"1.0\">" + text + "</plist>");
}

int readDefaults(const Request& request) {
    if (request.key.empty()) {
        for (const auto& [key, value] : suiteOf(request).dictionaryRepresentation())
            Console::shared().result(key + " = " + value.description());
        return exitSuccess;
    }
    const base::Value value = suiteOf(request).objectForKey(request.key);
    if (value.isNothing()) {
        Console::shared().diagnostic("there is no value under " + request.key);
        return exitFailure;
    }
    Console::shared().result(value.description());
    return exitSuccess;
}

int writeDefault(const Request& request) {
    if (request.asText) return report(suiteOf(request).setObject(request.value, request.key));
    const base::Result<base::Value> value = valueFromText(request.value);
    if (!value) return report(base::failure(value.error()));
    return report(suiteOf(request).setObject(*value, request.key));
}

int deleteDefault(const Request& request) {
    return report(suiteOf(request).removeObject(request.key));
}

} // namespace

void declareDefaults(CLI::App& app, const Chosen& chosen) {
    CLI::App* command = app.add_subcommand("defaults", "Read and change settings; running programs obey at once");
    command->require_subcommand(0, 1);
    const auto request = std::make_shared<Request>();
    const auto declare = [&](const char* name, const char* description, int (*work)(const Request&)) {
        CLI::App* action = command->add_subcommand(name, description);
        action->add_option("--suite", request->suite, "The suite of settings")
            ->capture_default_str()
            ->type_name("NAME");
        action->callback([request, work, chosen] {
            chosen([request, work](const Options& options) {
                const Session session(options);
                return work(*request);
            });
        });
        return action;
    };
    CLI::App* reading = declare("read", "Print one setting, or all", readDefaults);
    reading->add_option("KEY", request->key, "The setting; all of them without it")->type_name("");
    CLI::App* writing = declare("write", "Store a setting", writeDefault);
    writing->add_option("KEY", request->key, "The setting")->required()->type_name("");
    writing
        ->add_option("VALUE", request->value,
                     "yes, no, true or false, a number, an XML property list (begins with <), or a text")
        ->required()
        ->type_name("");
    writing->add_flag("--text", request->asText, "Store the value as a text, whatever it looks like");
    CLI::App* removing = declare("delete", "Remove a setting", deleteDefault);
    removing->add_option("KEY", request->key, "The setting")->required()->type_name("");
}

} // namespace velmctl
