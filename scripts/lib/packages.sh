# shellcheck shell=bash
# Sourced. install_packages PURPOSE NAME... installs those of the named Debian packages that are missing; retry COMMAND...
# is for anything that uses the network.

# What the library, nima-post, nima-ctl, the examples and the tests are built with, for every command that builds them.
# shellcheck disable=SC2034
build_packages=(g++ cmake ninja-build pkg-config libunwind-dev libiberty-dev libarchive-dev libcli11-dev libdw-dev
    libelf-dev libpcre2-dev libsqlite3-dev libbabeltrace2-dev nlohmann-json3-dev zlib1g-dev esbuild googletest libgtest-dev
    libbenchmark-dev python3 zstd ccache)
# shellcheck disable=SC2034
armhf_packages=(g++-arm-linux-gnueabihf qemu-user)

retry() {
    local attempt
    for attempt in 1 2 3; do
        "$@" && return 0
        if ((attempt < 3)); then
            sleep $((attempt * 5))
        fi
    done
    return 1
}

_packages_missing() {
    local name
    for name in "$@"; do
        # A package that was removed, but is still known to dpkg, also counts as missing.
        [[ "$(dpkg-query -W -f '${db:Status-Status}' "$name" 2>/dev/null || true)" == installed ]] ||
            printf '%s\n' "$name"
    done
}

# Turns until it is killed, on a terminal.
_packages_spin() {
    local turn=0
    local -a marks=('|' / - "\\")
    while sleep 0.2; do
        printf '%s\b' "${marks[turn++ % 4]}" >&2
    done
}

# Runs a command and shows its output only if it fails.
quietly() {
    local log code=0 spinner=''
    log=$(mktemp)
    if [[ -t 2 ]]; then
        _packages_spin &
        spinner=$!
    fi
    "$@" >"$log" 2>&1 || code=$?
    if [[ -n "$spinner" ]]; then
        kill "$spinner"
        wait "$spinner" 2>/dev/null || true
        printf ' \b' >&2
    fi
    ((code == 0)) || cat "$log" >&2
    rm -f "$log"
    return "$code"
}

# step WHAT COMMAND...: a line for something that takes long, with its seconds.
step() {
    local begin=$SECONDS code=0
    printf '%s ... ' "$1"
    quietly "${@:2}" || code=$?
    if ((code == 0)); then
        printf '%d s\n' $((SECONDS - begin))
    else
        printf 'FAILED after %d s\n' $((SECONDS - begin))
    fi
    return "$code"
}

_packages_apt_get() {
    "${_packages_as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y \
        -o Acquire::Retries=3 -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0 "$@" </dev/null
}

# Continue if a source does not answer: another one may have what is needed.
_packages_update() {
    _packages_apt_get update || true
}

# sudo asks for a password before the first step, and only where somebody can answer.
_packages_have_sudo() {
    command -v sudo >/dev/null || return 1
    sudo -n true 2>/dev/null || { [[ -t 0 && -t 2 ]] && sudo -v; }
}

_packages_find_root() {
    _packages_as_root=()
    ((EUID != 0)) || return 0
    if ! _packages_have_sudo; then
        printf 'Missing packages. As root, run: apt-get install --no-install-recommends %s\n' "$*" >&2
        return 1
    fi
    _packages_as_root=(sudo -n)
}

install_packages() {
    local -a missing
    mapfile -t missing < <(_packages_missing "${@:2}")
    ((${#missing[@]})) || return 0
    _packages_find_root "${missing[@]}" || return 1
    # Once for all groups of a run.
    if [[ -z "${_packages_updated:-}" ]]; then
        step "Looking up packages" _packages_update
        _packages_updated=yes
    fi
    step "Installing ${#missing[@]} for $1 (${missing[*]})" \
        retry _packages_apt_get install --no-install-recommends "${missing[@]}"
}
