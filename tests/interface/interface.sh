#!/usr/bin/env bash
# Compares the interface of a library, as hosts see it, with the one that was accepted last: names, versions, layouts,
# virtual tables. New names break nothing and pass.
#
#   interface.sh check LIBRARY BASELINE     exit status 1 with a report if a host would have to be built again
#   interface.sh accept LIBRARY BASELINE    makes it the baseline, tests/interface/PROCESSOR.abi.xz
#
# A release build has to have debug information for this.
set -euo pipefail

folder=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)
root=$(cd "$folder/../.." && pwd -P)
library=$2
baseline=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

describe() {
    abidw --exported-interfaces-only --headers-dir "$root/include/Diagnostics" --drop-private-types \
        --suppressions "$folder/not-ours.ini" --no-show-locs --no-corpus-path --no-comp-dir-path --no-parameter-names \
        --no-elf-needed --out-file "$work/now" "$library"
}

describe
if [[ "$1" == accept ]]; then
    xz -9 <"$work/now" >"$baseline"
else
    xz -d <"$baseline" >"$work/before"
    # The lowest bits of the status tell of errors in use, the others of changes.
    abidiff --no-added-syms --suppressions "$folder/not-ours.ini" "$work/before" "$work/now"
fi
