#!/usr/bin/env bash
# The demo: builds the simulator and the console client (Linux build in
# build/linux), starts vlmd-sim on loopback, and runs vlmd-console against it
# for a while, subscribed to the market data, ticks and books of the Shenzhen
# stocks, with one book shown live beside the simulator's true book. Then it
# prints the console's summary and stops the simulator.
#
#   VLMD_DEMO_SECONDS   how long the console runs (default 30)
#   VLMD_DEMO_VIEW      the book shown live (default 000001)
#   VLMD_DEMO_KEEP=1    keep the temporary folder (the library's log in log/md)
#   VLMD_JOBS           build jobs (default: the number of processors)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=$root/build/linux
seconds=${VLMD_DEMO_SECONDS:-30}
view=${VLMD_DEMO_VIEW:-000001}
stocks=000001,002415,300446

if [ ! -f "$build/build.ninja" ]; then
  launcher=()
  command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  cmake -S "$root" -B "$build" -G Ninja "${launcher[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
echo "building vlmd-sim and vlmd-console in $build"
cmake --build "$build" -j "${VLMD_JOBS:-$(nproc)}" --target vlmd-sim vlmd-console >/dev/null

# The library writes ./log/md: give the console a folder of its own.
work=$(mktemp -d "${TMPDIR:-/tmp}/vlmd-demo.XXXXXX")
sim_pid=""
cleanup() {
  if [ -n "$sim_pid" ] && kill -0 "$sim_pid" 2>/dev/null; then
    kill "$sim_pid" 2>/dev/null || true
    wait "$sim_pid" 2>/dev/null || true
  fi
  if [ "${VLMD_DEMO_KEEP:-0}" = 1 ]; then
    echo "kept $work (the library's log is in $work/log/md)"
  else
    rm -rf "$work"
  fi
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# A group of its own, so that two demos on one machine don't hear each other.
group="239.255.$((RANDOM % 254 + 1)).$((RANDOM % 254 + 1)):30001"
"$build/tools/vlmd-sim" --listen 127.0.0.1:0 --group "$group" --snapshot-ms 1000 \
  --true-book "$view" --true-book-file "$work/true-book.txt" >"$work/sim.out" 2>&1 &
sim_pid=$!

# The simulator prints "front tcp://127.0.0.1:PORT" once it listens.
front=""
for _ in $(seq 100); do
  front=$(sed -n 's/^front \(tcp:\/\/[0-9.]*:[0-9]*\)$/\1/p' "$work/sim.out")
  [ -n "$front" ] && break
  if ! kill -0 "$sim_pid" 2>/dev/null; then
    cat "$work/sim.out" >&2
    echo "run-demo: vlmd-sim ended early" >&2
    exit 1
  fi
  sleep 0.1
done
if [ -z "$front" ]; then
  echo "run-demo: vlmd-sim printed no front address" >&2
  exit 1
fi
feed=$(sed -n 's/^feed \(udp:\/\/.*\)$/\1/p' "$work/sim.out")
echo "vlmd-sim: front $front, feed $feed (pid $sim_pid)"

status=0
(cd "$work" && "$build/tools/vlmd-console" --front "$front" --mcast "$feed" \
  --interface 127.0.0.1 --md "$stocks" --ticks "$stocks" --books "$stocks" \
  --view "$view" --true-book-file "$work/true-book.txt" --duration "$seconds") || status=$?

kill "$sim_pid" 2>/dev/null || true
wait "$sim_pid" 2>/dev/null || true
sim_pid=""
tail -n 1 "$work/sim.out"
exit "$status"
