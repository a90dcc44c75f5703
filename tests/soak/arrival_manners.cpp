#include "soak/arrival_manners.h"

#include <algorithm>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <thread>

namespace soak {

namespace fs = std::filesystem;

namespace {

constexpr int pieceCount = 6;

std::string pictureFile(int number) {
    return SoakHome::pictureName(number) + ".jpg";
}

fs::path bundlePath(const SoakHome& home, int number) {
    return home.bundles() / (SoakHome::pictureName(number) + ".velm_job");
}

fs::path ticketPath(const SoakHome& home, int number) {
    return home.tickets() / (SoakHome::pictureName(number) + ".xml");
}

/// The photograph of a ticket stands elsewhere.
std::string ticketOf(const SoakHome& home, int number, int picture) {
    const fs::path photograph = home.path() / "Photographs" / pictureFile(picture);
    if (!fs::exists(photograph)) SoakHome::write(photograph, home.photograph());
    return SoakHome::ticketText(number, photograph.string());
}

fs::path wholeTicket(const SoakHome& home, int number) {
    const fs::path made = home.path() / "Arriving" / (SoakHome::pictureName(number) + ".made");
    SoakHome::write(made, ticketOf(home, number, number));
    return made;
}

fs::path wholeBundle(const SoakHome& home, int number, int picture) {
    const fs::path made = home.path() / "Arriving" / SoakHome::pictureName(number);
    SoakHome::write(made / "Images" / pictureFile(picture), home.photograph());
    SoakHome::write(made / "job.xml", SoakHome::ticketText(number, pictureFile(picture)));
    return made;
}

/// Into the file itself, which stays open.
void writeInPieces(const fs::path& file, std::string_view bytes, Pace& pace) {
    fs::create_directories(file.parent_path());
    const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const std::size_t piece = bytes.size() / pieceCount + 1;
    for (std::size_t begin = 0; begin < bytes.size(); begin += piece) {
        pace.wait();
        const std::string_view part = bytes.substr(begin, piece);
        static_cast<void>(!write(descriptor, part.data(), part.size()));
    }
    close(descriptor);
}

void makeOld(const fs::path& item) {
    constexpr timespec date{1'500'000'000, 0};
    const timespec times[2] = {date, date};
    utimensat(AT_FDCWD, item.c_str(), times, 0);
}

void fill(const SoakHome& home, int number, const fs::path& bundle, Pace& pace, bool ticketFirst) {
    const std::string ticket = SoakHome::ticketText(number, pictureFile(number));
    if (ticketFirst) writeInPieces(bundle / "job.xml", ticket, pace);
    writeInPieces(bundle / "Images" / pictureFile(number), home.photograph(), pace);
    if (!ticketFirst) writeInPieces(bundle / "job.xml", ticket, pace);
}

/// Each file under a name of its own first, as programs do that mirror folders.
void mirror(const SoakHome& home, int number, Pace& pace) {
    const fs::path bundle = bundlePath(home, number);
    for (const bool isTicket : {true, false}) {
        const fs::path file = isTicket ? bundle / "job.xml" : bundle / "Images" / pictureFile(number);
        const fs::path aside = file.parent_path() / ("." + file.filename().string() + ".Xy3zAb");
        writeInPieces(aside, isTicket ? SoakHome::ticketText(number, pictureFile(number)) : home.photograph(), pace);
        pace.wait();
        makeOld(aside);
        fs::rename(aside, file);
    }
}

void linkBundle(const SoakHome& home, int number, Pace& pace) {
    const fs::path whole = wholeBundle(home, number, number);
    const fs::path bundle = bundlePath(home, number);
    fs::create_directories(bundle);
    pace.wait();
    fs::create_hard_link(whole / "job.xml", bundle / "job.xml");
    pace.wait();
    fs::create_directories(bundle / "Images");
    pace.wait();
    fs::create_hard_link(whole / "Images" / pictureFile(number), bundle / "Images" / pictureFile(number));
    fs::remove_all(whole);
}

void copyWithDates(const SoakHome& home, int number, Pace& pace) {
    const fs::path bundle = bundlePath(home, number);
    fill(home, number, bundle, pace, true);
    for (const fs::path& item :
         {bundle / "job.xml", bundle / "Images" / pictureFile(number), bundle / "Images", bundle}) {
        pace.wait();
        makeOld(item);
    }
}

constexpr Manner allManners[] = {
    {"bundle renamed in", true,
     [](const SoakHome& home, int number, Pace&) {
         fs::rename(wholeBundle(home, number, number), bundlePath(home, number));
     }},
    {"bundle written in place, ticket first", true,
     [](const SoakHome& home, int number, Pace& pace) { fill(home, number, bundlePath(home, number), pace, true); }},
    {"bundle written in place, pictures first", true,
     [](const SoakHome& home, int number, Pace& pace) { fill(home, number, bundlePath(home, number), pace, false); }},
    {"bundle under a hidden name, then renamed", true,
     [](const SoakHome& home, int number, Pace& pace) {
         const fs::path bundle = bundlePath(home, number);
         const fs::path aside = home.bundles() / ("." + bundle.filename().string() + ".Qr5tUv");
         fill(home, number, aside, pace, true);
         pace.wait();
         fs::rename(aside, bundle);
     }},
    {"bundle mirrored file by file", true, mirror},
    {"bundle of hard links", true, linkBundle},
    {"bundle copied with its dates", true, copyWithDates},
    {"ticket renamed in", false,
     [](const SoakHome& home, int number, Pace&) { fs::rename(wholeTicket(home, number), ticketPath(home, number)); }},
    {"ticket written in place", false,
     [](const SoakHome& home, int number, Pace& pace) {
         writeInPieces(ticketPath(home, number), ticketOf(home, number, number), pace);
     }},
    {"ticket under a hidden name, then renamed", false,
     [](const SoakHome& home, int number, Pace& pace) {
         const fs::path ticket = ticketPath(home, number);
         const fs::path aside = home.tickets() / ("." + ticket.filename().string() + ".Qr5tUv");
         writeInPieces(aside, ticketOf(home, number, number), pace);
         makeOld(aside);
         fs::rename(aside, ticket);
     }},
    {"ticket as a hard link", false,
     [](const SoakHome& home, int number, Pace&) {
         const fs::path whole = wholeTicket(home, number);
         fs::create_hard_link(whole, ticketPath(home, number));
         fs::remove(whole);
     }},
};

constexpr Change allChanges[] = {
    {"bundle removed", true, [](const SoakHome& home, int number) { fs::remove_all(bundlePath(home, number)); }, false},
    {"bundle renamed away", true,
     [](const SoakHome& home, int number) {
         fs::rename(bundlePath(home, number), home.path() / "Arriving" / SoakHome::pictureName(number));
     },
     false},
    {"bundle replaced by a new one", true,
     [](const SoakHome& home, int number) {
         const fs::path old = home.path() / "Arriving/old";
         fs::rename(bundlePath(home, number), old);
         fs::rename(wholeBundle(home, numberOfReplacement(number), number), bundlePath(home, number));
         fs::remove_all(old);
     },
     true},
    {"ticket removed", false, [](const SoakHome& home, int number) { fs::remove(ticketPath(home, number)); }, false},
    {"ticket replaced by a new one", false,
     [](const SoakHome& home, int number) {
         const fs::path made = home.path() / "Arriving/new";
         SoakHome::write(made, ticketOf(home, numberOfReplacement(number), number));
         fs::rename(made, ticketPath(home, number));
     },
     true},
    {"ticket written anew in place", false,
     [](const SoakHome& home, int number) {
         SoakHome::write(ticketPath(home, number), ticketOf(home, numberOfReplacement(number), number));
     },
     true},
};

} // namespace

void Pace::wait() {
    std::this_thread::sleep_for(pause_);
    const auto now = std::chrono::steady_clock::now();
    longest_ = std::max(longest_, std::chrono::duration_cast<std::chrono::milliseconds>(now - lastStep_));
    lastStep_ = now;
}

std::span<const Manner> manners() {
    return allManners;
}

std::span<const Change> changes() {
    return allChanges;
}

int numberOfReplacement(int number) {
    constexpr int distance = 1'000'000;
    return number + distance;
}

} // namespace soak
