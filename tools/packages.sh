# Read by run and check. need_packages PACKAGE... installs the Debian packages that are missing;
# with all of them there it does nothing. quietly LOG WHAT COMMAND... shows output only of a failure.
# shellcheck shell=sh disable=SC2034,SC2154  # root comes from the script, the lists are for it

need_packages() {
    if ! command -v dpkg-query >/dev/null 2>&1; then
        echo "kpe: not a Debian system; going on with what is there. It needs what Debian calls: $*" >&2
        return 0
    fi
    missing=
    for package in "$@"; do
        dpkg-query -W -f='${Status}\n' "$package" 2>/dev/null | grep -q ' installed$' || missing="$missing $package"
    done
    [ -n "$missing" ] || return 0

    as_root=
    if [ "$(id -u)" -ne 0 ]; then
        as_root=sudo
        if ! command -v sudo >/dev/null 2>&1; then
            echo "kpe: please have root run: apt-get install$missing" >&2
            return 1
        fi
    fi
    if ! command -v apt-get >/dev/null 2>&1; then
        echo "kpe: there is no apt-get here to install what is missing:$missing" >&2
        return 1
    fi
    echo "kpe: installing the Debian packages that are missing:$missing" >&2
    apt_log=$(mktemp) || return 1
    # shellcheck disable=SC2086  # a list of words
    if { $as_root apt-get -q update && $as_root env DEBIAN_FRONTEND=noninteractive apt-get -q -y \
        -o DPkg::Lock::Timeout=120 --no-install-recommends install $missing; } >"$apt_log" 2>&1 </dev/null; then
        rm -f "$apt_log"
        return 0
    fi
    tail -n 20 "$apt_log" >&2
    rm -f "$apt_log"
    echo "kpe: these packages could not be installed:$missing" >&2
    return 1
}

quietly() {
    log=$1 what=$2
    shift 2
    mkdir -p "$(dirname "$log")" || return 1
    "$@" >"$log" 2>&1 </dev/null && return 0
    cat "$log" >&2
    echo "kpe: $what failed (also in $log)" >&2
    return 1
}

# The files that belong to the project, also those that are not committed yet.
copy_sources() {
    mkdir -p "$1"
    git -C "$root" ls-files -z --cached --others --exclude-standard |
        tar -C "$root" --null -T - -c | tar -x -C "$1"
}

# Makes $scratch, a folder that is removed when the script ends.
need_scratch() {
    scratch=$(mktemp -d)
    trap 'rm -rf "$scratch"' EXIT
}

# Exports the time of the last commit for builds that have to come out the same each time.
need_commit_time() {
    SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git -C "$root" log -1 --format=%ct)}
    export SOURCE_DATE_EPOCH
}

# build PRESET TARGET [-DNAME=VALUE...]: the result is in build/PRESET.
build() {
    preset=$1 target=$2
    shift 2
    quietly "$root/build/$preset.log" "setting up the $preset build" cmake --preset "$preset" -S "$root" "$@" &&
        quietly "$root/build/$preset.log" "the $preset build" cmake --build "$root/build/$preset" --target "$target"
}

BUILD_PACKAGES="g++ cmake ninja-build pkg-config libncurses-dev libutf8proc-dev"
# Terminal entries for the screen tests, the terminal that they look at, the sandbox for sessions made by chance, and a
# file system that can clone files. Then programs that call an editor. Where one of them is missing, or a disk cannot be
# mounted, its sessions are left out.
TEST_PACKAGES="$BUILD_PACKAGES libgtest-dev libvterm-dev ncurses-term bubblewrap btrfs-progs git less cron sudo mutt"
LINT_PACKAGES="$TEST_PACKAGES libbenchmark-dev clang clang-format clang-tidy shellcheck pyflakes3 man-db lowdown"
BENCH_PACKAGES="$BUILD_PACKAGES libbenchmark-dev python3 vim ed ne nano"
LINT_PACKAGES="$LINT_PACKAGES desktop-file-utils appstream"
# Programs that read the package, and that try it in a system of its own; what is in that comes from debian/.
PACKAGE_PACKAGES="git lintian mmdebstrap util-linux"
STATIC_PACKAGES="$BUILD_PACKAGES binutils git tmux util-linux"
