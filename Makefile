# The one front door. `make run` and `make test` do everything, Debian's packages included.

BUILD_PACKAGES := g++ cmake ninja-build libace-dev libace-ssl-dev libssl-dev \
                  libyajl-dev libboost-dev libcli11-dev libsystemd-dev
TEST_PACKAGES  := libgtest-dev libgmock-dev openssl
BENCH_PACKAGES := libbenchmark-dev rapidjson-dev libcurl4-openssl-dev valgrind python3 wrk
CHECK_PACKAGES := clang-format clang-tidy
FUZZ_PACKAGES  := clang libclang-rt-14-dev
FUZZ_SECONDS   ?= 60
LOAD_DOOR      ?= tcp
SOAK_PACKAGES  := python3
SOAK_SECONDS   ?= 60
COVERAGE_PACKAGES := gcovr
JOBS ?= $(shell nproc)

.PHONY: help deps build run test test-peers check sanitize asan tsan fuzz bench \
        bench-instructions load soak coverage format clean
help:
	@echo "make run       build everything and serve on tcp://127.0.0.1:7070 and http://127.0.0.1:8080"
	@echo "make test      build and run the tests"
	@echo "make test-peers  the clients against servers of other makers, and the host against their clients"
	@echo "make build     build the libraries, the host and the sample plug-ins"
	@echo "make deps      install the Debian packages that are missing"
	@echo "make check     formatting, layers, clang-tidy on changed files, tests"
	@echo "make sanitize  the tests under Address-, UndefinedBehavior- and ThreadSanitizer"
	@echo "make bench     the benchmarks, each beside its floor; the table is in build/bench.md"
	@echo "make bench-instructions  instructions and allocations of a message; fails when they rise"
	@echo "make fuzz      the fuzzers, FUZZ_SECONDS=60 each"
	@echo "make load      calls at fixed rates, and how long they took: build/load.md, build/load.svg;"
	@echo "               by LOAD_DOOR=tcp, http or ws"
	@echo "make soak      a hub and agents under load that are killed, SOAK_SECONDS=60; build/soak.md"
	@echo "make coverage  what the tests run of the product; the table is in build/coverage.md"
	@echo "make format    format the sources"
	@echo "make clean     remove build/"

deps: ; @tools/install_packages $(BUILD_PACKAGES) $(TEST_PACKAGES)

build:
	@tools/install_packages $(BUILD_PACKAGES)
	@tools/configure release -DJSON_RPC_TESTS=OFF
	@cmake --build --preset release --target product -j $(JOBS)

run: build
	build/release/bin/json_rpc_host $(HOST_OPTIONS)

test: deps
	@tools/configure release -DJSON_RPC_TESTS=ON
	@cmake --build --preset release -j $(JOBS)
	@ctest --test-dir build/release --output-on-failure

test-peers: deps
	@tools/configure release -DJSON_RPC_TESTS=ON
	@tests/peers/run release

asan tsan: deps
	@tools/configure $@
	@cmake --build --preset $@ -j $(JOBS)
	@ctest --test-dir build/$@ --output-on-failure

sanitize: asan tsan

fuzz: deps
	@tools/install_packages $(FUZZ_PACKAGES)
	@tools/configure fuzz
	@cmake --build --preset fuzz --target fuzzers -j $(JOBS)
	@fuzz/run $(FUZZ_SECONDS)

check: deps
	@tools/install_packages $(CHECK_PACKAGES)
	@tools/check_format
	@tools/check_layers
	@$(MAKE) --no-print-directory test
	@tools/tidy_changed

bench:
	@tools/install_packages $(BUILD_PACKAGES) $(TEST_PACKAGES) $(BENCH_PACKAGES)
	@tools/configure release -DJSON_RPC_TESTS=ON -DJSON_RPC_BENCH=ON
	@cmake --build --preset release -j $(JOBS)
	@bench/run

bench-instructions:
	@tools/install_packages $(BUILD_PACKAGES) $(TEST_PACKAGES) $(BENCH_PACKAGES)
	@tools/configure release -DJSON_RPC_TESTS=ON -DJSON_RPC_BENCH=ON
	@cmake --build --preset release --target count_path -j $(JOBS)
	@bench/instructions --check

load:
	@tools/install_packages $(BUILD_PACKAGES) $(TEST_PACKAGES) $(BENCH_PACKAGES)
	@tools/configure release -DJSON_RPC_TESTS=ON -DJSON_RPC_BENCH=ON
	@cmake --build --preset release --target product json_rpc_load -j $(JOBS)
	@bench/load/run $(LOAD_DOOR)

soak:
	@tools/install_packages $(BUILD_PACKAGES) $(TEST_PACKAGES) $(SOAK_PACKAGES)
	@tools/configure release -DJSON_RPC_TESTS=ON
	@cmake --build --preset release --target product change_wait -j $(JOBS)
	@/usr/bin/python3 -B tests/soak/soak.py --seconds $(SOAK_SECONDS) $(SOAK_OPTIONS)

coverage: deps
	@tools/install_packages $(COVERAGE_PACKAGES)
	@tools/configure coverage
	@cmake --build --preset coverage -j $(JOBS)
	@tools/coverage

format:
	@tools/install_packages clang-format
	@tools/check_format --fix

clean: ; rm -rf build
