// The host firmware's MP services: procedures run on the APs' own threads,
// blocking or signalling a wait event; a busy AP refuses a second start; a
// hung AP times out into the failed list.
#include <gtest/gtest.h>

#include <atomic>

#include "core/globals.h"
#include "hostfw/mp_services.h"
#include "tests/support/test_machine.h"

namespace {

using testing_support::TestMachine;

std::atomic<unsigned> g_seen_processors{0};  // a bit per processor that ran the procedure

EFIAPI VOID RecordWhoRuns(VOID* argument) {
  UINTN number = 0;
  auto* mp = static_cast<EFI_MP_SERVICES_PROTOCOL*>(argument);
  if (mp->WhoAmI(mp, &number) == EFI_SUCCESS) g_seen_processors |= 1u << number;
}

TEST(HostMpServices, RunsProceduresOnTheApsBlockingOrWithAWaitEventAndTimesOutAHungAp) {
  TestMachine machine;  // the default machine: four processors
  EFI_MP_SERVICES_PROTOCOL* mp = machine->mp().protocol();
  UINTN total = 0, enabled = 0;
  ASSERT_EQ(mp->GetNumberOfProcessors(mp, &total, &enabled), EFI_SUCCESS);
  EXPECT_EQ(total, 4u);
  EXPECT_EQ(enabled, 4u);
  EFI_PROCESSOR_INFORMATION info{};
  ASSERT_EQ(mp->GetProcessorInfo(mp, 0, &info), EFI_SUCCESS);
  EXPECT_EQ(info.StatusFlag & PROCESSOR_AS_BSP_BIT, static_cast<UINT32>(PROCESSOR_AS_BSP_BIT));
  UINTN me = 9;
  ASSERT_EQ(mp->WhoAmI(mp, &me), EFI_SUCCESS);
  EXPECT_EQ(me, 0u);

  g_seen_processors = 0;
  ASSERT_EQ(mp->StartupAllAPs(mp, RecordWhoRuns, FALSE, nullptr, 0, mp, nullptr), EFI_SUCCESS);
  EXPECT_EQ(g_seen_processors, 0b1110u);

  g_seen_processors = 0;
  EFI_EVENT done = nullptr;
  ASSERT_EQ(tarvik::gBS->CreateEvent(0, 0, nullptr, nullptr, &done), EFI_SUCCESS);
  ASSERT_EQ(mp->StartupThisAP(mp, RecordWhoRuns, 3, done, 0, mp, nullptr), EFI_SUCCESS);
  EXPECT_EQ(mp->StartupThisAP(mp, RecordWhoRuns, 3, nullptr, 0, mp, nullptr), EFI_NOT_READY);
  UINTN index = 9;
  ASSERT_EQ(tarvik::gBS->WaitForEvent(1, &done, &index), EFI_SUCCESS);
  EXPECT_EQ(g_seen_processors, 0b1000u);

  machine->faults().mp_hung_processor = 1;
  UINTN* failed = nullptr;
  const uint64_t before = machine->clock().now_ns();
  EXPECT_EQ(mp->StartupAllAPs(mp, RecordWhoRuns, FALSE, nullptr, 5000, mp, &failed), EFI_TIMEOUT);
  EXPECT_EQ(machine->clock().now_ns() - before, 5000000u);
  ASSERT_NE(failed, nullptr);
  EXPECT_EQ(failed[0], 1u);
  EXPECT_EQ(failed[1], END_OF_CPU_LIST);
  tarvik::gBS->FreePool(failed);
  EXPECT_EQ(mp->SwitchBSP(mp, 1, TRUE), EFI_UNSUPPORTED);
  tarvik::gBS->CloseEvent(done);
}

}  // namespace
