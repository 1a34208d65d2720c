# The front door: each target installs what it needs on Debian, then does its work.
.DEFAULT_GOAL := help
.PHONY: help test demo bench clean

help:
	@echo "make test   build everything and run the tests"
	@echo "make demo   run the filters on a real page; before and after pictures in demo/"
	@echo "make bench  time every operation at every level against memcpy and peers; a table in build/bench/"
	@echo "make clean  remove build/ and demo/"

test:
	@scripts/install-deps.sh build tool test
	@cmake --preset default
	@cmake --build --preset default
	@ctest --preset default -j "$$(nproc)"
	@echo "All tests passed."

demo:
	@scripts/install-deps.sh build tool demo
	@cmake --preset demo
	@cmake --build --preset demo
	@scripts/demo.sh build/demo/tool/rast

bench:
	@scripts/install-deps.sh build bench peers
	@cmake --preset bench
	@cmake --build --preset bench
	@build/bench/bench/rast_bench --benchmark_repetitions=9 \
	  --benchmark_enable_random_interleaving=true --benchmark_out=build/bench/results.json >/dev/null
	@bench/report.py build/bench/results.json --plot build/bench/results.svg >build/bench/results.md
	@echo "The table is in build/bench/results.md, a plot of it in results.svg beside it."

clean:
	@rm -rf build demo
	@echo "build/ and demo/ are removed."
