#!/usr/bin/env bash
# Builds libPXImageCutter on Debian 12 and runs it.
#
#   ./build.sh demo    the main job: build the host programs and cut out the shipped photo
#   ./build.sh test    every test: the optimised build, then the ASan+UBSan build
#   ./build.sh bench   build and run every benchmark (bench_quality adds grabCut to
#                      its table when the optional libopencv-dev is installed)
#   ./build.sh screenshot   render pxstudio with a cut in progress into docs/pxstudio.png
#   ./build.sh benchsuite   build and run the benchmark suite, write its markdown table
#
# Installs what is missing with apt-get (run as root on a fresh machine).
set -euo pipefail
cd "$(dirname "$0")"

packages=(cmake ninja-build g++ pkg-config qt6-base-dev libgl-dev libbenchmark-dev zlib1g-dev libboost-graph-dev)

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
*)
    echo "usage: $0 demo|test|bench|screenshot|benchsuite" >&2
    exit 2
    ;;
esac
