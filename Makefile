# The front door: each target installs what it needs on Debian, then does its work.
.DEFAULT_GOAL := help
.PHONY: help test verify demo gallery playground reference packages bench \
  footprint arm-cycles clean

help:
	@echo "make test        build everything and run the tests"
	@echo "make verify      run every suite of checks, long ones too; a table of what each has shown"
	@echo "make demo        run the filters on a real page; before and after pictures in demo/"
	@echo "make gallery     the filters on photographs and pages, before and after; build/gallery/index.html"
	@echo "make playground  a page that runs the library in a browser, by itself; build/playground/index.html"
	@echo "make reference   the interface, for a browser; build/reference/html/index.html"
	@echo "make packages    build Debian packages into build/packages/"
	@echo "make bench       time every operation at every level against memcpy and peers; build/bench/operations.md"
	@echo "make footprint   code, data and stack of the library for each target and level; a table"
	@echo "make arm-cycles  instructions and estimated cycles of every operation on ARM; a table"
	@echo "make clean       remove build/ and demo/"

test:
	@scripts/install-deps.sh build tool test
	@cmake --preset default
	@cmake --build --preset default
	@ctest --preset default -j "$$(nproc)"
	@echo "All tests passed."

verify:
	@scripts/check.sh

demo:
	@scripts/install-deps.sh build tool demo
	@cmake --preset demo
	@cmake --build --preset demo
	@scripts/demo.sh build/demo/tool/rast

gallery:
	@scripts/install-deps.sh build tool gallery
	@cmake --preset demo
	@cmake --build --preset demo
	@web/gallery/make.py

playground:
	@scripts/install-deps.sh build wasm
	@cmake --preset wasm
	@cmake --build --preset wasm
	@web/playground/build.py build/wasm/web/playground/rast.wasm build/playground/index.html
	@echo "The playground is build/playground/index.html; open it in a browser."

reference:
	@scripts/install-deps.sh reference
	@mkdir -p build/reference
	@doxygen docs/Doxyfile
	@cp --parents include/*.h examples/chain.c build/reference/html
	@cp --parents tests/coverage/unreached.txt tests/interface/*.abi \
	  tests/mutation/equivalent.txt build/reference
	@echo "The reference is build/reference/html/index.html; open it in a browser."

packages:
	@scripts/install-deps.sh build tool test packages
	@scripts/packages.sh build/packages
	@echo "The packages are:"
	@ls build/packages/*.deb

bench:
	@scripts/install-deps.sh build bench peers
	@cmake --preset bench
	@cmake --build --preset bench
	@build/bench/bench/rast_bench --benchmark_repetitions=9 \
	  --benchmark_enable_random_interleaving=true --benchmark_out=build/bench/results.json >/dev/null
	@bench/report.py summary build/bench/results.json >build/bench/here.json
	@bench/report.py table build/bench/here.json >build/bench/operations.md
	@bench/report.py plot build/bench/here.json >build/bench/operations.svg
	@echo "The table is build/bench/operations.md, its picture build/bench/operations.svg."

footprint:
	@scripts/install-deps.sh build arm aarch64 figures >&2
	@bench/footprint.py

arm-cycles:
	@scripts/install-deps.sh build arm aarch64 qemu figures >&2
	@bench/arm_cycles.py

clean:
	@rm -rf build demo
	@echo "build/ and demo/ are removed."
