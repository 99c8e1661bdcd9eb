# shellcheck shell=bash
# Sourced. What scripts/test --lint checks: C and C++ sources, the modules of the report's page, shell scripts, the
# width of the pages.

# New files count as well, so that nothing is committed unchecked.
project_files() {
    if [[ "$(git rev-parse --show-toplevel 2>/dev/null || true)" == "$PWD" ]]; then
        git ls-files --cached --others --exclude-standard
    else
        find . \( -path ./build -o -name .git \) -prune -o -type f -printf '%P\n'
    fi | sort -u | while IFS= read -r file; do
        [[ ! -f "$file" ]] || printf '%s\n' "$file"
    done
}

# The release build's commands, one for each file of the list (a file can be in several targets), without the options
# that only GCC knows.
write_compile_commands() {
    awk -v root="$PWD/" '
        NR == FNR { wanted[root $0] = 1; next }
        /^\{/ { entry = ""; next }
        /^\}/ {
            if ((file in wanted) && !(file in seen)) {
                seen[file] = 1
                printf "%s\n{\n%s}", (count++ ? "," : "["), entry
            }
            next
        }
        /^  "command":/ {
            gsub(/ -f(no-)?(analyzer|gnu-unique|var-tracking[a-z-]*|concepts-diagnostics-depth=[0-9]+)/, "")
            gsub(/ -fno-reorder-blocks-and-partition/, "")
        }
        /^  "file":/ {
            file = $0
            sub(/^  "file": "/, "", file)
            sub(/",?$/, "", file)
        }
        /^  / { entry = entry $0 "\n" }
        END { print (count ? "\n]" : "[]") }
    ' "$1" build/release/compile_commands.json >build/lint/compile_commands.json
}

# Makes the plug-in of clang-tidy that leaves the system's headers alone.
build_own_code() {
    if [[ ! build/lint/own_code.so -nt scripts/lib/own_code.cpp ]]; then
        g++ -std=c++17 -O1 -fPIC -shared -fno-rtti -isystem /usr/lib/llvm-14/include scripts/lib/own_code.cpp \
            -o build/lint/own_code.so
    fi
}

# tidy_file DEPTH FILE: keeps the outputs of parallel runs apart, and drops the count of findings in system headers. The
# paths through the functions take nine tenths of the time. Depth "all" follows them as far as clang can; depth "library"
# does so only for what runs in a device's processes, stays near the surface elsewhere, and follows none in tests, where
# it would have to look into the assertions.
tidy_file() {
    local output path=${2#"$PWD/"} checks=nima-own-code-only
    local -a paths=()
    path=${path#build/lint/units/}
    if [[ $1 == library ]]; then
        # Sources that are joined may well include and declare the same.
        checks+=,-readability-duplicate-include,-readability-redundant-declaration
        case $path in
            Diagnostics/* | crashHandler/* | ini/* | platform/*) ;;
            tests/*) checks+=',-clang-analyzer-*' ;;
            *) paths=(--extra-arg=-Xclang --extra-arg=-analyzer-config --extra-arg=-Xclang --extra-arg=mode=shallow) ;;
        esac
    fi
    if ! output=$(clang-tidy-14 --quiet -p build/lint --warnings-as-errors='*' \
        --load="$PWD/build/lint/own_code.so" --checks="$checks" "${paths[@]}" \
        --extra-arg=-Wno-unknown-warning-option --extra-arg=-Wno-ignored-optimization-argument "$2" 2>&1); then
        python3 scripts/lib/tidy_units.py places <<<"$output"
        return 1
    fi
}

source_files() {
    project_files | grep -E '\.(h|hpp|cpp|c)$'
}

# lint_layout JOBS
lint_layout() {
    source_files | xargs -d '\n' -n 40 -P "$1" clang-format-14 --dry-run --Werror
}

# Prints each include that a file has twice.
lint_includes() {
    local twice
    twice=$(source_files | xargs -d '\n' grep -nE '^#include' /dev/null | awk -F: 'seen[$1, $3]++')
    if [[ -n "$twice" ]]; then
        printf 'Included before:\n%s\n' "$twice"
        return 1
    fi
}

files_to_compile() {
    sed -n 's/^ *"file": "\(.*\)",\{0,1\}$/\1/p' build/lint/compile_commands.json
}

# tidy_sources JOBS DEPTH: runs clang-tidy on the sources, as deep as tidy_file says. Needs a configured release build.
tidy_sources() {
    mkdir -p build/lint
    source_files >build/lint/files
    write_compile_commands build/lint/files
    files_to_compile >build/lint/sources
    rm -rf build/lint/units
    [[ $2 == all ]] || python3 scripts/lib/tidy_units.py join build/lint || return 1
    build_own_code || return 1
    export -f tidy_file
    # The biggest first, so that no core waits for one at the end.
    files_to_compile | xargs -r -d '\n' ls -S | xargs -r -d '\n' -n 1 -P "$1" bash -c "tidy_file $2 \"\$1\"" tidy_file
}

count_sources() {
    printf '%d sources\n' "$(wc -l <build/lint/sources)"
}

# Prints each module of the pages with every module that it imports.
page_imports() {
    local file module
    for file in tools/fleet/page/*.js tools/report/page/*.js tools/report/page/*/*.js; do
        while IFS= read -r module; do
            printf '%s %s\n' "$file" "$(realpath -m --relative-to=. "${file%/*}/$module")"
        done < <(sed -n 's/^.*\bfrom "\(.*\)";$/\1/p' "$file")
    done
}

# What a module may import is part of the eslint rules; sorting the imports shows that they form no circle.
lint_page() {
    local result=0
    NODE_PATH=/usr/share/nodejs eslint --format unix --max-warnings 0 tools/report/page tools/fleet/page || result=1
    page_imports | tsort >/dev/null || result=1
    return "$result"
}

# Markdown is read in terminals and in diffs. Widths count characters, not bytes.
lint_pages() {
    local long
    long=$(project_files | grep '\.md$' | LC_ALL=C.UTF-8 xargs -r -d '\n' grep -nHE '^.{121}' || true)
    if [[ -n "$long" ]]; then
        printf 'Longer than 120 characters:\n%s\n' "$long"
        return 1
    fi
}

lint_scripts() {
    local file first
    project_files | while IFS= read -r file; do
        first=''
        IFS= read -r first <"$file" 2>/dev/null || true
        [[ "$file" != *.sh && ! "$first" =~ ^#!.*sh$ ]] || printf '%s\n' "$file"
    done | xargs -d '\n' shellcheck --external-sources
}
