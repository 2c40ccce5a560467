# Two entry points for a fresh Debian machine: `make run` and `make test`.
BUILD      ?= build
ASAN_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 60
JOBS       ?= $(shell nproc)

.PHONY: all deps build test run asan fuzz tidy format clean package

all: build

deps:
	@scripts/install-deps.sh

build: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD) -j $(JOBS)

test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# A .deb of the program, the recorder, the library and the Python backend, in $(BUILD).
package: build
	cd $(BUILD) && cpack -G DEB

# Only what the demo runs, so that the window shows before the tests and benchmarks are built.
DEMO_TARGETS = ZelVisaTraceTool zel-traffic zel-instrument zeltrace zel-run zelvisa visa-sim zel-visa-demo
run: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD) -j $(JOBS) --target $(DEMO_TARGETS)
	scripts/run-demo.sh $(BUILD)

# The whole suite under AddressSanitizer and UndefinedBehaviorSanitizer.
asan: deps
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DZEL_SANITIZE=ON -DZEL_BUILD_BENCHMARKS=OFF
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ctest --output-on-failure -j $(JOBS)

# Every libFuzzer target for FUZZ_SECONDS each (clang with ASan and UBSan); fails on any finding.
fuzz:
	@scripts/install-deps.sh fuzz
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZEL_BUILD_FUZZERS=ON \
		-DZEL_BUILD_BENCHMARKS=OFF
	cmake --build $(FUZZ_BUILD) -j $(JOBS) --target fuzz_segment fuzz_sharedring fuzz_viewfilter fuzz_valueformat \
		fuzz_settings fuzz_zelvisa fuzz_visasim fuzz_capturereader fuzz_recordoptions fuzz_zelcap fuzz_timeline
	fuzz/run.sh $(FUZZ_BUILD) $(FUZZ_SECONDS)

# clang-tidy (.clang-tidy) over the libraries and programs while they build; warnings are printed.
tidy: deps
	cmake --preset tidy
	cmake --build --preset tidy -j $(JOBS)

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD) $(ASAN_BUILD)
