# Tarvik: build, run and test from the repository root.
#
#   make run     build build/tarvik only, then run it on the default machine
#   make test    every test: build/ (host and EFI tests, then the QEMU tests
#                QEMU_JOBS at a time), then build-asan/ (the host tests
#                under AddressSanitizer and UBSan), then build-tsan/ (the
#                multiprocessor tests under ThreadSanitizer); docs/testing.md
#   make build   build build/tarvik and build/TarvikDiag.efi
#   make qemu    boot TarvikDiag.efi on OVMF under QEMU, serial console here
#   make image   the USB disk image build/tarvik-usb.img, BOOTX64.EFI signed
#                for Secure Boot (SIGN_KEY=FILE SIGN_CERT=FILE, else the
#                project key in keys/; UNSIGNED=1: not signed); see
#                docs/secure-boot.md
#   make bench   build and run the benchmarks (figures in docs/performance.md)
#   make fuzz    build the libFuzzer targets in build-fuzz/ and run each for
#                FUZZ_SECONDS (default 60); see docs/reliability.md
#   make clean   remove build/, build-asan/, build-tsan/ and build-fuzz/
#
# Every target first installs missing Debian packages (tools/install-deps.sh).
# QEMU memory: make qemu TARVIK_QEMU_MEMORY=512 (MiB).

BUILD := build
ASAN_BUILD := build-asan
TSAN_BUILD := build-tsan
FUZZ_BUILD := build-fuzz
FUZZ_SECONDS ?= 60
JOBS := -j2
# The QEMU tests mostly wait on their emulated machines: several at once.
QEMU_JOBS ?= 4
CTEST := ctest --output-on-failure

IMAGE := $(BUILD)/tarvik-usb.img
QEMU_IMAGE := $(BUILD)/tarvik-qemu.img
EFI := $(BUILD)/TarvikDiag.efi
SIGNED_EFI := $(BUILD)/TarvikDiag-signed.efi
SIGN_CERT_DER := $(BUILD)/tarvik-db.cer

.PHONY: all deps build run test test-main test-asan test-tsan qemu image bench fuzz clean

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
	$(MAKE) --no-print-directory test-tsan

# Everything is built (benchmarks too, so they keep compiling); the tests
# without QEMU run first, then the QEMU tests in a run of their own.
test-main:
	cmake -S . -B $(BUILD) -DTARVIK_EFI=ON -DTARVIK_QEMU_TESTS=ON -DTARVIK_SANITIZE=OFF
	cmake --build $(BUILD) $(JOBS)
	$(CTEST) --test-dir $(BUILD) $(JOBS) -LE qemu
	$(CTEST) --test-dir $(BUILD) -j$(QEMU_JOBS) -L qemu

# Unoptimised with line tables only: the sanitizer build compiles in well
# under half the time of an optimised one with full debug information, and
# its reports still name file and line.
test-asan:
	cmake -S . -B $(ASAN_BUILD) -DTARVIK_SANITIZE=ON -DTARVIK_EFI=OFF -DTARVIK_QEMU_TESTS=OFF \
	  -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O0 -g1"
	cmake --build $(ASAN_BUILD) $(JOBS) --target host_tests
	$(CTEST) --test-dir $(ASAN_BUILD) $(JOBS)

# Only the multiprocessor tests (label mp): the memory test on the host
# firmware's AP threads, the march on threads, the MP services.
test-tsan:
	cmake -S . -B $(TSAN_BUILD) -DTARVIK_TSAN=ON -DTARVIK_EFI=OFF -DTARVIK_QEMU_TESTS=OFF
	cmake --build $(TSAN_BUILD) $(JOBS) --target mp_tests
	TSAN_OPTIONS=halt_on_error=1 $(CTEST) --test-dir $(TSAN_BUILD) -L mp

bench: deps
	cmake -S . -B $(BUILD)
	cmake --build $(BUILD) $(JOBS) --target memtest_benchmark recovery_benchmark nvme_scan_benchmark
	$(BUILD)/memtest_benchmark 256
	$(BUILD)/recovery_benchmark 100
	$(BUILD)/nvme_scan_benchmark 64

# clang++ with libFuzzer, ASan and UBSan; only the fuzz_* executables.
fuzz: deps
	cmake -S . -B $(FUZZ_BUILD) -DCMAKE_CXX_COMPILER=clang++ -DTARVIK_FUZZ=ON -DTARVIK_EFI=OFF -DTARVIK_QEMU_TESTS=OFF
	cmake --build $(FUZZ_BUILD) $(JOBS) --target fuzz_targets
	FUZZ_SECONDS=$(FUZZ_SECONDS) bash tests/fuzz/run_fuzz.sh $(FUZZ_BUILD)

# The signed image also carries the signing certificate (DER) for enrollment
# in firmware setup: \EFI\Tarvik\tarvik-db.cer.
image: build
ifeq ($(UNSIGNED),1)
	bash tools/make-image.sh $(IMAGE) $(EFI)
	@echo "USB disk image (not signed): $(IMAGE)"
else
	SIGN_KEY="$(SIGN_KEY)" SIGN_CERT="$(SIGN_CERT)" bash tools/sign-efi.sh $(EFI) $(SIGNED_EFI) $(SIGN_CERT_DER)
	bash tools/make-image.sh $(IMAGE) $(SIGNED_EFI) $(SIGN_CERT_DER)=/EFI/Tarvik/tarvik-db.cer
	@echo "USB disk image (signed): $(IMAGE)"
endif

# A fresh image of its own on every run, so `make image` output stays as built.
qemu: build
	bash tools/make-image.sh $(QEMU_IMAGE) $(EFI)
	@echo "Booting under QEMU; Ctrl-] quits."
	bash tools/qemu.sh $(QEMU_IMAGE)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(FUZZ_BUILD)
