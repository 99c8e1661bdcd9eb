# shellcheck shell=bash
# Sourced. ensure_packages NAME... installs those of the named Debian packages that are missing; retry COMMAND... is
# for anything that uses the network.

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

# Runs a command and shows its output only if it fails.
quietly() {
    local log code=0
    log=$(mktemp)
    "$@" >"$log" 2>&1 || code=$?
    ((code == 0)) || cat "$log" >&2
    rm -f "$log"
    return "$code"
}

_packages_apt_get() {
    "${_packages_as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y \
        -o Acquire::Retries=3 -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0 "$@" </dev/null
}

_packages_install() {
    # Continue if a source does not answer: another one may have what is needed.
    _packages_apt_get update || true
    _packages_apt_get install --no-install-recommends "$@"
}

ensure_packages() {
    local -a missing _packages_as_root=()
    mapfile -t missing < <(_packages_missing "$@")
    ((${#missing[@]})) || return 0

    if ((EUID != 0)); then
        if ! command -v sudo >/dev/null; then
            printf 'Missing packages. As root, run: apt-get install --no-install-recommends %s\n' \
                "${missing[*]}" >&2
            return 1
        fi
        _packages_as_root=(sudo -n)
    fi

    printf 'Installing %s\n' "${missing[*]}"
    quietly retry _packages_install "${missing[@]}"
}
