#include "ReducedHTML.h"

#include "base/Text.h"

#include <algorithm>
#include <array>
#include <utility>

namespace platform::draw {
namespace {

constexpr std::array<std::string_view, 7> keptAttributes{"style", "align", "hidden", "face", "size", "color", "text"};
constexpr std::string_view blanks = " \t\r\n\f";

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

class Reducer {
public:
    explicit Reducer(std::string_view html) : rest_(html) {}

    std::string reduce() {
        while (!rest_.empty()) {
            reduced_ += take(rest_.find('<'));
            if (rest_.starts_with("<!--"))
                drop(rest_.find("-->", 2), 3);
            else if (rest_.starts_with("<!") || rest_.starts_with("<?"))
                drop(rest_.find('>'), 1);
            else if (rest_.size() > 1 &&
                     (isLetter(rest_[1]) || (rest_[1] == '/' && rest_.size() > 2 && isLetter(rest_[2]))))
                takeTag();
            else if (!rest_.empty()) {
                reduced_ += "&lt;";
                rest_.remove_prefix(1);
            }
        }
        return std::move(reduced_);
    }

private:
    std::string_view take(std::size_t count) {
        const std::string_view taken = rest_.substr(0, count);
        rest_.remove_prefix(taken.size());
        return taken;
    }
    void drop(std::size_t count, std::size_t more) { take(count == std::string_view::npos ? count : count + more); }

    void takeTag() {
        const bool isEnd = rest_[1] == '/';
        std::string tag(take(isEnd ? 2 : 1));
        const std::string name = base::lowercase(take(rest_.find_first_of(" \t\r\n\f/>")));
        tag += name;
        std::array<bool, keptAttributes.size()> isTaken{};
        while (true) {
            take(rest_.find_first_not_of(" \t\r\n\f/"));
            if (rest_.empty()) return; // it has no end
            if (rest_.front() == '>') break;
            const std::string attribute = base::lowercase(take(rest_.find_first_of(" \t\r\n\f/>=", 1)));
            const std::string_view value = takeValue();
            const auto* kept = std::find(keptAttributes.begin(), keptAttributes.end(), attribute);
            if (isEnd || kept == keptAttributes.end()) continue;
            if (std::exchange(isTaken[static_cast<std::size_t>(kept - keptAttributes.begin())], true)) continue;
            tag += " " + attribute + "=\"" + base::replacingAll(value, "\"", "&quot;") + "\"";
        }
        take(1);
        reduced_ += tag + ">";
        if (!isEnd && (name == "script" || name == "style")) dropUntilEndOf(name);
    }

    std::string_view takeValue() {
        const std::size_t equals = rest_.find_first_not_of(blanks);
        if (equals == std::string_view::npos || rest_[equals] != '=') return {};
        take(equals + 1);
        take(rest_.find_first_not_of(blanks));
        if (rest_.empty()) return {};
        const char quote = rest_.front();
        if (quote != '"' && quote != '\'') return take(rest_.find_first_of(" \t\r\n\f>"));
        take(1);
        const std::string_view value = take(rest_.find(quote));
        take(1);
        return value;
    }

    void dropUntilEndOf(std::string_view element) {
        while (!rest_.empty()) {
            drop(rest_.find("</"), 0);
            if (base::equalIgnoringCase(rest_.substr(std::min<std::size_t>(2, rest_.size()), element.size()), element))
                return;
            take(2);
        }
    }

    std::string_view rest_;
    std::string reduced_;
};

} // namespace

std::string reducedHTML(std::string_view html) {
    return Reducer(html).reduce();
}

} // namespace platform::draw
