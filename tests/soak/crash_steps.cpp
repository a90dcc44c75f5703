#include "crash_steps.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace soak {

std::int64_t lastStep() {
    static const std::int64_t last = [] {
        const char* text = std::getenv(stepVariable);
        return text ? std::atoll(text) : 0;
    }();
    return last;
}

} // namespace soak

namespace {

long step(long (*deed)(long, long, long, long, long), long a, long b = 0, long c = 0, long d = 0, long e = 0) {
    static std::atomic<std::int64_t> steps{0};
    if (soak::lastStep() > 0 && ++steps == soak::lastStep()) kill(getpid(), SIGKILL);
    return deed(a, b, c, d, e);
}

template <long number>
long system(long a, long b, long c, long d, long e) {
    return syscall(number, a, b, c, d, e);
}

template <class T>
long word(T value) {
    return (long)value; // pointers and numbers alike are words to the kernel
}

} // namespace

// They stand before the C library's own, also for the libraries that this program uses.
extern "C" {
int rename(const char* from, const char* to) noexcept {
    return static_cast<int>(step(system<SYS_rename>, word(from), word(to)));
}
int renameat2(int a, const char* from, int b, const char* to, unsigned flags) noexcept {
    return static_cast<int>(step(system<SYS_renameat2>, a, word(from), b, word(to), flags));
}
int link(const char* from, const char* to) noexcept {
    return static_cast<int>(step(system<SYS_link>, word(from), word(to)));
}
int mkdir(const char* path, mode_t mode) noexcept {
    return static_cast<int>(step(system<SYS_mkdir>, word(path), mode));
}
int unlink(const char* path) noexcept {
    return static_cast<int>(step(system<SYS_unlink>, word(path)));
}
int unlinkat(int folder, const char* path, int flags) noexcept {
    return static_cast<int>(step(system<SYS_unlinkat>, folder, word(path), flags));
}
int fchmod(int file, mode_t mode) noexcept {
    return static_cast<int>(step(system<SYS_fchmod>, file, mode));
}
int utimensat(int folder, const char* path, const timespec* times, int flags) noexcept {
    return static_cast<int>(step(system<SYS_utimensat>, folder, word(path), word(times), flags));
}
int fsync(int file) {
    return static_cast<int>(step(system<SYS_fsync>, file));
}
int fdatasync(int file) {
    return static_cast<int>(step(system<SYS_fdatasync>, file));
}
}
