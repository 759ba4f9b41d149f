#!/bin/sh
# Builds the programs with everything inside them, twice and in two places: both have to be the same to the byte. Then
# tries them in a root directory that holds nothing else. ./check static calls it; the archive is left in build/static.
set -eu
root=$(dirname "$(dirname "$(readlink -f "$0")")")
cd "$root"
. tools/packages.sh
need_commit_time
need_scratch
version=$(sed -n 's/^project(kpe VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
name=kpe-$version-linux-$(uname -m)

# build_in DIRECTORY: the installed files are in DIRECTORY/installed.
build_in() {
    quietly "$root/build/static.log" "setting up the static build" \
        cmake -G Ninja -S "$1" -B "$1/build" -DKPE_STATIC=ON -DCMAKE_INSTALL_PREFIX=/usr
    quietly "$root/build/static.log" "the static build" cmake --build "$1/build"
    quietly "$root/build/static.log" "installing" env DESTDIR="$1/installed" cmake --install "$1/build" --strip
}

# try_alone PROGRAM: a session with nothing of the system around.
try_alone() {
    mkdir -p "$scratch/alone/dev"
    cp "$1" "$scratch/alone/kpe"
    printf 'one\ntwo\n' >"$scratch/alone/text"
    printf 'SUBSTITUTE/two/\303\244/ WHOLE\nEXIT\n' |
        env -i HOME=/ LANG=C.UTF-8 unshare --map-root-user --root="$scratch/alone" /kpe -quiet text >"$scratch/answers"
    printf 'one\n\303\244\n' | diff - "$scratch/alone/text"
}

copy_sources "$scratch/one"
mkdir "$scratch/another"
cp -r "$scratch/one" "$scratch/another/place"
export CCACHE_DISABLE=1 # whose results would be the same by themselves
echo "kpe: the static build in one place"
build_in "$scratch/one"
echo "kpe: the static build in another place"
build_in "$scratch/another/place"
echo "kpe: both are the same, and need nothing of the system"
diff -r "$scratch/one/installed" "$scratch/another/place/installed"
programs=$scratch/one/installed/usr/bin
for program in kpe kpe-keys; do
    if readelf -d "$programs/$program" | grep NEEDED || readelf -l "$programs/$program" | grep INTERP; then
        echo "kpe: $program needs libraries of the system" >&2
        exit 1
    fi
done
try_alone "$programs/kpe"
for test in script screen git; do PATH="$programs:$PATH" sh "debian/tests/$test" >/dev/null; done
mkdir -p build/static
tar -C "$scratch/one/installed/usr" --sort=name --owner=0 --group=0 --numeric-owner --mtime="@$SOURCE_DATE_EPOCH" \
    --transform "s,^\\./,$name/," -c . | gzip -9n >"build/static/$name.tar.gz"
echo "kpe: build/static/$name.tar.gz"
