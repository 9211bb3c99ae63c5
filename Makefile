# Front door: `make test` and `make bench` install what is missing, configure, build and run.
BUILD_TEST  := build/test
BUILD_BENCH := build/bench
JOBS        ?= $(shell nproc)

.PHONY: deps test bench clean

deps:
	scripts/install-deps

test: deps
	cmake -S . -B $(BUILD_TEST) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g" -DQM_SANITIZE=ON -DQM_BUILD_TESTS=ON
	cmake --build $(BUILD_TEST) -j $(JOBS)
	ctest --test-dir $(BUILD_TEST) --output-on-failure -j $(JOBS) --timeout 300

bench: deps
	cmake -S . -B $(BUILD_BENCH) -G Ninja -DCMAKE_BUILD_TYPE=Release \
	  -DCMAKE_CXX_FLAGS_RELEASE="-O3 -DNDEBUG" -DQM_SANITIZE=OFF -DQM_BUILD_TESTS=OFF -DQM_BUILD_BENCH=ON
	cmake --build $(BUILD_BENCH) -j $(JOBS)
	@for b in $(BUILD_BENCH)/*_bench; do echo "== $$b"; $$b || exit 1; done

clean:
	rm -rf build
