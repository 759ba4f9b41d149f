#!/bin/sh
# Builds the Debian package in a fresh system that has only what the package asks for, reads it with lintian, installs
# it in another fresh system, runs its tests there and purges it. Where no such system can be made, which only root can,
# it builds in a fresh folder, and tries the programs in the unpacked package. ./check package calls it; the package is
# left in build/package.
set -eu
root=$(dirname "$(dirname "$(readlink -f "$0")")")
cd "$root"
. tools/packages.sh
need_commit_time
need_scratch
log=$root/build/package.log

# inside TREE COMMAND...: runs it there, with processes and mounts of its own that end with it.
inside() {
    tree=$scratch/$1
    shift
    # shellcheck disable=SC2016  # for the inner shell
    unshare --mount --pid --fork --kill-child sh -c '
        mount --rbind /dev "$0/dev" && mount -t proc proc "$0/proc" &&
            exec chroot "$0" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 TERM=dumb \
                DEBIAN_FRONTEND=noninteractive SOURCE_DATE_EPOCH="$SOURCE_DATE_EPOCH" "$@"' "$tree" "$@"
}

# The archives from which this machine has its own packages.
archives() {
    apt-get indextargets --format "deb \$(REPO_URI) \$(RELEASE) \$(COMPONENT)" 'Created-By: Packages' 'Origin: Debian' |
        sort -u
}

make_trees() {
    codename=$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)
    archives >"$scratch/archives"
    unshare --mount --pid --fork true 2>/dev/null &&
        mmdebstrap --variant=minbase --skip=cleanup/apt "$codename" "$scratch/install" "$scratch/archives" \
            >"$log" 2>&1 && cp -a "$scratch/install" "$scratch/build"
}

build_package() {
    copy_sources "$scratch/build/src/kpe"
    quietly "$log" "installing what the build needs" inside build apt-get -q -y --no-install-recommends build-dep \
        /src/kpe
    quietly "$log" "building the package" inside build sh -c 'cd /src/kpe && dpkg-buildpackage -us -uc'
    keep_package "$scratch/build/src"
}

build_here() {
    # shellcheck disable=SC2086  # a list of words
    need_packages $BUILD_PACKAGES debhelper dpkg-dev librsvg2-bin lowdown tmux
    copy_sources "$scratch/src/kpe"
    quietly "$log" "building the package" env -C "$scratch/src/kpe" dpkg-buildpackage -us -uc
    keep_package "$scratch/src"
}

keep_package() {
    rm -rf build/package
    mkdir -p build/package
    find "$1" -maxdepth 1 -type f -exec cp {} build/package/ \;
    package=$(echo build/package/kpe_*.deb)
}

read_package() {
    echo "kpe: lintian"
    lintian --allow-root --pedantic --info --fail-on error,warning build/package/*.changes
}

# The files of the fresh system, but for what dpkg and apt note for themselves.
listed() {
    inside install find / -xdev ! -path '/tmp*' ! -path '/var/lib/apt/*' ! -path '/var/cache/*' ! -path '/var/log/*' \
        ! -path '/var/lib/dpkg/status*' ! -path '/var/lib/dpkg/triggers*' -printf '%p %y %l\n' | sort
}

run_test() {
    echo "kpe: test $1"
    inside install sh "/tmp/tests/$1" 2>"$scratch/errors" && [ ! -s "$scratch/errors" ] && return 0
    cat "$scratch/errors" >&2
    echo "kpe: the test $1 failed" >&2
    return 1
}

try_package() {
    cp "$package" "$scratch/install/tmp/kpe.deb"
    cp -r debian/tests "$scratch/install/tmp/tests"
    needed=$(sed -n 's/^Depends: //p' debian/tests/control | tr -d '@' | tr -s ', ' '\n' | sort -u)
    # shellcheck disable=SC2086  # a list of words
    quietly "$log" "installing what the tests need" inside install apt-get -q -y --no-install-recommends install $needed
    quietly "$log" "installing what the package needs" inside install apt-get -q -y --no-install-recommends satisfy \
        "$(dpkg-deb -f "$package" Depends)"
    listed >"$scratch/before"
    quietly "$log" "installing the package" inside install dpkg -i /tmp/kpe.deb
    for link in /usr/bin/editor /usr/share/man/man1/editor.1.gz; do
        inside install test -e "$link" || { echo "kpe: $link leads nowhere" >&2; return 1; }
    done
    tests=$(sed -n 's/^Tests: //p' debian/tests/control)
    for name in $tests; do run_test "$name"; done
    quietly "$log" "purging the package" inside install dpkg --purge kpe
    listed >"$scratch/after"
    diff "$scratch/before" "$scratch/after" || { echo "kpe: the package leaves traces" >&2; return 1; }
}

try_unpacked() {
    dpkg-deb -x "$package" "$scratch/unpacked"
    for name in script screen git; do
        echo "kpe: test $name"
        PATH="$scratch/unpacked/usr/bin:$PATH" sh "debian/tests/$name"
    done
}

mkdir -p build
if [ "$(id -u)" -eq 0 ] && make_trees; then
    echo "kpe: the package, built in a fresh system"
    build_package
    read_package
    echo "kpe: the package, installed in another"
    try_package
else
    echo "kpe: no fresh system can be made here, so nothing is installed; the package, built in a fresh folder"
    build_here
    read_package
    try_unpacked
fi
echo "kpe: $package"
