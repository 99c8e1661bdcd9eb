# shellcheck shell=bash
# Sourced. Seeds for the fuzz targets and a run of them, and a run of the simulator of devices.

fuzz_targets=(systrace ring_segment ring_text text_log queue_file crash_log stack_trace names log_line notification
    live_segments event_record archive manifest control symbols)

# make_seeds HOST CORPUS: what the example device leaves when it dies, cut short, in addition to the seeds in the tree.
make_seeds() {
    local host corpus=$2 run target
    host=$(realpath "$1")
    run=$(mktemp -d "${TMPDIR:-/tmp}/nima.XXXXXX")
    printf 'page %d is done\n' $(seq 60) >"$run/input"
    # It dies on purpose.
    (cd "$run" && "$host" --input input --die report >/dev/null 2>&1) || true
    for target in "${fuzz_targets[@]}"; do
        mkdir -p "$corpus/$target"
        if [[ -d "fuzz/seeds/$target" ]]; then
            cp fuzz/seeds/"$target"/* "$corpus/$target"
        fi
    done
    head -c 2048 "$run/SysTrace.bin" >"$corpus/systrace/dump"
    head -c 2048 "$run/SysTrace Buffer" >"$corpus/systrace/segment"
    # A directory of eight records, those of the first ring that has any.
    {
        head -c 8 "$run/System Ring Buffers"
        printf '\x04\0\0\0\0\0\0\0\x04\0\0\0'
        head -c 4076 /dev/zero
        head -c 45312 "$run/System Ring Buffers" | tail -c 256
    } >"$corpus/ring_segment/segment"
    # Two looks: at a short block with all its entries, and at the same block again.
    {
        head -c 20 "$run/SysTrace Buffer"
        printf '\x20\0\0\0'
        head -c 172 "$run/SysTrace Buffer" | tail -c 148
        printf '\x1f\0\0\0'
        head -c 512 "$run/SysTrace Buffer" | tail -c 336
    } >"$run/block"
    cat "$run/block" "$run/block" >"$corpus/live_segments/blocks"
    cat "$corpus/ring_segment/segment" "$corpus/ring_segment/segment" >"$corpus/live_segments/rings"
    head -c 2048 "$run/SysTrace Buffer" >"$corpus/control/block"
    # A directory as it must be, and the records of the first ring that has any.
    head -c 46000 "$run/System Ring Buffers" >"$corpus/control/rings"
    head -c 2000 "$run/device.log" >"$corpus/text_log/device.log"
    head -c 1000 "$run/engine-history.txt" >"$corpus/queue_file/engine-history.txt"
    head -c 3000 "$run/rings.txt" >"$corpus/ring_text/rings-of-device.txt"
    head -c 3000 "$run/crash.txt" >"$corpus/crash_log/crash-of-device.txt"
    cp "$run/event-record.bin" "$corpus/event_record/event-record.bin"
    head -c 1000 "$run"/stacktrace*-1.txt >"$corpus/stack_trace/stacktrace.txt"
    # The same few lines in every form.
    head -c 600 "$run/device.log" >"$run/small.log"
    (cd "$run" && tar -cf small.tar small.log && tar -czf small.tar.gz small.log small.tar &&
        cmake -E tar cf small.zip --format=zip small.log && gzip -k small.log && xz -k small.log)
    cp "$run"/small.* "$corpus/archive"
    # A library of a function and one inlined in it, with all that a debugger wants to know.
    printf 'static inline int twice(int a) { return 2 * a; }\nint page(int a) { return twice(a) + 1; }\n' |
        clang-14 -x c -g -O1 -nostdlib -shared -o "$corpus/symbols/library.so" -
    rm -rf "$run"
}

# run_fuzzer BUILD SECONDS TARGET: an input that crashes stays in BUILD/artifacts.
run_fuzzer() {
    local build=$1 target=$3 log=$1/$3.log
    # The same seed every time, so that a run judges the change and not chance; FUZZ_SEED=0 takes another one.
    if "$build/fuzz/${target}_fuzz" -seed="${FUZZ_SEED:-1}" -max_total_time="$2" -rss_limit_mb=1024 -timeout=10 -max_len=16384 \
        -dict=fuzz/tokens.dict -artifact_prefix="$build/artifacts/$target-" -verbosity=1 \
        "$build/corpus/$target" >"$log" 2>&1; then
        printf '%-14s %s\n' "$target" "$(grep -m 1 '^Done' "$log" || true)"
    else
        printf '%-14s FAILED, output in %s\n%s\n' "$target" "$log" \
            "$(grep -E '^(==.*ERROR|SUMMARY)|runtime error|Test unit written' "$log" || tail -n 5 "$log")"
        return 1
    fi
}

# run_fuzzers BUILD SECONDS JOBS: runs every target for its share of the time of one core.
run_fuzzers() {
    local share=$(($2 / ${#fuzz_targets[@]}))
    ((share > 0)) || share=1
    mkdir -p "$1/artifacts"
    export -f run_fuzzer
    printf '%s\n' "${fuzz_targets[@]}" |
        xargs -n 1 -P "$3" bash -c "run_fuzzer $1 $share \"\$1\"" run_fuzzer
}

# simulator_stage PROGRAM: folders as devices write them, read as nima-post reads them, and compared with what was true.
# The same ones every time, so that a run judges the change and not chance; SIMULATOR_SEED=N takes others.
simulator_folders=8400
simulator_second_set=2100
simulator_stage() {
    local seed=${SIMULATOR_SEED:-1} result=0
    "$1" --set main --seed "$seed" --folders "$simulator_folders" || result=1
    "$1" --set second --seed "$seed" --folders "$simulator_second_set" || result=1
    return "$result"
}
