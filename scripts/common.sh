# What the scripts share; sourced, not run. Sets `root` (the repository) and `jobs` (compilations at a time).
root=$(CDPATH= cd -- "$(dirname -- "$0")/.." && pwd)
cd "$root" || exit 1

jobs=$(nproc 2>/dev/null || echo 1)
[ "$jobs" -gt 2 ] && jobs=2

say() {
    printf '\n== %s\n' "$*"
}

fail() {
    printf '%s\n' "$*" >&2
    exit 1
}

# configure PRESET: once; Ninja repeats it by itself when a CMakeLists.txt changes.
configure() {
    if [ ! -f "build/$1/build.ninja" ]; then
        say "Configuring build/$1"
        cmake --preset "$1" || fail "The configuration of build/$1 failed."
    fi
}

# build PRESET [TARGET...]: everything without targets. Ninja shows how far it is.
build() {
    preset=$1
    shift
    configure "$preset"
    say "Building build/$preset${*:+ ($*)}"
    if [ $# -eq 0 ]; then
        cmake --build "build/$preset" --parallel "$jobs" || fail "The build of build/$preset failed."
    else
        cmake --build "build/$preset" --parallel "$jobs" --target "$@" || fail "The build of build/$preset failed."
    fi
}
