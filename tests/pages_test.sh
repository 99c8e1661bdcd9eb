#!/usr/bin/env bash
# What the shells and man are told of the programs: pages_test.sh PAGES NIMA-POST NIMA-CTL. Whatever a program lists in its
# help has to be offered and described.
set -euo pipefail

pages=$1
failed=0

fail() {
    printf '%s\n' "$1" >&2
    failed=1
}

# complete_words PROGRAM WORD...: what bash offers for the last word.
complete_words() {
    # shellcheck disable=SC1090,SC2016
    bash -c 'source "$1/bash/$2"; COMP_WORDS=("${@:2}"); COMP_CWORD=$(($# - 2)); "_${2//-/_}"; printf "%s\n" "${COMPREPLY[@]}"' \
        bash "$pages" "$@"
}

# The first words of the lines after a heading of the help.
listed() {
    awk -v heading="$1:" '$0 == heading { inside = 1; next } /^$/ { inside = 0 } inside && /^  [^ ]/ { print $1 }' |
        sed 's/,/\n/g'
}

check_program() {
    local program=$1 name=${1##*/} command word
    ! "$program" --version >/dev/full 2>&1 || fail "$name: says that all is well where nothing could be printed"
    for command in $("$program" --help | listed Subcommands); do
        complete_words "$name" "$command" | grep -qx -e "$command" || fail "$name: $command is not completed"
        grep -q "'$command:" "$pages/zsh/_$name" || fail "$name: zsh does not know $command"
        for word in $("$program" "$command" --help | listed Options); do
            complete_words "$name" "$command" "$word" | grep -qx -e "$word" || fail "$name $command: $word is not completed"
            grep -q -e "[')*]$word\[" "$pages/zsh/_$name" || fail "$name $command: zsh does not know $word"
            grep -qF -e "\\fB${word//-/\\-}\\fR" "$pages/man1/$name.1" || fail "$name $command: no manual of $word"
        done
    done
    [[ -z "$(complete_words "$name" log x)" ]] || fail "$name: something is offered instead of a file"
    if command -v groff >/dev/null; then
        [[ -z "$(groff -man -Tutf8 -ww "$pages/man1/$name.1" 2>&1 >/dev/null)" ]] || fail "$name: the manual is not well-formed"
    fi
    if command -v zsh >/dev/null; then
        zsh -n "$pages/zsh/_$name" || fail "$name: zsh cannot read its completion"
    fi
}

check_program "$2"
check_program "$3"
[[ "$(complete_words "${2##*/}" log --format js)" == $'json\njsonl' ]] || fail "the values of an option are not offered"
grep -q 'FORMAT.*:(text json jsonl csv short)' "$pages/zsh/_${2##*/}" || fail "zsh does not know the values of an option"
exit "$failed"
