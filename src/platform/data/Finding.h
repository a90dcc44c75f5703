// What reading a file came upon: a sentence and the place that it speaks of. A reader that is handed a list of findings
// notes what it drops or passes over; without one it does none of that work.
#pragma once

#include <compare>
#include <string>
#include <utility>
#include <vector>

namespace platform::data {

/// `file` is a path, `line` counts from 1, 0 where there is none.
struct Place {
    std::string file;
    int line = 0;
    friend auto operator<=>(const Place&, const Place&) = default;
};

struct Finding {
    Place place;
    std::string message;
    friend auto operator<=>(const Finding&, const Finding&) = default;
};

/// In the order in which they were met. Not synchronized.
class Findings {
public:
    const std::vector<Finding>& findings() const { return findings_; }
    void add(Place place, std::string message) { findings_.push_back({std::move(place), std::move(message)}); }

    /// The file that is being read, which a line alone refers to.
    const std::string& file() const { return file_; }
    void setFile(std::string path) { file_ = std::move(path); }
    void add(unsigned line, std::string message) { add(placeAt(line), std::move(message)); }
    Place placeAt(unsigned line) const { return {file_, static_cast<int>(line)}; }

private:
    std::string file_;
    std::vector<Finding> findings_;
};

} // namespace platform::data
