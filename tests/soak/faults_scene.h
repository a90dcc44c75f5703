// A fault that is played: a home with an engine in a process of its own, orders, and what is to hold at the end. What
// the operator is told goes into the figures. One thread.
#pragma once

#include "soak/support/Engine.h"
#include "soak/support/Figures.h"
#include "soak/support/SoakHome.h"

#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <thread>

namespace soak {

class Scene {
public:
    Scene(Figures& figures, std::string name);
    ~Scene();

    const SoakHome& home() const { return home_; }
    /// Puts a small volume in the place of a folder of the home, empty. False when this user may not.
    bool mountVolume(const std::filesystem::path& folder, int kilobytes);
    void start();
    /// In Arriving and then renamed in. The order is to be found again at the end.
    int add(OrderKind kind = OrderKind::bundle);
    std::filesystem::path placeOf(int number, OrderKind kind = OrderKind::bundle) const;

    void expect(std::string_view what, const std::function<bool()>& done);
    void expectCompleted(int number);
    void expectFailed(int number);
    /// What the log tells the operator: the first line from now on that holds the part, which must come.
    void expectMessage(std::string_view part);
    /// The operator's remedy for an order that could not be moved: out of the folder, and in again when the engine has
    /// seen that.
    void dropAgain(int number);
    /// Each order stands in exactly one of the watched folder, Completed and Failed, save those that are `elsewhere`.
    void expectNothingLost(const std::set<int>& elsewhere = {});

private:
    /// The line of the log behind those that were found before; empty when it does not come.
    std::string awaitLine(std::string_view part);
    bool isIn(const std::filesystem::path& folder, int number) const;

    Figures& figures_;
    const std::string name_;
    SoakHome home_;
    std::filesystem::path logFile_;
    std::size_t logBegin_ = 0;
    std::vector<std::filesystem::path> volumes_;
    std::unique_ptr<EngineProcess> engine_;
    std::set<int> orders_;
};

/// Fills the volume of a folder and keeps it full; the end of the object makes room again.
class FullVolume {
public:
    explicit FullVolume(const std::filesystem::path& folder);
    ~FullVolume();

private:
    std::filesystem::path file_;
    std::jthread filler_;
};

void playDisk(Figures& figures);
void playRights(Figures& figures);
void playFolders(Figures& figures);
void playTwoEngines(Figures& figures);
/// In this process, which must not have run an engine yet.
void playOrders(Figures& figures, const SoakHome& home);

} // namespace soak
