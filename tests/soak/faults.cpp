// Faults of disks, folders, clocks and names, and a second engine: nothing is lost, nothing is overwritten, the engine
// goes on when the fault is over, and the operator is told.
//   velm_soak_faults [--short] [--only disk|rights|folders|engines|orders]
// Run by root it mounts small volumes, and gives its rights up for what root can't try.
#include "soak/faults_scene.h"

#include <cstdio>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// For folders that refuse. /proc/self, by which the engine's own process is started, stays ours.
void giveRightsUp() {
    constexpr uid_t nobody = 65534;
    if (geteuid() != 0) return;
    if (setresgid(nobody, nobody, nobody) != 0 || setresuid(nobody, nobody, nobody) != 0)
        std::perror("cannot give the rights of root up");
    prctl(PR_SET_DUMPABLE, 1);
}

} // namespace

int main(int count, char** arguments) {
    if (const auto status = soak::runAsEngine(count, arguments)) return *status;
    const std::string only = soak::Knobs(count, arguments).text("only");
    const auto isToPlay = [&only](std::string_view name) { return only.empty() || only == name; };
    soak::Figures figures;
    if (isToPlay("disk")) soak::playDisk(figures);
    giveRightsUp();
    if (isToPlay("rights")) soak::playRights(figures);
    if (isToPlay("folders")) soak::playFolders(figures);
    if (isToPlay("engines")) soak::playTwoEngines(figures);
    const soak::SoakHome home;
    if (isToPlay("orders")) soak::playOrders(figures, home);
    const int status = figures.conclude("faults");
    home.removeUnlessKept();
    soak::Engine::endProcess(status);
}
