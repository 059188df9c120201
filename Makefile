# Tarvik: build, run and test from the repository root.
#
#   make run     build build/tarvik only, then run it on the default machine
#   make test    every test: build/ (host and EFI tests, then the QEMU tests
#                QEMU_JOBS at a time), then build-asan/ (the host tests
#                under AddressSanitizer and UBSan); docs/testing.md
#   make build   build build/tarvik and build/TarvikDiag.efi
#   make qemu    boot TarvikDiag.efi on OVMF under QEMU, serial console here
#   make image   the USB disk image build/tarvik-usb.img
#   make bench   build and run the benchmarks (figures in docs/performance.md)
#   make fuzz    build the libFuzzer targets in build-fuzz/ and run each for
#                FUZZ_SECONDS (default 60); see docs/reliability.md
#   make clean   remove build/, build-asan/ and build-fuzz/
#
# Every target first installs missing Debian packages (tools/install-deps.sh).
# QEMU memory: make qemu TARVIK_QEMU_MEMORY=512 (MiB).

BUILD := build
ASAN_BUILD := build-asan
FUZZ_BUILD := build-fuzz
FUZZ_SECONDS ?= 60
JOBS := -j2
# The QEMU tests mostly wait on their emulated machines: several at once.
QEMU_JOBS ?= 4
CTEST := ctest --output-on-failure

IMAGE := $(BUILD)/tarvik-usb.img
QEMU_IMAGE := $(BUILD)/tarvik-qemu.img
EFI := $(BUILD)/TarvikDiag.efi

.PHONY: all deps build run test test-main test-asan qemu image bench fuzz clean

all: build

deps:
	@bash tools/install-deps.sh

build: deps
	cmake -S . -B $(BUILD)
	cmake --build $(BUILD) $(JOBS) --target tarvik TarvikDiag

# The default machine keeps its volume directories in the working directory.
run: deps
	cmake -S . -B $(BUILD)
	cmake --build $(BUILD) $(JOBS) --target tarvik
	cd $(BUILD) && ./tarvik

test: deps
	$(MAKE) --no-print-directory test-main
	$(MAKE) --no-print-directory test-asan

# Everything is built (benchmarks too, so they keep compiling); the tests
# without QEMU run first, then the QEMU tests in a run of their own.
test-main:
	cmake -S . -B $(BUILD) -DTARVIK_EFI=ON -DTARVIK_QEMU_TESTS=ON -DTARVIK_SANITIZE=OFF
	cmake --build $(BUILD) $(JOBS)
	$(CTEST) --test-dir $(BUILD) $(JOBS) -LE qemu
	$(CTEST) --test-dir $(BUILD) -j$(QEMU_JOBS) -L qemu

test-asan:
	cmake -S . -B $(ASAN_BUILD) -DTARVIK_SANITIZE=ON -DTARVIK_EFI=OFF -DTARVIK_QEMU_TESTS=OFF
	cmake --build $(ASAN_BUILD) $(JOBS) --target host_tests
	$(CTEST) --test-dir $(ASAN_BUILD) $(JOBS)

bench: deps
	cmake -S . -B $(BUILD)
	cmake --build $(BUILD) $(JOBS) --target memtest_benchmark recovery_benchmark
	$(BUILD)/memtest_benchmark 256
	$(BUILD)/recovery_benchmark 100

# clang++ with libFuzzer, ASan and UBSan; only the fuzz_* executables.
fuzz: deps
	cmake -S . -B $(FUZZ_BUILD) -DCMAKE_CXX_COMPILER=clang++ -DTARVIK_FUZZ=ON -DTARVIK_EFI=OFF -DTARVIK_QEMU_TESTS=OFF
	cmake --build $(FUZZ_BUILD) $(JOBS) --target fuzz_targets
	FUZZ_SECONDS=$(FUZZ_SECONDS) bash tests/fuzz/run_fuzz.sh $(FUZZ_BUILD)

image: build
	bash tools/make-image.sh $(IMAGE) $(EFI)
	@echo "USB disk image: $(IMAGE)"

# A fresh image of its own on every run, so `make image` output stays as built.
qemu: build
	bash tools/make-image.sh $(QEMU_IMAGE) $(EFI)
	@echo "Booting under QEMU; Ctrl-] quits."
	bash tools/qemu.sh $(QEMU_IMAGE)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD)
