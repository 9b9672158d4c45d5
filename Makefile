# Two entry points: `make demo` and `make test` (plus `make test-sanitize`).
# Each installs missing Debian packages, configures, builds and runs.

BUILD_DIR     ?= build
SANITIZE_DIR  ?= build-sanitize
JOBS          ?= $(shell nproc)
PACKAGES      := cmake g++ make pkg-config libtbb-dev libboost-dev libassimp-dev \
                 libgtest-dev libbenchmark-dev nlohmann-json3-dev \
                 libcli11-dev libpng-dev zlib1g-dev libembree-dev assimp-testmodels \
                 pybind11-dev python3-dev python3-numpy python3-pytest clang libclang-rt-14-dev \
                 clang-format dpkg-dev python3-distributed
DEMO_IMAGE    ?= $(BUILD_DIR)/velpick-demo.png
FUZZ_DIR      ?= build-fuzz
TSAN_DIR      ?= build-tsan
# Where test-tsan finds (or else builds) a oneTBB built with ThreadSanitizer.
TSAN_TBB      ?= $(CURDIR)/$(TSAN_DIR)/onetbb
FUZZ_SECONDS  ?= 60
FUZZ_TARGETS  := fuzz_import_ply fuzz_import_off fuzz_import_stl fuzz_import_obj \
                 fuzz_scene fuzz_pixel_grid fuzz_mark_polygon fuzz_visibility_detector \
                 fuzz_graph_mark_polygon

.PHONY: all deps configure build demo example python test test-sanitize test-tsan tsan-onetbb \
        fuzz bench format format-check clean

all: build

# Installs only what is missing; apt-get update runs once, quietly, and only then.
deps:
	@missing=$$(for p in $(PACKAGES); do \
	    dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q 'install ok installed' || echo $$p; \
	  done); \
	if [ -n "$$missing" ]; then \
	  echo "Installing:" $$missing; \
	  if [ "$$(id -u)" -ne 0 ]; then echo "error: run as root to install:" $$missing >&2; exit 1; fi; \
	  DEBIAN_FRONTEND=noninteractive apt-get update -qq >/dev/null && \
	  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $$missing >/dev/null; \
	fi

configure: deps
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=Release >/dev/null

build: configure
	cmake --build $(BUILD_DIR) -j $(JOBS)

demo: build
	$(BUILD_DIR)/tools/velpick --demo --image $(DEMO_IMAGE)
	@echo "Picture of the pick: $(DEMO_IMAGE)"

# A real mesh from Debian's assimp test models, cut by a clipping plane, through the graph picker.
example: build
	$(BUILD_DIR)/tools/velpick examples/spider_graph.json --image $(BUILD_DIR)/spider-graph.png \
	  --output $(BUILD_DIR)/spider-graph.json
	@echo "Marked feature edges: $(BUILD_DIR)/spider-graph.png and $(BUILD_DIR)/spider-graph.json"

# The Python module velpick; use it with PYTHONPATH=$(BUILD_DIR)/python /usr/bin/python3.
python: configure
	cmake --build $(BUILD_DIR) -j $(JOBS) --target velpick_python

# ctest runs the Python tests too (python_tests, with pytest).
test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

test-sanitize: deps
	cmake -S . -B $(SANITIZE_DIR) -DCMAKE_BUILD_TYPE=Debug -DVELPICK_SANITIZE=ON -DVELPICK_BUILD_BENCHMARKS=OFF >/dev/null
	cmake --build $(SANITIZE_DIR) -j $(JOBS)
	cd $(SANITIZE_DIR) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
	  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 ctest --output-on-failure -j $(JOBS)

# ThreadSanitizer over the test programs that run oneTBB code. TSan sees only the synchronisation
# of instrumented code: against Debian's libtbb every task hand-off of the scheduler reads as a
# race, in our parallel bodies as much as in oneTBB. So the lane links the same oneTBB version
# rebuilt with TSan from Debian's source package (tests/tsan/build_onetbb, once, into TSAN_TBB).
test-tsan: tsan-onetbb
	cmake -S . -B $(TSAN_DIR) -DCMAKE_BUILD_TYPE=Debug -DVELPICK_TSAN=ON -DVELPICK_BUILD_PYTHON=OFF \
	  -DVELPICK_BUILD_BENCHMARKS=OFF -DTBB_DIR=$(TSAN_TBB)/lib/cmake/TBB >/dev/null
	cmake --build $(TSAN_DIR) -j $(JOBS)
	cd $(TSAN_DIR) && TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
	  ctest --output-on-failure -j $(JOBS)

# The oneTBB that test-tsan links; needs Debian's source package from deb.debian.org.
tsan-onetbb: deps
	@test -f $(TSAN_TBB)/lib/cmake/TBB/TBBConfig.cmake || \
	  tests/tsan/build_onetbb $(TSAN_DIR)/onetbb-build $(TSAN_TBB)

# libFuzzer targets with ASan and UBSan, each run FUZZ_SECONDS on its seed corpus (fuzz/run).
fuzz: deps
	cmake -S . -B $(FUZZ_DIR) -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=clang++ \
	  -DVELPICK_SANITIZE=ON -DVELPICK_FUZZ=ON -DVELPICK_BUILD_TESTS=OFF \
	  -DVELPICK_BUILD_BENCHMARKS=OFF >/dev/null
	cmake --build $(FUZZ_DIR) -j $(JOBS) --target $(FUZZ_TARGETS)
	fuzz/run $(FUZZ_DIR) $(FUZZ_SECONDS) $(FUZZ_TARGETS)

bench: build
	$(BUILD_DIR)/bench/velpick_bench

format:
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

# Fails, naming each file and line, where the sources differ from the project's format.
format-check: deps
	git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run -Werror

clean:
	rm -rf $(BUILD_DIR) $(SANITIZE_DIR) $(FUZZ_DIR) $(TSAN_DIR)
