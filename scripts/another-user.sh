#!/usr/bin/env bash
# Measures what another local user can do to the real program and to traced programs of this user:
# `nobody` keeps re-taking the segment lock (a traced call's times), then sets the shared ring's
# semaphore to 0 and leaves (a recorder starting and ending, the program quitting on SIGTERM and
# switching tracing off). Root only (setpriv); runs in private IPC, /dev/shm and /tmp
# (shared/tools/iso) with its own X server, since the program always uses the product's names.
# Usage: scripts/another-user.sh [--build DIR]   (the build's tests/hostile/tst_hostile is the other user)
set -euo pipefail

BUILD=build
while [ $# -gt 0 ]; do
    case "$1" in
    --build) BUILD=$2; shift 2 ;;
    *) echo "usage: $0 [--build DIR]" >&2; exit 2 ;;
    esac
done
ROOT=$(cd "$(dirname "$0")/.." && pwd)
BUILD=$(cd "$BUILD" && pwd)
WORK=$(mktemp -d "$BUILD/another-user.XXXXXX") # outside /tmp, which iso replaces
trap 'rm -rf "$WORK"' EXIT

# A traced program: one call a millisecond for the given seconds, each timed.
cat >"$WORK/traced.c" <<'EOF'
#include "zeltrace.h"
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
static double now(void)
{
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t.tv_sec + t.tv_nsec * 1e-9;
}
static int less(const void* a, const void* b)
{
    const double x = *(const double*)a, y = *(const double*)b;
    return (x > y) - (x < y);
}
int main(int argc, char** argv)
{
    const int calls = atoi(argv[1]) * 1000;
    double* took = malloc(sizeof(double) * calls);
    double inside = 0;
    const double begin = now();
    for (int i = 0; i < calls; ++i) {
        const double start = now();
        zeltrace_record(zeltrace_next_id(), ZELTRACE_CALL, 1, "TCPIP0::10.0.0.5::INSTR", 0, 0.0, "viWrite(1)");
        took[i] = now() - start;
        inside += took[i];
        struct timespec pause = {0, 1000000};
        nanosleep(&pause, NULL);
    }
    const double total = now() - begin;
    qsort(took, calls, sizeof(double), less);
    zeltrace_counters c;
    zeltrace_get_counters(&c);
    printf("traced program: %d calls, longest %.2f ms, 99th percentile %.3f ms, median %.4f ms, %.2f of %.1f s "
           "inside them; %llu written, %llu dropped\n",
           calls, took[calls - 1] * 1e3, took[calls * 99 / 100] * 1e3, took[calls / 2] * 1e3, inside, total,
           (unsigned long long)c.written, (unsigned long long)c.dropped);
    return 0;
}
EOF
cat >"$WORK/enabled.c" <<'EOF'
#include "zeltrace.h"
#include <stdio.h>
int main(void)
{
    printf("tracing after the program quit: %s\n", zeltrace_enabled() ? "on" : "off");
    return 0;
}
EOF
for p in traced enabled; do
    cc -O2 -I"$ROOT/zeltrace" "$WORK/$p.c" -L"$BUILD/zeltrace" -lzeltrace -Wl,-rpath,"$BUILD/zeltrace" -o "$WORK/$p"
done
chmod 755 "$WORK"

sh "$ROOT/../shared/tools/iso" bash -c '
    set -eu
    BUILD=$1; WORK=$2
    OTHER="setpriv --reuid=65534 --regid=65534 --clear-groups $BUILD/tests/hostile/tst_hostile"
    ms() { echo $(( ($(date +%s%N) - $1) / 1000000 )); }
    Xvfb :79 -screen 0 1280x1024x24 >/dev/null 2>&1 &
    XVFB=$!
    sleep 0.5
    DISPLAY=:79 "$BUILD/app/ZelVisaTraceTool" -t >/dev/null 2>&1 &
    TOOL=$!
    sleep 3

    echo "-- nobody keeps re-taking the segment lock for 12 s"
    $OTHER --hog "/ZelTracerSharedMemoryMutex;" 12000 >/dev/null &
    HOG=$!
    sleep 0.5
    "$WORK/traced" 10 2>/dev/null
    wait "$HOG"

    echo "-- nobody sets the shared ring semaphore to 0 and leaves"
    $OTHER --zero-ring ZelTraceTool5.12.9_0
    t=$(date +%s%N)
    "$BUILD/tools/zel-record" -o "$WORK/r.csv" --duration 2 -q
    echo "zel-record --duration 2: started and ended in $(ms $t) ms"
    t=$(date +%s%N)
    kill -TERM "$TOOL"
    wait "$TOOL" || true
    echo "the program quit $(ms $t) ms after SIGTERM"
    "$WORK/enabled"
    kill "$XVFB" 2>/dev/null || true
' another "$BUILD" "$WORK"
