#!/usr/bin/env bash
# Runs the named suites of checks, or all of them; --short all but the long ones, --list tells which
# there are and what each takes. A Markdown table of what each has shown ends the report; with --store
# first, and where all pass, its rows replace those of docs/verification.md.
set -euo pipefail

cd "$(dirname "$0")/.."
jobs=$(nproc)

# Name, length, and what the suite shows.
list="default       short  The release build does all that its tests ask, with g++
clang         long   The same with clang
O0            long   No test depends on optimization
asan-ubsan    short  No test makes the library or the command do anything undefined, or leave its memory
tsan          short  Concurrent calls share nothing that is written, and the threads of the command nothing unguarded
levels        short  Every instruction-set level works alone
simulated     short  The AVX-512 level gives the same bytes, on simulated instructions, whatever the processor
old-cpus      short  Processors without AVX2 or AVX-512 get, and run, a level of theirs
i386          short  32-bit x86 gives the same bytes
qemu-arm      short  32-bit ARM gives the same bytes, with NEON and without
qemu-arm64    short  64-bit ARM gives the same bytes
big-endian    long   Big-endian machines of 32 and 64 bits give the same bytes
musl          short  The library needs no GNU C library
symbols       short  Nothing else is exported, imported or writable, whatever compiles it; binaries are hardened
abi           short  The interface is the stored one, and a build can be repeated to the byte
install       short  C and C++ programs build against the installed library in every way
coverage      short  Every line and branch of the library is run
queue         short  The command works as a filter behind those of a real print queue
reference     short  The reference of the interface is complete
gallery       short  Each picture of the gallery is what its command makes; its page works in a browser
playground    short  The library in a browser gives the command's bytes
valgrind      short  Neither the library nor the command reads what is not set
lint          short  Formatting and static analysis have nothing to say
compilers     long   g++ and clang give the same bytes at every optimization, char signed or not
msan          short  No result depends on memory that is not set
fuzz          long   What fuzzers find is the same at every level, or refused by the command (FUZZ_SECONDS each)
differential  long   Random calls make no difference between levels (CALLS)
packages      long   Debian packages install, work and vanish in a fresh system, and can be built again to the byte
mutation      long   The tests notice changes of the sources (MUTANTS of them; 0: all)"

deps() { scripts/install-deps.sh build "$@"; }

# Kernels that place programs too freely leave the thread sanitizer no room for its own memory.
fixed=()
setarch -R true 2>/dev/null && fixed=(setarch -R)

# Output is kept back; of a failure all is shown but the tests that passed.
log=$(mktemp)
figures=$(mktemp)
table=$(mktemp)
trap 'rm -f "$log" "$figures" "$table"' EXIT
quietly() {
  local status=0
  "${fixed[@]}" "$@" >"$log" 2>&1 || status=$?
  if ((status)); then
    grep -vE '^ *Start +[0-9]+:| Passed +[0-9.]+ sec$|^\[[0-9]+/[0-9]+\] (Build|Link)ing' "$log" |
      tail -n 200
    echo "Failed: $*"
  fi
  return "$status"
}

# Prints what a suite has shown, and keeps it for the table.
figure() {
  echo "$*"
  echo "$*" >>"$figures"
}

build() { # PRESET [TARGET...]
  quietly cmake --preset "$1"
  quietly cmake --build --preset "$1" ${2:+--target "${@:2}"}
}

# The built levels that the tests in the log have skipped, because this processor does not run them.
lacking() {
  grep -E '\(Skipped\)|^\[  SKIPPED ' "$log" | grep -oE '/(avx2|avx512|neon)\b' | sort -u |
    paste -sd ' ' | sed -E '/./{s/^/ (not on this processor: /; s|/||g; s/$/)/}'
}

tests() { # PRESET [CTEST OPTION...]
  quietly ctest --preset "$1" -j "$jobs" "${@:2}"
  figure "$(grep -oE '[0-9]+% tests passed.*' "$log" | sed -E 's/100% tests passed, 0 tests failed out of/tests:/')$(lacking)"
}

build_and_test() {
  build "$1"
  tests "$@"
}

# Runs a GoogleTest program in as many parts at once as there are processors.
in_parts() { # COMMAND...
  quietly xargs -P "$jobs" -I{} -a <(seq 0 $((jobs - 1))) \
    env "GTEST_TOTAL_SHARDS=$jobs" GTEST_SHARD_INDEX={} "$@"
  figure "$(grep -oE 'PASSED  \] [0-9]+' "$log" | awk '{n += $3} END {print "tests: " n}')$(lacking)"
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
  build asan-ubsan operations differential
  in_parts build/asan-ubsan/tests/operations/operations
  quietly build/asan-ubsan/tests/differential/differential --seed 4 --calls 10000
  figure "with g++: $(tail -n 1 "$log")"
}

suite_tsan() {
  deps tool test
  build tsan threads chain_threads rast_tool
  tests tsan -R '^(interface.threads|chain.threads|tool.(rast|chain|streams|tiff|raster|print_filter))$'
}

# The kernels are the ones tested beside each other elsewhere; what differs here is the choice. The
# baseline alone, as for a C library without load-time choice, runs all the same.
suite_levels() {
  deps test arm qemu
  build_and_test level-baseline -LE exhaustive
  local level parts=(rast{,_static} rastchain{,_static} manuals {,chain_}layout_{C,CXX} level threads)
  for level in level-avx2 level-avx512 arm-baseline arm-neon; do
    build "$level" "${parts[@]}"
    if [[ $level == arm-* ]] || grep -qwE "${level#*-}|${level#*-}_?vbmi" /proc/cpuinfo; then
      tests "$level" -R '^interface'
    else
      figure "$level: built, not run on this processor"
    fi
  done
  local build=build/arm-own-neon
  quietly cmake -S . -B $build -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/armhf.cmake \
    -DCMAKE_CXX_FLAGS=-mfpu=neon -DRAST_TOOL=OFF -DRAST_CHAIN=ON -DRAST_WERROR=ON
  quietly cmake --build $build --target rast rastchain
  figure "arm with NEON among the compiler's own flags: built"
}

suite_simulated() {
  deps test simulated
  build_and_test simulated
}

suite_old-cpus() {
  deps tool test qemu
  build default level operations chain
  local cpu level
  for cpu in Nehalem:baseline Haswell:avx2; do
    level=${cpu#*:}
    cpu=${cpu%:*}
    chooses "$level" qemu-x86_64 -cpu "$cpu" build/default/tests/interface/level
    in_parts qemu-x86_64 -cpu "$cpu" build/default/tests/operations/operations \
      "--gtest_filter=*$level*"
    in_parts qemu-x86_64 -cpu "$cpu" build/default/tests/chain/chain "--gtest_filter=*$level*"
  done
}

# All but what takes whole domains, in one process for each processor: emulators start slowly.
other_machine() { # PRESET EMULATOR...
  build "$1"
  tests "$1" -R '^interface'
  in_parts "${@:2}" "build/$1/tests/operations/operations"
  in_parts "${@:2}" "build/$1/tests/chain/chain"
  quietly "${@:2}" "build/$1/tests/differential/differential" --seed 1 --calls 3000
  figure "$(grep -oE '^[0-9]+ calls' "$log" | sed 's/\([0-9]*\) calls/random calls: \1/')"
}

suite_i386() {
  deps test i386
  other_machine i386
}

suite_qemu-arm() {
  deps test arm qemu
  local arm=(qemu-arm -L /usr/arm-linux-gnueabihf)
  other_machine arm "${arm[@]}"
  chooses neon "${arm[@]}" -cpu cortex-a9 build/arm/tests/interface/level
  chooses baseline "${arm[@]}" -cpu cortex-a9,neon=off build/arm/tests/interface/level
  quietly /usr/bin/python3 tests/tool/test_documents.py Examples.test_for_a_controller
}

suite_qemu-arm64() {
  deps test aarch64 qemu
  local arm=(qemu-aarch64 -L /usr/aarch64-linux-gnu)
  other_machine aarch64 "${arm[@]}"
  in_parts "${arm[@]}" build/aarch64/tests/exhaustive/exhaustive
}

suite_big-endian() {
  deps test powerpc s390x qemu
  other_machine powerpc qemu-ppc -L /usr/powerpc-linux-gnu
  other_machine s390x qemu-s390x -L /usr/s390x-linux-gnu
}

suite_musl() {
  deps musl
  local specs=/usr/lib/x86_64-linux-musl/musl-gcc.specs
  quietly cmake -S . -B build/musl -G Ninja -DRAST_TOOL=OFF -DRAST_WERROR=ON \
    -DCMAKE_C_COMPILER=musl-gcc "-DCMAKE_CXX_FLAGS=-specs=$specs" \
    -DCMAKE_TRY_COMPILE_TARGET_TYPE=STATIC_LIBRARY
  quietly cmake --build build/musl
  quietly musl-gcc -static -Iinclude -o build/musl/consumer \
    tests/interface/consumer/consumer.c build/musl/src/librast.a
  quietly build/musl/consumer
  figure "a C program linked with musl gets the samples it expects"
}

suite_symbols() {
  deps test clang arm aarch64
  local target optimize compiler build chain=include/rast_chain.h exports
  for target in gcc clang armhf aarch64; do
    case $target in
      gcc) compiler=(-DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++) ;;
      clang) compiler=(-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++) ;;
      *) compiler=("-DCMAKE_TOOLCHAIN_FILE=$PWD/cmake/$target.cmake") ;;
    esac
    for optimize in -O0 -O2; do
      build=build/symbols/$target$optimize
      quietly cmake -S . -B "$build" -G Ninja -DRAST_TOOL=OFF -DRAST_CHAIN=ON -DRAST_WERROR=ON \
        -DCMAKE_BUILD_TYPE=None "-DCMAKE_CXX_FLAGS=$optimize" "${compiler[@]}"
      quietly cmake --build "$build"
      quietly tests/interface/check_binary.py include/rast.h "$build"/src/librast.{so,a}
      exports=$(grep -oE '[0-9]+ exports' "$log")
      quietly tests/interface/check_chain_binary.py $chain include/rast.h \
        "$build"/chain/librastchain.so
      figure "$target $optimize: $exports; $(grep -oE '[0-9]+ exports' "$log") for chains"
    done
  done
}

# A deliberate change of an interface is stored by
#   abidw ... --out-file tests/interface/NAME.abi LIBRARY
# with the options below.
suite_abi() {
  deps abi
  quietly cmake -S . -B build/abi -G Ninja -DRAST_TOOL=OFF -DRAST_CHAIN=ON \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo "-DCMAKE_CXX_FLAGS=-ffile-prefix-map=$PWD/="
  quietly cmake --build build/abi --target rast rastchain
  local interface=(--exported-interfaces-only --drop-private-types --headers-dir include) library name
  for library in src/librast chain/librastchain; do
    name=${library#*/}
    quietly abidw "${interface[@]}" --no-show-locs --no-corpus-path --no-comp-dir-path \
      --out-file "build/abi/$name.abi" "build/abi/$library.so"
    quietly abidiff "tests/interface/$name.abi" "build/abi/$name.abi"
    figure "$name: $(grep -c '<function-decl name=.rast' "build/abi/$name.abi") functions"
  done

  local folder
  rm -rf build/twice
  for folder in build/twice/one build/twice/another/one; do
    mkdir -p "$folder"
    cp -r CMakeLists.txt chain cmake include packaging src "$folder"
    quietly cmake -S "$folder" -B "$folder/build" -G Ninja -DRAST_TOOL=OFF -DRAST_CHAIN=ON \
      -DRAST_MANUALS=OFF
    quietly cmake --build "$folder/build"
  done
  for library in src/librast chain/librastchain; do
    quietly cmp build/twice/{one,another/one}/build/"$library".so.1.0.0
    quietly cmp build/twice/{one,another/one}/build/"$library".a
  done
  figure "two builds in two folders are the same"
}

suite_install() {
  deps tool test
  build_and_test default -R '^interface.install$'
  quietly /usr/bin/python3 tests/tool/test_documents.py Examples.installation_as_printed
}

suite_queue() {
  deps tool test queue
  build_and_test default -R '^tool.(print_filter|queue)$' --verbose
  # Without what stands before it in a queue, the tests would have been skipped.
  if grep -q skipped "$log"; then return 1; fi
  figure "$(grep -oE 'Ran [0-9]+ tests' "$log" | sed 's/Ran \([0-9]*\) tests/functions: \1/')"
}

suite_reference() {
  quietly make reference
  local link
  while read -r link; do
    quietly test -e "build/reference/html/$link"
  done < <(grep -ohE '(src|href)="[^"#:]+["#]' build/reference/html/*.html | sed 's/.*="//; s/.$//' |
    sort -u)
  figure "no warning, no broken link"
}

suite_gallery() {
  deps browser
  quietly make gallery
  quietly /usr/bin/python3 tests/web/test_gallery.py
  figure "$(grep -oE 'Ran [0-9]+ tests' "$log" | sed 's/Ran \([0-9]*\) tests/tests: \1/')"
}

suite_playground() {
  deps tool browser
  build demo rast_tool
  quietly make playground
  local built=(env "RAST=$PWD/build/demo/tool/rast"
    "RAST_WASM=$PWD/build/wasm/web/playground/rast.wasm"
    "PLAYGROUND=$PWD/build/playground/index.html")
  quietly "${built[@]}" node --test tests/web/operations.test.mjs
  figure "$(grep -oE 'chains: .*' "$log")"
  quietly "${built[@]}" /usr/bin/python3 tests/web/test_page.py
  figure "in Chromium: $(grep -oE '^Ran [0-9]+ tests' "$log" | sed 's/Ran //')"
}

suite_coverage() {
  deps test coverage
  build coverage
  find build/coverage -name '*.gcda' -delete
  quietly ctest --preset coverage -R '^interface'
  in_parts build/coverage/tests/operations/operations
  local missing
  missing=$(lacking)
  in_parts build/coverage/tests/chain/chain
  # What is compiled for a level alone that this processor lacks cannot be run.
  if [[ $missing == *avx512* ]]; then
    find build/coverage -path '*_avx512*' -name '*.gc*' -delete
  fi
  quietly gcovr --root . --filter src/ --filter chain/lines/ --json build/coverage/coverage.json \
    build/coverage
  quietly tests/coverage/check.py build/coverage/coverage.json
  figure "$(tail -n 1 "$log")"
}

suite_valgrind() {
  deps tool test valgrind
  build default
  local memcheck=(valgrind --quiet --error-exitcode=9 --leak-check=full)
  in_parts "${memcheck[@]}" build/default/tests/operations/operations
  in_parts "${memcheck[@]}" build/default/tests/chain/chain
  quietly scripts/draw_page.py --gray --width 300 --height 200 build/default/page.pgm
  quietly "${memcheck[@]}" build/default/tool/rast expgamma --gain 300 build/default/page.{pgm,png}
  figure "the command: no errors"
}

# cppcheck takes vectors for scalars, and initialized temporaries for blocks. The analyzer of g++ 12
# is made for C: it knows neither constructors nor vectors; and that working lines stay allocated
# where the sums after them cannot be is part of the interface.
suite_lint() {
  deps tool test clang lint
  local files sources
  mapfile -t files < <(find bench chain examples include src tests tool -regex '.*\.\(c\|h\|cpp\|inl\)')
  quietly clang-format --dry-run -Werror "${files[@]}"
  quietly cmake --preset clang
  quietly run-clang-tidy -quiet -j "$jobs" -p build/clang "^$PWD/(chain|src|tool)/"
  quietly shellcheck scripts/*.sh .ci/run
  quietly shellcheck -s bash -e SC2034 tool/completion/rast.bash
  # The analyzer of g++ knows neither exceptions nor operator new: what needs no C++ runtime.
  mapfile -t sources < <(find chain/lines src -name 'rast*.cpp' -o -name '*_baseline.cpp' \
    -o -name definition.cpp -o -name tables.cpp)
  local one_level=(-Isrc -Ichain -Iinclude -DRAST_HAS_BASELINE=1 -DRAST_LEVELS_BUILT=1
    -DRAST_LOWEST_LEVEL=baseline)
  quietly cppcheck -q --error-exitcode=1 --std=c++20 --enable=warning,performance,portability \
    --suppress=constStatement --suppress={uninitvar,ctuuninitvar,shiftTooManyBitsSigned}:'*.inl' \
    "${one_level[@]}" "${sources[@]}" chain/*.cpp chain/{operations,steps,text}/*.cpp tool/*.cpp tool/*/*.cpp
  local source kept
  for source in "${sources[@]}"; do
    kept=()
    [[ $source != */rastZoom.cpp ]] || kept=(-Wno-analyzer-malloc-leak)
    quietly g++ -std=c++20 -O2 -Werror -fanalyzer -Wno-analyzer-use-of-uninitialized-value \
      -Wno-analyzer-shift-count-overflow "${kept[@]}" "${one_level[@]}" -c -o /dev/null "$source"
  done
  figure "files: ${#files[@]}"
}

suite_compilers() {
  deps test clang
  local compiler flags build
  for compiler in gcc:g++ clang:clang++; do
    for flags in -O0 -O2 -O3 '-O2 -fsigned-char' '-O2 -funsigned-char'; do
      build=build/compilers/${compiler%:*}${flags// /}
      quietly cmake -S . -B "$build" -G Ninja -DRAST_TOOL=OFF -DRAST_TESTS=ON \
        -DCMAKE_BUILD_TYPE=None -DCMAKE_C_COMPILER="${compiler%:*}" \
        -DCMAKE_CXX_COMPILER="${compiler#*:}" "-DCMAKE_CXX_FLAGS=$flags"
      quietly cmake --build "$build" --target operations chain
      figure "${compiler#*:} $flags"
      in_parts "$build/tests/operations/operations"
      in_parts "$build/tests/chain/chain"
    done
  done
}

suite_msan() {
  deps test clang
  build msan differential
  quietly build/msan/tests/differential/differential --seed 3 --calls 20000
  figure "$(tail -n 1 "$log")"
}

# From the seeds, in a corpus that is thrown away; a find is shrunk and shown by the target itself.
suite_fuzz() {
  deps tool test clang
  build fuzz fuzz_{tone,color,overlay,geometry,pages,chain}
  local corpora seeds target
  corpora=$(mktemp -d)
  for seeds in tests/{chain,differential,tool}/seeds/*; do
    target=${seeds#tests/}
    target=${target%%/*}/fuzz_${seeds##*/}
    [[ $seeds != */tool/* ]] || target=fuzz_pages
    mkdir "$corpora/${seeds##*/}"
    echo "build/fuzz/tests/$target -max_len=1000 -timeout=20 -artifact_prefix=$corpora/" \
      "-max_total_time=${FUZZ_SECONDS:-60} $corpora/${seeds##*/} $seeds"
  done >"$corpora/commands"
  quietly xargs -P "$jobs" -L 1 -a "$corpora/commands" env
  rm -r "$corpora"
  figure "$(awk '/^Done/ {n += $2; k += 1} END {print k " targets, " n " runs"}' "$log")," \
    "$(grep -m 1 '^Levels: ' "$log" | tr L l)"
}

suite_differential() {
  deps test
  build default differential
  local seed calls=${CALLS:-10000000}
  seed=$(od -An -N4 -tu4 /dev/urandom)
  quietly xargs -P "$jobs" -I{} -a <(seq $((seed + 1)) $((seed + jobs))) \
    build/default/tests/differential/differential --seed {} --calls $((calls / jobs))
  figure "$(grep -E '^seed' "$log" | paste -sd' ')" \
    "$(awk '/^[0-9]+ calls/ {n += $1} END {print n " calls"}' "$log")$(
      grep -m 1 -oE ', each .*' "$log")"
}

suite_packages() {
  deps tool test packages
  quietly tests/packages/check_packages.py build/packages
  local parts
  parts=$(grep -vE '^\+ ' "$log" | grep -E ': [0-9]+ s$')
  figure "${parts//$'\n'/; }"
}

suite_mutation() {
  deps test
  local wanted=(--sample "${MUTANTS:-300}")
  [[ ${MUTANTS:-} != 0 ]] || wanted=(--all)
  quietly tests/mutation/mutate.py "${wanted[@]}" --report --least 95
  cat "$log"
  figure "$(awk -F' *[|] *' '$2 == "all" {print $3 " mutants, " $6 " of them accepted; " \
    $7 " killed, " $8 " survive"} /does not run/ {gsub(":.*", ""); print}' "$log" | paste -sd ';')"
}

# With the seconds that each took when its figures were last stored.
if [[ ${1:-} == --list ]]; then
  while read -r name length claim; do
    seconds=$(awk -F' *[|] *' -v command="\`scripts/check.sh $name\`" '$3 == command {print $5}' \
      docs/verification.md)
    printf '%-14s%-6s%5s s  %s\n' "$name" "$length" "$seconds" "$claim"
  done <<<"$list"
  exit 0
fi
store=
if [[ ${1:-} == --store ]]; then
  store=yes
  shift
fi
mapfile -t all < <(awk '{print $1}' <<<"$list")
suites=("$@")
if [[ ${1:-} == --short ]]; then
  mapfile -t suites < <(awk '$2 == "short" {print $1}' <<<"$list")
elif ((${#suites[@]} == 0)); then
  suites=("${all[@]}")
fi
for suite in "${suites[@]}"; do
  if [[ " ${all[*]} " != *" $suite "* ]]; then
    echo "check.sh: no suite '$suite'; there are: ${all[*]}" >&2
    exit 2
  fi
done

# The commit and the day of a run, and how many suites it was of.
run="$(git describe --always --exclude '*' --dirty=' and changes' 2>/dev/null || echo 'no commit')"
run+=", $(date +%F), "
case ${#suites[@]} in
  1) run+=alone ;;
  "${#all[@]}") run+="all suites" ;;
  *) run+="${#suites[@]} suites" ;;
esac

# Puts the rows of this run in place of the stored ones, all in the order of the list.
store_rows() {
  local document=docs/verification.md merged name length claim row
  merged=$(mktemp)
  while read -r name length claim; do
    row=$(grep -hF "| \`scripts/check.sh $name\` |" "$table" "$document") ||
      row="scripts/check.sh $name\` | not run yet | | |"
    row=${row%%$'\n'*}
    echo "| $claim | \`scripts/check.sh ${row#*scripts/check.sh }"
  done <<<"$list" >"$merged"
  awk 'FILENAME == ARGV[1] {rows = rows $0 "\n"; next}
    /^\| .*\| `scripts\/check\.sh / {printf "%s", rows; rows = ""; next}
    {print}' "$merged" "$document" >"$log"
  cp "$log" "$document"
  rm "$merged"
}

passed=0
failed=()
for suite in "${suites[@]}"; do
  echo "== $suite ($((passed + ${#failed[@]} + 1)) of ${#suites[@]})"
  started=$SECONDS
  : >"$figures"
  # In a shell of its own: tested by if or ||, a function would go on after an error.
  set +e
  (
    set -e
    "suite_$suite"
  ) </dev/null
  status=$?
  set -e
  seconds=$((SECONDS - started))
  if ((status == 0)); then
    passed=$((passed + 1))
    echo "== $suite passed, $seconds s"
  else
    failed+=("$suite")
    echo "FAILED" >>"$figures"
    echo "== $suite FAILED, $seconds s"
  fi
  claim=$(awk -v name="$suite" '$1 == name' <<<"$list" | sed -E 's/^(\S+ +){2}//')
  echo "| $claim | \`scripts/check.sh $suite\` | $(paste -sd ';' "$figures" | sed 's/;/; /g')" \
    "| $seconds | $run |" >>"$table"
done
printf '\n| claim | command | shown | seconds | run |\n|---|---|---|---:|---|\n'
cat "$table"
echo
if ((${#failed[@]})); then
  echo "Failed: ${failed[*]}"
elif [[ $store ]]; then
  store_rows
  echo "The rows are stored in docs/verification.md."
fi
echo "$passed passed, ${#failed[@]} failed"
((${#failed[@]} == 0))
