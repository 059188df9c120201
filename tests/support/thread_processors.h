// The APs as threads of this process, started per phase as the firmware's
// MP services start them: the march's Processors policy for the tests and
// the benchmark.
#pragma once

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "efi/efi.h"

namespace testing_support {

struct ThreadProcessors {
  UINT64 count;
  std::vector<std::thread> threads;
  std::atomic<UINT64> returned{0};

  UINT64 Count() const { return count; }
  bool Start(EFI_AP_PROCEDURE procedure, VOID* argument) {
    join();
    returned = 0;
    for (UINT64 i = 1; i < count; ++i) threads.emplace_back([this, procedure, argument] {
      procedure(argument);
      ++returned;
    });
    return true;
  }
  bool Finished() { return returned == count - 1; }
  void Idle() { std::this_thread::sleep_for(std::chrono::milliseconds(1)); }
  void join() {
    for (std::thread& t : threads) t.join();
    threads.clear();
  }
  ~ThreadProcessors() { join(); }
};

}  // namespace testing_support
