#!/usr/bin/env bash
# Builds libPXImageCutter on Debian 12 and runs it.
#
#   ./build.sh demo    the main job: build the host programs and cut out the shipped photo
#   ./build.sh test    every test: the optimised build, then the ASan+UBSan build
#   ./build.sh bench   build and run every benchmark (bench_quality adds grabCut to
#                      its table when the optional libopencv-dev is installed)
#   ./build.sh stress [N [SEED]]   N random host sessions (default 10000) under ASan+UBSan
#   ./build.sh fuzz [SECONDS]      each libFuzzer target for SECONDS (default 60), clang
#   ./build.sh tsan    the threaded tests under ThreadSanitizer
#   ./build.sh screenshot   render pxstudio with a cut in progress into docs/pxstudio.png
#   ./build.sh benchsuite   build and run the benchmark suite, write its markdown table
#   ./build.sh package      build and write the Debian packages into build/packages
#
# Installs what is missing with apt-get (run as root on a fresh machine).
set -euo pipefail
cd "$(dirname "$0")"

packages=(cmake ninja-build g++ pkg-config qt6-base-dev libgl-dev libbenchmark-dev libpng-dev libboost-graph-dev
    python3-dev pybind11-dev python3-numpy python3-pytest python3-pil dpkg-dev)

ensure_packages() {
    local missing=()
    for package in "${packages[@]}"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "ok installed" || missing+=("$package")
    done
    if ((${#missing[@]})); then
        echo "build.sh: installing ${missing[*]}"
        apt-get update -qq
        DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
    fi
}

build() {
    cmake --preset "$1"
    cmake --build --preset "$1"
}

# The fuzz targets need clang and its libFuzzer runtime; nothing else does.
if [[ "${1:-}" == fuzz ]]; then
    packages+=(clang libclang-rt-14-dev)
fi
ensure_packages
case "${1:-}" in
demo)
    build default
    ./build/default/examples/pxcut cut --compare --out out
    ;;
test)
    build default
    ctest --preset default
    build asan
    ctest --preset asan
    ;;
bench)
    build default
    for benchmark in build/default/bench/*/bench_*; do
        if [[ -f "$benchmark" && -x "$benchmark" ]]; then
            "$benchmark"
        fi
    done
    ;;
package)
    build default
    rm -rf build/packages
    cpack --config build/default/CPackConfig.cmake -B build/packages
    rm -rf build/packages/_CPack_Packages
    ls build/packages/*.deb
    ;;
screenshot)
    build default
    QT_QPA_PLATFORM=offscreen ./build/default/examples/pxstudio --screenshot docs/pxstudio.png
    ;;
benchsuite)
    packages=(jq)
    ensure_packages
    build default
    bench/run_suite.sh
    ;;
stress)
    cmake --preset asan
    cmake --build --preset asan --target px_stress
    ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
        LSAN_OPTIONS=suppressions=$PWD/cmake/lsan.supp QT_QPA_PLATFORM=offscreen \
        build/asan/tests/stress/px_stress "${2:-10000}" "${3:-1}"
    ;;
fuzz)
    # New crashes land in build/fuzz/crash-*; copy each into tests/data/fuzz/<target>.
    cmake --preset fuzz
    cmake --build --preset fuzz --target px_fuzz_slic px_fuzz_weights px_fuzz_refinedcut px_fuzz_pxcut
    for target in slic weights refinedcut pxcut; do
        mkdir -p "build/fuzz/corpus/$target"
        QT_QPA_PLATFORM=offscreen "build/fuzz/tests/fuzz/px_fuzz_$target" -max_total_time="${2:-60}" \
            -timeout=20 -rss_limit_mb=4096 -artifact_prefix="build/fuzz/crash-$target-" \
            "build/fuzz/corpus/$target" "tests/data/fuzz/$target"
    done
    ;;
tsan)
    tests=(tst_pxconcurrent tst_pxslic tst_refinedcut tst_matte tst_mattecontroller tst_imagesegmentation tst_segmentationrefinement
        tst_selectionmodel tst_initialsegmentationworker tst_pxintelligentscissors tst_pxintelligentscissorsworker
        tst_pxintelligentscissorsweightcalculator tst_pxintelligentscissorswirecalculator px_stress)
    cmake --preset tsan
    cmake --build --preset tsan --target "${tests[@]}"
    ctest --preset tsan -R 'pxconcurrent|tst_pxslic$|tst_refinedcut|tst_matte|segmentation|selectionmodel|initialsegmentationworker|scissors|stress'
    ;;
*)
    echo "usage: $0 demo|test|bench|package|screenshot|benchsuite|stress [N [SEED]]|fuzz [SECONDS]|tsan" >&2
    exit 2
    ;;
esac
