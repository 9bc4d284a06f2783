#!/usr/bin/env bash
# Installs what is missing, builds every configuration and runs all tests:
#   linux    native build (libVLMdApi.so), unit and process tests
#   examples install of the native build; examples/ built against it with
#            find_package and run against the simulators
#   asan     the same tests under AddressSanitizer + UndefinedBehaviorSanitizer
#   tsan     the same tests under ThreadSanitizer
#   windows  mingw-w64 cross build (VLMdApi.dll), tests under wine64; the
#            examples compiled against its install
#   fuzz     libFuzzer targets for a bounded time
# VLMD_PARTS="linux tsan" runs a subset. Each build is a preset of
# CMakePresets.json, its tree in build/<preset>; the test presets carry the
# sanitizers' options.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
parts=${VLMD_PARTS:-"linux examples asan tsan windows fuzz"}
jobs=${VLMD_JOBS:-$(nproc)}

"$root/scripts/install-deps.sh"

launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
# Paths relative to the checkout in the cache keys, so that a fresh clone in
# another folder reuses what an earlier run compiled.
export CCACHE_BASEDIR=$root CCACHE_NOHASHDIR=true

configure_and_build() {  # preset
  cmake --preset "$1" "${launcher[@]}" >/dev/null
  cmake --build --preset "$1" -j "$jobs"
}

run_ctest() {  # preset, extra ctest args...
  local preset=$1; shift
  ctest --preset "$preset" -j "$jobs" "$@"
}

examples=(minimal book_printer)

build_examples() {  # build dir, extra cmake args...
  local dir=$1; shift
  for ex in "${examples[@]}"; do
    cmake -S "$root/examples/$ex" -B "$dir/$ex" -G Ninja "${launcher[@]}" "$@" >/dev/null
    cmake --build "$dir/$ex" -j "$jobs"
  done
}

# Runs both examples for a few seconds each against the simulator's front and
# feed, each run apart (vlmd-sim --front-only, --feed-only), from a scratch
# folder (the library writes ./log/md), and checks that each exits with 0 and
# printed data.
run_examples() {  # simulator dir, examples build dir
  local tools=$1 built=$2 seconds=4
  local tmp; tmp=$(mktemp -d)
  local group=239.255.77.1 mport=$((30000 + $$ % 20000))
  "$tools/vlmd-sim" --front-only --listen 127.0.0.1:0 --quiet --duration 30 >"$tmp/front.txt" 2>&1 &
  local front=$!
  "$tools/vlmd-sim" --feed-only --group "$group:$mport" --quiet --duration 30 >"$tmp/feed.txt" 2>&1 &
  local feed=$!
  local port=""
  for _ in $(seq 50); do
    port=$(sed -n 's/^front tcp:.*:\([0-9]*\)$/\1/p' "$tmp/front.txt")
    [ -n "$port" ] && break
    sleep 0.1
  done
  local failed=0
  if [ -z "$port" ]; then
    echo "the front simulator did not start:"; cat "$tmp/front.txt"; failed=1
  fi
  local args=(--front "tcp://127.0.0.1:$port" --mcast "udp://$group:$mport" --interface 127.0.0.1
              --duration "$seconds")
  if ((!failed)); then
    (cd "$tmp" && "$built/minimal/vlmd-minimal" "${args[@]}" >minimal.txt 2>&1) || failed=1
    (cd "$tmp" && "$built/book_printer/vlmd-book-printer" "${args[@]}" >book.txt 2>&1) || failed=1
    grep -q '^md SZ 000001 ' "$tmp/minimal.txt" && grep -q '^tick order ' "$tmp/minimal.txt" &&
      grep -q '^tick trade ' "$tmp/minimal.txt" || failed=1
    grep -q '^book 000001 time ' "$tmp/book.txt" && grep -q '^book 300446 time ' "$tmp/book.txt" ||
      failed=1
    [ -d "$tmp/log/md" ] || failed=1
  fi
  kill "$front" "$feed" 2>/dev/null || true
  wait "$front" "$feed" 2>/dev/null || true
  if ((failed)); then
    for f in "$tmp"/*.txt; do echo "--- $f"; tail -n 30 "$f"; done
    rm -rf "$tmp"
    return 1
  fi
  echo "examples: $(grep -c '^md ' "$tmp/minimal.txt") market data, $(grep -c '^tick ' "$tmp/minimal.txt") ticks, $(grep -c '^book ' "$tmp/book.txt") books printed"
  rm -rf "$tmp"
}

for part in $parts; do
  echo "=== $part ==="
  case $part in
    linux)
      configure_and_build linux
      run_ctest linux
      ;;
    examples)
      # The library as a user gets it: installed, found by find_package.
      configure_and_build linux
      rm -rf build/install
      cmake --install build/linux --prefix "$root/build/install" >/dev/null
      build_examples build/examples -DCMAKE_PREFIX_PATH="$root/build/install"
      # And through pkg-config, the way a Makefile would.
      pc=(env PKG_CONFIG_PATH="$root/build/install/lib/pkgconfig" pkg-config)
      [ "$("${pc[@]}" --modversion vlmdapi)" = "$(sed -n 's/^project(VLMdApi VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)" ]
      # shellcheck disable=SC2046  # the flags are meant to split
      c++ -std=c++17 -o build/examples/minimal-pkgconfig examples/minimal/main.cpp \
        $("${pc[@]}" --cflags --libs vlmdapi) -Wl,-rpath,"$root/build/install/lib"
      run_examples "$root/build/linux/tools" "$root/build/examples"
      ;;
    asan)
      configure_and_build asan
      run_ctest asan
      ;;
    tsan)
      configure_and_build tsan
      run_ctest tsan
      ;;
    windows)
      configure_and_build windows
      export WINEDEBUG=-all WINEPREFIX=${WINEPREFIX:-$root/build/wineprefix}
      # The first start of a prefix sets it up; do that outside the timed tests.
      /usr/lib/wine/wine64 cmd /c exit >/dev/null 2>&1 || true
      run_ctest windows -j 2
      # The examples against the installed DLL, compiled only. The toolchain
      # searches packages under the mingw root alone, so the package's folder
      # is named directly.
      rm -rf build/install-windows
      cmake --install build/windows --prefix "$root/build/install-windows" >/dev/null
      build_examples build/examples-windows -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-x86_64.cmake" \
        -DVLMdApi_DIR="$root/build/install-windows/lib/cmake/VLMdApi"
      ;;
    fuzz)
      if [ -f "$root/tests/fuzz/CMakeLists.txt" ]; then
        configure_and_build fuzz
        "$root/tests/fuzz/run.sh" build/fuzz
      fi
      ;;
    *) echo "unknown part: $part" >&2; exit 2 ;;
  esac
done
echo "all parts passed: $parts"
