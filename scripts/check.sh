#!/usr/bin/env bash
# Runs the named suites of checks, or all of them; --list tells which there are.
set -euo pipefail

cd "$(dirname "$0")/.."
jobs=$(nproc)

list="default     the release build and all its tests, with g++
clang       the same with clang
O0          the tests without optimisation
asan-ubsan  the tests under the address and undefined-behaviour sanitizers, with clang
tsan        concurrent calls under the thread sanitizer
levels      every instruction-set level built alone
symbols     what the binaries hold: both compilers at -O0 and -O2, and both ARM targets
install     C and C++ programs built against the installed library in every way
old-cpus    x86-64 processors without AVX2 or AVX-512, in qemu
qemu-arm    the tests on 32-bit ARM in qemu, and the level chosen without NEON
qemu-arm64  all tests on 64-bit ARM in qemu
valgrind    the operation tests and the command under valgrind
lint        formatting, clang-tidy and shellcheck"

deps() { scripts/install-deps.sh build "$@"; }

# Kernels that place programs too freely leave the thread sanitizer no room for its own memory.
fixed=()
setarch -R true 2>/dev/null && fixed=(setarch -R)

# Output is kept back; of a failure all is shown but the tests that passed.
log=$(mktemp)
trap 'rm -f "$log"' EXIT
quietly() {
  local status=0
  "${fixed[@]}" "$@" >"$log" 2>&1 </dev/null || status=$?
  if ((status)); then
    grep -vE '^ *Start +[0-9]+:| Passed +[0-9.]+ sec$|^\[[0-9]+/[0-9]+\] (Build|Link)ing' "$log" |
      tail -n 200
    echo "Failed: $*"
  fi
  return "$status"
}

build() { # PRESET [TARGET...]
  quietly cmake --preset "$1"
  quietly cmake --build --preset "$1" ${2:+--target "${@:2}"}
}

tests() { # PRESET [CTEST OPTION...]
  quietly ctest --preset "$1" -j "$jobs" "${@:2}"
  echo "$1: $(grep 'tests passed' "$log")"
}

build_and_test() {
  build "$1"
  tests "$@"
}

# Runs a GoogleTest program in as many parts at once as there are processors.
in_parts() { # COMMAND...
  quietly xargs -P "$jobs" -I{} -a <(seq 0 $((jobs - 1))) \
    env "GTEST_TOTAL_SHARDS=$jobs" GTEST_SHARD_INDEX={} "$@"
  grep '  PASSED  ' "$log"
}

# Fails unless the library chooses LEVEL where COMMAND runs the program that prints its choice.
chooses() { # LEVEL COMMAND...
  quietly "${@:2}"
  local level
  level=$(grep -v warning: "$log")
  echo "${*:2}: $level"
  [[ $level == "$1" ]]
}

suite_default() {
  deps tool test
  build_and_test default
}

suite_clang() {
  deps tool test clang
  build_and_test clang
}

suite_O0() {
  deps tool test
  build_and_test O0 -LE exhaustive
}

suite_asan-ubsan() {
  deps tool test clang
  build_and_test asan-ubsan-clang -LE exhaustive
}

suite_tsan() {
  deps tool test
  build tsan threads
  tests tsan -R '^interface.threads$'
}

# The kernels are the ones tested beside each other elsewhere; what differs here is the choice. The
# baseline alone, as for a C library without load-time choice, runs all the same.
suite_levels() {
  deps test arm qemu
  build_and_test level-baseline -LE exhaustive
  local level parts=(rast rast_static layout_C layout_CXX level threads)
  for level in level-avx2 level-avx512 arm-baseline arm-neon; do
    build "$level" "${parts[@]}"
    if [[ $level == arm-* ]] || grep -qwE "${level#*-}|${level#*-}_?vbmi" /proc/cpuinfo; then
      tests "$level" -R '^interface'
    else
      echo "$level: built only; this processor does not run it"
    fi
  done
}

suite_symbols() {
  deps test clang arm aarch64
  local target optimise compiler build
  for target in gcc clang armhf aarch64; do
    case $target in
      gcc) compiler=(-DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++) ;;
      clang) compiler=(-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++) ;;
      *) compiler=("-DCMAKE_TOOLCHAIN_FILE=$PWD/cmake/$target.cmake") ;;
    esac
    for optimise in -O0 -O2; do
      build=build/symbols/$target$optimise
      quietly cmake -S . -B "$build" -G Ninja -DRAST_TOOL=OFF -DRAST_WERROR=ON \
        -DCMAKE_BUILD_TYPE=None "-DCMAKE_CXX_FLAGS=$optimise" "${compiler[@]}"
      quietly cmake --build "$build"
      quietly tests/interface/check_binary.py include/rast.h "$build"/src/librast.{so,a}
      cat "$log"
    done
  done
}

suite_install() {
  deps tool test
  build_and_test default -R '^interface.install$'
}

suite_old-cpus() {
  deps tool test qemu
  build default level operations
  local cpu level
  for cpu in Nehalem:baseline Haswell:avx2; do
    level=${cpu#*:}
    cpu=${cpu%:*}
    chooses "$level" qemu-x86_64 -cpu "$cpu" build/default/tests/interface/level
    in_parts qemu-x86_64 -cpu "$cpu" build/default/tests/operations/operations \
      "--gtest_filter=*$level*"
  done
}

suite_qemu-arm() {
  deps test arm qemu
  build_and_test arm -LE exhaustive
  local level=(qemu-arm -L /usr/arm-linux-gnueabihf)
  chooses neon "${level[@]}" -cpu cortex-a9 build/arm/tests/interface/level
  chooses baseline "${level[@]}" -cpu cortex-a9,neon=off build/arm/tests/interface/level
}

suite_qemu-arm64() {
  deps test aarch64 qemu
  build_and_test aarch64
}

suite_valgrind() {
  deps tool test valgrind
  build default
  local memcheck=(valgrind --quiet --error-exitcode=9 --leak-check=full)
  in_parts "${memcheck[@]}" build/default/tests/operations/operations
  quietly scripts/draw_page.py --gray --width 300 --height 200 build/default/page.pgm
  quietly "${memcheck[@]}" build/default/tool/rast expgamma --gain 300 build/default/page.{pgm,png}
  echo "The command: no errors."
}

suite_lint() {
  deps tool test clang lint
  local files
  mapfile -t files < <(find bench include src tests tool -regex '.*\.\(c\|h\|cpp\|inl\)')
  quietly clang-format --dry-run -Werror "${files[@]}"
  quietly cmake --preset clang
  quietly run-clang-tidy -quiet -j "$jobs" -p build/clang "^$PWD/(src|tool)/"
  quietly shellcheck scripts/*.sh .ci/run
  echo "${#files[@]} files formatted, clang-tidy and shellcheck have nothing to say."
}

if [[ ${1:-} == --list ]]; then
  echo "$list"
  exit 0
fi
mapfile -t all < <(awk '{print $1}' <<<"$list")
suites=("$@")
((${#suites[@]})) || suites=("${all[@]}")
for suite in "${suites[@]}"; do
  if [[ " ${all[*]} " != *" $suite "* ]]; then
    echo "check.sh: no suite '$suite'; there are: ${all[*]}" >&2
    exit 2
  fi
done

passed=0
failed=()
for suite in "${suites[@]}"; do
  echo "== $suite"
  started=$SECONDS
  # In a shell of its own: tested by if or ||, a function would go on after an error.
  set +e
  (
    set -e
    "suite_$suite"
  )
  status=$?
  set -e
  if ((status == 0)); then
    passed=$((passed + 1))
    echo "== $suite passed, $((SECONDS - started)) s"
  else
    failed+=("$suite")
    echo "== $suite FAILED, $((SECONDS - started)) s"
  fi
done
((${#failed[@]} == 0)) || echo "Failed: ${failed[*]}"
echo "$passed passed, ${#failed[@]} failed"
((${#failed[@]} == 0))
