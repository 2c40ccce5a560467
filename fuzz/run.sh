#!/bin/sh
# Runs libFuzzer targets from a fuzzer build for a bounded time each and fails on any finding.
# usage: fuzz/run.sh BUILD_DIR [SECONDS] [TARGET...]   (targets default to all of them)
# Working corpora and findings go under BUILD_DIR/fuzz-work/<target>/; the committed seeds under
# fuzz/corpus/<target>/ are read, never written.
set -eu
build=$1
seconds=${2:-60}
shift $(( $# >= 2 ? 2 : $# ))
here=$(cd "$(dirname "$0")" && pwd)
targets=${*:-"segment sharedring viewfilter valueformat settings zelvisa visasim capturereader recordoptions pyvisatext zelcap timeline"}

export QT_QPA_PLATFORM=offscreen
export LSAN_OPTIONS="suppressions=$here/lsan.supp"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"

status=0
for t in $targets; do
    case $t in
        segment) maxlen=14600 ;;
        sharedring) maxlen=49400 ;;
        capturereader) maxlen=20000 ;;
        zelcap) maxlen=65536 ;;
        *) maxlen=4096 ;;
    esac
    work="$build/fuzz-work/$t"
    mkdir -p "$work/corpus" "$work/findings"
    echo "== fuzz_$t for ${seconds}s"
    if [ "$t" = pyvisatext ]; then
        # Python, not libFuzzer: random cases from a fresh seed, which a failure prints.
        if PYTHONPATH="$here/../python" /usr/bin/python3 "$here/fuzz_pyvisa_text.py" "$seconds" >"$work/log.txt" 2>&1; then
            cat "$work/log.txt"
        else
            echo "!! fuzz_$t found a fault; log: $work/log.txt"
            tail -1 "$work/log.txt"
            status=1
        fi
        continue
    fi
    if "$build/fuzz/fuzz_$t" -max_total_time="$seconds" -max_len="$maxlen" -timeout=10 -rss_limit_mb=3072 \
        -print_final_stats=1 -artifact_prefix="$work/findings/" "$work/corpus" "$here/corpus/$t" \
        >"$work/log.txt" 2>&1; then
        grep -E '^stat::number_of_executed_units|^Done' "$work/log.txt" || true
    else
        echo "!! fuzz_$t found a fault; log: $work/log.txt, input: $(ls "$work/findings" | head -1)"
        grep -m1 -E 'ERROR|runtime error|SUMMARY' "$work/log.txt" || true
        status=1
    fi
done
exit $status
