#!/bin/sh
# Soak run: the real program (`ZelVisaTraceTool -t`) under Xvfb with the traffic generator at a high
# rate for a given time, while rows are clicked, the keyboard moves through the table, quick filters
# are added and the collapse option is toggled. Reports records written and dropped (generator),
# taken and counted as lost (the tool, at its quit), rows shown, peak RSS, CPU and whether the
# program survived.
#
# usage: scripts/soak.sh [--minutes N] [--rate N] [--processes N] [--threads N] [--build DIR]
#
# The counts come from a soak build of the program (CMake option ZEL_SOAK_BUILD, which the program
# people run does not have): the script configures and builds one in DIR (default build-soak).
#
# The program always uses the product's segment key, semaphores and shared ring, so the run happens
# inside an isolation wrapper (private System V IPC, /dev/shm, /tmp and settings): ISO names it
# (default /work/shared/tools/iso). Without one the script refuses to run unless ISO=none is given,
# which would meet a tool the user has running.
set -eu

minutes=1
rate=2000
processes=4
threads=2
build=build-soak
while [ $# -gt 0 ]; do
    case $1 in
        --minutes) minutes=$2; shift 2 ;;
        --rate) rate=$2; shift 2 ;;
        --processes) processes=$2; shift 2 ;;
        --threads) threads=$2; shift 2 ;;
        --build) build=$2; shift 2 ;;
        *) echo "unknown option $1" >&2; exit 2 ;;
    esac
done
here=$(cd "$(dirname "$0")" && pwd)

if [ -z "${ZEL_SOAK_INNER:-}" ]; then
    cmake -S "$here/.." -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZEL_SOAK_BUILD=ON >/dev/null
    cmake --build "$build" -j "$(nproc)" --target ZelVisaTraceTool zel-traffic >/dev/null
fi
build=$(cd "$build" && pwd)

if [ -z "${ZEL_SOAK_INNER:-}" ]; then
    # Installed outside the wrapper: inside it there is no network.
    if ! command -v xdotool >/dev/null 2>&1; then
        sudo_cmd=""
        [ "$(id -u)" -ne 0 ] && sudo_cmd=sudo
        $sudo_cmd apt-get install -y -qq --no-install-recommends xdotool >/dev/null
    fi
    iso=${ISO:-/work/shared/tools/iso}
    if [ "$iso" = none ]; then
        exec env ZEL_SOAK_INNER=1 "$0" --minutes "$minutes" --rate "$rate" --processes "$processes" \
            --threads "$threads" --build "$build"
    fi
    [ -x "$iso" ] || { echo "no isolation wrapper at $iso (set ISO=...)" >&2; exit 2; }
    exec "$iso" env ZEL_SOAK_INNER=1 "$0" --minutes "$minutes" --rate "$rate" --processes "$processes" \
        --threads "$threads" --build "$build"
fi

# ---- Inside the wrapper ----
work=$(mktemp -d /tmp/zelsoak.XXXXXX)
export DISPLAY=:71
Xvfb "$DISPLAY" -screen 0 1600x1000x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
trap 'kill $xvfb 2>/dev/null || true' EXIT
i=0
until xdotool getdisplaygeometry >/dev/null 2>&1; do
    i=$((i + 1)); [ $i -gt 100 ] && { echo "Xvfb did not start" >&2; exit 1; }
    sleep 0.1
done

# The Windows style lets Alt walk the menu bar, which the collapse toggle below needs.
ZEL_SOAK_REPORT="$work/report.txt" "$build/program/ZelVisaTraceTool" -t -style windows >"$work/tool.log" 2>&1 &
tool=$!
window=$(xdotool search --sync --onlyvisible --name 'ZelVisaTraceTool' | head -1)
xdotool windowsize "$window" 1500 900 windowmove "$window" 0 0 windowfocus "$window"
sleep 1

seconds=$((minutes * 60))
"$build/tools/zel-traffic" --duration "$seconds" --rate "$rate" --processes "$processes" --threads "$threads" \
    --quiet >"$work/traffic.txt" 2>&1 &
traffic=$!
start=$(date +%s)

# What a person does while watching: click rows, move with the keyboard, add a highlight from the
# row menu now and then, toggle collapsing. Escape closes whatever a stray key opened.
n=0
while kill -0 $traffic 2>/dev/null && kill -0 $tool 2>/dev/null; do
    n=$((n + 1))
    y=$((150 + (n * 37) % 600))
    # Real input events (XTEST) to the focused window; there is no window manager to raise it.
    xdotool windowfocus "$window" mousemove 400 "$y" click 1
    case $((n % 6)) in
        0) xdotool key Down Down Down Page_Up ;;
        1) xdotool key End Up Up ;;
        2) xdotool mousemove 400 "$y" click 3 sleep 0.3 key Down Return ;;
        3) xdotool key Home Page_Down ;;
        4) xdotool key alt sleep 0.2 key Right Right Down Up Right Return ;;
        5) xdotool key ctrl+a ;;
    esac
    xdotool key Escape Escape
    sleep 0.5
done
wait $traffic || true
elapsed=$(($(date +%s) - start))

survived=no
kill -0 $tool 2>/dev/null && survived=yes
ticks=$(awk '{print $14 + $15}' /proc/$tool/stat 2>/dev/null || echo 0)
hz=$(getconf CLK_TCK)
peak=$(awk '/VmHWM/ {print $2 " " $3}' /proc/$tool/status 2>/dev/null || echo "?")
kill -TERM $tool 2>/dev/null || true
i=0
while kill -0 $tool 2>/dev/null && [ $i -lt 100 ]; do i=$((i + 1)); sleep 0.1; done
exitcode=0
wait $tool || exitcode=$?

written=$(awk '/written/ {for (i = 1; i < NF; i++) if ($i == "written") print $(i + 1)}' "$work/traffic.txt" | tail -1)
dropped=$(awk '/dropped/ {for (i = 1; i < NF; i++) if ($i == "dropped") print $(i + 1)}' "$work/traffic.txt" | tail -1)
echo "soak: ${elapsed}s, $processes processes x $threads threads at $rate records/s each, $n interaction rounds"
echo "generator: written ${written:-?} dropped by producers ${dropped:-?}"
if [ -f "$work/report.txt" ]; then
    sed 's/^/tool: /' "$work/report.txt"
else
    echo "tool: no report (it did not quit through its quit path)"
fi
echo "peak RSS: $peak"
echo "CPU: $(awk -v t="$ticks" -v hz="$hz" -v s="$elapsed" 'BEGIN { if (s > 0) printf "%.1f%% of one core", 100 * t / hz / s }')"
echo "survived: $survived (exit status after SIGTERM: $exitcode)"
[ "$survived" = yes ]
