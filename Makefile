# Front door: `make demo`, `make test` and `make bench` install what is missing, configure, build
# and run.
# `make test` runs every test under AddressSanitizer + UndefinedBehaviorSanitizer, the pixel tests
# a second time on the plain DSP rows, then the concurrency tests under ThreadSanitizer.
BUILD_TEST  := build/test
BUILD_BENCH := build/bench
BUILD_TSAN  := build/tsan
JOBS        ?= $(shell nproc)

.PHONY: deps test bench demo clean

deps:
	scripts/install-deps

test: deps
	cmake -S . -B $(BUILD_TEST) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g" -DQM_SANITIZE=ON -DQM_BUILD_TESTS=ON
	cmake --build $(BUILD_TEST) -j $(JOBS)
	ctest --test-dir $(BUILD_TEST) --output-on-failure -j $(JOBS) --timeout 300
	cmake -S . -B $(BUILD_TSAN) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g" -DQM_SANITIZE=thread -DQM_BUILD_TESTS=ON -DQM_BUILD_TOOLS=OFF
	cmake --build $(BUILD_TSAN) -j $(JOBS) --target concurrency_tests
	ctest --test-dir $(BUILD_TSAN) --output-on-failure -j $(JOBS) --timeout 300

bench: deps
	cmake -S . -B $(BUILD_BENCH) -G Ninja -DCMAKE_BUILD_TYPE=Release \
	  -DCMAKE_CXX_FLAGS_RELEASE="-O3 -DNDEBUG" -DQM_SANITIZE=OFF -DQM_BUILD_TESTS=OFF -DQM_BUILD_BENCH=ON
	cmake --build $(BUILD_BENCH) -j $(JOBS)
	@for b in $(BUILD_BENCH)/*_bench; do echo "== $$b"; $$b || exit 1; done

demo: deps
	scripts/demo

clean:
	rm -rf build
