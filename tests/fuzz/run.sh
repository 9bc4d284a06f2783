#!/usr/bin/env bash
# Runs every fuzz target of a VLMD_BUILD_FUZZ build for a bounded time, the
# budget (VLMD_FUZZ_SECONDS, default 55) shared among them. The checked-in
# seeds are read, never written: new inputs go to a scratch folder. Exits
# non-zero on a finding; the input that found it lands in <builddir>/fuzz-artifacts.
set -euo pipefail
build=${1:?usage: run.sh <builddir>}
here=$(cd "$(dirname "$0")" && pwd)
budget=${VLMD_FUZZ_SECONDS:-55}

mapfile -t targets < <(find "$build/tests/fuzz" -maxdepth 1 -type f -name 'fuzz_*' -perm -u+x | sort)
if [ ${#targets[@]} -eq 0 ]; then
  echo "no fuzz targets in $build/tests/fuzz" >&2
  exit 1
fi
per=$(( budget / ${#targets[@]} ))
[ "$per" -ge 1 ] || per=1

artifacts="$build/fuzz-artifacts"
mkdir -p "$artifacts"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

for target in "${targets[@]}"; do
  name=$(basename "$target")
  name=${name#fuzz_}
  corpus=("$scratch/$name")
  mkdir -p "$scratch/$name"
  # Seeds of a target live in corpus/<name> (the stream target's in corpus/front).
  for seeds in "$here/corpus/$name" "$here/corpus/${name%%_*}"; do
    if [ -d "$seeds" ]; then corpus+=("$seeds"); break; fi
  done
  echo "=== fuzz $name: ${per}s"
  # close_fd_mask=3: the target's own prints of framing errors would flood the
  # output; libFuzzer and the sanitizers keep reporting on their own stream.
  log="$scratch/$name.log"
  if ! "$target" -max_total_time="$per" -timeout=10 -close_fd_mask=3 -print_final_stats=1 \
      -artifact_prefix="$artifacts/$name-" "${corpus[@]}" >"$log" 2>&1; then
    tail -n 60 "$log"
    echo "fuzz $name: finding, see $artifacts" >&2
    exit 1
  fi
  tail -n 12 "$log"
done
echo "fuzz: no findings"
