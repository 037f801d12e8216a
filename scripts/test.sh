#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: the suites in a normal
# build, the same suites under AddressSanitizer and UBSan, and the fuzz targets
# for a bounded time (ORVEX_FUZZ_SECONDS each, 60 by default).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

jobs=$(nproc)
fuzz_seconds=${ORVEX_FUZZ_SECONDS:-60}
export QT_QPA_PLATFORM=offscreen
export XDG_RUNTIME_DIR=${XDG_RUNTIME_DIR:-$(mktemp -d)}
export ORVEX_DAEMON_BUS=session

echo "== Build and test"
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$jobs"
# A private session bus for the D-Bus tests; nothing touches the machine's own.
dbus-run-session -- ctest --test-dir build --output-on-failure -j "$jobs"

echo "== Build and test under AddressSanitizer and UBSan"
# Without the update check (so the build option stays honest) and without
# Qt WebEngine, so that LeakSanitizer never walks Chromium.
cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DORVEX_SANITIZE=ON \
    -DORVEX_BUILD_BENCH=OFF -DORVEX_UPDATE_CHECK=OFF -DORVEX_WEBENGINE=OFF >/dev/null
cmake --build build-asan -j "$jobs"
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    dbus-run-session -- ctest --test-dir build-asan --output-on-failure -j "$jobs"

echo "== Fuzz for ${fuzz_seconds} s a target"
CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DORVEX_FUZZ=ON -DORVEX_WEBENGINE=OFF >/dev/null
# Only the fuzz targets and the libraries under them: the window and the
# tools were built and tested twice already.
fuzz_targets=$(cd tests/fuzz && ls fuzz_*.cpp | sed 's/\.cpp$//')
# shellcheck disable=SC2086 # one word a target
cmake --build build-fuzz -j "$jobs" --target $fuzz_targets
artifacts=$(mktemp -d)
for target in build-fuzz/tests/fuzz/fuzz_*; do
    [ -f "$target" ] && [ -x "$target" ] || continue
    name=$(basename "$target")
    corpus=$(mktemp -d)
    cp tests/fuzz/corpus/"${name#fuzz_}"/* "$corpus"/
    # The property lists other software wrote, malformed ones included; a
    # shared fixture folder beside the checkout may hold more.
    for fixtures in tests/fixtures/plist ../shared/fixtures/plist; do
        if [ -d "$fixtures" ]; then
            find "$fixtures" -type f ! -name '*.md' -exec cp {} "$corpus"/ \;
        fi
    done
    echo "-- $name"
    set +e
    # Inputs capped at 8 KB: uncapped, the inputs grow to tens of kilobytes
    # and the run slows from thousands of inputs a second to hundreds.
    "$target" -max_total_time="$fuzz_seconds" -max_len=8192 -rss_limit_mb=2048 -timeout=10 \
        -print_final_stats=1 -artifact_prefix="$artifacts/" "$corpus" >"$artifacts/$name.log" 2>&1
    status=$?
    set -e
    grep -E '^stat::(number_of_executed_units|peak_rss_mb)' "$artifacts/$name.log" || true
    rm -rf "$corpus"
    if [ $status -ne 0 ]; then
        # libFuzzer stops with non-zero on a crash, a leak, a timeout or running out of memory.
        tail -n 60 "$artifacts/$name.log"
        echo "$name found a failing input; it is in $artifacts"
        exit 1
    fi
done
echo "== All tests passed"
