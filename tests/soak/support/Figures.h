// What a soak program tells at its end: figures, and promises that were kept or broken. One thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace soak {

class Figures {
public:
    void add(std::string_view name, std::string value) { rows_.push_back({std::string(name), std::move(value)}); }
    void add(std::string_view name, std::int64_t value) { add(name, std::to_string(value)); }
    void add(std::string_view name, double value, std::string_view unit);
    /// A promise of the engine. What broke it is told in the row and counts as a fault.
    void promise(std::string_view name, bool isKept, std::string_view whatBrokeIt = {});
    /// The same, kept when nothing broke it; the first few are told.
    void promise(std::string_view name, const std::vector<std::string>& whatBrokeIt);

    /// Prints all rows as an aligned table and answers the exit status: 1 when a promise is broken.
    int conclude(std::string_view title) const;

private:
    struct Row {
        std::string name;
        std::string value;
    };
    std::vector<Row> rows_;
    int faults_ = 0;
};

/// What the command line of a soak program says: `--short`, and `--NAME VALUE` for its other knobs.
class Knobs {
public:
    Knobs(int count, char** arguments);
    bool isShort() const { return has("short"); }
    bool has(std::string_view name) const;
    std::string text(std::string_view name, std::string_view otherwise = {}) const;
    /// The knob's number; without it the one for the form that runs.
    std::int64_t number(std::string_view name, std::int64_t shortForm, std::int64_t longForm) const;

private:
    std::vector<std::string> words_;
};

/// Memory, threads and descriptors of a process, as /proc tells them. Zeros when it is gone.
struct Footprint {
    std::int64_t residentKilobytes = 0;
    std::int64_t anonymousKilobytes = 0; ///< The part that no file backs.
    std::int64_t peakKilobytes = 0;
    std::int64_t threads = 0;
    std::int64_t descriptors = 0;
    std::int64_t watches = 0; ///< Of inotify.
    static Footprint ofProcess(std::int64_t pid);
    static Footprint ofThisProcess();
};

} // namespace soak
