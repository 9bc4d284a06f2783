#!/usr/bin/env bash
# Installs what is missing, builds every configuration and runs all tests:
#   linux    native build (libVLMdApi.so), unit and process tests
#   asan     the same tests under AddressSanitizer + UndefinedBehaviorSanitizer
#   tsan     the same tests under ThreadSanitizer
#   windows  mingw-w64 cross build (VLMdApi.dll), tests under wine64
#   fuzz     libFuzzer targets for a bounded time
# VLMD_PARTS="linux tsan" runs a subset. Build trees go to build/<part>.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
parts=${VLMD_PARTS:-"linux asan tsan windows fuzz"}
jobs=${VLMD_JOBS:-$(nproc)}

"$root/scripts/install-deps.sh"

launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)

configure() {  # dir, extra cmake args...
  local dir=$1; shift
  cmake -S "$root" -B "$dir" -G Ninja "${launcher[@]}" "$@" >/dev/null
}

run_ctest() {  # dir, extra ctest args...
  local dir=$1; shift
  ctest --test-dir "$dir" --output-on-failure -j "$jobs" "$@"
}

for part in $parts; do
  echo "=== $part ==="
  case $part in
    linux)
      configure build/linux -DCMAKE_BUILD_TYPE=RelWithDebInfo
      cmake --build build/linux -j "$jobs"
      run_ctest build/linux
      ;;
    asan)
      configure build/asan -DCMAKE_BUILD_TYPE=Debug -DVLMD_SANITIZE=address -DVLMD_BUILD_BENCH=OFF
      cmake --build build/asan -j "$jobs"
      ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 run_ctest build/asan
      ;;
    tsan)
      configure build/tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVLMD_SANITIZE=thread -DVLMD_BUILD_BENCH=OFF
      cmake --build build/tsan -j "$jobs"
      TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" run_ctest build/tsan
      ;;
    windows)
      configure build/windows -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-x86_64.cmake" \
        -DCMAKE_BUILD_TYPE=RelWithDebInfo
      cmake --build build/windows -j "$jobs"
      export WINEDEBUG=-all WINEPREFIX=${WINEPREFIX:-$root/build/wineprefix}
      # The first start of a prefix sets it up; do that outside the timed tests.
      /usr/lib/wine/wine64 cmd /c exit >/dev/null 2>&1 || true
      run_ctest build/windows -j 2
      ;;
    fuzz)
      if [ -f "$root/tests/fuzz/CMakeLists.txt" ]; then
        configure build/fuzz -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
          -DVLMD_BUILD_FUZZ=ON -DVLMD_BUILD_TESTS=OFF -DVLMD_BUILD_BENCH=OFF -DVLMD_BUILD_TOOLS=OFF
        cmake --build build/fuzz -j "$jobs"
        "$root/tests/fuzz/run.sh" build/fuzz
      fi
      ;;
    *) echo "unknown part: $part" >&2; exit 2 ;;
  esac
done
echo "all parts passed: $parts"
