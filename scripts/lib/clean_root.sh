# shellcheck shell=bash
# Sourced. Installs the packages in a Debian that holds nothing but what they need, uses them as a stranger does, and
# purges them.
#
# For the machine's own architecture that is a system of its own, in which apt works as it does on a device. No program
# of another architecture starts by itself, so there dpkg is told to work on the folder from outside, and programs are
# run by qemu.

# needs_of PACKAGE...: what they need besides each other.
needs_of() {
    local package
    for package in "$@"; do
        dpkg-deb -f "$package" Depends
    done | tr ',' '\n' | awk '!/nima/ { print $1 }' | sort -u | paste -sd,
}

# make_root FOLDER ARCHITECTURE NEEDS
make_root() {
    local variant=apt mirror
    mirror=$(awk '/^URIs:.*\/debian\/?$/ { print $2; exit } /^deb .*\/debian\/? / { print $2; exit }' \
        /etc/apt/sources.list /etc/apt/sources.list.d/*.sources /etc/apt/sources.list.d/*.list 2>/dev/null || true)
    [[ "$2" == "$(dpkg --print-architecture)" ]] || variant=extract
    mmdebstrap --quiet --variant="$variant" --architectures="$2" --include="$3" \
        "$(. /etc/os-release && printf '%s' "$VERSION_CODENAME")" "$1" "${mirror:-http://deb.debian.org/debian}"
}

# change_root ROOT ARCHITECTURE DPKG-ARGUMENT...
change_root() {
    if [[ "$2" == "$(dpkg --print-architecture)" ]]; then
        chroot "$1" dpkg "${@:3}"
    else
        dpkg --root="$1" --force-architecture --force-depends --force-script-chrootless "${@:3}"
    fi
}

# run_in ROOT ARCHITECTURE PROGRAM ARGUMENT...: a program of the root; its path counts from there.
run_in() {
    if [[ "$2" == "$(dpkg --print-architecture)" ]]; then
        chroot "$1" "${@:3}"
    else
        qemu-arm -L "$1" -E "LD_LIBRARY_PATH=$1/usr/lib/arm-linux-gnueabihf:$1/lib/arm-linux-gnueabihf" "$1$3" "${@:4}"
    fi
}

# A host is built with what the development package has installed, and leaves its line in a log, which nima-post reads.
use_packages() {
    local root=$1 architecture=$2 triplet compiler=g++ libraries
    triplet=$(dpkg-architecture -a"$architecture" -qDEB_HOST_MULTIARCH 2>/dev/null)
    libraries=$root/usr/lib/$triplet
    [[ "$architecture" == "$(dpkg --print-architecture)" ]] || compiler=$triplet-g++
    "$compiler" -std=c++17 "$root/usr/share/doc/libnima-diagnostics-dev/examples/tracer.cpp" -o "$root/tracer" \
        -I"$root/usr/include" -L"$libraries" -lNimaDiagnostics -Wl,--allow-shlib-undefined || return 1
    (cd "$root" && run_in "$root" "$architecture" /tracer) || return 1
    run_in "$root" "$architecture" /usr/bin/nima-post log "$(seen_from "$root" "$architecture")/device.log" |
        grep -F 'jam at 3' || return 1
    run_in "$root" "$architecture" /usr/bin/nima-ctl --version || return 1
    if [[ "$architecture" == amd64 ]]; then
        run_in "$root" "$architecture" /usr/bin/babeltrace2 /device.log | grep -F 'jam at 3' || return 1
    fi
    test -s "$root/usr/share/man/man1/nima-post.1.gz" || return 1
}

# The root as a program that run_in starts sees it.
seen_from() {
    [[ "$2" == "$(dpkg --print-architecture)" ]] || printf '%s' "$1"
}

# try_packages FOLDER ARCHITECTURE
try_packages() {
    local root result=0
    root=$(mktemp -d /tmp/nima-root.XXXXXX)
    make_root "$root/system" "$2" "$(needs_of "$1"/*.deb)" || result=1
    if ((result == 0)); then
        cp "$1"/*.deb "$root/system/"
        local -a names=(libnima-diagnostics1 libnima-diagnostics-dev nima-post)
        [[ "$2" != amd64 ]] || names+=(babeltrace2-plugin-nima)
        try_in "$root/system" "$2" "${names[@]}" || result=1
    fi
    rm -rf "$root"
    return "$result"
}

# try_in ROOT ARCHITECTURE NAME...
try_in() {
    local root=$1 architecture=$2 name before after base=''
    [[ "$architecture" == "$(dpkg --print-architecture)" ]] || base=$root
    before=$(list_files "$root")
    for name in "${@:3}"; do
        change_root "$root" "$architecture" --install "$base"/"$(basename "$root/${name}"_*.deb)" || return 1
    done
    use_packages "$root" "$architecture" || return 1
    change_root "$root" "$architecture" --purge "${@:3}" || return 1
    after=$(list_files "$root")
    diff <(printf '%s\n' "$before") <(printf '%s\n' "$after")
}

# Everything in the folders that only packages write to.
list_files() {
    (cd "$1" && find etc lib usr -path etc/ld.so.cache -prune -o -print | LC_ALL=C sort)
}
